// The table of box filter kernels on vectors of a given width. Each instruction level's source file, compiled
// for that level, makes its own table from this one definition, so the levels differ only in the width.
#pragma once

#include <cstdint>

#include "pxImageBoxCountLanes.h"
#include "pxImageBoxExtremeSmall.h"

namespace pxbox {
namespace {

// Float, 16-bit and byte vectors of `Bytes` bytes.
template <int Bytes> struct LaneTypes {
    typedef float Float __attribute__((vector_size(Bytes)));
    typedef uint16_t Short __attribute__((vector_size(Bytes)));
    typedef uint8_t Byte __attribute__((vector_size(Bytes)));
};

// The kernels on vectors of `Bytes` bytes.
template <int Bytes>
const BoxLaneKernels kLaneTable = {
    extremeLanes<typename LaneTypes<Bytes>::Float, float, Extreme::Min>,
    extremeLanes<typename LaneTypes<Bytes>::Float, float, Extreme::Max>,
    minAndRangeLanes<typename LaneTypes<Bytes>::Float, float>,
    minAndRangeLanes<typename LaneTypes<Bytes>::Short, uint16_t>,
    countsAtLeastLanes<typename LaneTypes<Bytes>::Byte>,
};

} // namespace
} // namespace pxbox
