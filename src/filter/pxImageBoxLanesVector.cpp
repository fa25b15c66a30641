// The box filter kernels on vectors of 16 bytes, the widest every processor of an x86-64 target has (SSE2);
// other targets compile the same vectors for what they have.
#include "pxImageBoxLaneTable.h"

namespace pxbox {

const BoxLaneKernels *boxLaneKernelsVector() {
    return &kLaneTable<16>;
}

} // namespace pxbox
