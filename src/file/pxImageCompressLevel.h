// The 1 % level of the CSHORT compressor's fast kernels. On vectors: one pass from a guess that a small
// sample gives and that the pass itself checks; when the check fails, and on the plain level, two passes of
// small histograms (high bytes, then the low bytes of the one high byte where the count reaches n / 100), the
// same first value as the reference's full histogram.
#pragma once

#include "pxImageCompressVectors.h"

namespace pxcompress {
namespace {

// Eight counters per value, used in turn, so that equal neighbouring pixels do not wait on one counter.
struct SplitHistogram {
    static constexpr int kCopies = 8;
    uint32_t counts[kCopies][256];

    uint64_t at(int value) const {
        uint64_t sum = 0;
        for (int k = 0; k < kCopies; ++k)
            sum += counts[k][value];
        return sum;
    }
    // The first value at which the cumulative count, starting from `before`, reaches target (256 if none);
    // `before` then holds the count of the values below it.
    int reach(uint64_t target, uint64_t *before) const {
        for (int value = 0; value < 256; ++value) {
            if (*before + at(value) >= target)
                return value;
            *before += at(value);
        }
        return 256;
    }
};

// The first value at which the cumulative count of the values values[0], values[stride], ... (count of them)
// reaches target (1 <= target <= count).
uint16_t firstReaching(const uint16_t *values, uint64_t count, uint64_t stride, uint64_t target) {
    constexpr int copies = SplitHistogram::kCopies;
    SplitHistogram high{};
    uint64_t i = 0;
    for (; i + copies <= count; i += copies)
        for (int k = 0; k < copies; ++k)
            ++high.counts[k][values[(i + k) * stride] >> 8];
    for (; i < count; ++i)
        ++high.counts[0][values[i * stride] >> 8];
    uint64_t before = 0;
    const int top = high.reach(target, &before);
    SplitHistogram low{};
    for (i = 0; i + copies <= count; i += copies)
        for (int k = 0; k < copies; ++k) {
            const uint16_t v = values[(i + k) * stride];
            low.counts[k][v & 255] += (v >> 8) == top;
        }
    for (; i < count; ++i)
        low.counts[0][values[i * stride] & 255] += (values[i * stride] >> 8) == top;
    return (uint16_t)(top * 256 + low.reach(target, &before));
}

// The 1 % level from a guess, on vectors: a sample of 4096 pixels puts the level near g; one pass counts the
// pixels at or below each of 8 consecutive values around g, and where the count first reaches n / 100 at one
// of them after the first, that value is the one sought (the count at the value below falls short). False
// when the counts do not settle it (or the image is small); the full count then decides.
template <class ShortV> bool guessedLevel(const uint16_t *pixels, uint64_t n, uint64_t target, int64_t *q) {
    constexpr uint64_t sample = 4096;
    constexpr int values = 8;
    constexpr int lanes = sizeof(ShortV) / sizeof(uint16_t);
    constexpr uint64_t chunk = 65535 * (uint64_t)lanes; // pixels whose counts a 16-bit lane holds
    if (n < 16 * sample)
        return false;
    const uint64_t sampleTarget = target * sample / n > 0 ? target * sample / n : 1;
    int first = (int)firstReaching(pixels, sample, n / sample, sampleTarget) - values / 2 + 1;
    first = first < 0 ? 0 : first > 65536 - values ? 65536 - values : first;
    uint64_t atOrBelow[values] = {};
    uint64_t i = 0;
    for (; i + lanes <= n;) {
        ShortV counts[values] = {};
        for (const uint64_t end = n - i < chunk ? i + (n - i) / lanes * lanes : i + chunk; i < end;
             i += lanes) {
            ShortV v;
            std::memcpy(&v, pixels + i, sizeof v);
            for (int j = 0; j < values; ++j)
                counts[j] -= (ShortV)(v <= (uint16_t)(first + j));
        }
        for (int j = 0; j < values; ++j)
            for (int k = 0; k < lanes; ++k)
                atOrBelow[j] += counts[j][k];
    }
    for (; i < n; ++i)
        for (int j = 0; j < values; ++j)
            atOrBelow[j] += pixels[i] <= first + j;
    for (int j = 0; j < values; ++j) {
        if (atOrBelow[j] < target)
            continue;
        if (j == 0 && first > 0)
            return false;
        *q = first + j + 1;
        return true;
    }
    return false;
}

template <class ShortV> bool onePercentLevelLanes(const uint16_t *pixels, uint64_t n, int64_t *q) {
    *q = 0;
    const uint64_t target = n / 100;
    if (target == 0)
        return true;
    if constexpr (sizeof(ShortV) > sizeof(uint16_t)) {
        if (guessedLevel<ShortV>(pixels, n, target, q))
            return true;
    }
    *q = (int64_t)firstReaching(pixels, n, 1, target) + 1;
    return true;
}

} // namespace
} // namespace pxcompress
