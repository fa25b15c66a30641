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

// Scratch of one blur, all in double (counts of up to 2^31 pixels are exact in double): a ring of
// horizontal sums (and counts) with one row more than a window holds, so the entering row never takes the
// slot of the leaving one; the column sums (and counts); one row of steps; one row of 1 / window size.
struct Scratch {
    void *memory = nullptr;
    size_t width = 0;
    int32_t ringRows = 0;
    double *ringSums = nullptr;
    double *ringCounts = nullptr;
    double *columnSums = nullptr;
    double *columnCounts = nullptr;
    double *steps = nullptr;
    double *reciprocals = nullptr;

    ~Scratch() { pxMallocFree(&memory); }

    bool allocate(int32_t imageWidth, int32_t rows, bool counted) {
        width = static_cast<size_t>(imageWidth);
        const size_t ringRowsTotal = static_cast<size_t>(rows) * (counted ? 2 : 1);
        const size_t doubles = width * (ringRowsTotal + (counted ? 4 : 3));
        if (!pxMallocNoInit(&memory, doubles * sizeof(double)))
            return false;
        ringRows = rows;
        double *next = static_cast<double *>(memory);
        auto take = [&](size_t count) {
            double *block = next;
            next += count;
            return block;
        };
        ringSums = take(width * rows);
        columnSums = take(width);
        steps = take(width);
        reciprocals = take(width);
        if (counted) {
            ringCounts = take(width * rows);
            columnCounts = take(width);
        }
        return true;
    }
    double *slot(double *ring, int32_t row) const {
        return ring + static_cast<size_t>(row % ringRows) * width;
    }
};

// Running window sums along one row of `value(i)` (pixel i's contribution), the window shrunk to the row:
// sums[x] = sums[x - 1] + steps[x] with steps[x] = entering - leaving, evaluated four columns apart so that
// four independent chains of additions run side by side.
template <class Value> void rowSums(Value value, int32_t width, Reach reach, double *sums, double *steps) {
    double first = 0.0;
    for (int32_t i = 0; i <= std::min(reach.after, width - 1); ++i)
        first += value(i);
    sums[0] = first;
    const int32_t interiorFrom = std::max(1, reach.before + 1);
    const int32_t interiorTo = width - reach.after; // exclusive
    for (int32_t x = 1; x < width; ++x) {
        if (x == interiorFrom && interiorFrom < interiorTo) {
            for (; x < interiorTo; ++x)
                steps[x] = value(x + reach.after) - value(x - reach.before - 1);
            if (x >= width)
                break;
        }
        const double entering = x + reach.after < width ? value(x + reach.after) : 0.0;
        const double leaving = x - reach.before - 1 >= 0 ? value(x - reach.before - 1) : 0.0;
        steps[x] = entering - leaving;
    }
    for (int32_t x = 1; x < std::min(width, 4); ++x)
        sums[x] = sums[x - 1] + steps[x];
    for (int32_t x = 4; x < width; ++x)
        sums[x] = sums[x - 4] + ((steps[x - 3] + steps[x - 2]) + (steps[x - 1] + steps[x]));
}

// Computes the horizontal sums (and counts) of image row r into its ring slot.
void enterRow(const FIMAGE &image, int32_t r, Reach reach, const float *level, Scratch &s) {
    const float *row = image.image[r];
    if (!level) {
        rowSums([row](int32_t i) { return static_cast<double>(row[i]); }, image.width, reach,
                s.slot(s.ringSums, r), s.steps);
        return;
    }
    const float limit = *level;
    rowSums([row, limit](int32_t i) { return row[i] < limit ? static_cast<double>(row[i]) : 0.0; },
            image.width, reach, s.slot(s.ringSums, r), s.steps);
    rowSums([row, limit](int32_t i) { return row[i] < limit ? 1.0 : 0.0; }, image.width, reach,
            s.slot(s.ringCounts, r), s.steps);
}

// column += entering - leaving for the rows that exist (null: none).
void updateColumns(double *columns, const double *entering, const double *leaving, size_t width) {
    if (entering && leaving)
        for (size_t x = 0; x < width; ++x)
            columns[x] = (columns[x] - leaving[x]) + entering[x];
    else if (entering)
        for (size_t x = 0; x < width; ++x)
            columns[x] += entering[x];
    else if (leaving)
        for (size_t x = 0; x < width; ++x)
            columns[x] -= leaving[x];
}

// Moves the window from output row y - 1 to row y: the row above it leaves, the row at its bottom enters.
void advance(const FIMAGE &image, int32_t y, Reach reach, const float *level, Scratch &s) {
    const int32_t entering = y + reach.after;
    const int32_t leaving = y - reach.before - 1;
    const bool enters = entering < image.height;
    const bool leaves = leaving >= 0;
    if (enters)
        enterRow(image, entering, reach, level, s);
    updateColumns(s.columnSums, enters ? s.slot(s.ringSums, entering) : nullptr,
                  leaves ? s.slot(s.ringSums, leaving) : nullptr, s.width);
    if (level)
        updateColumns(s.columnCounts, enters ? s.slot(s.ringCounts, entering) : nullptr,
                      leaves ? s.slot(s.ringCounts, leaving) : nullptr, s.width);
}

// 1 / (covered columns x covered rows) of every column of a row whose window covers `rows` image rows.
void fillReciprocals(const FIMAGE &image, Reach reach, int32_t rows, Scratch &s) {
    for (int32_t x = 0; x < image.width; ++x)
        s.reciprocals[x] = 1.0 / (static_cast<double>(coveredCount(x, reach, image.width)) * rows);
}

void writeMeanRow(float *row, const Scratch &s) {
    for (size_t x = 0; x < s.width; ++x)
        row[x] = static_cast<float>(s.columnSums[x] * s.reciprocals[x]);
}

// The mean over the counted pixels, or `level` where none is below it.
void writeMeanBelowRow(float *row, float level, const Scratch &s) {
    for (size_t x = 0; x < s.width; ++x)
        row[x] = s.columnCounts[x] > 0.0 ? static_cast<float>(s.columnSums[x] / s.columnCounts[x]) : level;
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
    if (!s.allocate(image.width, std::min(window, image.height) + 1, level != nullptr))
        return 0;
    std::fill(s.columnSums, s.columnSums + s.width, 0.0);
    if (level)
        std::fill(s.columnCounts, s.columnCounts + s.width, 0.0);
    for (int32_t r = 0; r <= std::min(reach.after, image.height - 1); ++r) {
        enterRow(image, r, reach, level, s);
        updateColumns(s.columnSums, s.slot(s.ringSums, r), nullptr, s.width);
        if (level)
            updateColumns(s.columnCounts, s.slot(s.ringCounts, r), nullptr, s.width);
    }
    int32_t reciprocalRows = 0;
    for (int32_t y = 0; y < image.height; ++y) {
        if (y > 0)
            advance(image, y, reach, level, s);
        if (level) {
            writeMeanBelowRow(image.image[y], *level, s);
            continue;
        }
        const int32_t rows = coveredCount(y, reach, image.height);
        if (rows != reciprocalRows) {
            fillReciprocals(image, reach, rows, s);
            reciprocalRows = rows;
        }
        writeMeanRow(image.image[y], s);
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
