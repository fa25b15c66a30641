// Module pxImageWarpKernels: the bilinear rule of the FLOAT warps as a plain per-pixel reference, and the
// fast kernels: positions of a block of columns in single precision (element by element, so vectorising
// them changes no bit), then a row sampler, portable or AVX2 with gathers. The AVX2 sampler does the rule's
// float operations lane by lane in the same order (no fused multiply-add), so every level gives the
// reference's bits.
#include "pxImageWarpKernels.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#if defined(__x86_64__) || defined(__i386__)
#include <immintrin.h>
#endif

namespace pxwarp {

namespace {

constexpr float kInvalid = 3.4028235e38f;
// Tiles of the target: kBlock columns, whose positions are computed before they are sampled, by kTileRows
// rows. Under a rotation or shear a whole target row reads short pieces of many source rows; a tile reads a
// compact area of the source that stays in the caches and the address translation buffers.
constexpr int32_t kBlock = 128;
constexpr int32_t kTileRows = 64;

} // namespace

float sampleReference(const Source &source, float u, float v) {
    const float lastColumn = static_cast<float>(source.width - 1);
    const float lastRow = static_cast<float>(source.height - 1);
    if (!(u >= 0.0f && u <= lastColumn && v >= 0.0f && v <= lastRow))
        return kInvalid;
    const int32_t i = std::min(static_cast<int32_t>(std::floor(v)), source.height - 2);
    const int32_t j = std::min(static_cast<int32_t>(std::floor(u)), source.width - 2);
    const float fu = u - static_cast<float>(j);
    const float fv = v - static_cast<float>(i);
    const float *upper = source.rows[i];
    const float *lower = source.rows[i + 1];
    const float top = upper[j] + (upper[j + 1] - upper[j]) * fu;
    const float bottom = lower[j] + (lower[j + 1] - lower[j]) * fu;
    return top + (bottom - top) * fv;
}

void affineReference(const Source &source, const Affine &map, const Target &target) {
    for (int32_t y = 0; y < target.height; ++y)
        for (int32_t x = 0; x < target.width; ++x) {
            const float u = map.a[0] + static_cast<float>(x) + map.a[1] * static_cast<float>(x) +
                            map.a[2] * static_cast<float>(y);
            const float v = map.b[0] + static_cast<float>(y) + map.b[1] * static_cast<float>(x) +
                            map.b[2] * static_cast<float>(y);
            target.rows[y][x] = sampleReference(source, u, v);
        }
}

void translationReference(const Source &source, float du, float dv, const Target &target) {
    for (int32_t y = 0; y < target.height; ++y)
        for (int32_t x = 0; x < target.width; ++x)
            target.rows[y][x] =
                sampleReference(source, static_cast<float>(x) + du, static_cast<float>(y) + dv);
}

namespace {

void portableSampleRow(const Source &source, const float *u, const float *v, int32_t count, float *out) {
    for (int32_t k = 0; k < count; ++k)
        out[k] = sampleReference(source, u[k], v[k]);
}

#if defined(__x86_64__) || defined(__i386__)

#define PX_AVX2 __attribute__((target("avx2")))

// Eight pixels of the rule. Lanes outside the source gather from offset 0 (a valid pixel) and are replaced
// by the marker; the indices of the others lie in [0, width - 2] x [0, height - 2], so every gather reads
// inside the plane.
PX_AVX2 inline __m256 avx2SampleEight(const float *base, __m256i stride, __m256i lastJ, __m256i lastI,
                                      __m256 lastColumn, __m256 lastRow, __m256 u, __m256 v) {
    const __m256 zero = _mm256_setzero_ps();
    const __m256 inside = _mm256_and_ps(
        _mm256_and_ps(_mm256_cmp_ps(u, zero, _CMP_GE_OQ), _mm256_cmp_ps(u, lastColumn, _CMP_LE_OQ)),
        _mm256_and_ps(_mm256_cmp_ps(v, zero, _CMP_GE_OQ), _mm256_cmp_ps(v, lastRow, _CMP_LE_OQ)));
    const __m256i keep = _mm256_castps_si256(inside);
    const __m256i j =
        _mm256_and_si256(keep, _mm256_min_epi32(_mm256_cvttps_epi32(_mm256_floor_ps(u)), lastJ));
    const __m256i i =
        _mm256_and_si256(keep, _mm256_min_epi32(_mm256_cvttps_epi32(_mm256_floor_ps(v)), lastI));
    const __m256 fu = _mm256_sub_ps(u, _mm256_cvtepi32_ps(j));
    const __m256 fv = _mm256_sub_ps(v, _mm256_cvtepi32_ps(i));
    const __m256i at = _mm256_add_epi32(_mm256_mullo_epi32(i, stride), j);
    const __m256i one = _mm256_set1_epi32(1);
    const __m256 s00 = _mm256_i32gather_ps(base, at, 4);
    const __m256 s01 = _mm256_i32gather_ps(base, _mm256_add_epi32(at, one), 4);
    const __m256i below = _mm256_add_epi32(at, stride);
    const __m256 s10 = _mm256_i32gather_ps(base, below, 4);
    const __m256 s11 = _mm256_i32gather_ps(base, _mm256_add_epi32(below, one), 4);
    const __m256 top = _mm256_add_ps(s00, _mm256_mul_ps(_mm256_sub_ps(s01, s00), fu));
    const __m256 bottom = _mm256_add_ps(s10, _mm256_mul_ps(_mm256_sub_ps(s11, s10), fu));
    const __m256 value = _mm256_add_ps(top, _mm256_mul_ps(_mm256_sub_ps(bottom, top), fv));
    return _mm256_blendv_ps(_mm256_set1_ps(kInvalid), value, inside);
}

PX_AVX2 void avx2SampleRow(const Source &source, const float *u, const float *v, int32_t count, float *out) {
    int32_t k = 0;
    if (source.stride > 0) {
        const __m256i stride = _mm256_set1_epi32(source.stride);
        const __m256i lastJ = _mm256_set1_epi32(source.width - 2);
        const __m256i lastI = _mm256_set1_epi32(source.height - 2);
        const __m256 lastColumn = _mm256_set1_ps(static_cast<float>(source.width - 1));
        const __m256 lastRow = _mm256_set1_ps(static_cast<float>(source.height - 1));
        for (; k + 8 <= count; k += 8)
            _mm256_storeu_ps(out + k,
                             avx2SampleEight(source.rows[0], stride, lastJ, lastI, lastColumn, lastRow,
                                             _mm256_loadu_ps(u + k), _mm256_loadu_ps(v + k)));
    }
    portableSampleRow(source, u + k, v + k, count - k, out + k);
}

#endif

// Positions of columns x0 .. x0 + count - 1 of row y.
void affinePositions(const Affine &map, int32_t x0, int32_t count, int32_t y, float *u, float *v) {
    const float yf = static_cast<float>(y);
    for (int32_t k = 0; k < count; ++k) {
        const float xf = static_cast<float>(x0 + k);
        u[k] = map.a[0] + xf + map.a[1] * xf + map.a[2] * yf;
        v[k] = map.b[0] + yf + map.b[1] * xf + map.b[2] * yf;
    }
}

void translationPositions(float du, float dv, int32_t x0, int32_t count, int32_t y, float *u, float *v) {
    const float row = static_cast<float>(y) + dv;
    for (int32_t k = 0; k < count; ++k) {
        u[k] = static_cast<float>(x0 + k) + du;
        v[k] = row;
    }
}

// Runs `positions` and `sample` over every block of every target row, tile by tile.
template <class Positions>
void warpBlocks(const Source &source, const Target &target, SampleRow sample, Positions positions) {
    alignas(32) float u[kBlock];
    alignas(32) float v[kBlock];
    for (int32_t y0 = 0; y0 < target.height; y0 += kTileRows)
        for (int32_t x0 = 0; x0 < target.width; x0 += kBlock) {
            const int32_t count = std::min(kBlock, target.width - x0);
            for (int32_t y = y0; y < std::min(y0 + kTileRows, target.height); ++y) {
                positions(x0, count, y, u, v);
                sample(source, u, v, count, target.rows[y] + x0);
            }
        }
}

} // namespace

SampleRow sampleRowAt(int level) {
    switch (level) {
    case LEVEL_PORTABLE:
        return portableSampleRow;
#if defined(__x86_64__) || defined(__i386__)
    case LEVEL_AVX2:
        return __builtin_cpu_supports("avx2") ? avx2SampleRow : nullptr;
#endif
    default:
        return nullptr;
    }
}

SampleRow sampleRowBest() {
    static const SampleRow best = sampleRowAt(LEVEL_AVX2) ? sampleRowAt(LEVEL_AVX2) : portableSampleRow;
    return best;
}

void affineFast(const Source &source, const Affine &map, const Target &target, SampleRow sample) {
    warpBlocks(source, target, sample, [&map](int32_t x0, int32_t count, int32_t y, float *u, float *v) {
        affinePositions(map, x0, count, y, u, v);
    });
}

void translationFast(const Source &source, float du, float dv, const Target &target, SampleRow sample) {
    warpBlocks(source, target, sample, [du, dv](int32_t x0, int32_t count, int32_t y, float *u, float *v) {
        translationPositions(du, dv, x0, count, y, u, v);
    });
}

} // namespace pxwarp
