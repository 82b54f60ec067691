#include "data/values/number_text.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <locale>
#include <random>
#include <string>
#include <vector>

#include "data/values/stream_numbers_test_support.h"

// Differential tests: the stream-based conversions (stream::printNumber, stream::scanNumber) are
// the reference that every value and every token must agree with, byte for byte.

namespace kestrine::platform::data::Values {
namespace {

using Bytes = std::array<unsigned char, 8>;
using Limits = std::numeric_limits<double>;

constexpr metadata::tValue kFirst = metadata::kBool, kLast = metadata::kMatrix4x4;

template <class T>
Bytes bytesOf(T value) {
  Bytes bytes{};
  std::memcpy(bytes.data(), &value, sizeof value);
  return bytes;
}

double fromBits(std::uint64_t bits) {
  double value;
  std::memcpy(&value, &bits, sizeof value);
  return value;
}

float floatFromBits(std::uint32_t bits) {
  float value;
  std::memcpy(&value, &bits, sizeof value);
  return value;
}

// Compares the text of one element's bytes as each type from `first` to `last` (by default
// every type, the non-numeric ones around them included), in both widths of character.
void expectSamePrint(const Bytes& element, unsigned first = 0, unsigned last = kLast + 2) {
  const char* bytes = reinterpret_cast<const char*>(element.data());
  for (unsigned type = first; type <= last; ++type) {
    const auto value = metadata::tValue(type);
    wchar_t reference[64] = L"untouched";
    const bool printed = stream::printNumber(value, bytes, reference);
    wchar_t wide[kNumberTextSize] = L"untouched";
    char narrow[kNumberTextSize] = "untouched";
    const std::size_t length = printNumber(value, bytes, narrow, FloatDigits::kSeven);
    ASSERT_EQ(printNumber(value, bytes, wide, FloatDigits::kSeven), length);
    ASSERT_EQ(std::wstring(wide), std::wstring(reference)) << "type " << type;
    ASSERT_EQ(std::wstring(narrow, narrow + std::strlen(narrow)), std::wstring(reference));
    ASSERT_EQ(length, printed ? std::strlen(narrow) : 0u);
  }
}

struct Scanned {
  bool read;
  Bytes bytes;
  bool operator==(const Scanned& other) const { return read == other.read && bytes == other.bytes; }
};

// Compares reading `text` for every type: the answer and all 8 bytes, sign of zero and NaN
// bits included, starting from bytes that a refusal must leave as they were.
void expectSameScan(const std::string& text, unsigned first = 0, unsigned last = kLast + 2) {
  for (unsigned type = first; type <= last; ++type) {
    Scanned reference{false, {}}, scanned{false, {}};
    reference.bytes.fill(0xa5);
    scanned.bytes.fill(0xa5);
    const auto value = metadata::tValue(type);
    reference.read =
        stream::scanNumber(value, text.c_str(), reinterpret_cast<char*>(&reference.bytes));
    scanned.read = scanNumber(value, text.c_str(), reinterpret_cast<char*>(&scanned.bytes));
    ASSERT_EQ(scanned, reference) << "type " << type << " token \"" << text << '"';
  }
}

// Doubles where the seven-digit text takes each of its shapes: zeros of both signs, the
// denormal and normal bounds, infinities, NaNs with payloads, powers of ten where fixed turns
// into exponent notation and the values that round up to them, and exact ties at the seventh
// digit, odd and even. How to_chars rounds each decade is its authors' to test, not ours.
std::vector<double> awkwardDoubles() {
  return {0.0, -0.0, Limits::denorm_min(), Limits::min(), Limits::min() - Limits::denorm_min(),
          Limits::max(), Limits::infinity(), -Limits::infinity(),
          // NaNs, signalling and quiet, of both signs and with payloads
          fromBits(0x7ff0000000000001), fromBits(0xfff8000000000000), fromBits(0x7fffffffffffffff),
          fromBits(0xfff0000deadbeef0),
          // the examples everyone tries, and exact ties at the seventh digit, odd and even
          9999999.5, 999999.95, 0.00001, 0.0001, 1e-5, 1e16, -1e-300, 3.14159265, 1234567.5,
          1234566.5, 12345675, 12345665};
}

// Catches: seven-digit text differing in digits, notation, exponent, ties, zero sign or NaN/inf.
TEST(NumberTextTest, PrintsAwkwardValuesAsTheStreamDid) {
  for (double value : awkwardDoubles()) {
    expectSamePrint(bytesOf(value), metadata::kDouble, metadata::kDouble);
    expectSamePrint(bytesOf(static_cast<float>(value)), metadata::kScalar, metadata::kScalar);
  }
  for (std::uint64_t bits : {0x8000000000000000ull, 0x7fffffffffffffffull, ~0ull, 0x80ull,
                             0x8000ull, 0x80000000ull, 0xffull, 0xffffull, 0xffffffffull, 2ull})
    expectSamePrint(bytesOf(bits));
  expectSamePrint(bytesOf(floatFromBits(0x7f800001)));  // a signalling float NaN
  expectSamePrint(bytesOf(floatFromBits(0xffc00001)));
}

// Catches: the same on random bits (every exponent, denormals, NaN payloads) read as every type.
TEST(NumberTextTest, PrintsRandomBitPatternsAsTheStreamDid) {
  std::mt19937_64 random(20240611);
  for (int i = 0; i < 20000; ++i)
    expectSamePrint(bytesOf(random()));
}

// Catches: seven digits rounded from the shortest ones where the exact value rounds otherwise.
// Random bits seldom land where documents' numbers are, nor on the eight-digit ties (x.xxxxxx5)
// and their neighbours, where rounding the shortest digits and rounding the value can differ.
TEST(NumberTextTest, PrintsDecimalValuesAndNearTiesAsTheStreamDid) {
  std::mt19937_64 random(20261125);
  for (int i = 0; i < 20000; ++i) {
    const int digits = 1 + static_cast<int>(random() % 17);
    std::string text = random() % 2 ? "-" : "";
    for (int d = 0; d < digits; ++d)
      text += static_cast<char>('0' + random() % 10);
    if (i % 2) text.replace(text.size() - 1, 1, "5");  // a tie at its last digit
    const int exponent = static_cast<int>(random() % 40) - 20 - digits;
    const double value = std::strtod((text + 'e' + std::to_string(exponent)).c_str(), nullptr);
    for (double near : {value, std::nextafter(value, 0.0), std::nextafter(value, 1e300)}) {
      expectSamePrint(bytesOf(near), metadata::kDouble, metadata::kDouble);
      expectSamePrint(bytesOf(static_cast<float>(near)), metadata::kScalar, metadata::kScalar);
    }
  }
}

// Writes `value` in the shortest form and reads it back through the stream.
template <class Float>
void expectShortestReadsBack(Float value, metadata::tValue type) {
  const Bytes element = bytesOf(value);
  const char* bytes = reinterpret_cast<const char*>(element.data());
  char text[kNumberTextSize], seven[kNumberTextSize];
  printNumber(type, bytes, text, FloatDigits::kShortest);
  printNumber(type, bytes, seven, FloatDigits::kSeven);
  if (!std::isfinite(value)) {
    ASSERT_STREQ(text, seven);
    return;
  }
  Bytes back{};
  ASSERT_TRUE(stream::scanNumber(type, text, reinterpret_cast<char*>(back.data()))) << text;
  ASSERT_EQ(back, element) << text;
}

std::string shortest(metadata::tValue type, const Bytes& element) {
  char text[kNumberTextSize];
  printNumber(type, reinterpret_cast<const char*>(element.data()), text, FloatDigits::kShortest);
  return text;
}

// Catches: shortest text that reads back to other bits, is longer than needed, or spells NaN.
TEST(NumberTextTest, ShortestTextReadsBackToTheSameBits) {
  std::mt19937_64 random(7);
  std::vector<double> values = awkwardDoubles();
  for (int i = 0; i < 20000; ++i)
    values.push_back(fromBits(random()));
  for (double value : values) {
    expectShortestReadsBack(value, metadata::kMatrix2x2);
    expectShortestReadsBack(static_cast<float>(value), metadata::kScalar);
    expectShortestReadsBack(floatFromBits(static_cast<std::uint32_t>(random())), metadata::kScalar);
  }
  EXPECT_EQ(shortest(metadata::kScalar, bytesOf(0.1f)), "0.1");
  EXPECT_EQ(shortest(metadata::kVector3, bytesOf(Limits::denorm_min())), "5e-324");
  EXPECT_EQ(shortest(metadata::kDouble, bytesOf(-0.0)), "-0");
  EXPECT_EQ(shortest(metadata::kDouble, bytesOf(3.14159265)), "3.14159265");
}

// Tokens on the edges of the stream's grammar and of every type's range, '|' between them.
std::vector<std::string> awkwardTokens() {
  const char* lists[] = {
      // signs, points, exponent marks; what the stream never reads; white space and junk
      "| |+|-|+-1|-+1|--1|- 1|1e|1E|1e+|1e-|1ex|1e+x|1e++5|1e5.5|1e5e5|1.5e|e5|E5|.|-.|+.|.e5",
      "0.e5|.5|-.5|5.|-5.|1.5.3|0x10|-0x10|0X1p3|inf|-inf|nan|-nan|infinity|INF|0|-0|+0|-0.0|000",
      "00012|0012.50|12abc| \t\n\v\f\r42|\x80"
      "1|\xa0"
      "1|1 2|true|1,5|1_000",
      // integer bounds of 8 to 64 bits, both signs
      "255|256|-129|65536|2147483647|2147483648|-2147483648|-2147483649|4294967295|4294967296",
      "-4294967295|-4294967296|9223372036854775807|9223372036854775808|-9223372036854775808",
      "-9223372036854775809|18446744073709551615|18446744073709551616|-18446744073709551615",
      "-18446744073709551616|000000000000000000000000000000018446744073709551615",
      // around the largest float and double, and rounding into and out of the largest value
      "3.4028235e38|3.4028236e38|3.40282357e38|3.4028234664e38|1.7976931348623157e308",
      "1.7976931348623158e308|1.797693134862315807e308|1.7976931348623159e308|1e309|-1e309",
      // underflow to zero and to the smallest denormals, both signs
      "1e-400|-1e-400|1e-46|-1e-46|1.4e-45|7e-46|7.1e-46|2.4703282292062327e-324",
      "2.4703282292062328e-324|-4.9406564584124654e-324|2.2250738585072011e-308",
      // exponents beyond any range, and a mantissa needing more than 53 bits
      "1e99999999999999999999999|1e-99999999999999999999999|0e99999999999999999999999",
      "0.0001e-99999999999999999|1000e-99999999999999999999999|0.000001e99999999999999999999",
      "9007199254740993|9007199254740993.000000000000000000000000000001"};
  std::vector<std::string> tokens;
  for (const std::string list : lists) {
    for (std::size_t start = 0, end = 0; end != std::string::npos; start = end + 1) {
      end = list.find('|', start);
      tokens.push_back(list.substr(start, end - start));
    }
  }
  // Long digit strings: beyond every digit buffer, all zeros but for a far digit, underflowing
  // by their leading zeros, and overflowing by their length.
  tokens.push_back("1" + std::string(400, '0'));
  tokens.push_back("1" + std::string(300, '0') + "e-600");
  tokens.push_back("0." + std::string(500, '0') + "1e100");
  tokens.push_back(std::string(500, '0') + "1e-400");
  tokens.push_back("1" + std::string(400, '0') + "e-800");
  tokens.push_back("0." + std::string(400, '0') + "1");
  tokens.push_back("-0." + std::string(400, '0') + "1");
  tokens.push_back("1." + std::string(2000, '0') + "1");
  tokens.push_back(std::string(3000, '0') + "1.5");
  tokens.push_back(std::string(5000, '9'));
  return tokens;
}

// Catches: a token accepted, refused or stored unlike the stream (bounds, signs, underflow, ties).
TEST(NumberTextTest, ScansAwkwardTokensAsTheStreamDid) {
  for (const std::string& token : awkwardTokens()) {
    expectSameScan(token);
    expectSameScan(" -" + token);
    expectSameScan(token + "x");
  }
  for (int c = 1; c < 256; ++c)
    expectSameScan(std::string(1, static_cast<char>(c)) + "7");
}

// Catches: a plain decimal read otherwise than the stream did: rounded twice, or taken by the
// shortcut beyond the digits and decimals its types hold exactly (2^24 and 10^10 for floats,
// 2^53 and 10^22 for doubles), where only the general reading rounds right.
TEST(NumberTextTest, ScansPlainDecimalsAsTheStreamDid) {
  std::mt19937_64 random(7);
  for (int i = 0; i < 40000; ++i) {
    const int digits = 1 + static_cast<int>(random() % 20);
    std::string text = random() % 2 ? "-" : "";
    // Around the limits of exact integers: 16777216 and 9007199254740992.
    if (i % 4 == 0) text += i % 8 ? "1677721" : "900719925474099";
    for (int d = 0; d < digits; ++d)
      text += static_cast<char>('0' + random() % 10);
    const std::size_t sign = text[0] == '-' ? 1 : 0;
    const std::size_t point = text.size() - random() % (text.size() - sign + 1);
    if (point != text.size()) text.insert(point, ".");
    expectSameScan(text, metadata::kScalar, metadata::kDouble);
  }
  // One decimal past the exact powers: 11 places for a float, 23 for a double.
  for (int i = 0; i < 40000; ++i) {
    const bool single = i % 2 == 0;
    std::string digits = std::to_string(random() % (single ? 16777216 : 9007199254740992));
    const std::size_t places = single ? 11 : 23;
    if (digits.size() < places) digits.insert(0, places - digits.size(), '0');
    const std::string text = "0." + digits.substr(digits.size() - places);
    expectSameScan(text, single ? metadata::kScalar : metadata::kDouble,
                   single ? metadata::kScalar : metadata::kDouble);
  }
}

// A token from the pieces a number is made of, each present or not, with junk after it.
std::string randomToken(std::mt19937_64& random) {
  static const std::string kPieces[] = {" ", "\t", "+", "-", "0", "7", "9",  "12345678901234567",
                                        ".", "e",  "E", "x", "i", "n", "\n", ","};
  static const std::string kShapes[] = {"",   " ", "-", "+",  "0",  "1",   "00", "12", ".",
                                        ".5", "e", "E", "e-", "e+", "300", "40", "x",  "a"};
  std::string token;
  if (random() % 4 == 0) {
    for (int n = random() % 12; n > 0; --n)
      token += kPieces[random() % std::size(kPieces)];
    return token;
  }
  for (int piece = 0; piece < 6; ++piece)
    token += kShapes[random() % std::size(kShapes)];
  return token;
}

// Catches: the same on tokens no list thinks of, each read as one random type.
TEST(NumberTextTest, ScansRandomTokensAsTheStreamDid) {
  std::mt19937_64 random(424242);
  for (int i = 0; i < 100000; ++i) {
    const unsigned type = kFirst + random() % (kLast - kFirst + 1);
    expectSameScan(randomToken(random), type, type);
  }
}

// Catches a block read at once that differs from its tokens read one by one: a value, a
// count, separators after the last token missed, a token read in part ("12abc") or one that
// does not read taken, or a refused block that leaves elements behind.
TEST(NumberTextTest, ReadsBlocksOfNumbersAsTheirTokens) {
  static const char kSeparators[] = {' ', '\t', '\r', '\n'};
  std::mt19937_64 random(99);
  auto separators = [&random](std::string& text, int most) {
    for (int n = static_cast<int>(random() % (most + 1)); n > 0; --n)
      text += kSeparators[random() % 4];
  };
  for (int i = 0; i < 20000; ++i) {
    const bool plain = i % 2 == 0;
    std::string text;
    std::vector<std::string> tokens;
    separators(text, 2);
    for (int t = 1 + static_cast<int>(random() % 6); t > 0; --t) {
      std::string token = random() % 2 ? "-" : "";
      token += std::to_string(random() % 1000000);
      if (random() % 2) token += "." + std::to_string(random() % 100000);
      if (!plain && random() % 3 == 0) token = randomToken(random);
      if (token.find_first_of(" \t\r\n") != std::string::npos || token.empty()) continue;
      tokens.push_back(token);
      text += token;
      text += kSeparators[random() % 4];
      separators(text, 1);
    }
    if (tokens.empty() || random() % 2) {
      while (!text.empty() && std::strchr(" \t\r\n", text.back()) != nullptr)
        text.pop_back();
    }
    const bool points = text.find('.') != std::string::npos;
    const bool minus = text.find('-') != std::string::npos;
    for (metadata::tValue type :
         {metadata::kScalar, metadata::kDouble, metadata::kVector3, metadata::kInt32,
          metadata::kUInt32, metadata::kInt64, metadata::kUInt64}) {
      std::vector<char> out(3, 'x');
      tBlock block;
      const bool read = scanBlock(type, text.c_str(), out, block);
      // An integer type reads "1.5" in part, and an unsigned one wraps "-1".
      const bool integer = type >= metadata::kInt32 && type <= metadata::kUInt64;
      const bool wraps = type == metadata::kUInt32 || type == metadata::kUInt64;
      if (plain && !(integer && points) && !(wraps && minus)) {
        ASSERT_EQ(read, !tokens.empty()) << text;
      }
      if (!read) {
        EXPECT_EQ(out, std::vector<char>(3, 'x')) << text;
        continue;
      }
      const std::size_t width =
          type == metadata::kScalar || type == metadata::kInt32 || type == metadata::kUInt32 ? 4
                                                                                             : 8;
      ASSERT_EQ(block.numbers, tokens.size()) << text;
      ASSERT_EQ(out.size(), 3 + tokens.size() * width) << text;
      EXPECT_EQ(block.trailing, std::strchr(" \t\r\n", text.back()) != nullptr) << text;
      for (std::size_t t = 0; t < tokens.size(); ++t) {
        char expected[8];
        ASSERT_TRUE(scanNumber(type, tokens[t].c_str(), expected)) << tokens[t];
        EXPECT_EQ(std::memcmp(out.data() + 3 + t * width, expected, width), 0) << tokens[t];
      }
    }
  }
  std::vector<char> out;
  tBlock block;
  for (const char* refused : {"", " \t", "1 12abc", "1 -", "1\v2", "1 1e", "inf", "1 1e999"})
    EXPECT_FALSE(scanBlock(metadata::kDouble, refused, out, block)) << refused;
  EXPECT_FALSE(scanBlock(metadata::kInt32, "1 2.5", out, block));
  EXPECT_FALSE(scanBlock(metadata::kUInt32, "1 -2", out, block));
  EXPECT_FALSE(scanBlock(metadata::kInt8, "1 2", out, block));  // may not keep what it reads
  EXPECT_FALSE(scanBlock(metadata::kInt32, "1 99999999999", out, block));
  EXPECT_TRUE(out.empty());
}

// A locale with "," as decimal point and digit grouping, as a user's locale may be.
template <class Char>
struct CommaPunct : std::numpunct<Char> {
  Char do_decimal_point() const override { return ','; }
  Char do_thousands_sep() const override { return '.'; }
  std::string do_grouping() const override { return "\3"; }
};

// Catches: text that depends on the process's locale, and the documented fixed points lost
// (seven digits for doubles too, integers and bools as numbers, never characters).
TEST(NumberTextTest, WritesTheFixedPointsWhateverTheProcessLocale) {
  std::locale previous = std::locale::global(std::locale(
      std::locale(std::locale::classic(), new CommaPunct<wchar_t>), new CommaPunct<char>));
  auto text = [](metadata::tValue type, auto value) {
    char out[kNumberTextSize];
    printNumber(type, reinterpret_cast<const char*>(&value), out, FloatDigits::kSeven);
    return std::string(out);
  };
  const std::string pi = text(metadata::kDouble, 3.14159265), big = text(metadata::kInt32, 1234567);
  const std::string byte = text(metadata::kInt8, static_cast<signed char>(-128));
  const std::string truth = text(metadata::kBool, static_cast<unsigned char>(2));
  double read = 0;
  const bool scanned = scanNumber(metadata::kDouble, "2.25", reinterpret_cast<char*>(&read));
  std::locale::global(previous);
  EXPECT_EQ(pi, "3.141593");
  EXPECT_EQ(big, "1234567");
  EXPECT_EQ(byte, "-128");
  EXPECT_EQ(truth, "1");
  EXPECT_TRUE(scanned);
  EXPECT_EQ(read, 2.25);
}

}  // namespace
}  // namespace kestrine::platform::data::Values
