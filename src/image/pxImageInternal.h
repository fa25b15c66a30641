// Functions of the image model that other modules of the library use but do not export.
#pragma once

#include <cstdint>

#include "pxImage.h"

// Bytes per pixel of types 0..8 (0, 1, 1, 2, 2, 4, 4, 8, 2).
extern const uint32_t pxImagePixelSizeTable[9];

// True for 1..8 with a non-zero size.
bool pxImageTypeIsValid(int32_t type);

// Header construction that reuses the record *image already holds (keeping its refCount), or allocates a
// zero-filled one when *image is null. Same checks and defaults as pxImageHeaderConstruct.
uint32_t pxImageHeaderInit(int32_t type, int32_t width, int32_t height, int32_t border, int32_t planes,
                           tag_pxImage **image);

// Row converter: converts count pixels from src (srcType) to dst (dstType) by the conversion kind of the
// two types, one tight loop per kind (a block copy for the same type); the rows must not overlap unless
// they are the same row of the same type. O(count). Returns 0 with "Invalid ConvertKind" when the pair has
// no conversion (a type outside 0..8 counts as such).
uint32_t pxImageConvertRow(const void *src, uint32_t count, int32_t srcType, int32_t dstType, void *dst);

// Plain per-pixel reference of the row converter, one pixel at a time; the tests prove the fast kernels
// equal it. Returns 0 (without logging) when the pair has no conversion.
uint32_t pxImageConvertRowReference(const void *src, uint32_t count, int32_t srcType, int32_t dstType,
                                    void *dst);

// The scaled SHORT<->FLOAT conversion of one row: SHORT -> FLOAT multiplies by 1/F, FLOAT -> SHORT multiplies
// by F in single precision and then rounds and clamps (kind 9 of the product), in one pass; F =
// 256.98823529411766 as a float. O(count).
void pxImageConvertRowShortToFloatScaled(const uint16_t *src, uint32_t count, float *dst);
void pxImageConvertRowFloatToShortScaled(const float *src, uint32_t count, uint16_t *dst);
