// The 512-byte header block of an image file: reading every version from "img1" to "im13" with the
// defaults of the fields a version does not store, and writing the "im13" layout with its checks.
#include <cstddef>

#include "pxImageFileInternal.h"
#include "image/pxImageInternal.h"

namespace {

const char *const MODULE = "pxImageFileHeader";

// The block as it lies in the file, field by field, in host order once read. The aux shorts are kept as
// signed 16-bit numbers so that -1 written from a record reads back as -1.
struct FileBlock {
    uint16_t width, height, type, planes;
    char tag[4];
    uint16_t roiminX, roimaxX, roiminY, roimaxY;
    uint16_t origX, origY, origWidth, origHeight;
    int32_t auxInt;
    int16_t auxShort[4];
    float temperature[3];
    double opticsParam[5];
    double aberK1, aberK2, aberK3, aberP1, aberP2, aberCx, aberCy;
    uint8_t auxWide[8];
    int32_t auxInt2[3];
    int32_t auxLong[8];
    uint8_t spare[500];
};

// Bytes after the tag that every version spans (fields plus spare).
constexpr uint32_t BLOCK_BYTES_AFTER_TAG = 500;

enum class FieldKind { U16, I32, F32, F64, RAW8 };

struct Field {
    FieldKind kind;
    size_t offset;
};

#define PX_FIELD(kind, member)                                                                               \
    { FieldKind::kind, offsetof(FileBlock, member) }
#define PX_FIELD_AT(kind, member, index, size)                                                               \
    { FieldKind::kind, offsetof(FileBlock, member) + (index) * (size) }

// Every field after the tag, in file order; each version stores a prefix of this list.
const Field FIELDS[] = {
    PX_FIELD(U16, roiminX),
    PX_FIELD(U16, roimaxX),
    PX_FIELD(U16, roiminY),
    PX_FIELD(U16, roimaxY),
    PX_FIELD(U16, origX),
    PX_FIELD(U16, origY),
    PX_FIELD(U16, origWidth),
    PX_FIELD(U16, origHeight),
    PX_FIELD(I32, auxInt),
    PX_FIELD_AT(U16, auxShort, 0, 2),
    PX_FIELD_AT(U16, auxShort, 1, 2),
    PX_FIELD_AT(U16, auxShort, 2, 2),
    PX_FIELD_AT(F32, temperature, 0, 4),
    PX_FIELD_AT(F64, opticsParam, 0, 8),
    PX_FIELD_AT(F64, opticsParam, 3, 8),
    PX_FIELD_AT(F64, opticsParam, 4, 8),
    PX_FIELD_AT(F64, opticsParam, 1, 8),
    PX_FIELD_AT(F64, opticsParam, 2, 8),
    PX_FIELD(F64, aberK1),
    PX_FIELD(F64, aberK2),
    PX_FIELD(F64, aberK3),
    PX_FIELD(F64, aberP1),
    PX_FIELD(F64, aberP2),
    PX_FIELD(F64, aberCx),
    PX_FIELD(F64, aberCy),
    PX_FIELD(RAW8, auxWide),
    PX_FIELD_AT(I32, auxInt2, 0, 4),
    PX_FIELD_AT(I32, auxInt2, 1, 4),
    PX_FIELD_AT(F32, temperature, 1, 4),
    PX_FIELD_AT(F32, temperature, 2, 4),
    PX_FIELD_AT(I32, auxInt2, 2, 4),
    PX_FIELD_AT(U16, auxShort, 3, 2),
    PX_FIELD_AT(I32, auxLong, 1, 4),
    PX_FIELD_AT(I32, auxLong, 2, 4),
    PX_FIELD_AT(I32, auxLong, 3, 4),
    PX_FIELD_AT(I32, auxLong, 4, 4),
    PX_FIELD_AT(I32, auxLong, 5, 4),
    PX_FIELD_AT(I32, auxLong, 6, 4),
    PX_FIELD_AT(I32, auxLong, 7, 4),
    PX_FIELD_AT(I32, auxLong, 0, 4),
};

#undef PX_FIELD
#undef PX_FIELD_AT

struct Version {
    const char *tag;
    uint32_t fieldCount;
};

// The versions in the order their tags are tried; a tag matching none is read as the last one.
const Version VERSIONS[] = {{"img1", 8},  {"img2", 12}, {"img3", 13}, {"img4", 14}, {"img5", 18},
                            {"img6", 25}, {"img7", 27}, {"img8", 28}, {"img9", 30}, {"im10", 31},
                            {"im11", 32}, {"im12", 39}, {"im13", 40}};
constexpr size_t VERSION_COUNT = sizeof(VERSIONS) / sizeof(VERSIONS[0]);

uint32_t fieldSize(FieldKind kind) {
    switch (kind) {
    case FieldKind::U16:
        return 2;
    case FieldKind::I32:
    case FieldKind::F32:
        return 4;
    default:
        return 8;
    }
}

bool typeIsZeroOrValid(int32_t type) {
    return type == 0 || pxImageTypeIsValid(type);
}

// ---- Reading ----

void fillDefaults(FileBlock &block) {
    const uint16_t width = block.width, height = block.height;
    block.roiminX = block.roiminY = block.origX = block.origY = 0;
    block.roimaxX = block.origWidth = width;
    block.roimaxY = block.origHeight = height;
    block.auxInt = 0;
    for (float &t : block.temperature)
        t = -273.0f;
    const double optics[5] = {4.545, 1240.0, 50.0, 0.009, 70.0};
    memcpy(block.opticsParam, optics, sizeof(optics));
    block.aberK1 = block.aberK2 = block.aberK3 = block.aberP1 = block.aberP2 = 0.0;
    block.aberCx = (double)(width / 2) - 0.5;
    block.aberCy = (double)(height / 2) - 0.5;
    block.auxShort[0] = block.auxShort[1] = block.auxShort[2] = -1;
    block.auxShort[3] = 0;
    for (int32_t &v : block.auxLong)
        v = -1;
    memset(block.auxWide, 0, sizeof(block.auxWide));
    memset(block.auxInt2, 0, sizeof(block.auxInt2));
}

// fread of size bytes; a short read is logged with the system error text.
bool readRaw(FILE *file, void *address, size_t size) {
    errno = 0;
    if (fread(address, 1, size, file) != size) {
        PX_FILE_ERROR(MODULE);
        return false;
    }
    return true;
}

bool readField(FILE *file, FileBlock &block, const Field &field) {
    uint8_t *address = reinterpret_cast<uint8_t *>(&block) + field.offset;
    switch (field.kind) {
    case FieldKind::U16: {
        uint16_t value;
        if (!pxEnvReadShort(file, &value)) {
            PX_TRACE(MODULE);
            return false;
        }
        memcpy(address, &value, sizeof(value));
        return true;
    }
    case FieldKind::I32: {
        int32_t value;
        if (!pxEnvReadInt(file, &value)) {
            PX_TRACE(MODULE);
            return false;
        }
        memcpy(address, &value, sizeof(value));
        return true;
    }
    case FieldKind::RAW8:
        return readRaw(file, address, 8);
    default:
        if (!readRaw(file, address, fieldSize(field.kind)))
            return false;
        pxEnvFlip(address, 1, fieldSize(field.kind));
        return true;
    }
}

const Version &versionOfTag(const char tag[4]) {
    for (size_t i = 0; i + 1 < VERSION_COUNT; ++i) {
        if (strncmp(tag, VERSIONS[i].tag, 4) == 0)
            return VERSIONS[i];
    }
    return VERSIONS[VERSION_COUNT - 1];
}

// Reads the fields of the version, then the spare rest of the block.
bool readVersionFields(FILE *file, FileBlock &block, const Version &version) {
    uint32_t counter = 0;
    for (uint32_t i = 0; i < version.fieldCount; ++i) {
        if (!readField(file, block, FIELDS[i]))
            return false;
        counter += fieldSize(FIELDS[i].kind);
    }
    return readRaw(file, block.spare, BLOCK_BYTES_AFTER_TAG - counter);
}

bool readBlock(FILE *file, FileBlock &block) {
    if (!pxEnvReadShort(file, &block.width) || !pxEnvReadShort(file, &block.height) ||
        !pxEnvReadShort(file, &block.type) || !pxEnvReadShort(file, &block.planes)) {
        PX_TRACE(MODULE);
        return false;
    }
    fillDefaults(block);
    if (!readRaw(file, block.tag, sizeof(block.tag)))
        return false;
    return readVersionFields(file, block, versionOfTag(block.tag));
}

void copyBlockToHeader(const FileBlock &block, tag_pxImage &header) {
    header.roiminX = block.roiminX;
    header.roimaxX = block.roimaxX;
    header.roiminY = block.roiminY;
    header.roimaxY = block.roimaxY;
    header.origX = block.origX;
    header.origY = block.origY;
    header.origWidth = block.origWidth;
    header.origHeight = block.origHeight;
    header.origType = block.type;
    header.auxInt = block.auxInt;
    for (int i = 0; i < 4; ++i)
        header.auxShort[i] = block.auxShort[i];
    memcpy(header.temperature, block.temperature, sizeof(header.temperature));
    memcpy(header.opticsParam, block.opticsParam, sizeof(header.opticsParam));
    header.aberK1 = block.aberK1;
    header.aberK2 = block.aberK2;
    header.aberK3 = block.aberK3;
    header.aberP1 = block.aberP1;
    header.aberP2 = block.aberP2;
    header.aberCx = block.aberCx;
    header.aberCy = block.aberCy;
    memcpy(&header.auxWide, block.auxWide, sizeof(header.auxWide));
    memcpy(header.auxInt2, block.auxInt2, sizeof(header.auxInt2));
    memcpy(header.auxLong, block.auxLong, sizeof(header.auxLong));
    for (pxImagePixMap &map : header.pixMap)
        map = nullptr;
}

// ---- Writing ----

void copyHeaderToBlock(const tag_pxImage &image, int32_t type, FileBlock &block) {
    memset(&block, 0, sizeof(block));
    block.width = (uint16_t)image.width;
    block.height = (uint16_t)image.height;
    block.type = (uint16_t)type;
    block.planes = (uint16_t)image.planes;
    memcpy(block.tag, "im13", 4);
    block.roiminX = (uint16_t)image.roiminX;
    block.roimaxX = (uint16_t)image.roimaxX;
    block.roiminY = (uint16_t)image.roiminY;
    block.roimaxY = (uint16_t)image.roimaxY;
    block.origX = (uint16_t)image.origX;
    block.origY = (uint16_t)image.origY;
    block.origWidth = (uint16_t)image.origWidth;
    block.origHeight = (uint16_t)image.origHeight;
    block.auxInt = image.auxInt;
    for (int i = 0; i < 4; ++i)
        block.auxShort[i] = (int16_t)(uint16_t)image.auxShort[i];
    memcpy(block.temperature, image.temperature, sizeof(block.temperature));
    memcpy(block.opticsParam, image.opticsParam, sizeof(block.opticsParam));
    block.aberK1 = image.aberK1;
    block.aberK2 = image.aberK2;
    block.aberK3 = image.aberK3;
    block.aberP1 = image.aberP1;
    block.aberP2 = image.aberP2;
    block.aberCx = image.aberCx;
    block.aberCy = image.aberCy;
    memcpy(block.auxWide, &image.auxWide, sizeof(block.auxWide));
    memcpy(block.auxInt2, image.auxInt2, sizeof(block.auxInt2));
    memcpy(block.auxLong, image.auxLong, sizeof(block.auxLong));
}

void checkRoi(const tag_pxImage &image, FileBlock &block) {
    if (image.roiminY < 0) {
        PX_WARN(4, MODULE, "negative Image->roiminY %d", image.roiminY);
        block.roiminY = 0;
    }
    if (image.roimaxY > image.height) {
        PX_WARN(4, MODULE, "Image->roimaxY > Image->height (%d > %d)", image.roimaxY, image.height);
        block.roimaxY = (uint16_t)image.height;
    }
    if (image.roiminY >= image.roimaxY)
        PX_WARN(4, MODULE, "Image->roiminY >= Image->roimaxY (%d >= %d)", image.roiminY, image.roimaxY);
    if (image.roiminX < 0) {
        PX_WARN(4, MODULE, "negative Image->roiminX %d", image.roiminX);
        block.roiminX = 0;
    }
    if (image.roimaxX > image.width) {
        PX_WARN(4, MODULE, "Image->roimaxX > Image->width (%d > %d)", image.roimaxX, image.width);
        block.roimaxX = (uint16_t)image.width;
    }
    if (image.roiminX >= image.roimaxX)
        PX_WARN(4, MODULE, "Image->roiminX >= Image->roimaxX (%d >= %d)", image.roiminX, image.roimaxX);
}

void checkOrigin(const tag_pxImage &image, FileBlock &block) {
    if (image.origWidth < 0) {
        PX_WARN(4, MODULE, "negative Image->origWidth %d", image.origWidth);
        block.origWidth = 0;
    }
    if (image.origWidth > pxImage_MAX_SIZE) {
        PX_WARN(4, MODULE, "Image->origWidth > pxImage_MAX_SIZE (%d > %d)", image.origWidth,
                pxImage_MAX_SIZE);
        block.origWidth = pxImage_MAX_SIZE;
    }
    if (image.origHeight < 0) {
        PX_WARN(4, MODULE, "negative Image->origHeight %d", image.origHeight);
        block.origHeight = 0;
    }
    if (image.origHeight > pxImage_MAX_SIZE) {
        PX_WARN(4, MODULE, "Image->origHeight > pxImage_MAX_SIZE (%d > %d)", image.origHeight,
                pxImage_MAX_SIZE);
        block.origHeight = pxImage_MAX_SIZE;
    }
    if (image.origX < 0) {
        PX_WARN(4, MODULE, "negative Image->origX %d", image.origX);
        block.origX = 0;
    }
    if ((int64_t)image.origX + image.width > image.origWidth)
        PX_WARN(4, MODULE, "Image->origX + Image->width > Image->origWidth (%d+%d > %d)", image.origX,
                image.width, image.origWidth);
    if (image.origY < 0) {
        PX_WARN(4, MODULE, "negative Image->origY %d", image.origY);
        block.origY = 0;
    }
    if ((int64_t)image.origY + image.height > image.origHeight)
        PX_WARN(4, MODULE, "Image->origY + Image->height > Image->origHeight (%d+%d > %d)", image.origY,
                image.height, image.origHeight);
}

bool writeRaw(FILE *file, const void *address, size_t size) {
    errno = 0;
    if (fwrite(address, 1, size, file) != size) {
        PX_FILE_ERROR(MODULE);
        return false;
    }
    return true;
}

bool writeShort(FILE *file, uint16_t value) {
    if (!pxEnvWriteShort(file, value)) {
        PX_TRACE(MODULE);
        return false;
    }
    return true;
}

// Writes one field in file order; floats and doubles are converted on a private copy.
bool writeField(FILE *file, const FileBlock &block, const Field &field) {
    const uint8_t *address = reinterpret_cast<const uint8_t *>(&block) + field.offset;
    switch (field.kind) {
    case FieldKind::U16: {
        uint16_t value;
        memcpy(&value, address, sizeof(value));
        return writeShort(file, value);
    }
    case FieldKind::I32: {
        int32_t value;
        memcpy(&value, address, sizeof(value));
        if (!pxEnvWriteInt(file, value)) {
            PX_TRACE(MODULE);
            return false;
        }
        return true;
    }
    case FieldKind::RAW8:
        return writeRaw(file, address, 8);
    default: {
        uint8_t value[8];
        memcpy(value, address, fieldSize(field.kind));
        pxEnvFlip(value, 1, fieldSize(field.kind));
        return writeRaw(file, value, fieldSize(field.kind));
    }
    }
}

bool writeBlock(FILE *file, const FileBlock &block) {
    if (!writeShort(file, block.width) || !writeShort(file, block.height) || !writeShort(file, block.type) ||
        !writeShort(file, block.planes) || !writeRaw(file, block.tag, sizeof(block.tag)))
        return false;
    uint32_t counter = 0;
    for (const Field &field : FIELDS) {
        if (!writeField(file, block, field))
            return false;
        counter += fieldSize(field.kind);
    }
    return writeRaw(file, block.spare, BLOCK_BYTES_AFTER_TAG - counter);
}

} // namespace

uint32_t pxImageFileHeaderReadInto(FILE *file, int32_t type, int32_t border, tag_pxImage **header,
                                   int32_t *storedType) {
    if (!typeIsZeroOrValid(type)) {
        PX_ERROR(MODULE, PX_ERR_INVALID_ARGUMENT, "Invalid image type");
        return 0;
    }
    if ((uint32_t)border >= 1000) {
        PX_ERROR(MODULE, PX_ERR_INVALID_ARGUMENT, "txt");
        return 0;
    }
    FileBlock block;
    if (!readBlock(file, block)) {
        PX_TRACE(MODULE);
        return 0;
    }
    if (!typeIsZeroOrValid(block.type)) {
        PX_ERROR(MODULE, PX_ERR_INVALID_ARGUMENT, "Invalid image type");
        return 0;
    }
    const int32_t headerType = type != 0 ? type : block.type;
    if (!pxImageHeaderInit(headerType, block.width, block.height, border, block.planes, header)) {
        PX_TRACE(MODULE);
        return 0;
    }
    copyBlockToHeader(block, **header);
    *storedType = block.type;
    return 1;
}

uint32_t pxImageFileHeaderWrite(FILE *file, int32_t type, const tag_pxImage *image) {
    if (type != 0 && !pxImageTypeIsValid(type)) {
        PX_ERROR(MODULE, PX_ERR_INVALID_ARGUMENT, "Invalid image type");
        return 0;
    }
    if (image->width < 1 || image->width > 9999 || image->height < 1 || image->height > 9999 ||
        image->planes < 1 || image->planes > 9) {
        PX_ERROR(MODULE, PX_ERR_INVALID_ARGUMENT, "txt");
        return 0;
    }
    FileBlock block;
    copyHeaderToBlock(*image, type != 0 ? type : image->type, block);
    checkRoi(*image, block);
    checkOrigin(*image, block);
    if (!writeBlock(file, block)) {
        PX_TRACE(MODULE);
        return 0;
    }
    return 1;
}

uint32_t pxImageHeaderRead(FILE *file, int32_t type, int32_t border, tag_pxImage **header,
                           int32_t *origType) {
    *header = nullptr;
    if (!pxImageFileHeaderReadInto(file, type, border, header, origType)) {
        PX_TRACE(MODULE);
        return 0;
    }
    return 1;
}
