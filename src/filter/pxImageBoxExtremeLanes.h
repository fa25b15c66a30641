// Windowed minimum, maximum and minimum-with-range over vectors of pixels (module pxImageBoxFilter), written
// once for any vector width: each file that includes this header compiles it for its own instruction set
// (everything here has internal linkage, so no copy built for a wider set can stand in for another).
//
// Exactness. The direct search keeps the current extreme unless a pixel is strictly beyond it, starting
// from the largest finite value of the search. Call keep(left, right) that step, with `left` the earlier
// pixel in row-major order: once every pixel p is replaced by keep(start, p) (NaN and values beyond the
// start become the start, which the search would never have taken), keep is associative and idempotent
// and `start` is its identity. So any grouping of the window that keeps the row-major order of its
// operands, overlapping groups included, gives the same bits as the search, signed zeros included: rows
// are reduced first (left before right), then rows top before bottom. On vectors keep(left, right) is the
// element-wise `right < left ? right : left` (`>` for the maximum), exactly the scalar step.
//
// This header holds the kernel of windows wider than 9 pixels (pxImageBoxExtremeSmall.h the narrower
// ones). Cost per pixel. Row pass: windows up to 64 pixels fold spans of s pixels (the least s with
// s * s >= window) straight from the source and then the spans that cover each window, about
// 2 sqrt(window) steps; wider ones fold spans that double (1, 2, 4, ... pixels) and end with two
// overlapping spans, log2(window) + 2 steps. Column pass, independent of the window: the van Herk /
// Gil-Werman scheme (a suffix fold of each block of `window` rows and a running prefix fold of the next
// block, three steps per pixel).
#pragma once

#include <cfloat>
#include <cstddef>
#include <cstdint>

#include "pxEnv.h"
#include "pxImageBoxFilterInternal.h"

namespace pxbox {
namespace {

template <typename T> struct SearchLimits;
template <> struct SearchLimits<float> {
    static float start(Extreme e) { return e == Extreme::Min ? FLT_MAX : -FLT_MAX; }
};
template <> struct SearchLimits<uint16_t> {
    static uint16_t start(Extreme e) { return e == Extreme::Min ? uint16_t(65535) : uint16_t(0); }
};

// A window reaching past the image on every side covers the whole image: wider ones give the same.
inline WindowPass clampedWindow(WindowPass pass) {
    const int32_t reach = (pass.width > pass.height ? pass.width : pass.height) - 1;
    pass.half = pass.half < reach ? pass.half : reach;
    return pass;
}

// One step of the search on scalars or vectors: `left` stays unless `right` is strictly beyond it.
template <Extreme E, typename V> inline V keep(V left, V right) {
    if constexpr (E == Extreme::Min) {
        return right < left ? right : left;
    } else {
        return right > left ? right : left;
    }
}

template <typename V> inline V loadLanes(const void *p) {
    V v;
    __builtin_memcpy(&v, p, sizeof v);
    return v;
}

template <typename V> inline void storeLanes(void *p, V v) {
    __builtin_memcpy(p, &v, sizeof v);
}

// The windowed extreme E of a whole image, vectors of type V holding pixels of type T, for windows that
// reach no farther than the image (see clampedWindow).
template <typename V, typename T, Extreme E> class ExtremeLanes {
  public:
    static constexpr int32_t kLanes = static_cast<int32_t>(sizeof(V) / sizeof(T));

    explicit ExtremeLanes(const WindowPass &pass)
        : pass_(pass), window_(2 * pass_.half + 1), start_(SearchLimits<T>::start(E)), span_(spanOf(window_)),
          rowLength_(roundUp(pass.width)), padLength_(roundUp(rowLength_ + window_)) {
        for (int32_t i = 0; i < kLanes; ++i) {
            startLanes_[i] = start_;
        }
        const int32_t rows = 2 * window_ + 1;
        const size_t padPixels = static_cast<size_t>(padLength_) + static_cast<size_t>(window_ + kLanes);
        const size_t pixels = padPixels + static_cast<size_t>(rows) * static_cast<size_t>(rowLength_);
        if (!pxMallocNoInit(&block_, pixels * sizeof(T))) {
            return;
        }
        T *at = static_cast<T *>(block_);
        for (size_t i = 0; i < pixels; ++i) {
            at[i] = start_;
        }
        pad_ = at;
        rows_ = at + padPixels;
    }
    ~ExtremeLanes() { pxMallocFree(&block_); }
    ExtremeLanes(const ExtremeLanes &) = delete;
    ExtremeLanes &operator=(const ExtremeLanes &) = delete;

    bool ok() const { return block_ != nullptr; }

    // Writes the extreme of every window to rows 0 .. height - 1 of `dst`: output y = keep(suffix of its
    // block from y, prefix of the next block up to y + window - 1), see runBlocks.
    void run(void **dst) { runBlocks(dst); }

  private:
    static constexpr int32_t kSpanWindow = 64;

    // Span of the row pass: the least s with s * s >= window.
    static int32_t spanOf(int32_t window) {
        int32_t s = 2;
        while (s * s < window) {
            ++s;
        }
        return s;
    }

    static int32_t roundUp(int32_t n) { return (n + kLanes - 1) / kLanes * kLanes; }

    T *scratchRow(int32_t i) const {
        return rows_ + static_cast<size_t>(i) * static_cast<size_t>(rowLength_);
    }

    // Extremes of the clipped row segments of source row r (rows outside the image: the start value).
    // Think of the row padded with `half` start values on either side. Windows of up to 64 pixels: spans
    // of `span_` padded pixels are folded from the start value, straight from the source row, and each
    // output then folds the spans that cover its window (the last one overlapping). Wider windows fold
    // spans that double in length instead (rowResultDoubling).
    void rowResult(int32_t r, T *out) {
        if (r < 0 || r >= pass_.height) {
            for (int32_t x = 0; x < rowLength_; ++x) {
                out[x] = start_;
            }
            return;
        }
        const T *src = static_cast<const T *>(pass_.src[r]);
        if (window_ > kSpanWindow) {
            rowResultDoubling(src, out);
        } else {
            spanFolds(src, pad_, pass_.width + window_ - span_);
            combineSpans(out);
        }
    }

    // Start value or source pixel at padded index i.
    T paddedPixel(const T *src, int32_t i) const {
        const int32_t x = i - pass_.half;
        return x >= 0 && x < pass_.width ? src[x] : start_;
    }

    // out[i] = fold from the start value of padded pixels i .. i + span_ - 1, for i in [0, count).
    void spanFolds(const T *src, T *out, int32_t count) const {
        switch (span_) {
        case 4:
            return spanFoldsOf<4>(src, out, count);
        case 5:
            return spanFoldsOf<5>(src, out, count);
        case 6:
            return spanFoldsOf<6>(src, out, count);
        case 7:
            return spanFoldsOf<7>(src, out, count);
        default:
            return spanFoldsOf<8>(src, out, count);
        }
    }

    // Spans that lie inside the row run on vectors; those that reach its ends, one by one.
    template <int32_t S> void spanFoldsOf(const T *src, T *out, int32_t count) const {
        const int32_t half = pass_.half;
        int32_t i = 0;
        for (; i < count && i < half; ++i) {
            out[i] = spanAt(src, i);
        }
        for (; i + kLanes <= count && i - half + kLanes + S - 1 <= pass_.width; i += kLanes) {
            const T *p = src + (i - half);
            V acc = startLanes_;
            for (int32_t k = 0; k < S; ++k) {
                acc = keep<E>(acc, loadLanes<V>(p + k));
            }
            storeLanes(out + i, acc);
        }
        for (; i < count; ++i) {
            out[i] = spanAt(src, i);
        }
    }

    T spanAt(const T *src, int32_t i) const {
        T acc = start_;
        for (int32_t k = 0; k < span_; ++k) {
            acc = keep<E>(acc, paddedPixel(src, i + k));
        }
        return acc;
    }

    // out[x] = fold of the spans at x, x + span_, x + 2 span_, ... and x + window - span_ (in pad_).
    void combineSpans(T *out) const {
        const int32_t last = window_ - span_;
        for (int32_t x = 0; x < rowLength_; x += kLanes) {
            V acc = loadLanes<V>(pad_ + x);
            for (int32_t offset = span_; offset < last; offset += span_) {
                acc = keep<E>(acc, loadLanes<V>(pad_ + x + offset));
            }
            storeLanes(out + x, keep<E>(acc, loadLanes<V>(pad_ + x + last)));
        }
    }

    // Row results of windows wider than kSpanWindow: the row goes into the middle of pad_ (start values
    // around it), each pixel p as keep(start, p); spans of 1, 2, 4, ... pixels are folded in place (reads
    // lie to the right of the write, so the pass may run forwards), and each output folds the two
    // overlapping spans that cover its window.
    void rowResultDoubling(const T *src, T *out) {
        for (int32_t i = 0; i < pass_.half; ++i) {
            pad_[i] = start_;
        }
        T *data = pad_ + pass_.half;
        int32_t x = 0;
        for (; x + kLanes <= pass_.width; x += kLanes) {
            storeLanes(data + x, keep<E>(startLanes_, loadLanes<V>(src + x)));
        }
        for (; x < pass_.width; ++x) {
            data[x] = keep<E>(start_, src[x]);
        }
        int32_t span = 1;
        for (; 2 * span <= window_; span *= 2) {
            for (int32_t i = 0; i < padLength_; i += kLanes) {
                storeLanes(pad_ + i, keep<E>(loadLanes<V>(pad_ + i), loadLanes<V>(pad_ + i + span)));
            }
        }
        const int32_t second = window_ - span;
        for (int32_t i = 0; i < rowLength_; i += kLanes) {
            storeLanes(out + i, keep<E>(loadLanes<V>(pad_ + i), loadLanes<V>(pad_ + i + second)));
        }
    }

    // dst row = keep(upper, lower), element by element.
    void keepRows(const T *upper, const T *lower, T *dst) const {
        int32_t x = 0;
        for (; x + kLanes <= pass_.width; x += kLanes) {
            storeLanes(dst + x, keep<E>(loadLanes<V>(upper + x), loadLanes<V>(lower + x)));
        }
        for (; x < pass_.width; ++x) {
            dst[x] = keep<E>(upper[x], lower[x]);
        }
    }

    // Suffix fold of the block of row results starting at scratch row `first`, in place: row j becomes
    // keep(row j, fold of the rows below it in the block).
    void suffixFold(int32_t first) const {
        for (int32_t j = window_ - 2; j >= 0; --j) {
            T *row = scratchRow(first + j);
            const T *below = scratchRow(first + j + 1);
            for (int32_t x = 0; x < rowLength_; x += kLanes) {
                storeLanes(row + x, keep<E>(loadLanes<V>(row + x), loadLanes<V>(below + x)));
            }
        }
    }

    // Output y = keep(suffix of its block from y, prefix of the next block up to y + window - 1), with the
    // prefix grown by one row result per output; output rows that start a block are the block's suffix.
    // Rows are counted with `half` rows of start values above the image. The two blocks take scratch rows
    // 0 .. window - 1 and window .. 2 window - 1 in turn, the prefix the last one.
    void runBlocks(void **dst) {
        T *prefix = scratchRow(2 * window_);
        int32_t current = 0;
        int32_t next = window_;
        for (int32_t j = 0; j < window_; ++j) {
            rowResult(j - pass_.half, scratchRow(current + j));
        }
        suffixFold(current);
        for (int32_t y0 = 0; y0 < pass_.height; y0 += window_) {
            keepRows(scratchRow(current), scratchRow(current), static_cast<T *>(dst[y0]));
            const int32_t rows = pass_.height - y0 < window_ ? pass_.height - y0 : window_;
            for (int32_t j = 1; j < rows; ++j) {
                T *row = scratchRow(next + j - 1);
                rowResult(y0 + window_ + j - 1 - pass_.half, row);
                prefixStep(j == 1 ? nullptr : prefix, row, prefix, scratchRow(current + j),
                           static_cast<T *>(dst[y0 + j]));
            }
            if (y0 + window_ >= pass_.height) {
                break;
            }
            rowResult(y0 + 2 * window_ - 1 - pass_.half, scratchRow(next + window_ - 1));
            suffixFold(next);
            const int32_t swap = current;
            current = next;
            next = swap;
        }
    }

    // prefix = keep(before, row) (row alone when there is no `before` yet); dst = keep(suffix, prefix).
    void prefixStep(const T *before, const T *row, T *prefix, const T *suffix, T *dst) const {
        for (int32_t x = 0; x < rowLength_; x += kLanes) {
            const V grown =
                before ? keep<E>(loadLanes<V>(before + x), loadLanes<V>(row + x)) : loadLanes<V>(row + x);
            storeLanes(prefix + x, grown);
            if (x + kLanes <= pass_.width) {
                storeLanes(dst + x, keep<E>(loadLanes<V>(suffix + x), grown));
            } else {
                for (int32_t i = x; i < pass_.width; ++i) {
                    dst[i] = keep<E>(suffix[i], prefix[i]);
                }
            }
        }
    }

  private:
    WindowPass pass_;
    int32_t window_;
    T start_;
    V startLanes_;
    int32_t span_;
    int32_t rowLength_;
    int32_t padLength_;
    void *block_ = nullptr;
    T *pad_ = nullptr;
    T *rows_ = nullptr;
};

} // namespace
} // namespace pxbox
