// Internals of the preprocessing modes shared with the tests: the fast reciprocal square root and the two
// private local-mean workers of the record mode.
#pragma once

#include <cstdint>
#include <cstring>

#include "pxImage.h"

namespace pxpre {

// Approximation of 1 / sqrt(v) for v > 0: the float whose bits are (0xBE6F0000 - bits(v)) >> 1, then four
// Newton steps y = y * (1.5 - 0.5 * v * y * y) in single precision. Part of the modes' numerics: results
// depend on these exact operations. O(1).
inline float fastReciprocalSqrt(float v) {
    uint32_t bits;
    std::memcpy(&bits, &v, sizeof bits);
    bits = (0xBE6F0000u - bits) >> 1;
    float y;
    std::memcpy(&y, &bits, sizeof y);
    for (int step = 0; step < 4; ++step)
        y = y * (1.5f - 0.5f * v * y * y);
    return y;
}

// Plain window x window sums of plane 0 of a FLOAT record into a new zero-filled FLOAT record of the same
// size (border 0): horizontal running sums of each row into a ring of `window` rows, then running column
// sums. Only rows window/2 .. max(window/2, height-window) and columns window/2 .. width-window+window/2 hold
// sums; the others stay 0. window in 1..min(width, height). O(pixels). 1, or 0 (traced) when a record cannot
// be made.
uint32_t boxSum(const tag_pxImage *image, int32_t window, tag_pxImage **sums);

// Mean of the values strictly below `threshold` over the (2 r + 1) square, r = window / 2, for rows and
// columns r .. size-r-1 of plane 0 of a FLOAT record (border 0), into a new zero-filled record; `threshold`
// where no value qualifies. O(pixels * (2r + 1)^2). 1/0 (allocation).
uint32_t saturationAwareMean(const tag_pxImage *image, int32_t window, float threshold, tag_pxImage **means);

// Makes the next call of each mode read its settings again, as on the first call in a process (tests only).
void forgetSettings();

} // namespace pxpre
