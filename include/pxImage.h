/* pxImage: image services for camera-based acquisition and measurement.
 *
 * The C interface of the library: the image record, the pixel types and every exported function.
 * Unless a comment says otherwise a function returns 1 on success and 0 on failure; failures are reported
 * through the environment library's log (an error record where the failure is found, then one trace per
 * function on the way out). Functions that create a record take the address of the caller's pointer.
 * Compiles as C99 and as C++.
 */
#ifndef PXIMAGE_H
#define PXIMAGE_H

#include <stdint.h>
#include <stdio.h>

#include "img_4_px.h"

#if defined(_WIN32)
#define PXIMAGE_API __declspec(dllexport)
#else
#define PXIMAGE_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ==== Pixel types ========================================================================================= */

/* Pixel type codes. CBIT, CSHORT and SHORT12 are file encodings; in memory they are held as UBYTE or SHORT.
 * Type 0 as an argument means "the source's type". */
enum pxImagePixelType {
    CBIT = 1,    /* bi-level data of a CBIT file, 1 byte */
    UBYTE = 2,   /* unsigned 8-bit */
    SHORT = 3,   /* unsigned 16-bit */
    CSHORT = 4,  /* compressed 16-bit file data, 2 bytes */
    INT = 5,     /* signed 32-bit */
    FLOAT = 6,   /* 32-bit IEEE float */
    DOUBLE = 7,  /* 64-bit IEEE float */
    SHORT12 = 8  /* 12-bit samples held in 16 bits */
};

/* Largest frame size accepted for origWidth and origHeight (one more than the largest image width). */
#define pxImage_MAX_SIZE 10000

/* ==== The image record ==================================================================================== */

/* A pixel map: row pointers over one contiguous plane, addressed map[y][x] with y in [-border,
 * height+border) and x in [-border, width+border). Cast to the pixel type's row type (float ** etc.). */
typedef void **pxImagePixMap;

/* The image record. Field order and widths are part of the interface and mirror the file header. */
typedef struct tag_pxImage {
    int32_t type;         /* pixel type of every plane */
    int32_t width;        /* columns, 1..9999 */
    int32_t height;       /* rows, 1..9999 */
    int32_t border;       /* margin in pixels on each side of every plane, 0..999 */
    int32_t planes;       /* pixel maps in use, 1..9 (0 in an empty record) */
    int32_t origX;        /* left edge of this image inside the full frame */
    int32_t origY;        /* top edge of this image inside the full frame */
    int32_t origWidth;    /* width of the full frame */
    int32_t origHeight;   /* height of the full frame */
    int32_t roiminX;      /* region of interest: first column */
    int32_t roimaxX;      /* one past its last column */
    int32_t roiminY;      /* first row */
    int32_t roimaxY;      /* one past its last row */
    int32_t origType;     /* pixel type the data had at its source; kept by conversions */
    int32_t auxInt;       /* spare, carried through copies and files */
    float temperature[3]; /* degrees Celsius; -273.0 means not measured */
    double opticsParam[5];
    double aberK1, aberK2, aberK3; /* radial lens-distortion coefficients */
    double aberP1, aberP2;         /* tangential lens-distortion coefficients */
    double aberCx, aberCy;         /* distortion centre in pixels */
    int32_t auxShort[4];           /* spare, stored as 16-bit numbers in files */
    int32_t auxLong[8];            /* spare */
    int64_t auxWide;               /* spare, stored as 8 raw bytes */
    int32_t auxInt2[3];            /* spare */
    pxImagePixMap pixMap[9];       /* one pixel map per plane; null from `planes` on */
    int32_t refCount;              /* outstanding references; changed only atomically */
} tag_pxImage;

/* ==== Record and lifecycle (module pxImage) =============================================================== */

/* Builds a record of the given type (0 allowed: pixels of size 0), size 1..9999, border 0..999 and 1..9
 * planes, with zero-filled pixel maps and default metadata. O(pixels). *image receives the record
 * (refCount 0), or stays null on failure. */
PXIMAGE_API uint32_t pxImageConstruct(int32_t type, int32_t width, int32_t height, int32_t border,
                                      int32_t planes, tag_pxImage **image);

/* Frees the pixel maps and, when refCount is 0, the record (then *image becomes null). A referenced record
 * keeps its header for the other holders and logs "Destruct referenced image". Null is fine. Always 1. */
PXIMAGE_API uint32_t pxImageDestruct(tag_pxImage **image);

/* Atomically adds one reference. O(1). */
PXIMAGE_API void pxImageAddRef(tag_pxImage *image);

/* Atomically removes one reference and returns the new count (may go below 0). Frees nothing. O(1). */
PXIMAGE_API int32_t pxImageReleaseRef(tag_pxImage *image);

/* Allocates a zero-filled record with no size and no planes, to be filled by later functions. O(1). */
PXIMAGE_API uint32_t pxImageCreateEmpty(tag_pxImage **image);

/* Stores the bytes per pixel of a type (0 for type 0) in *size. O(1). */
PXIMAGE_API uint32_t pxImagePixelSize(int32_t type, uint32_t *size);

/* Writes the region of interest as x, y, width, height. O(1). Always 1. */
PXIMAGE_API uint32_t pxImageGetROI(const tag_pxImage *image, int32_t roi[4]);

/* Sets the region of interest from x, y, width, height after checking it against the image (the row test
 * compares x with the height, as it always has). O(1). The record is unchanged on failure. */
PXIMAGE_API uint32_t pxImageSetROI(tag_pxImage *image, const int32_t roi[4]);

/* Fills the image proper of plane 0 with *value, read with the image's pixel type. O(pixels). Returns 1
 * also for a type it cannot fill (CBIT, CSHORT, SHORT12), which it reports as an error and leaves alone. */
PXIMAGE_API uint32_t pxImageSetValue(tag_pxImage *image, const void *value);

/* Allocates a record with default metadata and no pixel maps (`planes` set). O(1). */
PXIMAGE_API uint32_t pxImageHeaderConstruct(int32_t type, int32_t width, int32_t height, int32_t border,
                                            int32_t planes, tag_pxImage **image);

/* Builds a new image with the source's size, planes and metadata, type newType (0: the source's) and
 * border newBorder, and zero-filled pixel maps (pixels are not copied). Metadata travels through the
 * 16-bit file form: ROI and orig fields as unsigned 16-bit, auxShort as signed 16-bit. O(pixels). */
PXIMAGE_API uint32_t pxImageHeaderConvertCopy(const tag_pxImage *source, int32_t newType, int32_t newBorder,
                                              tag_pxImage **image);

/* Frees the record when refCount is 0 (then *image becomes null); never touches pixel maps. Always 1. */
PXIMAGE_API uint32_t pxImageHeaderDestruct(tag_pxImage **image);

/* Builds one zero-filled pixel map. O(pixels). *map receives it, or null on failure. */
PXIMAGE_API uint32_t pxImagePixMapConstruct(int32_t type, int32_t width, int32_t height, int32_t border,
                                            pxImagePixMap *map);

/* Frees a pixel map built with this type and border and sets *map to null. Null is fine. O(1). */
PXIMAGE_API uint32_t pxImagePixMapDestruct(pxImagePixMap *map, int32_t type, int32_t border);

/* Applies the region of interest: mode 0 nothing, 1 zeroes everything outside it (border untouched),
 * 2 cuts every plane to it (new size and origin; the margin of the new planes is zero-filled). O(pixels).
 * Mode above 2 fails. */
PXIMAGE_API uint32_t pxImageCutByROI(tag_pxImage *image, uint32_t mode);

/* ==== Pixel conversion ==================================================================================== */

/* Converts width x height pixels (plus the smaller of the two margins) of a pixel map into an existing
 * target map of dstType (0: srcType). With transform set, SHORT<->FLOAT rescales 0..65535 to about 0..255
 * and back. A same-type copy moves `width` pixels per row starting at the left margin. O(pixels). Rows
 * written before a failure stay written. */
PXIMAGE_API uint32_t pxImagePixMapConvertCopy(pxImagePixMap source, int32_t width, int32_t height,
                                              int32_t srcType, int32_t srcBorder, int32_t dstBorder,
                                              int32_t transform, int32_t dstType, pxImagePixMap *target);

/* Copies an image into a new record of type newType (0: same) and border newBorder (-1: same), with the
 * SHORT<->FLOAT transform when asked. O(pixels). *image receives the copy, or stays null on failure. */
PXIMAGE_API uint32_t pxImageConvertWithTransformCopy(const tag_pxImage *source, int32_t newType,
                                                     int32_t newBorder, int32_t transform,
                                                     tag_pxImage **image);

/* pxImageConvertWithTransformCopy without the transform. */
PXIMAGE_API uint32_t pxImageConvertCopy(const tag_pxImage *source, int32_t newType, int32_t newBorder,
                                        tag_pxImage **image);

/* Points a byte image at plane 0 of a (UBYTE) image: row table, width, height. Copies and checks nothing.
 * O(1). Always 1. */
PXIMAGE_API uint32_t pxImage2bimage(const tag_pxImage *image, BIMAGE *byteImage);

/* Points a float image at plane 0 of a (FLOAT) image; same as pxImage2bimage. O(1). Always 1. */
PXIMAGE_API uint32_t pxImage2fimage(const tag_pxImage *image, FIMAGE *floatImage);

/* Builds a UBYTE record (border Image_border, one plane) that shares the byte image's pixels and does not
 * own them. O(1). Always 1. */
PXIMAGE_API uint32_t pxImageBimage2pxImage(const BIMAGE *byteImage, tag_pxImage **image);

/* Builds a FLOAT record (border Image_border, one plane) that shares the float image's pixels and does not
 * own them. O(1). */
PXIMAGE_API uint32_t pxImageFimage2pxImage(const FIMAGE *floatImage, tag_pxImage **image);

/* ==== Image files ========================================================================================= */

/* ---- Header block -------------------------------------------------------------------------------------- */

/* Reads one 512-byte header block (any of the versions "img1".."im13"; an unknown tag is read as "im13") from
 * the current position of a file opened in binary mode and builds a new image header (no pixel maps) with
 * pixel type `type` (0: the stored type) and border `border` (0..999). Sets *header to null first. O(1):
 * reads 512 bytes. On success *header receives the header, *origType the stored type code and the file
 * stands at the first byte of the pixel data; on failure *header stays null. */
PXIMAGE_API uint32_t pxImageHeaderRead(FILE *file, int32_t type, int32_t border, tag_pxImage **header,
                                       int32_t *origType);

/* ---- Reading and writing -------------------------------------------------------------------------------- */

/* Reads a whole image file (header block, then every plane) into a new record of pixel type `type` (0: the
 * stored type; CBIT files read as UBYTE, CSHORT and SHORT12 files as SHORT) and border `border` (0..999).
 * The file name is a null-terminated 16-bit string. Sets *image to null first. O(pixels). *image receives
 * the record; on failure it stays null and nothing read is kept. A file with bytes after its last plane
 * fails. */
PXIMAGE_API uint32_t pxImageRead(const uint16_t *fileName, int32_t type, int32_t border, tag_pxImage **image);

/* As pxImageRead, but a record already held in *image is reused for the new header (its refCount kept; its
 * pixel maps must have been destroyed by the caller); a null *image gets a new record. O(pixels). On
 * failure a reused record is left unchanged when the file or its header block could not be read; once its
 * header was rebuilt, the planes read are destroyed (their entries cleared) and the record is freed and
 * nulled when unreferenced, else kept for its holders. */
PXIMAGE_API uint32_t pxImageReadToImage(const uint16_t *fileName, int32_t type, int32_t border,
                                        tag_pxImage **image);

/* Reads an image file with a region-of-interest mode: 0 the whole image; 1 a record of full size in which
 * only the region of interest stored in the file is read (the rest stays zero); 2 only that region, into a
 * record of its size (origX/origY moved by the region's corner, ROI = whole record). A mode above 2 fails
 * without opening the file. Sets *image to null first. O(pixels read). *image receives the record. */
PXIMAGE_API uint32_t pxImageReadWithROI(const uint16_t *fileName, int32_t type, int32_t border, int32_t roiMode,
                                        tag_pxImage **image);

/* As pxImageReadWithROI; with `transform` set and FLOAT requested from a SHORT, CSHORT or SHORT12 file, the
 * file is read as SHORT and rescaled from 0..65535 to about 0..255 by the conversion engine. O(pixels read).
 * *image receives the record, or stays null on failure. */
PXIMAGE_API uint32_t pxImageReadWithROIandTransform(const uint16_t *fileName, int32_t type, int32_t border,
                                                    int32_t roiMode, int32_t transform, tag_pxImage **image);

/* Writes an image to a file: the "im13" header block, then every plane in type `type` (0: the image's type;
 * CBIT only from UBYTE, CSHORT and SHORT12 only from SHORT, and those three only without a border). Writing
 * CBIT, CSHORT or SHORT12 changes the image's pixels in place (CSHORT: protected pixels get bit 0 set, run
 * starts lose their two low bits); write a copy when the exact pixels are needed afterwards. Inconsistent
 * ROI/orig values are logged as warnings and corrected in the file only. O(pixels). Result 1 or 0; a
 * failed write leaves a partial file on disk. */
PXIMAGE_API uint32_t pxImageWrite(const uint16_t *fileName, int32_t type, tag_pxImage *image);

/* As pxImageWrite; with `transform` set, a FLOAT image written as SHORT is first rescaled from about 0..255
 * to 0..65535 by the conversion engine (into a temporary copy). O(pixels). Result 1 or 0. */
PXIMAGE_API uint32_t pxImageWriteWithTransform(const uint16_t *fileName, int32_t type, int32_t transform,
                                               tag_pxImage *image);

/* ==== Neighbourhood filters =============================================================================== */

/* ---- Box filters (module pxImageBoxFilter) -------------------------------------------------------------- */

/* Window parameter n of this family: the half-width is n / 2 (truncating) and the window spans n / 2 pixels
 * on each side of its centre, that is n pixels for odd n (callers pass odd n). Sums are kept in the pixel
 * type itself: UBYTE sums wrap modulo 256, SHORT sums modulo 65536, FLOAT and DOUBLE sums are single running
 * sums with their rounding drift. Sums, averages and normalisation work on plane 0 inside the regions of
 * interest; source and destination regions must have the same size but may lie at different places. Every
 * destination is constructed by the caller. Failures are traced (no message). */

/* Horizontal windowed sums: each destination pixel of the region receives the sum of the source pixels of
 * its row inside a centred window clipped to the region. Accepts UBYTE, SHORT, FLOAT and DOUBLE; any other
 * type returns 1 without writing. Fails when the source region is narrower than n, when the two regions
 * differ in size, or for n <= -2. With an even n equal to the region width one pixel right of the region
 * is read. O(1) per pixel for every window (running sum). */
PXIMAGE_API uint32_t pxImageBlockSumX(const tag_pxImage *source, int32_t n, tag_pxImage *destination);

/* Vertical windowed sums, as pxImageBlockSumX with rows and columns exchanged (fails when the source
 * region is lower than n). The destination rows serve as the running sums. O(1) per pixel. */
PXIMAGE_API uint32_t pxImageBlockSumY(const tag_pxImage *source, int32_t n, tag_pxImage *destination);

/* Two-dimensional box sums: pxImageBlockSumX into a scratch image, then pxImageBlockSumY into the
 * destination; pixels outside the destination region are untouched. Source and destination must have the
 * same type, one of UBYTE, SHORT, FLOAT, DOUBLE. The results of the two passes are not examined (a region
 * narrower than n leaves sums of a zeroed scratch image). O(1) per pixel; allocates one scratch image. */
PXIMAGE_API uint32_t pxImageBoxSums(const tag_pxImage *source, int32_t n, tag_pxImage *destination);

/* Divides FLOAT box sums in place by the number of region pixels each window covered, as a multiplication
 * by the single-precision reciprocal. For even n the divisors are built on n and the corners on half - 1
 * steps, as this filter has always done. Other types fail. O(pixels of the region). */
PXIMAGE_API uint32_t pxImageBoxNormalize(tag_pxImage *image, int32_t n);

/* Box average: pxImageBoxSums, then pxImageBoxNormalize on the destination, whose result is ignored: for a
 * type other than FLOAT the call returns 1 and leaves the raw sums. Fails only when the sums fail. O(1) per
 * pixel; allocates one scratch image. */
PXIMAGE_API uint32_t pxImageBoxAverage(const tag_pxImage *source, int32_t n, tag_pxImage *destination);

/* Windowed minimum of FLOAT images over the whole image (the region of interest is ignored), the window
 * clipped to the destination's width and height. Starts from +3.4028235e38 and takes a pixel only when it
 * is strictly smaller, so NaN is never taken and an all-NaN window gives +3.4028235e38. Fails for n < 1,
 * types that differ or are not FLOAT, or a source smaller than the destination. Separable search: O(n) per
 * pixel, same bits as the direct search of every window. */
PXIMAGE_API uint32_t pxImageBoxMin(const tag_pxImage *source, int32_t n, tag_pxImage *destination);

/* Windowed maximum, as pxImageBoxMin: starts from -3.4028235e38 and takes strictly greater pixels. */
PXIMAGE_API uint32_t pxImageBoxMax(const tag_pxImage *source, int32_t n, tag_pxImage *destination);

/* Windowed minimum into `minimum` and maximum - minimum into `range` (SHORT: 16-bit, starting from 65535
 * and 0; FLOAT: single precision, starting from +-3.4028235e38 with strict compares, so an all-NaN window
 * gives a range of -infinity). Bounds are the minimum image's width and height. Fails for n < 1, types
 * that differ or are neither SHORT nor FLOAT, or images smaller than the minimum image. O(n) per pixel. */
PXIMAGE_API uint32_t pxImageBoxMinAndRange(const tag_pxImage *source, int32_t n, tag_pxImage *minimum,
                                           tag_pxImage *range);

/* ---- Thresholds, morphology, negation and combination ---------------------------------------------------- */

/* Sets every pixel of plane 0 (whole image, region ignored) to 1 when it is at or above the threshold and
 * to 0 otherwise. The threshold is converted to the pixel type: UBYTE keeps the low 8 bits of the truncated
 * value (256.0 becomes 0); SHORT keeps the low 16 bits and compares as signed 16-bit numbers, so pixels of
 * 32768 and more count as negative; FLOAT compares in single, DOUBLE in double precision (NaN becomes 0).
 * Other types fail. O(pixels). */
PXIMAGE_API uint32_t pxImageThresh2Binary(tag_pxImage *image, double threshold);

/* Sets every pixel of plane 0 below the threshold to 0 and keeps the others (NaN is kept); the threshold
 * is converted and compared as in pxImageThresh2Binary. Other types fail. O(pixels). */
PXIMAGE_API uint32_t pxImageThreshUpper(tag_pxImage *image, double threshold);

/* Binary dilation of a 0/1 UBYTE image with a (2 radius + 1) square clipped to the region of interest:
 * box sums, then threshold 1. Radius below 1 copies plane 0 by the pixel-map conversion copy with each
 * image's border; radius above 7 fails (the byte sums would wrap). Both images UBYTE and of equal size.
 * O(pixels) for every radius; allocates one scratch image. */
PXIMAGE_API uint32_t pxImageDilate(const tag_pxImage *source, int32_t radius, tag_pxImage *destination);

/* Binary erosion, as pxImageDilate with threshold (2 radius + 1)^2: a pixel stays set only when its whole
 * window lies inside the region and is set, so a band of `radius` pixels along the region's edges is
 * cleared. */
PXIMAGE_API uint32_t pxImageErode(const tag_pxImage *source, int32_t radius, tag_pxImage *destination);

/* Replaces every byte of plane 0 (width bytes by height rows) by its complement 255 - value, whatever the
 * pixel type. O(pixels). Always 1. */
PXIMAGE_API uint32_t pxImageOperationsNegate(tag_pxImage *image);

/* Replaces every 32-bit float of plane 0 by 255.0f - value, for any pixel type of at least 4 bytes; a
 * narrower type (whose rows cannot hold width floats) is reported and left alone. O(pixels). Always 1. */
PXIMAGE_API uint32_t pxImageOperationsNegateFloat(tag_pxImage *image);

/* Weighted sum of two UBYTE images over rows 0..height-1 and columns 0..width-1: the output byte is the low
 * 8 bits of firstWeight * a + secondWeight * b (double precision) truncated toward zero, so results wrap
 * (300 gives 44, -1 gives 255). A height or width below 1 returns 1 at once. An image that is missing, not
 * UBYTE or smaller than width x height is reported as an error and nothing is written. O(pixels). Always 1. */
PXIMAGE_API uint32_t pxImageCombine(const tag_pxImage *first, const tag_pxImage *second, double firstWeight,
                                    double secondWeight, int32_t width, int32_t height, tag_pxImage *output);

/* ---- Statistics ------------------------------------------------------------------------------------------ */

/* Pixel count, mean and standard deviation of the rectangle between two corner points (x, y) of plane 0,
 * columns trunc(min x) .. trunc(max x) - 1 and rows likewise; the image's own region of interest is not
 * used. UBYTE and SHORT pixels count as signed 8- and 16-bit numbers; UBYTE, SHORT and INT are summed in
 * wrapping 32-bit integers, FLOAT and DOUBLE in double. With bins != 0 only pixels in [*minimum, *maximum]
 * enter the sums; with bins > 0 and both bounds 0.0 the range is found first, starting from pixel (0, 0).
 * With bins >= 1 every region pixel adds 1 to histogram[floor((value - min) / ((max - min) / bins))]: the
 * histogram is not cleared and needs bins + 1 counters (the maximum lands at index bins). The mean and the
 * deviation divide by the full region count. O(region pixels). *count is always stored once the checks
 * pass; 0 for an empty region (then the result is 0 and *mean is left alone). */
PXIMAGE_API uint32_t pxImageGetAvaragePixValue(const tag_pxImage *image, const double corner1[2],
                                               const double corner2[2], int32_t bins, uint32_t *histogram,
                                               double *minimum, double *maximum, int32_t *count, double *mean,
                                               double *stdDev);

/* pxImageGetAvaragePixValue for the vector length sqrt(fx^2 + fy^2) of a two-image vector field (x and y
 * components). The components are refused only when width, height and type all differ; the type and size
 * of the x component rule (a y component of another type is read by its own type and the length formed in
 * double; the region must lie inside both images). Sums are kept in double. O(region pixels). For an empty
 * region *mean receives sum / 0 before the result 0. */
PXIMAGE_API uint32_t pxImageGetAvarageFlowNorm(const tag_pxImage *flowX, const tag_pxImage *flowY,
                                               const double corner1[2], const double corner2[2], int32_t bins,
                                               uint32_t *histogram, double *minimum, double *maximum,
                                               int32_t *count, double *mean, double *stdDev);

/* ---- Reflection (module pxImageReflect) ------------------------------------------------------------------ */

/* Fills n pixels of the border frame on every side of a FLOAT image (plane 0) from its own pixels, rows
 * first, then whole border rows including the corners. Modes: 1 mirror without repeating the edge, 2 wrap
 * with a shared edge (also averages the first and last pixel of every row, and of rows 0 and h-1 at column
 * w+n), 3 replicate, 4 point mirror (2*edge - mirrored), 5 zero, 6 plain wrap. Indices are clamped to the
 * image, so images narrower than n repeat pixels. n < 1 fills nothing. Refuses other types, n > border and
 * other modes, changing nothing. O(n * (width + height)). */
PXIMAGE_API uint32_t pxImageReflect(tag_pxImage *image, int32_t n, int32_t mode);

/* ==== Warps, de-interlacing and lens-distortion resampling ================================================== */

/* ---- Warps (module pxImageWarp) ------------------------------------------------------------------------- */

/* Value of a FLOAT warp result whose source position falls outside the source image: the largest finite
 * float, 3.4028235e38 (bit pattern 0x7f7fffff), so that later stages can recognise it. */
#define pxImage_INVALID_PIXEL 3.4028235e38f

/* Integer shift: builds *target (the source's type, width and height, border 0, one plane) in which pixel
 * (x, y) is source pixel (x + dx, y + dy) of plane 0 where that lies inside the image, else 0. UBYTE, SHORT,
 * INT, FLOAT and DOUBLE; any other type is refused ("unsupported format for TranslationWarp", code
 * 0xC43D0003) after the target was built and destroyed again. O(pixels), copies whole row segments. *target
 * receives the image, or null on failure. */
PXIMAGE_API uint32_t pxImageTranslationWarpInt(const tag_pxImage *source, int32_t dx, int32_t dy,
                                               tag_pxImage **target);

/* Sub-pixel shift of a FLOAT image into the existing FLOAT image *target (its own width and height drive
 * the loops): target pixel (x, y) is the bilinear sample of the source at (x + dx * scale, y + dy * scale),
 * computed in single precision, with the interpolation rule and the invalid-pixel marker of
 * pxImageAffineWarp. Refused, writing nothing, unless |dx| < width - 1 and |dy| < height - 1 of the source
 * ("\n Warping transformation is too rought \n", code 0xC43D0003), and for images that are missing, not
 * FLOAT or without pixels, or a target that is the source. O(target pixels). */
PXIMAGE_API uint32_t pxImageTranslationWarp(const tag_pxImage *source, float dx, float dy, float scale,
                                            tag_pxImage **target);

/* Affine resampling of a FLOAT image into the existing FLOAT image *target. a and b are offsets from the
 * identity: after both arrays have been multiplied by scale IN PLACE (the caller's arrays hold a * scale and
 * b * scale afterwards), target pixel (x, y) reads the source at u = a0 + x + a1 x + a2 y, v = b0 + y + b1 x
 * + b2 y, in single precision. Inside [0, width - 1] x [0, height - 1] of the source the value is bilinear:
 * i = min(floor(v), height - 2), j = min(floor(u), width - 2), top and bottom interpolated along the row with
 * u - j, then between them with v - i (so the last column and row use the clamped index and a weight of
 * 1); elsewhere it is pxImage_INVALID_PIXEL. Refused, writing nothing and leaving a and b unscaled, unless
 * the unscaled |a0| < width - 1 and |b0| < height - 1 of the source ("\n Warping transformation is too rought
 * \n", code 0xC43D0003), and for images that are missing, not FLOAT or without pixels, a target that is the
 * source, or null arrays. O(target pixels). */
PXIMAGE_API uint32_t pxImageAffineWarp(const tag_pxImage *source, float a[3], float b[3], float scale,
                                       tag_pxImage **target);

/* Dense warp by two displacement maps, done by img_4_px's bilinear_warp with fill value -1.0: for every
 * pixel (x, y) of the maps, target(x, y) = the bilinear sample of the source at (x + first(x, y),
 * y + second(x, y)); target pixels beyond the maps are untouched. All four images FLOAT, else sendError
 * 0xC41A0018; maps of equal size and a target at least as large, else sendError 0xC41A0019; a missing image,
 * one without pixels, or a target sharing its pixels with the source or a map is refused with code
 * 0xC43D0003. The target's origType becomes the source's. O(map pixels). */
PXIMAGE_API uint32_t pxImageBilinearWarp(const tag_pxImage *source, const tag_pxImage *first,
                                         const tag_pxImage *second, tag_pxImage **target);

/* Masked dense warp, done by img_4_px's bilinear_warp_masked: where the UBYTE mask is non-zero the target
 * pixel is the bilinear sample as in pxImageBilinearWarp; where the mask is 0, or the sample falls outside
 * the source, it keeps the third image's value at the same position. Source, maps, third image and target
 * FLOAT and mask UBYTE, else sendError 0xC41A001A; the size rule of pxImageBilinearWarp (0xC41A0019); source
 * and target borders of at least 3, else sendError 0xC41A001B; third image and mask smaller than the maps,
 * an image missing or without pixels, or a target that is the source, a map or the mask, are refused with
 * code 0xC43D0003 (the target may be the third image). The target's origType becomes the source's.
 * O(map pixels). */
PXIMAGE_API uint32_t pxImageBilinearWarpMasked(const tag_pxImage *source, const tag_pxImage *first,
                                               const tag_pxImage *second, const tag_pxImage *third,
                                               const tag_pxImage *mask, tag_pxImage **target);

/* ---- De-interlacing (module pxImageDeInterlace) -------------------------------------------------------- */

/* Splits plane 0 of an interlaced frame into its fields by copying whole rows: rows 0, 2, 4, ... into
 * `even` (height h / 2 + h % 2) and rows 1, 3, ... into `odd` (height h / 2). Either field may be null, not
 * both. The fields are existing images of the source's type and width; only their pixels are written
 * (headers and margins untouched). Refusals through sendError, writing nothing: 0xC41A000C no field,
 * 0xC41A000D a source type outside 1..8 or of size 0 (argument: the type), 0xC41A000E a field of another
 * type, 0xC41A000F a field of the wrong size; an image without pixels or of negative size is refused with
 * code 0xC43D0003. O(pixels). */
PXIMAGE_API uint32_t pxImageDeInterlace(const tag_pxImage *source, tag_pxImage *even, tag_pxImage *odd);

/* ---- Lens-distortion resampling (module pxImageFixAber) ------------------------------------------------ */

/* Resamples plane 0 of a FLOAT image in place through the full lens model about the centre (cx, cy) (a
 * negative value: width * 0.5 or height * 0.5): each output pixel averages n x n nearest-pixel samples, the
 * sub-pixel (xs, ys) being read at xs + dx R + 2 p2 dx dy + p1 (r2 + 2 dx^2), ys + dy R + 2 p1 dx dy
 * + p2 (r2 + 2 dy^2) with dx = xs - cx, dy = ys - cy, r2 = dx^2 + dy^2, R = (k3 r2^2 + k2 r2 + k1) r2, in
 * double precision; an output pixel with any sample outside [0, width - 1) x [0, height - 1) is 0, so with
 * all coefficients 0 and n = 1 the last column and row become 0. Stores the coefficients and the centre used
 * in aberK1..aberCy. Other types, n outside 1..46340 (n * n must fit in 32 bits), non-finite arguments and
 * an image without pixels are refused, leaving the image unchanged. O(pixels * n^2); allocates a temporary
 * image of the same shape and exchanges its plane 0 with the image's. */
PXIMAGE_API uint32_t pxImageAber(tag_pxImage *image, double k1, double k2, double k3, double p1, double p2,
                                 double cx, double cy, int32_t n);

/* Undoes the one-coefficient radial model r = u (1 + k u^2) on plane 0 in place: each output pixel at
 * radius r from the centre (cx, cy) (negative: width * 0.5 or height * 0.5) is read bilinearly at radius u
 * on the same ray, u from one Newton step of k u^3 + u = r per pixel, warm-started from the pixel above (and
 * at the top of a column from the top of the previous column; the first from a root of the cubic), in double
 * precision; outside [0, width - 1) x [0, height - 1) the pixel is 0. UBYTE and SHORT results are truncated,
 * INT, FLOAT and DOUBLE rows are processed as 32-bit floats. The region of interest is narrowed to what stays
 * valid; the aberration fields are not changed. k = 0 returns 1 at once; k < -1e-7 logs the warning
 * "Possible division by 0!" (level 3) and goes on. A missing image, one without pixels, types of 1 or 2
 * bytes other than UBYTE and SHORT, and non-finite k, cx or cy are refused with code 0xC43D0003, changing
 * nothing. O(pixels); allocates a temporary image of the same shape. */
PXIMAGE_API uint32_t pxImageFixAber(tag_pxImage *image, double k, double cx, double cy);

#ifdef __cplusplus
}
#endif

#endif /* PXIMAGE_H */
