// The box filter kernels on vectors of 64 bytes. This file alone is compiled for AVX-512 (F and BW) on x86-64
// targets; the dispatcher calls it only on processors that have both.
#include "pxImageBoxLaneTable.h"

namespace pxbox {

const BoxLaneKernels *boxLaneKernelsAvx512() {
#if defined(__AVX512F__) && defined(__AVX512BW__)
    return &kLaneTable<64>;
#else
    return nullptr;
#endif
}

} // namespace pxbox
