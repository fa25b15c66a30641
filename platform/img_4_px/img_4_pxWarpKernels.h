// Row kernels of the dense warps: the sample rule for one row of map positions, as a plain loop and as
// AVX2 code with gathers; both give the same bits.
#pragma once

#include <cstdint>

#include "img_4_px.h"

namespace img4px {

// One row of a warp: positions x + first[x], y + second[x] for x in [0, count); where keep is non-null and
// keep[x] is 0, or the position is outside, the output is otherwise[x] (or `fill` when otherwise is null).
struct WarpRow {
    const float *first;
    const float *second;
    const uint8_t *keep;
    const float *otherwise;
    float fill;
    int32_t y;
    int32_t count;
    float *out;
};

// The source with the distance in floats between its rows when every row lies at image[0] + y * stride
// (0 otherwise: the vector kernel then hands the row to the plain one).
struct WarpSource {
    FIMAGE image;
    int32_t stride;
};

void warpRowPlain(const WarpSource &source, const WarpRow &row);
void warpRowAvx2(const WarpSource &source, const WarpRow &row);

// The row kernel in use: the best the processor runs, not above the level set by img_4_px_limit_kernels.
using WarpRowKernel = void (*)(const WarpSource &, const WarpRow &);
WarpRowKernel warpRowKernel();

} // namespace img4px
