#ifndef KPL_CORE_STRING_UTF8_H_
#define KPL_CORE_STRING_UTF8_H_

#include <string>

// UTF-8 encoding of one code point, shared by the string conversions and the XML writer.
namespace kestrine::platform::core::string::utf8 {

constexpr char32_t kReplacement = 0xFFFD;

// True for a Unicode scalar value: not a surrogate, not above U+10FFFF.
inline bool isScalar(char32_t c) {
  return c < 0xD800 || (c > 0xDFFF && c <= 0x10FFFF);
}

// Writes the UTF-8 form of `c`, which must be a scalar value, at `out` (room for 4 bytes);
// where it ends.
inline char* encode(char32_t c, char* out) {
  if (c < 0x80) {
    *out++ = static_cast<char>(c);
  } else if (c < 0x800) {
    *out++ = static_cast<char>(0xC0 | (c >> 6));
    *out++ = static_cast<char>(0x80 | (c & 0x3F));
  } else if (c < 0x10000) {
    *out++ = static_cast<char>(0xE0 | (c >> 12));
    *out++ = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    *out++ = static_cast<char>(0x80 | (c & 0x3F));
  } else {
    *out++ = static_cast<char>(0xF0 | (c >> 18));
    *out++ = static_cast<char>(0x80 | ((c >> 12) & 0x3F));
    *out++ = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    *out++ = static_cast<char>(0x80 | (c & 0x3F));
  }
  return out;
}

// Appends the UTF-8 form of `c`, which must be a scalar value.
inline void append(std::string& out, char32_t c) {
  char bytes[4];
  out.append(bytes, encode(c, bytes));
}

// A wide unit as a code point; wchar_t is signed, so negative units land above U+10FFFF.
inline char32_t codePoint(wchar_t unit) {
  return static_cast<char32_t>(unit);
}

}  // namespace kestrine::platform::core::string::utf8

#endif  // KPL_CORE_STRING_UTF8_H_
