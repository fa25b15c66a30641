// Module pxImageDeInterlace: splits an interlaced camera frame into its two fields (even rows and odd rows),
// each an image of half height, by copying whole rows.
#include <cstdint>
#include <cstring>

#include "image/pxImageInternal.h"
#include "image/pxImageLog.h"
#include "pxImage.h"

namespace {

constexpr const char *kModule = "pxImageDeInterlace";
constexpr uint32_t PX_ERR_NO_FIELD = 0xC41A000Cu;
constexpr uint32_t PX_ERR_FIELD_SOURCE_TYPE = 0xC41A000Du;
constexpr uint32_t PX_ERR_FIELD_TYPE = 0xC41A000Eu;
constexpr uint32_t PX_ERR_FIELD_SIZE = 0xC41A000Fu;

bool typeMatches(const tag_pxImage *field, int32_t type) {
    return field == nullptr || field->type == type;
}

bool sizeMatches(const tag_pxImage *field, int32_t width, int32_t height) {
    return field == nullptr || (field->width == width && field->height == height);
}

bool pixelsPresent(const tag_pxImage *image) {
    return image == nullptr || image->pixMap[0] != nullptr;
}

// Copies `bytes` of every second source row, starting at row `first`, into consecutive field rows (a field
// may be the one-row source itself).
void copyField(const tag_pxImage *source, int32_t first, int32_t rows, size_t bytes, tag_pxImage *field) {
    for (int32_t i = 0; i < rows; ++i)
        std::memmove(field->pixMap[0][i], source->pixMap[0][first + 2 * i], bytes);
}

} // namespace

uint32_t pxImageDeInterlace(const tag_pxImage *source, tag_pxImage *even, tag_pxImage *odd) {
    if (even == nullptr && odd == nullptr) {
        PX_SEND_ERROR(kModule, PX_ERR_NO_FIELD);
        return 0;
    }
    if (source == nullptr) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT, "de-interlacing needs a source image");
        return 0;
    }
    const int32_t type = source->type;
    const int64_t rowBytes =
        pxImageTypeIsValid(type) ? int64_t{pxImagePixelSizeTable[type]} * int64_t{source->width} : 0;
    if (rowBytes == 0) {
        PX_SEND_ERROR(kModule, PX_ERR_FIELD_SOURCE_TYPE, type);
        return 0;
    }
    if (!typeMatches(even, type) || !typeMatches(odd, type)) {
        PX_SEND_ERROR(kModule, PX_ERR_FIELD_TYPE);
        return 0;
    }
    const int32_t w = source->width;
    const int32_t h = source->height;
    if (!sizeMatches(even, w, h / 2 + h % 2) || !sizeMatches(odd, w, h / 2)) {
        PX_SEND_ERROR(kModule, PX_ERR_FIELD_SIZE);
        return 0;
    }
    // A record is public: refuse what would copy a negative size or through a missing pixel map.
    if (rowBytes < 0 || h < 1 || source->pixMap[0] == nullptr || !pixelsPresent(even) ||
        !pixelsPresent(odd)) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT, "de-interlacing needs images with pixels");
        return 0;
    }
    if (even != nullptr)
        copyField(source, 0, h / 2 + h % 2, static_cast<size_t>(rowBytes), even);
    if (odd != nullptr)
        copyField(source, 1, h / 2, static_cast<size_t>(rowBytes), odd);
    return 1;
}
