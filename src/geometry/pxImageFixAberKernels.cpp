// Module pxImageFixAberKernels: the loops of the lens-distortion resampling. The references follow the
// definitions literally, column by column; the fast kernels go row by row, which reads and writes the
// planes along their rows. The Newton steps of the inverse model form one chain along row 0 (each column
// starts from row 0 of the previous one) and one chain down every column, so the fast kernel walks row 0
// first, keeping each column's u, and then advances all columns of a strip one row at a time: every pixel
// sees the same u and the same arithmetic as in the reference.
#include "pxImageFixAberKernels.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>

#if defined(__x86_64__) || defined(__i386__)
#include <immintrin.h>
#endif

namespace pxaber {

namespace {

// Truncation toward zero; NaN and values outside int32 give INT32_MIN (what the processor's conversion
// gives), which every range test below treats as outside.
inline int32_t truncateToInt(double value) {
    return value > -2147483649.0 && value < 2147483648.0 ? static_cast<int32_t>(value) : INT32_MIN;
}

// ---- Full model -----------------------------------------------------------------------------------------

// The sum of the n x n samples of output pixel (x, y), or 0.0 as soon as one sample falls outside.
inline double supersampledSum(const Plane &source, const FullModel &m, double inv, int32_t x, int32_t y) {
    const float *const *rows = reinterpret_cast<const float *const *>(source.rows);
    double sum = 0.0;
    for (int32_t i = 0; i < m.n; ++i)
        for (int32_t j = 0; j < m.n; ++j) {
            const double ys = y - 0.5 + (i + 0.5) * inv;
            const double xs = x - 0.5 + (j + 0.5) * inv;
            const double dx = xs - m.cx;
            const double dy = ys - m.cy;
            const double r2 = dx * dx + dy * dy;
            const double radial = (m.k3 * r2 * r2 + m.k2 * r2 + m.k1) * r2;
            const double sx = xs + dx * radial + 2.0 * m.p2 * dx * dy + m.p1 * (r2 + 2.0 * dx * dx) + 0.5;
            const double sy = ys + dy * radial + 2.0 * m.p1 * dx * dy + m.p2 * (r2 + 2.0 * dy * dy) + 0.5;
            const int32_t ix = truncateToInt(sx);
            const int32_t iy = truncateToInt(sy);
            if (ix < 0 || iy < 0 || ix >= source.width - 1 || iy >= source.height - 1)
                return 0.0;
            sum += static_cast<double>(rows[iy][ix]);
        }
    return sum;
}

// ---- Inverse radial model ---------------------------------------------------------------------------------

template <Pixels kind> struct PixelOf { using type = float; };
template <> struct PixelOf<Pixels::UBYTE> { using type = uint8_t; };
template <> struct PixelOf<Pixels::SHORT> { using type = uint16_t; };

// One Newton step of k u^3 + u = r from u; r > 0.
inline double newtonStep(double k, double u, double r) {
    return (2.0 * k * u * u * u + r) / (3.0 * k * u * u + 1.0);
}

// Output pixel (x, y) once the source radius u of its ray is known: the bilinear sample at the point of
// the ray at radius u, or 0 outside the usable area.
template <Pixels kind>
inline typename PixelOf<kind>::type radialPixel(const Plane &source, const RadialModel &m, double dx,
                                                double dy, double s) {
    using T = typename PixelOf<kind>::type;
    const double fx = dx * s + m.cx;
    const double fy = dy * s + m.cy;
    if (!(fx >= 0.0 && fy >= 0.0 && fx < source.width - 1 && fy < source.height - 1))
        return T(0);
    const int32_t c0 = static_cast<int32_t>(fx);
    const int32_t r0 = static_cast<int32_t>(fy);
    const double fc = fx - c0;
    const double fr = fy - r0;
    const T *upper = static_cast<const T *>(source.rows[r0]);
    const T *lower = static_cast<const T *>(source.rows[r0 + 1]);
    const double value = (upper[c0] * (1.0 - fr) + lower[c0] * fr) * (1.0 - fc) +
                         (upper[c0 + 1] * (1.0 - fr) + lower[c0 + 1] * fr) * fc;
    return static_cast<T>(value);
}

// Advances u to pixel (x, y) and returns that pixel; u becomes 0 at the centre itself.
template <Pixels kind>
inline typename PixelOf<kind>::type radialStep(const Plane &source, const RadialModel &m, int32_t x,
                                               int32_t y, double &u) {
    const double dx = x - m.cx;
    const double dy = y - m.cy;
    const double r = std::sqrt(dx * dx + dy * dy);
    double s = 0.0;
    if (r > 0.0) {
        u = newtonStep(m.k, u, r);
        s = u / r;
    } else {
        u = 0.0;
    }
    return radialPixel<kind>(source, m, dx, dy, s);
}

template <Pixels kind>
void fixAberReferenceOf(const Plane &source, const RadialModel &m, const Plane &output) {
    using T = typename PixelOf<kind>::type;
    double top = m.u0;
    for (int32_t x = 0; x < output.width; ++x) {
        double u = top;
        for (int32_t y = 0; y < output.height; ++y) {
            static_cast<T *>(output.rows[y])[x] = radialStep<kind>(source, m, x, y, u);
            if (y == 0)
                top = u;
        }
    }
}

// Columns advanced together by the fast kernel; their u live on the stack.
constexpr int32_t kStrip = 512;

#if defined(__x86_64__) || defined(__i386__)

#define PX_AVX2 __attribute__((target("avx2")))

// Four float pixels of one row, columns x .. x + 3, with the steps of radialStep in double on each lane in
// the same order: dx, r, the Newton step where r > 0 (else u = s = 0), the source position, the range
// test, the truncations and the bilinear weights. Lanes outside the usable area gather from index 0 and
// store 0.
PX_AVX2 inline void avx2FourFloatPixels(const float *base, int32_t stride, const Plane &source,
                                        const RadialModel &m, int32_t x, double dy, double *u, float *out) {
    const __m256d cx = _mm256_set1_pd(m.cx), cy = _mm256_set1_pd(m.cy), k = _mm256_set1_pd(m.k);
    const __m256d zero = _mm256_setzero_pd(), one = _mm256_set1_pd(1.0);
    const __m256d dx =
        _mm256_sub_pd(_mm256_cvtepi32_pd(_mm_add_epi32(_mm_set1_epi32(x), _mm_setr_epi32(0, 1, 2, 3))), cx);
    const __m256d dyv = _mm256_set1_pd(dy);
    const __m256d r = _mm256_sqrt_pd(_mm256_add_pd(_mm256_mul_pd(dx, dx), _mm256_mul_pd(dyv, dyv)));
    const __m256d positive = _mm256_cmp_pd(r, zero, _CMP_GT_OQ);
    const __m256d uOld = _mm256_loadu_pd(u);
    const __m256d k2u = _mm256_mul_pd(_mm256_mul_pd(_mm256_set1_pd(2.0), k), uOld);
    const __m256d numerator = _mm256_add_pd(_mm256_mul_pd(_mm256_mul_pd(k2u, uOld), uOld), r);
    const __m256d k3u = _mm256_mul_pd(_mm256_mul_pd(_mm256_set1_pd(3.0), k), uOld);
    const __m256d denominator = _mm256_add_pd(_mm256_mul_pd(k3u, uOld), one);
    const __m256d uNew = _mm256_and_pd(positive, _mm256_div_pd(numerator, denominator));
    const __m256d s = _mm256_and_pd(positive, _mm256_div_pd(uNew, r));
    _mm256_storeu_pd(u, uNew);
    const __m256d fx = _mm256_add_pd(_mm256_mul_pd(dx, s), cx);
    const __m256d fy = _mm256_add_pd(_mm256_mul_pd(dyv, s), cy);
    const __m256d inside =
        _mm256_and_pd(_mm256_and_pd(_mm256_cmp_pd(fx, zero, _CMP_GE_OQ), _mm256_cmp_pd(fy, zero, _CMP_GE_OQ)),
                      _mm256_and_pd(_mm256_cmp_pd(fx, _mm256_set1_pd(source.width - 1), _CMP_LT_OQ),
                                    _mm256_cmp_pd(fy, _mm256_set1_pd(source.height - 1), _CMP_LT_OQ)));
    // The lane mask narrowed to 32-bit lanes.
    const __m128i valid = _mm256_castsi256_si128(
        _mm256_permutevar8x32_epi32(_mm256_castpd_si256(inside), _mm256_setr_epi32(0, 2, 4, 6, 1, 3, 5, 7)));
    const __m128i c0 = _mm_and_si128(valid, _mm256_cvttpd_epi32(_mm256_and_pd(inside, fx)));
    const __m128i r0 = _mm_and_si128(valid, _mm256_cvttpd_epi32(_mm256_and_pd(inside, fy)));
    const __m256d fc = _mm256_sub_pd(fx, _mm256_cvtepi32_pd(c0));
    const __m256d fr = _mm256_sub_pd(fy, _mm256_cvtepi32_pd(r0));
    const __m128i at = _mm_add_epi32(_mm_mullo_epi32(r0, _mm_set1_epi32(stride)), c0);
    const __m128i next = _mm_set1_epi32(1), below = _mm_set1_epi32(stride);
    const __m256d p00 = _mm256_cvtps_pd(_mm_i32gather_ps(base, at, 4));
    const __m256d p01 = _mm256_cvtps_pd(_mm_i32gather_ps(base, _mm_add_epi32(at, next), 4));
    const __m256d p10 = _mm256_cvtps_pd(_mm_i32gather_ps(base, _mm_add_epi32(at, below), 4));
    const __m256d p11 =
        _mm256_cvtps_pd(_mm_i32gather_ps(base, _mm_add_epi32(_mm_add_epi32(at, below), next), 4));
    const __m256d restR = _mm256_sub_pd(one, fr), restC = _mm256_sub_pd(one, fc);
    const __m256d left = _mm256_add_pd(_mm256_mul_pd(p00, restR), _mm256_mul_pd(p10, fr));
    const __m256d right = _mm256_add_pd(_mm256_mul_pd(p01, restR), _mm256_mul_pd(p11, fr));
    const __m256d value = _mm256_add_pd(_mm256_mul_pd(left, restC), _mm256_mul_pd(right, fc));
    _mm_storeu_ps(out, _mm256_cvtpd_ps(_mm256_and_pd(inside, value)));
}

// Rows 1.. of a strip of float pixels, four columns at a time, the strip's tail in plain code.
PX_AVX2 void avx2FloatRows(const Plane &source, int32_t stride, const RadialModel &m, const Plane &output,
                           int32_t x0, int32_t count, double *columnU) {
    const float *base = static_cast<const float *>(source.rows[0]);
    for (int32_t y = 1; y < output.height; ++y) {
        float *row = static_cast<float *>(output.rows[y]) + x0;
        const double dy = y - m.cy;
        int32_t k = 0;
        for (; k + 4 <= count; k += 4)
            avx2FourFloatPixels(base, stride, source, m, x0 + k, dy, columnU + k, row + k);
        for (; k < count; ++k)
            row[k] = radialStep<Pixels::FLOAT>(source, m, x0 + k, y, columnU[k]);
    }
}

#endif

template <Pixels kind>
void fixAberFastOf(const Plane &source, const RadialModel &m, const Plane &output, bool vector,
                   int32_t stride) {
    using T = typename PixelOf<kind>::type;
    double columnU[kStrip];
    double top = m.u0;
    for (int32_t x0 = 0; x0 < output.width; x0 += kStrip) {
        const int32_t count = std::min(kStrip, output.width - x0);
        T *row = static_cast<T *>(output.rows[0]) + x0;
        for (int32_t k = 0; k < count; ++k) {
            row[k] = radialStep<kind>(source, m, x0 + k, 0, top);
            columnU[k] = top;
        }
#if defined(__x86_64__) || defined(__i386__)
        if (kind == Pixels::FLOAT && vector && stride > 0) {
            avx2FloatRows(source, stride, m, output, x0, count, columnU);
            continue;
        }
#endif
        for (int32_t y = 1; y < output.height; ++y) {
            row = static_cast<T *>(output.rows[y]) + x0;
            for (int32_t k = 0; k < count; ++k)
                row[k] = radialStep<kind>(source, m, x0 + k, y, columnU[k]);
        }
    }
}

bool avx2Available() {
#if defined(__x86_64__) || defined(__i386__)
    static const bool available = __builtin_cpu_supports("avx2");
    return available;
#else
    return false;
#endif
}

} // namespace

void aberReference(const Plane &source, const FullModel &model, const Plane &output) {
    const double inv = 1.0 / model.n;
    const double divisor = static_cast<double>(model.n * model.n);
    for (int32_t x = 0; x < output.width; ++x)
        for (int32_t y = 0; y < output.height; ++y)
            static_cast<float *>(output.rows[y])[x] =
                static_cast<float>(supersampledSum(source, model, inv, x, y) / divisor);
}

#if defined(__x86_64__) || defined(__i386__)

namespace {

// Output pixels x .. x + 3 of row y of the full model: each lane runs the samples of supersampledSum in
// the same order with the same double steps; a lane whose sample falls outside stops adding (its sum no
// longer matters) and stores 0. Samples of live lanes are gathered through the row stride; dead lanes read
// index 0.
PX_AVX2 inline void avx2AberFour(const float *base, int32_t stride, const Plane &source, const FullModel &m,
                                 double inv, double divisor, int32_t x, int32_t y, float *out) {
    const __m256d half = _mm256_set1_pd(0.5), two = _mm256_set1_pd(2.0);
    const __m256d xd = _mm256_cvtepi32_pd(_mm_add_epi32(_mm_set1_epi32(x), _mm_setr_epi32(0, 1, 2, 3)));
    const __m256d xBase = _mm256_sub_pd(xd, half);
    const double yBase = y - 0.5;
    const __m128i lastX = _mm_set1_epi32(source.width - 1), lastY = _mm_set1_epi32(source.height - 1);
    const __m128i minusOne = _mm_set1_epi32(-1);
    __m128i alive = minusOne;
    __m256d sum = _mm256_setzero_pd();
    for (int32_t i = 0; i < m.n; ++i) {
        const __m256d ys = _mm256_set1_pd(yBase + (i + 0.5) * inv);
        for (int32_t j = 0; j < m.n; ++j) {
            const __m256d xs = _mm256_add_pd(xBase, _mm256_set1_pd((j + 0.5) * inv));
            const __m256d dx = _mm256_sub_pd(xs, _mm256_set1_pd(m.cx));
            const __m256d dy = _mm256_sub_pd(ys, _mm256_set1_pd(m.cy));
            const __m256d r2 = _mm256_add_pd(_mm256_mul_pd(dx, dx), _mm256_mul_pd(dy, dy));
            const __m256d k3r4 = _mm256_mul_pd(_mm256_mul_pd(_mm256_set1_pd(m.k3), r2), r2);
            const __m256d radial =
                _mm256_mul_pd(_mm256_add_pd(_mm256_add_pd(k3r4, _mm256_mul_pd(_mm256_set1_pd(m.k2), r2)),
                                            _mm256_set1_pd(m.k1)),
                              r2);
            const __m256d dxdy2p2 = _mm256_mul_pd(_mm256_mul_pd(_mm256_set1_pd(2.0 * m.p2), dx), dy);
            const __m256d dxdy2p1 = _mm256_mul_pd(_mm256_mul_pd(_mm256_set1_pd(2.0 * m.p1), dx), dy);
            const __m256d sx = _mm256_add_pd(
                _mm256_add_pd(_mm256_add_pd(_mm256_add_pd(xs, _mm256_mul_pd(dx, radial)), dxdy2p2),
                              _mm256_mul_pd(_mm256_set1_pd(m.p1),
                                            _mm256_add_pd(r2, _mm256_mul_pd(_mm256_mul_pd(two, dx), dx)))),
                half);
            const __m256d sy = _mm256_add_pd(
                _mm256_add_pd(_mm256_add_pd(_mm256_add_pd(ys, _mm256_mul_pd(dy, radial)), dxdy2p1),
                              _mm256_mul_pd(_mm256_set1_pd(m.p2),
                                            _mm256_add_pd(r2, _mm256_mul_pd(_mm256_mul_pd(two, dy), dy)))),
                half);
            // Truncation toward zero; NaN and values beyond int32 give INT32_MIN, which is outside.
            const __m128i ix = _mm256_cvttpd_epi32(sx), iy = _mm256_cvttpd_epi32(sy);
            const __m128i outside =
                _mm_or_si128(_mm_or_si128(_mm_cmpgt_epi32(_mm_setzero_si128(), ix),
                                          _mm_cmpgt_epi32(_mm_setzero_si128(), iy)),
                             _mm_or_si128(_mm_cmpeq_epi32(_mm_min_epi32(ix, lastX), lastX),
                                          _mm_cmpeq_epi32(_mm_min_epi32(iy, lastY), lastY)));
            alive = _mm_andnot_si128(outside, alive);
            if (_mm_testz_si128(alive, alive)) {
                _mm_storeu_ps(out, _mm_setzero_ps());
                return;
            }
            const __m128i at =
                _mm_and_si128(alive, _mm_add_epi32(_mm_mullo_epi32(iy, _mm_set1_epi32(stride)), ix));
            const __m256d pixel = _mm256_cvtps_pd(_mm_i32gather_ps(base, at, 4));
            sum = _mm256_add_pd(sum, pixel);
        }
    }
    const __m256d live = _mm256_castsi256_pd(_mm256_cvtepi32_epi64(alive));
    _mm_storeu_ps(out, _mm256_cvtpd_ps(_mm256_and_pd(live, _mm256_div_pd(sum, _mm256_set1_pd(divisor)))));
}

PX_AVX2 void avx2AberRows(const Plane &source, int32_t stride, const FullModel &m, const Plane &output) {
    const double inv = 1.0 / m.n;
    const double divisor = static_cast<double>(m.n * m.n);
    const float *base = static_cast<const float *>(source.rows[0]);
    for (int32_t y = 0; y < output.height; ++y) {
        float *row = static_cast<float *>(output.rows[y]);
        int32_t x = 0;
        for (; x + 4 <= output.width; x += 4)
            avx2AberFour(base, stride, source, m, inv, divisor, x, y, row + x);
        for (; x < output.width; ++x)
            row[x] = static_cast<float>(supersampledSum(source, m, inv, x, y) / divisor);
    }
}

} // namespace

#endif

void aberFast(const Plane &source, const FullModel &model, const Plane &output, int level,
              int32_t sourceStride) {
#if defined(__x86_64__) || defined(__i386__)
    if (level >= 2 && sourceStride > 0 && avx2Available()) {
        avx2AberRows(source, sourceStride, model, output);
        return;
    }
#endif
    const double inv = 1.0 / model.n;
    const double divisor = static_cast<double>(model.n * model.n);
    for (int32_t y = 0; y < output.height; ++y) {
        float *row = static_cast<float *>(output.rows[y]);
        for (int32_t x = 0; x < output.width; ++x)
            row[x] = static_cast<float>(supersampledSum(source, model, inv, x, y) / divisor);
    }
}

void fixAberReference(const Plane &source, const RadialModel &model, Pixels kind, const Plane &output) {
    switch (kind) {
    case Pixels::UBYTE:
        return fixAberReferenceOf<Pixels::UBYTE>(source, model, output);
    case Pixels::SHORT:
        return fixAberReferenceOf<Pixels::SHORT>(source, model, output);
    case Pixels::FLOAT:
        return fixAberReferenceOf<Pixels::FLOAT>(source, model, output);
    }
}

void fixAberFast(const Plane &source, const RadialModel &model, Pixels kind, const Plane &output, int level,
                 int32_t sourceStride) {
    const bool vector = level >= 2 && avx2Available();
    switch (kind) {
    case Pixels::UBYTE:
        return fixAberFastOf<Pixels::UBYTE>(source, model, output, vector, sourceStride);
    case Pixels::SHORT:
        return fixAberFastOf<Pixels::SHORT>(source, model, output, vector, sourceStride);
    case Pixels::FLOAT:
        return fixAberFastOf<Pixels::FLOAT>(source, model, output, vector, sourceStride);
    }
}

int32_t evenStride(const Plane &plane, size_t pixelSize) {
    const char *const *rows = reinterpret_cast<const char *const *>(plane.rows);
    const ptrdiff_t bytes = plane.height > 1 ? rows[1] - rows[0] : 0;
    if (bytes <= 0 || bytes % static_cast<ptrdiff_t>(pixelSize) != 0)
        return 0;
    const ptrdiff_t stride = bytes / static_cast<ptrdiff_t>(pixelSize);
    if (stride < plane.width || stride > INT32_MAX / plane.height)
        return 0;
    for (int32_t y = 2; y < plane.height; ++y)
        if (rows[y] != rows[0] + y * bytes)
            return 0;
    return static_cast<int32_t>(stride);
}

} // namespace pxaber
