// Module pxImage: the image record, its pixel maps, the region of interest and the record's lifecycle.
#include <algorithm>
#include <cstring>
#include <iterator>

#include "pxImageInternal.h"
#include "pxImageLog.h"

namespace {

constexpr const char *kModule = "pxImage";
constexpr int32_t kMaxSide = 9999;
constexpr uint32_t kMaxBorder = 999;
constexpr int32_t kMaxPlanes = 9;

// Default camera and optics constants of a fresh header.
constexpr double kDefaultOptics[5] = {4.545, 1240.0, 50.0, 0.009, 70.0};
// Temperature that means "not measured".
constexpr float kNoTemperature = -273.0f;

// True for a width or height the record accepts.
bool sideIsValid(int32_t side) {
    return side >= 1 && side <= kMaxSide;
}

// True for a border the record accepts; compared unsigned, so a negative border is refused.
bool borderIsValid(int32_t border) {
    return static_cast<uint32_t>(border) <= kMaxBorder;
}

// a + b and a - b in 32-bit two's complement: the record is public, so its fields may hold any values, and
// their sums and differences wrap around instead of overflowing.
int32_t wrappingSum(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}
int32_t wrappingDifference(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) - static_cast<uint32_t>(b));
}

// Bytes per pixel of a type already known to be 0 or valid.
size_t pixelSize(int32_t type) {
    return pxImagePixelSizeTable[type];
}

// Checks the arguments of pixel-map construction in their fixed order; logs the first failure.
bool pixMapArgumentsAreValid(int32_t type, int32_t width, int32_t height, int32_t border) {
    if (type != 0 && !pxImageTypeIsValid(type)) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT, "Invalid image type");
        return false;
    }
    if (!sideIsValid(width)) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT, "txt");
        return false;
    }
    if (!sideIsValid(height)) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT, "txt");
        return false;
    }
    if (!borderIsValid(border)) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT, "txt");
        return false;
    }
    return true;
}

// Checks the arguments of header construction in their fixed order; logs the first failure.
bool headerArgumentsAreValid(int32_t type, int32_t width, int32_t height, int32_t border, int32_t planes) {
    if (!pixMapArgumentsAreValid(type, width, height, border))
        return false;
    if (planes < 1 || planes > kMaxPlanes) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT, "txt");
        return false;
    }
    return true;
}

// Sets every field of a header to its default for the given shape; refCount is kept.
void setHeaderDefaults(tag_pxImage *image, int32_t type, int32_t width, int32_t height, int32_t border,
                       int32_t planes) {
    const int32_t refCount = image->refCount;
    std::memset(static_cast<void *>(image), 0, sizeof(tag_pxImage));
    image->refCount = refCount;
    image->type = type;
    image->width = width;
    image->height = height;
    image->border = border;
    image->planes = planes;
    image->origWidth = width;
    image->origHeight = height;
    image->roimaxX = width;
    image->roimaxY = height;
    image->origType = type;
    std::fill(std::begin(image->temperature), std::end(image->temperature), kNoTemperature);
    std::copy(std::begin(kDefaultOptics), std::end(kDefaultOptics), image->opticsParam);
    image->aberCx = static_cast<double>(width / 2) - 0.5;
    image->aberCy = static_cast<double>(height / 2) - 0.5;
    image->auxShort[0] = image->auxShort[1] = image->auxShort[2] = -1;
    std::fill(std::begin(image->auxLong), std::end(image->auxLong), -1);
}

// Fills rows 0..height-1, columns 0..width-1 of a plane with one value.
template <typename T> void fillPlane(pxImagePixMap map, int32_t width, int32_t height, T value) {
    for (int32_t y = 0; y < height; ++y) {
        T *row = static_cast<T *>(map[y]);
        std::fill(row, row + width, value);
    }
}

// Reads a value of type T from unaligned memory.
template <typename T> T load(const void *value) {
    T result;
    std::memcpy(&result, value, sizeof(T));
    return result;
}

// Zeroes columns [from, to) of row y of a plane whose pixels have the given size.
void zeroColumns(pxImagePixMap map, int32_t y, int32_t from, int32_t to, size_t size) {
    if (to > from)
        std::memset(static_cast<char *>(map[y]) + size * from, 0, size * (to - from));
}

// Zeroes everything of the image proper of one plane that lies outside the ROI. The ROI is clamped to the
// image, so an inconsistent ROI never reaches outside the plane.
void maskPlane(const tag_pxImage *image, pxImagePixMap map) {
    const size_t size = pixelSize(image->type);
    const int32_t left = std::clamp(image->roiminX, 0, image->width);
    const int32_t right = std::clamp(image->roimaxX, 0, image->width);
    const int32_t top = std::clamp(image->roiminY, 0, image->height);
    const int32_t bottom = std::clamp(image->roimaxY, 0, image->height);
    for (int32_t y = 0; y < image->height; ++y) {
        if (y < top || y >= bottom) {
            zeroColumns(map, y, 0, image->width, size);
        } else {
            zeroColumns(map, y, 0, left, size);
            zeroColumns(map, y, right, image->width, size);
        }
    }
}

// True when the ROI covers the whole image.
bool roiIsWholeImage(const tag_pxImage *image) {
    return image->roiminX == 0 && image->roimaxX == image->width && image->roiminY == 0 &&
           image->roimaxY == image->height;
}

// True when no ROI edge lies outside the image (an empty or inverted ROI is left to the map construction).
bool roiIsInsideImage(const tag_pxImage *image) {
    return image->roiminX >= 0 && image->roimaxX <= image->width && image->roiminY >= 0 &&
           image->roimaxY <= image->height;
}

// Replaces one plane by a new map holding only the ROI's pixels (same type and border, zeroed margin).
uint32_t cutPlane(tag_pxImage *image, int32_t plane) {
    const int32_t width = image->roimaxX - image->roiminX;
    const int32_t height = image->roimaxY - image->roiminY;
    pxImagePixMap cut = nullptr;
    if (!pxImagePixMapConstruct(image->type, width, height, image->border, &cut))
        return 0;
    const size_t size = pixelSize(image->type);
    pxImagePixMap old = image->pixMap[plane];
    for (int32_t y = 0; y < height; ++y)
        std::memcpy(cut[y], static_cast<const char *>(old[image->roiminY + y]) + size * image->roiminX,
                    size * width);
    pxImagePixMapDestruct(&image->pixMap[plane], image->type, image->border);
    image->pixMap[plane] = cut;
    return 1;
}

// Cuts every plane to the ROI and moves size, origin and ROI to the cut image. A plane that fails ends the
// cut with the planes before it already cut and the header unchanged.
uint32_t cutToRoi(tag_pxImage *image) {
    for (int32_t plane = 0; plane < std::min(image->planes, kMaxPlanes); ++plane) {
        if (!cutPlane(image, plane))
            return 0;
    }
    image->origX = wrappingSum(image->origX, image->roiminX);
    image->origY = wrappingSum(image->origY, image->roiminY);
    image->width = image->roimaxX - image->roiminX;
    image->height = image->roimaxY - image->roiminY;
    image->roiminX = 0;
    image->roimaxX = image->width;
    image->roiminY = 0;
    image->roimaxY = image->height;
    return 1;
}

// The metadata of a header in the 16-bit form of the file header: ROI, origin and frame size as unsigned
// 16-bit numbers, the source pixel type as unsigned 16-bit, the auxShort values as signed 16-bit.
struct pxImageHeader16 {
    uint16_t roi[4];  // roiminX, roimaxX, roiminY, roimaxY
    uint16_t orig[4]; // origX, origY, origWidth, origHeight
    uint16_t origType;
    int16_t auxShort[4];
};

// Narrows the 16-bit fields of a record into their file form.
pxImageHeader16 toHeader16(const tag_pxImage *image) {
    pxImageHeader16 h{};
    h.roi[0] = static_cast<uint16_t>(image->roiminX);
    h.roi[1] = static_cast<uint16_t>(image->roimaxX);
    h.roi[2] = static_cast<uint16_t>(image->roiminY);
    h.roi[3] = static_cast<uint16_t>(image->roimaxY);
    h.orig[0] = static_cast<uint16_t>(image->origX);
    h.orig[1] = static_cast<uint16_t>(image->origY);
    h.orig[2] = static_cast<uint16_t>(image->origWidth);
    h.orig[3] = static_cast<uint16_t>(image->origHeight);
    h.origType = static_cast<uint16_t>(image->origType);
    for (int i = 0; i < 4; ++i)
        h.auxShort[i] = static_cast<int16_t>(image->auxShort[i]);
    return h;
}

// Widens the file form back into a record.
void fromHeader16(const pxImageHeader16 &h, tag_pxImage *image) {
    image->roiminX = h.roi[0];
    image->roimaxX = h.roi[1];
    image->roiminY = h.roi[2];
    image->roimaxY = h.roi[3];
    image->origX = h.orig[0];
    image->origY = h.orig[1];
    image->origWidth = h.orig[2];
    image->origHeight = h.orig[3];
    image->origType = h.origType;
    for (int i = 0; i < 4; ++i)
        image->auxShort[i] = h.auxShort[i];
}

// Copies the metadata that does not pass through the 16-bit form.
void copyWideMetadata(const tag_pxImage *source, tag_pxImage *target) {
    target->auxInt = source->auxInt;
    std::copy(std::begin(source->temperature), std::end(source->temperature), target->temperature);
    std::copy(std::begin(source->opticsParam), std::end(source->opticsParam), target->opticsParam);
    target->aberK1 = source->aberK1;
    target->aberK2 = source->aberK2;
    target->aberK3 = source->aberK3;
    target->aberP1 = source->aberP1;
    target->aberP2 = source->aberP2;
    target->aberCx = source->aberCx;
    target->aberCy = source->aberCy;
    std::copy(std::begin(source->auxLong), std::end(source->auxLong), target->auxLong);
    target->auxWide = source->auxWide;
    std::copy(std::begin(source->auxInt2), std::end(source->auxInt2), target->auxInt2);
}

// Copies every metadata field of source into target through the 16-bit file form; fails on a source
// pixel type (origType) that is neither 0 nor valid.
uint32_t copyMetadata(const tag_pxImage *source, tag_pxImage *target) {
    const pxImageHeader16 h = toHeader16(source);
    if (h.origType != 0 && !pxImageTypeIsValid(h.origType)) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT, "Invalid image type");
        return 0;
    }
    fromHeader16(h, target);
    copyWideMetadata(source, target);
    return 1;
}

// Builds zero-filled pixel maps for every plane of a header; on failure the maps built so far stay in the
// record for the caller to destroy.
uint32_t constructPlanes(tag_pxImage *image) {
    for (int32_t plane = 0; plane < image->planes; ++plane) {
        if (!pxImagePixMapConstruct(image->type, image->width, image->height, image->border,
                                    &image->pixMap[plane]))
            return 0;
    }
    return 1;
}

} // namespace

const uint32_t pxImagePixelSizeTable[9] = {0, 1, 1, 2, 2, 4, 4, 8, 2};

bool pxImageTypeIsValid(int32_t type) {
    return type >= 1 && type <= 8 && pxImagePixelSizeTable[type] != 0;
}

uint32_t pxImageHeaderInit(int32_t type, int32_t width, int32_t height, int32_t border, int32_t planes,
                           tag_pxImage **image) {
    if (!headerArgumentsAreValid(type, width, height, border, planes))
        return 0;
    if (*image == nullptr && !pxMallocInitZero(reinterpret_cast<void **>(image), sizeof(tag_pxImage))) {
        PX_TRACE(kModule);
        return 0;
    }
    setHeaderDefaults(*image, type, width, height, border, planes);
    return 1;
}

uint32_t pxImageHeaderConstruct(int32_t type, int32_t width, int32_t height, int32_t border, int32_t planes,
                                tag_pxImage **image) {
    *image = nullptr;
    if (!pxImageHeaderInit(type, width, height, border, planes, image)) {
        PX_TRACE(kModule);
        return 0;
    }
    return 1;
}

uint32_t pxImageHeaderDestruct(tag_pxImage **image) {
    if (image == nullptr || *image == nullptr)
        return 1;
    if (__atomic_load_n(&(*image)->refCount, __ATOMIC_SEQ_CST) == 0)
        pxMallocFree(reinterpret_cast<void **>(image));
    return 1;
}

uint32_t pxImageConstruct(int32_t type, int32_t width, int32_t height, int32_t border, int32_t planes,
                          tag_pxImage **image) {
    if (!pxImageHeaderConstruct(type, width, height, border, planes, image)) {
        PX_TRACE(kModule);
        return 0;
    }
    if (!constructPlanes(*image)) {
        PX_TRACE(kModule);
        pxImageDestruct(image);
        return 0;
    }
    (*image)->refCount = 0;
    return 1;
}

uint32_t pxImageCreateEmpty(tag_pxImage **image) {
    *image = nullptr;
    if (!pxMallocInitZero(reinterpret_cast<void **>(image), sizeof(tag_pxImage))) {
        PX_TRACE(kModule);
        return 0;
    }
    return 1;
}

uint32_t pxImageDestruct(tag_pxImage **image) {
    if (image == nullptr || *image == nullptr)
        return 1;
    tag_pxImage *record = *image;
    if (__atomic_load_n(&record->refCount, __ATOMIC_SEQ_CST) != 0)
        PX_WARN(5, kModule, "Destruct referenced image");
    // The entries keep their (freed) addresses: a holder of a reference keeps the header, not the pixels.
    for (int32_t plane = 0; plane < std::min(record->planes, kMaxPlanes); ++plane) {
        pxImagePixMap map = record->pixMap[plane];
        pxImagePixMapDestruct(&map, record->type, record->border);
    }
    return pxImageHeaderDestruct(image);
}

void pxImageAddRef(tag_pxImage *image) {
    __atomic_add_fetch(&image->refCount, 1, __ATOMIC_SEQ_CST);
}

int32_t pxImageReleaseRef(tag_pxImage *image) {
    return __atomic_sub_fetch(&image->refCount, 1, __ATOMIC_SEQ_CST);
}

uint32_t pxImagePixelSize(int32_t type, uint32_t *size) {
    if (type != 0 && !pxImageTypeIsValid(type)) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT, "Invalid image type");
        return 0;
    }
    *size = pxImagePixelSizeTable[type];
    return 1;
}

uint32_t pxImageGetROI(const tag_pxImage *image, int32_t roi[4]) {
    roi[0] = image->roiminX;
    roi[1] = image->roiminY;
    roi[2] = wrappingDifference(image->roimaxX, image->roiminX);
    roi[3] = wrappingDifference(image->roimaxY, image->roiminY);
    return 1;
}

uint32_t pxImageSetROI(tag_pxImage *image, const int32_t roi[4]) {
    const int64_t x = roi[0], y = roi[1], w = roi[2], h = roi[3];
    // The row test compares x with the height; a row beyond the height is caught by the last test.
    if (x < 0 || x >= image->width || y < 0 || x >= image->height || x + w > image->width ||
        y + h > image->height) {
        PX_TRACE(kModule);
        return 0;
    }
    image->roiminX = static_cast<int32_t>(x);
    image->roimaxX = static_cast<int32_t>(x + w);
    image->roiminY = static_cast<int32_t>(y);
    image->roimaxY = static_cast<int32_t>(y + h);
    return 1;
}

uint32_t pxImageSetValue(tag_pxImage *image, const void *value) {
    pxImagePixMap map = image->pixMap[0];
    switch (image->type) {
    case UBYTE:
        fillPlane(map, image->width, image->height, load<uint8_t>(value));
        break;
    case SHORT:
        fillPlane(map, image->width, image->height, load<uint16_t>(value));
        break;
    case INT:
        fillPlane(map, image->width, image->height, load<int32_t>(value));
        break;
    case FLOAT:
        fillPlane(map, image->width, image->height, load<float>(value));
        break;
    case DOUBLE:
        // The 64-bit pattern, so that every NaN payload is kept.
        fillPlane(map, image->width, image->height, load<uint64_t>(value));
        break;
    default:
        PX_SEND_ERROR(kModule, PX_ERR_TYPE_NOT_SUPPORTED);
        break;
    }
    return 1;
}

uint32_t pxImageHeaderConvertCopy(const tag_pxImage *source, int32_t newType, int32_t newBorder,
                                  tag_pxImage **image) {
    *image = nullptr;
    if (newType != 0 && !pxImageTypeIsValid(newType)) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT, "Invalid image type");
        return 0;
    }
    if (!borderIsValid(newBorder)) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT, "txt");
        return 0;
    }
    const int32_t type = newType != 0 ? newType : source->type;
    if (!pxImageHeaderConstruct(type, source->width, source->height, newBorder, source->planes, image)) {
        PX_TRACE(kModule);
        return 0;
    }
    if (!copyMetadata(source, *image)) {
        pxImageHeaderDestruct(image);
        return 0;
    }
    if (!constructPlanes(*image)) {
        PX_TRACE(kModule);
        pxImageDestruct(image);
        return 0;
    }
    return 1;
}

uint32_t pxImagePixMapConstruct(int32_t type, int32_t width, int32_t height, int32_t border,
                                pxImagePixMap *map) {
    *map = nullptr;
    if (!pixMapArgumentsAreValid(type, width, height, border))
        return 0;
    const size_t size = pixelSize(type);
    const size_t rows = static_cast<size_t>(height) + 2 * static_cast<size_t>(border);
    const size_t stride = size * (static_cast<size_t>(width) + 2 * static_cast<size_t>(border));
    void **rowArray = nullptr;
    char *buffer = nullptr;
    if (!pxMallocInitZero(reinterpret_cast<void **>(&rowArray), rows * sizeof(void *)) ||
        !pxMallocInitZero(reinterpret_cast<void **>(&buffer), stride * rows)) {
        PX_TRACE(kModule);
        pxMallocFree(reinterpret_cast<void **>(&rowArray));
        return 0;
    }
    for (size_t i = 0; i < rows; ++i)
        rowArray[i] = buffer + size * border + i * stride;
    *map = rowArray + border;
    return 1;
}

uint32_t pxImagePixMapDestruct(pxImagePixMap *map, int32_t type, int32_t border) {
    if (map == nullptr || *map == nullptr)
        return 1;
    if (type != 0 && !pxImageTypeIsValid(type)) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT, "Invalid image type");
        return 0;
    }
    if (!borderIsValid(border)) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT, "txt");
        return 0;
    }
    void **rowArray = *map - border;
    void *buffer = static_cast<char *>(rowArray[0]) - pixelSize(type) * border;
    pxMallocFree(&buffer);
    pxMallocFree(reinterpret_cast<void **>(&rowArray));
    *map = nullptr;
    return 1;
}

uint32_t pxImageCutByROI(tag_pxImage *image, uint32_t mode) {
    if (mode > 2) {
        PX_TRACE(kModule);
        return 0;
    }
    if (mode == 0 || roiIsWholeImage(image))
        return 1;
    if (mode == 1) {
        for (int32_t plane = 0; plane < std::min(image->planes, kMaxPlanes); ++plane)
            maskPlane(image, image->pixMap[plane]);
        return 1;
    }
    // A ROI reaching outside the image cannot be cut without reading outside the planes.
    if (!roiIsInsideImage(image)) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT, "txt");
        return 0;
    }
    if (!cutToRoi(image)) {
        PX_TRACE(kModule);
        return 0;
    }
    return 1;
}
