/* img_4_px: the float and byte image library that pxImage hands images to without copying.
 *
 * An image is a row table (one pointer per row), then the width and the height. Images allocated here have
 * a margin of Image_border pixels on every side: row -Image_border and column -Image_border are valid.
 */
#ifndef IMG_4_PX_H
#define IMG_4_PX_H

#include <stdint.h>

#if defined(_WIN32)
#define IMG4PX_API __declspec(dllexport)
#else
#define IMG4PX_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* A float image: rows of 32-bit floats. */
typedef struct FIMAGE {
    float **image;
    int32_t width;
    int32_t height;
} FIMAGE;

/* A byte image: rows of unsigned 8-bit pixels, same layout as FIMAGE. */
typedef struct BIMAGE {
    uint8_t **image;
    int32_t width;
    int32_t height;
} BIMAGE;

/* Margin in pixels that callers pass to alloc_image for this library's images. Default 8; a caller may
 * change it before allocating (images already allocated keep their margin). */
IMG4PX_API extern int Image_border;

/* Allocates a zero-filled image of width x height pixels of pixelSize bytes (4 for FIMAGE, 1 for BIMAGE)
 * with a margin of border pixels, as one block from pxEnv's allocator: image[y][x] is valid for y in
 * [-border, height+border) and x in [-border, width+border), rows lie back to back at a stride of
 * width + 2 x border pixels. O(size). Returns the image (cast a 1-byte image to BIMAGE *), or null when
 * memory runs out, or on bad arguments (width or height below 1, pixelSize outside 1..16, border below 0,
 * sizes that overflow; logged with code 0xC43D0003). */
IMG4PX_API FIMAGE *alloc_image(int32_t width, int32_t height, int32_t pixelSize, int32_t border);

/* Frees an image from alloc_image (null is fine). O(1). Anything else is refused with a logged error. */
IMG4PX_API void free_image(FIMAGE *image);

/* Copies the pixels of source into destination (same width and height, margins not copied; source and
 * destination may be the same image). O(width x height). Returns 1, or 0, copying nothing, when the sizes
 * differ or are negative, or a row table or one of its rows is null. */
IMG4PX_API int fcopy_img(FIMAGE source, FIMAGE destination);

/* Replaces every pixel of the image (width x height, margins untouched) by the mean of the window x window
 * square around it; an even window reaches one pixel further up and left. At the edges the window is
 * shrunk to the image: the mean is over the image pixels it covers, never over invented ones. Sums are kept
 * in double and updated as the window moves, so the cost per pixel is the same for every window; scratch
 * of min(window, height) + 4 rows of doubles. Pixels must be finite (a NaN or infinity spreads along the
 * running sums). Returns 1, or 0 with the image unchanged when the
 * window is below 1, the image is empty or has a null row (logged, code 0xC43D0003) or memory runs out. */
IMG4PX_API int blur(FIMAGE image, int32_t window);

/* As blur, but only pixels strictly below saturationLevel enter a mean (NaN never does); a pixel whose
 * window holds none becomes saturationLevel. The four reserved arguments must be 0 (anything else is
 * refused and logged). Scratch about twice that of blur. Returns 1 or 0 as blur. */
IMG4PX_API int blurIgnoreSaturation(FIMAGE image, int32_t window, float saturationLevel, int32_t reserved1,
                                    int32_t reserved2, int32_t reserved3, int32_t reserved4);

/* ---- Dense warps ----------------------------------------------------------------------------------------
 * Both warps work over the extent of the two displacement maps (equal sizes): for every pixel (x, y) of the
 * maps the source position is sx = x + first[y][x], sy = y + second[y][x] (single precision). The sample is
 * inside when 0 <= sx <= width - 1 and 0 <= sy <= height - 1 of the source (NaN is outside); its value is
 * bilinear in single precision: j = floor(sx), i = floor(sy), fu = sx - j, fv = sy - i, the right and lower
 * neighbours clamped to the last column and row (so a sample on the last column or row is that pixel
 * exactly and nothing outside the image is read), top = S[i][j] + (S[i][j'] - S[i][j]) fu, bottom likewise
 * on row i', value = top + (bottom - top) fv. Target pixels beyond the maps are untouched. */

/* target[y][x] = the sample, or `fill` where it is outside. Returns 1, or 0 writing nothing when the maps
 * differ in size, the target is smaller than the maps, a size is below 1, or a row table or one of its rows
 * is null. O(map pixels). */
IMG4PX_API int bilinear_warp(FIMAGE source, FIMAGE target, FIMAGE first, FIMAGE second, float fill);

/* Masked form, as a dense-matching pipeline refines a flow only where it is trusted: where mask[y][x] is
 * non-zero, target[y][x] = the sample; where the mask is 0, or the sample is outside, target[y][x] =
 * third[y][x] (the value the caller keeps). The target may be the third image itself. Returns 1, or 0
 * writing nothing when the maps differ in size, the target, the third image or the mask is smaller than the
 * maps, a size is below 1, or a row table or one of its rows is null. O(map pixels). */
IMG4PX_API int bilinear_warp_masked(FIMAGE source, FIMAGE target, FIMAGE first, FIMAGE second, FIMAGE third,
                                    BIMAGE mask);

/* The target of either warp must not share pixels with the source or the maps. Both warps run eight columns
 * at a time with AVX2 where the processor has it (same bits as the plain loop). Test hook: limits the
 * instruction level of the warps to `level` (0 plain, 2 AVX2 where available, the default); returns the
 * previous limit. */
IMG4PX_API int img_4_px_limit_kernels(int level);

#ifdef __cplusplus
}
#endif

#endif /* IMG_4_PX_H */
