#include "data/tree/table.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <utility>
#include <vector>

#include "core/storage/datastore_test_support.h"
#include "data/record/entity.h"
#include "data/record/offsets.h"
#include "data/record/table_record.h"
#include "data/tree/tree_test_support.h"

namespace kestrine::platform::data::Design {
namespace {

using core::storage::datastore::InterceptingStore;
using core::storage::datastore::MemoryDataStore;
using core::storage::datastore::snapshot;
using core::storage::datastore::u32;
using units::tUnitGroup;
namespace group = units::group;

// Catches a list made before the first real default, a group stored twice, and groups out
// of ascending order.
TEST(Table, DefaultsAreKeptPerGroupInALazilyCreatedList) {
  MemoryDataStore store;
  Table table(&store, L"t");
  EXPECT_EQ(table.defaults(units::Meter, metadata::kNone), 0u);
  EXPECT_EQ(table.defaults(units::tUnit(0), metadata::kDouble), 0u);
  EXPECT_EQ(store.records(), 1u);
  table.defaults(units::Kilogram, metadata::kDouble);
  table.defaults(units::Meter, metadata::kScalar);
  table.defaults(units::KiloMeter, metadata::kInt32);  // same group: overwritten in place
  EXPECT_EQ(store.records(), 2u);
  EXPECT_EQ(Record::Offsets(&store, u32(store, table.offset(), 22)).items(), 4u);
  std::vector<tUnitGroup> ascending = {group::Length, group::Mass};
  EXPECT_EQ(table.groups(), ascending);
  EXPECT_EQ(Table(&store, table.offset(), true).groups(), ascending);
  EXPECT_EQ(table.units(group::Length), units::KiloMeter);
  EXPECT_EQ(table.valuetype(group::Length), metadata::kInt32);
  table.defaults(units::tUnit(5), metadata::kDouble);  // a unit of group 0
  EXPECT_EQ(table.units(tUnitGroup(0)) + table.units(group::Area), 0u);
}

// Catches an index that takes the last pair of a group that a list written elsewhere
// repeats, and a reading of the list in place (as a document is written) that orders or
// picks the pairs otherwise than the table does.
TEST(Table, AStoredListWithARepeatedGroupIsIndexedByItsFirstPair) {
  MemoryDataStore store;
  Table table(&store, L"t");
  Record::Offsets list(&store);
  for (unsigned entry : {unsigned(units::Kilogram), 9u, unsigned(units::Meter), 17u,
                         unsigned(units::KiloMeter), 16u})
    list.add(entry);
  Record::Table record(&store, table.offset());
  record.defaults(list.offset());
  record.update(true);
  Table reopened(&store, table.offset(), false);
  EXPECT_EQ(reopened.units(group::Length), units::Meter);
  EXPECT_EQ(reopened.valuetype(group::Length), metadata::kDouble);
  const std::vector<Table::tDefault> read = Table::defaults(&store, list.offset());
  ASSERT_EQ(read.size(), 2u);
  EXPECT_EQ(read[0].unit, units::Meter);  // the length group sorts before the mass group
  EXPECT_EQ(read[0].type, metadata::kDouble);
  EXPECT_EQ(read[1].unit, units::Kilogram);
}

// Catches lists written elsewhere, short ones and long, damaged ones alike, read with a pair
// other than the first of its group, or with the groups out of order.
TEST(Table, EveryListGivesTheFirstPairOfEachGroupInGroupOrder) {
  MemoryDataStore store;
  std::mt19937 random(7);
  for (unsigned pairs : {1u, 2u, 7u, 32u, 33u, 200u}) {
    Record::Offsets list(&store);
    std::map<unsigned, std::pair<unsigned, unsigned>> first;  // by group: unit and type
    for (unsigned i = 0; i < pairs; ++i) {
      const unsigned unit = (1 + random() % 12) << 12 | random() % 4096;
      const unsigned type = 1 + random() % 9;
      first.emplace(unit & 0xFFFFF000, std::make_pair(unit, type));
      list.add(unit);
      list.add(type);
    }
    const std::vector<Table::tDefault> read = Table::defaults(&store, list.offset());
    ASSERT_EQ(read.size(), first.size()) << pairs;
    auto expected = first.begin();
    for (std::size_t i = 0; i < read.size(); ++i, ++expected) {
      EXPECT_EQ(read[i].unit, expected->second.first) << pairs << " pairs, default " << i;
      EXPECT_EQ(read[i].type, expected->second.second) << pairs << " pairs, default " << i;
    }
  }
}

// Catches an inherit that replaces the base instead of appending "a;b;c", overwrites a
// member the table has, changes the schema store, or locks it; and a clear that keeps
// defaults or drops the base.
TEST(Table, InheritAppendsPathsAndCopiesMembersHiddenWithoutTheSchemaStoresLock) {
  InterceptingStore schemas;
  Table a(&schemas, L"a"), b(&schemas, L"b"), c(&schemas, L"c");
  a.add(Primitive(&schemas, metadata::kInt32, L"x").offset());
  b.add(Primitive(&schemas, metadata::kBool, L"y").offset());
  MemoryDataStore store;
  Table table(&store, L"t");
  table.add(Primitive(&store, metadata::kString, L"y").offset());  // kept as it is
  testing::SchemaChain ab({{L"a", &a}, {L"b", &b}}), chainC({{L"c", &c}});
  auto schemasBefore = snapshot(schemas);
  EXPECT_EQ(table.inherit(&ab), 1u);
  EXPECT_EQ(snapshot(schemas), schemasBefore);
  EXPECT_EQ(std::wstring(table.base()), L"a;b");
  EXPECT_EQ(Record::Entity(&store, table.find(L"x")).flags(), 0x06);
  EXPECT_EQ(Record::Entity(&store, table.find(L"y")).flags(), 0);
  EXPECT_EQ(schemas.locksTaken, 0);
  table.inherit(&chainC);
  EXPECT_EQ(std::wstring(Table(&store, table.offset(), true).base()), L"a;b;c");
  EXPECT_FALSE(table.equivalent(Table(&store, L"t")));

  table.defaults(units::Meter, metadata::kDouble);
  table.clear();                   // keeps only the record and its base
  EXPECT_EQ(store.records(), 2u);  // this table and the one the check above made
  EXPECT_TRUE(table.groups().empty());
  EXPECT_EQ(table.units(group::Length), 0u);
  EXPECT_EQ(std::wstring(table.base()), L"a;b;c");
  EXPECT_EQ(u32(store, table.offset(), 22), IDataStore::BADOFF);
}

}  // namespace
}  // namespace kestrine::platform::data::Design
