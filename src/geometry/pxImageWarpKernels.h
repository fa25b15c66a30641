// Kernels of the FLOAT warps: the bilinear rule with the clamped last index and the invalid-pixel marker,
// as a plain per-pixel reference and as fast row kernels at several instruction-set levels. All give the
// same bits.
#pragma once

#include <cstdint>

namespace pxwarp {

// Source plane of a warp: rows 0..height-1 of width floats, height >= 2 and width >= 2 (the range test of
// the warps refuses smaller sources). `stride` is the distance in floats between consecutive rows when
// every row lies at rows[0] + y * stride, else 0 (then the kernels read through the row table only).
struct Source {
    const float *const *rows;
    int32_t width;
    int32_t height;
    int32_t stride;
};

// Target plane: rows 0..height-1, columns 0..width-1.
struct Target {
    float *const *rows;
    int32_t width;
    int32_t height;
};

// Source position of target pixel (x, y): u = ((a0 + x) + a1 x) + a2 y, v = ((b0 + y) + b1 x) + b2 y for the
// affine map; u = x + du, v = y + dv for the translation (du, dv already scaled). Single precision.
struct Affine {
    float a[3];
    float b[3];
};

// The value of one target pixel read at (u, v): inside [0, width - 1] x [0, height - 1] (NaN is outside),
// i = min(floor(v), height - 2), j = min(floor(u), width - 2), fu = u - j, fv = v - i, top = S[i][j] +
// (S[i][j+1] - S[i][j]) fu, bottom likewise on row i + 1, result top + (bottom - top) fv; outside, the
// invalid-pixel marker 0x7f7fffff.
float sampleReference(const Source &source, float u, float v);

// Whole-image references: every target pixel by the rule above, one pixel at a time.
void affineReference(const Source &source, const Affine &map, const Target &target);
void translationReference(const Source &source, float du, float dv, const Target &target);

// Instruction-set levels of the fast kernels.
enum Level { LEVEL_PORTABLE = 0, LEVEL_AVX2 = 2 };

// Samples `count` positions (u[i], v[i]) into out[i] by sampleReference's rule.
using SampleRow = void (*)(const Source &source, const float *u, const float *v, int32_t count, float *out);

// The row sampler of a level, or null when that level is not built or the processor lacks it. O(1).
SampleRow sampleRowAt(int level);
// The sampler of the highest level this processor runs; chosen once.
SampleRow sampleRowBest();

// Fast whole-image kernels: positions of a block of columns computed with the same single-precision steps,
// then sampled by `sample`. Same bits as the references.
void affineFast(const Source &source, const Affine &map, const Target &target, SampleRow sample);
void translationFast(const Source &source, float du, float dv, const Target &target, SampleRow sample);

} // namespace pxwarp
