// Module pxImageBoxFilter: windowed sums, averages and normalisation by running sums, and windowed
// minimum, maximum and minimum-with-range over square windows.
#include <cfloat>
#include <cstdint>
#include <type_traits>
#include <utility>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "pxImage.h"
#include "pxImageBoxFilterInternal.h"
#include "image/pxImageLog.h"

namespace pxbox {

namespace {

template <typename T> T *rowOf(void **map, int64_t y) {
    return static_cast<T *>(map[y]);
}

// Pixel right of a region that ends at column `end` of row y: the row's storage, else the first stored
// pixel of the next storage row (rows of a plane are contiguous), else 0.
template <typename T> T pixelBeyondRow(const PlaneView &plane, int32_t y, int32_t end) {
    if (end < plane.width + plane.border) {
        return rowOf<T>(plane.map, y)[end];
    }
    if (y + 1 < plane.height + plane.border) {
        return rowOf<T>(plane.map, y + 1)[-plane.border];
    }
    return T(0);
}

// Source row below a region that ends at row `end`, or null when it lies beyond the storage.
template <typename T> const T *rowBeyondRegion(const PlaneView &plane, int32_t end, int32_t x) {
    if (end < plane.height + plane.border) {
        return rowOf<T>(plane.map, end) + x;
    }
    return nullptr;
}

// Running sums of `lanes` rows side by side; the sums are independent, so the rows hide each other's
// addition latency while every row sees exactly the additions of the reference.
template <typename T, int lanes>
void sumRowsX(const T *const *src, T *const *dst, const T *beyond, int32_t width, int32_t half) {
    T s[lanes];
    for (int l = 0; l < lanes; ++l) {
        s[l] = T(0);
    }
    int32_t p = 0;
    for (; p < half; ++p) {
        for (int l = 0; l < lanes; ++l) {
            s[l] += src[l][p];
        }
    }
    int32_t out = 0;
    const int32_t growEnd = p + half + 1;
    for (; p < growEnd && p < width; ++p, ++out) {
        for (int l = 0; l < lanes; ++l) {
            s[l] += src[l][p];
            dst[l][out] = s[l];
        }
    }
    if (p < growEnd) {
        for (int l = 0; l < lanes; ++l) {
            s[l] += beyond[l];
            dst[l][out] = s[l];
        }
        ++p;
        ++out;
    }
    int32_t q = 0;
    for (; p < width; ++p, ++q, ++out) {
        for (int l = 0; l < lanes; ++l) {
            s[l] += static_cast<T>(src[l][p] - src[l][q]);
            dst[l][out] = s[l];
        }
    }
    for (; out < width; ++q, ++out) {
        for (int l = 0; l < lanes; ++l) {
            s[l] -= src[l][q];
            dst[l][out] = s[l];
        }
    }
}

template <typename T, int lanes> void sumRowGroupX(const SumPass &pass, int32_t y) {
    const T *src[lanes];
    T *dst[lanes];
    T beyond[lanes];
    for (int l = 0; l < lanes; ++l) {
        src[l] = rowOf<T>(pass.src.map, pass.srcY + y + l) + pass.srcX;
        dst[l] = rowOf<T>(pass.dst.map, pass.dstY + y + l) + pass.dstX;
        beyond[l] = T(0);
        if (2 * pass.half + 1 > pass.width) {
            beyond[l] = pixelBeyondRow<T>(pass.src, pass.srcY + y + l, pass.srcX + pass.width);
        }
    }
    sumRowsX<T, lanes>(src, dst, beyond, pass.width, pass.half);
}

// Rows worked side by side: enough independent sums to cover the latency of an addition. More rows lose:
// rows of a power-of-two stride fall into the same cache sets and evict each other.
constexpr int kRowLanes = 4;

// Which pixels enter the running sum of an output: the incoming one (growing phase), the incoming minus
// the outgoing one (full window) or minus the outgoing one only (shrinking phase).
enum class Step { Grow, Slide, Shrink };

#if defined(__SSE2__)
// Vector steps of the wrapping row sums: 16 byte or 8 16-bit lanes, added and subtracted modulo the lane
// width, with an in-register running sum (prefix) and the last lane copied to all lanes.
template <typename T> struct WrapLanes;
template <> struct WrapLanes<uint8_t> {
    static constexpr int32_t count = 16;
    static __m128i add(__m128i a, __m128i b) { return _mm_add_epi8(a, b); }
    static __m128i sub(__m128i a, __m128i b) { return _mm_sub_epi8(a, b); }
    static __m128i splat(uint8_t v) { return _mm_set1_epi8(static_cast<char>(v)); }
    static __m128i prefix(__m128i v) {
        v = add(v, _mm_slli_si128(v, 1));
        v = add(v, _mm_slli_si128(v, 2));
        v = add(v, _mm_slli_si128(v, 4));
        return add(v, _mm_slli_si128(v, 8));
    }
    static __m128i splatLast(__m128i v) {
        const __m128i pairs = _mm_unpackhi_epi8(v, v);         // lane 15 twice in 16-bit lane 7
        const __m128i high = _mm_shufflehi_epi16(pairs, 0xFF); // 16-bit lanes 4..7 = lane 7
        return _mm_unpackhi_epi64(high, high);
    }
};
template <> struct WrapLanes<uint16_t> {
    static constexpr int32_t count = 8;
    static __m128i add(__m128i a, __m128i b) { return _mm_add_epi16(a, b); }
    static __m128i sub(__m128i a, __m128i b) { return _mm_sub_epi16(a, b); }
    static __m128i splat(uint16_t v) { return _mm_set1_epi16(static_cast<short>(v)); }
    static __m128i prefix(__m128i v) {
        v = add(v, _mm_slli_si128(v, 2));
        v = add(v, _mm_slli_si128(v, 4));
        return add(v, _mm_slli_si128(v, 8));
    }
    static __m128i splatLast(__m128i v) {
        const __m128i high = _mm_shufflehi_epi16(v, 0xFF);
        return _mm_unpackhi_epi64(high, high);
    }
};

// Outputs [out, end) of a row in one phase: out[i] = out[i - 1] + src[i + half] (Grow),
// + (src[i + half] - src[i - half - 1]) (Slide) or - src[i - half - 1] (Shrink). The changes of a vector of
// outputs are summed in the register and the running sum carried in, so every output receives the same sum
// modulo the lane width as the step-by-step loop; the carried sum takes the last lane of each vector's own
// prefix. Every phase runs in vectors, so the cost of a row does not grow with the window. Returns the
// first output not written.
template <typename T, Step step>
int32_t sumWrappingVector(const T *src, T *dst, T &s, int32_t out, int32_t end, int32_t half) {
    using L = WrapLanes<T>;
    __m128i carry = L::splat(s);
    for (; out + L::count <= end; out += L::count) {
        __m128i change = _mm_setzero_si128();
        if constexpr (step != Step::Shrink) {
            change = _mm_loadu_si128(reinterpret_cast<const __m128i *>(src + out + half));
        }
        if constexpr (step != Step::Grow) {
            const __m128i old = _mm_loadu_si128(reinterpret_cast<const __m128i *>(src + out - half - 1));
            change = L::sub(change, old);
        }
        const __m128i local = L::prefix(change);
        _mm_storeu_si128(reinterpret_cast<__m128i *>(dst + out), L::add(local, carry));
        carry = L::add(carry, L::splatLast(local)); // only this addition waits for the previous step
    }
    s = static_cast<T>(_mm_cvtsi128_si32(carry));
    return out;
}
#else
template <typename T, Step step>
int32_t sumWrappingVector(const T *, T *, T &, int32_t out, int32_t, int32_t) {
    return out;
}
#endif

// Wrapping running sums of one row of an integer type (sums modulo 2^8 or 2^16). Modular addition is
// associative, so grouping the additions differently gives the same bits as the running sum.
template <typename T> void sumRowWrapping(const T *src, T *dst, T beyond, int32_t width, int32_t half) {
    T s = T(0);
    for (int32_t p = 0; p < half; ++p) {
        s += src[p];
    }
    // Growing outputs whose incoming pixel lies in the row; an even window as wide as the row takes one
    // more, the pixel beyond it.
    const int32_t growEnd = half + 1 < width - half ? half + 1 : width - half;
    int32_t out = sumWrappingVector<T, Step::Grow>(src, dst, s, 0, growEnd, half);
    for (; out < growEnd; ++out) {
        s += src[out + half];
        dst[out] = s;
    }
    if (out <= half) {
        s += beyond;
        dst[out++] = s;
    }
    const int32_t slideEnd = width - half; // outputs whose window lies inside the row
    out = sumWrappingVector<T, Step::Slide>(src, dst, s, out, slideEnd, half);
    for (; out < slideEnd; ++out) {
        s += static_cast<T>(src[out + half] - src[out - half - 1]);
        dst[out] = s;
    }
    out = sumWrappingVector<T, Step::Shrink>(src, dst, s, out, width, half);
    for (; out < width; ++out) {
        s -= src[out - half - 1];
        dst[out] = s;
    }
}

template <typename T> void sumRowsWrapping(const SumPass &pass) {
    for (int32_t y = 0; y < pass.height; ++y) {
        const T *src = rowOf<T>(pass.src.map, pass.srcY + y) + pass.srcX;
        T *dst = rowOf<T>(pass.dst.map, pass.dstY + y) + pass.dstX;
        T beyond = T(0);
        if (2 * pass.half + 1 > pass.width) {
            beyond = pixelBeyondRow<T>(pass.src, pass.srcY + y, pass.srcX + pass.width);
        }
        sumRowWrapping(src, dst, beyond, pass.width, pass.half);
    }
}

} // namespace

template <typename T> void blockSumXFast(const SumPass &pass) {
    if constexpr (std::is_integral_v<T>) {
        sumRowsWrapping<T>(pass);
    } else {
        int32_t y = 0;
        for (; y + kRowLanes <= pass.height; y += kRowLanes) {
            sumRowGroupX<T, kRowLanes>(pass, y);
        }
        for (; y < pass.height; ++y) {
            sumRowGroupX<T, 1>(pass, y);
        }
    }
}

template <typename T> void blockSumXReference(const SumPass &pass) {
    const int32_t srcEnd = pass.srcX + pass.width;
    const int32_t dstEnd = pass.dstX + pass.width;
    for (int32_t y = 0; y < pass.height; ++y) {
        const T *src = rowOf<T>(pass.src.map, pass.srcY + y);
        T *dst = rowOf<T>(pass.dst.map, pass.dstY + y);
        auto read = [&](int32_t x) {
            return x < srcEnd ? src[x] : pixelBeyondRow<T>(pass.src, pass.srcY + y, srcEnd);
        };
        T s = T(0);
        int32_t p = pass.srcX;
        int32_t q = pass.srcX;
        int32_t w = pass.dstX;
        for (int32_t k = 0; k < pass.half; ++k) {
            s += read(p++);
        }
        for (int32_t k = 0; k <= pass.half; ++k) {
            s += read(p++);
            dst[w++] = s;
        }
        while (p < srcEnd) {
            const T in = src[p++];
            const T out = src[q++];
            s += static_cast<T>(in - out);
            dst[w++] = s;
        }
        while (w < dstEnd) {
            s -= src[q++];
            dst[w++] = s;
        }
    }
}

namespace {

template <typename T> void clearRow(T *out, int32_t width) {
    for (int32_t x = 0; x < width; ++x) {
        out[x] = T(0);
    }
}

template <typename T> void addRow(T *out, const T *in, int32_t width) {
    for (int32_t x = 0; x < width; ++x) {
        out[x] += in[x];
    }
}

template <typename T> void growRow(T *out, const T *above, const T *in, int32_t width) {
    for (int32_t x = 0; x < width; ++x) {
        out[x] = above[x] + in[x];
    }
}

template <typename T> void growRowByZero(T *out, const T *above, int32_t width) {
    const T zero = T(0);
    for (int32_t x = 0; x < width; ++x) {
        out[x] = above[x] + zero;
    }
}

template <typename T> void slideRow(T *out, const T *above, const T *in, const T *old, int32_t width) {
    for (int32_t x = 0; x < width; ++x) {
        out[x] = static_cast<T>(above[x] + in[x]) - old[x];
    }
}

template <typename T> void shrinkRow(T *out, const T *above, const T *old, int32_t width) {
    for (int32_t x = 0; x < width; ++x) {
        out[x] = above[x] - old[x];
    }
}

template <typename T> const T *srcRowY(const SumPass &pass, int32_t j) {
    return rowOf<T>(pass.src.map, pass.srcY + j) + pass.srcX;
}

template <typename T> T *dstRowY(const SumPass &pass, int32_t j) {
    return rowOf<T>(pass.dst.map, pass.dstY + j) + pass.dstX;
}

} // namespace

template <typename T> void blockSumYFast(const SumPass &pass) {
    const int32_t width = pass.width;
    T *first = dstRowY<T>(pass, 0);
    clearRow(first, width);
    for (int32_t r = 0; r <= pass.half; ++r) {
        addRow(first, srcRowY<T>(pass, r), width);
    }
    int32_t j = 1;
    int32_t in = pass.half + 1;
    int32_t old = 0;
    for (int32_t k = 0; k < pass.half; ++k, ++j, ++in) {
        T *out = dstRowY<T>(pass, j);
        if (in < pass.height) {
            growRow(out, dstRowY<T>(pass, j - 1), srcRowY<T>(pass, in), width);
        } else if (const T *below = rowBeyondRegion<T>(pass.src, pass.srcY + in, pass.srcX)) {
            growRow(out, dstRowY<T>(pass, j - 1), below, width);
        } else {
            growRowByZero(out, dstRowY<T>(pass, j - 1), width);
        }
    }
    for (; in < pass.height; ++j, ++in, ++old) {
        slideRow(dstRowY<T>(pass, j), dstRowY<T>(pass, j - 1), srcRowY<T>(pass, in), srcRowY<T>(pass, old),
                 width);
    }
    for (; j < pass.height; ++j, ++old) {
        shrinkRow(dstRowY<T>(pass, j), dstRowY<T>(pass, j - 1), srcRowY<T>(pass, old), width);
    }
}

template <typename T> void blockSumYReference(const SumPass &pass) {
    const int32_t srcEnd = pass.srcY + pass.height;
    for (int32_t x = 0; x < pass.width; ++x) {
        auto src = [&](int32_t y) {
            if (y < srcEnd) {
                return rowOf<T>(pass.src.map, y)[pass.srcX + x];
            }
            const T *below = rowBeyondRegion<T>(pass.src, y, pass.srcX + x);
            return below ? *below : T(0);
        };
        auto dst = [&](int32_t j) -> T & { return rowOf<T>(pass.dst.map, pass.dstY + j)[pass.dstX + x]; };
        int32_t in = pass.srcY;
        int32_t old = pass.srcY;
        dst(0) = T(0);
        for (int32_t r = 0; r <= pass.half; ++r) {
            dst(0) += src(in++);
        }
        int32_t j = 1;
        for (int32_t k = 0; k < pass.half; ++k, ++j) {
            dst(j) = dst(j - 1) + src(in++);
        }
        while (in < srcEnd) {
            const T above = dst(j - 1);
            const T grown = above + src(in++);
            dst(j++) = grown - src(old++);
        }
        while (j < pass.height) {
            dst(j) = dst(j - 1) - src(old++);
            ++j;
        }
    }
}

template void blockSumXFast<uint8_t>(const SumPass &);
template void blockSumXFast<uint16_t>(const SumPass &);
template void blockSumXFast<float>(const SumPass &);
template void blockSumXFast<double>(const SumPass &);
template void blockSumXReference<uint8_t>(const SumPass &);
template void blockSumXReference<uint16_t>(const SumPass &);
template void blockSumXReference<float>(const SumPass &);
template void blockSumXReference<double>(const SumPass &);
template void blockSumYFast<uint8_t>(const SumPass &);
template void blockSumYFast<uint16_t>(const SumPass &);
template void blockSumYFast<float>(const SumPass &);
template void blockSumYFast<double>(const SumPass &);
template void blockSumYReference<uint8_t>(const SumPass &);
template void blockSumYReference<uint16_t>(const SumPass &);
template void blockSumYReference<float>(const SumPass &);
template void blockSumYReference<double>(const SumPass &);

namespace {

// A source row of the region added to (`add`) or taken from the column sums of a strip, modulo 256.
void addColumns(uint8_t *columns, const uint8_t *src, int32_t count, bool add) {
    for (int32_t x = 0; x < count; ++x) {
        columns[x] = static_cast<uint8_t>(add ? columns[x] + src[x] : columns[x] - src[x]);
    }
}

// Counts of the windows of 2 half + 1 columns starting at each of `count` columns, turned into 0/1. The
// sums wrap modulo 256 like the running sums; with `half` fixed the window loop unrolls and the column
// loop vectorises.
template <int32_t half>
void windowCountsToBinary(const uint8_t *columns, uint8_t *dst, int32_t count, uint8_t level) {
    for (int32_t x = 0; x < count; ++x) {
        uint8_t sum = 0;
        for (int32_t k = 0; k <= 2 * half; ++k) {
            sum = static_cast<uint8_t>(sum + columns[x + k]);
        }
        dst[x] = sum >= level ? 1 : 0;
    }
}

// windowCountsToBinary with the window half as a constant, for halves 1 ... sizeof...(halves).
template <int32_t... halves>
void windowCountsOfHalf(int32_t half, const uint8_t *columns, uint8_t *dst, int32_t count, uint8_t level,
                        std::integer_sequence<int32_t, halves...>) {
    ((half == halves + 1 ? windowCountsToBinary<halves + 1>(columns, dst, count, level) : void()), ...);
}

// Widest window half summed directly; wider windows take the running row sums, whose cost does not grow
// with the window.
constexpr int32_t kDirectMaxHalf = 5;

void countsToBinary(const uint8_t *sums, uint8_t *dst, int32_t count, uint8_t level) {
    for (int32_t x = 0; x < count; ++x) {
        dst[x] = sums[x] >= level ? 1 : 0;
    }
}

// One row of counts from the column sums of a strip, `half` zero columns on either side included.
void rowCounts(const uint8_t *columns, int32_t half, uint8_t *dst, int32_t count, uint8_t level) {
    if (half <= kDirectMaxHalf) {
        windowCountsOfHalf(half, columns, dst, count, level,
                           std::make_integer_sequence<int32_t, kDirectMaxHalf>());
        return;
    }
    uint8_t sums[kCountStripColumns + 2 * kCountMaxHalf];
    sumRowWrapping<uint8_t>(columns, sums, 0, count + 2 * half, half);
    countsToBinary(sums + half, dst, count, level);
}

// Region columns [x0, x1). The column sums span the windows' reach [x0 - half, x1 + half); the part of it
// outside the region stays 0, so every window is a plain sum of 2 half + 1 column sums.
void countStrip(const SumPass &pass, int32_t x0, int32_t x1, uint8_t level) {
    uint8_t columns[kCountStripColumns + 2 * kCountMaxHalf] = {};
    const int32_t half = pass.half;
    const int32_t first = x0 - half > 0 ? x0 - half : 0;
    const int32_t end = x1 + half < pass.width ? x1 + half : pass.width;
    const int32_t count = end - first;
    uint8_t *inside = columns + (first - (x0 - half));
    auto srcRow = [&](int32_t j) { return rowOf<uint8_t>(pass.src.map, pass.srcY + j) + pass.srcX + first; };
    for (int32_t j = 0; j < half; ++j) {
        addColumns(inside, srcRow(j), count, true);
    }
    for (int32_t j = 0; j < pass.height; ++j) {
        if (j + half < pass.height) {
            addColumns(inside, srcRow(j + half), count, true);
        }
        if (j - half - 1 >= 0) {
            addColumns(inside, srcRow(j - half - 1), count, false);
        }
        rowCounts(columns, half, rowOf<uint8_t>(pass.dst.map, pass.dstY + j) + pass.dstX + x0, x1 - x0,
                  level);
    }
}

} // namespace

void boxCountsAtLeast(const SumPass &pass, uint8_t level) {
    const int32_t strips = (pass.width + kCountStripColumns - 1) / kCountStripColumns;
    const int32_t stripWidth = (pass.width + strips - 1) / strips;
    for (int32_t x0 = 0; x0 < pass.width; x0 += stripWidth) {
        countStrip(pass, x0, x0 + stripWidth < pass.width ? x0 + stripWidth : pass.width, level);
    }
}

namespace {

// Start values of the searches: the most negative and the largest finite value of the type.
template <typename T> struct SearchStart;
template <> struct SearchStart<float> {
    static float lowest() { return -FLT_MAX; }
    static float highest() { return FLT_MAX; }
};
template <> struct SearchStart<uint16_t> {
    static uint16_t lowest() { return 0; }
    static uint16_t highest() { return 65535; }
};

// Keeps the current extreme unless the pixel is strictly beyond it (so NaN is never taken).
template <typename T> T keepMin(T current, T pixel) {
    return pixel < current ? pixel : current;
}
template <typename T> T keepMax(T current, T pixel) {
    return pixel > current ? pixel : current;
}

template <typename T, Extreme E> T keepExtreme(T current, T pixel) {
    return E == Extreme::Min ? keepMin(current, pixel) : keepMax(current, pixel);
}

template <typename T, Extreme E> T searchStart() {
    return E == Extreme::Min ? SearchStart<T>::highest() : SearchStart<T>::lowest();
}

int32_t windowFirst(int32_t centre, int32_t half) {
    return centre - half < 0 ? 0 : centre - half;
}

int32_t windowLast(int32_t centre, int32_t half, int32_t size) {
    return centre + half > size - 1 ? size - 1 : centre + half;
}

// Extreme of each clipped row segment [x - half, x + half] of one row, taken left to right. Offsets of
// `width` or more reach no pixel of the row, so the offsets stop there whatever the window.
template <typename T, Extreme E> void rowSegmentExtremes(const T *src, T *out, int32_t width, int32_t half) {
    const T start = searchStart<T, E>();
    for (int32_t x = 0; x < width; ++x) {
        out[x] = start;
    }
    const int32_t reach = half < width - 1 ? half : width - 1;
    for (int32_t k = -reach; k <= reach; ++k) {
        const int32_t first = k < 0 ? -k : 0;
        const int32_t end = k > 0 ? width - k : width;
        for (int32_t x = first; x < end; ++x) {
            out[x] = keepExtreme<T, E>(out[x], src[x + k]);
        }
    }
}

// Extreme down the rows first..last of the row results, top to bottom.
template <typename T, Extreme E>
void columnExtremes(T *const *rows, int32_t first, int32_t last, int32_t ring, T *out, int32_t width) {
    const T *top = rows[first % ring];
    for (int32_t x = 0; x < width; ++x) {
        out[x] = top[x];
    }
    for (int32_t r = first + 1; r <= last; ++r) {
        const T *row = rows[r % ring];
        for (int32_t x = 0; x < width; ++x) {
            out[x] = keepExtreme<T, E>(out[x], row[x]);
        }
    }
}

// Scratch rows for the row results of one window height, used as a ring (row r in slot r % count).
template <typename T> class RingRows {
  public:
    RingRows(int32_t count, int32_t width, int32_t sets) : count_(count) {
        const size_t pixels = static_cast<size_t>(count) * static_cast<size_t>(width);
        if (!pxMallocNoInit(&block_, pixels * static_cast<size_t>(sets) * sizeof(T))) {
            return;
        }
        if (!pxMallocNoInit(&table_, static_cast<size_t>(count) * static_cast<size_t>(sets) * sizeof(T *))) {
            pxMallocFree(&block_);
            return;
        }
        T *pixelsAt = static_cast<T *>(block_);
        T **rows = static_cast<T **>(table_);
        for (int32_t i = 0; i < count * sets; ++i) {
            rows[i] = pixelsAt + static_cast<size_t>(i) * static_cast<size_t>(width);
        }
    }
    ~RingRows() {
        pxMallocFree(&table_);
        pxMallocFree(&block_);
    }
    RingRows(const RingRows &) = delete;
    RingRows &operator=(const RingRows &) = delete;

    bool ok() const { return table_ != nullptr; }
    int32_t count() const { return count_; }
    // The ring of set s.
    T *const *set(int32_t s) const { return static_cast<T **>(table_) + s * count_; }

  private:
    int32_t count_;
    void *block_ = nullptr;
    void *table_ = nullptr;
};

int32_t ringRowCount(const WindowPass &pass) {
    const int64_t window = 2 * static_cast<int64_t>(pass.half) + 1;
    return window < pass.height ? static_cast<int32_t>(window) : pass.height;
}

} // namespace

template <typename T, Extreme E> void boxExtremeDirect(const WindowPass &pass) {
    for (int32_t y = 0; y < pass.height; ++y) {
        const int32_t y0 = windowFirst(y, pass.half);
        const int32_t y1 = windowLast(y, pass.half, pass.height);
        T *out = rowOf<T>(pass.dst, y);
        for (int32_t x = 0; x < pass.width; ++x) {
            const int32_t x0 = windowFirst(x, pass.half);
            const int32_t x1 = windowLast(x, pass.half, pass.width);
            T extreme = searchStart<T, E>();
            for (int32_t wy = y0; wy <= y1; ++wy) {
                const T *row = rowOf<T>(pass.src, wy);
                for (int32_t wx = x0; wx <= x1; ++wx) {
                    extreme = keepExtreme<T, E>(extreme, row[wx]);
                }
            }
            out[x] = extreme;
        }
    }
}

template <typename T, Extreme E> uint32_t boxExtremeSeparable(const WindowPass &pass) {
    RingRows<T> ring(ringRowCount(pass), pass.width, 1);
    if (!ring.ok()) {
        return 0;
    }
    T *const *rows = ring.set(0);
    int32_t done = 0; // row results computed so far
    for (int32_t y = 0; y < pass.height; ++y) {
        const int32_t y0 = windowFirst(y, pass.half);
        const int32_t y1 = windowLast(y, pass.half, pass.height);
        for (; done <= y1; ++done) {
            rowSegmentExtremes<T, E>(rowOf<T>(pass.src, done), rows[done % ring.count()], pass.width,
                                     pass.half);
        }
        columnExtremes<T, E>(rows, y0, y1, ring.count(), rowOf<T>(pass.dst, y), pass.width);
    }
    return 1;
}

template <typename T> void boxMinAndRangeDirect(const WindowPass &pass) {
    for (int32_t y = 0; y < pass.height; ++y) {
        const int32_t y0 = windowFirst(y, pass.half);
        const int32_t y1 = windowLast(y, pass.half, pass.height);
        T *outMin = rowOf<T>(pass.dst, y);
        T *outRange = rowOf<T>(pass.dst2, y);
        for (int32_t x = 0; x < pass.width; ++x) {
            const int32_t x0 = windowFirst(x, pass.half);
            const int32_t x1 = windowLast(x, pass.half, pass.width);
            T low = SearchStart<T>::highest();
            T high = SearchStart<T>::lowest();
            for (int32_t wy = y0; wy <= y1; ++wy) {
                const T *row = rowOf<T>(pass.src, wy);
                for (int32_t wx = x0; wx <= x1; ++wx) {
                    low = keepMin(low, row[wx]);
                    high = keepMax(high, row[wx]);
                }
            }
            outMin[x] = low;
            outRange[x] = static_cast<T>(high - low);
        }
    }
}

template <typename T> uint32_t boxMinAndRangeSeparable(const WindowPass &pass) {
    RingRows<T> ring(ringRowCount(pass), pass.width, 2);
    if (!ring.ok()) {
        return 0;
    }
    T *const *lows = ring.set(0);
    T *const *highs = ring.set(1);
    int32_t done = 0;
    for (int32_t y = 0; y < pass.height; ++y) {
        const int32_t y0 = windowFirst(y, pass.half);
        const int32_t y1 = windowLast(y, pass.half, pass.height);
        for (; done <= y1; ++done) {
            const T *src = rowOf<T>(pass.src, done);
            rowSegmentExtremes<T, Extreme::Min>(src, lows[done % ring.count()], pass.width, pass.half);
            rowSegmentExtremes<T, Extreme::Max>(src, highs[done % ring.count()], pass.width, pass.half);
        }
        T *outMin = rowOf<T>(pass.dst, y);
        T *outRange = rowOf<T>(pass.dst2, y);
        columnExtremes<T, Extreme::Min>(lows, y0, y1, ring.count(), outMin, pass.width);
        columnExtremes<T, Extreme::Max>(highs, y0, y1, ring.count(), outRange, pass.width);
        for (int32_t x = 0; x < pass.width; ++x) {
            outRange[x] = static_cast<T>(outRange[x] - outMin[x]);
        }
    }
    return 1;
}

template void boxExtremeDirect<float, Extreme::Min>(const WindowPass &);
template void boxExtremeDirect<float, Extreme::Max>(const WindowPass &);
template uint32_t boxExtremeSeparable<float, Extreme::Min>(const WindowPass &);
template uint32_t boxExtremeSeparable<float, Extreme::Max>(const WindowPass &);
template void boxMinAndRangeDirect<float>(const WindowPass &);
template void boxMinAndRangeDirect<uint16_t>(const WindowPass &);
template uint32_t boxMinAndRangeSeparable<float>(const WindowPass &);
template uint32_t boxMinAndRangeSeparable<uint16_t>(const WindowPass &);

} // namespace pxbox

namespace {

using namespace pxbox;

constexpr const char *kModule = "pxImageBoxFilter";

bool hasPlane(const tag_pxImage *image) {
    return image && image->planes >= 1 && image->pixMap[0];
}

// A region that is not empty and lies inside the image.
bool regionInside(const tag_pxImage *image) {
    return 0 <= image->roiminX && image->roiminX < image->roimaxX && image->roimaxX <= image->width &&
           0 <= image->roiminY && image->roiminY < image->roimaxY && image->roimaxY <= image->height;
}

int64_t regionWidth(const tag_pxImage *image) {
    return static_cast<int64_t>(image->roimaxX) - image->roiminX;
}
int64_t regionHeight(const tag_pxImage *image) {
    return static_cast<int64_t>(image->roimaxY) - image->roiminY;
}

PlaneView planeOf(const tag_pxImage *image) {
    return PlaneView{image->pixMap[0], image->width, image->height, image->border};
}

SumPass sumPassOf(const tag_pxImage *source, int32_t n, tag_pxImage *destination) {
    return SumPass{planeOf(source),
                   source->roiminX,
                   source->roiminY,
                   planeOf(destination),
                   destination->roiminX,
                   destination->roiminY,
                   static_cast<int32_t>(regionWidth(source)),
                   static_cast<int32_t>(regionHeight(source)),
                   n / 2};
}

bool isSumType(int32_t type) {
    return type == UBYTE || type == SHORT || type == FLOAT || type == DOUBLE;
}

// Runs the fast kernel of the pixel type, or the reference when both regions share one plane: in place
// only the step-by-step order of the reference gives the same bits.
template <template <typename> class Kernel> void dispatchSum(const SumPass &pass, int32_t type, bool shared) {
    switch (type) {
    case UBYTE:
        Kernel<uint8_t>::run(pass, shared);
        break;
    case SHORT:
        Kernel<uint16_t>::run(pass, shared);
        break;
    case FLOAT:
        Kernel<float>::run(pass, shared);
        break;
    default:
        Kernel<double>::run(pass, shared);
        break;
    }
}

template <typename T> struct SumX {
    static void run(const SumPass &pass, bool shared) {
        shared ? blockSumXReference<T>(pass) : blockSumXFast<T>(pass);
    }
};

template <typename T> struct SumY {
    static void run(const SumPass &pass, bool shared) {
        shared ? blockSumYReference<T>(pass) : blockSumYFast<T>(pass);
    }
};

// Checks common to both sum passes after the window test; true when the pass may run. A type without
// sums reads and writes nothing, so it is always accepted.
bool sumPassAccepted(const tag_pxImage *source, int32_t n, const tag_pxImage *destination) {
    return !isSumType(source->type) || (regionInside(source) && regionInside(destination) && n / 2 >= 0 &&
                                        destination->type == source->type);
}

template <template <typename> class Kernel>
uint32_t runSumPass(const tag_pxImage *source, int32_t n, tag_pxImage *destination) {
    if (!sumPassAccepted(source, n, destination)) {
        return 0;
    }
    if (isSumType(source->type)) {
        dispatchSum<Kernel>(sumPassOf(source, n, destination), source->type,
                            source->pixMap[0] == destination->pixMap[0]);
    }
    return 1;
}

// Multiplications by the single-precision reciprocal of the covered pixel counts, clipped to the plane's
// storage so that no window size can reach outside it.
class RegionScaler {
  public:
    explicit RegionScaler(tag_pxImage *image)
        : map_(reinterpret_cast<float **>(image->pixMap[0])), first_(-static_cast<int64_t>(image->border)),
          rowEnd_(static_cast<int64_t>(image->height) + image->border),
          colEnd_(static_cast<int64_t>(image->width) + image->border) {}

    void segment(int64_t y, int64_t x0, int64_t x1, float factor) const {
        if (y < first_ || y >= rowEnd_) {
            return;
        }
        float *row = map_[y];
        const int64_t end = x1 < colEnd_ ? x1 : colEnd_;
        for (int64_t x = x0 < first_ ? first_ : x0; x < end; ++x) {
            row[x] *= factor;
        }
    }
    void pixel(int64_t y, int64_t x, float factor) const { segment(y, x, x + 1, factor); }
    // Rows [y0, y1) clipped to the storage.
    int64_t firstRow(int64_t y0) const { return y0 < first_ ? first_ : y0; }
    int64_t rowEnd(int64_t y1) const { return y1 < rowEnd_ ? y1 : rowEnd_; }
    // Steps k for which row base - k or row base2 + k lies in the storage.
    void rowSteps(int64_t base, int64_t base2, int64_t (&parts)[4]) const {
        steps(base, base2, rowEnd_, parts);
    }
    void colSteps(int64_t base, int64_t base2, int64_t (&parts)[4]) const {
        steps(base, base2, colEnd_, parts);
    }

  private:
    void steps(int64_t base, int64_t base2, int64_t end, int64_t (&parts)[4]) const {
        parts[0] = base - end + 1;
        parts[1] = base - first_ + 1;
        parts[2] = first_ - base2;
        parts[3] = end - base2;
    }
    float **map_;
    int64_t first_;
    int64_t rowEnd_;
    int64_t colEnd_;
};

// Calls step(k) in increasing order for every k in [first, last] inside one of the half-open intervals
// [parts[2i], parts[2i+1]); the others cannot touch the storage.
template <size_t count, class Step>
void forEachStep(int64_t first, int64_t last, const int64_t (&parts)[count], Step step) {
    int64_t los[count / 2];
    int64_t his[count / 2];
    for (size_t i = 0; i < count / 2; ++i) {
        los[i] = parts[2 * i];
        his[i] = parts[2 * i + 1];
    }
    int64_t next = first;
    while (next <= last) {
        int64_t best = -1;
        for (size_t i = 0; i < count / 2; ++i) {
            if (his[i] > next && (best < 0 || los[i] < los[best])) {
                best = static_cast<int64_t>(i);
            }
        }
        if (best < 0) {
            return;
        }
        const int64_t start = los[best] > next ? los[best] : next;
        const int64_t end = his[best] - 1 < last ? his[best] - 1 : last;
        for (int64_t k = start; k <= end; ++k) {
            step(k);
        }
        next = end + 1;
    }
}

// The 32-bit product of the filter's count arithmetic (it wraps for windows above 46340).
float reciprocalOfCount(int64_t count) {
    return 1.0f /
           static_cast<float>(static_cast<int32_t>(static_cast<uint32_t>(static_cast<uint64_t>(count))));
}

void normalizeInterior(const RegionScaler &scaler, const tag_pxImage *image, int64_t n, int64_t half) {
    const float factor = reciprocalOfCount(n * n);
    const int64_t end = scaler.rowEnd(image->roimaxY - half);
    for (int64_t y = scaler.firstRow(image->roiminY + half); y < end; ++y) {
        scaler.segment(y, image->roiminX + half, image->roimaxX - half, factor);
    }
}

void normalizeBands(const RegionScaler &scaler, const tag_pxImage *image, int64_t n, int64_t half) {
    const int64_t top = image->roiminY + half;
    const int64_t bottom = image->roimaxY - half - 1;
    const int64_t left = image->roiminX + half;
    const int64_t right = image->roimaxX - half - 1;
    int64_t rows[4];
    int64_t cols[4];
    scaler.rowSteps(top, bottom, rows);
    scaler.colSteps(left, right, cols);
    const int64_t parts[8] = {rows[0], rows[1], rows[2], rows[3], cols[0], cols[1], cols[2], cols[3]};
    forEachStep(1, half, parts, [&](int64_t k) {
        const float factor = reciprocalOfCount(n * n - k * n);
        scaler.segment(top - k, left, right + 1, factor);
        scaler.segment(bottom + k, left, right + 1, factor);
        const int64_t end = scaler.rowEnd(bottom + 1);
        for (int64_t y = scaler.firstRow(top); y < end; ++y) {
            scaler.pixel(y, left - k, factor);
            scaler.pixel(y, right + k, factor);
        }
    });
}

void normalizeCorners(const RegionScaler &scaler, const tag_pxImage *image, int64_t n, int64_t half) {
    const int64_t top = image->roiminY + half;
    const int64_t bottom = image->roimaxY - half - 1;
    const int64_t left = image->roiminX + half;
    const int64_t right = image->roimaxX - half - 1;
    int64_t rows[4];
    int64_t cols[4];
    scaler.rowSteps(top, bottom, rows);
    scaler.colSteps(left, right, cols);
    forEachStep(1, n - half - 1, rows, [&](int64_t ka) {
        forEachStep(1, n - half - 1, cols, [&](int64_t kb) {
            const float factor = reciprocalOfCount((n - ka) * (n - kb));
            scaler.pixel(top - ka, left - kb, factor);
            scaler.pixel(bottom + ka, left - kb, factor);
            scaler.pixel(top - ka, right + kb, factor);
            scaler.pixel(bottom + ka, right + kb, factor);
        });
    });
}

// The image smaller than `bounds` in either direction cannot serve a search over `bounds`.
bool smallerThan(const tag_pxImage *image, const tag_pxImage *bounds) {
    return image->width < bounds->width || image->height < bounds->height;
}

template <Extreme E> uint32_t boxExtreme(const tag_pxImage *source, int32_t n, tag_pxImage *destination) {
    if (!hasPlane(source) || !hasPlane(destination) || source->type != destination->type ||
        source->type != FLOAT || n < 1 || smallerThan(source, destination)) {
        PX_TRACE(kModule);
        return 0;
    }
    const WindowPass pass{source->pixMap[0],  destination->pixMap[0], nullptr,
                          destination->width, destination->height,    n / 2};
    if (source->pixMap[0] == destination->pixMap[0] || !boxExtremeSeparable<float, E>(pass)) {
        boxExtremeDirect<float, E>(pass);
    }
    return 1;
}

template <typename T> void minAndRange(const WindowPass &pass, bool shared) {
    if (shared || !boxMinAndRangeSeparable<T>(pass)) {
        boxMinAndRangeDirect<T>(pass);
    }
}

// One exported sum pass: both images need a plane, the source region must be at least n long along the
// pass (`length` of the region), and the two regions must have the same size.
template <template <typename> class Pass>
uint32_t blockSumPass(const tag_pxImage *source, int32_t n, tag_pxImage *destination,
                      int64_t (*length)(const tag_pxImage *)) {
    if (!hasPlane(source) || !hasPlane(destination) || length(source) < n ||
        regionWidth(destination) != regionWidth(source) ||
        regionHeight(destination) != regionHeight(source) || !runSumPass<Pass>(source, n, destination)) {
        PX_TRACE(kModule);
        return 0;
    }
    return 1;
}

} // namespace

uint32_t pxImageBlockSumX(const tag_pxImage *source, int32_t n, tag_pxImage *destination) {
    return blockSumPass<SumX>(source, n, destination, regionWidth);
}

uint32_t pxImageBlockSumY(const tag_pxImage *source, int32_t n, tag_pxImage *destination) {
    return blockSumPass<SumY>(source, n, destination, regionHeight);
}

bool pxbox::boxCountsAtLeastInRegion(const tag_pxImage *source, int32_t n, tag_pxImage *destination,
                                     uint8_t level) {
    const bool covered = n % 2 == 1 && n / 2 <= kCountMaxHalf && hasPlane(source) && hasPlane(destination) &&
                         source->type == UBYTE && destination->type == UBYTE && regionInside(source) &&
                         regionInside(destination) && regionWidth(source) >= n && regionHeight(source) >= n &&
                         regionWidth(destination) == regionWidth(source) &&
                         regionHeight(destination) == regionHeight(source) &&
                         source->pixMap[0] != destination->pixMap[0];
    if (covered) {
        boxCountsAtLeast(sumPassOf(source, n, destination), level);
    }
    return covered;
}

uint32_t pxImageBoxSums(const tag_pxImage *source, int32_t n, tag_pxImage *destination) {
    if (!source || !destination || source->type != destination->type || !isSumType(source->type)) {
        PX_TRACE(kModule);
        return 0;
    }
    tag_pxImage *scratch = nullptr;
    if (!pxImageConstruct(source->type, source->width, source->height, 0, 1, &scratch)) {
        PX_TRACE(kModule);
        return 0;
    }
    scratch->roiminX = source->roiminX;
    scratch->roimaxX = source->roimaxX;
    scratch->roiminY = source->roiminY;
    scratch->roimaxY = source->roimaxY;
    pxImageBlockSumX(source, n, scratch);
    pxImageBlockSumY(scratch, n, destination);
    pxImageDestruct(&scratch);
    return 1;
}

uint32_t pxImageBoxNormalize(tag_pxImage *image, int32_t n) {
    if (!hasPlane(image) || image->type != FLOAT) {
        PX_TRACE(kModule);
        return 0;
    }
    const RegionScaler scaler(image);
    const int64_t half = n / 2;
    normalizeInterior(scaler, image, n, half);
    normalizeBands(scaler, image, n, half);
    normalizeCorners(scaler, image, n, half);
    return 1;
}

uint32_t pxImageBoxAverage(const tag_pxImage *source, int32_t n, tag_pxImage *destination) {
    if (!pxImageBoxSums(source, n, destination)) {
        PX_TRACE(kModule);
        return 0;
    }
    pxImageBoxNormalize(destination, n);
    return 1;
}

uint32_t pxImageBoxMin(const tag_pxImage *source, int32_t n, tag_pxImage *destination) {
    return boxExtreme<Extreme::Min>(source, n, destination);
}

uint32_t pxImageBoxMax(const tag_pxImage *source, int32_t n, tag_pxImage *destination) {
    return boxExtreme<Extreme::Max>(source, n, destination);
}

uint32_t pxImageBoxMinAndRange(const tag_pxImage *source, int32_t n, tag_pxImage *minimum,
                               tag_pxImage *range) {
    if (!hasPlane(source) || !hasPlane(minimum) || !hasPlane(range) || source->type != minimum->type ||
        source->type != range->type || (source->type != FLOAT && source->type != SHORT) || n < 1 ||
        smallerThan(source, minimum) || smallerThan(range, minimum)) {
        PX_TRACE(kModule);
        return 0;
    }
    const WindowPass pass{source->pixMap[0], minimum->pixMap[0], range->pixMap[0],
                          minimum->width,    minimum->height,    n / 2};
    const bool shared = source->pixMap[0] == minimum->pixMap[0] || source->pixMap[0] == range->pixMap[0] ||
                        minimum->pixMap[0] == range->pixMap[0];
    if (source->type == FLOAT) {
        minAndRange<float>(pass, shared);
    } else {
        minAndRange<uint16_t>(pass, shared);
    }
    return 1;
}
