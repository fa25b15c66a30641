// The box filter kernels on vectors of 16 bytes, the widest every processor of an x86-64 target has (SSE2);
// other targets compile the same vectors for what they have.
#include "pxImageBoxCountLanes.h"
#include "pxImageBoxExtremeSmall.h"

namespace pxbox {

namespace {

typedef float FloatLanes __attribute__((vector_size(16)));
typedef uint16_t ShortLanes __attribute__((vector_size(16)));
typedef uint8_t ByteLanes __attribute__((vector_size(16)));

const BoxLaneKernels kVector = {
    extremeLanes<FloatLanes, float, Extreme::Min>,
    extremeLanes<FloatLanes, float, Extreme::Max>,
    minAndRangeLanes<FloatLanes, float>,
    minAndRangeLanes<ShortLanes, uint16_t>,
    countsAtLeastLanes<ByteLanes>,
};

} // namespace

const BoxLaneKernels *boxLaneKernelsVector() {
    return &kVector;
}

} // namespace pxbox
