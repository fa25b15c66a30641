// The table of the CSHORT compressor's fast kernels on vectors of a given width. Each instruction level's
// source file, compiled for that level, makes its own table from this one definition; everything here has
// internal linkage so that no level's code is shared with another. The kernels give the reference's pixels
// and words because they keep its order of reads (see each stage's header).
#pragma once

#include "pxImageCompressLevel.h"
#include "pxImageCompressProtect.h"
#include "pxImageCompressRuns.h"

namespace pxcompress {
namespace {

template <int Bytes> struct LaneTypes {
    typedef uint16_t Short __attribute__((vector_size(Bytes)));
    typedef uint16_t Half __attribute__((vector_size(Bytes / 2)));
    typedef float Float __attribute__((vector_size(Bytes)));
    typedef int32_t Int __attribute__((vector_size(Bytes)));
    typedef uint32_t UInt __attribute__((vector_size(Bytes)));
};
template <> struct LaneTypes<0> {
    typedef uint16_t Short;
    typedef uint16_t Half;
    typedef float Float;
    typedef int32_t Int;
    typedef uint32_t UInt;
};

template <int Bytes>
const Kernels kLaneKernels = {
    onePercentLevelLanes<typename LaneTypes<Bytes>::Short>,
    protectLanes<typename LaneTypes<Bytes>::Short, typename LaneTypes<Bytes>::Half,
                 typename LaneTypes<Bytes>::Float>,
    formRunsLanes<typename LaneTypes<Bytes>::Short, typename LaneTypes<Bytes>::Half,
                  typename LaneTypes<Bytes>::Int, typename LaneTypes<Bytes>::UInt>,
};

} // namespace
} // namespace pxcompress
