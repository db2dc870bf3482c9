// The eight-sample smoothing of the magnetometer field in the orientation family:
// CalibrationXYZ's rings hold the field in device axes (for GetOrientationAngles),
// CalibrationThree's the same field remapped by MagTrsfMatrix (for GetAzimuth).
//
// The orientation computation pushes the same field into both on every Tracking call.
// With the remap at its load-time value, (x, y, z) -> (y, z, -x), CalibrationThree's
// rings would hold CalibrationXYZ's values, moved one axis over and the last one
// negated, and the means follow from CalibrationXYZ's alone: the y and z means are
// its own, and the -x mean is its x order read from the top. So while nothing else
// has touched either smoother and the remap has not changed, CalibrationThree's rings
// are not kept; the first call that needs them of their own (a direct call of a
// smoother, GetAzimuth or GetOrientationAngles, or a changed remap) fills them from
// CalibrationXYZ's, exactly as they would stand, and from then on both are kept.
//
// Signed zeros: the remap turns -0 into +0, and the means cannot tell them apart (a
// sum that starts at +0 never becomes -0), so the means come out the same bits.
#include <cstring>

#include "calmodule/orientation.h"
#include "filters/trimmed_mean_vector.h"
#include "orientation/orientation_internal.h"

namespace quarvel {

namespace {

// Mean of the middle four of eight samples, per axis.
TrimmedMeanVector<8, 3> xyz_channels;
TrimmedMeanVector<8, 3> three_channels;
// CalibrationThree's rings are CalibrationXYZ's, remapped at load-time value.
bool three_follows_xyz = true;

// MagTrsfMatrix as the module loads it (orientation.cpp): (x, y, z) -> (y, z, -x).
constexpr int32_t kLoadTimeRemap[9] = {0, 1, 0, 0, 0, 1, -1, 0, 0};

bool remap_unchanged(const int32_t *m) { return std::memcmp(m, kLoadTimeRemap, sizeof kLoadTimeRemap) == 0; }

// Fills CalibrationThree's rings with CalibrationXYZ's values as the load-time remap
// turns them (each row summed from +0, as the remap sums it), and keeps both from here on.
void separate_three() {
    if (!three_follows_xyz) return;
    three_follows_xyz = false;
    auto &x = xyz_channels.axis;
    auto &t = three_channels.axis;
    for (int s = 0; s < 8; ++s) {
        t[0].ring[s] = 0.0f + x[1].ring[s];
        t[1].ring[s] = 0.0f + x[2].ring[s];
        t[2].ring[s] = 0.0f - x[0].ring[s];
    }
    for (auto &channel : t) channel.rebuild();
    three_channels.pos = xyz_channels.pos;
}

}  // namespace

void smooth_field(float mag[3]) {
    separate_three();
    xyz_channels.filter(mag);
}

void smooth_remapped_field(float remapped[3]) {
    separate_three();
    three_channels.filter(remapped);
}

bool smooth_field_and_remapped(float mag[3], const int32_t *remap, float remapped[3]) {
    if (!three_follows_xyz || !remap_unchanged(remap)) return false;
    xyz_channels.filter(mag);
    remapped[0] = mag[1];
    remapped[1] = mag[2];
    remapped[2] = xyz_channels.axis[0].negated_mean();
    return true;
}

}  // namespace quarvel

extern "C" {

CALMODULE_API void CalibrationXYZ(float v[3]) { quarvel::smooth_field(v); }
CALMODULE_API void CalibrationThree(float v[3]) { quarvel::smooth_remapped_field(v); }

}  // extern "C"
