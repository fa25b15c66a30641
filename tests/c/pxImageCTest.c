/* Compiled as C99: the public header must be plain C, and its functions callable from C. */
#include <stdio.h>

#include "pxImage.h"

static int check(int ok, const char *what) {
    if (!ok)
        fprintf(stderr, "failed: %s\n", what);
    return ok ? 0 : 1;
}

int main(void) {
    tag_pxImage *image = NULL;
    tag_pxImage *copy = NULL;
    uint32_t size = 0;
    int32_t roi[4] = {1, 1, 2, 2};
    float value = 2.5f;
    int failures = 0;

    failures += check(pxImageConstruct(FLOAT, 4, 3, 1, 1, &image) == 1, "construct");
    failures += check(pxImagePixelSize(DOUBLE, &size) == 1 && size == 8, "pixel size");
    failures += check(pxImageSetROI(image, roi) == 1 && image->roimaxX == 3, "set roi");
    failures += check(pxImageSetValue(image, &value) == 1, "set value");
    failures += check(pxImageConvertCopy(image, SHORT, 0, &copy) == 1, "convert");
    failures += check(((uint16_t **)copy->pixMap[0])[2][3] == 3, "converted pixel");
    pxImageAddRef(image);
    failures += check(pxImageReleaseRef(image) == 0, "reference count");
    pxImageDestruct(&copy);
    pxImageDestruct(&image);
    failures += check(image == NULL, "destruct");
    printf("%d passed, %d failed\n", 7 - failures, failures);
    return failures == 0 ? 0 : 1;
}
