// The box filter kernels on vectors of 32 bytes. This file alone is compiled for AVX2 on x86-64 targets;
// the dispatcher calls it only on processors that have AVX2.
#include "pxImageBoxCountLanes.h"
#include "pxImageBoxExtremeSmall.h"

namespace pxbox {

#if defined(__AVX2__)

namespace {

typedef float FloatLanes __attribute__((vector_size(32)));
typedef uint16_t ShortLanes __attribute__((vector_size(32)));
typedef uint8_t ByteLanes __attribute__((vector_size(32)));

const BoxLaneKernels kAvx2 = {
    extremeLanes<FloatLanes, float, Extreme::Min>,
    extremeLanes<FloatLanes, float, Extreme::Max>,
    minAndRangeLanes<FloatLanes, float>,
    minAndRangeLanes<ShortLanes, uint16_t>,
    countsAtLeastLanes<ByteLanes>,
};

} // namespace

const BoxLaneKernels *boxLaneKernelsAvx2() {
    return &kAvx2;
}

#else

const BoxLaneKernels *boxLaneKernelsAvx2() {
    return nullptr;
}

#endif

} // namespace pxbox
