// Fast kernels of the windowed minimum, maximum and minimum-with-range (module pxImageBoxFilter): separable
// searches over a ring of row results. Their plain references are in pxImageBoxExtremeReference.cpp.
#include <cstddef>
#include <cstdint>

#include "pxEnv.h"
#include "pxImageBoxFilterInternal.h"
#include "pxImageBoxKernelSupport.h"
#include "image/pxImageCpu.h"

namespace pxbox {

namespace {

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

namespace {

const BoxLaneKernels kPortable = {
    boxExtremeSeparable<float, Extreme::Min>,
    boxExtremeSeparable<float, Extreme::Max>,
    boxMinAndRangeSeparable<float>,
    boxMinAndRangeSeparable<uint16_t>,
    boxCountsAtLeast,
};

} // namespace

const BoxLaneKernels *boxLaneKernelsAt(int level) {
    static const bool runs[] = {pxImageCpuRunsLevel(kBoxPortable), pxImageCpuRunsLevel(kBoxVector),
                                pxImageCpuRunsLevel(kBoxAvx2), pxImageCpuRunsLevel(kBoxAvx512)};
    if (level < kBoxPortable || level > kBoxAvx512 || !runs[level]) {
        return nullptr;
    }
    switch (level) {
    case kBoxVector:
        return boxLaneKernelsVector();
    case kBoxAvx2:
        return boxLaneKernelsAvx2();
    case kBoxAvx512:
        return boxLaneKernelsAvx512();
    default:
        return &kPortable;
    }
}

const BoxLaneKernels &boxLaneKernelsBest() {
    static const BoxLaneKernels *best = [] {
        for (int level = kBoxAvx512; level > kBoxPortable; --level) {
            if (const BoxLaneKernels *k = boxLaneKernelsAt(level)) {
                return k;
            }
        }
        return &kPortable;
    }();
    return *best;
}

template uint32_t boxExtremeSeparable<float, Extreme::Min>(const WindowPass &);
template uint32_t boxExtremeSeparable<float, Extreme::Max>(const WindowPass &);
template uint32_t boxMinAndRangeSeparable<float>(const WindowPass &);
template uint32_t boxMinAndRangeSeparable<uint16_t>(const WindowPass &);

} // namespace pxbox
