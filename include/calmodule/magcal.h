// Magnetometer calibration: raw samples in, hard-iron offset, calibrated field and
// accuracy level out, offset kept across restarts in a small text file.
//
// Field values are in microtesla after the driver's scaling of the raw counts.
#ifndef CALMODULE_MAGCAL_H
#define CALMODULE_MAGCAL_H

#include <stdint.h>
#include <stdio.h>

#include "calmodule/api.h"

CALMODULE_EXTERN_C_BEGIN

// ---- Shared calibration flags, written by the orientation computation -------------
// cali_flag: 0 stops sample collection (no accelerometer axis above 200/1024 g).
// cali_ret: 1 restarts the calibration on every call while it stays 1.
CALMODULE_API extern int16_t cali_flag;
CALMODULE_API extern int16_t cali_ret;

// ---- Calibration driver and accessors ----------------------------------------------

// Feeds one raw sample (counts); scales it to µT, calibrates, persists the offset when
// it is worth keeping. 5 for a sample with a nonzero component, -15 for (0, 0, 0).
CALMODULE_API int32_t qv730_run_library(float x, float y, float z);
// Copies the accuracy level (0..3) into *level.
CALMODULE_API void get_calilevel_value(int32_t *level);
// Copies the hard-iron offset in force (µT, three floats) into offset.
CALMODULE_API void get_magnetic_offset(float *offset);
// Does nothing; kept for callers that link it.
CALMODULE_API void get_algorithm_version(void);
// One empty function under two names.
CALMODULE_API void Disp_VersionMessage(void);
CALMODULE_API void Disp_EndMessage(void);

// ---- Parameter file: the offset as three "%f:" values, no newline ----------------

// Prints the three values (µT) as "%f:" each: 6, or -16 when a print fails.
CALMODULE_API int32_t SaveParameterNumber(FILE *file, const float *values);
// Rewrites the parameter file with the three values: 7, -17 (open failed), -18 (close failed).
CALMODULE_API int32_t WriteParameterToFile(const float *values);
// Reads three values (µT) from the parameter file: 8, or -18..-22 (see the reader).
CALMODULE_API int32_t ReadParameterFromFile(float *values);

// ---- Calibration record and the offset in force -----------------------------------

#define MAGCAL_MAX_FITS 60
#define MAGCAL_BUFFER_DOTS 12

// The calibration record: held sphere fits and the twelve-sample buffer.
typedef struct magcal_record {
    int32_t fitCount;        // sphere fits held, 0..60
    int32_t dotsCount;       // samples buffered, 0..12
    int32_t radiusErrCount;  // run of moderately deviating radii; 10 after a gross one
    int32_t dotsFull;        // 1 from the hand-over to the fit until the buffer is emptied
    float radius[MAGCAL_MAX_FITS];     // µT
    float sphere[MAGCAL_MAX_FITS][4];  // a, b, c, d of x²+y²+z² = a·x + b·y + c·z − d
    float dots[MAGCAL_BUFFER_DOTS][3]; // x, y, z, µT
} magcal_record;

CALMODULE_API extern magcal_record Msensor;
CALMODULE_API extern float LatestOffset[3];  // the offset subtracted while optimalFlag is 0, µT

// Empties the calibration record.
CALMODULE_API void FusionInit(void);
// Makes offset (µT) the offset in force.
CALMODULE_API void FusionSetOffset(const float *offset);
// Empties the record and makes offset (µT) the offset in force; loaded is informational.
CALMODULE_API void FusionInitDevice(int32_t loaded, const float *offset);

// ---- Calibration state machine ----------------------------------------------------

CALMODULE_API extern float OptimalOffset[3];  // offset subtracted while optimalFlag is 1, µT
CALMODULE_API extern int32_t optimalFlag;
CALMODULE_API extern int32_t noiseCount;      // implausible readings since the last clear
CALMODULE_API extern int16_t l_noiseCount;    // gross readings since the last clear

// One calibration step for a scaled sample (µT): 1 when a fit was attempted, -2 for a
// zero sample, -3 otherwise. Writes the calibrated field, the new offset and level.
CALMODULE_API int32_t Fusion(const float *mag, float *cali_mag_values, float *cali_offset,
                             int32_t *cali_level, int32_t *new_offset_flag, const int16_t *cali_flag,
                             const int16_t *cali_ret, float *noise_mag_delta);

// ---- Sample selection -------------------------------------------------------------

CALMODULE_API extern int16_t noise_flag;  // off-shell readings since the last report
// Offers a sample (µT) to the buffer: 4, -10 (implausible), -11 (not admitted), -13 (gross).
CALMODULE_API int32_t DotsSelection(const float *mag, magcal_record *record,
                                    const int16_t *cali_flag);
// 2 (and marks the buffer handed over) when twelve samples wait for the fit, else -4.
CALMODULE_API int32_t DotsNumCheck(magcal_record *record);

// ---- Sphere fit and its cofactor inverse ------------------------------------------

// Fits a sphere to the full buffer; 3 with the mean centre of the held fits (µT) in
// offset, or -5..-9 when refused.
CALMODULE_API int32_t CalibrationFunc(magcal_record *record, float *offset);

// Double-precision matrices held as tables of malloc'd rows; flat matrices have rows of 4.
CALMODULE_API void Input(double **rows, int32_t row_count, int32_t column_count,
                         const double (*flat)[4]);
CALMODULE_API void Output(double **rows, int32_t row_count, int32_t column_count,
                          double (*flat)[4]);
// Determinant by cofactor expansion along the last row (order 1..11; 0.0 otherwise).
CALMODULE_API double Determinant(double **rows, int32_t order);
// Minor of element (i, j).
CALMODULE_API double Cofactor(double **rows, int32_t order, int32_t i, int32_t j);
// Signed cofactor of element (i, j).
CALMODULE_API double AlCo(double **rows, int32_t order, int32_t i, int32_t j);
// Allocates the rows of result and fills them with the inverse (adjugate / determinant).
CALMODULE_API void Inverse(double **rows, double **result, int32_t order, double determinant);

// ---- Calibrated output ------------------------------------------------------------

// Calibrated field (µT) through the ten-sample trimmed mean and a 0.1/0.9 low-pass.
CALMODULE_API void get_magnetic_values(float *out);
// Per-axis trimmed mean of the last ten values (middle six averaged), in place.
CALMODULE_API void RCalibrationXYZ(float *v);

CALMODULE_EXTERN_C_END

#ifdef __cplusplus
namespace calmodule {
// µT per raw count of the chip, by axis (x, y, z): qv730_run_library multiplies each
// raw sample by these, in single precision, before anything else. For C++ callers
// that turn fields into raw samples or raw samples into fields; a compile-time
// constant, not part of the library's exported symbols.
inline constexpr float kChipScale[3] = {1.5f, 1.5f, 2.6f};
}  // namespace calmodule
#endif

#endif
