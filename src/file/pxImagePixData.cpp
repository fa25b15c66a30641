// Pixel data of an image file: reading one plane (decoding CBIT, CSHORT and SHORT12, converting plain rows to
// the requested type, restricting to the region of interest) and writing one plane.
#include "pxImageFileInternal.h"
#include "image/pxImageInternal.h"

namespace {

const char *const MODULE = "pxImagePixData";

// Largest row of the largest pixel type.
constexpr size_t ROW_BUFFER_BYTES = 9999 * 8;

struct Encoding {
    int32_t storedType;
    int32_t memoryType;
    const char *typeMessage;
    const char *borderMessage;
    const char *writeMessage;
};

const Encoding ENCODINGS[] = {
    {CBIT, UBYTE, "CBIT type file can be read as UBYTE only", "CBIT type file do not support borders",
     "CBIT type file can be written from UBYTE only"},
    {CSHORT, SHORT, "CSHORT type file can be read as SHORT only", "CSHORT type file do not support borders",
     "CSHORT type file can be written from SHORT only"},
    {SHORT12, SHORT, "SHORT12 type file can be read as SHORT only",
     "SHORT12 type file do not support borders", "SHORT12 type file can be written from SHORT only"},
};

const Encoding *encodingOf(int32_t type) {
    for (const Encoding &e : ENCODINGS) {
        if (e.storedType == type)
            return &e;
    }
    return nullptr;
}

bool typeIsZeroOrValid(int32_t type) {
    return type == 0 || pxImageTypeIsValid(type);
}

uint64_t pixelBytes(int32_t type, uint64_t count) {
    return pxImagePixelSizeTable[type] * count;
}

// Bytes from the current position to the end of the file; the position is restored.
bool remainingBytes(FILE *file, uint64_t *bytes) {
    errno = 0;
    const off_t here = ftello(file);
    if (here < 0 || fseeko(file, 0, SEEK_END) != 0) {
        PX_FILE_ERROR(MODULE);
        return false;
    }
    const off_t end = ftello(file);
    if (end < 0 || fseeko(file, here, SEEK_SET) != 0) {
        PX_FILE_ERROR(MODULE);
        return false;
    }
    *bytes = end > here ? (uint64_t)(end - here) : 0;
    return true;
}

bool readExact(FILE *file, void *destination, uint64_t bytes) {
    errno = 0;
    if (bytes != 0 && fread(destination, 1, bytes, file) != bytes) {
        PX_FILE_ERROR(MODULE);
        return false;
    }
    return true;
}

bool skip(FILE *file, uint64_t bytes) {
    errno = 0;
    if (bytes != 0 && fseeko(file, (off_t)bytes, SEEK_CUR) != 0) {
        PX_FILE_ERROR(MODULE);
        return false;
    }
    return true;
}

bool writeExact(FILE *file, const void *source, uint64_t bytes) {
    errno = 0;
    if (bytes != 0 && fwrite(source, 1, bytes, file) != bytes) {
        PX_FILE_ERROR(MODULE);
        return false;
    }
    return true;
}

// ---- Reading ----

// The stored-type rules of the encodings; the header's type becomes the in-memory type.
bool resolveEncodedType(int32_t storedType, tag_pxImage *header) {
    const Encoding *e = encodingOf(storedType);
    if (e == nullptr)
        return true;
    if (header->type != e->storedType && header->type != e->memoryType) {
        PX_ERROR(MODULE, PX_ERR_INVALID_ARGUMENT, "%s", e->typeMessage);
        return false;
    }
    if (header->border != 0) {
        PX_ERROR(MODULE, PX_ERR_INVALID_ARGUMENT, "%s", e->borderMessage);
        return false;
    }
    header->type = e->memoryType;
    return true;
}

bool roiCoversImage(const tag_pxImage *h) {
    return h->roiminX == 0 && h->roimaxX == h->width && h->roiminY == 0 && h->roimaxY == h->height;
}

bool roiInsideImage(const tag_pxImage *h) {
    return h->roiminX >= 0 && h->roiminX < h->roimaxX && h->roimaxX <= h->width && h->roiminY >= 0 &&
           h->roiminY < h->roimaxY && h->roimaxY <= h->height;
}

// Turns a ROI mode with a whole-image ROI into mode 0 and refuses a ROI that leaves the image.
bool resolveRoiMode(const tag_pxImage *header, uint32_t *roiMode) {
    if (*roiMode == 0)
        return true;
    if (roiCoversImage(header)) {
        *roiMode = 0;
        return true;
    }
    if (!roiInsideImage(header)) {
        PX_ERROR(MODULE, PX_ERR_INVALID_ARGUMENT, "Region of interest outside the image (%d..%d x %d..%d)",
                 header->roiminX, header->roimaxX, header->roiminY, header->roimaxY);
        return false;
    }
    return true;
}

// Rejects encoded data that cannot fill the image before the image is allocated.
bool encodedDataCanFill(int32_t storedType, const tag_pxImage *h, uint64_t bytes) {
    const uint64_t n = (uint64_t)h->width * (uint64_t)h->height;
    bool enough;
    if (storedType == CBIT)
        enough = bytes / 4 > 0;
    else if (storedType == CSHORT)
        enough = (bytes / 4) * 65535 >= n;
    else
        enough = bytes / 2 >= pxImageShort12StoredWords(h->width, h->height);
    if (!enough)
        PX_ERROR(MODULE, PX_ERR_INVALID_ARGUMENT, "Compressed data length do not match uncompressed");
    return enough;
}

bool decodeWords(int32_t storedType, const void *words, uint64_t count, const tag_pxImage *h, void *pixels) {
    if (count > UINT32_MAX) {
        PX_ERROR(MODULE, PX_ERR_INVALID_ARGUMENT, "Compressed data length do not match uncompressed");
        return false;
    }
    uint32_t ok;
    if (storedType == CBIT)
        ok = pxImageCbitDecode(static_cast<const int32_t *>(words), h->width, h->height, (uint32_t)count,
                               static_cast<uint8_t *>(pixels));
    else if (storedType == CSHORT)
        ok = pxImageCshortDecode(static_cast<const uint16_t *>(words), h->width, h->height, (uint32_t)count,
                                 static_cast<uint16_t *>(pixels));
    else
        ok = pxImageShort12Unpack(static_cast<const uint16_t *>(words), h->width, h->height, (uint32_t)count,
                                  static_cast<uint16_t *>(pixels));
    if (!ok)
        PX_TRACE(MODULE);
    return ok != 0;
}

// Reads the rest of the file as words of the encoding and decodes them into the (border-free) plane.
bool readEncoded(FILE *file, int32_t storedType, const tag_pxImage *h, uint64_t bytes, void *pixels) {
    const size_t wordSize = storedType == CBIT ? 4 : 2;
    const uint64_t count = bytes / wordSize;
    void *words = nullptr;
    if (!pxMallocNoInit(&words, count * wordSize)) {
        PX_TRACE(MODULE);
        return false;
    }
    errno = 0;
    bool ok = fread(words, wordSize, count, file) == count;
    if (!ok)
        PX_FILE_ERROR(MODULE);
    ok = ok && decodeWords(storedType, words, count, h, pixels);
    pxMallocFree(&words);
    return ok;
}

// The part of the stored plane that is read: columns x0..x1-1 of rows y0..y1-1.
struct Window {
    int64_t x0, x1, y0, y1;
};

Window windowOf(const tag_pxImage *h, uint32_t roiMode) {
    if (roiMode == 0)
        return {0, h->width, 0, h->height};
    return {h->roiminX, h->roimaxX, h->roiminY, h->roimaxY};
}

// Reads the window row by row into the plane, converting rows of another type through a row buffer.
bool readRows(FILE *file, int32_t storedType, const tag_pxImage *h, uint32_t roiMode, pxImagePixMap map) {
    const Window win = windowOf(h, roiMode);
    const int64_t width = h->width;
    const uint64_t columns = (uint64_t)(win.x1 - win.x0);
    const bool convert = storedType != h->type;
    void *buffer = nullptr;
    if (convert && !pxMallocNoInit(&buffer, ROW_BUFFER_BYTES)) {
        PX_TRACE(MODULE);
        return false;
    }
    bool ok = skip(file, pixelBytes(storedType, (uint64_t)(win.y0 * width + win.x0)));
    for (int64_t y = win.y0; ok && y < win.y1; ++y) {
        uint8_t *row = static_cast<uint8_t *>(map[roiMode == 2 ? y - win.y0 : y]);
        uint8_t *target = row + pixelBytes(h->type, roiMode == 1 ? (uint64_t)win.x0 : 0);
        ok = readExact(file, convert ? buffer : target, pixelBytes(storedType, columns));
        if (ok && convert && !pxImageConvertRow(buffer, (uint32_t)columns, storedType, h->type, target)) {
            PX_TRACE(MODULE);
            ok = false;
        }
        if (ok && y + 1 < win.y1)
            ok = skip(file, pixelBytes(storedType, (uint64_t)(width - win.x1 + win.x0)));
    }
    if (ok && roiMode != 0)
        ok = skip(file, pixelBytes(storedType, (uint64_t)((h->height - win.y1) * width + width - win.x1)));
    pxMallocFree(&buffer);
    return ok;
}

bool constructPlane(const tag_pxImage *h, uint32_t roiMode, pxImagePixMap *map) {
    const Window win = windowOf(h, roiMode == 2 ? 2 : 0);
    if (!pxImagePixMapConstruct(h->type, (int32_t)(win.x1 - win.x0), (int32_t)(win.y1 - win.y0), h->border,
                                map)) {
        PX_TRACE(MODULE);
        return false;
    }
    return true;
}

bool readPlane(FILE *file, int32_t storedType, const tag_pxImage *h, uint32_t roiMode, pxImagePixMap *map) {
    const bool whole = roiMode == 0 && h->border == 0;
    if (whole && encodingOf(storedType) != nullptr) {
        uint64_t bytes;
        if (!remainingBytes(file, &bytes) || !encodedDataCanFill(storedType, h, bytes) ||
            !constructPlane(h, roiMode, map))
            return false;
        return readEncoded(file, storedType, h, bytes, (*map)[0]);
    }
    if (!constructPlane(h, roiMode, map))
        return false;
    if (whole && storedType == h->type)
        return readExact(file, (*map)[0], pixelBytes(storedType, (uint64_t)h->width * (uint64_t)h->height));
    return readRows(file, storedType, h, roiMode, *map);
}

// ---- Writing ----

bool writeEncodedWords(FILE *file, const void *words, uint64_t bytes, int32_t border) {
    if (border != 0) {
        PX_ERROR(MODULE, PX_ERR_INVALID_ARGUMENT, "Border is not supported in compression mode");
        return false;
    }
    return writeExact(file, words, bytes);
}

// Encodes the plane in place (the encoders see width x height pixels from its first row) and writes it.
bool writeEncoded(FILE *file, int32_t writeType, int32_t width, int32_t height, int32_t border,
                  pxImagePixMap map) {
    void *words = nullptr;
    uint32_t count = 0;
    uint32_t ok;
    size_t wordSize = 2;
    if (writeType == CBIT) {
        ok = pxImageCbitEncode(static_cast<const uint8_t *>(map[0]), width, height,
                               reinterpret_cast<int32_t **>(&words), &count);
        wordSize = 4;
    } else if (writeType == CSHORT) {
        ok = pxImageCompressShort(static_cast<uint16_t *>(map[0]), width, height,
                                  reinterpret_cast<uint16_t **>(&words), &count);
    } else {
        ok = pxImageShort12Pack(static_cast<const uint16_t *>(map[0]), width, height,
                                reinterpret_cast<uint16_t **>(&words), &count);
    }
    if (!ok) {
        PX_TRACE(MODULE);
        return false;
    }
    const bool written = writeEncodedWords(file, words, (uint64_t)count * wordSize, border);
    pxMallocFree(&words);
    return written;
}

bool writePlain(FILE *file, int32_t type, int32_t width, int32_t height, int32_t border, pxImagePixMap map) {
    const uint64_t rowBytes = pixelBytes(type, (uint64_t)width);
    if (border == 0)
        return writeExact(file, map[0], rowBytes * (uint64_t)height);
    for (int32_t y = 0; y < height; ++y) {
        if (!writeExact(file, map[y], rowBytes))
            return false;
    }
    return true;
}

bool writeConverted(FILE *file, int32_t writeType, int32_t imageType, int32_t width, int32_t height,
                    pxImagePixMap map) {
    void *buffer = nullptr;
    if (!pxMallocNoInit(&buffer, ROW_BUFFER_BYTES)) {
        PX_TRACE(MODULE);
        return false;
    }
    bool ok = true;
    for (int32_t y = 0; ok && y < height; ++y) {
        if (!pxImageConvertRow(map[y], (uint32_t)width, imageType, writeType, buffer)) {
            PX_TRACE(MODULE);
            ok = false;
        }
        ok = ok && writeExact(file, buffer, pixelBytes(writeType, (uint64_t)width));
    }
    pxMallocFree(&buffer);
    return ok;
}

} // namespace

uint32_t pxImagePixDataCheckLength(FILE *file, int32_t storedType, const tag_pxImage *header) {
    if (encodingOf(storedType) != nullptr)
        return 1;
    uint64_t bytes;
    if (!remainingBytes(file, &bytes)) {
        PX_TRACE(MODULE);
        return 0;
    }
    const uint64_t needed =
        pixelBytes(storedType, (uint64_t)header->planes * (uint64_t)header->width * (uint64_t)header->height);
    if (bytes < needed) {
        PX_ERROR(MODULE, PX_ERR_FILE_IO, "Image data truncated (%llu of %llu bytes)",
                 (unsigned long long)bytes, (unsigned long long)needed);
        return 0;
    }
    return 1;
}

uint32_t pxImagePixDataRead(FILE *file, int32_t storedType, tag_pxImage *header, uint32_t roiMode,
                            pxImagePixMap *map) {
    *map = nullptr;
    if (!resolveEncodedType(storedType, header) || !resolveRoiMode(header, &roiMode))
        return 0;
    if (!readPlane(file, storedType, header, roiMode, map)) {
        pxImagePixMapDestruct(map, header->type, header->border);
        PX_TRACE(MODULE);
        return 0;
    }
    return 1;
}

uint32_t pxImagePixDataWrite(FILE *file, int32_t writeType, int32_t imageType, int32_t width, int32_t height,
                             int32_t border, pxImagePixMap map) {
    if (!typeIsZeroOrValid(writeType) || !typeIsZeroOrValid(imageType)) {
        PX_ERROR(MODULE, PX_ERR_INVALID_ARGUMENT, "Invalid image type");
        return 0;
    }
    if (width < 1 || width > 9999 || height < 1 || height > 9999) {
        PX_ERROR(MODULE, PX_ERR_INVALID_ARGUMENT, "txt");
        return 0;
    }
    const int32_t type = writeType != 0 ? writeType : imageType;
    const Encoding *e = encodingOf(type);
    bool ok;
    if (e != nullptr && imageType != e->memoryType) {
        PX_ERROR(MODULE, PX_ERR_INVALID_ARGUMENT, "%s", e->writeMessage);
        return 0;
    }
    if (e != nullptr)
        ok = writeEncoded(file, type, width, height, border, map);
    else if (type == imageType)
        ok = writePlain(file, type, width, height, border, map);
    else
        ok = writeConverted(file, type, imageType, width, height, map);
    if (!ok)
        PX_TRACE(MODULE);
    return ok;
}
