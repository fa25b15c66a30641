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

/* ==== Pixel types ======================================================================================= */

/* Pixel type codes. CBIT, CSHORT and SHORT12 are file encodings; in memory they are held as UBYTE or SHORT.
 * Type 0 as an argument means "the source's type". */
enum pxImagePixelType {
    CBIT = 1,   /* bi-level data of a CBIT file, 1 byte */
    UBYTE = 2,  /* unsigned 8-bit */
    SHORT = 3,  /* unsigned 16-bit */
    CSHORT = 4, /* compressed 16-bit file data, 2 bytes */
    INT = 5,    /* signed 32-bit */
    FLOAT = 6,  /* 32-bit IEEE float */
    DOUBLE = 7, /* 64-bit IEEE float */
    SHORT12 = 8 /* 12-bit samples held in 16 bits */
};

/* Largest frame size accepted for origWidth and origHeight (one more than the largest image width). */
#define pxImage_MAX_SIZE 10000

/* ==== The image record ================================================================================== */

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

/* ==== Record and lifecycle (module pxImage) ============================================================= */

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

/* ==== Pixel conversion ================================================================================== */

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

/* ==== Image files ======================================================================================= */

/* ---- Header block -------------------------------------------------------------------------------------- */

/* Reads one 512-byte header block (any of the versions "img1".."im13"; an unknown tag is read as "im13") from
 * the current position of a file opened in binary mode and builds a new image header (no pixel maps) with
 * pixel type `type` (0: the stored type) and border `border` (0..999). Sets *header to null first. O(1):
 * reads 512 bytes. On success *header receives the header, *origType the stored type code and the file
 * stands at the first byte of the pixel data; on failure *header stays null. */
PXIMAGE_API uint32_t pxImageHeaderRead(FILE *file, int32_t type, int32_t border, tag_pxImage **header,
                                       int32_t *origType);

/* ---- Reading and writing ------------------------------------------------------------------------------- */

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
PXIMAGE_API uint32_t pxImageReadWithROI(const uint16_t *fileName, int32_t type, int32_t border,
                                        int32_t roiMode, tag_pxImage **image);

/* As pxImageReadWithROI; with `transform` set and FLOAT requested from a SHORT, CSHORT or SHORT12 file, the
 * file is read as SHORT and rescaled from 0..65535 to about 0..255 by the conversion engine. O(pixels read).
 * *image receives the record, or stays null on failure. */
PXIMAGE_API uint32_t pxImageReadWithROIandTransform(const uint16_t *fileName, int32_t type, int32_t border,
                                                    int32_t roiMode, int32_t transform, tag_pxImage **image);

/* Writes an image to a file: the "im13" header block, then every plane in type `type` (0: the image's type;
 * CBIT only from UBYTE, CSHORT and SHORT12 only from SHORT, and those three only without a border). Writing
 * CBIT, CSHORT or SHORT12 changes the image's pixels in place (CSHORT: protected pixels get bit 0 set, run
 * starts lose their two low bits); write a copy when the exact pixels are needed afterwards. Inconsistent
 * ROI/orig values are logged as warnings and corrected in the file only. Those three encodings hold one
 * plane: an image of several planes is refused as CBIT, CSHORT or SHORT12 with an invalid-argument error
 * before any file is created. O(pixels). Result 1 or 0; a failed write leaves a partial file on disk, and
 * the result of closing the file is not looked at, so data that the system refuses at the close (a full
 * disk, a file-size limit) is lost with result 1: use pxImageWriteChecked where that matters. */
PXIMAGE_API uint32_t pxImageWrite(const uint16_t *fileName, int32_t type, tag_pxImage *image);

/* As pxImageWrite; with `transform` set, a FLOAT image written as SHORT is first rescaled from about 0..255
 * to 0..65535 by the conversion engine (into a temporary copy). O(pixels). Result 1 or 0. */
PXIMAGE_API uint32_t pxImageWriteWithTransform(const uint16_t *fileName, int32_t type, int32_t transform,
                                               tag_pxImage *image);

/* As pxImageWrite, but success means the data reached the system: the file is flushed and closed, and a
 * failure of either fails the call with the file input/output error (0xC43D0031, errno and its text). On
 * any failure after the file was opened, the partly written file is removed (a regular file only: a device
 * named as the target is left alone), so no truncated file stays behind; an existing file of that name is
 * lost either way, as with every "wb" write. Multi-plane images are refused as CBIT, CSHORT or SHORT12 as
 * by pxImageWrite. O(pixels). Result 1 or 0. */
PXIMAGE_API uint32_t pxImageWriteChecked(const uint16_t *fileName, int32_t type, tag_pxImage *image);

/* pxImageWriteWithTransform with the checks and clean-up of pxImageWriteChecked. O(pixels). Result 1 or
 * 0. */
PXIMAGE_API uint32_t pxImageWriteWithTransformChecked(const uint16_t *fileName, int32_t type,
                                                      int32_t transform, tag_pxImage *image);

/* ==== Neighbourhood filters ============================================================================= */

/* ---- Box filters (module pxImageBoxFilter) ------------------------------------------------------------- */

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

/* ---- Thresholds, morphology, negation and combination -------------------------------------------------- */

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
 * pixel type; a type whose pixels have no bytes (type 0), whose rows cannot hold width bytes, is reported
 * and left alone. O(pixels). Always 1. */
PXIMAGE_API uint32_t pxImageOperationsNegate(tag_pxImage *image);

/* Replaces every 32-bit float of plane 0 by 255.0f - value, for any pixel type of at least 4 bytes; a
 * narrower type (whose rows cannot hold width floats) is reported and left alone. O(pixels). Always 1. */
PXIMAGE_API uint32_t pxImageOperationsNegateFloat(tag_pxImage *image);

/* Weighted sum of two UBYTE images over rows 0..height-1 and columns 0..width-1: the output byte is the low
 * 8 bits of firstWeight * a + secondWeight * b (double precision) truncated toward zero, so results wrap
 * (300 gives 44, -1 gives 255). A height or width below 1 returns 1 at once. An image that is missing, not
 * UBYTE or smaller than width x height is reported as an error and nothing is written.
 * O(pixels). Always 1. */
PXIMAGE_API uint32_t pxImageCombine(const tag_pxImage *first, const tag_pxImage *second, double firstWeight,
                                    double secondWeight, int32_t width, int32_t height, tag_pxImage *output);

/* ---- Statistics ---------------------------------------------------------------------------------------- */

/* Pixel count, mean and standard deviation of the rectangle between two corner points (x, y) of plane 0,
 * columns trunc(min x) .. trunc(max x) - 1 and rows likewise; the image's own region of interest is not
 * used. UBYTE and SHORT pixels count as signed 8- and 16-bit numbers; UBYTE, SHORT and INT are summed in
 * wrapping 32-bit integers, FLOAT and DOUBLE in double. With bins != 0 only pixels in [*minimum, *maximum]
 * enter the sums; with bins > 0 and both bounds 0.0 the range is found first, starting from pixel (0, 0).
 * With bins >= 1 every region pixel adds 1 to histogram[floor((value - min) / ((max - min) / bins))]: the
 * histogram is not cleared and needs bins + 1 counters (the maximum lands at index bins; a value below the
 * minimum, a NaN and an index without a value count in bin 0). A pixel whose index would be above bins (above
 * a caller's range, or past a range that a NaN pixel broke) is not counted. The mean and the
 * deviation divide by the full region count. O(region pixels). *count is always stored once the checks
 * pass; 0 for an empty region (then the result is 0 and *mean is left alone). */
PXIMAGE_API uint32_t pxImageGetAvaragePixValue(const tag_pxImage *image, const double corner1[2],
                                               const double corner2[2], int32_t bins, uint32_t *histogram,
                                               double *minimum, double *maximum, int32_t *count, double *mean,
                                               double *stdDev);

/* pxImageGetAvaragePixValue for the vector length sqrt(fx^2 + fy^2) of a two-image vector field (x and y
 * components). The components are refused only when width, height and type all differ; the type and size
 * of the x component rule, and the region must lie inside both images. A y component of another type is
 * read with the x component's type from its rows' bytes; it is refused ("y component rows too short to be
 * read with the x component's pixel type") when its rows, margin excluded, cannot hold pixels of that type up
 * to the region's right edge (and at least one). Integer lengths whose 32-bit sum of squares wraps negative
 * are NaN. Sums are kept in double. O(region pixels). For an empty region *mean receives sum / 0 before the
 * result 0. */
PXIMAGE_API uint32_t pxImageGetAvarageFlowNorm(const tag_pxImage *flowX, const tag_pxImage *flowY,
                                               const double corner1[2], const double corner2[2], int32_t bins,
                                               uint32_t *histogram, double *minimum, double *maximum,
                                               int32_t *count, double *mean, double *stdDev);

/* ---- Reflection (module pxImageReflect) ---------------------------------------------------------------- */

/* Fills n pixels of the border frame on every side of a FLOAT image (plane 0) from its own pixels, rows
 * first, then whole border rows including the corners. Modes: 1 mirror without repeating the edge, 2 wrap
 * with a shared edge (also averages the first and last pixel of every row, and of rows 0 and h-1 at column
 * w+n), 3 replicate, 4 point mirror (2*edge - mirrored), 5 zero, 6 plain wrap. Indices are clamped to the
 * image, so images narrower than n repeat pixels. n < 1 fills nothing. Refuses other types, n > border and
 * other modes, changing nothing. O(n * (width + height)). */
PXIMAGE_API uint32_t pxImageReflect(tag_pxImage *image, int32_t n, int32_t mode);

/* ==== Annotation (module pxImageMarkPts) ================================================================ */

/* Point crosses and ellipses drawn into images for visual inspection of detected features, and magnified,
 * pixel-replicated cut-outs with the marks drawn at the magnified scale.
 *
 * Points are arrays of n (x, y) pairs of doubles (2 n doubles), x the column and y the row. A point marks
 * the pixel (truncate(x + 0.5), truncate(y + 0.5)): conversion toward zero after adding 0.5, so negative
 * coordinates round toward zero. A cross of size s has arms of s / 2 (integer division) pixels on each side
 * of its centre (size 0 or 1: the centre pixel alone; size 4: a 5 x 5 "+").
 *
 * The value written depends on the pixel type: UBYTE the colour's low byte, SHORT its low 16 bits, INT the
 * 32-bit word as it stands, FLOAT and DOUBLE the colour converted from integer. Other types (CBIT, CSHORT,
 * SHORT12) get nothing: each such point is reported (code 0xC41A0004) and marking goes on.
 *
 * Crosses are not clipped to the image: whatever falls inside the image or its border (margin) is written
 * as drawn. A cross or point that would reach outside the plane's storage, margin included, is a caller
 * error: it is reported (code 0xC43D0003) and skipped, the other points are still drawn, and the call
 * returns 0. Nothing is ever written outside the pixel buffer.
 *
 * Settings: the cross size and the colour are process-wide. They are read once per process from the
 * configuration keys "pxImageMarkPtsCrossSize" (default 1) and "pxImageMarkPtsColor" (default 0) by
 * pxImageMarkPts_init, or on the first marking call when neither pxImageMarkPts_init nor
 * pxImageMarkPtsSetParams ran before it, and can be replaced at any time by pxImageMarkPtsSetParams. They
 * are unguarded: the calls that set or first read them must not race with each other or with marking, so
 * call pxImageMarkPts_init or pxImageMarkPtsSetParams once before marking from several threads. Marking
 * itself is safe from several threads on distinct images. */

struct pxMath2DEllipse; /* the ellipse record of pxMath.h: centre, semi-axes, angle */

/* Reads "pxImageMarkPtsColor" (default 0) into the colour and then "pxImageMarkPtsCrossSize" (default 1)
 * into the cross size. A value that does not parse leaves the key's default in its setting, logs a trace
 * and returns 0 (a bad colour stops before the size is read). Not thread-safe (see above). O(1). Result 1
 * when both keys were read. */
PXIMAGE_API uint32_t pxImageMarkPts_init(void);

/* Replaces both settings: the cross size (arms of crossSize / 2 pixels) and the colour, kept as a raw
 * 32-bit word. Not thread-safe (see above). O(1). Always 1. */
PXIMAGE_API uint32_t pxImageMarkPtsSetParams(int32_t crossSize, int32_t colour);

/* Draws a cross in the module's colour and size at each of the n points, in array order, into plane 0 of
 * the image. n <= 0 marks nothing and returns 1 at once. O(n * size). Result 1; 0 when the points or the
 * image (with pixels) are missing, or when a cross reached outside the storage and was skipped. An
 * unsupported pixel type is reported once per point and the result is still 1. */
PXIMAGE_API uint32_t pxImageMarkPts(const double *points, int32_t n, tag_pxImage *image);

/* Magnified cut-out of a FLOAT image around points, with the points marked at the magnified scale.
 * magnification m >= 1. When *output is null, the region is the bounding box of the n truncated points,
 * widened by one pixel on each side where that stays within the image, and a new image of the source's
 * type, border and planes, (region width) * m by (region height) * m pixels, receives every source pixel
 * of the region (of every plane) as an m x m block; region pixels outside the source stay 0. When *output
 * already holds an image, it is reused as it is (not refilled) and the region corners are read from the
 * two pairs that follow the n points: points[n] = (xmin, ymin), points[n + 1] = (xmax, ymax), truncated.
 * The points are then mapped to ((x - xmin + 0.5) * m, (y - ymin + 0.5) * m), the centre of their source
 * pixel in the magnified image, and marked with pxImageMarkPts. A negative n counts as 0. Cost:
 * O(output pixels + n * size); allocates the output (when new) and a scratch array of n pairs. Result 1/0;
 * a newly constructed output image stays in *output on a later failure (the caller destroys it). */
PXIMAGE_API uint32_t pxImageMarkPtsMagnify(const double *points, int32_t n, int32_t magnification,
                                           const tag_pxImage *source, tag_pxImage **output);

/* Magnified cut-out of a UBYTE image around an ellipse. With r = truncate(a + 0.5), the cut-out is the 4r x
 * 4r square of source pixels whose top-left pixel is (truncate(cx + 0.5) - 2r, truncate(cy + 0.5) - 2r)
 * (only a sets it: an ellipse with b > 2a is partly cut away); a new UBYTE image of 4 r m x 4 r m pixels
 * with the source's border and planes receives each of its pixels as an m x m block (pixels outside the
 * source stay 0). N = truncate((a + b) * pi + 0.5) * m * 3 contour samples are mapped to the cut-out
 * (((x - x0) + 0.5) * m, ((y - y0) + 0.5) * m), those outside it are dropped, the rest are marked as
 * crosses (pxImageMarkPts), and the five pixels of a "+" at the mapped centre that lie inside are
 * inverted (p := 255 - p). *output must be null on entry; magnification >= 1; the ellipse must be finite
 * with non-negative semi-axes and give 1 .. 2^31 - 6 samples. Cost: O(output pixels + N * size); allocates
 * the output and N + 5 point pairs. Result 1/0; a constructed output stays in *output on a later failure. */
PXIMAGE_API uint32_t pxImageMarkEllipse(const struct pxMath2DEllipse *ellipse, int32_t magnification,
                                        const tag_pxImage *source, tag_pxImage **output);

/* Draws an ellipse and extra points into the UBYTE image *image, after checking that `checked` is a UBYTE
 * image with pixels (usually the same image). N = truncate((a + b) * pi + 0.5) * 3 contour samples; those
 * outside *image are dropped and the rest marked as crosses (pxImageMarkPts); the five pixels of a "+" at
 * (cx + 0.5, cy + 0.5) that lie inside are inverted (p := 255 - p), so a second call restores them; then
 * each of the n extra points sets its pixel (truncate(x + 0.5), truncate(y + 0.5)) to 255, unclipped (a
 * point outside the storage is reported and skipped). Ellipse conditions as for pxImageMarkEllipse (with
 * m = 1). Cost: O(N * size + n); allocates N + 5 point pairs. Result 1/0. */
PXIMAGE_API uint32_t pxImageMarkEllipseAndPts(const struct pxMath2DEllipse *ellipse,
                                              const tag_pxImage *checked, const double *points, int32_t n,
                                              tag_pxImage **image);

/* ==== Geometry: cut, extend, region extraction, pyramids ================================================ */

/* ---- Cut and extend (modules pxImageCut, pxImageExtend) ------------------------------------------------ */

/* Copies the target's width x height pixels of plane 0 from column x, row y of the source into the target,
 * with conversion to the target's type when the types differ. x and y are compared as signed numbers
 * (source width < target width + x fails with error 0xC41A0005 and the six sizes), so an origin of 2^31 or
 * more reaches into the margin; a cut whose rows would leave the source's storage is refused as an
 * invalid argument. Logs "cut WxH+X+Y on image WxH" at level 0.
 * Same type: the target's origX/origY become the source's plus (x, y), origWidth/origHeight are copied and
 * the region of interest is the source's moved by (-x, -y) and clipped to the target (it may come out empty
 * or inverted); only plane 0 is written, the target's margin and other planes are not touched.
 * Other type: the cut goes through a scratch image of the source's type and the target's shape, whose
 * every plane is then converted into the target's (pxImagePixMapConvertCopy with `transform`, margins
 * included); the target's header keeps the origin and region the caller gave it, and a failure may leave
 * its planes partly written. O(cut pixels); the converting path allocates one scratch image. */
PXIMAGE_API uint32_t pxImageCutWithTransform(const tag_pxImage *source, uint32_t x, uint32_t y,
                                             int32_t transform, tag_pxImage *target);

/* pxImageCutWithTransform without the SHORT<->FLOAT transform. */
PXIMAGE_API uint32_t pxImageCut(const tag_pxImage *source, uint32_t x, uint32_t y, tag_pxImage *target);

/* Enlarges plane 0 of a byte image by pixel replication: target[r][c] = source[r / factor][c / factor]
 * (truncating division) for every row and column of the target, whose size drives the loops; the bytes
 * are read and written as single bytes whatever the types. A target larger than factor times the source
 * reads the source's margin (and past a row's end its next row). Missing images or pixels, a factor of 0,
 * and reads or writes that would leave either plane's storage are reported as invalid arguments and
 * nothing is written. O(target pixels). Always 1. */
PXIMAGE_API uint32_t pxImageExtend(const tag_pxImage *source, int32_t factor, tag_pxImage *target);

/* ---- Automatic region extraction (module pxImageRoi) --------------------------------------------------- */

/* Finds the rectangle of plane 0 that holds textured content. Every 6 x 6 block that lies wholly inside
 * the image (a last partial strip of up to 6 pixels is not tested) is kept when 36 times the variance of
 * its pixels read as bytes is at least 100 and the single-precision sum of the same pixels read as floats
 * lies in [345.6, 7344] (meant for float images of 0..255; other types are read the same two ways). Then,
 * from the whole image, the edge whose 20-pixel strip has the largest share of unkept pixels (right, left,
 * bottom, top on ties) moves inward by 20 while that share exceeds 0.6; peeling stops too when the chosen
 * strip reaches outside the image (such a strip is traced and keeps its earlier share, 0 at first).
 * With *found > 0 on entry, rect receives left, top, right, bottom (right and bottom one past the region,
 * right <= left when nothing is textured) and *found becomes 1; otherwise *found becomes 0 and rect is not
 * written. Images whose float reads would leave their storage (pixels narrower than a float, as UBYTE and
 * SHORT, unless the image is tiny or has a wide margin) are refused as invalid arguments. O(pixels) for the
 * blocks plus O(20 (width + height)) for each of at most (width + height) / 10 peeling rounds; allocates
 * one mask image of the image's type and size. */
PXIMAGE_API uint32_t pxImageRoi(const tag_pxImage *image, int32_t rect[4], int32_t *found);

/* ---- Reduction and pyramids (module pxImagePyr) -------------------------------------------------------- */

/* Number of levels of a pyramid. */
#define pxImage_PYR_LEVELS 15

/* A pyramid: level 0 the largest image, each further level half the size of the one before (odd sizes
 * round up); levels not built are null. Owned by the caller; all levels share type, border and planes. */
typedef tag_pxImage *pxImagePyramid[pxImage_PYR_LEVELS];

/* Sets level 0 of the array to null, and only level 0 (the caller clears the others). O(1). */
PXIMAGE_API uint32_t pxImagePyrSetNull(tag_pxImage **pyramid);

/* Builds the headers (no pixel maps) of every level around level `level` (0..14) of width x height: the
 * levels below it twice as large each, the levels above it ((w + 1) / 2) x ((h + 1) / 2) each while the
 * smaller side of the level below is at least 2. Entries are overwritten without being destroyed. A
 * pyramid that would need more than 15 levels is refused before anything is built; a level that cannot
 * be constructed (a side above 9999, say) fails, leaving the levels already built for pxImagePyrDestruct.
 * O(levels). */
PXIMAGE_API uint32_t pxImagePyrHeaderConstruct(tag_pxImage **pyramid, int32_t level, int32_t width,
                                               int32_t height, int32_t type, int32_t border, int32_t planes);

/* Builds the zero-filled pixel maps of levels firstLevel..lastLevel (nothing when first > last). Every
 * level must have a header of exactly this type, border and plane count and no pixel maps yet, else
 * nothing is built. On a
 * failed allocation the maps built so far stay (pxImagePyrDestruct frees them). O(pixels). */
PXIMAGE_API uint32_t pxImagePyrPixMapConstruct(int32_t type, int32_t border, int32_t planes,
                                               int32_t firstLevel, int32_t lastLevel, tag_pxImage **pyramid);

/* Fills levels firstLevel+1..lastLevel by pxImageReduce from the level below each; first >= last does
 * nothing and gives 1. Stops at the first failure, the levels before it filled. O(pixels of firstLevel). */
PXIMAGE_API uint32_t pxImagePyrReduce(tag_pxImage **pyramid, int32_t firstLevel, int32_t lastLevel,
                                      const float kernel[3]);

/* Destroys the images of all 15 levels (null levels are fine) and sets them to null. O(levels). */
PXIMAGE_API uint32_t pxImagePyrDestruct(tag_pxImage **pyramid);

/* One level of reduction of plane 0 of a FLOAT image into an existing FLOAT target of w x h (normally
 * ((W + 1) / 2) x ((H + 1) / 2)): every row filtered at every second column, then every column of that at
 * every second row, with the 5-tap kernel k0 (centre), k1, k2 taken as normalised in the interior; the
 * first, last and second-to-last positions of a line use the weights that fall inside it, divided by their
 * sum. Single precision throughout. A source 1 or 2 pixels wide reads past its rows' ends (into the margin
 * or the next row); sources lower than 3 rows, targets larger than the halved source, and reads that would
 * leave the source's storage are refused as invalid arguments, as are other types. O(pixels); allocates
 * one scratch image of w x 5 (the row-filtered rows in use). */
PXIMAGE_API uint32_t pxImageReduce(const tag_pxImage *source, tag_pxImage **target, const float kernel[3]);

/* ==== Preprocessing for correspondence search (module pxImagePreproc) =================================== */

/* The modes remove slowly varying illumination by comparing every pixel with a local mean (and most with a
 * local standard deviation) over a square window. All arithmetic is single precision unless said otherwise.
 * Where a mode divides by a standard deviation s = sqrt(v) it uses v * r(v), r(v) a fast approximation of
 * 1/sqrt(v) (bit-pattern start value and four Newton steps; relative error about 1e-7), or the real square
 * root where a comment says so. Settings are read through pxEnv on a mode's first call and kept for the
 * process. Failures leave a trace chain at level 1 (module pxImagePreproc); an in-place mode that fails
 * half-way leaves the image partly processed. Local means come from img_4_px's blur and
 * blurIgnoreSaturation (window shrunk to the image at its edges) or from the Gaussian bridge below. */

/* Local zero-mean, unit-variance normalisation in place: d = image - mean, v = box mean of d^2, then
 * image = gain * d / s + offset with s = v * r(v) where v > minSigma^2 and s = minSigma otherwise (a flat
 * image becomes `offset`). Allocates one scratch image (alloc_image, border Image_border; failure reported
 * through sendError, code 0xC43D0310). Two box means; O(pixels) for every window. A failing blur returns 0
 * without releasing the scratch image. Refuses (level-5 error, code 0xC43D0003) a null or empty image and a
 * window below 1. */
PXIMAGE_API uint32_t pxImagePreproc(FIMAGE *image, int32_t window, float offset, float gain, float minSigma);

/* Log ratio to the local mean in place: image = ln(image / mean); `scratch` (same size) receives the mean.
 * The mean is, in this order of precedence: with ignoreSaturation != 0 the box mean of the pixels below
 * saturationLevel (and only pixels strictly below it are transformed; the others keep their value); with
 * the setting "useGaussianBlur" (int, default 0) non-zero a Gaussian blur of kernel size
 * "corresPrepInitialFilterWinSize" (int, 13) and sigma "corresPrepInitialSigma" (double, 3.0), the window
 * argument then unused; otherwise the box mean over `window`. O(pixels). A Gaussian size that OpenCV
 * refuses (even, or below 1 with sigma 0) is reported (code 0xC43D0003) and returns 0. */
PXIMAGE_API uint32_t pxImagePreprocAdaptiveLog(FIMAGE *image, FIMAGE *scratch, int32_t window,
                                               int32_t ignoreSaturation, float saturationLevel);

/* Normalisation clamped to [-bound, bound] and scaled to [-127.5, 127.5] in place; `scratch` (same size)
 * receives the local variance. bound below 1.0 (or NaN) returns 0 and changes nothing. Without
 * ignoreSaturation: z = d / sqrt(max(v, minSigma^2)) (real square root) with mean and variance from a box
 * mean over `window`, or, when the setting "corresPrepFilterWinSize" (int, default 0) is non-zero, from a
 * Gaussian blur of that size and sigma "corresPrepSigma" (double, 2.0). With ignoreSaturation: pixels at
 * or above saturationLevel are left out of both box means and end as 255.0; the others get
 * z = d / minSigma where v <= minSigma^2, else d / (v * r(v)); both clamped and multiplied by
 * 127.5 / bound. No offset is added. O(pixels). A Gaussian size that OpenCV refuses is reported as in
 * pxImagePreprocAdaptiveLog. */
PXIMAGE_API uint32_t pxImagePreprocBounded(FIMAGE *image, FIMAGE *scratch, int32_t window, float bound,
                                           float minSigma, int32_t ignoreSaturation, float saturationLevel);

/* Grows saturated areas by one pixel: for every interior pixel (rows 1..height-2, columns 1..width-2) of
 * `reference` at or above saturationLevel, its four edge neighbours in `image` are set to saturationLevel.
 * With copyFirst != 0 `reference` first becomes a copy of `image`. Pixels of the outermost rows and columns
 * are never tested but can be set by an interior neighbour. O(pixels). Images of different sizes or with
 * a null row are refused with a level-5 error (code 0xC43D0003) and nothing is changed. */
PXIMAGE_API void pxImagePreprocWidenSaturation(FIMAGE *image, FIMAGE *reference, float saturationLevel,
                                               int32_t copyFirst);

/* Tone mapping of plane 0 of a record to about 0..255 in a new FLOAT record (border Image_border, other
 * planes converted only): with lo and hi the smallest and largest pixel, a source whose origType is UBYTE
 * gets p = (p - lo)^0.1 * 255 / (hi - lo)^0.1, any other p = ln(p - lo + offset) * 255 / ln(hi - lo +
 * offset). O(pixels). Returns the record (the caller destroys it), or null when the conversion fails. */
PXIMAGE_API tag_pxImage *pxImagePreprocLog(const tag_pxImage *source, float offset);

/* Local normalisation of plane 0 of a record into a new FLOAT record (border Image_border) converted with
 * the SHORT->FLOAT transform: out = (M - lo) * meanGain + (x - M) * gain / s, with M the mean and s the
 * standard deviation over a window x window square (s = sqrt(v), real square root; where v <= 0 only the
 * first term), lo the smallest mean. With ignoreSaturation != 0, pixels >= 255.0 are left out of the means
 * and keep their converted value, and s = v * r(v). The means cover rows and columns window/2 ..; the edge
 * band (and, without ignoreSaturation, the last window/2 rows above it) has mean 0. `unused` is not read.
 * Window 1..min(width, height), else refused (code 0xC43D0003). O(pixels) without ignoreSaturation,
 * O(pixels * window^2) with it. Returns the record (the caller destroys it), or null, releasing every
 * intermediate. */
PXIMAGE_API tag_pxImage *pxImagePreprocStandard(const tag_pxImage *source, int32_t window, float unused,
                                                float gain, float meanGain, int32_t ignoreSaturation);

#ifdef __cplusplus
} /* extern "C" */

/* Blurs an img_4_px float image in place with OpenCV's Gaussian filter: kernel size x size, sigma in both
 * directions, borders reflected without repeating the edge pixel. Rows may lie back to back or at any
 * even stride (images of alloc_image with a margin); the margin is neither read nor written. Exported with
 * C++ linkage. O(pixels * size). Returns true; false, with a level-5 error (module pxImagePreproc, code
 * 0xC43D0003) and nothing changed, for a null or empty image, a null row, or rows that are not evenly spaced
 * in increasing order. A size below 1 with sigma > 0 lets OpenCV choose the size from sigma; errors raised by
 * OpenCV itself (an even size, a size below 1 with sigma 0) propagate as cv::Exception. */
PXIMAGE_API bool BlurByGaussianFilterUsingOpenCv(FIMAGE *image, int kernelSize, double sigma);

extern "C" {
#endif

/* ==== Warps, de-interlacing and lens-distortion resampling ============================================== */

/* ---- Warps (module pxImageWarp) ------------------------------------------------------------------------ */

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
