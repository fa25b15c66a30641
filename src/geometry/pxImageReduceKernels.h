// Kernels of the reduction by two: the 5-tap symmetric low-pass filter k0, k1, k2 evaluated at every
// second pixel of a line, with the edge rules that renormalise by the weights actually used. Each fast
// kernel has a plain reference beside it that follows the rules pixel by pixel; the tests prove that
// both give the same bits. All arithmetic is single precision, in the order the rules are written.
#pragma once

#include <cstdint>

namespace pxreduce {

// The filter weights: centre, distance 1, distance 2.
struct Weights {
    float k0, k1, k2;
};

// One output of the filter at position x of a line of `length` pixels; at(i) reads pixel i of the line.
// The rules are tested in the order x = 0, x = length - 1, x = length - 2; other positions take the
// interior sum undivided (the kernel is taken as normalised). Near a short line's end the rules read past
// it, as written.
template <class Get> float filterAt(Get at, int32_t x, int32_t length, const Weights &k) {
    if (x == 0) {
        return (k.k0 * at(x) + k.k1 * at(x + 1) + k.k2 * at(x + 2)) / (k.k0 + k.k1 + k.k2);
    }
    if (x == length - 1) {
        return (k.k0 * at(x) + k.k1 * at(x - 1) + k.k2 * at(x - 2)) / (k.k0 + k.k1 + k.k2);
    }
    if (x == length - 2) {
        return (k.k0 * at(x) + k.k1 * (at(x - 1) + at(x + 1)) + k.k2 * at(x - 2)) / (k.k0 + 2 * k.k1 + k.k2);
    }
    return k.k0 * at(x) + k.k1 * (at(x - 1) + at(x + 1)) + k.k2 * (at(x - 2) + at(x + 2));
}

// Horizontal pass over one row: out[j] = the filter at x = 2j of a row of `width` pixels, j in
// [0, outWidth). Reads row[x - 2 .. x + 2] as the rules say (past the row's end for short rows).
void reduceRowReference(const float *row, int32_t width, int32_t outWidth, const Weights &k, float *out);

// Vertical pass for one output row: out[j] = the filter at row y down column j of a line of `height`
// rows, j in [0, outWidth). window[d + 2] holds row y + d for d in -2..2 (the rows the rule at y reads;
// the others may be null), so the filtered rows can live in a ring of five.
void reduceColumnsReference(const float *const window[5], int32_t height, int32_t y, int32_t outWidth,
                            const Weights &k, float *out);

// The fast versions of the two passes, for one instruction-set level: the same bits as the references.
// The interior of a row runs four (SSE2) outputs at a time, de-interleaving even and odd pixels with
// shuffles; every vector reads only pixels the reference reads. The vertical pass combines whole rows.
struct Kernels {
    void (*row)(const float *row, int32_t width, int32_t outWidth, const Weights &k, float *out);
    void (*columns)(const float *const window[5], int32_t height, int32_t y, int32_t outWidth,
                    const Weights &k, float *out);
};

// Levels: 0 portable loops, 1 SSE2, 2 AVX2 (vertical pass). Null for a level this build or processor does not
// have. O(1).
const Kernels *kernelsAt(int level);

// The highest level available; chosen once. O(1).
const Kernels &bestKernels();

} // namespace pxreduce
