// The AKFS_ family: histories of three-axis vectors, auto offset estimation from a
// stream of magnetometer samples, heading from averaged histories, mounting remaps.
//
// Histories keep the newest entry at index 0; unfilled entries hold the empty marker,
// the largest finite float. Counts and lengths are signed 16-bit; results are 1 for
// success and 0 for rejected arguments.
#ifndef CALMODULE_AOC_H
#define CALMODULE_AOC_H

#include <stdint.h>

#include "calmodule/api.h"

CALMODULE_EXTERN_C_BEGIN

// One three-axis vector, in the order x, y, z.
typedef struct akfs_vec {
    float x;
    float y;
    float z;
} akfs_vec;

#define AKFS_EMPTY_MARKER 3.40282347e+38f  // largest finite float, bits 0x7F7FFFFF
#define AKFS_AOC_SAMPLES 20
#define AKFS_AOC_OFFSETS 4

// Context of the auto offset estimation.
typedef struct aoc_context {
    akfs_vec sample_history[AKFS_AOC_SAMPLES];  // latest samples, newest first
    akfs_vec offset_history[AKFS_AOC_OFFSETS];  // latest accepted sphere centres, newest first
    float sphere_radius;                        // radius of the latest sphere computed
} aoc_context;

// Marks `count` entries empty. 0 when count <= 0.
CALMODULE_API int16_t AKFS_InitBuffer(int16_t count, akfs_vec *history);
// Moves entries towards the end by `shift` places; the first `shift` keep their contents.
CALMODULE_API int16_t AKFS_BufShift(int16_t length, int16_t shift, akfs_vec *history);
// Pushes `count` samples (data - offset) / scale * gain to the front of the history.
CALMODULE_API int16_t AKFS_VbNorm(int16_t ndata, const akfs_vec *data, int16_t count,
                                  const akfs_vec *offset, const akfs_vec *scale, float gain,
                                  int16_t nbuf, akfs_vec *history);
// Averages up to `count` of the newest entries, stopping at the first empty one.
CALMODULE_API int16_t AKFS_VbAve(int16_t nbuf, const akfs_vec *history, int16_t count,
                                 akfs_vec *average);
// Empties both histories of the context and clears its radius.
CALMODULE_API void AKFS_InitAOC(aoc_context *context);

// Pushes one sample; 1 when a new offset (sphere centre, same units) was written.
CALMODULE_API int16_t AKFS_AOC(aoc_context *context, const akfs_vec *sample, akfs_vec *offset);

// Heading, pitch and roll in degrees from averaged magnetic and acceleration histories.
CALMODULE_API int16_t AKFS_Direction(int16_t nh, const akfs_vec *hvec, int16_t hn, int16_t na,
                                     const akfs_vec *avec, int16_t an, float *azimuth,
                                     float *pitch, float *roll);
// Remaps the axes of `v` for mounting layout 1 to 8; 0 (and v unchanged) for any other.
CALMODULE_API int16_t AKFS_Rotate(int layout, akfs_vec *v);
// Replaces v by matrix x v for a row-major signed 16-bit mounting matrix.
CALMODULE_API int16_t AKFS_RotateMat(const int16_t matrix[9], akfs_vec *v);

CALMODULE_EXTERN_C_END

#endif
