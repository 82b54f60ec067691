#ifndef KPL_DATA_VALUES_SEVEN_DIGITS_H_
#define KPL_DATA_VALUES_SEVEN_DIGITS_H_

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>

// Doubles rounded to the seven significant digits of printf's "%.7g" without its exact
// arithmetic, one at a time or, where the processor has AVX-512, eight at once. Both decide
// all but near-ties and extreme exponents, which the caller converts exactly.

namespace kestrine::platform::data::Values {

// The powers of ten that a double holds exactly.
inline constexpr double kExactPowersOfTen[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                               1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                               1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
inline constexpr int kLastExactPower = 22;

// "00000000", the bytes of a word read little-endian.
inline constexpr std::uint64_t kZeros = 0x3030303030303030;

// A magnitude rounded to seven significant digits: the digits as the first seven bytes of a
// word read little-endian, its eighth "0"; the first digit is worth 10^exponent.
struct tSevenDigits {
  std::uint64_t digits;
  int exponent;
};

// The fraction of value / 10^6 as a fixed-point number with 48 bits after the point.
inline constexpr std::uint64_t kFraction = (std::uint64_t{1} << 48) - 1;
// ceil(2^48 / 10^6): value times this is value / 10^6 in that fixed point.
inline constexpr std::uint64_t kOneMillionth = 281474977;

// The decimal digits of `value`, which lies in [10^6, 10^7), as the first seven bytes of a word
// (read little-endian) whose eighth is "0": value / 10^6 as a fixed-point number with 48 bits
// after the point, then the first digit from its whole part and three pairs, each from the
// whole part of the fraction times 100. The factor is 2^48 / 10^6 rounded up, which errs by
// less than 10^-6 of a unit over the whole range, so no digit comes out one too low (the
// fixed-point method of jeaiii's itoa). The digits are put together in a register: stored one
// or two at a time and read back as a word, they would wait for the stores to retire.
inline std::uint64_t sevenDigits(std::uint32_t value) {
  static constexpr char kPairs[] =
      "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
      "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
      "8081828384858687888990919293949596979899";
  std::uint64_t fixed = value * kOneMillionth;
  std::uint64_t word = '0' + (fixed >> 48);
  for (int shift = 8; shift < 56; shift += 16) {
    fixed = (fixed & kFraction) * 100;
    std::uint16_t pair;
    std::memcpy(&pair, kPairs + 2 * (fixed >> 48), 2);
    word |= std::uint64_t{pair} << shift;
  }
  return word | std::uint64_t{'0'} << 56;
}

// Rounds a positive normal `magnitude` the way printf does on its exact binary value: seven
// digits in [10^6, 10^7), worth 10^(exponent - 6), from one correctly rounded multiplication or
// division by the exact power of ten that scales the value into that range. That leaves it
// within 2^-53 of itself, about 1e-9 there, so the nearest integer is the exact value's
// unless the scaled value lies within 1e-6 of a tie. False for those, and for magnitudes that
// no exact power brings into range: they are left to the exact conversion. Inline, because
// where nothing rounds eight at once the values are printed one at a time.
inline bool roundToSeven(double magnitude, tSevenDigits& rounded) {
  // The binary exponent of a normal double: 2^binary <= magnitude < 2^(binary + 1).
  std::uint64_t bits;
  std::memcpy(&bits, &magnitude, sizeof bits);
  const int binary = static_cast<int>((bits >> 52) & 0x7FF) - 1023;
  int exponent = (binary * 1233) >> 12;  // floor(log10(2^binary)): one below, or right
  for (int attempt = 0; attempt < 2; ++attempt) {
    const int scale = 6 - exponent;
    if (std::abs(scale) > kLastExactPower) return false;
    const double scaled =
        scale >= 0 ? magnitude * kExactPowersOfTen[scale] : magnitude / kExactPowersOfTen[-scale];
    if (scaled >= 1e7) {
      ++exponent;
      continue;
    }
    // Positive and below 10^7: the conversion truncates, which is the floor.
    const std::uint32_t whole = static_cast<std::uint32_t>(scaled);
    const double fraction = scaled - whole;
    if (std::fabs(fraction - 0.5) < 1e-6) return false;
    std::uint32_t digits = whole + (fraction > 0.5 ? 1 : 0);
    if (digits < 1000000) return false;  // cannot happen for an exponent one below or right
    if (digits == 10000000) {            // 9999999.6 becomes 1.000000e7
      digits = 1000000;
      ++exponent;
    }
    rounded = {sevenDigits(digits), exponent};
    return true;
  }
  return false;
}

// Whether roundDoublesToSeven and roundFloatsToSeven can run on this processor.
bool canRoundEight();

// Rounds the magnitudes of `count` (at most 64) doubles at `elements` (any alignment, any
// values) as roundToSeven does, eight at a time, where canRoundEight(). Bit i of the answer
// is set when value i was rounded, into rounded[i]; a clear bit leaves the value to the exact
// conversion, as zeros, denormals, infinities and NaNs always are. It rounds exactly the
// values that roundToSeven rounds, and to the same digits.
std::uint64_t roundDoublesToSeven(const char* elements, unsigned count, tSevenDigits rounded[]);
// The same for floats, widened to doubles.
std::uint64_t roundFloatsToSeven(const char* elements, unsigned count, tSevenDigits rounded[]);

}  // namespace kestrine::platform::data::Values

#endif  // KPL_DATA_VALUES_SEVEN_DIGITS_H_
