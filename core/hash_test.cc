#include "kestrine/platform/core/hash.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace kestrine::platform::core {
namespace {

// Expected values come from scripts/hash_vectors.py, written from the published algorithms.

TEST(Murmur2Kernel, WideStringsHashTheirFirstLengthBytes) {
  tMurmur2Kernel kernel;
  EXPECT_EQ(kernel(L""), 0u);
  EXPECT_EQ(kernel(L"a"), 0x59ec9e63d56e67beull);
  EXPECT_EQ(kernel(L"ab"), 0xbcc07fa964086424ull);
  EXPECT_EQ(kernel(L"abc"), 0x9bc681c6b76dc859ull);
  EXPECT_EQ(kernel(L"abcd"), 0x9c7b3f43e3f1cfccull);
  EXPECT_EQ(kernel(L"abcde"), 0xa092fe76f83a348dull);
  EXPECT_EQ(kernel(L"root"), 0x88ae6576663533f1ull);
  EXPECT_EQ(kernel(L"en-us"), 0x48a8cc3be78ff03ull);
  EXPECT_EQ(kernel(L"Meter"), 0x4812dc159fe3d05full);
  EXPECT_EQ(kernel(L"h\u00e9llo w\u00f6rld"), 0xce62fc4059cb20b3ull);
  EXPECT_EQ(kernel(L"$$$$$_____empty_key"), 0xe46087ab693b19b9ull);
  EXPECT_EQ(kernel(L"$$$$$_____deleted_key"), 0x539ecac916518ddbull);
}

TEST(Murmur2Kernel, WideStringOverloadAgreesWithThePointerForm) {
  tMurmur2Kernel kernel;
  for (const wchar_t* text : {L"", L"x", L"schema.path", L"$$$$$_____deleted_key"})
    EXPECT_EQ(kernel(string::WideString(text)), kernel(text));
}

TEST(Murmur2Kernel, OnlyTheFirstQuarterOfAWideStringTakesPart) {
  // Two 8-character names that differ only past byte 8 of their storage hash alike.
  tMurmur2Kernel kernel;
  EXPECT_EQ(kernel(L"ab______"), kernel(L"ab_____z"));
  EXPECT_NE(kernel(L"ab______"), kernel(L"ac______"));
}

TEST(Murmur2Kernel, RawBytesCoverEveryTailLength) {
  EXPECT_EQ(tMurmur2Kernel::hash("ab", 2), 0xcda7a5a118e3bf53ull);
  EXPECT_EQ(tMurmur2Kernel::hash("abc", 3), 0x24c937a00be2b53bull);
  EXPECT_EQ(tMurmur2Kernel::hash("abcd", 4), 0x8b136cfb86919b71ull);
  EXPECT_EQ(tMurmur2Kernel::hash("int32", 5), 0x29faed88ead419aeull);
  EXPECT_EQ(tMurmur2Kernel::hash("\xff", 1), 0xac735426d994d77aull);
  const unsigned char eight[] = {1, 2, 3, 4, 5, 6, 7, 8};
  EXPECT_EQ(tMurmur2Kernel::hash(eight, 8), 0x8fae703dfff9722eull);
}

TEST(SFHKernel, MatchesThePublishedAlgorithmWithA64BitAccumulator) {
  tSFHKernel kernel;
  EXPECT_EQ(kernel(""), 0u);
  EXPECT_EQ(kernel("a"), 0x23d4f055ea782ull);
  EXPECT_EQ(kernel("ab"), 0x3c32819496c0d44ull);
  EXPECT_EQ(kernel("abc"), 0x760816d818fb58baull);
  EXPECT_EQ(kernel("abcd"), 0x79cadd8be296db8bull);
  EXPECT_EQ(kernel("root"), 0x644db2baa0316601ull);
  EXPECT_EQ(kernel("int32"), 0x8e7f76b894090ae4ull);
  EXPECT_EQ(kernel("matrix4x4"), 0xc8656f048b31f56ull);
  EXPECT_EQ(kernel("$$$$$_____empty_key"), 0x294299f6bf06f35ull);
}

TEST(SFHKernel, HighTailBytesAreSignExtended) {
  tSFHKernel kernel;
  EXPECT_EQ(kernel("\xff"), 0u);
  EXPECT_EQ(kernel("ab\xc3"), 0x2ea79c5c32118e7ull);
  EXPECT_EQ(kernel("\xe9t\xe9"), 0x1ebf11e923fcbfcdull);
}

TEST(CompareFunctors, CompareContentNotPointers) {
  std::string a = "name", b = "name";
  EXPECT_TRUE(tCharCompareEqual()(a.c_str(), b.c_str()));
  EXPECT_FALSE(tCharCompareEqual()("name", "Name"));
  EXPECT_FALSE(tCharCompareEqual()("name", nullptr));
  EXPECT_TRUE(tCharCompareLess()("Meter", "meter"));
  EXPECT_FALSE(tCharCompareLess()("b", "a"));
  std::wstring w1 = L"x.y", w2 = L"x.y";
  EXPECT_TRUE(tWCharCompareEqual()(w1.c_str(), w2.c_str()));
  EXPECT_FALSE(tWCharCompareEqual()(L"x.y", L"x.y "));
}

}  // namespace
}  // namespace kestrine::platform::core
