// Plain references of the windowed minimum, maximum and minimum-with-range (module pxImageBoxFilter): a
// direct search of every window. The separable kernels must give the same bits; the exported filters also
// run these when planes are shared or the kernels' scratch rows cannot be allocated.
#include <cstdint>

#include "pxImageBoxFilterInternal.h"
#include "pxImageBoxKernelSupport.h"

namespace pxbox {

template <typename T, Extreme E> void boxExtremeDirect(const WindowPass &pass) {
    for (int32_t y = 0; y < pass.height; ++y) {
        const int32_t y0 = windowFirst(y, pass.half);
        const int32_t y1 = windowLast(y, pass.half, pass.height);
        T *out = rowOf<T>(pass.dst, y);
        for (int32_t x = 0; x < pass.width; ++x) {
            const int32_t x0 = windowFirst(x, pass.half);
            const int32_t x1 = windowLast(x, pass.half, pass.width);
            T extreme = searchStart<T, E>();
            for (int32_t wy = y0; wy <= y1; ++wy) {
                const T *row = rowOf<T>(pass.src, wy);
                for (int32_t wx = x0; wx <= x1; ++wx) {
                    extreme = keepExtreme<T, E>(extreme, row[wx]);
                }
            }
            out[x] = extreme;
        }
    }
}

template <typename T> void boxMinAndRangeDirect(const WindowPass &pass) {
    for (int32_t y = 0; y < pass.height; ++y) {
        const int32_t y0 = windowFirst(y, pass.half);
        const int32_t y1 = windowLast(y, pass.half, pass.height);
        T *outMin = rowOf<T>(pass.dst, y);
        T *outRange = rowOf<T>(pass.dst2, y);
        for (int32_t x = 0; x < pass.width; ++x) {
            const int32_t x0 = windowFirst(x, pass.half);
            const int32_t x1 = windowLast(x, pass.half, pass.width);
            T low = SearchStart<T>::highest();
            T high = SearchStart<T>::lowest();
            for (int32_t wy = y0; wy <= y1; ++wy) {
                const T *row = rowOf<T>(pass.src, wy);
                for (int32_t wx = x0; wx <= x1; ++wx) {
                    low = keepMin(low, row[wx]);
                    high = keepMax(high, row[wx]);
                }
            }
            outMin[x] = low;
            outRange[x] = static_cast<T>(high - low);
        }
    }
}

template void boxExtremeDirect<float, Extreme::Min>(const WindowPass &);
template void boxExtremeDirect<float, Extreme::Max>(const WindowPass &);
template void boxMinAndRangeDirect<float>(const WindowPass &);
template void boxMinAndRangeDirect<uint16_t>(const WindowPass &);

} // namespace pxbox
