#include "data/schema/comparator.h"

#include <gtest/gtest.h>

#include "data/schema/schema_test_support.h"

namespace kestrine::platform::data::Schema {
namespace {

// Definitions live in one store, candidates in another, as schemas and documents do.
class ComparatorTest : public ::testing::Test {
 protected:
  unsigned compare(unsigned candidate, unsigned definition) {
    return Comparator().compare(documents_.store(), candidate, schemas_.store(), definition);
  }
  // A set in `store` holding int32 "a", double "b" and string "c".
  static unsigned abc(SchemaStore& store, unsigned set) {
    store.primitive(set, L"a", metadata::kInt32);
    store.primitive(set, L"b", metadata::kDouble);
    store.primitive(set, L"c", metadata::kString);
    return set;
  }

  SchemaStore schemas_;
  SchemaStore documents_;
};

TEST_F(ComparatorTest, MembersMustAppearInOrderWithTheirType) {
  const unsigned candidate = abc(documents_, documents_.table(L"candidate"));
  const unsigned ac = schemas_.table(L"ac");
  schemas_.primitive(ac, L"a", metadata::kInt32);
  schemas_.primitive(ac, L"c", metadata::kString);
  const unsigned ca = schemas_.table(L"ca");
  schemas_.primitive(ca, L"c", metadata::kString);
  schemas_.primitive(ca, L"a", metadata::kInt32);
  const unsigned unsignedA = schemas_.table(L"unsigned");
  schemas_.primitive(unsignedA, L"a", metadata::kUInt32);
  const unsigned missing = schemas_.table(L"missing");
  schemas_.primitive(missing, L"d", metadata::kInt32);

  EXPECT_EQ(1u, compare(candidate, ac));
  EXPECT_EQ(0u, compare(candidate, ca));
  EXPECT_EQ(0u, compare(candidate, unsignedA));
  EXPECT_EQ(0u, compare(candidate, missing));
  // The same members in a container conform alike.
  EXPECT_EQ(1u, compare(abc(documents_, documents_.container(L"box")), ac));
}

// An empty definition table matches whatever reaches it; a definition that is not a table
// never conforms, and neither does a candidate that holds nothing to search.
TEST_F(ComparatorTest, OnlyTablesDefineAndOnlySetsConform) {
  const unsigned candidate = abc(documents_, documents_.table(L"candidate"));
  const unsigned number = documents_.primitive(0, L"number", metadata::kInt32);
  const unsigned empty = schemas_.table(L"empty");
  const unsigned a = schemas_.table(L"a");
  schemas_.primitive(a, L"a", metadata::kInt32);
  const unsigned box = abc(schemas_, schemas_.container(L"box"));
  const unsigned primitive = schemas_.primitive(0, L"p", metadata::kInt32);

  EXPECT_EQ(1u, compare(candidate, empty));
  EXPECT_EQ(1u, compare(number, empty));
  EXPECT_EQ(0u, compare(number, a));
  EXPECT_EQ(0u, compare(candidate, box));
  EXPECT_EQ(0u, compare(candidate, primitive));
}

// Containers are never equal members, even to a container of the same name and content.
TEST_F(ComparatorTest, ContainerMembersNeverConform) {
  const unsigned candidate = documents_.table(L"candidate");
  documents_.container(L"inner", candidate);
  const unsigned definition = schemas_.table(L"definition");
  schemas_.container(L"inner", definition);
  EXPECT_EQ(0u, compare(candidate, definition));
}

TEST_F(ComparatorTest, NestedTablesConformRecursively) {
  const unsigned definition = schemas_.table(L"definition");
  schemas_.primitive(schemas_.table(L"t", definition), L"x", metadata::kDouble);
  schemas_.primitive(definition, L"after", metadata::kBool);

  const unsigned good = documents_.table(L"good");
  const unsigned t = documents_.table(L"t", good);
  documents_.primitive(t, L"w", metadata::kInt8);
  documents_.primitive(t, L"x", metadata::kDouble);
  documents_.primitive(good, L"after", metadata::kBool);
  EXPECT_EQ(1u, compare(good, definition));

  const unsigned bad = documents_.table(L"bad");
  documents_.primitive(documents_.table(L"t", bad), L"x", metadata::kScalar);
  documents_.primitive(bad, L"after", metadata::kBool);
  EXPECT_EQ(0u, compare(bad, definition));

  // A primitive "t" is not the table "t" of the definition.
  const unsigned flat = documents_.table(L"flat");
  documents_.primitive(flat, L"t", metadata::kDouble);
  documents_.primitive(flat, L"after", metadata::kBool);
  EXPECT_EQ(0u, compare(flat, definition));
}

// Inside a table one child answers several equal members in a row; inside a container each
// child answers one, so a container needs the name twice.
TEST_F(ComparatorTest, TableCursorsStayContainerCursorsMove) {
  const unsigned twice = schemas_.table(L"twice");
  schemas_.duplicate(twice, schemas_.primitive(twice, L"a", metadata::kInt32));
  ASSERT_EQ(1u, Design::Table(schemas_.store(), twice, false).items());

  const unsigned table = documents_.table(L"table");
  documents_.primitive(table, L"a", metadata::kInt32);
  const unsigned box = documents_.container(L"box");
  const unsigned a = documents_.primitive(box, L"a", metadata::kInt32);
  EXPECT_EQ(1u, compare(table, twice));
  EXPECT_EQ(0u, compare(box, twice));

  documents_.duplicate(box, a);
  EXPECT_EQ(1u, compare(box, twice));
}

TEST_F(ComparatorTest, EntitiesAreEqualByKindNameAndType) {
  auto* store = schemas_.store();
  const unsigned int32 = schemas_.primitive(0, L"a", metadata::kInt32);
  const unsigned otherInt32 = documents_.primitive(0, L"a", metadata::kInt32, 5);
  const unsigned u = schemas_.table(L"u");
  const unsigned uint32 = schemas_.primitive(u, L"a", metadata::kUInt32);
  const unsigned table = schemas_.table(L"t");
  const unsigned sameTable = documents_.table(L"t");
  const unsigned container = schemas_.container(L"c");

  using Entity = Comparator::Entity;
  EXPECT_TRUE(Entity(store, int32) == Entity(documents_.store(), otherInt32));
  EXPECT_FALSE(Entity(store, int32) == Entity(store, uint32));
  EXPECT_TRUE(Entity(store, table) == Entity(documents_.store(), sameTable));
  EXPECT_FALSE(Entity(store, table) == Entity(store, int32));
  EXPECT_FALSE(Entity(store, container) == Entity(store, container));
  // The children list of a list record is not a thing to compare.
  const Entity list(store, Design::Table(store, u, true).children());
  EXPECT_EQ(unsigned(Record::kOffsets), list.kind());
  EXPECT_FALSE(list == list);
  EXPECT_EQ(0u, list.children());
}

}  // namespace
}  // namespace kestrine::platform::data::Schema
