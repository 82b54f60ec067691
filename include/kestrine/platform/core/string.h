#ifndef KESTRINE_PLATFORM_CORE_STRING_H_
#define KESTRINE_PLATFORM_CORE_STRING_H_

#include <cstddef>
#include <string>
#include <vector>

#include "kestrine/platform/core/export.h"

namespace kestrine::platform::core::string {

// An owned wide string (wchar_t is 32 bits: one character per unit).
class KPL_CORE_API WideString {
 public:
  WideString() = default;
  // Copies up to the terminator; null gives the empty string.
  WideString(const wchar_t* text);  // NOLINT: implicit on purpose, as for std::wstring
  // Copies exactly `length` characters (which may include zeros); null gives the empty string.
  WideString(const wchar_t* text, unsigned length);
  explicit WideString(std::wstring text);

  // The characters, zero-terminated; null when the string is empty.
  const wchar_t* value() const { return text_.empty() ? nullptr : text_.c_str(); }
  // The characters, zero-terminated; never null ("" when empty).
  const wchar_t* string() const { return text_.c_str(); }
  // Number of characters, terminator not counted.
  unsigned length() const { return static_cast<unsigned>(text_.size()); }
  bool empty() const { return text_.empty(); }
  const std::wstring& wstring() const { return text_; }

  WideString& append(const WideString& tail);
  WideString& append(const wchar_t* tail);
  void clear() { text_.clear(); }

  bool operator==(const WideString& other) const { return text_ == other.text_; }
  bool operator!=(const WideString& other) const { return text_ != other.text_; }
  bool operator<(const WideString& other) const { return text_ < other.text_; }

 private:
  std::wstring text_;
};

// Conversions between UTF-8, wide strings and base64. All are pure functions, safe from any
// thread, and total: every input has a defined result.
class KPL_CORE_API StringAlgorithm {
 public:
  // UTF-8 to wide. Every ill-formed sequence (bad lead or continuation byte, truncation,
  // overlong form, surrogate, value above U+10FFFF) becomes one U+FFFD per maximal subpart,
  // as Unicode recommends; decoding then goes on. Null decodes to the empty string.
  static WideString UTF8Decode(const char* text);
  static WideString UTF8Decode(const char* text, std::size_t length);
  // The same into `out`, replacing what it held and reusing its storage: for callers that
  // decode many short strings, each of which would otherwise be allocated and freed.
  static void UTF8Decode(const char* text, std::size_t length, std::wstring& out);

  // Wide to UTF-8. A unit that is not a Unicode scalar value (a surrogate, or above
  // U+10FFFF) is encoded as U+FFFD.
  static std::string UTF8Encode(const WideString& text);
  static std::string UTF8Encode(const wchar_t* text, std::size_t length);

  // Standard base64 (RFC 4648 alphabet, "=" padding, no line breaks).
  static std::string EncodeBase64(const void* data, std::size_t size);

  // Decodes standard base64, skipping ASCII whitespace anywhere. Padding is optional at the
  // very end. Returns false and leaves `out` empty for any other character, misplaced
  // padding, or a length that no encoding produces (one stray character in a last group).
  static bool DecodeBase64(const char* text, std::size_t length, std::vector<unsigned char>& out);
};

}  // namespace kestrine::platform::core::string

#endif  // KESTRINE_PLATFORM_CORE_STRING_H_
