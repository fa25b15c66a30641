// Plain references of the box sums (module pxImageBoxFilter): the running sums step by step, one row or one
// column at a time, as the filter defines them. The fast kernels must give the same bits; the exported
// passes also run these when source and destination share a plane.
#include <cstdint>

#include "pxImageBoxFilterInternal.h"
#include "pxImageBoxKernelSupport.h"

namespace pxbox {

template <typename T> void blockSumXReference(const SumPass &pass) {
    const int32_t srcEnd = pass.srcX + pass.width;
    const int32_t dstEnd = pass.dstX + pass.width;
    for (int32_t y = 0; y < pass.height; ++y) {
        const T *src = rowOf<T>(pass.src.map, pass.srcY + y);
        T *dst = rowOf<T>(pass.dst.map, pass.dstY + y);
        auto read = [&](int32_t x) {
            return x < srcEnd ? src[x] : pixelBeyondRow<T>(pass.src, pass.srcY + y, srcEnd);
        };
        T s = T(0);
        int32_t p = pass.srcX;
        int32_t q = pass.srcX;
        int32_t w = pass.dstX;
        for (int32_t k = 0; k < pass.half; ++k) {
            s += read(p++);
        }
        for (int32_t k = 0; k <= pass.half; ++k) {
            s += read(p++);
            dst[w++] = s;
        }
        while (p < srcEnd) {
            const T in = src[p++];
            const T out = src[q++];
            s += static_cast<T>(in - out);
            dst[w++] = s;
        }
        while (w < dstEnd) {
            s -= src[q++];
            dst[w++] = s;
        }
    }
}

template <typename T> void blockSumYReference(const SumPass &pass) {
    const int32_t srcEnd = pass.srcY + pass.height;
    for (int32_t x = 0; x < pass.width; ++x) {
        auto src = [&](int32_t y) {
            if (y < srcEnd) {
                return rowOf<T>(pass.src.map, y)[pass.srcX + x];
            }
            const T *below = rowBeyondRegion<T>(pass.src, y, pass.srcX + x);
            return below ? *below : T(0);
        };
        auto dst = [&](int32_t j) -> T & { return rowOf<T>(pass.dst.map, pass.dstY + j)[pass.dstX + x]; };
        int32_t in = pass.srcY;
        int32_t old = pass.srcY;
        dst(0) = T(0);
        for (int32_t r = 0; r <= pass.half; ++r) {
            dst(0) += src(in++);
        }
        int32_t j = 1;
        for (int32_t k = 0; k < pass.half; ++k, ++j) {
            dst(j) = dst(j - 1) + src(in++);
        }
        while (in < srcEnd) {
            const T above = dst(j - 1);
            const T grown = above + src(in++);
            dst(j++) = grown - src(old++);
        }
        while (j < pass.height) {
            dst(j) = dst(j - 1) - src(old++);
            ++j;
        }
    }
}

template void blockSumXReference<uint8_t>(const SumPass &);
template void blockSumXReference<uint16_t>(const SumPass &);
template void blockSumXReference<float>(const SumPass &);
template void blockSumXReference<double>(const SumPass &);
template void blockSumYReference<uint8_t>(const SumPass &);
template void blockSumYReference<uint16_t>(const SumPass &);
template void blockSumYReference<float>(const SumPass &);
template void blockSumYReference<double>(const SumPass &);

} // namespace pxbox
