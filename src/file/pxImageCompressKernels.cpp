// The fast kernels of the CSHORT compressor at the levels every x86-64 processor runs (plain C++ and vectors
// of 16 bytes), and the choice of level.
#include "pxImageCompressLanes.h"
#include "image/pxImageCpu.h"

namespace pxcompress {

const Kernels *kernelsPortable() {
    return &kLaneKernels<0>;
}

const Kernels *kernelsSse2() {
#if defined(__SSE2__)
    return &kLaneKernels<16>;
#else
    return nullptr;
#endif
}

const Kernels *kernelsAt(int level) {
    static const bool runs[] = {pxImageCpuRunsLevel(kPortable), pxImageCpuRunsLevel(kSse2),
                                pxImageCpuRunsLevel(kAvx2), pxImageCpuRunsLevel(kAvx512)};
    static const Kernels *const built[] = {kernelsPortable(), kernelsSse2(), kernelsAvx2(), kernelsAvx512()};
    if (level < kPortable || level > kAvx512 || !runs[level])
        return nullptr;
    return built[level];
}

const Kernels &kernelsBest() {
    static const Kernels *const best = [] {
        for (int level = kAvx512; level > kPortable; --level)
            if (const Kernels *kernels = kernelsAt(level))
                return kernels;
        return kernelsPortable();
    }();
    return *best;
}

} // namespace pxcompress
