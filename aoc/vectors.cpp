// Vector histories: newest entry at index 0, older ones behind it, unfilled entries
// holding the empty marker. The primitives the rest of the AKFS_ family builds on.
#include <cmath>
#include <cstdint>

#include "aoc/akfs_state.h"
#include "aoc/aoc_internal.h"

namespace quarvel {

AkfsState akfs_state;

float aoc_distance(const akfs_vec &a, const akfs_vec &b) {
    const float dx = a.x - b.x;
    const float dy = a.y - b.y;
    const float dz = a.z - b.z;
    float sum = 0.0f;
    sum += dx * dx;
    sum += dy * dy;
    sum += dz * dz;
    return static_cast<float>(std::sqrt(static_cast<double>(sum)));
}

}  // namespace quarvel

using quarvel::kAkfsEpsilon;

extern "C" {

CALMODULE_API int16_t AKFS_InitBuffer(int16_t count, akfs_vec *history) {
    if (count <= 0) return 0;
    for (int16_t i = 0; i < count; ++i) {
        history[i] = {AKFS_EMPTY_MARKER, AKFS_EMPTY_MARKER, AKFS_EMPTY_MARKER};
    }
    return 1;
}

CALMODULE_API int16_t AKFS_BufShift(int16_t length, int16_t shift, akfs_vec *history) {
    if (shift < 1 || length < shift) return 0;
    // From the end, so overlapping entries are read before they are overwritten.
    for (int i = length - 1; i >= shift; --i) history[i] = history[i - shift];
    return 1;
}

CALMODULE_API int16_t AKFS_VbNorm(int16_t ndata, const akfs_vec *data, int16_t count,
                                  const akfs_vec *offset, const akfs_vec *scale, float gain,
                                  int16_t nbuf, akfs_vec *history) {
    if (ndata <= 0 || nbuf <= 0 || count <= 0) return 0;
    if (ndata < count || nbuf < count) return 0;
    // A scale component at or below epsilon would blow the sample up; NaN passes
    // this test as the comparison is false, and then propagates into the history.
    if (scale->x <= kAkfsEpsilon || scale->y <= kAkfsEpsilon || scale->z <= kAkfsEpsilon) return 0;
    if (gain <= 0.0f) return 0;
    if (AKFS_BufShift(nbuf, count, history) != 1) return 0;
    for (int16_t i = 0; i < count; ++i) {
        history[i].x = (data[i].x - offset->x) / scale->x * gain;
        history[i].y = (data[i].y - offset->y) / scale->y * gain;
        history[i].z = (data[i].z - offset->z) / scale->z * gain;
    }
    return 1;
}

CALMODULE_API int16_t AKFS_VbAve(int16_t nbuf, const akfs_vec *history, int16_t count,
                                 akfs_vec *average) {
    if (count <= 0 || nbuf <= 0 || nbuf < count) return 0;
    *average = {0.0f, 0.0f, 0.0f};
    int16_t k = 0;
    for (; k < count; ++k) {
        if (quarvel::akfs_is_empty(history[k])) break;
        average->x += history[k].x;
        average->y += history[k].y;
        average->z += history[k].z;
    }
    if (k > 0) {
        const float n = static_cast<float>(k);
        average->x /= n;
        average->y /= n;
        average->z /= n;
    }
    return 1;
}

CALMODULE_API void AKFS_InitAOC(aoc_context *context) {
    AKFS_InitBuffer(AKFS_AOC_SAMPLES, context->sample_history);
    AKFS_InitBuffer(AKFS_AOC_OFFSETS, context->offset_history);
    context->sphere_radius = 0.0f;
}

}  // extern "C"
