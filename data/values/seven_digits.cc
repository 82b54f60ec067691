#include "data/values/seven_digits.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <type_traits>

#if defined(__x86_64__) && defined(__GNUC__)
#include <immintrin.h>
#define KPL_ROUND_EIGHT 1
// The eight-lane functions are compiled for AVX-512 whatever the build's target, and called
// only where the processor has it.
#define KPL_AVX512 __attribute__((target("avx512f,avx512dq")))
// The steps of a group are inlined into the loop over groups, which then sets up its
// constants once for the whole batch rather than once a group.
#define KPL_AVX512_STEP KPL_AVX512 inline __attribute__((always_inline))
#endif

namespace kestrine::platform::data::Values {

#ifdef KPL_ROUND_EIGHT

// GCC 12's AVX-512 headers start some results from an undefined vector on purpose, which its
// own uninitialized-use warnings then report at every call.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wuninitialized"
#ifndef __clang__
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif

namespace {

// kExactPowersOfTen[index] for each lane's index in [0, 22], picked from three registers by
// permutations, which take a few cycles where a gather from memory takes tens.
KPL_AVX512_STEP __m512d exactPowerOfTen(__m512i index) {
  const __m512d low = _mm512_loadu_pd(kExactPowersOfTen);
  const __m512d middle = _mm512_loadu_pd(kExactPowersOfTen + 8);
  const __m512d high = _mm512_loadu_pd(kExactPowersOfTen + kLastExactPower - 7);
  const __m512d below16 = _mm512_permutex2var_pd(low, index, middle);
  const __mmask8 above15 = _mm512_cmpgt_epi64_mask(index, _mm512_set1_epi64(15));
  const __m512i fromHigh = _mm512_sub_epi64(index, _mm512_set1_epi64(kLastExactPower - 7));
  return _mm512_mask_permutexvar_pd(below16, above15, fromHigh, high);
}

// The magnitudes scaled by the exact power of ten that brings a value of each lane's decimal
// exponent into [10^6, 10^7); clears in `usable` the lanes that no exact power serves.
KPL_AVX512_STEP __m512d scaleToSeven(__m512d magnitude, __m512i exponent, __mmask8& usable) {
  const __m512i scale = _mm512_sub_epi64(_mm512_set1_epi64(6), exponent);
  const __m512i power = _mm512_abs_epi64(scale);
  const __m512i last = _mm512_set1_epi64(kLastExactPower);
  usable &= _mm512_cmple_epi64_mask(power, last);
  const __m512d factor = exactPowerOfTen(_mm512_min_epi64(power, last));
  __m512d scaled = _mm512_mul_pd(magnitude, factor);
  // Values of 10^7 and more, which data seldom has, are divided.
  const __mmask8 divide = _mm512_cmplt_epi64_mask(scale, _mm512_setzero_si512());
  if (divide != 0) scaled = _mm512_mask_div_pd(scaled, divide, magnitude, factor);
  return scaled;
}

// roundToSeven for the magnitudes of the lanes of `values`, step for step; bit i of the
// answer is set when lane i was rounded.
KPL_AVX512_STEP unsigned roundEight(__m512d values, tSevenDigits rounded[8]) {
  const __m512i one = _mm512_set1_epi64(1);
  const __m512i bits =
      _mm512_and_si512(_mm512_castpd_si512(values), _mm512_set1_epi64(0x7FFFFFFFFFFFFFFF));
  const __m512d magnitude = _mm512_castsi512_pd(bits);
  // Zeros and denormals have the exponent field 0, infinities and NaNs all ones.
  const __m512i field = _mm512_srli_epi64(bits, 52);
  __mmask8 usable = _mm512_cmpneq_epi64_mask(field, _mm512_setzero_si512()) &
                    _mm512_cmpneq_epi64_mask(field, _mm512_set1_epi64(0x7FF));
  const __m512i binary = _mm512_sub_epi64(field, _mm512_set1_epi64(1023));
  __m512i exponent = _mm512_srai_epi64(_mm512_mullo_epi64(binary, _mm512_set1_epi64(1233)), 12);
  __m512d scaled = scaleToSeven(magnitude, exponent, usable);
  // The lanes whose estimate was one below go again, a decade up.
  const __m512d top = _mm512_set1_pd(1e7);
  const __mmask8 over = _mm512_cmp_pd_mask(scaled, top, _CMP_GE_OQ) & usable;
  if (over != 0) {
    exponent = _mm512_mask_add_epi64(exponent, over, exponent, one);
    __mmask8 again = over;
    scaled = _mm512_mask_mov_pd(scaled, over, scaleToSeven(magnitude, exponent, again));
    usable = (usable & ~over) | again;
    usable &= ~_mm512_cmp_pd_mask(scaled, top, _CMP_GE_OQ);
  }
  // Positive and below 10^7 in the lanes that count: the conversion truncates.
  const __m512i whole = _mm512_cvttpd_epu64(scaled);
  const __m512d fraction = _mm512_sub_pd(scaled, _mm512_cvtepu64_pd(whole));
  const __m512d fromTie = _mm512_abs_pd(_mm512_sub_pd(fraction, _mm512_set1_pd(0.5)));
  usable &= _mm512_cmp_pd_mask(fromTie, _mm512_set1_pd(1e-6), _CMP_NLT_UQ);
  const __mmask8 up = _mm512_cmp_pd_mask(fraction, _mm512_set1_pd(0.5), _CMP_GT_OQ);
  __m512i digits = _mm512_mask_add_epi64(whole, up, whole, one);
  usable &= _mm512_cmpge_epu64_mask(digits, _mm512_set1_epi64(1000000));
  const __mmask8 carried = _mm512_cmpeq_epi64_mask(digits, _mm512_set1_epi64(10000000));
  digits = _mm512_mask_mov_epi64(digits, carried, _mm512_set1_epi64(1000000));
  exponent = _mm512_mask_add_epi64(exponent, carried, exponent, one);
  // The digits as sevenDigits makes them, one per multiplication of the fraction by ten
  // rather than two per hundred: the whole part of ten times a fraction, and then of ten
  // times what is left, are the two digits of a hundred times it, so each digit is the same.
  // Each digit stands in bits 48 to 51 of its product: shifted to its byte, it goes in with
  // the bits below it masked off, in one three-way logic step; the "0"s go on at the end.
  __m512i fixed = _mm512_mullo_epi64(digits, _mm512_set1_epi64(kOneMillionth));
  __m512i word = _mm512_srli_epi64(fixed, 48);
  for (unsigned shift = 8; shift < 56; shift += 8) {
    fixed = _mm512_and_si512(fixed, _mm512_set1_epi64(kFraction));
    fixed = _mm512_add_epi64(_mm512_slli_epi64(fixed, 3), _mm512_slli_epi64(fixed, 1));
    const __m512i digitByte = _mm512_set1_epi64(std::int64_t{0xF} << shift);
    constexpr int kOrAnd = 0xF8;  // word | (shifted & digitByte)
    word = _mm512_ternarylogic_epi64(word, _mm512_srli_epi64(fixed, 48 - shift), digitByte, kOrAnd);
  }
  word = _mm512_or_si512(word, _mm512_set1_epi64(kZeros));
  // Each lane's digits and exponent interleaved, as tSevenDigits lays them out: the low half
  // of an exponent is the int, and its high half falls on the padding behind it.
  static_assert(sizeof(tSevenDigits) == 16 && offsetof(tSevenDigits, exponent) == 8,
                "two 64-bit words a result");
  const __m512i firstFour = _mm512_set_epi64(11, 3, 10, 2, 9, 1, 8, 0);
  const __m512i lastFour = _mm512_set_epi64(15, 7, 14, 6, 13, 5, 12, 4);
  _mm512_storeu_si512(rounded, _mm512_permutex2var_epi64(word, firstFour, exponent));
  _mm512_storeu_si512(rounded + 4, _mm512_permutex2var_epi64(word, lastFour, exponent));
  return usable;
}

// Rounds `count` values of type Held, a double or a float, eight at a time. The lanes past
// the values are loaded as zeros, which are never rounded, and nothing is read past them.
template <class Held>
KPL_AVX512 std::uint64_t roundBatch(const char* elements, unsigned count, tSevenDigits rounded[]) {
  std::uint64_t done = 0;
  for (unsigned group = 0; group < count; group += 8) {
    const __mmask8 lanes = static_cast<__mmask8>((1u << std::min(count - group, 8u)) - 1);
    const char* const first = elements + group * sizeof(Held);
    __m512d values;
    if constexpr (std::is_same_v<Held, double>) {
      values = _mm512_maskz_loadu_pd(lanes, first);
    } else {
      const __m512 floats = _mm512_maskz_loadu_ps(lanes, first);
      values = _mm512_cvtps_pd(_mm512_castps512_ps256(floats));
    }
    done |= std::uint64_t{roundEight(values, rounded + group)} << group;
  }
  return done;
}

}  // namespace

bool canRoundEight() {
  static const bool can = [] {
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512dq");
  }();
  return can;
}

std::uint64_t roundDoublesToSeven(const char* elements, unsigned count, tSevenDigits rounded[]) {
  return roundBatch<double>(elements, count, rounded);
}

std::uint64_t roundFloatsToSeven(const char* elements, unsigned count, tSevenDigits rounded[]) {
  return roundBatch<float>(elements, count, rounded);
}

#pragma GCC diagnostic pop

#else

bool canRoundEight() {
  return false;
}

std::uint64_t roundDoublesToSeven(const char*, unsigned, tSevenDigits[]) {
  return 0;
}

std::uint64_t roundFloatsToSeven(const char*, unsigned, tSevenDigits[]) {
  return 0;
}

#endif

}  // namespace kestrine::platform::data::Values
