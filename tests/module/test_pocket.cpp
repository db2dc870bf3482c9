// Pocket detection driven as a HAL drives it: the module dlopened, light and
// proximity events through the pocket record's convert, enables through its config.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "support/log_capture.h"
#include "support/module_loader.h"

namespace {

using testsupport::LoadedModule;
using testsupport::log_records;
using testsupport::make_event;

constexpr int kPocket = 0x10001;
constexpr int kLight = 5;
constexpr int kProximity = 8;
constexpr int kDebug = 3;
constexpr int kError = 6;

struct Expected {
    int priority;
    std::string text;
};

std::string readings(const char *light, const char *proximity) {
    return std::string("last_light:") + light + " last_proximity:" + proximity + "\n";
}

void expect_records(const std::vector<Expected> &want) {
    const auto &got = log_records();
    ASSERT_EQ(got.size(), want.size());
    for (size_t i = 0; i < want.size(); ++i) {
        EXPECT_EQ(got[i].priority, want[i].priority) << "record " << i;
        EXPECT_EQ(got[i].tag, "sensor_cal.common") << "record " << i;
        EXPECT_EQ(got[i].text, want[i].text) << "record " << i;
    }
}

class Pocket : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(mod.ok());
        testsupport::clear_log_records();
    }
    // Returns convert's result; the delivered event lands in `out`.
    int feed(int type, float value) {
        out = testsupport::poisoned_event();
        return mod.convert(kPocket, make_event(type, value), &out);
    }
    int enable(int32_t on) { return mod.config(kPocket, 0, on); }

    LoadedModule mod;
    sensors_event_t out{};
};

TEST_F(Pocket, DimLightAfterLoadReportsCoveredOnceWithItsReadingsLogged) {
    // GIVEN a freshly loaded module
    // WHEN two dim light readings arrive
    ASSERT_EQ(feed(kLight, 500.0f), 0);
    EXPECT_EQ(out.data[0], 1.0f);
    EXPECT_EQ(out.type, kLight);  // the rest of the event is the input's
    EXPECT_EQ(feed(kLight, 800.0f), -1);
    // THEN only the first is delivered, and each reading is logged at debug priority
    expect_records({{kDebug, readings("500.000000", "-1.000000")},
                    {kDebug, readings("800.000000", "-1.000000")}});
}

TEST_F(Pocket, LightLimitIsInclusiveAndProximityLimitExclusive) {
    EXPECT_EQ(feed(kLight, 1000.0f), 0);
    EXPECT_EQ(out.data[0], 1.0f);
    EXPECT_EQ(feed(kLight, 1000.5f), 0);
    EXPECT_EQ(out.data[0], 0.0f);

    EXPECT_EQ(feed(kProximity, 5.0f), -1);  // uncovered already reported
    EXPECT_EQ(feed(kProximity, 4.9f), 0);
    EXPECT_EQ(out.data[0], 1.0f);
    EXPECT_EQ(feed(kProximity, 5.0f), 0);
    EXPECT_EQ(out.data[0], 0.0f);
}

TEST_F(Pocket, HeldProximityDecidesAloneAndLightIsIgnored) {
    // GIVEN a proximity reading of 0 (something against the sensor)
    ASSERT_EQ(feed(kProximity, 0.0f), 0);
    EXPECT_EQ(out.data[0], 1.0f);
    // WHEN bright light follows
    EXPECT_EQ(feed(kLight, 5000.0f), -1);
    // THEN the state stays covered; the light is still stored and logged
    expect_records({{kDebug, readings("-1.000000", "0.000000")},
                    {kDebug, readings("5000.000000", "0.000000")}});
}

TEST_F(Pocket, OtherEventTypeIsRefusedAndOutputIsAByteCopyOfTheInput) {
    sensors_event_t in = make_event(1, 0.5f, -9.8f, 3.25f);
    in.sensor = 42;
    in.timestamp = 123456789012345LL;
    in.data[9] = 7.0f;
    const sensors_event_t before = in;
    out = testsupport::poisoned_event();

    EXPECT_EQ(mod.convert(kPocket, in, &out), -1);

    EXPECT_EQ(std::memcmp(&out, &in, sizeof in), 0);
    EXPECT_EQ(std::memcmp(&in, &before, sizeof in), 0);  // input untouched
    expect_records({{kError, "type error:1\n"}});
    // No state changed: a first light reading is still reported...
    EXPECT_EQ(feed(kLight, 10.0f), 0);
    // ...and an unchanged state, refused, still leaves the copy in the output.
    in = make_event(kLight, 600.0f);
    in.timestamp = 99;
    EXPECT_EQ(mod.convert(kPocket, in, &out), -1);
    EXPECT_EQ(std::memcmp(&out, &in, sizeof in), 0);
}

TEST_F(Pocket, EnableForgetsTheStateSoTheSameReadingIsReportedAgain) {
    EXPECT_EQ(enable(1), 0);
    EXPECT_EQ(feed(kLight, 500.0f), 0);
    EXPECT_EQ(enable(1), 0);
    EXPECT_EQ(feed(kLight, 500.0f), 0);
    EXPECT_EQ(out.data[0], 1.0f);
    expect_records({{kDebug, "Enable status changed to 1\n"},
                    {kDebug, readings("500.000000", "-1.000000")},
                    {kDebug, "Enable status changed to 1\n"},
                    {kDebug, readings("500.000000", "-1.000000")}});
}

TEST_F(Pocket, EnableAlsoDropsAHeldProximityReading) {
    ASSERT_EQ(feed(kProximity, 1.0f), 0);
    enable(7);  // any nonzero value enables
    // Without the proximity reading, bright light decides again.
    EXPECT_EQ(feed(kLight, 2000.0f), 0);
    EXPECT_EQ(out.data[0], 0.0f);
}

TEST_F(Pocket, DisableOnlyLogsAndKeepsTheState) {
    ASSERT_EQ(feed(kLight, 500.0f), 0);
    EXPECT_EQ(enable(0), 0);
    EXPECT_EQ(feed(kLight, 500.0f), -1);
    expect_records({{kDebug, readings("500.000000", "-1.000000")},
                    {kDebug, "Enable status changed to 0\n"},
                    {kDebug, readings("500.000000", "-1.000000")}});
}

TEST_F(Pocket, OtherConfigCommandsAreSilentAndChangeNothing) {
    ASSERT_EQ(feed(kLight, 500.0f), 0);
    testsupport::clear_log_records();
    EXPECT_EQ(mod.config(kPocket, 1, 1, 200), 0);
    EXPECT_EQ(mod.config(kPocket, -5, 1), 0);
    EXPECT_EQ(mod.config(kPocket, 2, 1), 0);
    EXPECT_TRUE(log_records().empty());
    EXPECT_EQ(feed(kLight, 500.0f), -1);  // state kept
}

TEST_F(Pocket, NegativeLightWithoutProximityIsADataError) {
    enable(1);
    testsupport::clear_log_records();
    EXPECT_EQ(feed(kLight, -3.0f), -1);
    expect_records({{kDebug, readings("-3.000000", "-1.000000")}, {kError, "sensor data error\n"}});
    // The reading was stored, the reported state was not touched: a later dim
    // light is a change from "nothing reported".
    EXPECT_EQ(feed(kLight, 3.0f), 0);
    // A negative proximity reading is not held: the light still decides.
    EXPECT_EQ(feed(kProximity, -2.0f), -1);
}

TEST_F(Pocket, NanReadingsCountAsHeld) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    // A NaN light is not above the dim limit: covered.
    ASSERT_EQ(feed(kLight, nan), 0);
    EXPECT_EQ(out.data[0], 1.0f);
    // A NaN proximity is held and not below the near distance: uncovered.
    ASSERT_EQ(feed(kProximity, nan), 0);
    EXPECT_EQ(out.data[0], 0.0f);
    ASSERT_EQ(log_records().size(), 2u);
    EXPECT_NE(log_records()[1].text.find("nan"), std::string::npos);
}

TEST_F(Pocket, InfiniteReadingsDecideLikeLargeOnes) {
    const float inf = std::numeric_limits<float>::infinity();
    ASSERT_EQ(feed(kLight, inf), 0);
    EXPECT_EQ(out.data[0], 0.0f);
    EXPECT_EQ(feed(kProximity, -inf), -1);  // negative: the light still decides
    EXPECT_EQ(feed(kProximity, 0.0f), 0);
}



}  // namespace
