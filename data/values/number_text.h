#ifndef KPL_DATA_VALUES_NUMBER_TEXT_H_
#define KPL_DATA_VALUES_NUMBER_TEXT_H_

#include <cstddef>
#include <vector>

#include "kestrine/platform/data/metadata/value.h"

// Decimal text of the numeric value types (bool to the 4x4 matrix), written and read without
// streams or locales. The text is the one that documents have always held: every number is
// written and read exactly as the classic-locale streams did, so that files written before and
// after stay byte for byte the same and every token reads into the same bits. All functions
// keep no state and allocate nothing; they are safe from any thread.

namespace kestrine::platform::data::Values {

// The size in characters of the buffer printNumber writes into: room for the longest number,
// 24 characters ("-2.2250738585072014e-308"), its terminator, and some to spare.
constexpr std::size_t kNumberTextSize = 32;

// How printNumber writes a floating-point element (scalar, double, and one vector or matrix
// component); integers and bools are exact either way.
enum class FloatDigits {
  // 7 significant digits in the shorter of fixed and exponent notation, trailing zeros dropped
  // (3.14159265 gives 3.141593, 1e-5 gives 1e-05): the form every document has been written in.
  kSeven,
  // The fewest digits that scanNumber reads back to the same bits (0.1 gives 0.1, a float 0.1
  // too, 2^-1074 gives 5e-324); -0 keeps its sign.
  kShortest,
};

// Writes one element of a numeric type (7 to 23), read from the bytes at `element` (any
// alignment; a bool is one byte and any non-zero byte is true), as ASCII into `out`, which
// holds kNumberTextSize characters; the text is terminated. Returns its length, or 0, writing
// nothing, for any other type.
//
// Integers are written in decimal, bools as 1 or 0. Infinities are written "inf" and "-inf",
// NaNs "nan" or "-nan" by their sign, whatever their payload, in both forms. scanNumber
// refuses those four, so a non-finite value does not survive a round trip: the reader keeps
// what the element held before.
std::size_t printNumber(metadata::tValue type, const char* element, char* out, FloatDigits digits);

// printNumber for `count` elements of one type at `elements`, one after another, a blank
// between each two; `out` holds count * kNumberTextSize characters. The text is terminated
// (when count is 0 it is empty). Returns its length, or 0 for a type without a number form.
std::size_t printNumbers(metadata::tValue type, const char* elements, std::size_t count, char* out,
                         FloatDigits digits);

// The same text as wide characters, for writers that build wide strings; `out` holds
// kNumberTextSize of them.
std::size_t printNumber(metadata::tValue type, const char* element, wchar_t* out,
                        FloatDigits digits);

// Reads the number at the start of the terminated `text` into the 8 bytes at `element` (any
// alignment) for a numeric type (7 to 23); true when a number was read. Bool, int8, int16 and
// int32 are read as a 32-bit int and uint8, uint16 and uint32 as a 32-bit unsigned, of which
// the caller keeps the element's width (300 read for an int8 keeps 44); int64 and uint64 fill
// 8 bytes, scalar 4 (a float) and the other types 8 (a double).
//
// Leading white space (space, \t, \n, \v, \f, \r) is skipped and whatever follows the
// number is ignored ("12abc" gives 12, "1.5" read as an int gives 1, "0x10" gives 0). A number
// is an optional sign and digits; for floating-point types digits with at most one point, then
// optionally "e" or "E", a sign and digits. An unsigned type takes a "-" and wraps the value
// ("-1" gives the largest value). A floating-point value that rounds below the smallest
// denormal reads as a zero of its sign. False, leaving `element` untouched, for any other type
// and when the number is missing, out of the read type's range, or is a float whose exponent
// mark has no digits ("1e", "1e+"); "inf", "nan" and hexadecimal are never read.
bool scanNumber(metadata::tValue type, const char* text, char* element);

// A block of numbers as scanBlock read it: how many, and whether separators follow the last
// (where a block split at separators has one more, empty, token).
struct tBlock {
  std::size_t numbers = 0;
  bool trailing = false;
};

// A whole block of numbers read at once, for the types whose elements keep what they read:
// scalar, double and the vector and matrix types, int32, int64, and the unsigned uint32 and
// uint64 but for a minus sign, which wraps. When `text` is one or more tokens separated by
// blanks, tabs, CRs and LFs (any number of them, before and after too), each of which
// scanNumber reads whole, to its last character, appends one element per token to `out`,
// each what scanNumber reads from it, and answers true. False, leaving `out` as it was, for
// any other type or text: tokens that do not read, or read only in part ("12abc"), are read
// one by one.
bool scanBlock(metadata::tValue type, const char* text, std::vector<char>& out, tBlock& block);

// Whether the number that scanNumber read from `text` into `element` is kept as written: bool,
// int8 and int16 are read as an int of which only the low bytes are kept, uint8 and uint16
// as an unsigned int likewise, and the unsigned types take a minus sign by wrapping around
// ("300" as an int8 keeps 44, "2" as a bool stays 2 but is written back as 1, "-1" as a
// uint32 keeps 4294967295). True for the other types.
bool fitsElement(metadata::tValue type, const char* text, const char* element);

}  // namespace kestrine::platform::data::Values

#endif  // KPL_DATA_VALUES_NUMBER_TEXT_H_
