// Windowed minimum, maximum and minimum-with-range over vectors for windows of up to 9 pixels, and the
// entries of the vector kernels (module pxImageBoxFilter). Internal linkage throughout, as in
// pxImageBoxExtremeLanes.h, whose rules of exactness hold here too.
//
// One pass per output row: for each vector of columns the row result of the incoming source row is folded
// straight from the source (the whole window, from the start value), the fold of the last `S` row results
// is formed from it, and the output folds those folds at rows y, y + S, y + 2 S, ... and y + W - S (the
// last one overlapping): windows of 1 and 3 rows take S = W, wider ones S = 3. Only the row results
// (S rows) and their folds (W - S + 1 rows) are kept; columns whose windows reach past the row ends run
// one by one.
#pragma once

#include "pxImageBoxExtremeLanes.h"

namespace pxbox {
namespace {

template <typename V, typename T, Extreme E, int32_t W> class SmallWindowLanes {
  public:
    static constexpr int32_t kLanes = static_cast<int32_t>(sizeof(V) / sizeof(T));
    static constexpr int32_t kHalf = W / 2;
    static constexpr int32_t kSpan = W <= 3 ? W : 3; // rows per fold of row results
    static constexpr int32_t kFolds = W - kSpan + 1; // folds kept
    static constexpr int32_t kRows = kSpan + kFolds; // scratch rows

    explicit SmallWindowLanes(const WindowPass &pass) : pass_(pass), start_(SearchLimits<T>::start(E)) {
        for (int32_t i = 0; i < kLanes; ++i) {
            startLanes_[i] = start_;
        }
        stride_ = (pass.width + kLanes - 1) / kLanes * kLanes + kLanes;
        const size_t pixels = static_cast<size_t>(stride_) * kRows;
        if (!pxMallocNoInit(&block_, pixels * sizeof(T))) {
            return;
        }
        T *at = static_cast<T *>(block_);
        for (size_t i = 0; i < pixels; ++i) {
            at[i] = start_;
        }
    }
    ~SmallWindowLanes() { pxMallocFree(&block_); }
    SmallWindowLanes(const SmallWindowLanes &) = delete;
    SmallWindowLanes &operator=(const SmallWindowLanes &) = delete;

    bool ok() const { return block_ != nullptr; }

    // Output y covers padded rows y .. y + W - 1 (source rows y - half .. y + half, start values outside
    // the image). Padded rows 0 .. W - 2 are taken in first; each output row then takes in one more.
    void run(void **dst) {
        for (int32_t p = 0; p + 1 < W; ++p) {
            takeRow(p, nullptr);
        }
        for (int32_t y = 0; y < pass_.height; ++y) {
            takeRow(y + W - 1, static_cast<T *>(dst[y]));
        }
    }

  private:
    T *resultRow(int32_t p) const { return scratch(p % kSpan); }
    T *foldRow(int32_t p) const { return scratch(kSpan + p % kFolds); }
    T *scratch(int32_t i) const { return static_cast<T *>(block_) + static_cast<size_t>(i) * stride_; }

    // Takes in padded row p: its row result, the fold of the S row results ending with it (once there
    // are S of them) and, with `out`, the output row whose window ends with row p.
    void takeRow(int32_t p, T *out) {
        const int32_t r = p - kHalf;
        const T *src = r >= 0 && r < pass_.height ? static_cast<const T *>(pass_.src[r]) : nullptr;
        const Rows rows = rowsAt(p);
        const bool fold = p + 1 >= kSpan;
        int32_t x = 0;
        for (; x < pass_.width && x < kHalf; ++x) {
            column(src, rows, x, fold, out);
        }
        if (src) {
            for (; x + kLanes + kHalf <= pass_.width; x += kLanes) {
                vectorColumns(src, rows, x, fold, out);
            }
        }
        for (; x < pass_.width; ++x) {
            column(src, rows, x, fold, out);
        }
    }

    struct Rows {
        T *result;               // row result of row p
        const T *results[kSpan]; // row results p - S + 1 .. p (the last is `result`)
        T *fold;                 // fold of those, the fold of row p - S + 1
        const T *folds[kFolds];  // folds of the output's window, top first (the last is `fold`)
    };

    Rows rowsAt(int32_t p) const {
        Rows rows;
        rows.result = resultRow(p);
        for (int32_t k = 0; k < kSpan; ++k) {
            rows.results[k] = resultRow(p - kSpan + 1 + k + kSpan * W);
        }
        rows.fold = foldRow(p - kSpan + 1 + kFolds * W);
        int32_t n = 0;
        const int32_t first = p - W + 1 + kFolds * W; // fold row of the output's first window row
        for (int32_t offset = 0; offset < W - kSpan; offset += kSpan) {
            rows.folds[n++] = foldRow(first + offset);
        }
        rows.folds[n] = rows.fold;
        for (int32_t k = n + 1; k < kFolds; ++k) {
            rows.folds[k] = nullptr;
        }
        return rows;
    }

    static constexpr int32_t foldCount() {
        int32_t n = 1;
        for (int32_t offset = 0; offset < W - kSpan; offset += kSpan) {
            ++n;
        }
        return n;
    }

    void vectorColumns(const T *src, const Rows &rows, int32_t x, bool fold, T *out) const {
        const T *p = src + (x - kHalf);
        V result = startLanes_;
        for (int32_t k = 0; k < W; ++k) {
            result = keep<E>(result, loadLanes<V>(p + k));
        }
        if (kSpan > 1) {
            storeLanes(rows.result + x, result);
        }
        if (!fold) {
            return;
        }
        V folded = result;
        if (kSpan > 1) {
            folded = loadLanes<V>(rows.results[0] + x);
            for (int32_t k = 1; k + 1 < kSpan; ++k) {
                folded = keep<E>(folded, loadLanes<V>(rows.results[k] + x));
            }
            folded = keep<E>(folded, result);
        }
        if (kFolds > 1) {
            storeLanes(rows.fold + x, folded);
        }
        if (!out) {
            return;
        }
        V extreme = folded;
        if (foldCount() > 1) {
            extreme = loadLanes<V>(rows.folds[0] + x);
            for (int32_t k = 1; k + 1 < foldCount(); ++k) {
                extreme = keep<E>(extreme, loadLanes<V>(rows.folds[k] + x));
            }
            extreme = keep<E>(extreme, folded);
        }
        storeLanes(out + x, extreme);
    }

    // The same for one column, with the row segment clipped to the row.
    void column(const T *src, const Rows &rows, int32_t x, bool fold, T *out) const {
        T result = start_;
        if (src) {
            const int32_t first = x - kHalf < 0 ? 0 : x - kHalf;
            const int32_t last = x + kHalf >= pass_.width ? pass_.width - 1 : x + kHalf;
            for (int32_t i = first; i <= last; ++i) {
                result = keep<E>(result, src[i]);
            }
        }
        rows.result[x] = result;
        if (!fold) {
            return;
        }
        T folded = rows.results[0][x];
        for (int32_t k = 1; k < kSpan; ++k) {
            folded = keep<E>(folded, rows.results[k][x]);
        }
        rows.fold[x] = folded;
        if (!out) {
            return;
        }
        T extreme = rows.folds[0][x];
        for (int32_t k = 1; k < foldCount(); ++k) {
            extreme = keep<E>(extreme, rows.folds[k][x]);
        }
        out[x] = extreme;
    }

    WindowPass pass_;
    T start_;
    V startLanes_;
    int32_t stride_ = 0;
    void *block_ = nullptr;
};

// Runs a kernel object of type K on `pass` into `dst`; 0 when its scratch cannot be allocated.
template <typename K> uint32_t runInto(const WindowPass &pass, void **dst) {
    K kernel(pass);
    if (!kernel.ok()) {
        return 0;
    }
    kernel.run(dst);
    return 1;
}

// The windowed extreme E of `pass` into `dst`, by window size.
template <typename V, typename T, Extreme E> uint32_t extremeInto(const WindowPass &original, void **dst) {
    const WindowPass pass = clampedWindow(original);
    switch (pass.half) {
    case 0:
        return runInto<SmallWindowLanes<V, T, E, 1>>(pass, dst);
    case 1:
        return runInto<SmallWindowLanes<V, T, E, 3>>(pass, dst);
    case 2:
        return runInto<SmallWindowLanes<V, T, E, 5>>(pass, dst);
    case 3:
        return runInto<SmallWindowLanes<V, T, E, 7>>(pass, dst);
    case 4:
        return runInto<SmallWindowLanes<V, T, E, 9>>(pass, dst);
    default:
        return runInto<ExtremeLanes<V, T, E>>(pass, dst);
    }
}

template <typename V, typename T, Extreme E> uint32_t extremeLanes(const WindowPass &pass) {
    if (pass.width < 1 || pass.height < 1) {
        return 1;
    }
    return extremeInto<V, T, E>(pass, pass.dst);
}

// Minimum into dst, maximum into dst2, then dst2 - dst. When the second pass cannot allocate its scratch
// the result is 0 and dst holds the minimum already.
template <typename V, typename T> uint32_t minAndRangeLanes(const WindowPass &pass) {
    if (pass.width < 1 || pass.height < 1) {
        return 1;
    }
    if (!extremeInto<V, T, Extreme::Min>(pass, pass.dst) ||
        !extremeInto<V, T, Extreme::Max>(pass, pass.dst2)) {
        return 0;
    }
    constexpr int32_t kLanes = static_cast<int32_t>(sizeof(V) / sizeof(T));
    for (int32_t y = 0; y < pass.height; ++y) {
        const T *lows = static_cast<const T *>(pass.dst[y]);
        T *range = static_cast<T *>(pass.dst2[y]);
        int32_t x = 0;
        for (; x + kLanes <= pass.width; x += kLanes) {
            storeLanes(range + x, loadLanes<V>(range + x) - loadLanes<V>(lows + x));
        }
        for (; x < pass.width; ++x) {
            range[x] = static_cast<T>(range[x] - lows[x]);
        }
    }
    return 1;
}

} // namespace
} // namespace pxbox
