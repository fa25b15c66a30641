// Box means of float images in place: the plain mean over a square window and the mean of the pixels below a
// saturation level. Windows that reach past the image are shrunk to it, so an edge pixel is the mean of the
// image pixels its window covers. Running sums in double make the cost per pixel the same for every window:
// a horizontal pass per row into a ring of row sums, and column sums updated by the row that enters and
// the row that leaves the window.
#include "img_4_px.h"

#include "pxEnv.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace {

constexpr const char *MODULE = "img_4_px";
constexpr uint32_t ERR_INVALID_ARGUMENT = 0xC43D0003u;

// Extent of the window around a pixel: `before` pixels above or left of it, `after` below or right of it.
// An even window reaches one pixel further up and left.
struct Reach {
    int32_t before;
    int32_t after;
};

Reach reachOf(int32_t window) {
    return {window / 2, window - 1 - window / 2};
}

bool validImage(const FIMAGE &image) {
    if (!image.image || image.width < 1 || image.height < 1)
        return false;
    for (int32_t y = 0; y < image.height; ++y)
        if (!image.image[y])
            return false;
    return true;
}

// Number of positions of [i - before, i + after] inside [0, length).
int32_t coveredCount(int32_t i, Reach reach, int32_t length) {
    return std::min(i + reach.after, length - 1) - std::max(i - reach.before, 0) + 1;
}

// Scratch of one blur: a ring of horizontal sums (and counts), the column sums (and counts), and the
// horizontal window size of every column.
struct Scratch {
    void *memory = nullptr;
    double *ringSums = nullptr;
    int32_t *ringCounts = nullptr;
    double *columnSums = nullptr;
    int32_t *columnCounts = nullptr;
    double *columnWidths = nullptr;
    int32_t ringRows = 0;

    ~Scratch() { pxMallocFree(&memory); }

    bool allocate(int32_t width, int32_t rows, bool counted) {
        const size_t w = static_cast<size_t>(width);
        const size_t doubles = w * (static_cast<size_t>(rows) + 2);
        const size_t ints = counted ? w * (static_cast<size_t>(rows) + 1) : 0;
        if (!pxMallocNoInit(&memory, doubles * sizeof(double) + ints * sizeof(int32_t)))
            return false;
        ringRows = rows;
        ringSums = static_cast<double *>(memory);
        columnSums = ringSums + w * rows;
        columnWidths = columnSums + w;
        if (counted) {
            ringCounts = reinterpret_cast<int32_t *>(columnWidths + w);
            columnCounts = ringCounts + w * rows;
        }
        return true;
    }
};

// Running sum along one row: sums[x] = sum of row over the window of x shrunk to the row.
void rowSums(const float *row, int32_t width, Reach reach, double *sums) {
    double sum = 0.0;
    const int32_t first = std::min(reach.after, width - 1);
    for (int32_t i = 0; i <= first; ++i)
        sum += row[i];
    for (int32_t x = 0; x < width; ++x) {
        sums[x] = sum;
        const int32_t entering = x + reach.after + 1;
        const int32_t leaving = x - reach.before;
        if (entering < width)
            sum += row[entering];
        if (leaving >= 0)
            sum -= row[leaving];
    }
}

// The same over the pixels strictly below `level` only, with their count.
void rowSumsBelow(const float *row, int32_t width, Reach reach, float level, double *sums, int32_t *counts) {
    double sum = 0.0;
    int32_t count = 0;
    auto add = [&](int32_t i, int32_t sign) {
        if (row[i] < level) {
            sum += sign > 0 ? static_cast<double>(row[i]) : -static_cast<double>(row[i]);
            count += sign;
        }
    };
    const int32_t first = std::min(reach.after, width - 1);
    for (int32_t i = 0; i <= first; ++i)
        add(i, 1);
    for (int32_t x = 0; x < width; ++x) {
        sums[x] = sum;
        counts[x] = count;
        const int32_t entering = x + reach.after + 1;
        const int32_t leaving = x - reach.before;
        if (entering < width)
            add(entering, 1);
        if (leaving >= 0)
            add(leaving, -1);
    }
}

// Adds (sign 1) or removes (sign -1) the row sums of image row r to or from the column sums; adding first
// computes them into the ring slot of r.
void moveRow(const FIMAGE &image, int32_t r, int32_t sign, Reach reach, const float *level, Scratch &s) {
    const size_t width = static_cast<size_t>(image.width);
    const size_t slot = static_cast<size_t>(r % s.ringRows) * width;
    double *sums = s.ringSums + slot;
    if (sign > 0) {
        if (level)
            rowSumsBelow(image.image[r], image.width, reach, *level, sums, s.ringCounts + slot);
        else
            rowSums(image.image[r], image.width, reach, sums);
    }
    for (size_t x = 0; x < width; ++x)
        s.columnSums[x] = sign > 0 ? s.columnSums[x] + sums[x] : s.columnSums[x] - sums[x];
    if (level) {
        const int32_t *counts = s.ringCounts + slot;
        for (size_t x = 0; x < width; ++x)
            s.columnCounts[x] += sign * counts[x];
    }
}

// Writes output row y from the column sums: the plain mean over the covered pixels.
void writeMeanRow(float *row, int32_t width, double windowRows, const Scratch &s) {
    for (int32_t x = 0; x < width; ++x)
        row[x] = static_cast<float>(s.columnSums[x] / (s.columnWidths[x] * windowRows));
}

// The mean over the counted pixels, or `level` where none is below it.
void writeMeanBelowRow(float *row, int32_t width, float level, const Scratch &s) {
    for (int32_t x = 0; x < width; ++x) {
        const int32_t count = s.columnCounts[x];
        row[x] = count > 0 ? static_cast<float>(s.columnSums[x] / count) : level;
    }
}

// Shared driver of both blurs; `level` null means the plain mean.
int blurImage(FIMAGE image, int32_t window, const float *level, const char *name) {
    if (!validImage(image) || window < 1) {
        writeLogI(5, __LINE__, MODULE, __DATE__, ERR_INVALID_ARGUMENT, "%s: image %d x %d, window %d refused",
                  name, image.width, image.height, window);
        return 0;
    }
    const Reach reach = reachOf(window);
    Scratch s;
    if (!s.allocate(image.width, std::min(window, image.height), level != nullptr))
        return 0;
    std::fill(s.columnSums, s.columnSums + image.width, 0.0);
    if (level)
        std::fill(s.columnCounts, s.columnCounts + image.width, 0);
    for (int32_t x = 0; x < image.width; ++x)
        s.columnWidths[x] = coveredCount(x, reach, image.width);
    for (int32_t r = 0; r <= std::min(reach.after, image.height - 1); ++r)
        moveRow(image, r, 1, reach, level, s);
    for (int32_t y = 0; y < image.height; ++y) {
        if (level)
            writeMeanBelowRow(image.image[y], image.width, *level, s);
        else
            writeMeanRow(image.image[y], image.width, coveredCount(y, reach, image.height), s);
        if (y - reach.before >= 0)
            moveRow(image, y - reach.before, -1, reach, level, s);
        if (y + reach.after + 1 < image.height)
            moveRow(image, y + reach.after + 1, 1, reach, level, s);
    }
    return 1;
}

} // namespace

extern "C" {

int blur(FIMAGE image, int32_t window) {
    return blurImage(image, window, nullptr, "blur");
}

int blurIgnoreSaturation(FIMAGE image, int32_t window, float saturationLevel, int32_t reserved1,
                         int32_t reserved2, int32_t reserved3, int32_t reserved4) {
    if (reserved1 != 0 || reserved2 != 0 || reserved3 != 0 || reserved4 != 0) {
        writeLogI(5, __LINE__, MODULE, __DATE__, ERR_INVALID_ARGUMENT,
                  "blurIgnoreSaturation: reserved arguments %d, %d, %d, %d must be 0", reserved1, reserved2,
                  reserved3, reserved4);
        return 0;
    }
    return blurImage(image, window, &saturationLevel, "blurIgnoreSaturation");
}

} // extern "C"
