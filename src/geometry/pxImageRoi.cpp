// Module pxImageRoi: finds the rectangle of an image that holds usable, textured content. A mask marks
// the 6 x 6 blocks with enough texture and a plausible brightness; then the image's edges are peeled
// inward in 20-pixel strips for as long as some edge strip is mostly unmarked.
#include <cstdint>
#include <cstring>
#include <initializer_list>

#include "pxImage.h"
#include "image/pxImageLog.h"
#include "pxImageGeometryInternal.h"

namespace {

constexpr const char *kModule = "pxImageRoi";
constexpr int32_t kBlock = 6;
constexpr int32_t kStrip = 20;
constexpr double kMinTexture = 100.0;
constexpr float kMarked = 255.0f;

// The bytes [firstByte, firstByte + count) of rows [top, top + rows) of a plane, as one range test.
bool spanInside(const pxgeom::PlaneBytes &plane, int64_t top, int64_t rows, int64_t firstByte,
                int64_t count) {
    return pxgeom::bytesInsidePlane(plane, top, firstByte, firstByte + count - 1) &&
           pxgeom::bytesInsidePlane(plane, top + rows - 1, firstByte, firstByte + count - 1);
}

// The block test reads each block's rows as bytes and as floats and writes the mask as floats. Rows
// hold width pixels of the image's type, so in a plane of pixels narrower than a float the float
// columns run past the row (into the margin or the next row). True when the last block, which reaches
// farthest, stays inside both planes (the first reaches least far and starts at byte 0 of row 0).
bool blockTestStaysInside(const pxgeom::PlaneBytes &image, const pxgeom::PlaneBytes &mask) {
    const int64_t lastX = (image.width - kBlock - 1) / kBlock * kBlock;
    const int64_t lastY = (image.height - kBlock - 1) / kBlock * kBlock;
    const int64_t floatBytes = int64_t(sizeof(float)) * kBlock;
    return spanInside(image, lastY, kBlock, 0, lastX + kBlock) &&
           spanInside(image, lastY, kBlock, int64_t(sizeof(float)) * lastX, floatBytes) &&
           spanInside(mask, lastY, kBlock, int64_t(sizeof(float)) * lastX, floatBytes);
}

// Tests the 6 x 6 block at (x0, y0): texture from the pixels read as bytes (36 times the variance, in
// double), level from the same rows read as floats (single-precision sum). The loops only visit blocks
// that lie wholly inside the image, so the texture is never the 0 of a block that does not fit.
bool blockIsTextured(void *const *rows, int32_t x0, int32_t y0) {
    double sum = 0.0;
    double squares = 0.0;
    float level = 0.0f;
    for (int32_t y = y0; y < y0 + kBlock; ++y) {
        const uint8_t *bytes = static_cast<const uint8_t *>(rows[y]);
        const char *raw = static_cast<const char *>(rows[y]);
        for (int32_t x = x0; x < x0 + kBlock; ++x) {
            const double v = bytes[x];
            sum += v;
            squares += v * v;
            float f;
            std::memcpy(&f, raw + sizeof(float) * size_t(x), sizeof f);
            level += f;
        }
    }
    const double texture = squares - sum * sum / 36.0;
    return texture >= kMinTexture && level <= 7344.0f && level >= 345.6;
}

void setBlock(void *const *mask, int32_t x0, int32_t y0, float value) {
    for (int32_t y = y0; y < y0 + kBlock; ++y) {
        char *raw = static_cast<char *>(mask[y]);
        for (int32_t x = x0; x < x0 + kBlock; ++x) {
            std::memcpy(raw + sizeof(float) * size_t(x), &value, sizeof value);
        }
    }
}

// Marks the blocks that pass the test with 255.0 in the mask and the other tested blocks with 0. A last
// partial strip of up to 6 pixels is not tested (nor the whole image when a side is exactly 6).
void markTexturedBlocks(const tag_pxImage *image, tag_pxImage *mask) {
    for (int32_t y0 = 0; y0 < image->height - kBlock; y0 += kBlock) {
        for (int32_t x0 = 0; x0 < image->width - kBlock; x0 += kBlock) {
            const bool kept = blockIsTextured(image->pixMap[0], x0, y0);
            setBlock(mask->pixMap[0], x0, y0, kept ? kMarked : 0.0f);
        }
    }
}

// A strip [x0, x1) x [y0, y1) of the mask.
struct Strip {
    int32_t x0, x1, y0, y1;
};

enum class StripRead { Value, Refused, OutsideStorage };

// Emptiness of a strip: 1 - (sum of its mask values / 255 / its area), 0 for an empty strip. A strip that
// reaches outside the mask is refused with a trace; one whose float reads would leave the mask's storage
// (a mask of pixels narrower than a float) stops the whole search.
StripRead stripEmptiness(const tag_pxImage *mask, const pxgeom::PlaneBytes &storage, const Strip &s,
                         double &emptiness) {
    if (s.x0 < 0 || s.y0 < 0 || s.x1 > mask->width || s.y1 > mask->height) {
        PX_TRACE(kModule);
        return StripRead::Refused;
    }
    if (s.x1 <= s.x0 || s.y1 <= s.y0) {
        emptiness = 0.0;
        return StripRead::Value;
    }
    const int64_t count = s.x1 - s.x0;
    if (!spanInside(storage, s.y0, s.y1 - s.y0, int64_t(sizeof(float)) * s.x0,
                    int64_t(sizeof(float)) * count)) {
        return StripRead::OutsideStorage;
    }
    double sum = 0.0;
    for (int32_t y = s.y0; y < s.y1; ++y) {
        const char *raw = static_cast<const char *>(mask->pixMap[0][y]);
        for (int32_t x = s.x0; x < s.x1; ++x) {
            float f;
            std::memcpy(&f, raw + sizeof(float) * size_t(x), sizeof f);
            sum += f;
        }
    }
    const double area = double(s.x1 - s.x0) * double(s.y1 - s.y0);
    emptiness = 1.0 - sum / 255.0 / area;
    return StripRead::Value;
}

// The rectangle being peeled, and the last emptiness measured for each edge strip.
struct Peel {
    int32_t left, top, right, bottom;
    double value[4]; // right (A), left (B), bottom (C), top (D)
    bool fresh[4];   // measured in this round (false: refused, the value is the one held before)
};

// Peels the edges of the mask. The rectangle starts as the whole image; each round measures the four
// strips and moves inward by 20 the first edge (right, left, bottom, top) whose strip is the emptiest,
// until no strip is more than 60% empty.
//
// The loop always ends: it stops as well when the strip it would move holds a value that was not measured
// in this round (its strip was refused). A refused strip stays refused, since its edge only moves inward,
// so its value never changes; a value above 0.6 would otherwise move its edge for ever. Every other round
// moves an edge whose strip lies inside the mask, which each edge can do at most width / 20 or
// height / 20 times. A strip refused in the first round holds 0 (it never drives a move). Returns false
// when a strip's reads would leave the mask's storage.
bool peelEdges(const tag_pxImage *mask, const pxgeom::PlaneBytes &storage, Peel &p) {
    for (;;) {
        const Strip strips[4] = {{p.right - kStrip, p.right, p.top, p.bottom},
                                 {p.left, p.left + kStrip, p.top, p.bottom},
                                 {p.left, p.right, p.bottom - kStrip, p.bottom},
                                 {p.left, p.right, p.top, p.top + kStrip}};
        for (int i = 0; i < 4; ++i) {
            const StripRead read = stripEmptiness(mask, storage, strips[i], p.value[i]);
            if (read == StripRead::OutsideStorage) {
                return false;
            }
            p.fresh[i] = read == StripRead::Value;
        }
        double m = p.value[0];
        for (int i : {1, 3, 2}) {
            m = p.value[i] > m ? p.value[i] : m;
        }
        if (m <= 0.6) {
            return true;
        }
        int chosen = 0;
        while (chosen < 4 && !(p.value[chosen] == m)) {
            ++chosen;
        }
        if (chosen == 4 || !p.fresh[chosen]) {
            return true; // (no strip equals m only if a value were NaN, which 0/255 masks never give)
        }
        int32_t *edge[4] = {&p.right, &p.left, &p.bottom, &p.top};
        *edge[chosen] += (chosen == 1 || chosen == 3) ? kStrip : -kStrip;
    }
}

// Builds the mask, tests the blocks and peels the edges into `p`. 0 when the mask cannot be made or the
// image's or mask's storage is too small for the float reads and writes.
uint32_t findRegion(const tag_pxImage *image, Peel &p) {
    tag_pxImage *mask = nullptr;
    if (!pxImageConstruct(image->type, image->width, image->height, 0, 1, &mask)) {
        PX_TRACE(kModule);
        return 0;
    }
    if (image->pixMap[0] == nullptr) {
        pxImageDestruct(&mask);
        PX_TRACE(kModule);
        return 0;
    }
    pxgeom::PlaneBytes imageBytes{}, maskBytes{};
    bool inside = pxgeom::planeBytesOf(image, imageBytes) && pxgeom::planeBytesOf(mask, maskBytes);
    inside = inside && (image->width <= kBlock || image->height <= kBlock ||
                        blockTestStaysInside(imageBytes, maskBytes));
    if (inside) {
        markTexturedBlocks(image, mask);
        inside = peelEdges(mask, maskBytes, p);
    }
    pxImageDestruct(&mask);
    if (!inside) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT,
                 "pxImageRoi reads %dx%d pixels of type %d as floats beyond their storage", image->width,
                 image->height, image->type);
        return 0;
    }
    return 1;
}

} // namespace

uint32_t pxImageRoi(const tag_pxImage *image, int32_t rect[4], int32_t *found) {
    if (image == nullptr) {
        PX_TRACE(kModule);
        return 0;
    }
    if (found == nullptr || (*found > 0 && rect == nullptr)) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT, "pxImageRoi needs a request flag and a rectangle");
        return 0;
    }
    Peel p{0, 0, image->width, image->height, {0.0, 0.0, 0.0, 0.0}, {false, false, false, false}};
    if (!findRegion(image, p)) {
        return 0;
    }
    if (*found <= 0) {
        *found = 0;
        return 1;
    }
    rect[0] = p.left;
    rect[1] = p.top;
    rect[2] = p.right;
    rect[3] = p.bottom;
    *found = 1;
    return 1;
}
