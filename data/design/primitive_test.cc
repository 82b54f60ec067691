#include "data/design/primitive.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "data/record/entity.h"
#include "data/testing/store_bytes.h"

namespace kestrine::platform::data::Design {
namespace {

using core::storage::datastore::MemoryDataStore;
using testing::bytes;
using testing::snapshot;
using testing::u32;
using testing::wide;

// The value array D of a stored primitive, read from its bytes.
std::string values(IDataStore& store, unsigned offset) {
  std::string record = bytes(store, offset);
  unsigned start = 44 + u32(record, 26) + u32(record, 30) + u32(record, 34);
  return record.substr(start, u32(record, 38));
}

template <class T, std::size_t N>
std::string raw(const T (&elements)[N]) {
  return std::string(reinterpret_cast<const char*>(elements), sizeof(elements));
}

template <class T, std::size_t N>
const char* data(const T (&elements)[N]) {
  return reinterpret_cast<const char*>(elements);
}

// A "uint16" primitive holding 1, 2, 3. (Not a gtest fixture: the logic objects' destructors
// may throw, which a fixture's destructor must not.)
struct Uint16Of3 {
  MemoryDataStore store;
  Primitive p{&store, metadata::kUInt16, L"p"};
  Uint16Of3() {
    const std::uint16_t initial[] = {1, 2, 3};
    EXPECT_EQ(p.set(data(initial), 0, 3), 1u);
  }
};

TEST(PrimitiveUint16Of3, SetInsideTheArrayOverwritesInPlace) {
  Uint16Of3 t;
  const std::uint16_t update[] = {10, 20};
  EXPECT_EQ(t.p.set(data(update), 1, 2), 1u);
  const std::uint16_t expected[] = {1, 10, 20};
  EXPECT_EQ(values(t.store, t.p.offset()), raw(expected));
  EXPECT_EQ(t.p.valuesize(), 6u);
}

TEST(PrimitiveUint16Of3, SetPastTheEndGrowsAndCopiesFromTheStartOfData) {
  Uint16Of3 t;
  const std::uint16_t update[] = {7, 8, 9};
  EXPECT_EQ(t.p.set(data(update), 2, 3), 1u);
  const std::uint16_t expected[] = {1, 2, 7, 8, 9};
  EXPECT_EQ(values(t.store, t.p.offset()), raw(expected));
  EXPECT_EQ(t.p.dimension(), 5u);
}

TEST(PrimitiveUint16Of3, SetBeyondTheEndLeavesZerosInTheGap) {
  Uint16Of3 t;
  const std::uint16_t update[] = {5};
  EXPECT_EQ(t.p.set(data(update), 5, 1), 1u);
  const std::uint16_t expected[] = {1, 2, 3, 0, 0, 5};
  EXPECT_EQ(values(t.store, t.p.offset()), raw(expected));
}

TEST(PrimitiveUint16Of3, GetCopiesOnlyWhollyStoredRanges) {
  Uint16Of3 t;
  std::uint16_t buffer[4] = {0xAAAA, 0xAAAA, 0xAAAA, 0xAAAA};
  EXPECT_EQ(t.p.get(reinterpret_cast<char*>(buffer), 0, 4), 0u);
  EXPECT_EQ(t.p.get(reinterpret_cast<char*>(buffer), 2, 2), 0u);
  EXPECT_EQ(t.p.get(reinterpret_cast<char*>(buffer), 0, 0), 0u);
  EXPECT_EQ(buffer[0], 0xAAAA);
  EXPECT_EQ(t.p.get(reinterpret_cast<char*>(buffer), 1, 2), 2u);
  EXPECT_EQ(buffer[0], 2);
  EXPECT_EQ(buffer[1], 3);
  EXPECT_EQ(buffer[2], 0xAAAA);
}

TEST(PrimitiveUint16Of3, ACountOfZeroChangesNothing) {
  Uint16Of3 t;
  auto before = snapshot(t.store);
  const std::uint16_t update[] = {9};
  EXPECT_EQ(t.p.set(data(update), 0, 0), 0u);
  EXPECT_EQ(snapshot(t.store), before);
}

TEST(PrimitiveUint16Of3, ResetStoresZerosOrEmptiesTheArray) {
  Uint16Of3 t;
  EXPECT_EQ(t.p.reset(4), 1u);
  EXPECT_EQ(values(t.store, t.p.offset()), std::string(8, '\0'));
  EXPECT_EQ(t.p.dimension(), 4u);
  EXPECT_EQ(t.p.reset(0), 1u);
  EXPECT_EQ(values(t.store, t.p.offset()), "");
  EXPECT_EQ(t.p.valuesize(), 0u);
  std::uint16_t buffer[1];
  EXPECT_EQ(t.p.get(reinterpret_cast<char*>(buffer), 0, 1), 0u);
}

TEST(PrimitiveEmpty, SetFromIndex0StoresTheElements) {
  MemoryDataStore store;
  Primitive p(&store, metadata::kInt32, L"p");
  const std::int32_t elements[] = {5, -6};
  EXPECT_EQ(p.set(data(elements), 0, 2), 1u);
  EXPECT_EQ(values(store, p.offset()), raw(elements));
  EXPECT_EQ(p.valuesize(), 8u);
}

// Such callers pass a buffer laid out like the whole array, so the elements are taken from
// the same byte position in it.
TEST(PrimitiveEmpty, SetFromAHigherIndexTakesDataAtTheTargetPosition) {
  MemoryDataStore store;
  Primitive p(&store, metadata::kInt32, L"p");
  const std::int32_t laidOut[] = {11, 22, 33, 44};
  EXPECT_EQ(p.set(data(laidOut), 2, 1), 1u);
  const std::int32_t expected[] = {0, 0, 33};
  EXPECT_EQ(values(store, p.offset()), raw(expected));
  EXPECT_EQ(p.dimension(), 3u);
}

TEST(PrimitiveUri, AUriReplacesTheValuesUntilCleared) {
  MemoryDataStore store;
  Primitive p(&store, metadata::kInt32, L"p");
  const std::int32_t elements[] = {1, 2};
  p.set(data(elements), 0, 2);

  EXPECT_EQ(p.uri(L"x"), 1u);
  EXPECT_EQ(p.valuesize(), 8u);
  EXPECT_EQ(p.dimension(), 0u);
  EXPECT_EQ(std::wstring(p.uri()), L"x");
  EXPECT_EQ(values(store, p.offset()), wide(L"x"));
  EXPECT_EQ(bytes(store, p.offset())[13] & Record::kUri, Record::kUri);
  auto before = snapshot(store);
  char buffer[8];
  EXPECT_EQ(p.set(data(elements), 0, 1), 0u);
  EXPECT_EQ(p.reset(2), 0u);
  EXPECT_EQ(p.get(buffer, 0, 1), 0u);
  EXPECT_EQ(snapshot(store), before);

  Primitive reopened(&store, p.offset());
  EXPECT_EQ(std::wstring(reopened.uri()), L"x");
  EXPECT_EQ(reopened.dimension(), 0u);

  EXPECT_EQ(p.uri(nullptr), 1u);
  EXPECT_EQ(p.uri(), nullptr);
  EXPECT_EQ(p.valuesize(), 0u);
  EXPECT_EQ(values(store, p.offset()), "");
  EXPECT_EQ(bytes(store, p.offset())[13] & Record::kUri, 0);
  EXPECT_EQ(p.set(data(elements), 0, 1), 1u);
}

TEST(PrimitiveBase, OnlyAStructTakesABase) {
  MemoryDataStore store;
  Primitive number(&store, metadata::kDouble, L"d");
  Primitive record(&store, metadata::kStruct, L"s");
  auto before = snapshot(store);
  EXPECT_EQ(number.base(L"s"), 0u);
  EXPECT_EQ(snapshot(store), before);
  EXPECT_EQ(number.base(), nullptr);

  EXPECT_EQ(record.base(L"schema.a"), 1u);
  EXPECT_EQ(std::wstring(Primitive(&store, record.offset()).base()), L"schema.a");
}

TEST(PrimitiveSizes, ElementSizesCountComponentsAndBytes) {
  const unsigned expected[] = {0, 1, 4, 4, 4, 4, 4, 1, 1, 1, 2, 2, 4,
                               4, 8, 8, 4, 8, 8, 8, 8, 8, 8, 8, 1};
  for (unsigned type = 0; type < 25; ++type)
    EXPECT_EQ(Primitive::stride(metadata::tValue(type)), expected[type]) << type;

  MemoryDataStore store;
  Primitive vector(&store, metadata::kVector3, L"v");
  vector.reset(3);
  EXPECT_EQ(vector.valuesize(), 24u);
  EXPECT_EQ(vector.dimension(), 3u);
  Primitive record(&store, metadata::kStruct, L"s");
  record.reset(10);
  EXPECT_EQ(record.dimension(), 10u);
}

TEST(PrimitiveFields, ValueLocaleAndUnitsAreStoredAndReloaded) {
  MemoryDataStore store;
  Primitive p(&store, metadata::kDouble, L"p");
  EXPECT_EQ(p.valuelocale(), nullptr);
  p.valuelocale(L"de-ch");
  p.units(units::Meter);
  Primitive reopened(&store, p.offset());
  EXPECT_EQ(std::wstring(reopened.valuelocale()), L"de-ch");
  EXPECT_EQ(reopened.units(), units::Meter);
  EXPECT_EQ(u32(bytes(store, p.offset()), 18), units::Meter);
  p.valuelocale(nullptr);
  EXPECT_EQ(p.valuelocale(), nullptr);
  EXPECT_EQ(u32(bytes(store, p.offset()), 26), 0u);
}

TEST(PrimitiveCompare, EquivalentMeansSameNameAndType) {
  MemoryDataStore store;
  Primitive a(&store, metadata::kInt32, L"n"), b(&store, metadata::kUInt32, L"n");
  Primitive c(&store, metadata::kDouble, L"d"), d(&store, metadata::kDouble, L"d");
  Primitive e(&store, metadata::kDouble, L"e");
  c.units(units::Meter);
  const double value[] = {1.5};
  d.set(data(value), 0, 1);
  EXPECT_FALSE(a.equivalent(b));
  EXPECT_TRUE(c.equivalent(d));
  EXPECT_FALSE(d.equivalent(e));
}

TEST(PrimitiveRecord, TheObjectHoldsOneCountWhileOpen) {
  MemoryDataStore store;
  unsigned offset;
  {
    Primitive p(&store, metadata::kInt8, L"p");
    offset = p.offset();
    EXPECT_EQ(bytes(store, offset).size(), 52u);
    EXPECT_EQ(u32(bytes(store, offset), 5), 1u);
    EXPECT_TRUE(p.unreferenced());
    Primitive again(&store, offset);
    EXPECT_FALSE(p.unreferenced());
  }
  EXPECT_EQ(u32(bytes(store, offset), 5), 0u);
}

TEST(PrimitiveRecord, ClearDropsTheNamesAndTheLocaleField) {
  MemoryDataStore store;
  unsigned offset = Primitive(&store, metadata::kInt8, L"p").offset();
  {
    Primitive p(&store, offset);
    p.localize(L"x", L"en");
  }
  unsigned records = store.records();
  Primitive p(&store, offset);
  p.clear();
  EXPECT_EQ(store.records(), records - 1);
  EXPECT_EQ(u32(bytes(store, offset), 9), IDataStore::BADOFF);
}

TEST(PrimitiveRecord, CloneCopiesTheRecordAndItsNamesWithCount0) {
  MemoryDataStore store, target;
  unsigned offset = Primitive(&store, metadata::kInt16, L"p").offset();
  {
    Primitive p(&store, offset);
    p.localize(L"x", L"en");
    p.valuelocale(L"en");
    const std::int16_t elements[] = {4, 5};
    p.set(data(elements), 0, 2);
  }
  Primitive p(&store, offset);
  unsigned copy = p.clone(&target);
  std::string original = bytes(store, offset), copied = bytes(target, copy);
  EXPECT_EQ(u32(copied, 5), 0u);
  EXPECT_EQ(copied.substr(13), original.substr(13));
  Primitive reopened(&target, copy);
  EXPECT_EQ(reopened.localize(L"en"), 0u);
  EXPECT_EQ(reopened.dimension(), 2u);
}

}  // namespace
}  // namespace kestrine::platform::data::Design
