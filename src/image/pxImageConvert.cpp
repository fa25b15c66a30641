// Module pxImage: conversion of pixels between the in-memory pixel types, row by row, and the pixel-map
// and image copies built on it.
#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <limits>

#include "pxImageConvertKernels.h"
#include "pxImageInternal.h"
#include "pxImageLog.h"

namespace {

constexpr const char *kModule = "pxImage";

// Conversion kinds by [source type][target type]; 0 means there is no such conversion.
constexpr uint8_t kConvertKind[9][9] = {
    {0, 0, 0, 0, 0, 0, 0, 0, 0},      // (no type)
    {0, 0, 0, 0, 0, 0, 0, 0, 0},      // CBIT
    {0, 0, 25, 24, 0, 23, 22, 21, 0}, // UBYTE
    {0, 0, 20, 19, 0, 18, 17, 16, 0}, // SHORT
    {0, 0, 0, 0, 0, 0, 0, 0, 0},      // CSHORT
    {0, 0, 15, 14, 0, 13, 12, 11, 0}, // INT
    {0, 0, 10, 9, 0, 8, 7, 6, 0},     // FLOAT
    {0, 0, 5, 4, 0, 3, 2, 1, 0},      // DOUBLE
    {0, 0, 0, 0, 0, 0, 0, 0, 0},      // SHORT12
};

// The SHORT <-> FLOAT range factor (65535 / 255.0117...), applied in single precision, and its inverse.
constexpr float kScale = static_cast<float>(256.98823529411766);
constexpr float kInverseScale = static_cast<float>(0.0038912287126899835);

constexpr uint32_t kMaxSide = 9999;
constexpr uint32_t kMaxBorder = 999;

// Kind of a conversion; 0 also for a type outside 0..8, so no type reads outside the table.
int convertKind(int32_t srcType, int32_t dstType) {
    if (static_cast<uint32_t>(srcType) > 8 || static_cast<uint32_t>(dstType) > 8)
        return 0;
    return kConvertKind[srcType][dstType];
}

// Clamps a 32-bit integer to [0, high].
inline int32_t clampTo(int32_t value, int32_t high) {
    return std::min(std::max(value, 0), high);
}

// Converts count pixels with one per-pixel rule, as one tight loop that the compiler vectorises.
template <typename S, typename D, typename Rule>
void convertLoop(const void *src, uint32_t count, void *dst, Rule rule) {
    const S *in = static_cast<const S *>(src);
    D *out = static_cast<D *>(dst);
    for (size_t i = 0; i < count; ++i)
        out[i] = rule(in[i]);
}

// Plain type change (widening, exact or IEEE narrowing).
template <typename S, typename D> void castLoop(const void *src, uint32_t count, void *dst) {
    convertLoop<S, D>(src, count, dst, [](S v) { return static_cast<D>(v); });
}

// A rounded (narrowing) kind, or a widening one to FLOAT, through its kernel of the fastest level this
// processor runs.
template <typename S, typename D>
void narrowRow(void (*pxImageNarrowKernels::*kernel)(const S *, uint32_t, D *), const void *src,
               uint32_t count, void *dst) {
    (pxImageNarrowKernelsBest().*kernel)(static_cast<const S *>(src), count, static_cast<D *>(dst));
}

// INT clamped to [0, max of D]; the rounding step of this kind leaves integers unchanged.
template <typename D> void clampIntLoop(const void *src, uint32_t count, void *dst) {
    constexpr int32_t high = static_cast<int32_t>(std::numeric_limits<D>::max());
    convertLoop<int32_t, D>(src, count, dst, [](int32_t v) { return static_cast<D>(clampTo(v, high)); });
}

// SHORT to UBYTE keeps the high byte.
void highByteLoop(const void *src, uint32_t count, void *dst) {
    convertLoop<uint16_t, uint8_t>(src, count, dst, [](uint16_t v) { return static_cast<uint8_t>(v >> 8); });
}

// Same type: one block copy.
void copyRow(const void *src, uint32_t count, size_t size, void *dst) {
    if (count != 0)
        std::memmove(dst, src, size * count);
}

// Runs the fast kernel of a conversion kind 1..25 (no other value reaches here).
void convertByKind(int kind, const void *src, uint32_t count, void *dst) {
    switch (kind) {
    case 1:
        copyRow(src, count, sizeof(double), dst);
        break;
    case 2:
        castLoop<double, float>(src, count, dst);
        break;
    case 3:
        narrowRow(&pxImageNarrowKernels::doubleToInt, src, count, dst);
        break;
    case 4:
        narrowRow(&pxImageNarrowKernels::doubleToShort, src, count, dst);
        break;
    case 5:
        narrowRow(&pxImageNarrowKernels::doubleToUbyte, src, count, dst);
        break;
    case 6:
        castLoop<float, double>(src, count, dst);
        break;
    case 7:
        copyRow(src, count, sizeof(float), dst);
        break;
    case 8:
        narrowRow(&pxImageNarrowKernels::floatToInt, src, count, dst);
        break;
    case 9:
        narrowRow(&pxImageNarrowKernels::floatToShort, src, count, dst);
        break;
    case 10:
        narrowRow(&pxImageNarrowKernels::floatToUbyte, src, count, dst);
        break;
    case 11:
        castLoop<int32_t, double>(src, count, dst);
        break;
    case 12:
        castLoop<int32_t, float>(src, count, dst);
        break;
    case 13:
        copyRow(src, count, sizeof(int32_t), dst);
        break;
    case 14:
        clampIntLoop<uint16_t>(src, count, dst);
        break;
    case 15:
        clampIntLoop<uint8_t>(src, count, dst);
        break;
    case 16:
        castLoop<uint16_t, double>(src, count, dst);
        break;
    case 17:
        narrowRow(&pxImageNarrowKernels::shortToFloat, src, count, dst);
        break;
    case 18:
        castLoop<uint16_t, int32_t>(src, count, dst);
        break;
    case 19:
        copyRow(src, count, sizeof(uint16_t), dst);
        break;
    case 20:
        highByteLoop(src, count, dst);
        break;
    case 21:
        castLoop<uint8_t, double>(src, count, dst);
        break;
    case 22:
        narrowRow(&pxImageNarrowKernels::ubyteToFloat, src, count, dst);
        break;
    case 23:
        castLoop<uint8_t, int32_t>(src, count, dst);
        break;
    case 24:
        castLoop<uint8_t, uint16_t>(src, count, dst);
        break;
    default:
        copyRow(src, count, sizeof(uint8_t), dst);
        break; // kind 25
    }
}

// ---- Per-pixel reference: the rules written out literally, one pixel at a time -------------------------

template <typename T> T loadPixel(const void *row, size_t i) {
    T v;
    std::memcpy(&v, static_cast<const char *>(row) + i * sizeof(T), sizeof(T));
    return v;
}

template <typename T> void storePixel(void *row, size_t i, T v) {
    std::memcpy(static_cast<char *>(row) + i * sizeof(T), &v, sizeof(T));
}

// Round half away from zero, then truncate; INT32_MIN where the truncated value does not fit.
int32_t referenceRound(double v) {
    const double t = std::trunc(v > 0 ? v + 0.5 : v - 0.5);
    if (std::isnan(t) || t < static_cast<double>(INT32_MIN) || t > static_cast<double>(INT32_MAX))
        return INT32_MIN;
    return static_cast<int32_t>(t);
}

// The INT -> SHORT/UBYTE rounding step: value - 0.5 below 1, value + 0.5 otherwise, truncated.
int32_t referenceIntRound(int32_t v) {
    const double d = v;
    return static_cast<int32_t>(std::trunc(v < 1 ? d - 0.5 : d + 0.5));
}

int32_t referenceClamp(int32_t v, int32_t high) {
    return v < 0 ? 0 : (v > high ? high : v);
}

// Reads pixel i of a row of the given type as a double (exact for every in-memory type).
double referenceLoad(const void *row, size_t i, int32_t type) {
    switch (type) {
    case UBYTE:
        return loadPixel<uint8_t>(row, i);
    case SHORT:
        return loadPixel<uint16_t>(row, i);
    case INT:
        return loadPixel<int32_t>(row, i);
    case FLOAT:
        return loadPixel<float>(row, i);
    default:
        return loadPixel<double>(row, i);
    }
}

// Converts one pixel by the rule of its kind (not a byte-copy kind), given the source value widened to
// double.
void referencePixel(int kind, double v, size_t i, void *dst) {
    switch (kind) {
    case 2:
    case 12:
    case 17:
    case 22:
        storePixel<float>(dst, i, static_cast<float>(v));
        break;
    case 6:
    case 11:
    case 16:
    case 21:
        storePixel<double>(dst, i, v);
        break;
    case 3:
    case 8:
        storePixel<int32_t>(dst, i, referenceRound(v));
        break;
    case 18:
    case 23:
        storePixel<int32_t>(dst, i, static_cast<int32_t>(v));
        break;
    case 4:
    case 9:
        storePixel<uint16_t>(dst, i, static_cast<uint16_t>(referenceClamp(referenceRound(v), 65535)));
        break;
    case 5:
    case 10:
        storePixel<uint8_t>(dst, i, static_cast<uint8_t>(referenceClamp(referenceRound(v), 255)));
        break;
    case 14:
        storePixel<uint16_t>(
            dst, i, static_cast<uint16_t>(referenceClamp(referenceIntRound(static_cast<int32_t>(v)), 65535)));
        break;
    case 15:
        storePixel<uint8_t>(
            dst, i, static_cast<uint8_t>(referenceClamp(referenceIntRound(static_cast<int32_t>(v)), 255)));
        break;
    case 24:
        storePixel<uint16_t>(dst, i, static_cast<uint16_t>(v));
        break;
    default:
        storePixel<uint8_t>(dst, i, static_cast<uint8_t>(static_cast<uint32_t>(v) / 256u));
        break; // 20
    }
}

// True for a width or height of a pixel map.
bool sideIsValid(int32_t side) {
    return side >= 1 && static_cast<uint32_t>(side) <= kMaxSide;
}

// Checks the arguments of a pixel-map copy in their fixed order; logs the first failure.
bool mapCopyArgumentsAreValid(int32_t width, int32_t height, int32_t srcType, int32_t srcBorder,
                              int32_t dstBorder, int32_t dstType) {
    if ((srcType != 0 && !pxImageTypeIsValid(srcType)) || (dstType != 0 && !pxImageTypeIsValid(dstType))) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT, "Invalid image type");
        return false;
    }
    if (!sideIsValid(width) || !sideIsValid(height) || static_cast<uint32_t>(srcBorder) > kMaxBorder ||
        static_cast<uint32_t>(dstBorder) > kMaxBorder) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT, "txt");
        return false;
    }
    return true;
}

// The rows of a pixel-map copy: source and target maps with their pixel sizes, the image size and the
// copied margin m (rows -m..height+m-1, pixels from column -m on).
struct MapCopy {
    pxImagePixMap source;
    pxImagePixMap target;
    size_t srcSize;
    size_t dstSize;
    int32_t width;
    int32_t height;
    int32_t margin;

    const void *srcRow(int32_t y) const { return static_cast<const char *>(source[y]) - srcSize * margin; }
    void *dstRow(int32_t y) const { return static_cast<char *>(target[y]) - dstSize * margin; }
    uint32_t rowPixels() const { return static_cast<uint32_t>(width + 2 * margin); }
};

// SHORT -> FLOAT with the transform, row by row.
void copyShortToFloatScaled(const MapCopy &c) {
    for (int32_t y = -c.margin; y < c.height + c.margin; ++y)
        pxImageConvertRowShortToFloatScaled(static_cast<const uint16_t *>(c.srcRow(y)), c.rowPixels(),
                                            static_cast<float *>(c.dstRow(y)));
}

// FLOAT -> SHORT with the transform, row by row. The rows are scaled and converted in one pass; the copy
// still takes its scratch row of one row of floats (and fails as before when it cannot), as callers rely
// on this copy's allocation behaviour.
uint32_t copyFloatToShortScaled(const MapCopy &c) {
    float *scratch = nullptr;
    if (!pxMallocNoInit(reinterpret_cast<void **>(&scratch), sizeof(float) * c.rowPixels()))
        return 0;
    for (int32_t y = -c.margin; y < c.height + c.margin; ++y)
        pxImageConvertRowFloatToShortScaled(static_cast<const float *>(c.srcRow(y)), c.rowPixels(),
                                            static_cast<uint16_t *>(c.dstRow(y)));
    pxMallocFree(reinterpret_cast<void **>(&scratch));
    return 1;
}

// Same type: `width` pixels per row from column -m (so with m > 0 the last m columns are not copied).
void copySameType(const MapCopy &c) {
    for (int32_t y = -c.margin; y < c.height + c.margin; ++y)
        std::memcpy(c.dstRow(y), c.srcRow(y), c.srcSize * c.width);
}

// Any other pair through the row converter; stops at the first failing row.
uint32_t copyConverted(const MapCopy &c, int32_t srcType, int32_t dstType) {
    for (int32_t y = -c.margin; y < c.height + c.margin; ++y) {
        if (!pxImageConvertRow(c.srcRow(y), c.rowPixels(), srcType, dstType, c.dstRow(y)))
            return 0;
    }
    return 1;
}

} // namespace

uint32_t pxImageConvertRow(const void *src, uint32_t count, int32_t srcType, int32_t dstType, void *dst) {
    const int kind = convertKind(srcType, dstType);
    if (kind == 0) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT, "Invalid ConvertKind");
        return 0;
    }
    convertByKind(kind, src, count, dst);
    return 1;
}

uint32_t pxImageConvertRowReference(const void *src, uint32_t count, int32_t srcType, int32_t dstType,
                                    void *dst) {
    const int kind = convertKind(srcType, dstType);
    if (kind == 0)
        return 0;
    if (srcType == dstType) {
        // Byte copy, one pixel at a time (keeps every NaN pattern as it is).
        const size_t size = pxImagePixelSizeTable[srcType];
        for (size_t i = 0; i < count; ++i)
            std::memcpy(static_cast<char *>(dst) + i * size, static_cast<const char *>(src) + i * size, size);
        return 1;
    }
    for (size_t i = 0; i < count; ++i)
        referencePixel(kind, referenceLoad(src, i, srcType), i, dst);
    return 1;
}

void pxImageConvertRowShortToFloatScaled(const uint16_t *src, uint32_t count, float *dst) {
    for (size_t i = 0; i < count; ++i)
        dst[i] = static_cast<float>(src[i]) * kInverseScale;
}

void pxImageConvertRowFloatToShortScaled(const float *src, uint32_t count, uint16_t *dst) {
    pxImageNarrowKernelsBest().floatScaledToShort(src, count, kScale, dst);
}

uint32_t pxImagePixMapConvertCopy(pxImagePixMap source, int32_t width, int32_t height, int32_t srcType,
                                  int32_t srcBorder, int32_t dstBorder, int32_t transform, int32_t dstType,
                                  pxImagePixMap *target) {
    if (!mapCopyArgumentsAreValid(width, height, srcType, srcBorder, dstBorder, dstType))
        return 0;
    const int32_t type = dstType != 0 ? dstType : srcType;
    const MapCopy c{source, *target, pxImagePixelSizeTable[srcType], pxImagePixelSizeTable[type],
                    width,  height,  std::min(srcBorder, dstBorder)};
    if (transform && srcType == SHORT && type == FLOAT) {
        copyShortToFloatScaled(c);
        return 1;
    }
    if (transform && srcType == FLOAT && type == SHORT) {
        if (!copyFloatToShortScaled(c)) {
            PX_TRACE(kModule);
            return 0;
        }
        return 1;
    }
    if (srcType == type) {
        copySameType(c);
        return 1;
    }
    if (!copyConverted(c, srcType, type)) {
        PX_TRACE(kModule);
        return 0;
    }
    return 1;
}

uint32_t pxImageConvertWithTransformCopy(const tag_pxImage *source, int32_t newType, int32_t newBorder,
                                         int32_t transform, tag_pxImage **image) {
    const int32_t border = newBorder == -1 ? source->border : newBorder;
    if (!pxImageHeaderConvertCopy(source, newType, border, image)) {
        PX_TRACE(kModule);
        return 0;
    }
    for (int32_t plane = 0; plane < source->planes; ++plane) {
        if (!pxImagePixMapConvertCopy(source->pixMap[plane], source->width, source->height, source->type,
                                      source->border, border, transform, (*image)->type,
                                      &(*image)->pixMap[plane])) {
            PX_TRACE(kModule);
            pxImageDestruct(image);
            return 0;
        }
    }
    return 1;
}

uint32_t pxImageConvertCopy(const tag_pxImage *source, int32_t newType, int32_t newBorder,
                            tag_pxImage **image) {
    if (!pxImageConvertWithTransformCopy(source, newType, newBorder, 0, image)) {
        PX_TRACE(kModule);
        return 0;
    }
    return 1;
}
