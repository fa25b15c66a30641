// Row kernels of the dense warps. The plain loop is the rule as written; the AVX2 kernel does the same
// single-precision steps on eight columns at once (floor, clamped neighbours, the three interpolations in
// the same order, no fused multiply-add), gathering the four neighbours through the row stride, so it gives
// the plain loop's bits.
#include "img_4_pxWarpKernels.h"

#include <algorithm>
#include <atomic>
#include <cmath>

#if defined(__x86_64__) || defined(__i386__)
#include <immintrin.h>
#endif

namespace img4px {

namespace {

// Highest level the kernels may use (img_4_px_limit_kernels): 0 plain, 2 AVX2.
std::atomic<int> levelLimit{2};

// The bilinear sample of the rule; false (and no read) outside the source.
inline bool sample(const FIMAGE &source, float sx, float sy, float &value) {
    if (!(sx >= 0.0f && sx <= static_cast<float>(source.width - 1) && sy >= 0.0f &&
          sy <= static_cast<float>(source.height - 1)))
        return false;
    const int32_t j = static_cast<int32_t>(std::floor(sx));
    const int32_t i = static_cast<int32_t>(std::floor(sy));
    const int32_t right = std::min(j + 1, source.width - 1);
    const int32_t below = std::min(i + 1, source.height - 1);
    const float fu = sx - static_cast<float>(j);
    const float fv = sy - static_cast<float>(i);
    const float *upper = source.image[i];
    const float *lower = source.image[below];
    const float top = upper[j] + (upper[right] - upper[j]) * fu;
    const float bottom = lower[j] + (lower[right] - lower[j]) * fu;
    value = top + (bottom - top) * fv;
    return true;
}

void plainFrom(const FIMAGE &source, const WarpRow &row, int32_t x0) {
    const float y = static_cast<float>(row.y);
    for (int32_t x = x0; x < row.count; ++x) {
        float value;
        const bool use = row.keep == nullptr || row.keep[x] != 0;
        const float other = row.otherwise != nullptr ? row.otherwise[x] : row.fill;
        row.out[x] = use && sample(source, static_cast<float>(x) + row.first[x], y + row.second[x], value)
                         ? value
                         : other;
    }
}

} // namespace

void warpRowPlain(const WarpSource &source, const WarpRow &row) {
    plainFrom(source.image, row, 0);
}

#if defined(__x86_64__) || defined(__i386__)

#define IMG4PX_AVX2 __attribute__((target("avx2")))

namespace {

// The constants of one source for the vector kernel.
struct Avx2Source {
    const float *base;
    __m256i stride, lastColumnIndex, lastRowIndex;
    __m256 lastColumn, lastRow;
};

// Eight samples; lanes outside (or not kept) take `other`. Their indices are zeroed, so every gather reads
// inside the image; the others lie in [0, width - 1] x [0, height - 1] with clamped neighbours.
IMG4PX_AVX2 inline __m256 avx2Eight(const Avx2Source &s, __m256 sx, __m256 sy, __m256 keep, __m256 other) {
    const __m256 zero = _mm256_setzero_ps();
    const __m256 inside = _mm256_and_ps(
        keep,
        _mm256_and_ps(
            _mm256_and_ps(_mm256_cmp_ps(sx, zero, _CMP_GE_OQ), _mm256_cmp_ps(sx, s.lastColumn, _CMP_LE_OQ)),
            _mm256_and_ps(_mm256_cmp_ps(sy, zero, _CMP_GE_OQ), _mm256_cmp_ps(sy, s.lastRow, _CMP_LE_OQ))));
    const __m256i valid = _mm256_castps_si256(inside);
    const __m256i j = _mm256_and_si256(valid, _mm256_cvttps_epi32(_mm256_floor_ps(sx)));
    const __m256i i = _mm256_and_si256(valid, _mm256_cvttps_epi32(_mm256_floor_ps(sy)));
    const __m256i one = _mm256_set1_epi32(1);
    const __m256i right = _mm256_min_epi32(_mm256_add_epi32(j, one), s.lastColumnIndex);
    const __m256i below = _mm256_min_epi32(_mm256_add_epi32(i, one), s.lastRowIndex);
    const __m256 fu = _mm256_sub_ps(sx, _mm256_cvtepi32_ps(j));
    const __m256 fv = _mm256_sub_ps(sy, _mm256_cvtepi32_ps(i));
    const __m256i upper = _mm256_mullo_epi32(i, s.stride);
    const __m256i lower = _mm256_mullo_epi32(below, s.stride);
    const __m256 s00 = _mm256_i32gather_ps(s.base, _mm256_add_epi32(upper, j), 4);
    const __m256 s01 = _mm256_i32gather_ps(s.base, _mm256_add_epi32(upper, right), 4);
    const __m256 s10 = _mm256_i32gather_ps(s.base, _mm256_add_epi32(lower, j), 4);
    const __m256 s11 = _mm256_i32gather_ps(s.base, _mm256_add_epi32(lower, right), 4);
    const __m256 top = _mm256_add_ps(s00, _mm256_mul_ps(_mm256_sub_ps(s01, s00), fu));
    const __m256 bottom = _mm256_add_ps(s10, _mm256_mul_ps(_mm256_sub_ps(s11, s10), fu));
    const __m256 value = _mm256_add_ps(top, _mm256_mul_ps(_mm256_sub_ps(bottom, top), fv));
    return _mm256_blendv_ps(other, value, inside);
}

// All-ones lanes where the eight mask bytes at `keep` are non-zero.
IMG4PX_AVX2 inline __m256 keptLanes(const uint8_t *keep) {
    if (keep == nullptr)
        return _mm256_castsi256_ps(_mm256_set1_epi32(-1));
    const __m256i bytes = _mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i *>(keep)));
    return _mm256_castsi256_ps(
        _mm256_xor_si256(_mm256_cmpeq_epi32(bytes, _mm256_setzero_si256()), _mm256_set1_epi32(-1)));
}

} // namespace

IMG4PX_AVX2 void warpRowAvx2(const WarpSource &source, const WarpRow &row) {
    if (source.stride <= 0) {
        plainFrom(source.image, row, 0);
        return;
    }
    const Avx2Source s{source.image.image[0],
                       _mm256_set1_epi32(source.stride),
                       _mm256_set1_epi32(source.image.width - 1),
                       _mm256_set1_epi32(source.image.height - 1),
                       _mm256_set1_ps(static_cast<float>(source.image.width - 1)),
                       _mm256_set1_ps(static_cast<float>(source.image.height - 1))};
    const __m256 y = _mm256_set1_ps(static_cast<float>(row.y));
    const __m256i lanes = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
    const __m256 fill = _mm256_set1_ps(row.fill);
    int32_t x = 0;
    for (; x + 8 <= row.count; x += 8) {
        const __m256 xf = _mm256_cvtepi32_ps(_mm256_add_epi32(_mm256_set1_epi32(x), lanes));
        const __m256 sx = _mm256_add_ps(xf, _mm256_loadu_ps(row.first + x));
        const __m256 sy = _mm256_add_ps(y, _mm256_loadu_ps(row.second + x));
        const __m256 other = row.otherwise != nullptr ? _mm256_loadu_ps(row.otherwise + x) : fill;
        _mm256_storeu_ps(row.out + x,
                         avx2Eight(s, sx, sy, keptLanes(row.keep ? row.keep + x : nullptr), other));
    }
    plainFrom(source.image, row, x);
}

#else

void warpRowAvx2(const WarpSource &source, const WarpRow &row) {
    plainFrom(source.image, row, 0);
}

#endif

WarpRowKernel warpRowKernel() {
#if defined(__x86_64__) || defined(__i386__)
    static const bool hasAvx2 = __builtin_cpu_supports("avx2");
    if (hasAvx2 && levelLimit.load(std::memory_order_relaxed) >= 2)
        return warpRowAvx2;
#endif
    return warpRowPlain;
}

} // namespace img4px

extern "C" int img_4_px_limit_kernels(int level) {
    return img4px::levelLimit.exchange(level < 0 ? 0 : level);
}
