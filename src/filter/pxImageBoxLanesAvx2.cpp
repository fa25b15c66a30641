// The box filter kernels on vectors of 32 bytes. This file alone is compiled for AVX2 on x86-64 targets;
// the dispatcher calls it only on processors that have AVX2.
#include "pxImageBoxLaneTable.h"

namespace pxbox {

const BoxLaneKernels *boxLaneKernelsAvx2() {
#if defined(__AVX2__)
    return &kLaneTable<32>;
#else
    return nullptr;
#endif
}

} // namespace pxbox
