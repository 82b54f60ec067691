#include "kestrine/platform/core/hash.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace kestrine::platform::core {
namespace {

// Expected values come from scripts/hash_vectors.py, written from the published algorithms.

// Catches: a wide string hashed over more or fewer than its first n bytes (n characters),
// either overload disagreeing, and a wrong tail or block step; the cases run through every
// tail length, blocks, and characters past ASCII.
TEST(Murmur2Kernel, WideStringsHashTheirFirstLengthBytes) {
  const struct {
    const wchar_t* text;
    std::uint64_t expected;
  } cases[] = {
      {L"", 0},
      {L"a", 0x59ec9e63d56e67beull},
      {L"ab", 0xbcc07fa964086424ull},
      {L"abc", 0x9bc681c6b76dc859ull},
      {L"abcd", 0x9c7b3f43e3f1cfccull},
      {L"abcde", 0xa092fe76f83a348dull},
      {L"h\u00e9llo w\u00f6rld", 0xce62fc4059cb20b3ull},
      {L"$$$$$_____deleted_key", 0x539ecac916518ddbull},
  };
  tMurmur2Kernel kernel;
  for (const auto& c : cases) {
    EXPECT_EQ(kernel(c.text), c.expected) << std::wstring(c.text).size();
    EXPECT_EQ(kernel(string::WideString(c.text)), c.expected) << std::wstring(c.text).size();
  }
  // Two 8-character names that differ only past byte 8 of their storage hash alike.
  EXPECT_EQ(kernel(L"ab______"), kernel(L"ab_____z"));
  EXPECT_NE(kernel(L"ab______"), kernel(L"ac______"));
}

// Catches: a wrong tail step for any length, and a high tail byte sign-extended.
TEST(Murmur2Kernel, RawBytesCoverEveryTailLength) {
  EXPECT_EQ(tMurmur2Kernel::hash("ab", 2), 0xcda7a5a118e3bf53ull);
  EXPECT_EQ(tMurmur2Kernel::hash("abc", 3), 0x24c937a00be2b53bull);
  EXPECT_EQ(tMurmur2Kernel::hash("abcd", 4), 0x8b136cfb86919b71ull);
  EXPECT_EQ(tMurmur2Kernel::hash("int32", 5), 0x29faed88ead419aeull);
  EXPECT_EQ(tMurmur2Kernel::hash("\xff", 1), 0xac735426d994d77aull);
  const unsigned char eight[] = {1, 2, 3, 4, 5, 6, 7, 8};
  EXPECT_EQ(tMurmur2Kernel::hash(eight, 8), 0x8fae703dfff9722eull);
}

// Catches: a 32-bit accumulator, a wrong step for a tail length, and tail bytes read
// unsigned (the published code has them signed) or block bytes read signed.
TEST(SFHKernel, MatchesThePublishedAlgorithmWithA64BitAccumulator) {
  const struct {
    const char* text;
    std::uint64_t expected;
  } cases[] = {
      {"", 0},
      {"a", 0x23d4f055ea782ull},
      {"ab", 0x3c32819496c0d44ull},
      {"abc", 0x760816d818fb58baull},
      {"abcd", 0x79cadd8be296db8bull},
      {"matrix4x4", 0xc8656f048b31f56ull},
      {"$$$$$_____empty_key", 0x294299f6bf06f35ull},
      {"\xff", 0},
      {"\xe9t\xe9", 0x1ebf11e923fcbfcdull},
  };
  tSFHKernel kernel;
  for (const auto& c : cases)
    EXPECT_EQ(kernel(c.text), c.expected) << c.text;
}

}  // namespace
}  // namespace kestrine::platform::core
