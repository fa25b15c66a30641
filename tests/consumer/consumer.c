/* A program outside the project that uses the installed library. */
#include "pxImage.h"

int main(void) {
    tag_pxImage *image = NULL;
    if (pxImageConstruct(UBYTE, 8, 8, 0, 1, &image) != 1)
        return 1;
    pxImageDestruct(&image);
    return image == NULL ? 0 : 1;
}
