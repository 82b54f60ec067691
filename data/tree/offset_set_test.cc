#include "data/tree/offset_set.h"

#include <gtest/gtest.h>

#include <random>
#include <unordered_set>

namespace kestrine::platform::data::Metadata {
namespace {

// Catches an offset taken for met before when it was not, or the reverse, on either side of
// the bitmap's bound, at a word's edges and for BADOFF, over random offsets that repeat.
TEST(OffsetSet, TellsEveryOffsetMetBefore) {
  std::mt19937 random(3);
  OffsetSet set;
  std::unordered_set<unsigned> model;
  auto check = [&](unsigned offset) {
    ASSERT_EQ(set.insert(offset), model.insert(offset).second) << offset;
  };
  for (unsigned offset : {0u, 63u, 64u, 65u, (1u << 26) - 1, 1u << 26, 0xFFFFFFFEu, 0xFFFFFFFFu})
    check(offset);
  for (int i = 0; i < 200000; ++i) {
    const unsigned bound = random() % 2 ? 1u << 20 : 0xFFFFFFFFu;
    check(static_cast<unsigned>(random() % bound));
  }
  for (unsigned offset : {0u, 64u, (1u << 26) - 1, 1u << 26, 0xFFFFFFFFu})
    EXPECT_FALSE(set.insert(offset));
}

}  // namespace
}  // namespace kestrine::platform::data::Metadata
