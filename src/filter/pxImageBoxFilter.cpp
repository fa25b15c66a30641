// Module pxImageBoxFilter: windowed sums, averages and normalisation by running sums, and windowed
// minimum, maximum and minimum-with-range over square windows. The exported entries check their arguments
// here and run the kernels of pxImageBoxSumKernels.cpp and pxImageBoxLaneKernels.cpp (or their plain
// references beside them).
#include <cstddef>
#include <cstdint>

#include "pxImage.h"
#include "pxImageBoxFilterInternal.h"
#include "image/pxImageLog.h"

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
    const BoxLaneKernels &kernels = boxLaneKernelsBest();
    uint32_t (*const fast)(const WindowPass &) = E == Extreme::Min ? kernels.minFloat : kernels.maxFloat;
    if (source->pixMap[0] == destination->pixMap[0] || !fast(pass)) {
        boxExtremeDirect<float, E>(pass);
    }
    return 1;
}

template <typename T> void minAndRange(const WindowPass &pass, bool shared) {
    const BoxLaneKernels &kernels = boxLaneKernelsBest();
    uint32_t (*const fast)(const WindowPass &) =
        sizeof(T) == sizeof(float) ? kernels.minAndRangeFloat : kernels.minAndRangeShort;
    if (shared || !fast(pass)) {
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
        boxLaneKernelsBest().countsAtLeast(sumPassOf(source, n, destination), level);
    }
    return covered;
}

// The margin of the row sums' scratch image. Its zero rows below the image add +0 to the column sums exactly
// as the rows beyond the storage do, so it changes no result; it keeps the scratch rows from sharing the
// source rows' cache sets and 4 KiB offsets, which made the row pass several times slower depending on
// where the two images happened to lie.
constexpr int32_t kScratchBorder = 8;

uint32_t pxImageBoxSums(const tag_pxImage *source, int32_t n, tag_pxImage *destination) {
    if (!source || !destination || source->type != destination->type || !isSumType(source->type)) {
        PX_TRACE(kModule);
        return 0;
    }
    tag_pxImage *scratch = nullptr;
    if (!pxImageConstruct(source->type, source->width, source->height, kScratchBorder, 1, &scratch)) {
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
