#include "data/values/seven_digits.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace kestrine::platform::data::Values {
namespace {

// Values of every kind: random bits (every exponent, zeros, denormals, infinities, NaNs), the
// decimals that documents hold and their near ties at the seventh digit with their
// neighbours, the tops of decades that round up into the next, and the bounds of the exact
// powers of ten.
std::vector<double> samples() {
  std::mt19937_64 random(20261125);
  std::vector<double> values = {0.0,        -0.0,       std::numeric_limits<double>::denorm_min(),
                                1e-17,      1e-16,      9999999.5,
                                9999999.49, 99999995.0, 1e22,
                                1e23,       1e28,       1e29,
                                1e30,       -1e-300,    1234567.5};
  for (int i = 0; i < 30000; ++i) {
    std::uint64_t bits = random();
    double value;
    std::memcpy(&value, &bits, sizeof value);
    values.push_back(value);
    std::string text = random() % 2 ? "-" : "";
    for (int digits = 1 + static_cast<int>(random() % 17); digits > 0; --digits)
      text += static_cast<char>('0' + random() % 10);
    if (i % 2) text += '5';  // a tie at the digit after it
    const int exponent = static_cast<int>(random() % 50) - 25 - static_cast<int>(text.size());
    value = std::strtod((text + 'e' + std::to_string(exponent)).c_str(), nullptr);
    values.insert(values.end(), {value, std::nextafter(value, 0.0), std::nextafter(value, 1e300)});
    // Just off a tie at the eighth digit, on either side of where the one-at-a-time
    // rounding stops trusting the scaling.
    const double off[] = {2e-7, 5e-7, 9e-7, 2e-6};
    const double tie = 1000000 + static_cast<double>(random() % 9000000) + 0.5 +
                       (random() % 2 ? 1 : -1) * off[random() % 4];
    values.push_back(tie * kExactPowersOfTen[random() % 8] / 1e6);
  }
  return values;
}

template <class Float>
void expectEightAsOne(const std::vector<Float>& values,
                      std::uint64_t (*round)(const char*, unsigned, tSevenDigits[])) {
  std::size_t rounded = 0;
  for (std::size_t i = 0; i < values.size(); i += 64) {
    const unsigned count = static_cast<unsigned>(std::min<std::size_t>(values.size() - i, 64));
    tSevenDigits eight[64];
    const std::uint64_t done =
        round(reinterpret_cast<const char*>(values.data() + i), count, eight);
    if (count < 64) {
      ASSERT_EQ(done >> count, 0u) << "a lane past the values was rounded";
    }
    for (unsigned lane = 0; lane < count; ++lane) {
      const double value = values[i + lane];
      tSevenDigits one{};
      const bool normal = std::isnormal(value);
      const bool expected = normal && roundToSeven(std::fabs(value), one);
      ASSERT_EQ((done >> lane & 1) != 0, expected) << value;
      if (!expected) continue;
      ++rounded;
      EXPECT_EQ(eight[lane].digits, one.digits) << value;
      EXPECT_EQ(eight[lane].exponent, one.exponent) << value;
    }
  }
  // Most of these values are normal and far from ties: a kernel that rounds nothing fails.
  EXPECT_GT(rounded, values.size() / 2);
}

// Catches: eight values rounded at once to other digits or exponents than one at a time, or
// rounded where one at a time leaves them to the exact conversion (near ties, decades that
// no exact power reaches, non-finite values), for doubles and for floats, and lanes past the
// given count taken for values.
TEST(SevenDigits, EightAtOnceRoundAsOneAtATime) {
  if (!canRoundEight()) GTEST_SKIP() << "no AVX-512 on this processor";
  const std::vector<double> doubles = samples();
  expectEightAsOne(doubles, roundDoublesToSeven);
  // Sizes that leave every count of values in the last group of eight.
  for (std::size_t drop = 1; drop < 8; ++drop)
    expectEightAsOne(std::vector<double>(doubles.begin(), doubles.end() - drop),
                     roundDoublesToSeven);
  std::vector<float> floats;
  for (double value : doubles)
    floats.push_back(static_cast<float>(value));
  expectEightAsOne(floats, roundFloatsToSeven);
}

}  // namespace
}  // namespace kestrine::platform::data::Values
