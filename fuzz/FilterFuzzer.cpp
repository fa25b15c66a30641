// libFuzzer target: the neighbourhood filters and region statistics on small records with input-chosen
// types, sizes, borders, planes, regions of interest, pixels and arguments. Every call must succeed or fail
// cleanly, stay inside its buffers (the statistics histogram is surrounded by guard values) and free what
// it allocated.
//
// Input layout, read in this order (bytes past the end read as 0; fuzz/make_filter_corpus.py writes seeds):
//   operation                       1 byte, modulo the number of operations below
//   record a                        5 bytes: type % 9, 1 + width % 16, 1 + height % 16, border % 5,
//                                   1 + planes % 3
//   record b                        6 bytes: flags (bit 0: same type and size as a), then as for a
//   regions of interest of a and b each 1 flag byte; when non-zero 4 signed bytes x, y, width, height
//   arguments                       signed bytes i1, i2; values v1, v2; corners x1, y1, x2, y2 as values;
//                                   signed byte bins; range flag byte, when non-zero the values min, max
//   pixels                          the rest: plane 0 of a row by row, then plane 0 of b
// A value is one byte: 0xFF introduces 8 raw bytes of a double, anything else is the signed byte / 4.
// Record c (the second output of some operations) has the type and size of b.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "pxEnv.h"
#include "pxImage.h"

namespace {

void quietSink(void *, int, int, int, const char *, const char *, uint32_t, const char *) {}

// Reads the input front to back; past its end every read gives zeros.
class Bytes {
  public:
    Bytes(const uint8_t *data, size_t size) : data_(data), size_(size) {}
    uint8_t byte() { return at_ < size_ ? data_[at_++] : 0; }
    int32_t signedByte() { return static_cast<int8_t>(byte()); }
    double value() {
        const uint8_t b = byte();
        if (b != 0xFF)
            return static_cast<int8_t>(b) / 4.0;
        uint64_t bits = 0;
        for (int i = 0; i < 8; ++i)
            bits |= static_cast<uint64_t>(byte()) << (8 * i); // little-endian, as the seed writer packs it
        double v;
        std::memcpy(&v, &bits, sizeof v);
        return v;
    }

  private:
    const uint8_t *data_;
    size_t size_;
    size_t at_ = 0;
};

struct Shape {
    int32_t type, width, height, border, planes;
};

Shape readShape(Bytes &in) {
    Shape s;
    s.type = in.byte() % 9;
    s.width = 1 + in.byte() % 16;
    s.height = 1 + in.byte() % 16;
    s.border = in.byte() % 5;
    s.planes = 1 + in.byte() % 3;
    return s;
}

struct Arguments {
    int32_t i1, i2;
    double v1, v2;
    double corner1[2], corner2[2];
    int32_t bins;
    double minimum = 0.0, maximum = 0.0;
};

Arguments readArguments(Bytes &in) {
    Arguments a;
    a.i1 = in.signedByte();
    a.i2 = in.signedByte();
    a.v1 = in.value();
    a.v2 = in.value();
    a.corner1[0] = in.value();
    a.corner1[1] = in.value();
    a.corner2[0] = in.value();
    a.corner2[1] = in.value();
    a.bins = in.signedByte();
    if (in.byte() != 0) {
        a.minimum = in.value();
        a.maximum = in.value();
    }
    return a;
}

void setRegion(Bytes &in, tag_pxImage *image) {
    if (in.byte() == 0)
        return;
    int32_t roi[4];
    for (int32_t &r : roi)
        r = in.signedByte();
    pxImageSetROI(image, roi); // a region that does not fit is refused and the image keeps its own
}

// Fills the pixels proper of plane 0 (not the margin) from the input.
void fillPixels(Bytes &in, tag_pxImage *image) {
    uint32_t size = 0;
    pxImagePixelSize(image->type, &size);
    for (int32_t y = 0; y < image->height; ++y) {
        uint8_t *row = static_cast<uint8_t *>(image->pixMap[0][y]);
        for (size_t i = 0; i < static_cast<size_t>(image->width) * size; ++i)
            row[i] = in.byte();
    }
}

constexpr int kGuards = 64;
constexpr uint32_t kGuard = 0x5A5A5A5Au;

// Runs a statistics call with a histogram of bins + 1 counters between guard values.
template <class Call> void withGuardedHistogram(int32_t bins, Call call) {
    const size_t counters = bins >= 1 ? static_cast<size_t>(bins) + 1 : 0;
    std::vector<uint32_t> storage(counters + 2 * kGuards, kGuard);
    std::fill(storage.begin() + kGuards, storage.begin() + kGuards + static_cast<long>(counters), 0u);
    call(storage.data() + kGuards);
    for (size_t i = 0; i < kGuards; ++i)
        if (storage[i] != kGuard || storage[kGuards + counters + i] != kGuard)
            abort();
}

void pixValue(const tag_pxImage *a, const Arguments &args) {
    withGuardedHistogram(args.bins, [&](uint32_t *histogram) {
        double minimum = args.minimum, maximum = args.maximum, mean = 0, stdDev = 0;
        int32_t count = 0;
        pxImageGetAvaragePixValue(a, args.corner1, args.corner2, args.bins, histogram, &minimum, &maximum,
                                  &count, &mean, &stdDev);
    });
}

void flowNorm(const tag_pxImage *a, const tag_pxImage *b, const Arguments &args) {
    withGuardedHistogram(args.bins, [&](uint32_t *histogram) {
        double minimum = args.minimum, maximum = args.maximum, mean = 0, stdDev = 0;
        int32_t count = 0;
        pxImageGetAvarageFlowNorm(a, b, args.corner1, args.corner2, args.bins, histogram, &minimum, &maximum,
                                  &count, &mean, &stdDev);
    });
}

constexpr int kOperations = 18;

void runOperation(int operation, tag_pxImage *a, tag_pxImage *b, tag_pxImage *c, const Arguments &args) {
    switch (operation) {
    case 0:
        pxImageBlockSumX(a, args.i1, b);
        break;
    case 1:
        pxImageBlockSumY(a, args.i1, b);
        break;
    case 2:
        pxImageBoxSums(a, args.i1, b);
        break;
    case 3:
        pxImageBoxNormalize(a, args.i1);
        break;
    case 4:
        pxImageBoxAverage(a, args.i1, b);
        break;
    case 5:
        pxImageBoxMin(a, args.i1, b);
        break;
    case 6:
        pxImageBoxMax(a, args.i1, b);
        break;
    case 7:
        pxImageBoxMinAndRange(a, args.i1, b, c);
        break;
    case 8:
        pxImageThresh2Binary(a, args.v1);
        break;
    case 9:
        pxImageThreshUpper(a, args.v1);
        break;
    case 10:
        pxImageDilate(a, args.i1, b);
        break;
    case 11:
        pxImageErode(a, args.i1, b);
        break;
    case 12:
        pxImageOperationsNegate(a);
        break;
    case 13:
        pxImageOperationsNegateFloat(a);
        break;
    case 14:
        pxImageCombine(a, b, args.v1, args.v2, args.i1, args.i2, c);
        break;
    case 15:
        pixValue(a, args);
        break;
    case 16:
        flowNorm(a, b, args);
        break;
    default:
        pxImageReflect(a, args.i1, args.i2);
        break;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    pxEnvSetLogSink(&quietSink, nullptr);
    Bytes in(data, size);
    const int operation = in.byte() % kOperations;
    const Shape shapeA = readShape(in);
    const bool sameShape = (in.byte() & 1) != 0;
    Shape shapeB = readShape(in);
    if (sameShape) {
        shapeB.type = shapeA.type;
        shapeB.width = shapeA.width;
        shapeB.height = shapeA.height;
    }
    const long live = pxEnvLiveAllocations();
    tag_pxImage *a = nullptr, *b = nullptr, *c = nullptr;
    if (pxImageConstruct(shapeA.type, shapeA.width, shapeA.height, shapeA.border, shapeA.planes, &a) &&
        pxImageConstruct(shapeB.type, shapeB.width, shapeB.height, shapeB.border, shapeB.planes, &b) &&
        pxImageConstruct(shapeB.type, shapeB.width, shapeB.height, shapeB.border, shapeB.planes, &c)) {
        setRegion(in, a);
        setRegion(in, b);
        const Arguments args = readArguments(in);
        fillPixels(in, a);
        fillPixels(in, b);
        runOperation(operation, a, b, c, args);
    }
    pxImageDestruct(&a);
    pxImageDestruct(&b);
    pxImageDestruct(&c);
    if (a != nullptr || b != nullptr || c != nullptr || pxEnvLiveAllocations() != live)
        abort();
    return 0;
}
