// The box filter kernels on vectors of 64 bytes. This file alone is compiled for AVX-512 (F and BW) on x86-64
// targets; the dispatcher calls it only on processors that have both.
#include "pxImageBoxCountLanes.h"
#include "pxImageBoxExtremeSmall.h"

namespace pxbox {

#if defined(__AVX512F__) && defined(__AVX512BW__)

namespace {

typedef float FloatLanes __attribute__((vector_size(64)));
typedef uint16_t ShortLanes __attribute__((vector_size(64)));
typedef uint8_t ByteLanes __attribute__((vector_size(64)));

const BoxLaneKernels kAvx512 = {
    extremeLanes<FloatLanes, float, Extreme::Min>,
    extremeLanes<FloatLanes, float, Extreme::Max>,
    minAndRangeLanes<FloatLanes, float>,
    minAndRangeLanes<ShortLanes, uint16_t>,
    countsAtLeastLanes<ByteLanes>,
};

} // namespace

const BoxLaneKernels *boxLaneKernelsAvx512() {
    return &kAvx512;
}

#else

const BoxLaneKernels *boxLaneKernelsAvx512() {
    return nullptr;
}

#endif

} // namespace pxbox
