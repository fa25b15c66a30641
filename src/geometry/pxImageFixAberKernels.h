// Kernels of the lens-distortion resampling: the full model with supersampling and nearest-pixel samples,
// and the inverse of the one-coefficient radial model with its warm-started Newton step. Each has a plain
// reference that walks the image column by column as the definition does, and a fast kernel that walks it
// row by row with the same arithmetic in the same order, so both give the same bits.
#pragma once

#include <cstddef>
#include <cstdint>

namespace pxaber {

// Plane 0 of an image: rows 0..height-1 of width pixels.
struct Plane {
    void *const *rows;
    int32_t width;
    int32_t height;
};

// The full model: radial k1..k3, tangential p1, p2, centre (cx, cy) already defaulted, n x n samples per
// output pixel (n >= 1, n * n fits in 32 bits).
struct FullModel {
    double k1, k2, k3, p1, p2, cx, cy;
    int32_t n;
};

// Output pixel (x, y) = (float)(sum / (n * n)) of the FLOAT source pixels nearest to the distorted
// sub-pixel positions, or 0 when any of them truncates outside [0, width - 1) x [0, height - 1). Source and
// output are FLOAT planes of one size.
void aberReference(const Plane &source, const FullModel &model, const Plane &output);
// `level` 2 computes four output pixels at a time with AVX2 (the source read through its row stride
// `sourceStride` in floats, 0 when unknown); 0 keeps to plain code. Same bits at every level.
void aberFast(const Plane &source, const FullModel &model, const Plane &output, int level = 2,
              int32_t sourceStride = 0);

// The inverse radial model: coefficient k, centre (cx, cy), starting value u0 of the first Newton step.
struct RadialModel {
    double k, cx, cy, u0;
};

// Pixel kinds of the inverse model: bytes and 16-bit values stored by truncation, everything else read and
// written as 32-bit floats.
enum class Pixels { UBYTE, SHORT, FLOAT };

// Output pixel (x, y): one Newton step u := (2k u^3 + r) / (3k u^2 + 1) from the u of the pixel above (at
// row 0 from row 0 of the previous column, u0 for the first), r the distance from the centre; the source
// is read bilinearly at (dx u / r + cx, dy u / r + cy) when that lies in [0, width - 1) x [0, height - 1),
// else the pixel is 0. Double precision throughout. Source and output planes of one size and kind.
void fixAberReference(const Plane &source, const RadialModel &model, Pixels kind, const Plane &output);
// `level` 2 runs the rows after the first four columns at a time with AVX2 for float pixels (read through
// the row stride `sourceStride` in floats, 0 when the rows are not evenly spaced); 0 keeps to plain code.
// Every level gives the reference's bits.
void fixAberFast(const Plane &source, const RadialModel &model, Pixels kind, const Plane &output,
                 int level = 2, int32_t sourceStride = 0);

// Distance in pixels between consecutive rows of a plane whose rows lie evenly in one block and whose
// indices fit in 32 bits, else 0. O(height).
int32_t evenStride(const Plane &plane, size_t pixelSize);

} // namespace pxaber
