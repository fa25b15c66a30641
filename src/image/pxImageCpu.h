// The instruction levels of the kernel families that are built in files of their own (box filter lanes,
// CSHORT compressor): 0 plain C++, 1 vectors of 16 bytes, 2 AVX2, 3 AVX-512 F and BW. Whether this processor
// runs one; the families ask once and keep the answer.
#pragma once

inline bool pxImageCpuRunsLevel(int level) {
#if defined(__x86_64__) || defined(__i386__)
    if (level == 2)
        return __builtin_cpu_supports("avx2");
    if (level == 3)
        return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw");
#endif
    return level == 0 || level == 1;
}
