// Module pxImageMarkPts, point marks: "+" crosses at sub-pixel points in the module's colour and size, and
// magnified, pixel-replicated cut-outs of float images with the points marked at the magnified scale. The
// colour and size are process-wide settings, read once from the configuration or set by the caller.
#include <atomic>
#include <cstdint>

#include "image/pxImageLog.h"
#include "pxImage.h"
#include "pxImageMarkInternal.h"

using pxmark::kModule;

namespace {

// The settings. Atomic only so that a racing first read is not undefined behaviour; callers still set
// them before marking from several threads, since a pair read while another thread sets it may mix.
std::atomic<int32_t> crossSize{1};
std::atomic<uint32_t> colour{0};
std::atomic<bool> settingsKnown{false};

uint32_t readSettings() {
    settingsKnown = true;
    int value = 0;
    const int colourRead = pxEnvGetParam2int("pxImageMarkPtsColor", 0, &value);
    colour = static_cast<uint32_t>(value);
    if (!colourRead) {
        PX_TRACE(kModule);
        return 0;
    }
    const int sizeRead = pxEnvGetParam2int("pxImageMarkPtsCrossSize", 1, &value);
    crossSize = value;
    if (!sizeRead) {
        PX_TRACE(kModule);
        return 0;
    }
    return 1;
}

// Reads the settings on the first marking call when the caller neither read nor set them.
void ensureSettings() {
    if (settingsKnown) {
        return;
    }
    if (!readSettings()) {
        PX_WARN(4, kModule,
                "Mark settings could not be read from the configuration; colour %d and cross size %d in use",
                static_cast<int32_t>(colour.load()), crossSize.load());
    }
}

template <typename T> void drawCross(void *const *rows, int64_t cx, int64_t cy, int32_t h, T value) {
    for (int64_t y = cy - h; y <= cy + h; ++y) {
        static_cast<T *>(rows[y])[cx] = value;
    }
    T *row = static_cast<T *>(rows[cy]);
    for (int64_t x = cx - h; x <= cx + h; ++x) {
        row[x] = value;
    }
}

bool typeIsMarkable(int32_t type) {
    return type == UBYTE || type == SHORT || type == INT || type == FLOAT || type == DOUBLE;
}

// Marks one point. Returns false only for a cross reaching outside the storage (reported, nothing drawn);
// an unsupported pixel type is reported and counts as done.
bool markPoint(tag_pxImage *image, double x, double y, int32_t size, uint32_t value) {
    if (!typeIsMarkable(image->type)) {
        PX_SEND_ERROR(kModule, PX_ERR_TYPE_NOT_SUPPORTED);
        return true;
    }
    const int32_t h = size / 2;
    if (h < 0) {
        return true; // arms of negative length: both loops are empty
    }
    const int64_t cx = pxmark::truncateTo32(x + 0.5);
    const int64_t cy = pxmark::truncateTo32(y + 0.5);
    if (!pxmark::inStorage(image, cx - h, cx + h, cy - h, cy + h)) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT,
                 "Cross at column %lld, row %lld with arms of %d reaches outside the %d x %d image and its "
                 "border of %d; skipped",
                 static_cast<long long>(cx), static_cast<long long>(cy), h, image->width, image->height,
                 image->border);
        return false;
    }
    void *const *rows = image->pixMap[0];
    switch (image->type) {
    case UBYTE:
        drawCross(rows, cx, cy, h, static_cast<uint8_t>(value));
        break;
    case SHORT:
        drawCross(rows, cx, cy, h, static_cast<uint16_t>(value));
        break;
    case INT:
        drawCross(rows, cx, cy, h, static_cast<int32_t>(value));
        break;
    case FLOAT:
        drawCross(rows, cx, cy, h, static_cast<float>(static_cast<int32_t>(value)));
        break;
    default:
        drawCross(rows, cx, cy, h, static_cast<double>(static_cast<int32_t>(value)));
        break;
    }
    return true;
}

// Corners of a magnified cut-out, in source pixels (inclusive).
struct Region {
    int64_t xmin;
    int64_t ymin;
    int64_t xmax;
    int64_t ymax;
};

// The bounding box of the truncated points, widened by one pixel on each side where the widened edge
// stays within the image.
Region boundingRegion(const double *points, int32_t n, const tag_pxImage *source) {
    Region r = {0x7FFFFFFF, 0x7FFFFFFF, -0x7FFFFFFFLL - 1, -0x7FFFFFFFLL - 1};
    for (int32_t i = 0; i < n; ++i) {
        const int64_t x = pxmark::truncateTo32(points[2 * i]);
        const int64_t y = pxmark::truncateTo32(points[2 * i + 1]);
        r.xmin = x < r.xmin ? x : r.xmin;
        r.xmax = x > r.xmax ? x : r.xmax;
        r.ymin = y < r.ymin ? y : r.ymin;
        r.ymax = y > r.ymax ? y : r.ymax;
    }
    r.xmin -= r.xmin - 1 >= 0 ? 1 : 0;
    r.ymin -= r.ymin - 1 >= 0 ? 1 : 0;
    r.xmax += r.xmax + 1 <= source->width - 1 ? 1 : 0;
    r.ymax += r.ymax + 1 <= source->height - 1 ? 1 : 0;
    return r;
}

// The corners given after the n points for a reused output image.
Region givenRegion(const double *points, int32_t n) {
    const double *corners = points + 2 * static_cast<int64_t>(n);
    return {pxmark::truncateTo32(corners[0]), pxmark::truncateTo32(corners[1]),
            pxmark::truncateTo32(corners[2]), pxmark::truncateTo32(corners[3])};
}

bool magnifyArgumentsAreValid(const double *points, int32_t n, int32_t m, const tag_pxImage *source,
                              tag_pxImage **output) {
    if (!pxmark::hasPixels(source) || source->type != FLOAT) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT, "Magnified marks need a float source image with pixels");
        return false;
    }
    if (m < 1) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT, "Magnification %d is below 1", m);
        return false;
    }
    if (!output || (!points && (n > 0 || *output))) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT, "Magnified marks need the points and an output handle");
        return false;
    }
    if (*output && !pxmark::hasPixels(*output)) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT, "The output image to reuse has no pixels");
        return false;
    }
    return true;
}

// Constructs the output of a new cut-out and fills it by replication.
uint32_t constructCutOut(const tag_pxImage *source, const Region &r, int32_t m, tag_pxImage **output) {
    const double columns = static_cast<double>(r.xmax - r.xmin + 1);
    const double rows = static_cast<double>(r.ymax - r.ymin + 1);
    if (!pxImageConstruct(source->type, pxmark::clampTo32(columns * m), pxmark::clampTo32(rows * m),
                          source->border, source->planes, output)) {
        PX_TRACE(kModule);
        return 0;
    }
    pxmark::replicate<uint32_t>(source, r.xmin, r.ymin, r.xmax - r.xmin + 1, r.ymax - r.ymin + 1, m, *output);
    return 1;
}

} // namespace

uint32_t pxImageMarkPts_init(void) {
    return readSettings();
}

uint32_t pxImageMarkPtsSetParams(int32_t size, int32_t value) {
    crossSize = size;
    colour = static_cast<uint32_t>(value);
    settingsKnown = true;
    return 1;
}

uint32_t pxImageMarkPts(const double *points, int32_t n, tag_pxImage *image) {
    if (n <= 0) {
        return 1;
    }
    if (!points || !pxmark::hasPixels(image)) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT, "Marking needs the points and an image with pixels");
        return 0;
    }
    ensureSettings();
    const int32_t size = crossSize;
    const uint32_t value = colour;
    bool allDrawn = true;
    for (int32_t i = 0; i < n; ++i) {
        allDrawn = markPoint(image, points[2 * i], points[2 * i + 1], size, value) && allDrawn;
    }
    if (!allDrawn) {
        PX_TRACE(kModule);
        return 0;
    }
    return 1;
}

uint32_t pxImageMarkPtsMagnify(const double *points, int32_t n, int32_t m, const tag_pxImage *source,
                               tag_pxImage **output) {
    if (!magnifyArgumentsAreValid(points, n, m, source, output)) {
        return 0;
    }
    const int32_t count = n > 0 ? n : 0;
    const bool reuse = *output != nullptr;
    const Region r = reuse ? givenRegion(points, count) : boundingRegion(points, count, source);
    if (!reuse && !constructCutOut(source, r, m, output)) {
        PX_TRACE(kModule);
        return 0;
    }
    void *scratch = nullptr;
    if (!pxMallocNoInit(&scratch, 16 * static_cast<size_t>(count))) {
        PX_TRACE(kModule);
        return 0;
    }
    double *mapped = static_cast<double *>(scratch);
    for (int32_t i = 0; i < count; ++i) {
        mapped[2 * i] = (points[2 * i] - static_cast<double>(r.xmin) + 0.5) * m;
        mapped[2 * i + 1] = (points[2 * i + 1] - static_cast<double>(r.ymin) + 0.5) * m;
    }
    const uint32_t marked = pxImageMarkPts(mapped, count, *output);
    pxMallocFree(&scratch);
    if (!marked) {
        PX_TRACE(kModule);
        return 0;
    }
    return 1;
}
