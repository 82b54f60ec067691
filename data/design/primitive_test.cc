#include "data/design/primitive.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "data/testing/store_bytes.h"

namespace kestrine::platform::data::Design {
namespace {

using core::storage::datastore::MemoryDataStore;
using testing::u32;

template <class T, std::size_t N>
const char* raw(const T (&elements)[N]) {
  return reinterpret_cast<const char*>(elements);
}
template <class T, std::size_t N>
std::string bytes(const T (&elements)[N]) {
  return std::string(raw(elements), sizeof(elements));
}

// The stored value array (array D, after the value locale, name and base arrays).
std::string values(IDataStore& store, unsigned offset) {
  unsigned start = 44 + u32(store, offset, 26) + u32(store, offset, 30) + u32(store, offset, 34);
  return testing::bytes(store, offset).substr(start, u32(store, offset, 38));
}

TEST(Primitive, SetWritesInPlaceOrGrowsTheArray) {
  MemoryDataStore store;
  Primitive p(&store, metadata::kUInt16, L"p");
  const std::uint16_t initial[] = {1, 2, 3}, update[] = {7, 8, 9};
  EXPECT_EQ(p.set(raw(update), 0, 0), 0u);
  EXPECT_EQ(p.set(raw(initial), 0, 3), 1u);  // empty array, from index 0
  EXPECT_EQ(p.set(raw(update), 1, 2), 1u);   // inside: in place
  const std::uint16_t inPlace[] = {1, 7, 8};
  EXPECT_EQ(values(store, p.offset()), bytes(inPlace));
  EXPECT_EQ(p.set(raw(update), 4, 3), 1u);  // past the end: from the start of data
  const std::uint16_t grown[] = {1, 7, 8, 0, 7, 8, 9};
  EXPECT_EQ(values(store, p.offset()), bytes(grown));
  EXPECT_EQ(p.dimension(), 7u);
}

// Such callers pass a buffer laid out like the whole array.
TEST(Primitive, GrowingAnEmptyArrayFromAHigherIndexReadsDataAtTheSamePosition) {
  MemoryDataStore store;
  Primitive p(&store, metadata::kInt32, L"p");
  const std::int32_t laidOut[] = {11, 22, 33, 44}, expected[] = {0, 0, 33};
  EXPECT_EQ(p.set(raw(laidOut), 2, 1), 1u);
  EXPECT_EQ(values(store, p.offset()), bytes(expected));
}

TEST(Primitive, GetReadsOnlyWhollyStoredRangesAndResetZeroes) {
  MemoryDataStore store;
  Primitive p(&store, metadata::kInt32, L"p");
  const std::int32_t stored[] = {1, 2, 3};
  std::int32_t buffer[2] = {-1, -1};
  EXPECT_EQ(p.get(reinterpret_cast<char*>(buffer), 0, 1), 0u);
  p.set(raw(stored), 0, 3);
  EXPECT_EQ(p.get(reinterpret_cast<char*>(buffer), 2, 2), 0u);
  EXPECT_EQ(p.get(reinterpret_cast<char*>(buffer), 0, 0), 0u);
  EXPECT_EQ(buffer[0], -1);
  EXPECT_EQ(p.get(reinterpret_cast<char*>(buffer), 1, 2), 2u);
  EXPECT_EQ(buffer[1], 3);
  EXPECT_EQ(p.reset(2), 1u);
  EXPECT_EQ(values(store, p.offset()), std::string(8, '\0'));
  EXPECT_EQ(p.reset(0), 1u);
  EXPECT_EQ(store.size(p.offset()), 52u);
}

TEST(Primitive, AUriStandsInForTheValuesUntilCleared) {
  MemoryDataStore store;
  Primitive p(&store, metadata::kInt32, L"p");
  const std::int32_t stored[] = {1, 2};
  p.set(raw(stored), 0, 2);
  EXPECT_EQ(p.uri(L"x"), 1u);
  EXPECT_EQ(p.valuesize(), 8u);
  EXPECT_EQ(values(store, p.offset()), testing::wide(L"x"));
  auto before = testing::snapshot(store);
  EXPECT_EQ(p.set(raw(stored), 0, 1) + p.reset(1) + p.dimension(), 0u);
  EXPECT_EQ(testing::snapshot(store), before);
  EXPECT_EQ(std::wstring(Primitive(&store, p.offset()).uri()), L"x");
  EXPECT_EQ(p.uri(nullptr), 1u);
  EXPECT_EQ(p.uri(), nullptr);
  EXPECT_EQ(p.flags() & 0x08, 0);
  EXPECT_EQ(values(store, p.offset()), "");
}

TEST(Primitive, OnlyAStructTakesABaseAndSizesCountElements) {
  MemoryDataStore store;
  Primitive number(&store, metadata::kDouble, L"d"), record(&store, metadata::kStruct, L"s");
  auto before = testing::snapshot(store);
  EXPECT_EQ(number.base(L"s"), 0u);
  EXPECT_EQ(testing::snapshot(store), before);
  EXPECT_EQ(record.base(L"schema"), 1u);
  EXPECT_EQ(std::wstring(Primitive(&store, record.offset()).base()), L"schema");
  record.reset(10);
  EXPECT_EQ(record.dimension(), 10u);
  Primitive vector(&store, metadata::kVector3, L"v");
  vector.reset(3);
  EXPECT_EQ(vector.valuesize(), 24u);
  EXPECT_EQ(vector.dimension(), 3u);
}

}  // namespace
}  // namespace kestrine::platform::data::Design
