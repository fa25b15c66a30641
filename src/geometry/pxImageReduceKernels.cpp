// Kernels of the reduction by two: plain references, portable loops and SSE2 code, and the choice
// among them. See pxImageReduceKernels.h.
#include "pxImageReduceKernels.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace pxreduce {

void reduceRowReference(const float *row, int32_t width, int32_t outWidth, const Weights &k, float *out) {
    const auto at = [row](int32_t i) { return row[i]; };
    for (int32_t j = 0; j < outWidth; ++j) {
        out[j] = filterAt(at, 2 * j, width, k);
    }
}

void reduceColumnsReference(const float *const window[5], int32_t height, int32_t y, int32_t outWidth,
                            const Weights &k, float *out) {
    for (int32_t j = 0; j < outWidth; ++j) {
        const auto at = [window, y, j](int32_t i) { return window[i - y + 2][j]; };
        out[j] = filterAt(at, y, height, k);
    }
}

namespace {

// ---- Shared pieces ----------------------------------------------------------------------------------

// The one output besides j = 0 that takes an edge rule: x = width - 1 or width - 2, whichever is even
// (and not 0); -1 when there is none.
int32_t edgeOutput(int32_t width) {
    const int32_t x = (width - 1) % 2 == 0 ? width - 1 : width - 2;
    return x >= 2 ? x / 2 : -1;
}

// Outputs j in [begin, end) of a row, all of them interior.
using InteriorFn = void (*)(const float *row, int32_t begin, int32_t end, const Weights &k, float *out);

void interiorPortable(const float *row, int32_t begin, int32_t end, const Weights &k, float *out) {
    for (int32_t j = begin; j < end; ++j) {
        const float *s = row + 2 * j;
        out[j] = k.k0 * s[0] + k.k1 * (s[-1] + s[1]) + k.k2 * (s[-2] + s[2]);
    }
}

// The horizontal pass: the edge outputs by the rules, the interior ranges by `interior`.
void reduceRow(const float *row, int32_t width, int32_t outWidth, const Weights &k, float *out,
               InteriorFn interior) {
    if (outWidth < 1) {
        return;
    }
    const auto at = [row](int32_t i) { return row[i]; };
    out[0] = filterAt(at, 0, width, k);
    const int32_t edge = edgeOutput(width);
    if (edge >= 1 && edge < outWidth) {
        interior(row, 1, edge, k, out);
        out[edge] = filterAt(at, 2 * edge, width, k);
        interior(row, edge + 1, outWidth, k, out);
    } else {
        interior(row, 1, outWidth, k, out);
    }
}

// The vertical pass for output row y: one rule for the whole row, applied column by column. The loops
// keep each pixel's operations and their order, so the compiler may run them on vectors.
__attribute__((always_inline)) inline void reduceColumnsRows(const float *const window[5], int32_t height,
                                                             int32_t y, int32_t outWidth, const Weights &k,
                                                             float *out) {
    if (y == 0 || y == height - 1) {
        const int32_t step = y == 0 ? 1 : -1;
        const float *a = window[2];
        const float *b = window[2 + step];
        const float *c = window[2 + 2 * step];
        const float divisor = k.k0 + k.k1 + k.k2;
        for (int32_t j = 0; j < outWidth; ++j) {
            out[j] = (k.k0 * a[j] + k.k1 * b[j] + k.k2 * c[j]) / divisor;
        }
        return;
    }
    const float *m2 = window[0];
    const float *m1 = window[1];
    const float *c0 = window[2];
    const float *p1 = window[3];
    if (y == height - 2) {
        const float divisor = k.k0 + 2 * k.k1 + k.k2;
        for (int32_t j = 0; j < outWidth; ++j) {
            out[j] = (k.k0 * c0[j] + k.k1 * (m1[j] + p1[j]) + k.k2 * m2[j]) / divisor;
        }
        return;
    }
    const float *p2 = window[4];
    for (int32_t j = 0; j < outWidth; ++j) {
        out[j] = k.k0 * c0[j] + k.k1 * (m1[j] + p1[j]) + k.k2 * (m2[j] + p2[j]);
    }
}

void rowPortable(const float *row, int32_t width, int32_t outWidth, const Weights &k, float *out) {
    reduceRow(row, width, outWidth, k, out, interiorPortable);
}

const Kernels kPortable = {rowPortable, reduceColumnsRows};

#if defined(__SSE2__)

// Four interior outputs j .. j + 3 per step. From the five loads s[2j-2 ..], s[2j ..], s[2j+2 ..],
// s[2j+4 ..] and s[2j+5 .. 2j+8] the shuffles pick the centres s[2j + 2i], the neighbours at distance 1
// (odd pixels) and at distance 2 (even pixels); the loads cover s[2j-2 .. 2j+8], exactly what the four
// outputs read.
void interiorSse2(const float *row, int32_t begin, int32_t end, const Weights &k, float *out) {
    const __m128 k0 = _mm_set1_ps(k.k0);
    const __m128 k1 = _mm_set1_ps(k.k1);
    const __m128 k2 = _mm_set1_ps(k.k2);
    int32_t j = begin;
    for (; j + 4 <= end; j += 4) {
        const float *s = row + 2 * j;
        const __m128 l0 = _mm_loadu_ps(s - 2);
        const __m128 m0 = _mm_loadu_ps(s);
        const __m128 l1 = _mm_loadu_ps(s + 2);
        const __m128 mHigh = _mm_loadu_ps(s + 4);
        const __m128 l2 = _mm_loadu_ps(s + 5);
        const __m128 centre = _mm_shuffle_ps(m0, mHigh, _MM_SHUFFLE(2, 0, 2, 0));
        const __m128 left1 = _mm_shuffle_ps(l0, l1, _MM_SHUFFLE(3, 1, 3, 1));
        const __m128 right1 = _mm_shuffle_ps(m0, mHigh, _MM_SHUFFLE(3, 1, 3, 1));
        const __m128 left2 = _mm_shuffle_ps(l0, l1, _MM_SHUFFLE(2, 0, 2, 0));
        const __m128 right2 = _mm_shuffle_ps(l1, l2, _MM_SHUFFLE(3, 1, 2, 0));
        const __m128 sum =
            _mm_add_ps(_mm_add_ps(_mm_mul_ps(k0, centre), _mm_mul_ps(k1, _mm_add_ps(left1, right1))),
                       _mm_mul_ps(k2, _mm_add_ps(left2, right2)));
        _mm_storeu_ps(out + j, sum);
    }
    interiorPortable(row, j, end, k, out);
}

void rowSse2(const float *row, int32_t width, int32_t outWidth, const Weights &k, float *out) {
    reduceRow(row, width, outWidth, k, out, interiorSse2);
}

const Kernels kSse2 = {rowSse2, reduceColumnsRows};

// The vertical pass compiled for AVX2 (without FMA, so every product is rounded on its own): the same
// loops on eight columns at a time. The rows keep the SSE2 kernel.
__attribute__((target("avx2"))) void columnsAvx2(const float *const window[5], int32_t height, int32_t y,
                                                 int32_t outWidth, const Weights &k, float *out) {
    reduceColumnsRows(window, height, y, outWidth, k, out);
}

const Kernels kAvx2 = {rowSse2, columnsAvx2};

#endif // __SSE2__

} // namespace

const Kernels *kernelsAt(int level) {
    switch (level) {
    case 0:
        return &kPortable;
#if defined(__SSE2__)
    case 1:
        return &kSse2;
    case 2:
        return __builtin_cpu_supports("avx2") ? &kAvx2 : nullptr;
#endif
    default:
        return nullptr;
    }
}

const Kernels &bestKernels() {
    static const Kernels *const best = [] {
        for (int level = 2; level > 0; --level)
            if (const Kernels *kernels = kernelsAt(level))
                return kernels;
        return &kPortable;
    }();
    return *best;
}

} // namespace pxreduce
