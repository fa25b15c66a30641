// The exported readers and writers of image files: header block, then the pixel data of every plane, with
// the region-of-interest modes and the SHORT <-> FLOAT transform path.
#include "pxImageFileInternal.h"
#include "image/pxImageInternal.h"

namespace {

const char *const MODULE = "pxImageFile";

bool isShortData(int32_t storedType) {
    return storedType == SHORT || storedType == CSHORT || storedType == SHORT12;
}

// ROI mode 2: the header describes the cut-out.
void applyRoiToHeader(tag_pxImage *image) {
    image->origX += image->roiminX;
    image->origY += image->roiminY;
    image->width = image->roimaxX - image->roiminX;
    image->height = image->roimaxY - image->roiminY;
    image->roiminX = image->roiminY = 0;
    image->roimaxX = image->width;
    image->roimaxY = image->height;
}

bool readPlanes(FILE *file, int32_t storedType, uint32_t roiMode, tag_pxImage *image) {
    if (!pxImagePixDataCheckLength(file, storedType, image))
        return false;
    for (int32_t p = 0; p < image->planes; ++p) {
        if (!pxImagePixDataRead(file, storedType, image, roiMode, &image->pixMap[p]))
            return false;
    }
    return true;
}

// Undoes a failed read: destroys the planes built so far and clears their entries, then the header. A record
// reused for the read and still referenced elsewhere keeps no address of freed pixels, so its holders can
// destroy it later without freeing them twice.
void discardRead(tag_pxImage **image) {
    for (int32_t p = 0; p < (*image)->planes; ++p)
        pxImagePixMapDestruct(&(*image)->pixMap[p], (*image)->type, (*image)->border);
    pxImageHeaderDestruct(image);
}

// An image file ends exactly after its last plane.
bool atEndOfFile(FILE *file) {
    if (fgetc(file) != EOF) {
        PX_ERROR(MODULE, PX_ERR_INVALID_ARGUMENT, "Image file has data after the last plane");
        return false;
    }
    return true;
}

uint32_t readImage(const uint16_t *fileName, int32_t type, int32_t border, uint32_t roiMode,
                   int32_t transform, tag_pxImage **image);

// Reads the file as its stored SHORT data and converts it to FLOAT with the scaled conversion.
uint32_t readTransformed(const uint16_t *fileName, int32_t storedType, int32_t border, uint32_t roiMode,
                         tag_pxImage **image) {
    tag_pxImage *shortImage = nullptr;
    if (!readImage(fileName, storedType, border, roiMode, 0, &shortImage)) {
        PX_TRACE(MODULE);
        return 0;
    }
    const uint32_t ok = pxImageConvertWithTransformCopy(shortImage, FLOAT, border, 1, image);
    pxImageDestruct(&shortImage);
    if (!ok)
        PX_TRACE(MODULE);
    return ok;
}

// Reads planes, applies the ROI mode to the header, checks the end of the file and closes it.
bool readBody(FILE *file, int32_t storedType, uint32_t roiMode, tag_pxImage *image) {
    if (!readPlanes(file, storedType, roiMode, image))
        return false;
    if (roiMode == 2)
        applyRoiToHeader(image);
    return atEndOfFile(file);
}

uint32_t readImage(const uint16_t *fileName, int32_t type, int32_t border, uint32_t roiMode,
                   int32_t transform, tag_pxImage **image) {
    if (roiMode > 2) {
        PX_TRACE(MODULE);
        return 0;
    }
    errno = 0;
    FILE *file = pxFileOpen(fileName, "rb");
    if (file == nullptr) {
        PX_FILE_ERROR(MODULE);
        return 0;
    }
    int32_t storedType = 0;
    if (!pxImageFileHeaderReadInto(file, type, border, image, &storedType)) {
        pxFileClose(file);
        PX_TRACE(MODULE);
        return 0;
    }
    if (transform != 0 && type == FLOAT && isShortData(storedType)) {
        pxFileClose(file);
        pxImageHeaderDestruct(image);
        return readTransformed(fileName, storedType, border, roiMode, image);
    }
    bool ok = readBody(file, storedType, roiMode, *image);
    errno = 0;
    if (!pxFileClose(file) && ok) {
        PX_FILE_ERROR(MODULE);
        ok = false;
    }
    if (!ok) {
        discardRead(image);
        PX_TRACE(MODULE);
        return 0;
    }
    return 1;
}

bool writePlanes(FILE *file, int32_t type, const tag_pxImage *image, const tag_pxImage *source) {
    for (int32_t p = 0; p < image->planes; ++p) {
        if (!pxImagePixDataWrite(file, type, source->type, image->width, image->height, image->border,
                                 source->pixMap[p]))
            return false;
    }
    return true;
}

bool writeBody(FILE *file, int32_t type, int32_t transform, tag_pxImage *image) {
    if (!pxImageFileHeaderWrite(file, type, image))
        return false;
    if (transform != 0 && image->type == FLOAT && type == SHORT) {
        tag_pxImage *shortImage = nullptr;
        if (!pxImageConvertWithTransformCopy(image, SHORT, image->border, 1, &shortImage))
            return false;
        const bool ok = writePlanes(file, type, image, shortImage);
        pxImageDestruct(&shortImage);
        return ok;
    }
    return writePlanes(file, type, image, image);
}

const char *encodingName(int32_t type) {
    return type == CBIT ? "CBIT" : type == CSHORT ? "CSHORT" : "SHORT12";
}

// The encoded layouts run to the end of the file, so they hold a single plane: the reader takes everything
// after the header block as plane 0. Such an image is refused before the file is opened.
bool checkWritable(int32_t type, const tag_pxImage *image) {
    if (image == nullptr) {
        PX_ERROR(MODULE, PX_ERR_INVALID_ARGUMENT, "Image is null");
        return false;
    }
    const int32_t written = type != 0 ? type : image->type;
    if ((written == CBIT || written == CSHORT || written == SHORT12) && image->planes > 1) {
        PX_ERROR(MODULE, PX_ERR_INVALID_ARGUMENT, "%s encoding holds one plane only, the image has %d planes",
                 encodingName(written), image->planes);
        return false;
    }
    return true;
}

// Pushes the stream's buffer to the system and closes the file; both must succeed for the data to have
// reached the disk. The file is closed in every case; the first failure is logged.
bool flushAndClose(FILE *file) {
    errno = 0;
    const bool flushed = fflush(file) == 0;
    if (!flushed)
        PX_FILE_ERROR(MODULE);
    errno = 0;
    const bool closed = pxFileClose(file) != 0;
    if (flushed && !closed)
        PX_FILE_ERROR(MODULE);
    return flushed && closed;
}

// Writes the file. The plain write ignores the result of closing it and leaves a partial file on failure;
// the checked write also fails when flushing or closing fails, and then removes what it wrote (a regular
// file only: a device such as /dev/full is never removed).
uint32_t writeImage(const uint16_t *fileName, int32_t type, int32_t transform, tag_pxImage *image,
                    bool checked) {
    if (!checkWritable(type, image))
        return 0;
    errno = 0;
    FILE *file = pxFileOpen(fileName, "wb");
    if (file == nullptr) {
        PX_FILE_ERROR(MODULE);
        return 0;
    }
    bool ok = writeBody(file, type, transform, image);
    if (checked && ok) {
        ok = flushAndClose(file);
    } else {
        pxFileClose(file);
    }
    if (!ok) {
        if (checked)
            pxFileRemove(fileName);
        PX_TRACE(MODULE);
        return 0;
    }
    return 1;
}

} // namespace

uint32_t pxImageRead(const uint16_t *fileName, int32_t type, int32_t border, tag_pxImage **image) {
    *image = nullptr;
    if (!readImage(fileName, type, border, 0, 0, image)) {
        PX_TRACE(MODULE);
        return 0;
    }
    return 1;
}

uint32_t pxImageReadToImage(const uint16_t *fileName, int32_t type, int32_t border, tag_pxImage **image) {
    if (!readImage(fileName, type, border, 0, 0, image)) {
        PX_TRACE(MODULE);
        return 0;
    }
    return 1;
}

uint32_t pxImageReadWithROI(const uint16_t *fileName, int32_t type, int32_t border, int32_t roiMode,
                            tag_pxImage **image) {
    if (!pxImageReadWithROIandTransform(fileName, type, border, roiMode, 0, image)) {
        PX_TRACE(MODULE);
        return 0;
    }
    return 1;
}

uint32_t pxImageReadWithROIandTransform(const uint16_t *fileName, int32_t type, int32_t border,
                                        int32_t roiMode, int32_t transform, tag_pxImage **image) {
    *image = nullptr;
    if (!readImage(fileName, type, border, (uint32_t)roiMode, transform, image)) {
        PX_TRACE(MODULE);
        return 0;
    }
    return 1;
}

uint32_t pxImageWrite(const uint16_t *fileName, int32_t type, tag_pxImage *image) {
    if (!pxImageWriteWithTransform(fileName, type, 0, image)) {
        PX_TRACE(MODULE);
        return 0;
    }
    return 1;
}

uint32_t pxImageWriteWithTransform(const uint16_t *fileName, int32_t type, int32_t transform,
                                   tag_pxImage *image) {
    return writeImage(fileName, type, transform, image, false);
}

uint32_t pxImageWriteChecked(const uint16_t *fileName, int32_t type, tag_pxImage *image) {
    if (!pxImageWriteWithTransformChecked(fileName, type, 0, image)) {
        PX_TRACE(MODULE);
        return 0;
    }
    return 1;
}

uint32_t pxImageWriteWithTransformChecked(const uint16_t *fileName, int32_t type, int32_t transform,
                                          tag_pxImage *image) {
    return writeImage(fileName, type, transform, image, true);
}
