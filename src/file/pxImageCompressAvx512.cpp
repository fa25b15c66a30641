// The fast kernels of the CSHORT compressor on vectors of 64 bytes. This file alone is compiled for AVX-512
// on x86-64 targets; the dispatcher calls it only on processors that have those instructions.
#include "pxImageCompressLanes.h"

namespace pxcompress {

const Kernels *kernelsAvx512() {
#if defined(__AVX512BW__)
    return &kLaneKernels<64>;
#else
    return nullptr;
#endif
}

} // namespace pxcompress
