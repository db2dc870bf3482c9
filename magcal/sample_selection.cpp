// Sample selection: which readings enter the twelve-slot buffer of the sphere fit.
//
// Gross and implausible readings are reported and never stored; nothing is stored
// while the device faces down (no accelerometer axis above 200/1024 g); once two fits
// are held, readings far off the estimated shell are counted; and a reading must
// differ from every buffered one on each axis for the fit to be well conditioned.
#include <cmath>
#include <cstdint>
#include "calmodule/magcal.h"
#include "magcal/magcal_internal.h"

namespace {

// µT. Beyond the gross limits the reading is a fault; beyond the plausible limits
// it is some magnet near the device rather than the earth's field plus an offset.
constexpr float kGrossXY = 500.0f;
constexpr float kGrossZ = 800.0f;
constexpr float kPlausibleXY = 200.0f;
constexpr float kPlausibleZ = 360.0f;
constexpr float kShellOuter = 60.0f;
constexpr float kShellInner = 25.0f;
constexpr int16_t kOffShellRun = 9;  // the tenth off-shell reading is reported
constexpr float kSpreadSum = 9.0f;
constexpr float kSpreadAxis = 1.0f;

}  // namespace

extern "C" {

CALMODULE_API int16_t noise_flag = 0;

// NaN components pass every range and spread test (each comparison is false) and are
// buffered; the sphere fit then refuses the buffer for its NaN radius.
CALMODULE_API int32_t DotsSelection(const float *mag, magcal_record *record,
                                    const int16_t *cali_flag) {
    const float x = mag[0];
    const float y = mag[1];
    const float z = mag[2];

    if (fabsf(x) > kGrossXY || fabsf(y) > kGrossXY || fabsf(z) > kGrossZ) return -13;
    if (fabsf(x) > kPlausibleXY || fabsf(y) > kPlausibleXY || fabsf(z) > kPlausibleZ) {
        return -10;
    }
    if (*cali_flag == 0) return -11;

    const int32_t fits = record->fitCount;
    if (fits > 1 && fits <= MAGCAL_MAX_FITS) {
        float sum[3] = {0.0f, 0.0f, 0.0f};
        for (int32_t i = 0; i < fits; ++i) {
            for (int k = 0; k < 3; ++k) sum[k] += record->sphere[i][k];
        }
        const float n = static_cast<float>(fits);
        const float mx = sum[0] / n * 0.5f;
        const float my = sum[1] / n * 0.5f;
        const float mz = sum[2] / n * 0.5f;
        const float dx = x - mx;
        const float dy = y - my;
        const float dz = z - mz;
        const float distance = sqrtf(dy * dy + dx * dx + dz * dz);
        if (distance > kShellOuter || distance < kShellInner) {
            // The reading takes the place of the newest buffered sample. With nothing
            // buffered there is no newest sample to replace: the reading is buffered as
            // the first one, like any off-shell reading it is stored, and the count of
            // off-shell readings still rises.
            if (record->dotsCount > 0) --record->dotsCount;
            noise_flag = static_cast<int16_t>(noise_flag + 1);
            if (noise_flag > kOffShellRun) {
                noise_flag = 0;
                return -10;
            }
        }
    }

    // The count is only ever 0..12 here; an out-of-range value put into the exported
    // record from outside stores nothing rather than writing out of bounds.
    if (record->dotsCount >= 0 && record->dotsCount < MAGCAL_BUFFER_DOTS) {
        float *slot = record->dots[record->dotsCount];
        slot[0] = x;
        slot[1] = y;
        slot[2] = z;
        ++record->dotsCount;
    }

    const int32_t k = record->dotsCount;
    if (k < 2 || k > MAGCAL_BUFFER_DOTS) return 4;

    if (record->dotsFull != 0) {
        // The first admitted sample after a fit is discarded with the consumed buffer.
        if (k == MAGCAL_BUFFER_DOTS && record->dotsFull == 1) {
            quarvel::empty_dots(record);
            return -11;
        }
        return 4;
    }

    const float *newest = record->dots[k - 1];
    for (int32_t i = k - 2; i >= 0; --i) {
        const float *other = record->dots[i];
        const float ax = fabsf(newest[0] - other[0]);
        const float ay = fabsf(newest[1] - other[1]);
        const float az = fabsf(newest[2] - other[2]);
        if (ax + ay + az < kSpreadSum || ax < kSpreadAxis || ay < kSpreadAxis || az < kSpreadAxis) {
            record->dotsCount = k - 1;
            return -11;
        }
    }
    return 4;
}

CALMODULE_API int32_t DotsNumCheck(magcal_record *record) {
    if (record->dotsCount == MAGCAL_BUFFER_DOTS && record->dotsFull == 0) {
        record->dotsFull = 1;
        return 2;
    }
    return -4;
}

}  // extern "C"
