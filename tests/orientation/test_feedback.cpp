// How the orientation algorithm steers the magnetometer calibration: events routed
// as a HAL routes them, magnetometer events to the calibration (type 2) and then to
// the orientation algorithm (type 3), accelerometer events to the orientation
// algorithm only.
#include <gtest/gtest.h>

#include "calmodule/magcal.h"
#include "calmodule/orientation.h"
#include "magcal/calibration_state.h"
#include "module/algorithms.h"
#include "support/module_loader.h"
#include "support/test_env.h"
#include "tests/magcal/sphere_samples.h"

using calmodule::kChipScale;

namespace {

using magcal_test::Vec3;
using testsupport::make_event;

constexpr int kAccelerometer = CALMODULE_TYPE_ACCELEROMETER;
constexpr int kMagneticField = CALMODULE_TYPE_MAGNETIC_FIELD;

// A field in µT as the chip reports it (counts).
sensors_event_t field_event(const Vec3 &f) { return make_event(kMagneticField, f.x / kChipScale[0], f.y / kChipScale[1], f.z / kChipScale[2]); }

void through(const cal_algo_methods &algorithm, const sensors_event_t &e) {
    sensors_event_t out = e;
    algorithm.convert(&e, &out);
}
void to_calibration(const sensors_event_t &e) { through(quarvel::mag_cal_methods, e); }
void to_orientation(const sensors_event_t &e) { through(quarvel::orientation_methods, e); }
void route(const sensors_event_t &e) {
    if (e.type == kMagneticField) to_calibration(e);
    to_orientation(e);
}

const sensors_event_t kFaceUp = make_event(kAccelerometer, 0.0f, 0.0f, 9.8f);
const sensors_event_t kFaceDown = make_event(kAccelerometer, 0.0f, 0.0f, -9.8f);

class Feedback : public ::testing::Test {
protected:
    void SetUp() override {
        testsupport::remove_param_file();
        magcal_test::twelve_on_sphere(Vec3{10.0f, -20.0f, 5.0f}, 45.0f, samples);
    }
    Vec3 sample(int i) const { return {samples[i][0], samples[i][1], samples[i][2]}; }

    // The device lies still: the orientation algorithm sees the same acceleration
    // until it holds.
    static void lie_still() {
        for (int i = 0; i < 41; ++i) to_orientation(kFaceUp);
        ASSERT_EQ(run_o, 0);
    }

    float samples[12][3];
};

TEST_F(Feedback, FaceDownDeviceStopsSampleAdmission) {
    // GIVEN the device lies face down, and the orientation algorithm has seen that
    // (it needs a field as well as the acceleration to compute anything)
    to_orientation(field_event(sample(11)));
    route(kFaceDown);
    // WHEN well-spread field samples arrive
    for (int i = 0; i < 6; ++i) route(field_event(sample(i)));
    // THEN none enters the calibration buffer
    EXPECT_EQ(cali_flag, 0);
    EXPECT_EQ(Msensor.dotsCount, 0);
    // WHEN it is turned face up, the following samples are admitted
    route(kFaceUp);
    EXPECT_EQ(cali_flag, 1);
    for (int i = 6; i < 9; ++i) route(field_event(sample(i)));
    EXPECT_EQ(Msensor.dotsCount, 3);
}

TEST_F(Feedback, LargeJumpWhileStillRestartsTheNextCalibrationCall) {
    // GIVEN a face-up device with samples buffered, lying still
    route(kFaceUp);
    for (int i = 0; i < 4; ++i) route(field_event(sample(i)));
    ASSERT_EQ(Msensor.dotsCount, 4);
    lie_still();
    ASSERT_EQ(cali_ret, 0);
    // WHEN the field jumps by 2500 counts on x (and 10 on y) against the held one
    sensors_event_t jump = field_event(sample(3));
    jump.data[0] += 2500.0f;
    jump.data[1] += 10.0f;
    route(jump);
    // THEN a restart is requested; the gross reading itself left the buffer alone
    EXPECT_EQ(cali_ret, 1);
    EXPECT_EQ(Msensor.dotsCount, 4);
    // AND the next calibration call restarts: buffer empty, level 0
    to_calibration(field_event(sample(5)));
    EXPECT_EQ(Msensor.dotsCount, 0);
    EXPECT_EQ(quarvel::cali_level, 0);
}

TEST_F(Feedback, HalfOfASmallJumpIsTakenOffTheOutputUntilAFitIsAccepted) {
    // GIVEN a device lying still in a steady field
    const sensors_event_t steady = make_event(kMagneticField, 20.0f, 15.0f, -39.0f);
    route(kFaceUp);
    to_orientation(steady);
    lie_still();
    // WHEN the orientation algorithm sees the field 10 counts further along x
    sensors_event_t moved = steady;
    moved.data[0] += 10.0f;
    to_orientation(moved);
    ASSERT_EQ(quarvel::noise_mag_delta[0], 5.0f);
    // THEN the calibration takes half of that jump off its output (no offset yet)
    const sensors_event_t next = field_event(sample(0));
    to_calibration(next);
    EXPECT_EQ(quarvel::cali_mag_values[0], next.data[0] * 1.5f - 0.0f - 5.0f);
    EXPECT_EQ(quarvel::cali_mag_values[1], next.data[1] * 1.5f);
    // WHEN the calibration accepts its first fit
    for (int i = 1; i < 12; ++i) to_calibration(field_event(sample(i)));
    // THEN the correction is gone
    EXPECT_EQ(quarvel::cali_level, 1);
    for (float d : quarvel::noise_mag_delta) EXPECT_EQ(d, 0.0f);
}

}  // namespace
