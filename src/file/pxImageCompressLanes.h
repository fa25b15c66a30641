// The fast stages of the CSHORT compressor on vectors of a given number of 16-bit lanes (1: plain scalars).
// Each instruction level's source file, compiled for that level, makes its own table from this one
// definition; everything here has internal linkage so that no level's code is shared with another.
//
// They give the reference's pixels and words because they keep its order of reads:
// - The 1 % level counts the high bytes, then the low bytes of the pixels in the one high byte where the
//   cumulative count reaches n / 100: the same first value, from two small histograms.
// - Protection scans each row as the reference does. A row's marks can change only later reads of the same
//   row (rows above are done, rows below are read after the row ends), so they are set on the row at once
//   and, for the eight other rows they cover, collected in a cover row and set once when the row ends;
//   overlapping squares set each pixel once. Stretches of columns where nothing can happen (no bright pixel,
//   no rise while no stretch is open, no fall and no length limit while one is) are passed over a vector at
//   a time; any other vector is stepped through pixel by pixel with the reference's rules.
// - Runs are grown a vector at a time up to the first pixel that breaks them; breaks are the reference's.
#pragma once

#include <cstring>

#if defined(__SSE2__)
#include <immintrin.h>
#endif

#include "pxImageCompressInternal.h"

namespace pxcompress {
namespace {

// True when any lane of the mask (a vector of whole registers) is set: its registers are ORed together and
// tested once.
template <class Register, class Mask, class Test> bool anyIn(Mask m, Test test) {
    static_assert(sizeof(Mask) % sizeof(Register) == 0, "masks of whole registers");
    Register parts[sizeof(Mask) / sizeof(Register)];
    std::memcpy(parts, &m, sizeof parts);
    Register acc = parts[0];
    for (unsigned i = 1; i < sizeof(Mask) / sizeof(Register); ++i)
        acc |= parts[i];
    return test(acc);
}

template <class Mask> bool anyLane(Mask m) {
#if defined(__AVX512F__)
    if constexpr (sizeof(Mask) % 64 == 0)
        return anyIn<__m512i>(m, [](__m512i v) { return _mm512_test_epi64_mask(v, v) != 0; });
#endif
#if defined(__AVX__)
    if constexpr (sizeof(Mask) % 32 == 0)
        return anyIn<__m256i>(m, [](__m256i v) { return _mm256_testz_si256(v, v) == 0; });
#endif
#if defined(__SSE2__)
    if constexpr (sizeof(Mask) % 16 == 0)
        return anyIn<__m128i>(
            m, [](__m128i v) { return _mm_movemask_epi8(_mm_cmpeq_epi8(v, _mm_setzero_si128())) != 0xFFFF; });
#endif
    return anyIn<uint64_t>(m, [](uint64_t v) { return v != 0; });
}

// True when every lane of the mask is set.
template <class Mask> bool allLanes(Mask m) {
    return !anyLane(~m);
}

// Vectors of one register: ShortV of 16-bit pixels (Lanes lanes), FloatV of floats (FloatLanes lanes) and
// HalfV of the 16-bit pixels converted to one FloatV; or uint16_t, uint16_t and float for the plain level,
// which uses no vectors.
template <class ShortV, class HalfV, class FloatV> struct Vec {
    static constexpr int Lanes = sizeof(ShortV) / sizeof(uint16_t);
    static constexpr int FloatLanes = sizeof(FloatV) / sizeof(float);
    static_assert(sizeof(HalfV) == FloatLanes * sizeof(uint16_t), "one 16-bit lane per float lane");

    static ShortV load(const uint16_t *p) {
        ShortV v;
        std::memcpy(&v, p, sizeof v);
        return v;
    }
    // The floats of FloatLanes pixels, each ORed with `bits` first.
    static FloatV loadFloat(const uint16_t *p, uint16_t bits = 0) {
        HalfV v;
        std::memcpy(&v, p, sizeof v);
        v |= bits;
        return __builtin_convertvector(v, FloatV);
    }
};

// ---- The 1 % level --------------------------------------------------------------------------------------
// One pass over the pixels on vectors, from a guess that a small sample gives and that the pass itself
// checks; when the check fails, two passes of small histograms: high bytes, then the low bytes of the one
// high byte where the count reaches n / 100.

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
// pixels at or below each of 16 consecutive values around g, and where the count first reaches n / 100 at one
// of them after the first, that value is the one sought (the count at the value below falls short). False
// when the counts do not settle it (or the image is small); the full count then decides.
template <class ShortV> bool guessedLevel(const uint16_t *pixels, uint64_t n, uint64_t target, int64_t *q) {
    constexpr uint64_t sample = 4096;
    constexpr int values = 16;
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

// ---- Protection -------------------------------------------------------------------------------------------

template <class ShortV, class HalfV, class FloatV> class Protector {
    typedef Vec<ShortV, HalfV, FloatV> V;
    static constexpr int Lanes = V::Lanes;
    static constexpr int FloatLanes = V::FloatLanes;

  public:
    Protector(uint16_t *pixels, int64_t width, int64_t height, const Settings &s, int64_t mark,
              uint16_t *cover)
        : pixels_(pixels), width_(width), height_(height), s_(s), mark_(mark), cover_(cover),
          reach_(s.ratioWidth < 0 ? 0 : s.ratioWidth), widen_(truncateSaturated(s.protectWidth)),
          markFloat_(mark < -1      ? -1.0f
                     : mark > 65536 ? 65536.0f
                                    : (float)mark) {}

    void run() {
        for (int64_t y = 5; y <= height_ - 6; ++y) {
            startRow(y);
            if (s_.protectionMethod == 1)
                scanBright(5, width_ - 6);
            else
                scanEdges(s_.protectionMethod == 3);
            finishRow(y);
        }
    }

  private:
    uint16_t *const pixels_;
    const int64_t width_, height_;
    const Settings &s_;
    const int64_t mark_;
    uint16_t *const cover_;
    const int64_t reach_, widen_;
    const float markFloat_;

    uint16_t *row_ = nullptr;
    int64_t squaresEnd_ = 0;             // one past the last column the row's squares have marked
    int64_t coverLo_ = 0, coverHi_ = -1; // columns the row has marked
    bool open_ = false;
    int64_t rise_ = 0;

    void startRow(int64_t y) {
        row_ = pixels_ + y * width_;
        squaresEnd_ = 0;
        coverLo_ = width_;
        coverHi_ = -1;
        open_ = false;
        rise_ = 0;
    }

    // Sets the row's marks on the other rows of its nine and clears the cover row. Stretches of Lanes
    // columns that the row did not mark are passed over.
    void finishRow(int64_t y) {
        if (coverLo_ > coverHi_)
            return;
        const int64_t first = y - 4 < 0 ? 0 : y - 4, last = y + 4 >= height_ ? height_ - 1 : y + 4;
        for (int64_t x = coverLo_; x <= coverHi_; x += Lanes) {
            const int64_t end = x + Lanes - 1 < coverHi_ ? x + Lanes - 1 : coverHi_;
            if constexpr (Lanes > 1) {
                if (end - x + 1 == Lanes && !anyLane(V::load(cover_ + x) != 0))
                    continue;
            }
            for (int64_t r = first; r <= last; ++r) {
                uint16_t *target = pixels_ + r * width_;
                for (int64_t c = x; c <= end; ++c)
                    target[c] |= cover_[c];
            }
        }
        std::memset(cover_ + coverLo_, 0, (size_t)(coverHi_ - coverLo_ + 1) * sizeof(uint16_t));
    }

    // Marks columns x0..x1 (clipped) of the row and of its cover.
    void markColumns(int64_t x0, int64_t x1) {
        x0 = x0 < 0 ? 0 : x0;
        x1 = x1 >= width_ ? width_ - 1 : x1;
        if (x0 > x1)
            return;
        for (int64_t x = x0; x <= x1; ++x) {
            row_[x] |= 1;
            cover_[x] = 1;
        }
        coverLo_ = x0 < coverLo_ ? x0 : coverLo_;
        coverHi_ = x1 > coverHi_ ? x1 : coverHi_;
    }

    // The 9 x 9 square of a bright pixel at column x; squares come in increasing x, so the columns below
    // squaresEnd_ that it covers are marked already.
    void markSquare(int64_t x) { markSquares(x, x); }

    // The squares of the bright pixels at columns x0..x1, in one go.
    void markSquares(int64_t x0, int64_t x1) {
        markColumns(x0 - 4 > squaresEnd_ ? x0 - 4 : squaresEnd_, x1 + 4);
        squaresEnd_ = x1 + 5;
    }

    bool bright(int64_t x) const { return row_[x] > mark_; }

    // Columns x0..x1 where only bright pixels act.
    void scanBright(int64_t x0, int64_t x1) {
        if (mark_ >= 65535)
            return;
        int64_t x = x0;
        while (x <= x1) {
            if constexpr (Lanes > 1) {
                if (mark_ >= 0 && x + Lanes - 1 <= x1) {
                    const auto brightLanes = V::load(row_ + x) > (uint16_t)mark_;
                    if (!anyLane(brightLanes)) {
                        x += Lanes;
                        continue;
                    }
                    if (allLanes(brightLanes)) {
                        markSquares(x, x + Lanes - 1);
                        x += Lanes;
                        continue;
                    }
                }
            }
            for (const int64_t stop = x + Lanes - 1 < x1 ? x + Lanes - 1 : x1; x <= stop; ++x)
                if (bright(x))
                    markSquare(x);
        }
    }

    // Methods 2 and 3: the edge scan where both compared pixels lie in the row, bright pixels alone outside.
    void scanEdges(bool withBright) {
        const int64_t a = reach_ > 5 ? reach_ : 5;
        const int64_t b = width_ - 1 - reach_ < width_ - 6 ? width_ - 1 - reach_ : width_ - 6;
        if (a > b) {
            if (withBright)
                scanBright(5, width_ - 6);
            return;
        }
        if (withBright)
            scanBright(5, a - 1);
        scanFull(a, b, withBright);
        if (withBright)
            scanBright(b + 1, width_ - 6);
    }

    // One column of the edge scan, as the reference steps it.
    void step(int64_t x, bool withBright) {
        if (withBright && bright(x))
            markSquare(x);
        const float left = row_[x - reach_];
        const float right = row_[x + reach_];
        if (!open_) {
            if (right > s_.ratioTh * left) {
                open_ = true;
                rise_ = x;
            }
            return;
        }
        if (x - rise_ > s_.maxProtectWidth) {
            open_ = false;
        } else if (left / s_.ratioTh > right) {
            markColumns(rise_ - widen_, x + widen_);
            open_ = false;
        }
    }

    // True when the edge tests of columns x..x+FloatLanes-1 on these compared pixels change nothing: while no
    // stretch is open, no rise; while one is, no fall and no column past its length limit.
    bool edgesQuiet(int64_t x, FloatV left, FloatV right) const {
        if (!open_)
            return !anyLane(right > s_.ratioTh * left);
        if (x + FloatLanes - 1 - rise_ > s_.maxProtectWidth)
            return false;
        return !anyLane(left / s_.ratioTh > right);
    }

    // Does the edge scan of the FloatLanes columns from x in one go when it can: with no bright pixel and
    // quiet edges nothing happens; with every pixel bright (compared pixels at most 4 columns away) each
    // column's square has marked both compared pixels before they are read, so the edges are tested on the
    // pixels with bit 0 set and, when quiet, the block is the union of its squares. False: step through it.
    bool block(int64_t x, bool withBright) {
        const FloatV left = V::loadFloat(row_ + x - reach_);
        const FloatV right = V::loadFloat(row_ + x + reach_);
        if (!withBright)
            return edgesQuiet(x, left, right);
        const auto brightLanes = V::loadFloat(row_ + x) > markFloat_;
        if (!anyLane(brightLanes))
            return edgesQuiet(x, left, right);
        if (reach_ > 4 || !allLanes(brightLanes) ||
            !edgesQuiet(x, V::loadFloat(row_ + x - reach_, 1), V::loadFloat(row_ + x + reach_, 1)))
            return false;
        markSquares(x, x + FloatLanes - 1);
        return true;
    }

    void scanFull(int64_t x0, int64_t x1, bool withBright) {
        int64_t x = x0;
        while (x <= x1) {
            if constexpr (FloatLanes > 1) {
                if (x + FloatLanes - 1 <= x1 && block(x, withBright)) {
                    x += FloatLanes;
                    continue;
                }
            }
            for (const int64_t stop = x + FloatLanes - 1 < x1 ? x + FloatLanes - 1 : x1; x <= stop; ++x)
                step(x, withBright);
        }
    }
};

template <class ShortV, class HalfV, class FloatV>
void protectLanes(uint16_t *pixels, int64_t width, int64_t height, const Settings &s, int64_t mark,
                  uint16_t *scratch) {
    if (s.protectionMethod < 1 || s.protectionMethod > 3)
        return;
    Protector<ShortV, HalfV, FloatV>(pixels, width, height, s, mark, scratch).run();
}

// ---- Runs -------------------------------------------------------------------------------------------------

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
    // already opened its run).
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

    // Pixels i..i+Lanes-1 become runs of one: each loses its two low bits and the pairs (1, predecessor) are
    // written, or only counted where they would pass the limit.
    static void write(uint16_t *pixels, uint64_t i, RunWriter &out) {
        const IntV previous = load(pixels + i - 1) & ~3;
        HalfV opened;
        std::memcpy(&opened, pixels + i, sizeof opened);
        opened &= (uint16_t)~3;
        std::memcpy(pixels + i, &opened, sizeof opened);
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
                do {
                    lone.write(pixels, i, out);
                    i += lanes;
                } while (n - i >= lanes && lone.allBreak(pixels, i));
                range = rangeOf(pixels[i - 1], baseline, s);
            }
        }
    }
    emit(out, length, pixels[n - 1]);
}

// The fast kernels on vectors of `Bytes` bytes (0: none).
template <int Bytes> struct LaneTypes {
    typedef uint16_t Short __attribute__((vector_size(Bytes)));
    typedef uint16_t Half __attribute__((vector_size(Bytes / 2)));
    typedef float Float __attribute__((vector_size(Bytes)));
    typedef int32_t Int __attribute__((vector_size(Bytes)));
    typedef uint32_t UInt __attribute__((vector_size(Bytes)));
};
template <> struct LaneTypes<0> {
    typedef uint16_t Short;
    typedef uint16_t Half;
    typedef float Float;
    typedef int32_t Int;
    typedef uint32_t UInt;
};

template <int Bytes>
const Kernels kLaneKernels = {
    onePercentLevelLanes<typename LaneTypes<Bytes>::Short>,
    protectLanes<typename LaneTypes<Bytes>::Short, typename LaneTypes<Bytes>::Half,
                 typename LaneTypes<Bytes>::Float>,
    formRunsLanes<typename LaneTypes<Bytes>::Short, typename LaneTypes<Bytes>::Half,
                  typename LaneTypes<Bytes>::Int, typename LaneTypes<Bytes>::UInt>,
};

} // namespace
} // namespace pxcompress
