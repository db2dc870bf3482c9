// The cofactor inverse, sample selection and sphere fit, seen from inside the module.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>

#include "calmodule/magcal.h"
#include "tests/magcal/sphere_samples.h"

namespace {

using magcal_test::twelve_on_sphere;
using magcal_test::Vec3;

// ---- cofactor inverse ------------------------------------------------------------

struct Rows {
    double *r[4] = {nullptr, nullptr, nullptr, nullptr};
    ~Rows() {
        for (double *&p : r) {
            std::free(p);
            p = nullptr;
        }
    }
};

double det_of(int n, const double (*flat)[4]) {
    Rows m;
    Input(m.r, n, n, flat);
    return Determinant(m.r, n);
}

TEST(CofactorInverse, DeterminantsOfSmallMatrices) {
    const double one[4][4] = {{5}};
    const double two[4][4] = {{1, 2}, {3, 4}};
    const double identity[4][4] = {{1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}, {0, 0, 0, 1}};
    const double equal_rows[4][4] = {{1, 2, 3, 4}, {5, 6, 7, 8}, {1, 2, 3, 4}, {2, 0, 1, 9}};
    EXPECT_EQ(det_of(1, one), 5.0);
    EXPECT_EQ(det_of(2, two), -2.0);
    EXPECT_EQ(det_of(4, identity), 1.0);
    EXPECT_EQ(det_of(4, equal_rows), 0.0);
    EXPECT_EQ(Determinant(nullptr, 0), 0.0);
    EXPECT_EQ(Determinant(nullptr, 12), 0.0);  // beyond the minor table: refused
}

TEST(CofactorInverse, InverseIsTheAdjugateOverTheDeterminant) {
    const double m[4][4] = {{4, 7}, {2, 6}};
    Rows a, inv;
    Input(a.r, 2, 2, m);
    ASSERT_EQ(Determinant(a.r, 2), 10.0);
    Inverse(a.r, inv.r, 2, 10.0);
    double out[4][4] = {};
    Output(inv.r, 2, 2, out);
    EXPECT_EQ(out[0][0], 0.6);
    EXPECT_EQ(out[0][1], -0.7);
    EXPECT_EQ(out[1][0], -0.2);
    EXPECT_EQ(out[1][1], 0.4);
    EXPECT_EQ(AlCo(a.r, 2, 0, 1), -2.0);
    EXPECT_EQ(Cofactor(a.r, 2, 0, 1), 2.0);
}

TEST(CofactorInverse, InputAndOutputCopyRowsOfFour) {
    double flat[4][4];
    for (int i = 0; i < 16; ++i) flat[i / 4][i % 4] = i * 1.25 - 3.0;
    Rows m;
    Input(m.r, 4, 4, flat);
    double back[4][4] = {};
    Output(m.r, 4, 4, back);
    EXPECT_EQ(std::memcmp(back, flat, sizeof flat), 0);

    Rows three;
    Input(three.r, 4, 3, flat);
    double narrow[4][4] = {};
    Output(three.r, 4, 3, narrow);
    for (int i = 0; i < 4; ++i) {
        for (int j = 0; j < 3; ++j) EXPECT_EQ(narrow[i][j], flat[i][j]);
        EXPECT_EQ(narrow[i][3], 0.0);
    }
}

// ---- sphere fit ------------------------------------------------------------------

class SphereFit : public ::testing::Test {
protected:
    void SetUp() override { FusionInit(); }

    void load(const Vec3 &centre, float radius) {
        twelve_on_sphere(centre, radius, Msensor.dots);
        Msensor.dotsCount = 12;
        Msensor.dotsFull = 1;
    }
    int32_t fit(const Vec3 &centre, float radius) {
        load(centre, radius);
        return CalibrationFunc(&Msensor, offset);
    }
    float offset[3] = {-1.0f, -1.0f, -1.0f};
};

TEST_F(SphereFit, ExactSamplesGiveTheCentreAsFirstOffset) {
    ASSERT_EQ(fit({10, -20, 5}, 40), 3);
    EXPECT_EQ(Msensor.fitCount, 1);
    EXPECT_NEAR(Msensor.sphere[0][0], 20.0f, 1e-3f);
    EXPECT_NEAR(Msensor.sphere[0][1], -40.0f, 1e-3f);
    EXPECT_NEAR(Msensor.sphere[0][2], 10.0f, 1e-3f);
    EXPECT_NEAR(Msensor.sphere[0][3], -1075.0f, 1e-2f);
    EXPECT_NEAR(Msensor.radius[0], 40.0f, 1e-3f);
    EXPECT_NEAR(offset[0], 10.0f, 1e-3f);
    EXPECT_NEAR(offset[1], -20.0f, 1e-3f);
    EXPECT_NEAR(offset[2], 5.0f, 1e-3f);
    // The buffer stays as it was; selection empties it.
    EXPECT_EQ(Msensor.dotsCount, 12);
    EXPECT_EQ(Msensor.dotsFull, 1);
}

TEST_F(SphereFit, RefusesWithoutTouchingTheOffset) {
    EXPECT_EQ(fit({10, -20, 5}, 60), -7);  // radius beyond an earth-like field
    load({10, -20, 5}, 40);
    Msensor.dots[7][0] = Msensor.dots[7][1] = Msensor.dots[7][2] = 0.0f;
    EXPECT_EQ(CalibrationFunc(&Msensor, offset), -5);
    load({10, -20, 5}, 40);
    Msensor.dots[3][1] = NAN;  // no real sphere: never a NaN radius among the held fits
    EXPECT_EQ(CalibrationFunc(&Msensor, offset), -7);
    load({10, -20, 5}, 40);
    Msensor.dotsFull = 0;
    EXPECT_EQ(CalibrationFunc(&Msensor, offset), -9);
    EXPECT_EQ(Msensor.fitCount, 0);
    for (float o : offset) EXPECT_EQ(o, -1.0f);
}

TEST_F(SphereFit, SecondFitFarFromTheFirstReplacesIt) {
    ASSERT_EQ(fit({10, -20, 5}, 40), 3);
    ASSERT_EQ(fit({14, -16, 1}, 46), 3);
    EXPECT_EQ(Msensor.fitCount, 1);
    EXPECT_NEAR(Msensor.radius[0], 46.0f, 1e-3f);
    EXPECT_NEAR(offset[0], 14.0f, 1e-3f);
    EXPECT_NEAR(offset[1], -16.0f, 1e-3f);
    EXPECT_NEAR(offset[2], 1.0f, 1e-3f);
}

TEST_F(SphereFit, ModerateDeviationIsLeftOutAndGrossDeviationDiscardsAll) {
    for (int i = 0; i < 3; ++i) ASSERT_EQ(fit({10.0f + 2.0f * i, -20, 5}, 40), 3);
    ASSERT_EQ(Msensor.fitCount, 3);
    EXPECT_EQ(fit({30, 30, 30}, 45), 3);
    EXPECT_EQ(Msensor.fitCount, 3);
    EXPECT_EQ(Msensor.radiusErrCount, 1);
    EXPECT_NEAR(offset[0], 12.0f, 1e-3f);  // mean of the three held centres
    EXPECT_NEAR(offset[1], -20.0f, 1e-3f);

    EXPECT_EQ(fit({10, -20, 5}, 49), -8);
    EXPECT_EQ(Msensor.fitCount, 0);
    EXPECT_EQ(Msensor.radiusErrCount, 0);
    for (int i = 0; i < 4; ++i) EXPECT_EQ(Msensor.radius[i], 0.0f);
    EXPECT_NEAR(offset[0], 12.0f, 1e-3f);  // a refusal leaves the offset alone
}

TEST_F(SphereFit, FiveModerateDeviationsInARowDiscardAll) {
    for (int i = 0; i < 3; ++i) ASSERT_EQ(fit({10, -20, 5}, 40), 3);
    for (int i = 0; i < 4; ++i) ASSERT_EQ(fit({10, -20, 5}, 45), 3);
    EXPECT_EQ(Msensor.radiusErrCount, 4);
    EXPECT_EQ(fit({10, -20, 5}, 45), -8);
    EXPECT_EQ(Msensor.fitCount, 0);
}

TEST_F(SphereFit, SixtiethFitKeepsTheThirtyNewestNewestFirst) {
    for (int i = 0; i < 59; ++i) {
        Msensor.radius[i] = 40.0f;
        Msensor.sphere[i][0] = static_cast<float>(i);  // tags the fit's age
    }
    Msensor.fitCount = 59;
    ASSERT_EQ(fit({10, -20, 5}, 40), 3);
    EXPECT_EQ(Msensor.fitCount, 30);
    EXPECT_NEAR(Msensor.sphere[0][0], 20.0f, 1e-3f);  // the new fit
    for (int i = 1; i < 30; ++i) EXPECT_EQ(Msensor.sphere[i][0], static_cast<float>(59 - i)) << i;
    for (int i = 30; i < 60; ++i) {
        EXPECT_EQ(Msensor.radius[i], 0.0f);
        EXPECT_EQ(Msensor.sphere[i][0], 0.0f);
    }
}

// ---- sample selection ------------------------------------------------------------

class Selection : public ::testing::Test {
protected:
    void SetUp() override {
        FusionInit();
        noise_flag = 0;
    }
    int32_t offer(float x, float y, float z, int16_t permitted = 1) {
        const float m[3] = {x, y, z};
        return DotsSelection(m, &Msensor, &permitted);
    }
};

TEST_F(Selection, RangeTests) {
    EXPECT_EQ(offer(501, 0, 0), -13);
    EXPECT_EQ(offer(0, -501, 0), -13);
    EXPECT_EQ(offer(0, 0, 801), -13);
    EXPECT_EQ(offer(0, 0, 799), -10);
    EXPECT_EQ(offer(201, 0, 0), -10);
    EXPECT_EQ(offer(INFINITY, 0, 0), -13);
    EXPECT_EQ(Msensor.dotsCount, 0);
    EXPECT_EQ(offer(200, 200, 360), 4);
    EXPECT_EQ(Msensor.dotsCount, 1);
    EXPECT_EQ(offer(50, 50, 50, 0), -11);  // facing down: not permitted
    EXPECT_EQ(Msensor.dotsCount, 1);
}

TEST_F(Selection, SpreadDecidesWhatIsBuffered) {
    ASSERT_EQ(offer(10, 10, 10), 4);
    EXPECT_EQ(offer(20, 20, 10.5f), -11);  // z differs by 0.5
    EXPECT_EQ(offer(12, 13, 13), -11);     // differences sum to 8
    EXPECT_EQ(Msensor.dotsCount, 1);
    EXPECT_EQ(offer(13, 13, 13), 4);       // 3 + 3 + 3
    EXPECT_EQ(Msensor.dotsCount, 2);
}

TEST_F(Selection, FullBufferIsHandedOverOnceThenEmptied) {
    float s[12][3];
    twelve_on_sphere({10, -20, 5}, 40, s);
    for (int i = 0; i < 11; ++i) {
        ASSERT_EQ(offer(s[i][0], s[i][1], s[i][2]), 4) << i;
        ASSERT_EQ(DotsNumCheck(&Msensor), -4);
    }
    ASSERT_EQ(offer(s[11][0], s[11][1], s[11][2]), 4);
    EXPECT_EQ(DotsNumCheck(&Msensor), 2);
    EXPECT_EQ(Msensor.dotsFull, 1);
    EXPECT_EQ(DotsNumCheck(&Msensor), -4);
    EXPECT_EQ(offer(100, 100, 100, 0), -11);  // not permitted: the buffer stays
    EXPECT_EQ(Msensor.dotsCount, 12);
    EXPECT_EQ(offer(100, 100, 100), -11);     // consumed: emptied, sample discarded
    EXPECT_EQ(Msensor.dotsCount, 0);
    EXPECT_EQ(Msensor.dotsFull, 0);
    EXPECT_EQ(Msensor.dots[0][0], 0.0f);
}

TEST_F(Selection, OffShellReadingsReplaceTheNewestAndTheTenthIsReported) {
    // Two held fits around (10, -20, 5).
    Msensor.fitCount = 2;
    for (int i = 0; i < 2; ++i) {
        Msensor.sphere[i][0] = 20.0f;
        Msensor.sphere[i][1] = -40.0f;
        Msensor.sphere[i][2] = 10.0f;
    }
    ASSERT_EQ(offer(50, -20, 5), 4);   // on the shell, 40 µT out
    ASSERT_EQ(offer(10, 20, 8), 4);
    EXPECT_EQ(offer(-30, -30, 60), 4);  // about 70 µT out: takes the newest slot
    EXPECT_EQ(Msensor.dotsCount, 2);
    EXPECT_EQ(Msensor.dots[1][0], -30.0f);
    EXPECT_EQ(noise_flag, 1);
    EXPECT_EQ(offer(12, -18, 12), 4);  // 7.5 µT from the centre: inside the shell
    EXPECT_EQ(Msensor.dots[1][2], 12.0f);
    EXPECT_EQ(noise_flag, 2);

    // Open case: with nothing buffered the off-shell reading becomes the first sample.
    FusionInit();
    Msensor.fitCount = 2;
    for (int i = 0; i < 2; ++i) Msensor.sphere[i][0] = 20.0f;
    noise_flag = 0;
    for (int i = 0; i < 9; ++i) {
        ASSERT_EQ(offer(80.0f + i, 3.0f * i, -2.0f * i), 4) << i;
        EXPECT_EQ(Msensor.dotsCount, 1);
        EXPECT_EQ(Msensor.dots[0][0], 80.0f + i);
    }
    EXPECT_EQ(noise_flag, 9);
    EXPECT_EQ(offer(95, 0, 0), -10);
    EXPECT_EQ(noise_flag, 0);
    EXPECT_EQ(Msensor.dots[0][0], 88.0f);  // the reported reading is not stored
}

}  // namespace
