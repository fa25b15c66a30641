// Vector helpers of the CSHORT compressor's fast kernels: lane tests of comparison masks and the loads of one
// register of pixels. Included only by the kernels' files, each compiled for its instruction level; all of it
// has internal linkage so that no level's code is shared with another.
#pragma once

#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <immintrin.h>
#endif

namespace pxcompress {
namespace {

// True when any lane of the mask (a vector of whole registers) is set: its registers are ORed together and
// tested once.
template <class Register, class Mask, class Test> bool anyIn(Mask m, Test test) {
    static_assert(sizeof(Mask) % sizeof(Register) == 0, "masks of whole registers");
    Register parts[sizeof(Mask) / sizeof(Register)];
    std::memcpy(parts, &m, sizeof parts);
    Register acc = parts[0];
    for (unsigned i = 1; i < sizeof(Mask) / sizeof(Register); ++i)
        acc |= parts[i];
    return test(acc);
}

template <class Mask> bool anyLane(Mask m) {
#if defined(__AVX512F__)
    if constexpr (sizeof(Mask) % 64 == 0)
        return anyIn<__m512i>(m, [](__m512i v) { return _mm512_test_epi64_mask(v, v) != 0; });
#endif
#if defined(__AVX__)
    if constexpr (sizeof(Mask) % 32 == 0)
        return anyIn<__m256i>(m, [](__m256i v) { return _mm256_testz_si256(v, v) == 0; });
#endif
#if defined(__SSE2__)
    if constexpr (sizeof(Mask) % 16 == 0)
        return anyIn<__m128i>(
            m, [](__m128i v) { return _mm_movemask_epi8(_mm_cmpeq_epi8(v, _mm_setzero_si128())) != 0xFFFF; });
#endif
    return anyIn<uint64_t>(m, [](uint64_t v) { return v != 0; });
}

// True when every lane of the mask is set.
template <class Mask> bool allLanes(Mask m) {
    return !anyLane(~m);
}

// Vectors of one register: ShortV of 16-bit pixels (Lanes lanes), FloatV of floats (FloatLanes lanes) and
// HalfV of the 16-bit pixels converted to one FloatV; or uint16_t, uint16_t and float for the plain level,
// which uses no vectors.
template <class ShortV, class HalfV, class FloatV> struct Vec {
    static constexpr int Lanes = sizeof(ShortV) / sizeof(uint16_t);
    static constexpr int FloatLanes = sizeof(FloatV) / sizeof(float);
    static_assert(sizeof(HalfV) == FloatLanes * sizeof(uint16_t), "one 16-bit lane per float lane");

    static ShortV load(const uint16_t *p) {
        ShortV v;
        std::memcpy(&v, p, sizeof v);
        return v;
    }
    static void store(uint16_t *p, ShortV v) { std::memcpy(p, &v, sizeof v); }
    // The floats of FloatLanes pixels, each ORed with `bits` first.
    static FloatV loadFloat(const uint16_t *p, uint16_t bits = 0) {
        HalfV v;
        std::memcpy(&v, p, sizeof v);
        v |= bits;
        return __builtin_convertvector(v, FloatV);
    }
};

} // namespace
} // namespace pxcompress
