#include <gtest/gtest.h>

#include <set>
#include <string>

#include "kestrine/platform/core/uuid.h"

namespace kestrine::platform::core {
namespace {

// Catches: repeated or non-random identifiers, and text that does not parse back to the same
// identifier (in either case of hex digits).
TEST(KPLUUID, FreshIdentifiersAreDistinctAndRoundTripThroughText) {
  std::set<std::string> seen;
  for (int i = 0; i < 1000; ++i) {
    KPLUUID id;
    EXPECT_EQ(id.bytes()[6] >> 4, 4) << "random (version 4) identifiers";
    std::string text = id.toString();
    EXPECT_TRUE(seen.insert(text).second);
    KPLUUID parsed = KPLUUID::nil();
    ASSERT_TRUE(KPLUUID::parse(text.c_str(), parsed));
    EXPECT_EQ(parsed, id);
  }
  KPLUUID mixed = KPLUUID::nil();
  ASSERT_TRUE(KPLUUID::parse("0123ABCD-4567-89ab-CDEF-0123456789AB", mixed));
  EXPECT_EQ(mixed.toString(), "0123abcd-4567-89ab-cdef-0123456789ab");
  EXPECT_EQ(KPLUUID::nil().toString(), "00000000-0000-0000-0000-000000000000");
  EXPECT_TRUE(KPLUUID::nil().isNil());
}

// Catches: malformed text accepted, or a refusal that overwrites the target.
TEST(KPLUUID, MalformedTextIsRefusedAndLeavesTheTargetAlone) {
  const char* refused[] = {
      "0123abcd-4567-89ab-cdef-0123456789a",    // one digit short
      "0123abcd-4567-89ab-cdef-0123456789abc",  // one digit long
      "0123abcd-4567-89ab-cdef_0123456789ab",   // wrong separator
      "0123abcg-4567-89ab-cdef-0123456789ab",   // not hex
      nullptr,
  };
  KPLUUID target;
  const KPLUUID before = target;
  for (const char* text : refused) {
    EXPECT_FALSE(KPLUUID::parse(text, target)) << (text ? text : "null");
    EXPECT_EQ(target, before);
  }
}

}  // namespace
}  // namespace kestrine::platform::core
