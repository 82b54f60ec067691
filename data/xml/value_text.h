#ifndef KPL_DATA_XML_VALUE_TEXT_H_
#define KPL_DATA_XML_VALUE_TEXT_H_

#include <locale>

namespace kestrine::platform::data::XML {

// The classic "C" locale that every number is written and read with, so that the text never
// depends on the user's locale: no digit grouping, "." as the decimal point.
extern const std::locale lc;

// Wide characters that ToWString may write, terminator included; no number needs half.
constexpr unsigned kNumberText = 64;

// Writes `value` as decimal text into `out` (at least kNumberText characters), terminated.
// Every integer type, bool and the one-byte types included, is written as an integer (-5,
// never a character; 1 or 0 for bool). Float and double are written with 7 significant
// digits in the shorter of fixed and exponent notation (3.14159265 gives 3.141593, 1e-10
// gives 1e-10): doubles keep no more than floats. Safe from any thread.
template <class T>
void ToWString(wchar_t* out, const T& value);

// Reads one T from the start of `text`: leading whitespace is skipped and whatever follows
// the number is ignored ("12abc" gives 12, "1.5" read as an int gives 1). False, leaving
// `result` untouched, when no number of that type starts there (an empty token, "true",
// a value out of the type's range). Safe from any thread.
template <class T>
bool CastTo(const char* text, T& result);

}  // namespace kestrine::platform::data::XML

#endif  // KPL_DATA_XML_VALUE_TEXT_H_
