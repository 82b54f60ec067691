#include <gtest/gtest.h>

#include <set>
#include <string>

#include "kestrine/platform/core/uuid.h"

namespace kestrine::platform::core {
namespace {

TEST(KPLUUID, FreshIdentifiersAreRandomVersion4AndDistinct) {
  std::set<std::string> seen;
  for (int i = 0; i < 1000; ++i) {
    KPLUUID id;
    EXPECT_FALSE(id.isNil());
    EXPECT_EQ(id.bytes()[6] >> 4, 4) << "version nibble";
    EXPECT_EQ(id.bytes()[8] >> 6, 2) << "RFC 4122 variant";
    EXPECT_TRUE(seen.insert(id.toString()).second);
  }
}

TEST(KPLUUID, TextRoundTripsInLowerCase) {
  KPLUUID id;
  std::string text = id.toString();
  ASSERT_EQ(text.size(), 36u);
  KPLUUID parsed = KPLUUID::nil();
  ASSERT_TRUE(KPLUUID::parse(text.c_str(), parsed));
  EXPECT_EQ(parsed, id);

  ASSERT_TRUE(KPLUUID::parse("0123ABCD-4567-89ab-CDEF-0123456789AB", parsed));
  EXPECT_EQ(parsed.toString(), "0123abcd-4567-89ab-cdef-0123456789ab");
  EXPECT_EQ(parsed.bytes()[0], 0x01);
  EXPECT_EQ(parsed.bytes()[15], 0xAB);
}

TEST(KPLUUID, NilIsAllZero) {
  KPLUUID nil = KPLUUID::nil();
  EXPECT_TRUE(nil.isNil());
  EXPECT_EQ(nil.toString(), "00000000-0000-0000-0000-000000000000");
  EXPECT_NE(nil, KPLUUID());
}

TEST(KPLUUID, MalformedTextIsRefusedAndLeavesTheTargetAlone) {
  const char* refused[] = {
      "",
      "0123abcd-4567-89ab-cdef-0123456789a",    // one digit short
      "0123abcd-4567-89ab-cdef-0123456789abc",  // one digit long
      "0123abcd-4567-89ab-cdef_0123456789ab",   // wrong separator
      "0123abcd045670890ab0cdef00123456789ab",  // no separators
      "0123abcg-4567-89ab-cdef-0123456789ab",   // not hex
      "{0123abcd-4567-89ab-cdef-0123456789ab}",
  };
  KPLUUID target;
  KPLUUID before = target;
  for (const char* text : refused) {
    EXPECT_FALSE(KPLUUID::parse(text, target)) << text;
    EXPECT_EQ(target, before) << text;
  }
  EXPECT_FALSE(KPLUUID::parse(nullptr, target));
}

}  // namespace
}  // namespace kestrine::platform::core
