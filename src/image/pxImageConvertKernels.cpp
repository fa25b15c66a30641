// Module pxImageConvertKernels: the narrowing row kernels of the row converter (DOUBLE and FLOAT rounded
// to INT, SHORT and UBYTE) as portable C++ loops, SSE2, AVX2 and AVX-512 code, and the choice among them.
//
// Every level gives what the per-pixel rule gives. DOUBLE kernels form the rule's sum value +- 0.5 in
// double and truncate it with the processor's conversion (cvttpd2dq), which truncates toward zero and
// gives 0x80000000, the integer indefinite, for NaN and for every value whose truncation does not fit in
// int32: the rule's INT32_MIN. FLOAT kernels work in single precision on steps that are exact (see
// each); they were checked against the rule on all 2^32 float patterns. Clamps are done by saturating
// packs whose saturation equals the clamp (see each pack).
#include "pxImageConvertKernels.h"

#include <algorithm>
#include <cstring>

#if defined(__SSE2__)
#include <immintrin.h>
#endif

namespace {

// ---- Portable loops: the non-x86 level and the tails of the vector levels -----------------------------

// Rounds half away from zero and truncates to int32; a result outside the int32 range, and NaN, give
// INT32_MIN. The range test comes before the cast (an out-of-range cast is undefined in C++).
inline int32_t roundToInt32(double value) {
    const double shifted = value + (value > 0.0 ? 0.5 : -0.5);
    const bool inRange = (shifted > -2147483649.0) & (shifted < 2147483648.0);
    return static_cast<int32_t>(inRange ? shifted : -2147483648.0);
}

// Clamps a 32-bit integer to [0, high].
inline int32_t clampTo(int32_t value, int32_t high) {
    return std::min(std::max(value, 0), high);
}

// Bit pattern of a float and back. For floats of one sign the patterns order like the values.
inline int32_t bitsOf(float value) {
    int32_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}
inline float floatOf(int32_t bits) {
    float value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

constexpr int32_t kBitsTwoPow31 = 0x4F000000;                             // 2147483648.0f
constexpr int32_t kBitsMinusTwoPow31 = static_cast<int32_t>(0xCF000000u); // -2147483648.0f

// Rounds a float whose magnitude is below 2^31 half away from zero: the truncated integer plus the
// remainder doubled and truncated (-1, 0 or 1). Both steps are exact, so no sum has to be formed.
inline int32_t roundFloatInRange(float value) {
    const int32_t whole = static_cast<int32_t>(value);
    return whole + static_cast<int32_t>(2.0f * (value - static_cast<float>(whole)));
}

// A FLOAT rounded to INT, equal to roundToInt32((double)value): out of range and NaN give INT32_MIN. The
// choice is made on bit patterns with masks, so the loop vectorises under strict floating-point rules.
inline int32_t roundFloatToInt32(float value) {
    const int32_t bits = bitsOf(value);
    const int32_t keep =
        -static_cast<int32_t>(((bits & 0x7FFFFFFF) < kBitsTwoPow31) | (bits == kBitsMinusTwoPow31));
    return roundFloatInRange(floatOf((bits & keep) | (kBitsMinusTwoPow31 & ~keep)));
}

// A FLOAT rounded and clamped to [0, high], equal to clamping roundToInt32((double)value): zero, negatives,
// NaN and values of 2^31 and above (whose rounded sum leaves the int32 range) give 0.
template <int32_t high> inline int32_t roundClampFloat(float value) {
    const int32_t bits = bitsOf(value);
    const int32_t keep = -static_cast<int32_t>((bits > 0) & (bits < kBitsTwoPow31));
    return roundFloatInRange(floatOf(std::min(bits, bitsOf(static_cast<float>(high))) & keep));
}

template <typename D> constexpr int32_t kHigh = static_cast<int32_t>(static_cast<D>(~0u)); // 65535, 255

void portableDoubleToInt(const double *src, uint32_t count, int32_t *dst) {
    for (size_t i = 0; i < count; ++i)
        dst[i] = roundToInt32(src[i]);
}
template <typename D> void portableDoubleToClamped(const double *src, uint32_t count, D *dst) {
    for (size_t i = 0; i < count; ++i)
        dst[i] = static_cast<D>(clampTo(roundToInt32(src[i]), kHigh<D>));
}
void portableFloatToInt(const float *src, uint32_t count, int32_t *dst) {
    for (size_t i = 0; i < count; ++i)
        dst[i] = roundFloatToInt32(src[i]);
}
template <typename D> void portableFloatToClamped(const float *src, uint32_t count, D *dst) {
    for (size_t i = 0; i < count; ++i)
        dst[i] = static_cast<D>(roundClampFloat<kHigh<D>>(src[i]));
}

// Kind 9 of src[i] * scale. The product is a float expression rounded on its own: the build turns
// floating-point contraction off, so it is never fused with a later step into one multiply-add.
void portableFloatScaledToShort(const float *src, uint32_t count, float scale, uint16_t *dst) {
    for (size_t i = 0; i < count; ++i)
        dst[i] = static_cast<uint16_t>(roundClampFloat<kHigh<uint16_t>>(src[i] * scale));
}

// Tails of the vector kernels: the portable loop of the same kind.
void portableToInt(const double *src, uint32_t count, int32_t *dst) {
    portableDoubleToInt(src, count, dst);
}
void portableToInt(const float *src, uint32_t count, int32_t *dst) {
    portableFloatToInt(src, count, dst);
}
template <typename D> void portableToClamped(const double *src, uint32_t count, D *dst) {
    portableDoubleToClamped(src, count, dst);
}
template <typename D> void portableToClamped(const float *src, uint32_t count, D *dst) {
    portableFloatToClamped(src, count, dst);
}

// The widening kinds: every UBYTE and SHORT value is a float exactly.
template <typename S> void portableToFloat(const S *src, uint32_t count, float *dst) {
    for (size_t i = 0; i < count; ++i)
        dst[i] = static_cast<float>(src[i]);
}

const pxImageNarrowKernels kPortable = {
    portableDoubleToInt,        portableDoubleToClamped<uint16_t>, portableDoubleToClamped<uint8_t>, // DOUBLE
    portableFloatToInt,         portableFloatToClamped<uint16_t>,  portableFloatToClamped<uint8_t>,  // FLOAT
    portableFloatScaledToShort,                                                                      // scaled
    portableToFloat<uint8_t>,   portableToFloat<uint16_t>, // widening
};

#if defined(__SSE2__)

// ---- Saturating packs shared by the vector levels ---------------------------------------------------

// Clamps eight int32 to [0, 65535] and packs them to uint16. SSE2 has only the signed 32->16 pack: the
// negatives are zeroed first (and-not with the spread sign bit); subtracting 32768 then cannot overflow
// and moves [0, 65535] onto the signed pack's range [-32768, 32767], whose saturation is then exactly
// the clamp; flipping bit 15 adds the 32768 back modulo 2^16.
inline __m128i packClampToUint16(__m128i low, __m128i high) {
    const __m128i bias = _mm_set1_epi32(32768);
    low = _mm_sub_epi32(_mm_andnot_si128(_mm_srai_epi32(low, 31), low), bias);
    high = _mm_sub_epi32(_mm_andnot_si128(_mm_srai_epi32(high, 31), high), bias);
    return _mm_xor_si128(_mm_packs_epi32(low, high), _mm_set1_epi16(static_cast<short>(0x8000)));
}

// Clamps sixteen int32 to [0, 255] and packs them to uint8: the signed pack to int16 clamps to
// [-32768, 32767], the unsigned pack to uint8 then clamps to [0, 255]; the two clamps compose to the one
// clamp to [0, 255] as that range lies inside the first.
inline __m128i packClampToUint8(__m128i a, __m128i b, __m128i c, __m128i d) {
    return _mm_packus_epi16(_mm_packs_epi32(a, b), _mm_packs_epi32(c, d));
}

// ---- SSE2 ----------------------------------------------------------------------------------------------

// Two doubles rounded into the low two int32 lanes. The half is -0.5 with its sign flipped where the
// value is greater than 0 (so zeros, negatives and NaN subtract 0.5); the sum is the rule's double sum and
// cvttpd2dq its truncation with INT32_MIN out of range.
inline __m128i sse2RoundTwo(__m128d value) {
    const __m128d positive = _mm_cmpgt_pd(value, _mm_setzero_pd());
    const __m128d half = _mm_xor_pd(_mm_set1_pd(-0.5), _mm_and_pd(positive, _mm_set1_pd(-0.0)));
    return _mm_cvttpd_epi32(_mm_add_pd(value, half));
}

inline __m128i sse2RoundFour(const double *src) {
    return _mm_unpacklo_epi64(sse2RoundTwo(_mm_loadu_pd(src)), sse2RoundTwo(_mm_loadu_pd(src + 2)));
}

// Four floats rounded to int32 in single precision. whole = the truncation (cvttps2dq: exact, and
// INT32_MIN for NaN and |v| >= 2^31). Where it is valid, v - whole is exact (a float minus its own
// truncation), and truncating twice that remainder gives the step -1, 0 or 1: the double sum v +- 0.5
// passes the next integer away from zero exactly when |remainder| >= 0.5. Where whole is INT32_MIN the
// rule gives INT32_MIN as well (NaN; |v| >= 2^31, whose sum leaves int32; v = -2^31, whose step is 0), so
// the step is dropped there.
inline __m128i sse2RoundFour(__m128 value) {
    const __m128i whole = _mm_cvttps_epi32(value);
    const __m128 rest = _mm_sub_ps(value, _mm_cvtepi32_ps(whole));
    const __m128i step = _mm_cvttps_epi32(_mm_add_ps(rest, rest));
    const __m128i invalid = _mm_cmpeq_epi32(whole, _mm_set1_epi32(INT32_MIN));
    return _mm_add_epi32(whole, _mm_andnot_si128(invalid, step));
}
inline __m128i sse2RoundFour(const float *src) {
    return sse2RoundFour(_mm_loadu_ps(src));
}

template <typename S> void sse2ToInt(const S *src, uint32_t count, int32_t *dst) {
    uint32_t i = 0;
    for (; i + 8 <= count; i += 8) {
        _mm_storeu_si128(reinterpret_cast<__m128i *>(dst + i), sse2RoundFour(src + i));
        _mm_storeu_si128(reinterpret_cast<__m128i *>(dst + i + 4), sse2RoundFour(src + i + 4));
    }
    portableToInt(src + i, count - i, dst + i);
}

template <typename S> void sse2ToUint16(const S *src, uint32_t count, uint16_t *dst) {
    uint32_t i = 0;
    for (; i + 8 <= count; i += 8)
        _mm_storeu_si128(reinterpret_cast<__m128i *>(dst + i),
                         packClampToUint16(sse2RoundFour(src + i), sse2RoundFour(src + i + 4)));
    portableToClamped(src + i, count - i, dst + i);
}

template <typename S> void sse2ToUint8(const S *src, uint32_t count, uint8_t *dst) {
    uint32_t i = 0;
    for (; i + 16 <= count; i += 16)
        _mm_storeu_si128(reinterpret_cast<__m128i *>(dst + i),
                         packClampToUint8(sse2RoundFour(src + i), sse2RoundFour(src + i + 4),
                                          sse2RoundFour(src + i + 8), sse2RoundFour(src + i + 12)));
    portableToClamped(src + i, count - i, dst + i);
}

// Eight products src[i] * scale, each rounded to float by mulps as the scalar multiply rounds, then
// rounded and clamped by the kind-9 steps above.
void sse2FloatScaledToShort(const float *src, uint32_t count, float scale, uint16_t *dst) {
    const __m128 factor = _mm_set1_ps(scale);
    uint32_t i = 0;
    for (; i + 8 <= count; i += 8) {
        const __m128i low = sse2RoundFour(_mm_mul_ps(_mm_loadu_ps(src + i), factor));
        const __m128i high = sse2RoundFour(_mm_mul_ps(_mm_loadu_ps(src + i + 4), factor));
        _mm_storeu_si128(reinterpret_cast<__m128i *>(dst + i), packClampToUint16(low, high));
    }
    portableFloatScaledToShort(src + i, count - i, scale, dst + i);
}

const pxImageNarrowKernels kSse2 = {
    sse2ToInt<double>,        sse2ToUint16<double>,      sse2ToUint8<double>, // DOUBLE
    sse2ToInt<float>,         sse2ToUint16<float>,       sse2ToUint8<float>,  // FLOAT
    sse2FloatScaledToShort,                                                   // scaled
    portableToFloat<uint8_t>, portableToFloat<uint16_t>, // widening (vectorised for SSE2)
};

// ---- AVX2 (functions compiled for AVX2, chosen only when the processor has it) ------------------------

#define PX_AVX2 __attribute__((target("avx2")))

// Four doubles rounded to int32: the SSE2 steps on four lanes (the ordered greater-than is false for NaN
// like SSE2's).
PX_AVX2 inline __m128i avx2RoundFour(const double *src) {
    const __m256d value = _mm256_loadu_pd(src);
    const __m256d positive = _mm256_cmp_pd(value, _mm256_setzero_pd(), _CMP_GT_OQ);
    const __m256d half = _mm256_xor_pd(_mm256_set1_pd(-0.5), _mm256_and_pd(positive, _mm256_set1_pd(-0.0)));
    return _mm256_cvttpd_epi32(_mm256_add_pd(value, half));
}

// Eight doubles rounded to int32.
PX_AVX2 inline __m256i avx2RoundEight(const double *src) {
    return _mm256_set_m128i(avx2RoundFour(src + 4), avx2RoundFour(src));
}

// Eight floats rounded to int32: the single-precision steps of sse2RoundFour(const float *) on eight lanes.
PX_AVX2 inline __m256i avx2RoundEight(__m256 value) {
    const __m256i whole = _mm256_cvttps_epi32(value);
    const __m256 rest = _mm256_sub_ps(value, _mm256_cvtepi32_ps(whole));
    const __m256i step = _mm256_cvttps_epi32(_mm256_add_ps(rest, rest));
    const __m256i invalid = _mm256_cmpeq_epi32(whole, _mm256_set1_epi32(INT32_MIN));
    return _mm256_add_epi32(whole, _mm256_andnot_si256(invalid, step));
}
PX_AVX2 inline __m256i avx2RoundEight(const float *src) {
    return avx2RoundEight(_mm256_loadu_ps(src));
}

template <typename S> PX_AVX2 void avx2ToInt(const S *src, uint32_t count, int32_t *dst) {
    uint32_t i = 0;
    for (; i + 8 <= count; i += 8)
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(dst + i), avx2RoundEight(src + i));
    portableToInt(src + i, count - i, dst + i);
}

// Eight int32 clamped to [0, 65535] and packed to uint16 (packusdw saturates exactly to the clamp).
PX_AVX2 inline __m128i avx2PackClampToUint16(__m256i value) {
    return _mm_packus_epi32(_mm256_castsi256_si128(value), _mm256_extracti128_si256(value, 1));
}

template <typename S> PX_AVX2 void avx2ToUint16(const S *src, uint32_t count, uint16_t *dst) {
    uint32_t i = 0;
    for (; i + 8 <= count; i += 8)
        _mm_storeu_si128(reinterpret_cast<__m128i *>(dst + i),
                         avx2PackClampToUint16(avx2RoundEight(src + i)));
    portableToClamped(src + i, count - i, dst + i);
}

template <typename S> PX_AVX2 void avx2ToUint8(const S *src, uint32_t count, uint8_t *dst) {
    uint32_t i = 0;
    for (; i + 16 <= count; i += 16) {
        const __m256i low = avx2RoundEight(src + i);
        const __m256i high = avx2RoundEight(src + i + 8);
        _mm_storeu_si128(reinterpret_cast<__m128i *>(dst + i),
                         packClampToUint8(_mm256_castsi256_si128(low), _mm256_extracti128_si256(low, 1),
                                          _mm256_castsi256_si128(high), _mm256_extracti128_si256(high, 1)));
    }
    portableToClamped(src + i, count - i, dst + i);
}

// Products src[i] * scale rounded to float by vmulps (as the scalar multiply rounds; AVX2 code here is
// compiled without FMA), then the kind-9 steps; sixteen per round, packed in-lane and put back in order
// by one cross-lane permute, so each round ends in one 256-bit store.
PX_AVX2 void avx2FloatScaledToShort(const float *src, uint32_t count, float scale, uint16_t *dst) {
    const __m256 factor = _mm256_set1_ps(scale);
    uint32_t i = 0;
    for (; i + 16 <= count; i += 16) {
        const __m256i low = avx2RoundEight(_mm256_mul_ps(_mm256_loadu_ps(src + i), factor));
        const __m256i high = avx2RoundEight(_mm256_mul_ps(_mm256_loadu_ps(src + i + 8), factor));
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(dst + i),
                            _mm256_permute4x64_epi64(_mm256_packus_epi32(low, high), 0xD8));
    }
    for (; i + 8 <= count; i += 8)
        _mm_storeu_si128(
            reinterpret_cast<__m128i *>(dst + i),
            avx2PackClampToUint16(avx2RoundEight(_mm256_mul_ps(_mm256_loadu_ps(src + i), factor))));
    portableFloatScaledToShort(src + i, count - i, scale, dst + i);
}

// The widening kinds: the plain loop, vectorised for AVX2 by the compiler.
template <typename S> PX_AVX2 void avx2ToFloat(const S *src, uint32_t count, float *dst) {
    for (size_t i = 0; i < count; ++i)
        dst[i] = static_cast<float>(src[i]);
}

const pxImageNarrowKernels kAvx2 = {
    avx2ToInt<double>,      avx2ToUint16<double>,  avx2ToUint8<double>, // DOUBLE
    avx2ToInt<float>,       avx2ToUint16<float>,   avx2ToUint8<float>,  // FLOAT
    avx2FloatScaledToShort,                                             // scaled
    avx2ToFloat<uint8_t>,   avx2ToFloat<uint16_t>,                      // widening
};

// ---- AVX-512 (F; functions compiled for it, chosen only when the processor has it) --------------------

#define PX_AVX512 __attribute__((target("avx512f")))

// The pixels before dst reaches a multiple of `bytes` (0 when it cannot reach one; at most count).
template <typename D> inline uint32_t headToAlign(const D *dst, uint32_t count, uintptr_t bytes) {
    const uintptr_t misalign = reinterpret_cast<uintptr_t>(dst) & (bytes - 1);
    if (misalign == 0 || misalign % sizeof(D) != 0)
        return 0;
    const uintptr_t head = (bytes - misalign) / sizeof(D);
    return head < count ? (uint32_t)head : count;
}

// The zero-masked forms with every lane selected: the same results as the plain forms, whose inline
// definitions start from an undefined register that this compiler's uninitialised-use check trips over.
constexpr __mmask16 kAll = 0xFFFF;

// Eight doubles rounded to int32: the half is +0.5 where the value is greater than 0 (ordered: false for
// NaN) and -0.5 elsewhere, the sum is the rule's double sum and vcvttpd2dq its truncation with INT32_MIN
// out of range.
PX_AVX512 inline __m256i avx512RoundEight(const double *src) {
    const __m512d value = _mm512_loadu_pd(src);
    const __mmask8 positive = _mm512_cmp_pd_mask(value, _mm512_setzero_pd(), _CMP_GT_OQ);
    const __m512d half = _mm512_mask_blend_pd(positive, _mm512_set1_pd(-0.5), _mm512_set1_pd(0.5));
    return _mm512_maskz_cvttpd_epi32(0xFF, _mm512_add_pd(value, half));
}

// Sixteen doubles rounded to int32.
PX_AVX512 inline __m512i avx512RoundSixteen(const double *src) {
    return _mm512_maskz_inserti64x4(0xFF, _mm512_castsi256_si512(avx512RoundEight(src)),
                                    avx512RoundEight(src + 8), 1);
}

// Sixteen floats rounded to int32: the single-precision steps of sse2RoundFour(const float *), the step
// added only where the truncation is valid.
PX_AVX512 inline __m512i avx512RoundSixteen(__m512 value) {
    const __m512i whole = _mm512_maskz_cvttps_epi32(kAll, value);
    const __m512 rest = _mm512_sub_ps(value, _mm512_maskz_cvtepi32_ps(kAll, whole));
    const __m512i step = _mm512_maskz_cvttps_epi32(kAll, _mm512_add_ps(rest, rest));
    const __mmask16 valid = _mm512_cmpneq_epi32_mask(whole, _mm512_set1_epi32(INT32_MIN));
    return _mm512_mask_add_epi32(whole, valid, whole, step);
}
PX_AVX512 inline __m512i avx512RoundSixteen(const float *src) {
    return avx512RoundSixteen(_mm512_loadu_ps(src));
}

// Negatives raised to 0; the unsigned saturating narrowings (vpmovusdw, vpmovusdb) then clamp to the top.
PX_AVX512 inline __m512i avx512NonNegative(__m512i value) {
    return _mm512_maskz_max_epi32(kAll, value, _mm512_setzero_si512());
}

// Sixteen doubles rounded and raised to at least 0 (the unsigned narrowings then clamp the top).
PX_AVX512 inline __m512i avx512RoundNonNegative(const double *src) {
    return avx512NonNegative(avx512RoundSixteen(src));
}

// Sixteen floats rounded and clamped to [0, high], high below 2^22. NaN and values of 2^31 and above
// (infinity included) give 0, as the rule does (their rounded sum leaves int32); the others are first
// clamped in
// single precision to [0, high] (vmaxps gives its second operand, 0, for NaN), which rounding and the
// clamp would map to the same result. On [0, high] the rounding half away from zero is the truncation of
// v + h, h = 0.5 - 2^-25 (the float below 0.5): when v's fraction is below 0.5 the exact sum stays more
// than half a unit of its last place below the next integer, so its rounding does not reach it; when the
// fraction is 0.5 or more the sum rounds to at least the next integer.
template <int32_t high> PX_AVX512 inline __m512i avx512RoundClamped(__m512 value) {
    const __mmask16 small = _mm512_cmp_ps_mask(value, _mm512_set1_ps(2147483648.0f), _CMP_LT_OQ);
    const __m512 low = _mm512_maskz_max_ps(kAll, value, _mm512_setzero_ps());
    const __m512 clamped = _mm512_maskz_min_ps(kAll, low, _mm512_set1_ps(static_cast<float>(high)));
    return _mm512_maskz_cvttps_epi32(small, _mm512_add_ps(clamped, _mm512_set1_ps(0.49999997f)));
}
template <int32_t high> PX_AVX512 inline __m512i avx512RoundClamped(const float *src) {
    return avx512RoundClamped<high>(_mm512_loadu_ps(src));
}
template <int32_t high> PX_AVX512 inline __m512i avx512RoundClamped(const double *src) {
    return avx512RoundNonNegative(src);
}

// One step of each kind: sixteen pixels from src to dst (factor: the scaled kind's multiplier).
template <typename S> PX_AVX512 inline void avx512StepToInt(const S *src, int32_t *dst, __m512) {
    _mm512_storeu_si512(dst, avx512RoundSixteen(src));
}
template <typename S> PX_AVX512 inline void avx512StepToUint16(const S *src, uint16_t *dst, __m512) {
    _mm256_storeu_si256(reinterpret_cast<__m256i *>(dst),
                        _mm512_maskz_cvtusepi32_epi16(kAll, avx512RoundClamped<65535>(src)));
}
template <typename S> PX_AVX512 inline void avx512StepToUint8(const S *src, uint8_t *dst, __m512) {
    _mm_storeu_si128(reinterpret_cast<__m128i *>(dst),
                     _mm512_maskz_cvtusepi32_epi8(kAll, avx512RoundClamped<255>(src)));
}
// Products rounded to float by vmulps (no FMA in this code), then the kind-9 steps.
PX_AVX512 inline void avx512StepScaledToShort(const float *src, uint16_t *dst, __m512 factor) {
    const __m512i rounded = avx512RoundClamped<65535>(_mm512_mul_ps(_mm512_loadu_ps(src), factor));
    _mm256_storeu_si256(reinterpret_cast<__m256i *>(dst), _mm512_maskz_cvtusepi32_epi16(kAll, rounded));
}
// The widening kinds: zero-extended to int32, then converted (exactly).
PX_AVX512 inline void avx512StepUbyteToFloat(const uint8_t *src, float *dst, __m512) {
    const __m512i wide =
        _mm512_maskz_cvtepu8_epi32(kAll, _mm_loadu_si128(reinterpret_cast<const __m128i *>(src)));
    _mm512_storeu_ps(dst, _mm512_maskz_cvtepi32_ps(kAll, wide));
}
PX_AVX512 inline void avx512StepShortToFloat(const uint16_t *src, float *dst, __m512) {
    const __m512i wide =
        _mm512_maskz_cvtepu16_epi32(kAll, _mm256_loadu_si256(reinterpret_cast<const __m256i *>(src)));
    _mm512_storeu_ps(dst, _mm512_maskz_cvtepi32_ps(kAll, wide));
}

// A row of at least sixteen pixels in steps: the steps from the first pixel whose destination is aligned to
// the step's store (so that no store straddles two cache lines; rows of large images start 16 bytes past a
// page), one unaligned step before them at the row's start and one after them ending at the row's end.
// Steps overlap where they meet and write the same values there, as the rows do not overlap.
template <auto Step, typename S, typename D>
PX_AVX512 inline void avx512Row(const S *src, uint32_t count, D *dst, __m512 factor = _mm512_setzero_ps()) {
    uint32_t i = headToAlign(dst, count, 16 * sizeof(D));
    if (i > 0)
        Step(src, dst, factor);
    for (; i + 16 <= count; i += 16)
        Step(src + i, dst + i, factor);
    if (i < count)
        Step(src + count - 16, dst + count - 16, factor);
}

template <typename S> PX_AVX512 void avx512ToInt(const S *src, uint32_t count, int32_t *dst) {
    if (count < 16)
        return portableToInt(src, count, dst);
    avx512Row<avx512StepToInt<S>>(src, count, dst);
}

template <typename S> PX_AVX512 void avx512ToUint16(const S *src, uint32_t count, uint16_t *dst) {
    if (count < 16)
        return portableToClamped(src, count, dst);
    avx512Row<avx512StepToUint16<S>>(src, count, dst);
}

template <typename S> PX_AVX512 void avx512ToUint8(const S *src, uint32_t count, uint8_t *dst) {
    if (count < 16)
        return portableToClamped(src, count, dst);
    avx512Row<avx512StepToUint8<S>>(src, count, dst);
}

PX_AVX512 void avx512FloatScaledToShort(const float *src, uint32_t count, float scale, uint16_t *dst) {
    if (count < 16)
        return portableFloatScaledToShort(src, count, scale, dst);
    avx512Row<avx512StepScaledToShort>(src, count, dst, _mm512_set1_ps(scale));
}

PX_AVX512 void avx512UbyteToFloat(const uint8_t *src, uint32_t count, float *dst) {
    if (count < 16)
        return portableToFloat(src, count, dst);
    avx512Row<avx512StepUbyteToFloat>(src, count, dst);
}

PX_AVX512 void avx512ShortToFloat(const uint16_t *src, uint32_t count, float *dst) {
    if (count < 16)
        return portableToFloat(src, count, dst);
    avx512Row<avx512StepShortToFloat>(src, count, dst);
}

const pxImageNarrowKernels kAvx512 = {
    avx512ToInt<double>,      avx512ToUint16<double>, avx512ToUint8<double>, // DOUBLE
    avx512ToInt<float>,       avx512ToUint16<float>,  avx512ToUint8<float>,  // FLOAT
    avx512FloatScaledToShort,                                                // scaled
    avx512UbyteToFloat,       avx512ShortToFloat,                            // widening
};

#endif // __SSE2__

} // namespace

const pxImageNarrowKernels *pxImageNarrowKernelsAt(int level) {
    switch (level) {
    case PX_KERNELS_PORTABLE:
        return &kPortable;
#if defined(__SSE2__)
    case PX_KERNELS_SSE2:
        return &kSse2;
    case PX_KERNELS_AVX2:
        return __builtin_cpu_supports("avx2") ? &kAvx2 : nullptr;
    case PX_KERNELS_AVX512:
        return __builtin_cpu_supports("avx512f") ? &kAvx512 : nullptr;
#endif
    default:
        return nullptr;
    }
}

const pxImageNarrowKernels &pxImageNarrowKernelsBest() {
    static const pxImageNarrowKernels *const best = [] {
        for (int level = PX_KERNELS_AVX512; level > PX_KERNELS_PORTABLE; --level)
            if (const pxImageNarrowKernels *kernels = pxImageNarrowKernelsAt(level))
                return kernels;
        return &kPortable;
    }();
    return *best;
}
