#ifndef KPL_DATA_VALUES_SEVEN_DIGITS_H_
#define KPL_DATA_VALUES_SEVEN_DIGITS_H_

#include <cstdint>

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

// Rounds a positive normal `magnitude` the way printf does on its exact binary value; false
// for the values left to the exact conversion.
bool roundToSeven(double magnitude, tSevenDigits& rounded);

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
