#include "data/values/number_text.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <limits>
#include <type_traits>
#include <vector>

#include "data/values/seven_digits.h"

namespace kestrine::platform::data::Values {

namespace {

template <class T>
T load(const char* element) {
  T value;
  std::memcpy(&value, element, sizeof value);
  return value;
}

std::size_t terminate(char* out, char* end) {
  *end = '\0';
  return static_cast<std::size_t>(end - out);
}

// printf's "%.7g" of `value` by the exact conversion: to_chars with a precision is defined to
// match it digit for digit, exponent padding ("1e-05") and "-nan" included.
char* printExactly(double value, char* out, char* last) {
  return std::to_chars(out, last, value, std::chars_format::general, 7).ptr;
}

// The "%.7g" text of `value`, whose magnitude rounds to `rounded`.
inline __attribute__((always_inline)) char* printRounded(double value, const tSevenDigits& rounded,
                                                         char* out, char* last) {
  // Seven digits, and zeros behind them: digits go out eight bytes at a time, each copy a
  // single move rather than a call, and what lies past a copy's count is written over or
  // lies past the end. A fixed number has at most seven digits before its point (the
  // exponent is at most 6) and three zeros after it (at least -4).
  const std::uint64_t digits = rounded.digits;
  const int exponent = rounded.exponent;
  // The digits that count end at the last one that is no zero: the highest byte that
  // differs from "0". The first digit never is one.
  const int count = (63 - __builtin_clzll(digits ^ kZeros)) / 8 + 1;
  // The eight bytes from digit `first` on, zeros past the seventh.
  auto put = [digits](char* to, int first, int length) {
    const std::uint64_t bytes =
        first == 0 ? digits : digits >> (8 * first) | kZeros << (64 - 8 * first);
    std::memcpy(to, &bytes, 8);
    return to + length;
  };

  // The sign is written without a branch: in most data it is as good as random, and a
  // mispredicted branch costs about what the rest of a number does.
  char* to = out;
  *to = '-';
  to += value < 0;
  if (exponent < -4 || exponent >= 7) {
    *to++ = static_cast<char>(digits);
    if (count > 1) {
      *to++ = '.';
      to = put(to, 1, count - 1);
    }
    *to++ = 'e';
    *to++ = exponent < 0 ? '-' : '+';
    const int magnitude = std::abs(exponent);
    if (magnitude < 10) *to++ = '0';
    return std::to_chars(to, last, magnitude).ptr;
  }
  if (exponent < 0) {
    std::memcpy(to, "0.000", 5);
    return put(to + 1 - exponent, 0, count);
  }
  const int whole = exponent + 1;
  // The digits before the point, with the zeros that follow the last digit when it lies there.
  to = put(to, 0, whole);
  if (count <= whole) return to;
  *to++ = '.';
  return put(to, whole, count - whole);
}

// printf's "%.7g" of `value`, which is what the stream wrote (a float widened to a double,
// which changes no digit). The exact conversion works on the exact binary value and costs as
// much as all the rest of an export; roundToSeven decides all but near-ties and extreme
// exponents cheaply, and zeros, denormals, infinities and NaNs keep the exact path.
char* printSevenDigits(double value, char* out, char* last) {
  const double magnitude = std::fabs(value);
  // Zeros and denormals have the exponent field 0, infinities and NaNs all ones.
  const auto field = load<std::uint64_t>(reinterpret_cast<const char*>(&magnitude)) >> 52;
  tSevenDigits rounded;
  if (field == 0 || field == 0x7FF || !roundToSeven(magnitude, rounded))
    return printExactly(value, out, last);
  return printRounded(value, rounded, out, last);
}

// printSevenDigits for `count` elements of type Held, a float or a double, rounded eight at a
// time, a blank between each two; where the text ends. Only where canRoundEight(). A batch
// of values is rounded before any is written, so that the roundings of its groups, which do
// not depend on each other, overlap in the processor.
template <class Held>
char* printSevenDigitsByEight(const char* elements, std::size_t count, char* out) {
  constexpr auto round = std::is_same_v<Held, double> ? roundDoublesToSeven : roundFloatsToSeven;
  constexpr std::size_t kBatch = 64;
  tSevenDigits rounded[kBatch];
  for (std::size_t first = 0; first < count; first += kBatch) {
    const std::size_t size = std::min(count - first, kBatch);
    const std::uint64_t done =
        round(elements + first * sizeof(Held), static_cast<unsigned>(size), rounded);
    for (std::size_t i = 0; i < size; ++i) {
      if (first + i != 0) *out++ = ' ';
      const double value = load<Held>(elements + (first + i) * sizeof(Held));
      char* const last = out + kNumberTextSize - 1;
      out = (done >> i & 1) != 0 ? printRounded(value, rounded[i], out, last)
                                 : printExactly(value, out, last);
    }
  }
  return out;
}

// Writes `count` elements of `size` bytes with `print`, a blank between each two; where the
// text ends.
template <class Print>
char* printEach(const char* elements, std::size_t size, std::size_t count, char* out, Print print) {
  for (std::size_t i = 0; i < count; ++i) {
    if (i != 0) *out++ = ' ';
    out = print(elements + i * size, out);
  }
  return out;
}

// printEach for elements of type Held, each into room for kNumberTextSize characters. One
// loop per type and form, so that each element costs no call and no look-up of its
// conversion.
template <class Held>
char* printAs(const char* elements, std::size_t count, char* out, FloatDigits digits) {
  auto each = [&](auto print) { return printEach(elements, sizeof(Held), count, out, print); };
  if constexpr (std::is_same_v<Held, bool>) {
    // Read as a byte, never as a bool object: scanning a bool stores any number, 2 included.
    return each([](const char* element, char* to) {
      *to = load<unsigned char>(element) != 0 ? '1' : '0';
      return to + 1;
    });
  } else {
    if constexpr (std::is_floating_point_v<Held>) {
      if (digits == FloatDigits::kSeven && canRoundEight())
        return printSevenDigitsByEight<Held>(elements, count, out);
      if (digits == FloatDigits::kSeven) {
        return each([](const char* element, char* to) {
          return printSevenDigits(load<Held>(element), to, to + kNumberTextSize - 1);
        });
      }
    }
    if constexpr (std::is_integral_v<Held> && std::is_signed_v<Held>) {
      // Integers exactly, the sign without a branch as for seven digits.
      return each([](const char* element, char* to) {
        using Magnitude = std::make_unsigned_t<Held>;
        const Held value = load<Held>(element);
        const auto magnitude =
            static_cast<Magnitude>(value < 0 ? Magnitude(0) - static_cast<Magnitude>(value)
                                             : static_cast<Magnitude>(value));
        *to = '-';
        to += value < 0;
        return std::to_chars(to, to + kNumberTextSize - 2, magnitude).ptr;
      });
    }
    // Unsigned integers exactly, floating-point values in their shortest form.
    return each([](const char* element, char* to) {
      return std::to_chars(to, to + kNumberTextSize - 1, load<Held>(element)).ptr;
    });
  }
}

// The classic locale's white space, the characters the stream skipped before a number.
bool isSpace(char c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}

bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

const char* skipSpace(const char* text) {
  while (isSpace(*text))
    ++text;
  return text;
}

const char* skipSign(const char* text) {
  return *text == '+' || *text == '-' ? text + 1 : text;
}

const char* skipDigits(const char* text) {
  while (isDigit(*text))
    ++text;
  return text;
}

// Reads [+-]digits the way the stream did: into 64 bits first, refusing what does not fit the
// read type, where a "-" before an unsigned type wraps the magnitude (as strtoul does) rather
// than failing. A full int went through a long and was then checked against int's range,
// which comes to the same bounds.
template <class Integer>
bool readInteger(const char* text, Integer& result) {
  const bool negative = *text == '-';
  const char* const first = skipSign(text);
  const char* const last = skipDigits(first);
  std::uint64_t magnitude;
  if (std::from_chars(first, last, magnitude).ec != std::errc()) return false;
  constexpr std::uint64_t kMax = std::numeric_limits<Integer>::max();
  const std::uint64_t limit = negative && std::is_signed_v<Integer> ? kMax + 1 : kMax;
  if (magnitude > limit) return false;
  result = static_cast<Integer>(negative ? 0 - magnitude : magnitude);
  return true;
}

// The end of the characters the stream collected for a floating-point number: a sign, digits
// with at most one point, and then "e" or "E", a sign and digits. It stopped at anything else,
// so "0x10" ends after the 0 and "inf" at once, and then failed unless all it collected formed
// a number ("1e" and "." fail, "5." does not).
const char* floatEnd(const char* text) {
  const char* end = skipSign(text);
  for (bool sawPoint = false; isDigit(*end) || (*end == '.' && !sawPoint); ++end)
    sawPoint |= *end == '.';
  if (*end != 'e' && *end != 'E') return end;
  return skipDigits(skipSign(end + 1));
}

// Whether a number that from_chars found out of range lies below one, having underflowed
// rather than overflowed. It lies dozens of decades away from one, so the decade of its first
// non-zero digit decides: the count of digits before the point, leading zeros aside, or less
// the zeros right after the point, moved by the exponent. An exponent too long for 64 bits
// stands for one beyond any count of digits a string in memory can hold.
bool belowOne(const char* first, const char* last) {
  const char* digit = skipSign(first);
  while (*digit == '0')
    ++digit;
  const char* const point = skipDigits(digit);
  std::int64_t decade = point - digit;
  if (decade == 0 && *point == '.') {
    for (const char* zero = point + 1; *zero == '0'; ++zero)
      --decade;
  }
  const char* const mark = skipDigits(*point == '.' ? point + 1 : point);
  std::int64_t exponent = 0;
  if (mark != last) {
    constexpr std::int64_t kBeyond = std::int64_t{1} << 62;
    if (std::from_chars(skipSign(mark + 1), last, exponent).ec != std::errc()) exponent = kBeyond;
    if (mark[1] == '-') exponent = -exponent;
  }
  return decade + exponent <= 0;
}

// The common decimals ("-123.4567"), read without the general conversion: digits with at
// most one point inside them and no exponent, whose digits as an integer m and count k after
// the point make m and 10^k exact in Float. Then m / 10^k is one correctly rounded division,
// which is the correctly rounded value of the decimal, as strtod gives it (Clinger's fast
// path). Answers where the number ends, or null, reading nothing, for any other text.
template <class Float>
const char* readPlainDecimal(const char* text, Float& result) {
  constexpr std::uint64_t kExactInteger = std::uint64_t{1} << std::numeric_limits<Float>::digits;
  constexpr int kExactPower = std::is_same_v<Float, float> ? 10 : kLastExactPower;
  const bool negative = *text == '-';
  const char* at = skipSign(text);
  std::uint64_t digits = 0;
  int room = 19;  // digits in all, before and after the point, that 64 bits hold
  for (; room != 0 && isDigit(*at); --room, ++at)
    digits = digits * 10 + static_cast<unsigned>(*at - '0');
  int after = 0;
  if (*at == '.') {
    const int before = room;
    for (++at; room != 0 && isDigit(*at); --room, ++at)
      digits = digits * 10 + static_cast<unsigned>(*at - '0');
    after = before - room;
    if (after == 0) return nullptr;  // "5." and "." are left to the general reading
  }
  if (room == 19 || isDigit(*at) || *at == '.' || *at == 'e' || *at == 'E') return nullptr;
  if (digits > kExactInteger || after > kExactPower) return nullptr;
  const Float value = static_cast<Float>(digits) / static_cast<Float>(kExactPowersOfTen[after]);
  result = negative ? -value : value;
  return at;
}

// The general reading of the number from `text` to `last`, where floatEnd() puts its end.
// The stream handed what it collected to strtod (strtof for a float) and failed unless every
// collected character was used and the result was finite. An underflow was no failure there:
// strtod's zero of the right sign was kept. from_chars rounds the same way but refuses both
// overflow and underflow, and takes no "+".
template <class Float>
bool readGeneralFloat(const char* text, const char* last, Float& result) {
  const char* const first = *text == '+' ? text + 1 : text;
  const auto [end, error] = std::from_chars(first, last, result);
  if (end != last || error == std::errc::invalid_argument) return false;
  if (error == std::errc()) return true;
  if (!belowOne(first, last)) return false;
  result = *first == '-' ? -Float{0} : Float{0};
  return true;
}

// Reads a floating-point number the way the stream did, the common decimals without the
// general conversion: where it ends, or null when it does not read.
template <class Float>
const char* readFloat(const char* text, Float& result) {
  if (const char* end = readPlainDecimal(text, result)) return end;
  const char* const end = floatEnd(text);
  return readGeneralFloat(text, end, result) ? end : nullptr;
}

// The separators of a block of numbers: blank, tab, CR and LF.
bool isSeparator(char c) {
  return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

// Reads the token at `text` as scanNumber reads it for an element of type Held, when that
// keeps it as written: where the number ends, or null when it does not read, or does not
// read as written (a minus before an unsigned type wraps).
template <class Held>
const char* readKept(const char* text, Held& value) {
  if constexpr (std::is_floating_point_v<Held>) {
    return readFloat(text, value);
  } else {
    if (std::is_unsigned_v<Held> && *text == '-') return nullptr;
    return readInteger(text, value) ? skipDigits(skipSign(text)) : nullptr;
  }
}

template <class Held>
bool scanBlockAs(const char* text, std::vector<char>& out, tBlock& block) {
  const std::size_t start = out.size();
  // Room for the most tokens the text can hold, one character and a separator each; cut to
  // what was read.
  out.resize(start + (std::strlen(text) / 2 + 1) * sizeof(Held));
  char* to = out.data() + start;
  block = tBlock{};
  for (;;) {
    while (isSeparator(*text))
      ++text;
    if (*text == '\0') break;
    // The token must be all number: what follows one ("12abc") is read otherwise.
    Held value;
    const char* const end = readKept(text, value);
    if (end == nullptr || (*end != '\0' && !isSeparator(*end))) {
      out.resize(start);
      return false;
    }
    std::memcpy(to, &value, sizeof value);
    to += sizeof value;
    ++block.numbers;
    text = end;
    block.trailing = *text != '\0';
  }
  out.resize(static_cast<std::size_t>(to - out.data()));
  return block.numbers != 0;
}

template <class Read>
bool scanAs(const char* text, char* element) {
  text = skipSpace(text);
  Read value;
  bool read;
  if constexpr (std::is_floating_point_v<Read>) {
    read = readFloat(text, value) != nullptr;
  } else {
    read = readInteger(text, value);
  }
  if (read) std::memcpy(element, &value, sizeof value);
  return read;
}

// What each numeric type's element holds, and the type a token is read as.
struct Conversion {
  char* (*print)(const char* elements, std::size_t count, char* out, FloatDigits digits);
  bool (*scan)(const char* text, char* element);
};

template <class Held, class Read>
constexpr Conversion conversion() {
  return {&printAs<Held>, &scanAs<Read>};
}

constexpr metadata::tValue kFirstNumeric = metadata::kBool;
constexpr Conversion kConversions[] = {
    conversion<bool, int>(),                     // kBool
    conversion<std::int8_t, int>(),              // kInt8
    conversion<std::uint8_t, unsigned>(),        // kUInt8
    conversion<std::int16_t, int>(),             // kInt16
    conversion<std::uint16_t, unsigned>(),       // kUInt16
    conversion<std::int32_t, int>(),             // kInt32
    conversion<std::uint32_t, unsigned>(),       // kUInt32
    conversion<std::int64_t, std::int64_t>(),    // kInt64
    conversion<std::uint64_t, std::uint64_t>(),  // kUInt64
    conversion<float, float>(),                  // kScalar
    conversion<double, double>(),                // kDouble
    conversion<double, double>(),                // kVector2
    conversion<double, double>(),                // kVector3
    conversion<double, double>(),                // kVector4
    conversion<double, double>(),                // kMatrix2x2
    conversion<double, double>(),                // kMatrix3x3
    conversion<double, double>(),                // kMatrix4x4
};

const Conversion* conversionOf(metadata::tValue type) {
  const std::size_t index = type - kFirstNumeric;  // wraps for the types below
  return index < std::size(kConversions) ? &kConversions[index] : nullptr;
}

}  // namespace

std::size_t printNumber(metadata::tValue type, const char* element, char* out, FloatDigits digits) {
  return printNumbers(type, element, 1, out, digits);
}

std::size_t printNumbers(metadata::tValue type, const char* elements, std::size_t count, char* out,
                         FloatDigits digits) {
  const Conversion* conversion = conversionOf(type);
  return conversion != nullptr ? terminate(out, conversion->print(elements, count, out, digits))
                               : 0;
}

std::size_t printNumber(metadata::tValue type, const char* element, wchar_t* out,
                        FloatDigits digits) {
  char text[kNumberTextSize];
  const std::size_t length = printNumber(type, element, text, digits);
  if (length == 0) return 0;
  for (std::size_t i = 0; i <= length; ++i)
    out[i] = static_cast<unsigned char>(text[i]);
  return length;
}

bool scanNumber(metadata::tValue type, const char* text, char* element) {
  const Conversion* conversion = conversionOf(type);
  return conversion != nullptr && conversion->scan(text, element);
}

bool scanBlock(metadata::tValue type, const char* text, std::vector<char>& out, tBlock& block) {
  switch (type) {
    case metadata::kInt32:
      return scanBlockAs<std::int32_t>(text, out, block);
    case metadata::kUInt32:
      return scanBlockAs<std::uint32_t>(text, out, block);
    case metadata::kInt64:
      return scanBlockAs<std::int64_t>(text, out, block);
    case metadata::kUInt64:
      return scanBlockAs<std::uint64_t>(text, out, block);
    case metadata::kScalar:
      return scanBlockAs<float>(text, out, block);
    default: {
      const Conversion* conversion = conversionOf(type);
      return conversion != nullptr && conversion->scan == &scanAs<double> &&
             scanBlockAs<double>(text, out, block);
    }
  }
}

bool fitsElement(metadata::tValue type, const char* text, const char* element) {
  std::int32_t asInt;
  std::uint32_t asUnsigned;
  std::memcpy(&asInt, element, 4);
  std::memcpy(&asUnsigned, element, 4);
  text = skipSpace(text);
  const bool wrapped = *text == '-' && asUnsigned != 0;
  switch (type) {
    case metadata::kBool:
      return asInt == 0 || asInt == 1;
    case metadata::kInt8:
      return asInt >= -128 && asInt <= 127;
    case metadata::kInt16:
      return asInt >= -32768 && asInt <= 32767;
    case metadata::kUInt8:
      return asUnsigned <= 0xFF && !wrapped;
    case metadata::kUInt16:
      return asUnsigned <= 0xFFFF && !wrapped;
    case metadata::kUInt32:
      return !wrapped;
    case metadata::kUInt64: {
      std::uint64_t value;
      std::memcpy(&value, element, 8);
      return !(*text == '-' && value != 0);
    }
    default:
      return true;
  }
}

}  // namespace kestrine::platform::data::Values
