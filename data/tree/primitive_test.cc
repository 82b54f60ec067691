#include "data/tree/primitive.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "core/storage/datastore_test_support.h"

namespace kestrine::platform::data::Design {
namespace {

using core::storage::datastore::MemoryDataStore;
using core::storage::datastore::readAll;
using core::storage::datastore::snapshot;
using core::storage::datastore::u32;
using core::storage::datastore::wide;

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
  return readAll(store, offset).substr(start, u32(store, offset, 38));
}

// Catches each way a set can go wrong: nothing to write, an empty array filled from index
// 0, a write inside the array in place, one past its end grown from the start of `data`,
// and an empty array grown from a higher index, which reads `data` at that same position
// (such callers pass a buffer laid out like the whole array).
TEST(Primitive, SetWritesInPlaceOrGrowsTheArray) {
  MemoryDataStore store;
  Primitive p(&store, metadata::kUInt16, L"p");
  const std::uint16_t initial[] = {1, 2, 3}, update[] = {7, 8, 9};
  EXPECT_EQ(p.set(raw(update), 0, 0), 0u);
  EXPECT_EQ(p.set(raw(initial), 0, 3), 1u);
  EXPECT_EQ(p.set(raw(update), 1, 2), 1u);
  const std::uint16_t inPlace[] = {1, 7, 8};
  EXPECT_EQ(values(store, p.offset()), bytes(inPlace));
  EXPECT_EQ(p.set(raw(update), 4, 3), 1u);
  const std::uint16_t grown[] = {1, 7, 8, 0, 7, 8, 9};
  EXPECT_EQ(values(store, p.offset()), bytes(grown));
  EXPECT_EQ(p.dimension(), 7u);

  Primitive q(&store, metadata::kInt32, L"q");
  const std::int32_t laidOut[] = {11, 22, 33, 44}, expected[] = {0, 0, 33};
  EXPECT_EQ(q.set(raw(laidOut), 2, 1), 1u);
  EXPECT_EQ(values(store, q.offset()), bytes(expected));
}

// Catches a get of a partly stored range, and a reset that keeps old values or room.
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

// Catches values written or counted while a URI stands in for them, and a URI that
// survives its clearing.
TEST(Primitive, AUriStandsInForTheValuesUntilCleared) {
  MemoryDataStore store;
  Primitive p(&store, metadata::kInt32, L"p");
  const std::int32_t stored[] = {1, 2};
  p.set(raw(stored), 0, 2);
  EXPECT_EQ(p.uri(L"x"), 1u);
  EXPECT_EQ(p.valuesize(), 8u);
  EXPECT_EQ(values(store, p.offset()), wide(L"x"));
  auto before = snapshot(store);
  EXPECT_EQ(p.set(raw(stored), 0, 1) + p.reset(1) + p.dimension(), 0u);
  EXPECT_EQ(snapshot(store), before);
  EXPECT_EQ(std::wstring(Primitive(&store, p.offset()).uri()), L"x");
  EXPECT_EQ(p.uri(nullptr), 1u);
  EXPECT_EQ(p.uri(), nullptr);
  EXPECT_EQ(p.flags() & 0x08, 0);
  EXPECT_EQ(values(store, p.offset()), "");
}

// Catches a base written on a primitive other than a struct.
TEST(Primitive, OnlyAStructTakesABase) {
  MemoryDataStore store;
  Primitive number(&store, metadata::kDouble, L"d"), record(&store, metadata::kStruct, L"s");
  auto before = snapshot(store);
  EXPECT_EQ(number.base(L"s"), 0u);
  EXPECT_EQ(snapshot(store), before);
  EXPECT_EQ(record.base(L"schema"), 1u);
  EXPECT_EQ(std::wstring(Primitive(&store, record.offset()).base()), L"schema");
}

}  // namespace
}  // namespace kestrine::platform::data::Design
