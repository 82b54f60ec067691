#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "kestrine/platform/core/string.h"

namespace kestrine::platform::core::string {
namespace {

// Each decoding also goes into one string reused throughout, which must come to hold what a
// fresh one does, whatever it held before: longer text, or shorter.
std::wstring decode(const std::string& bytes) {
  static std::wstring reused = L"held before, longer than most of the samples";
  std::wstring fresh = StringAlgorithm::UTF8Decode(bytes.data(), bytes.size()).wstring();
  StringAlgorithm::UTF8Decode(bytes.data(), bytes.size(), reused);
  EXPECT_EQ(reused, fresh);
  return fresh;
}

const wchar_t R = 0xFFFD;

// Catches: a wrong decoding or encoding for any sequence length (checked against bytes
// written out, then through a round trip of every length boundary), and a zero byte taken
// for the end.
TEST(UTF8, ScalarValuesOfEveryLengthDecodeAndEncode) {
  EXPECT_EQ(decode("plain"), L"plain");
  EXPECT_EQ(decode("\xC3\xA9"), L"\u00E9");
  EXPECT_EQ(decode("\xE2\x82\xAC"), L"\u20AC");
  EXPECT_EQ(decode("\xF0\x9F\x98\x80"), L"\U0001F600");
  EXPECT_EQ(decode("\xF4\x8F\xBF\xBF"), L"\U0010FFFF");
  EXPECT_EQ(decode(std::string("a\0b", 3)), std::wstring(L"a\0b", 3));
  EXPECT_EQ(StringAlgorithm::UTF8Decode("z\xC3\xA9").wstring(), L"z\u00E9");
  EXPECT_TRUE(StringAlgorithm::UTF8Decode(nullptr).empty());
  EXPECT_TRUE(StringAlgorithm::UTF8Decode(nullptr, 5).empty());

  std::wstring all;
  for (wchar_t c : {0x1, 0x7F, 0x80, 0x7FF, 0x800, 0xD7FF, 0xE000, 0xFFFF, 0x10000, 0x10FFFF})
    all += c;
  std::string bytes = StringAlgorithm::UTF8Encode(WideString(all));
  EXPECT_EQ(bytes.size(), 1u + 1 + 2 + 2 + 3 + 3 + 3 + 3 + 4 + 4);
  EXPECT_EQ(decode(bytes), all);
}

// Catches: ill-formed input decoded as some character, or replaced by more or fewer
// replacement characters than Unicode's "maximal subpart" practice gives.
TEST(UTF8, IllFormedSequencesBecomeOneReplacementPerMaximalSubpart) {
  struct Case {
    const char* what;
    std::string bytes;
    std::wstring expected;
  };
  const Case cases[] = {
      {"lone continuation", "a\x80z", {L'a', R, L'z'}},
      {"bytes that never lead", "\xC0\xC1\xF5\xFF", {R, R, R, R}},
      {"overlong three-byte", "\xE0\x80\xAF", {R, R, R}},
      {"overlong four-byte", "\xF0\x80\x80\xAF", {R, R, R, R}},
      {"surrogate D800", "\xED\xA0\x80", {R, R, R}},
      {"above U+10FFFF", "\xF4\x90\x80\x80", {R, R, R, R}},
      {"five-byte form", "\xF8\x88\x80\x80\x80", {R, R, R, R, R}},
      {"truncated three-byte at end", "\xE2\x82", {R}},
      {"truncated four-byte at end", "\xF0\x9F\x98", {R}},
      {"Unicode's sample",
       "\x61\xF1\x80\x80\xE1\x80\xC2\x62\x80\x63\x80\xBF\x64",
       {L'a', R, R, R, L'b', R, L'c', R, R, L'd'}},
  };
  for (const Case& c : cases)
    EXPECT_EQ(decode(c.bytes), c.expected) << c.what;
}

// Catches: surrogates and values past U+10FFFF written as bytes no decoder accepts.
TEST(UTF8, UnitsThatAreNotScalarValuesEncodeAsReplacement) {
  const wchar_t units[] = {0xD800, 0xDFFF, 0x110000, static_cast<wchar_t>(-1), L'x'};
  EXPECT_EQ(StringAlgorithm::UTF8Encode(units, 5),
            "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"
            "x");
  EXPECT_EQ(StringAlgorithm::UTF8Encode(nullptr, 3), "");
  EXPECT_EQ(StringAlgorithm::UTF8Encode(WideString()), "");
}

std::string encode(const std::string& bytes) {
  return StringAlgorithm::EncodeBase64(bytes.data(), bytes.size());
}

// Decodes `text`; "<rejected>" when refused, so that a refusal reads well in a failure.
std::string decode64(const std::string& text) {
  std::vector<unsigned char> out{'s', 't', 'a', 'l', 'e'};
  if (!StringAlgorithm::DecodeBase64(text.data(), text.size(), out))
    return out.empty() ? "<rejected>" : "<rejected, output left>";
  return std::string(out.begin(), out.end());
}

// Catches: wrong padding for any remainder, the wrong alphabet, and a byte value or length
// that does not survive a round trip.
TEST(Base64, EncodesTheRfc4648VectorsAndEveryByteRoundTrips) {
  EXPECT_EQ(encode(""), "");
  EXPECT_EQ(encode("f"), "Zg==");
  EXPECT_EQ(encode("fo"), "Zm8=");
  EXPECT_EQ(encode("foo"), "Zm9v");
  EXPECT_EQ(encode("foobar"), "Zm9vYmFy");
  EXPECT_EQ(encode("\xFB\xFF\xBF"), "+/+/");
  EXPECT_EQ(StringAlgorithm::EncodeBase64(nullptr, 4), "");

  std::string bytes;
  for (int i = 0; i < 256; ++i)
    bytes += static_cast<char>(i);
  for (std::size_t length = 0; length <= bytes.size(); ++length) {
    std::string part = bytes.substr(0, length);
    ASSERT_EQ(decode64(encode(part)), part) << "length " << length;
  }
}

// Catches: wrapped or indented text refused, and text written without padding refused.
TEST(Base64, DecodeSkipsWhitespaceAndAcceptsMissingPadding) {
  EXPECT_EQ(decode64("Zm9v\nYmFy"), "foobar");
  EXPECT_EQ(decode64(" Z m 9 v\tY g =\v= \r\n\f"), "foob");
  EXPECT_EQ(decode64("Zm9vYg"), "foob");
  EXPECT_EQ(decode64("Zm9vYmE"), "fooba");
  EXPECT_EQ(decode64(" \n\t "), "");
}

// Catches: garbage decoded into some bytes, or a refusal that leaves partial output behind.
TEST(Base64, DecodeRejectsGarbageAndLeavesOutputEmpty) {
  const char* refused[] = {
      "Zm-v",          // the URL-safe alphabet is not this one
      "Zm9vYg==Zm9v",  // data after padding
      "Zg=a",          // padding in the middle of a group
      "Zm9vY",         // one stray character in the last group
      "Zm9vY===",      // padding with a stray character
      "Zg=",           // padding that does not complete the group
      "Zg===",         // too much padding
      "====",          // padding with no data
      "Zm9v=",         // padding after a complete group
  };
  for (const char* text : refused)
    EXPECT_EQ(decode64(text), "<rejected>") << text;
  EXPECT_EQ(decode64(std::string("Zm9v\0", 5)), "<rejected>");
  std::vector<unsigned char> out{1};
  EXPECT_FALSE(StringAlgorithm::DecodeBase64(nullptr, 3, out));
  EXPECT_TRUE(out.empty());
}

}  // namespace
}  // namespace kestrine::platform::core::string
