// The byte box counts turned into 0/1 (boxCountsAtLeast) over vectors, written once for any vector width
// and compiled by each level's file for its own instruction set (internal linkage throughout). The sums
// wrap modulo 256 as the running sums do; any grouping of the additions gives the same bits, so the column
// sums take the incoming and the outgoing row in one step and each count adds its 2 half + 1 column sums
// directly.
#pragma once

#include <cstdint>

#include "pxImageBoxFilterInternal.h"

namespace pxbox {
namespace {

template <typename V> inline V loadBytes(const uint8_t *p) {
    V v;
    __builtin_memcpy(&v, p, sizeof v);
    return v;
}

template <typename V> inline void storeBytes(uint8_t *p, V v) {
    __builtin_memcpy(p, &v, sizeof v);
}

template <typename V> inline V splatByte(uint8_t b) {
    V v;
    for (int32_t i = 0; i < static_cast<int32_t>(sizeof v); ++i) {
        v[i] = b;
    }
    return v;
}

// columns += in - out over `count` columns (`in` or `out` null: that row is not there).
template <typename V>
void updateColumnSums(uint8_t *columns, const uint8_t *in, const uint8_t *out, int32_t count) {
    constexpr int32_t kLanes = static_cast<int32_t>(sizeof(V));
    int32_t x = 0;
    if (in && out) {
        for (; x + kLanes <= count; x += kLanes) {
            storeBytes(columns + x, loadBytes<V>(columns + x) + loadBytes<V>(in + x) - loadBytes<V>(out + x));
        }
    } else if (in) {
        for (; x + kLanes <= count; x += kLanes) {
            storeBytes(columns + x, loadBytes<V>(columns + x) + loadBytes<V>(in + x));
        }
    } else if (out) {
        for (; x + kLanes <= count; x += kLanes) {
            storeBytes(columns + x, loadBytes<V>(columns + x) - loadBytes<V>(out + x));
        }
    }
    for (; x < count; ++x) {
        columns[x] = static_cast<uint8_t>(columns[x] + (in ? in[x] : 0) - (out ? out[x] : 0));
    }
}

// dst[x] = 1 where the sum of column sums x .. x + 2 H reaches `level`, else 0.
template <typename V, int32_t H>
void countRow(const uint8_t *columns, uint8_t *dst, int32_t count, uint8_t level) {
    constexpr int32_t kLanes = static_cast<int32_t>(sizeof(V));
    const V levels = splatByte<V>(level);
    const V ones = splatByte<V>(1);
    const V zeros = splatByte<V>(0);
    int32_t x = 0;
    for (; x + kLanes <= count; x += kLanes) {
        V sum = loadBytes<V>(columns + x);
        for (int32_t k = 1; k <= 2 * H; ++k) {
            sum += loadBytes<V>(columns + x + k);
        }
        storeBytes(dst + x, sum >= levels ? ones : zeros);
    }
    for (; x < count; ++x) {
        uint8_t sum = 0;
        for (int32_t k = 0; k <= 2 * H; ++k) {
            sum = static_cast<uint8_t>(sum + columns[x + k]);
        }
        dst[x] = sum >= level ? 1 : 0;
    }
}

// Region columns [x0, x1): column sums over the windows' reach [x0 - half, x1 + half), 0 outside the region.
template <typename V, int32_t H>
void countStripLanes(const SumPass &pass, int32_t x0, int32_t x1, uint8_t level) {
    uint8_t columns[kCountStripColumns + 2 * kCountMaxHalf] = {};
    const int32_t first = x0 - H > 0 ? x0 - H : 0;
    const int32_t end = x1 + H < pass.width ? x1 + H : pass.width;
    const int32_t count = end - first;
    uint8_t *inside = columns + (first - (x0 - H));
    auto srcRow = [&](int32_t j) {
        return static_cast<const uint8_t *>(pass.src.map[pass.srcY + j]) + pass.srcX + first;
    };
    for (int32_t j = 0; j < H; ++j) {
        updateColumnSums<V>(inside, srcRow(j), nullptr, count);
    }
    for (int32_t j = 0; j < pass.height; ++j) {
        const uint8_t *in = j + H < pass.height ? srcRow(j + H) : nullptr;
        const uint8_t *out = j - H - 1 >= 0 ? srcRow(j - H - 1) : nullptr;
        updateColumnSums<V>(inside, in, out, count);
        uint8_t *dst = static_cast<uint8_t *>(pass.dst.map[pass.dstY + j]) + pass.dstX + x0;
        countRow<V, H>(columns, dst, x1 - x0, level);
    }
}

template <typename V, int32_t H> void countsAtLeastOf(const SumPass &pass, uint8_t level) {
    const int32_t strips = (pass.width + kCountStripColumns - 1) / kCountStripColumns;
    const int32_t stripWidth = (pass.width + strips - 1) / strips;
    for (int32_t x0 = 0; x0 < pass.width; x0 += stripWidth) {
        countStripLanes<V, H>(pass, x0, x0 + stripWidth < pass.width ? x0 + stripWidth : pass.width, level);
    }
}

// boxCountsAtLeast on vectors of type V (bytes).
template <typename V> void countsAtLeastLanes(const SumPass &pass, uint8_t level) {
    switch (pass.half) {
    case 0:
        return countsAtLeastOf<V, 0>(pass, level);
    case 1:
        return countsAtLeastOf<V, 1>(pass, level);
    case 2:
        return countsAtLeastOf<V, 2>(pass, level);
    case 3:
        return countsAtLeastOf<V, 3>(pass, level);
    case 4:
        return countsAtLeastOf<V, 4>(pass, level);
    case 5:
        return countsAtLeastOf<V, 5>(pass, level);
    case 6:
        return countsAtLeastOf<V, 6>(pass, level);
    default:
        return countsAtLeastOf<V, 7>(pass, level);
    }
}

} // namespace
} // namespace pxbox
