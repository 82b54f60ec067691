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

// Catches members compared out of order or without their type, a definition other than a
// table that conforms, and containers taken as equal members. An empty definition table
// matches whatever reaches it; a candidate that holds nothing to search never conforms.
TEST_F(ComparatorTest, MembersMustAppearInOrderWithTheirType) {
  const unsigned candidate = abc(documents_, documents_.table(L"candidate"));
  const unsigned number = documents_.primitive(0, L"number", metadata::kInt32);
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
  const unsigned empty = schemas_.table(L"empty");
  const unsigned box = abc(schemas_, schemas_.container(L"box"));
  const unsigned primitive = schemas_.primitive(0, L"p", metadata::kInt32);

  EXPECT_EQ(1u, compare(candidate, ac));
  EXPECT_EQ(0u, compare(candidate, ca));
  EXPECT_EQ(0u, compare(candidate, unsignedA));
  EXPECT_EQ(0u, compare(candidate, missing));
  EXPECT_EQ(1u, compare(abc(documents_, documents_.container(L"cbox")), ac));
  EXPECT_EQ(1u, compare(candidate, empty));
  EXPECT_EQ(1u, compare(number, empty));
  EXPECT_EQ(0u, compare(number, ac));
  EXPECT_EQ(0u, compare(candidate, box));
  EXPECT_EQ(0u, compare(candidate, primitive));

  const unsigned holder = documents_.table(L"holder");
  documents_.container(L"inner", holder);
  const unsigned definition = schemas_.table(L"definition");
  schemas_.container(L"inner", definition);
  EXPECT_EQ(0u, compare(holder, definition));
}

// Catches nested tables compared by name only, or a primitive taken for a table.
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

// Catches cursors that move alike: inside a table one child answers several equal members in
// a row; inside a container each child answers one, so a container needs the name twice.
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

}  // namespace
}  // namespace kestrine::platform::data::Schema
