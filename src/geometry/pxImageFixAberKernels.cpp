// Module pxImageFixAberKernels: the loops of the lens-distortion resampling. The references follow the
// definitions literally, column by column; the fast kernels go row by row, which reads and writes the
// planes along their rows. The Newton steps of the inverse model form one chain along row 0 (each column
// starts from row 0 of the previous one) and one chain down every column, so the fast kernel walks row 0
// first, keeping each column's u, and then advances all columns of a strip one row at a time: every pixel
// sees the same u and the same arithmetic as in the reference.
#include "pxImageFixAberKernels.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

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

template <Pixels kind> void fixAberFastOf(const Plane &source, const RadialModel &m, const Plane &output) {
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
        for (int32_t y = 1; y < output.height; ++y) {
            row = static_cast<T *>(output.rows[y]) + x0;
            for (int32_t k = 0; k < count; ++k)
                row[k] = radialStep<kind>(source, m, x0 + k, y, columnU[k]);
        }
    }
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

void aberFast(const Plane &source, const FullModel &model, const Plane &output) {
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

void fixAberFast(const Plane &source, const RadialModel &model, Pixels kind, const Plane &output) {
    switch (kind) {
    case Pixels::UBYTE:
        return fixAberFastOf<Pixels::UBYTE>(source, model, output);
    case Pixels::SHORT:
        return fixAberFastOf<Pixels::SHORT>(source, model, output);
    case Pixels::FLOAT:
        return fixAberFastOf<Pixels::FLOAT>(source, model, output);
    }
}

} // namespace pxaber
