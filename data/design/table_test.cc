#include "data/design/table.h"

#include <gtest/gtest.h>

#include <vector>

#include "data/design/container.h"
#include "data/design/primitive.h"
#include "data/record/entity.h"
#include "data/record/offsets.h"
#include "data/record/table.h"
#include "data/testing/faulty_store.h"
#include "data/testing/schema_chain.h"
#include "data/testing/store_bytes.h"

namespace kestrine::platform::data::Design {
namespace {

using core::storage::datastore::MemoryDataStore;
using testing::bytes;
using testing::SchemaChain;
using testing::snapshot;
using testing::u32;
using units::tUnitGroup;

unsigned defaultsField(IDataStore& store, const Table& table) {
  return u32(bytes(store, table.offset()), 22);
}

TEST(TableDefaults, TheListIsCreatedByTheFirstValidDefaults) {
  MemoryDataStore store;
  Table table(&store, L"t");
  auto before = snapshot(store);
  EXPECT_EQ(table.defaults(units::Meter, metadata::kNone), 0u);
  EXPECT_EQ(table.defaults(units::tUnit(0), metadata::kDouble), 0u);
  EXPECT_EQ(snapshot(store), before);
  EXPECT_TRUE(table.groups().empty());

  EXPECT_EQ(table.defaults(units::Meter, metadata::kDouble), 1u);
  EXPECT_EQ(store.records(), before.size() + 1);
  unsigned list = defaultsField(store, table);
  ASSERT_NE(list, IDataStore::BADOFF);
  EXPECT_EQ(Record::Offsets(&store, list).items(), 2u);
  EXPECT_EQ(table.groups(), std::vector<tUnitGroup>{units::group::Length});
  EXPECT_EQ(table.units(units::group::Length), units::Meter);
  EXPECT_EQ(table.valuetype(units::group::Length), metadata::kDouble);
}

TEST(TableDefaults, ASecondUnitOfTheSameGroupOverwritesItsPair) {
  MemoryDataStore store;
  Table table(&store, L"t");
  table.defaults(units::Meter, metadata::kDouble);
  table.defaults(units::KiloMeter, metadata::kScalar);
  EXPECT_EQ(table.groups().size(), 1u);
  EXPECT_EQ(table.units(units::group::Length), units::KiloMeter);
  EXPECT_EQ(table.valuetype(units::group::Length), metadata::kScalar);
  EXPECT_EQ(Record::Offsets(&store, defaultsField(store, table)).items(), 2u);
}

TEST(TableDefaults, GroupsComeInAscendingOrderWhateverTheListOrder) {
  MemoryDataStore store;
  Table table(&store, L"t");
  table.defaults(units::Kilogram, metadata::kDouble);
  table.defaults(units::Meter, metadata::kScalar);
  table.defaults(units::SquareMeter, metadata::kInt32);
  std::vector<tUnitGroup> expected = {units::group::Length, units::group::Area, units::group::Mass};
  EXPECT_EQ(table.groups(), expected);
  Record::Offsets list(&store, defaultsField(store, table));
  EXPECT_EQ(list.get(0), units::Kilogram);  // pairs stay in the order groups arrived
  EXPECT_EQ(Table(&store, table.offset(), true).groups(), expected);
  EXPECT_EQ(table.units(units::group::Mass), units::Kilogram);
}

TEST(TableDefaults, GroupZeroAndUnknownGroupsAnswerZero) {
  MemoryDataStore store;
  Table table(&store, L"t");
  EXPECT_EQ(table.units(units::group::Length), 0u);
  table.defaults(units::tUnit(5), metadata::kDouble);  // a unit without a group
  EXPECT_EQ(table.units(tUnitGroup(0)), 0u);
  EXPECT_EQ(table.valuetype(tUnitGroup(0)), metadata::kNone);
  EXPECT_EQ(table.valuetype(units::group::Mass), metadata::kNone);
}

TEST(TableDefaults, AStoredListWithARepeatedGroupIsIndexedByItsFirstPair) {
  MemoryDataStore store;
  Table table(&store, L"t");
  {
    Record::Offsets list(&store);
    for (unsigned entry : {unsigned(units::Meter), unsigned(metadata::kDouble),
                           unsigned(units::KiloMeter), unsigned(metadata::kScalar)})
      list.add(entry);
    Record::Table record(&store, table.offset());
    record.defaults(list.offset());
    record.update(true);
  }
  Table reopened(&store, table.offset(), false);
  EXPECT_EQ(reopened.groups().size(), 1u);
  EXPECT_EQ(reopened.units(units::group::Length), units::Meter);
  EXPECT_EQ(reopened.valuetype(units::group::Length), metadata::kDouble);
}

// A schema store holding tables "a" (members x, y) and "b" (member z), and a chain over them.
struct Schemas {
  testing::FaultyStore store;
  Table a{&store, L"a"}, b{&store, L"b"};
  Primitive x{&store, metadata::kInt32, L"x"}, y{&store, metadata::kDouble, L"y"};
  Primitive z{&store, metadata::kBool, L"z"};
  Schemas() {
    a.add(x.offset());
    a.add(y.offset());
    b.add(z.offset());
  }
};

std::wstring nameAt(const Metadata::Set& set, unsigned i) {
  return Record::Entity(set.store(), set.at(i)).name().wstring();
}

TEST(TableInherit, AppendsEachPathToBaseAndCopiesTheMembersHidden) {
  Schemas schemas;
  MemoryDataStore store;
  Table table(&store, L"t");
  SchemaChain ab({{L"a", &schemas.a}, {L"b", &schemas.b}});
  EXPECT_EQ(table.inherit(&ab), 1u);
  EXPECT_EQ(std::wstring(table.base()), L"a;b");
  ASSERT_EQ(table.items(), 3u);
  EXPECT_EQ(nameAt(table, 0), L"x");
  EXPECT_EQ(nameAt(table, 1), L"y");
  EXPECT_EQ(nameAt(table, 2), L"z");
  EXPECT_EQ(Primitive(&store, table.find(L"y")).flags(), Record::kNameLocked | Record::kHidden);
  EXPECT_EQ(schemas.store.locksTaken(), 0);  // a table copies without the schema store's lock

  Table c(&schemas.store, L"c");
  SchemaChain chainC({{L"c", &c}});
  table.inherit(&chainC);
  EXPECT_EQ(std::wstring(Table(&store, table.offset(), true).base()), L"a;b;c");
}

TEST(TableInherit, KeepsMembersItHasAndIgnoresSchemasThatAreNotChains) {
  Schemas schemas;
  MemoryDataStore store;
  Table table(&store, L"t");
  Primitive own(&store, metadata::kString, L"x");
  table.add(own.offset());
  testing::OpaqueSchema opaque;
  auto before = snapshot(store);
  EXPECT_EQ(table.inherit(&opaque), 1u);
  EXPECT_EQ(snapshot(store), before);

  SchemaChain a({{L"a", &schemas.a}});
  table.inherit(&a);
  EXPECT_EQ(table.find(L"x"), own.offset());
  EXPECT_EQ(own.flags(), 0);
  EXPECT_EQ(table.items(), 2u);
}

TEST(TableRecord, ClearDropsMembersNamesAndDefaultsButKeepsTheBase) {
  Schemas schemas;
  MemoryDataStore store;
  unsigned offset;
  {
    Table table(&store, L"t");
    offset = table.offset();
    SchemaChain a({{L"a", &schemas.a}});
    table.inherit(&a);
    table.defaults(units::Meter, metadata::kDouble);
    table.localize(L"Tabelle", L"de");
  }
  Table table(&store, offset, false);
  table.clear();
  EXPECT_EQ(store.records(), 1u);
  EXPECT_TRUE(table.groups().empty());
  EXPECT_EQ(table.units(units::group::Length), 0u);
  EXPECT_EQ(table.items(), 0u);
  EXPECT_EQ(std::wstring(table.base()), L"a");
  std::string record = bytes(store, offset);
  EXPECT_EQ(u32(record, 14), IDataStore::BADOFF);
  EXPECT_EQ(u32(record, 9), IDataStore::BADOFF);
  EXPECT_EQ(u32(record, 22), IDataStore::BADOFF);
}

TEST(TableRecord, CloneCopiesTheDefaultsListIntoTheTarget) {
  MemoryDataStore store, target;
  Table table(&store, L"t");
  table.defaults(units::Meter, metadata::kDouble);
  Primitive member(&store, metadata::kInt8, L"m");
  table.add(member.offset());
  unsigned copy = table.clone(&target);
  EXPECT_EQ(u32(bytes(target, copy), 5), 0u);
  unsigned list = u32(bytes(target, copy), 22);
  EXPECT_EQ(bytes(target, list), bytes(store, defaultsField(store, table)));
  Table copied(&target, copy, false);
  EXPECT_EQ(copied.units(units::group::Length), units::Meter);
  EXPECT_NE(copied.find(L"m"), IDataStore::BADOFF);
}

TEST(TableRecord, EquivalentComparesNameAndBaseOnly) {
  Schemas schemas;
  MemoryDataStore store;
  Table a(&store, L"t"), b(&store, L"t"), c(&store, L"t");
  a.defaults(units::Meter, metadata::kDouble);
  EXPECT_TRUE(a.equivalent(b));
  SchemaChain chain({{L"a", &schemas.a}});
  c.inherit(&chain);
  EXPECT_FALSE(a.equivalent(c));
  EXPECT_FALSE(a.equivalent(Table(&store, L"u")));
}

}  // namespace
}  // namespace kestrine::platform::data::Design
