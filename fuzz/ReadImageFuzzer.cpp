// libFuzzer target: any bytes as an image file, read with several pixel types, borders and ROI modes. A read
// must either succeed or fail cleanly, free what it allocated and stay inside its buffers.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>

#include "pxEnv.h"
#include "pxImage.h"

namespace {

void quietSink(void *, int, int, int, const char *, const char *, uint32_t, const char *) {}

// One temporary file per process, rewritten for every input.
const std::u16string &scratchPath() {
    static const std::u16string path = [] {
        const char *dir = getenv("TMPDIR");
        std::string name =
            std::string(dir != nullptr ? dir : "/tmp") + "/pxImageFuzz_" + std::to_string(getpid());
        return std::u16string(name.begin(), name.end());
    }();
    return path;
}

bool writeScratch(const uint8_t *data, size_t size) {
    const std::u16string &wide = scratchPath();
    const std::string path(wide.begin(), wide.end());
    // A new file for every input: truncating the old one in place waits on the file system for milliseconds.
    unlink(path.c_str());
    FILE *f = fopen(path.c_str(), "wb");
    if (f == nullptr)
        return false;
    const bool ok = size == 0 || fwrite(data, 1, size, f) == size;
    fclose(f);
    return ok;
}

struct ReadCase {
    int32_t type;
    int32_t border;
    int32_t roiMode;
    int32_t transform;
};

const ReadCase READS[] = {{0, 0, 0, 0}, {FLOAT, 2, 0, 0}, {UBYTE, 0, 1, 0},
                          {0, 1, 2, 0}, {FLOAT, 0, 2, 1}, {DOUBLE, 0, 0, 1}};

void checkImage(const tag_pxImage *image) {
    if (image == nullptr || image->width < 1 || image->height < 1 || image->planes < 1)
        abort();
    for (int32_t p = 0; p < image->planes; ++p)
        if (image->pixMap[p] == nullptr)
            abort();
}

// Reads into a record that another holder still references, as the image container does. A failed read
// must leave that record without pixel maps, so that the holder's last destroy frees nothing twice.
void readIntoReferencedRecord(const uint16_t *name) {
    tag_pxImage *record = nullptr;
    if (!pxImageCreateEmpty(&record))
        return;
    pxImageAddRef(record);
    tag_pxImage *image = record;
    if (pxImageReadToImage(name, 0, 0, &image)) {
        checkImage(image);
    } else {
        if (image != record)
            abort();
        for (pxImagePixMap map : record->pixMap)
            if (map != nullptr)
                abort();
    }
    pxImageReleaseRef(record);
    pxImageDestruct(&record);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    pxEnvSetLogSink(&quietSink, nullptr);
    if (!writeScratch(data, size))
        return 0;
    const long live = pxEnvLiveAllocations();
    const uint16_t *name = reinterpret_cast<const uint16_t *>(scratchPath().c_str());
    for (const ReadCase &r : READS) {
        tag_pxImage *image = nullptr;
        if (pxImageReadWithROIandTransform(name, r.type, r.border, r.roiMode, r.transform, &image)) {
            checkImage(image);
            pxImageDestruct(&image);
        } else if (image != nullptr) {
            abort();
        }
        if (pxEnvLiveAllocations() != live)
            abort();
    }
    tag_pxImage *image = nullptr;
    if (pxImageRead(name, 0, 0, &image))
        pxImageDestruct(&image);
    readIntoReferencedRecord(name);
    if (pxEnvLiveAllocations() != live)
        abort();
    return 0;
}
