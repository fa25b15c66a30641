// Narrowing row kernels of the row converter: DOUBLE and FLOAT rows rounded half away from zero to INT,
// SHORT and UBYTE, and UBYTE and SHORT rows widened to FLOAT. Each kernel exists at several instruction-set
// levels; all levels give the same bits.
#pragma once

#include <cstdint>

// The rounded conversions of one row, one kernel per conversion kind, and the two widening ones to FLOAT.
// Rounding: the value plus 0.5 if it is greater than 0, else minus 0.5, formed in double, truncated toward
// zero to int32; a result outside int32 and NaN give INT32_MIN; the SHORT and UBYTE kernels then clamp that
// int32 to [0, 65535] / [0, 255]. Rows may start at any address and must not overlap. Every kernel is
// O(count).
struct pxImageNarrowKernels {
    void (*doubleToInt)(const double *src, uint32_t count, int32_t *dst);    // kind 3
    void (*doubleToShort)(const double *src, uint32_t count, uint16_t *dst); // kind 4
    void (*doubleToUbyte)(const double *src, uint32_t count, uint8_t *dst);  // kind 5
    void (*floatToInt)(const float *src, uint32_t count, int32_t *dst);      // kind 8
    void (*floatToShort)(const float *src, uint32_t count, uint16_t *dst);   // kind 9
    void (*floatToUbyte)(const float *src, uint32_t count, uint8_t *dst);    // kind 10
    // Kind 9 of each value times scale, in one pass: the product is the single-precision src[i] * scale
    // (rounded to float as that multiply rounds), then rounded and clamped as floatToShort does.
    void (*floatScaledToShort)(const float *src, uint32_t count, float scale, uint16_t *dst);
    // The widening kinds 22 and 17, exact conversions: UBYTE and SHORT to FLOAT.
    void (*ubyteToFloat)(const uint8_t *src, uint32_t count, float *dst);
    void (*shortToFloat)(const uint16_t *src, uint32_t count, float *dst);
};

// Instruction-set levels of the kernels, from the portable C++ loops up.
enum pxImageKernelLevel {
    PX_KERNELS_PORTABLE = 0,
    PX_KERNELS_SSE2 = 1,
    PX_KERNELS_AVX2 = 2,
    PX_KERNELS_AVX512 = 3
};

// The kernels of one level, or null when that level is not built for this target or this processor
// lacks its instructions. O(1) after the first call (which asks the processor once).
const pxImageNarrowKernels *pxImageNarrowKernelsAt(int level);

// The kernels of the highest level this processor runs; chosen once, O(1).
const pxImageNarrowKernels &pxImageNarrowKernelsBest();
