#include <cstring>

#include "core/string/utf8.h"
#include "kestrine/platform/core/string.h"

namespace kestrine::platform::core::string {

namespace {

bool isContinuation(unsigned char byte) {
  return (byte & 0xC0) == 0x80;
}

// The well-formed UTF-8 sequences (Unicode, table 3-7): a lead byte fixes the length and the
// range of the second byte; every later byte is 80..BF. Checking the second byte's range
// rejects overlong forms, surrogates and values above U+10FFFF at the earliest byte, which
// is what makes each rejected run a "maximal subpart".
struct Lead {
  unsigned length;  // 0: not a lead byte
  unsigned char secondLow;
  unsigned char secondHigh;
};

Lead classify(unsigned char byte) {
  if (byte >= 0xC2 && byte <= 0xDF) return {2, 0x80, 0xBF};
  if (byte == 0xE0) return {3, 0xA0, 0xBF};
  if (byte == 0xED) return {3, 0x80, 0x9F};
  if (byte >= 0xE1 && byte <= 0xEF) return {3, 0x80, 0xBF};
  if (byte == 0xF0) return {4, 0x90, 0xBF};
  if (byte >= 0xF1 && byte <= 0xF3) return {4, 0x80, 0xBF};
  if (byte == 0xF4) return {4, 0x80, 0x8F};
  return {0, 0, 0};
}

const char kBase64Alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// The 6-bit value of a base64 character; -1 for padding, -2 for whitespace, -3 otherwise.
int sextet(unsigned char c) {
  if (c >= 'A' && c <= 'Z') return c - 'A';
  if (c >= 'a' && c <= 'z') return c - 'a' + 26;
  if (c >= '0' && c <= '9') return c - '0' + 52;
  if (c == '+') return 62;
  if (c == '/') return 63;
  if (c == '=') return -1;
  if (c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v') return -2;
  return -3;
}

}  // namespace

WideString StringAlgorithm::UTF8Decode(const char* text) {
  return text == nullptr ? WideString() : UTF8Decode(text, std::strlen(text));
}

WideString StringAlgorithm::UTF8Decode(const char* text, std::size_t length) {
  std::wstring out;
  UTF8Decode(text, length, out);
  return WideString(std::move(out));
}

void StringAlgorithm::UTF8Decode(const char* text, std::size_t length, std::wstring& out) {
  if (text == nullptr) length = 0;
  // No character takes less than a byte: sized for the most there can be, written in place,
  // and cut to what there was. Only grown, so that a reused string is not filled again.
  if (out.size() < length) out.resize(length);
  wchar_t* to = out.data();
  const unsigned char* bytes = reinterpret_cast<const unsigned char*>(text);
  std::size_t i = 0;
  while (i < length) {
    unsigned char byte = bytes[i];
    if (byte < 0x80) {
      *to++ = static_cast<wchar_t>(byte);
      ++i;
      continue;
    }
    Lead lead = classify(byte);
    if (lead.length == 0) {
      *to++ = static_cast<wchar_t>(utf8::kReplacement);
      ++i;
      continue;
    }
    char32_t value = byte & (0xFF >> (lead.length + 1));
    std::size_t taken = 1;
    for (; taken < lead.length && i + taken < length; ++taken) {
      unsigned char next = bytes[i + taken];
      bool fits =
          taken == 1 ? next >= lead.secondLow && next <= lead.secondHigh : isContinuation(next);
      if (!fits) break;
      value = value << 6 | (next & 0x3F);
    }
    // A short sequence is one maximal subpart: one replacement for everything it took, and
    // the byte that broke it starts afresh.
    *to++ = static_cast<wchar_t>(taken == lead.length ? value : utf8::kReplacement);
    i += taken;
  }
  out.resize(static_cast<std::size_t>(to - out.data()));
}

std::string StringAlgorithm::UTF8Encode(const WideString& text) {
  return UTF8Encode(text.string(), text.length());
}

std::string StringAlgorithm::UTF8Encode(const wchar_t* text, std::size_t length) {
  std::string out;
  if (text == nullptr) return out;
  out.reserve(length);
  for (std::size_t i = 0; i < length; ++i) {
    char32_t c = utf8::codePoint(text[i]);
    utf8::append(out, utf8::isScalar(c) ? c : utf8::kReplacement);
  }
  return out;
}

std::string StringAlgorithm::EncodeBase64(const void* data, std::size_t size) {
  const unsigned char* bytes = static_cast<const unsigned char*>(data);
  std::string out;
  if (bytes == nullptr || size == 0) return out;
  out.reserve((size + 2) / 3 * 4);
  std::size_t i = 0;
  for (; i + 3 <= size; i += 3) {
    unsigned group = bytes[i] << 16 | bytes[i + 1] << 8 | bytes[i + 2];
    out += kBase64Alphabet[group >> 18];
    out += kBase64Alphabet[(group >> 12) & 0x3F];
    out += kBase64Alphabet[(group >> 6) & 0x3F];
    out += kBase64Alphabet[group & 0x3F];
  }
  if (i < size) {
    unsigned group = bytes[i] << 16 | (i + 1 < size ? bytes[i + 1] << 8 : 0);
    out += kBase64Alphabet[group >> 18];
    out += kBase64Alphabet[(group >> 12) & 0x3F];
    out += i + 1 < size ? kBase64Alphabet[(group >> 6) & 0x3F] : '=';
    out += '=';
  }
  return out;
}

bool StringAlgorithm::DecodeBase64(const char* text, std::size_t length,
                                   std::vector<unsigned char>& out) {
  out.clear();
  if (text == nullptr) return length == 0;
  out.reserve(length / 4 * 3 + 3);
  unsigned group = 0;    // sextets of the group being read, high bits first
  unsigned pending = 0;  // sextets in `group`
  unsigned padding = 0;
  for (std::size_t i = 0; i < length; ++i) {
    int value = sextet(static_cast<unsigned char>(text[i]));
    if (value == -2) continue;
    if (value == -3 || (value >= 0 && padding != 0)) {
      out.clear();
      return false;
    }
    if (value == -1) {
      ++padding;
      continue;
    }
    group = group << 6 | static_cast<unsigned>(value);
    if (++pending == 4) {
      out.push_back(static_cast<unsigned char>(group >> 16));
      out.push_back(static_cast<unsigned char>(group >> 8));
      out.push_back(static_cast<unsigned char>(group));
      group = 0;
      pending = 0;
    }
  }
  // A last group of 2 or 3 sextets carries 1 or 2 bytes; padding, when given, must fill it
  // to 4 exactly. One sextet alone carries no whole byte: no encoder writes that.
  bool valid = pending != 1 && (padding == 0 || (pending != 0 && pending + padding == 4));
  if (!valid) {
    out.clear();
    return false;
  }
  if (pending >= 2) out.push_back(static_cast<unsigned char>(group >> (pending * 6 - 8)));
  if (pending == 3) out.push_back(static_cast<unsigned char>(group >> 2));
  return true;
}

}  // namespace kestrine::platform::core::string
