// Fast kernels of the box sums (module pxImageBoxFilter): horizontal and vertical running sums and the
// byte counts of morphology. Their plain references are in pxImageBoxSumReference.cpp.
#include <cstdint>
#include <type_traits>
#include <utility>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "pxImageBoxFilterInternal.h"
#include "pxImageBoxKernelSupport.h"

namespace pxbox {

namespace {

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

template void blockSumXFast<uint8_t>(const SumPass &);
template void blockSumXFast<uint16_t>(const SumPass &);
template void blockSumXFast<float>(const SumPass &);
template void blockSumXFast<double>(const SumPass &);
template void blockSumYFast<uint8_t>(const SumPass &);
template void blockSumYFast<uint16_t>(const SumPass &);
template void blockSumYFast<float>(const SumPass &);
template void blockSumYFast<double>(const SumPass &);

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

} // namespace pxbox
