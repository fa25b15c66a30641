// Kernels of the box filters. Each fast kernel has a plain scalar reference beside it that follows the
// filter's definition step by step; the tests prove that both produce the same bits.
#pragma once

#include <cstdint>

#include "pxImage.h"

namespace pxbox {

// One plane with the extent of its storage: rows [-border, height + border), columns likewise.
struct PlaneView {
    void **map;
    int32_t width;
    int32_t height;
    int32_t border;
};

// A windowed-sum pass from a source region to a destination region of the same size.
struct SumPass {
    PlaneView src;
    int32_t srcX, srcY; // first column and row of the source region
    PlaneView dst;
    int32_t dstX, dstY; // first column and row of the destination region
    int32_t width;      // common region width
    int32_t height;     // common region height
    int32_t half;       // half-width of the window, >= 0
};

// Horizontal running sums of every region row. The running sum starts at 0, takes `half` pixels, then
// half + 1 growing outputs, sliding outputs (s += in - out) and shrinking outputs (s -= out). When the
// window is one wider than the region (even n equal to the region width) the last growing step reads the
// pixel right of the region: the next pixel of the row's storage, else the first stored pixel of the next
// storage row, else 0. For the floating types the fast kernel runs several rows side by side, each with
// its own running sum in the same order of additions. For the integer types, whose sums wrap modulo 2^8
// or 2^16 so that any grouping of the additions gives the same bits, it sums the changes of a vector of
// outputs (in, in - out or -out by phase) in the register and carries the running sum in (SSE2 where
// available); the growing and shrinking phases run in vectors as well, so a row costs the same for every
// window.
template <typename T> void blockSumXFast(const SumPass &pass);
template <typename T> void blockSumXReference(const SumPass &pass);

// Vertical running sums: destination row 0 is cleared and takes source rows 0..half; every later row is
// the row above plus the incoming minus the outgoing source row ((above + in) - out). A missing row below
// the storage (even n equal to the region height) adds 0. The fast kernel works a whole row at a time; the
// reference runs down one column after the other.
template <typename T> void blockSumYFast(const SumPass &pass);
template <typename T> void blockSumYReference(const SumPass &pass);

// Widest window half and region columns of the counts below: their column sums live on the stack.
constexpr int32_t kCountMaxHalf = 7;
constexpr int32_t kCountStripColumns = 4096;

// The byte box sums of a region (window 2 half + 1, odd, half <= kCountMaxHalf, region at least one
// window wide and high, distinct planes) turned into 1 where the sum is at least `level`, else 0: the same
// bits as the row pass, the column pass and a threshold of the sums, without a scratch image. Column sums
// of up to kCountStripColumns region columns (plus the windows' reach, zero outside the region) are kept
// on the stack and updated row by row (+ in, - out, modulo 256), then summed along the row: directly for
// small windows, by the wrapping row kernel for wider ones. Costs one read of the source region and one
// write of the destination region.
void boxCountsAtLeast(const SumPass &pass, uint8_t level);

// boxCountsAtLeast on the regions of two byte images when they are of the kind it covers (both regions
// inside their images, of equal size, at least n wide and high, n odd up to 2 kCountMaxHalf + 1, distinct
// planes); returns false and writes nothing otherwise.
bool boxCountsAtLeastInRegion(const tag_pxImage *source, int32_t n, tag_pxImage *destination, uint8_t level);

// A windowed extreme over a whole image of width x height pixels: every window is clipped to the image.
struct WindowPass {
    void **src;
    void **dst;  // minimum or maximum
    void **dst2; // range (minimum-and-range only)
    int32_t width;
    int32_t height;
    int32_t half;
};

enum class Extreme { Min, Max };

// Direct search of each window, row by row and left to right, starting from the largest (minimum) or
// most negative (maximum) finite value and taking a pixel only when it is strictly smaller (greater).
template <typename T, Extreme E> void boxExtremeDirect(const WindowPass &pass);
// The same bits by a separable search: the extreme of each row segment first, then down the rows. With a
// strict compare the direct search yields the first extreme pixel in row-major order and so does this
// one (rows top to bottom, within a row left to right), which fixes the sign of a zero result; NaN is
// never taken by either. Returns 0 when its scratch rows cannot be allocated (nothing written).
template <typename T, Extreme E> uint32_t boxExtremeSeparable(const WindowPass &pass);

// Minimum into dst and maximum - minimum into dst2, both extremes tracked over the same window.
template <typename T> void boxMinAndRangeDirect(const WindowPass &pass);
template <typename T> uint32_t boxMinAndRangeSeparable(const WindowPass &pass);

// The vector kernels of one instruction-set level. The windowed extremes give the bits of the direct
// search (see pxImageBoxExtremeLanes.h for why a reordered search may) and return 0 when their scratch
// rows cannot be allocated (the destinations may then hold part of the result; the callers run the direct
// search); the counts are boxCountsAtLeast's.
struct BoxLaneKernels {
    uint32_t (*minFloat)(const WindowPass &pass);
    uint32_t (*maxFloat)(const WindowPass &pass);
    uint32_t (*minAndRangeFloat)(const WindowPass &pass);
    uint32_t (*minAndRangeShort)(const WindowPass &pass);
    void (*countsAtLeast)(const SumPass &pass, uint8_t level);
};

// Levels of the vector kernels: the separable scalar search and the scalar counts, vectors of 16 bytes
// (SSE2), 32 (AVX2) and 64 (AVX-512 F and BW).
enum BoxKernelLevel { kBoxPortable = 0, kBoxVector = 1, kBoxAvx2 = 2, kBoxAvx512 = 3 };

// The kernels of one level, or null when the level is not built for this target or this processor lacks
// its instructions; O(1) after the first call.
const BoxLaneKernels *boxLaneKernelsAt(int level);
// The kernels of the highest level this processor runs, chosen once.
const BoxLaneKernels &boxLaneKernelsBest();

// The levels as built, without the processor check (each in a file of its own; null when not built).
const BoxLaneKernels *boxLaneKernelsVector();
const BoxLaneKernels *boxLaneKernelsAvx2();
const BoxLaneKernels *boxLaneKernelsAvx512();

} // namespace pxbox
