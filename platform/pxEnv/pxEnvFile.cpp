// Files of the environment library: opening by UTF-16 path, and 16/32-bit integers in the file byte order,
// which is little-endian on every host.
#include "pxEnv.h"
#include "pxEnvUtf.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <utility>

namespace {

bool hostIsBigEndian() {
    const uint16_t probe = 0x0102;
    unsigned char first;
    std::memcpy(&first, &probe, 1);
    return first == 0x01;
}

// Writes value into bytes in little-endian order.
template <typename T> void toLittleEndian(T value, unsigned char (&bytes)[sizeof(T)]) {
    for (size_t i = 0; i < sizeof(T); ++i)
        bytes[i] = static_cast<unsigned char>((static_cast<uint32_t>(value) >> (8 * i)) & 0xFF);
}

template <typename T> T fromLittleEndian(const unsigned char (&bytes)[sizeof(T)]) {
    uint32_t value = 0;
    for (size_t i = 0; i < sizeof(T); ++i)
        value |= static_cast<uint32_t>(bytes[i]) << (8 * i);
    return static_cast<T>(value);
}

template <typename T> int readLittleEndian(FILE *file, T *value) {
    unsigned char bytes[sizeof(T)];
    if (!file || !value) {
        errno = EINVAL;
        return 0;
    }
    if (std::fread(bytes, 1, sizeof(T), file) != sizeof(T))
        return 0;
    *value = fromLittleEndian<T>(bytes);
    return 1;
}

template <typename T> int writeLittleEndian(FILE *file, T value) {
    unsigned char bytes[sizeof(T)];
    if (!file) {
        errno = EINVAL;
        return 0;
    }
    toLittleEndian(value, bytes);
    return std::fwrite(bytes, 1, sizeof(T), file) == sizeof(T) ? 1 : 0;
}

} // namespace

extern "C" {

FILE *pxFileOpen(const uint16_t *path, const char *mode) {
    std::string utf8;
    if (!mode || !pxenv::utf16PathToUtf8(path, utf8)) {
        errno = EINVAL;
        return nullptr;
    }
    return std::fopen(utf8.c_str(), mode);
}

int pxFileClose(FILE *file) {
    if (!file)
        return 1;
    return std::fclose(file) == 0 ? 1 : 0;
}

int pxFileRemove(const uint16_t *path) {
    std::string utf8;
    if (!pxenv::utf16PathToUtf8(path, utf8)) {
        errno = EINVAL;
        return 0;
    }
    struct stat status;
    if (lstat(utf8.c_str(), &status) != 0)
        return 0;
    if (!S_ISREG(status.st_mode)) {
        errno = EPERM;
        return 0;
    }
    return std::remove(utf8.c_str()) == 0 ? 1 : 0;
}

int pxEnvReadShort(FILE *file, uint16_t *value) {
    return readLittleEndian(file, value);
}

int pxEnvReadInt(FILE *file, int32_t *value) {
    return readLittleEndian(file, value);
}

int pxEnvWriteShort(FILE *file, uint16_t value) {
    return writeLittleEndian(file, value);
}

int pxEnvWriteInt(FILE *file, int32_t value) {
    return writeLittleEndian(file, value);
}

void pxEnvFlip(void *buffer, size_t count, size_t size) {
    if (!buffer || size < 2 || !hostIsBigEndian())
        return;
    unsigned char *element = static_cast<unsigned char *>(buffer);
    for (size_t i = 0; i < count; ++i, element += size)
        for (size_t lo = 0, hi = size - 1; lo < hi; ++lo, --hi)
            std::swap(element[lo], element[hi]);
}

} // extern "C"
