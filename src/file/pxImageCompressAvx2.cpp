// The fast kernels of the CSHORT compressor on vectors of 32 bytes. This file alone is compiled for AVX2
// on x86-64 targets; the dispatcher calls it only on processors that have those instructions.
#include "pxImageCompressLanes.h"

namespace pxcompress {

const Kernels *kernelsAvx2() {
#if defined(__AVX2__)
    return &kLaneKernels<32>;
#else
    return nullptr;
#endif
}

} // namespace pxcompress
