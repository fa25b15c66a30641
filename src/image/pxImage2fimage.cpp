// Module pxImage2fimage: bridges between image records and the float and byte images of img_4_px. Both
// directions share the pixels; nothing is copied.
#include "pxImageInternal.h"
#include "pxImageLog.h"

namespace {

constexpr const char *kModule = "pxImage2fimage";

// Points an img_4_px image (row table, width, height) at plane 0 of a record.
template <typename Bridge, typename Pixel> void pointAtPlane0(const tag_pxImage *image, Bridge *bridge) {
    bridge->image = reinterpret_cast<Pixel **>(image->pixMap[0]);
    bridge->width = image->width;
    bridge->height = image->height;
}

// Builds a one-plane record of the given type around the rows of an img_4_px image (margin Image_border).
template <typename Bridge> uint32_t wrapRows(const Bridge *bridge, int32_t type, tag_pxImage **image) {
    if (!pxImageHeaderConstruct(type, bridge->width, bridge->height, Image_border, 1, image))
        return 0;
    (*image)->pixMap[0] = reinterpret_cast<pxImagePixMap>(bridge->image);
    return 1;
}

} // namespace

uint32_t pxImage2bimage(const tag_pxImage *image, BIMAGE *byteImage) {
    pointAtPlane0<BIMAGE, uint8_t>(image, byteImage);
    return 1;
}

uint32_t pxImage2fimage(const tag_pxImage *image, FIMAGE *floatImage) {
    pointAtPlane0<FIMAGE, float>(image, floatImage);
    return 1;
}

uint32_t pxImageBimage2pxImage(const BIMAGE *byteImage, tag_pxImage **image) {
    // The result is 1 whatever happens; a failed construction leaves *image null.
    wrapRows(byteImage, UBYTE, image);
    return 1;
}

uint32_t pxImageFimage2pxImage(const FIMAGE *floatImage, tag_pxImage **image) {
    if (!wrapRows(floatImage, FLOAT, image)) {
        PX_TRACE(kModule);
        return 0;
    }
    return 1;
}
