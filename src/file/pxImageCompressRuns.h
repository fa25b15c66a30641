// The run stage of the CSHORT compressor's fast kernels: runs are grown a vector at a time up to the first
// pixel that breaks them, and stretches where every pixel opens a run of its own are tested and written a
// vector at a time; each break is the reference's.
#pragma once

#include "pxImageCompressInternal.h"
#include "pxImageCompressVectors.h"

namespace pxcompress {
namespace {

// The first of pixels i..end-1 that is odd or outside low..high, or end.
template <class ShortV>
uint64_t firstBreak(const uint16_t *pixels, uint64_t i, uint64_t end, uint16_t low, uint16_t high) {
    typedef Vec<ShortV, uint16_t, float> V;
    constexpr int Lanes = V::Lanes;
    const auto breaks = [&](uint16_t p) { return (p & 1) != 0 || p < low || p > high; };
    // Most runs in bright content are short: a few pixels are looked at singly first.
    for (const uint64_t stop = i + 4 < end ? i + 4 : end; i < stop; ++i)
        if (breaks(pixels[i]))
            return i;
    if constexpr (Lanes > 1) {
        for (; i + Lanes <= end; i += Lanes) {
            const ShortV v = V::load(pixels + i);
            if (anyLane(((v & 1) != 0) | (v < low) | (v > high)))
                break;
        }
    }
    for (; i < end; ++i)
        if (breaks(pixels[i]))
            return i;
    return end;
}

// Stretches where every pixel opens a run of its own: each pixel breaks the run its predecessor opened, which
// depends on the two pixels alone, so whole vectors of them are tested and written at once.
template <class HalfV, class IntV, class UIntV> class LoneRuns {
    static constexpr int Lanes = sizeof(IntV) / sizeof(int32_t);

  public:
    LoneRuns(int64_t baseline, const Settings &s)
        : baseline_(clampTo(baseline, 1 << 18)), diffLow_(clampTo(s.diffLow, 1 << 17)),
          diffHigh_(clampTo(s.diffHigh, 1 << 17)) {}

    // Whether pixels i..i+Lanes-1 each break the run of their predecessor (i >= 1, the predecessor of i
    // opened its run; its two low bits are cleared here, whether or not they are yet in memory).
    bool allBreak(const uint16_t *pixels, uint64_t i) const {
        const IntV p = load(pixels + i);
        const IntV previous = load(pixels + i - 1) & ~3;
        const IntV above = previous > baseline_;
        const IntV wideHigh = previous + diffLow_;
        const IntV narrow = above | (wideHigh > baseline_);
        const IntV low = (above & (previous - diffHigh_)) | (~above & (previous - diffLow_));
        const IntV high = (narrow & (previous + diffHigh_)) | (~narrow & wideHigh);
        const IntV breaks = ((p & 1) != 0) | (p < low) | (p > high);
        return allLanes(breaks);
    }

    // The pairs (1, predecessor with its two low bits cleared) of pixels i..i+Lanes-1, each a run of one, or
    // only counted where they would pass the limit. The pixels themselves are left for openAll, so that the
    // next vector's loads never wait on these pixels' stores.
    static void writePairs(const uint16_t *pixels, uint64_t i, RunWriter &out) {
        const IntV previous = load(pixels + i - 1) & ~3;
        if (out.used + 2 * Lanes > out.capacity) {
            for (int k = 0; k < Lanes; ++k)
                emit(out, 1, (uint16_t)previous[k]);
            return;
        }
        static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "pairs built as little-endian 32-bit words");
        const UIntV pairs = 1 | ((UIntV)previous << 16);
        std::memcpy(out.words + out.used, &pairs, sizeof pairs);
        out.used += 2 * Lanes;
    }

    // Pixels from..end-1, each of which opened a run, lose their two low bits.
    static void openAll(uint16_t *pixels, uint64_t from, uint64_t end) {
        for (uint64_t i = from; i < end; ++i)
            pixels[i] = (uint16_t)(pixels[i] & ~3);
    }

  private:
    const int32_t baseline_, diffLow_, diffHigh_;

    // Limits that change no comparison with pixels and their sums with the tolerances.
    static int32_t clampTo(int64_t value, int32_t limit) {
        return (int32_t)(value < -limit ? -limit : value > limit ? limit : value);
    }
    static IntV load(const uint16_t *p) {
        HalfV v;
        std::memcpy(&v, p, sizeof v);
        return __builtin_convertvector(v, IntV);
    }
};

template <class ShortV, class HalfV, class IntV, class UIntV>
void formRunsLanes(uint16_t *pixels, uint64_t n, int64_t baseline, const Settings &s, RunWriter &out) {
    Range range{(int64_t)pixels[0] - s.diffLow, (int64_t)pixels[0] + s.diffLow};
    uint32_t length = 1;
    uint64_t i = 1;
    constexpr bool vectors = sizeof(IntV) > sizeof(int32_t);
    const LoneRuns<HalfV, IntV, UIntV> lone(baseline, s);
    while (i < n) {
        if (range.low <= range.high && range.low <= 65535 && range.high >= 0) {
            const uint64_t room = kLongestRun - length;
            const uint64_t end = n - i < room ? n : i + room;
            const uint16_t low = (uint16_t)(range.low < 0 ? 0 : range.low);
            const uint16_t high = (uint16_t)(range.high > 65535 ? 65535 : range.high);
            const uint64_t k = firstBreak<ShortV>(pixels, i, end, low, high);
            length += (uint32_t)(k - i);
            i = k;
            if (i == n)
                break;
        }
        pixels[i] = (uint16_t)(pixels[i] & ~3);
        emit(out, length, pixels[i - 1]);
        length = 1;
        range = rangeOf(pixels[i], baseline, s);
        ++i;
        if constexpr (vectors) {
            constexpr uint64_t lanes = sizeof(IntV) / sizeof(int32_t);
            if (n - i >= lanes && lone.allBreak(pixels, i)) {
                const uint64_t from = i;
                do {
                    lone.writePairs(pixels, i, out);
                    i += lanes;
                } while (n - i >= lanes && lone.allBreak(pixels, i));
                lone.openAll(pixels, from, i);
                range = rangeOf(pixels[i - 1], baseline, s);
            }
        }
    }
    emit(out, length, pixels[n - 1]);
}

// The fast kernels on vectors of `Bytes` bytes (0: none).

} // namespace
} // namespace pxcompress
