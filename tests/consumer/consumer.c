/* Reads an image file, smooths it with a 5 x 5 box average and writes the result as a FLOAT image.
 * Usage: consumer IN OUT */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "pxEnv.h"
#include "pxImage.h"

/* The library reports every failure through the log sink of pxEnv; this one prints errors (level 5). */
static void printErrors(void *user, int kind, int level, int line, const char *module, const char *date,
                        uint32_t code, const char *text) {
    (void)user, (void)kind, (void)line, (void)date;
    if (level >= 5)
        fprintf(stderr, "%s: error 0x%08X: %s\n", module, (unsigned)code, text);
}

/* File names are null-terminated 16-bit (UTF-16) strings; this widens an ASCII name. */
static uint16_t *wide(const char *name) {
    size_t n = strlen(name);
    uint16_t *out = malloc((n + 1) * sizeof *out);
    for (size_t i = 0; out && i <= n; ++i)
        out[i] = (unsigned char)name[i];
    return out;
}

int main(int argc, char **argv) {
    if (argc != 3) {
        fprintf(stderr, "usage: %s IN OUT\n", argv[0]);
        return 2;
    }
    pxEnvSetLogSink(printErrors, NULL);
    uint16_t *in = wide(argv[1]), *out = wide(argv[2]);
    tag_pxImage *image = NULL, *smooth = NULL;
    int ok = in && out && pxImageRead(in, FLOAT, 0, &image) == 1 &&
             pxImageConstruct(FLOAT, image->width, image->height, 0, 1, &smooth) == 1 &&
             pxImageBoxAverage(image, 5, smooth) == 1 && pxImageWriteChecked(out, FLOAT, smooth) == 1;
    pxImageDestruct(&smooth);
    pxImageDestruct(&image);
    free(in);
    free(out);
    if (!ok) {
        fprintf(stderr, "%s: failed\n", argv[0]);
        return 1;
    }
    printf("wrote %s\n", argv[2]);
    return 0;
}
