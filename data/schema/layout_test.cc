#include "data/schema/layout.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "data/schema/schema_locator_impl.h"
#include "data/schema/schema_test_support.h"

namespace kestrine::platform::data::Schema {
namespace {

using metadata::IStructLayout;

// A schema store with "point" and "pair" (see pointAndPair) pushed to a locator.
class LayoutTest : public ::testing::Test {
 protected:
  LayoutTest() : point_(schemas_.pointAndPair()) { locator_.push(schemas_.store()); }

  // The layout the locator builds for `path` (a single-layout URI).
  Layout* resolve(const wchar_t* path) {
    schema_ = locator_.schema(path);
    return schema_ ? schema_->layout(0) : nullptr;
  }

  static std::vector<std::wstring> names(Layout* layout) {
    std::vector<std::wstring> out;
    for (unsigned i = 0; i < layout->fields(); ++i)
      out.push_back(layout->get(i)->name);
    return out;
  }

  SchemaStore schemas_;
  unsigned point_;
  SchemaLocatorImpl locator_;
  core::memory::SharedPtr<SchemaImpl> schema_;
};

// Catches padding, reordering or element counts taken for sizes: fields lie back to back in
// definition order, sizes in bytes.
TEST_F(LayoutTest, PrimitivesArePackedInDefinitionOrder) {
  Layout layout(nullptr, L"point", new Design::Table(schemas_.store(), point_, false));
  EXPECT_STREQ(L"point", layout.path());
  EXPECT_EQ(point_, layout.definition()->offset());
  ASSERT_EQ(2u, layout.fields());
  const IStructLayout::tField* x = layout.get(0);
  const IStructLayout::tField* y = layout.get(1);
  EXPECT_STREQ(L"x", x->name);
  EXPECT_STREQ(L"y", y->name);
  EXPECT_EQ((std::vector<unsigned>{metadata::kDouble, 1, 0, 8, metadata::kUInt16, 3, 8, 6}),
            (std::vector<unsigned>{x->type, x->count, x->offset, x->size, y->type, y->count,
                                   y->offset, y->size}));
  EXPECT_EQ(14u, layout.stride());
  EXPECT_EQ(4u, layout.values());
  EXPECT_EQ(y, layout.get(core::string::WideString(L"y")));
  EXPECT_EQ(nullptr, layout.get(core::string::WideString(L"z")));
  EXPECT_EQ(nullptr, layout.get(core::string::WideString(L"")));
}

// Catches struct members expanded with the wrong count, numbering or offsets: n = valuesize /
// sub stride elements, numbered only when n is not 1, each element a copy of the
// sub-layout's fields at member offset + j x sub stride.
TEST_F(LayoutTest, StructMembersExpandPerElement) {
  const unsigned single = schemas_.table(L"single");
  schemas_.primitive(single, L"p", metadata::kStruct, 14, L"point");

  Layout* two = resolve(L"pair");
  ASSERT_NE(nullptr, two);
  EXPECT_EQ((std::vector<std::wstring>{L"id", L"p[0].x", L"p[0].y", L"p[1].x", L"p[1].y"}),
            names(two));
  EXPECT_EQ(4u + 28u, two->stride());
  EXPECT_EQ(1u + 8u, two->values());
  const IStructLayout::tField* y1 = two->get(core::string::WideString(L"p[1].y"));
  ASSERT_NE(nullptr, y1);
  EXPECT_EQ(4u + 14u + 8u, y1->offset);
  EXPECT_EQ(metadata::kUInt16, y1->type);
  EXPECT_EQ(3u, y1->count);
  EXPECT_EQ(6u, y1->size);

  Layout* one = resolve(L"single");
  ASSERT_NE(nullptr, one);
  EXPECT_EQ((std::vector<std::wstring>{L"p.x", L"p.y"}), names(one));
}

// Catches nested table members without their prefix, and containers laid out at all.
TEST_F(LayoutTest, NestedTablesPrefixTheirMembers) {
  const unsigned outer = schemas_.table(L"outer");
  const unsigned t = schemas_.table(L"t", outer);
  schemas_.primitive(t, L"a", metadata::kInt32);
  schemas_.primitive(schemas_.table(L"u", t), L"b", metadata::kBool);
  schemas_.primitive(outer, L"c", metadata::kInt8);
  schemas_.container(L"skipped", outer);

  Layout* layout = resolve(L"outer");
  ASSERT_NE(nullptr, layout);
  EXPECT_EQ((std::vector<std::wstring>{L"t.a", L"t.u.b", L"c"}), names(layout));
  EXPECT_EQ(6u, layout->stride());
}

// Catches a field dropped or overwritten for a flattened name that is taken, and an index
// broken by a name equal to one of its marker keys (which a set refuses, but a store
// written elsewhere may hold): every field counts and takes room, a look-up answers the
// first of a name, and a marker key is laid out but cannot be looked up.
TEST_F(LayoutTest, DuplicateAndMarkerKeyNamesKeepTheFirstForLookups) {
  const unsigned twice = schemas_.table(L"twice");
  schemas_.primitive(twice, L"t.a", metadata::kDouble);
  schemas_.primitive(schemas_.table(L"t", twice), L"a", metadata::kInt16);
  const unsigned marker =
      Design::Primitive(schemas_.store(), metadata::kInt32, L"$$$$$_____empty_key").offset();
  schemas_.duplicate(twice, marker);

  Layout* layout = resolve(L"twice");
  ASSERT_NE(nullptr, layout);
  EXPECT_EQ((std::vector<std::wstring>{L"t.a", L"t.a", L"$$$$$_____empty_key"}), names(layout));
  EXPECT_EQ(layout->get(0u), layout->get(core::string::WideString(L"t.a")));
  EXPECT_EQ(nullptr, layout->get(core::string::WideString(L"$$$$$_____empty_key")));
  EXPECT_EQ(10u, layout->stride());  // the marker member holds no values
  EXPECT_EQ(8u, layout->get(1)->offset);
}

// Catches a division by a zero stride and endless recursion: struct members that cannot be
// divided into elements of exactly one layout contribute nothing (an unknown or missing
// base, a base of two layouts, a sub-layout without fields, a schema that contains itself,
// and no locator at all). Two schemas that reach each other are each laid out with the
// other expanded once, the inner reference back left out.
TEST_F(LayoutTest, StructMembersWithoutOneUsableBaseContributeNothing) {
  schemas_.table(L"none");
  const unsigned members = schemas_.table(L"members");
  schemas_.primitive(members, L"unknown", metadata::kStruct, 14, L"nowhere");
  schemas_.primitive(members, L"unset", metadata::kStruct, 14);
  schemas_.primitive(members, L"chain", metadata::kStruct, 14, L"point;point");
  schemas_.primitive(members, L"empty", metadata::kStruct, 14, L"none");
  schemas_.primitive(members, L"self", metadata::kStruct, 14, L"members");
  schemas_.primitive(members, L"kept", metadata::kInt32);

  Layout* layout = resolve(L"members");
  ASSERT_NE(nullptr, layout);
  EXPECT_EQ((std::vector<std::wstring>{L"kept"}), names(layout));
  EXPECT_EQ(0u, layout->get(0)->offset);

  Layout alone(nullptr, L"members", new Design::Table(schemas_.store(), members, false));
  EXPECT_EQ((std::vector<std::wstring>{L"kept"}), names(&alone));

  const unsigned a = schemas_.table(L"a");
  schemas_.primitive(a, L"x", metadata::kInt32);
  schemas_.primitive(a, L"b", metadata::kStruct, 4, L"b");
  const unsigned b = schemas_.table(L"b");
  schemas_.primitive(b, L"y", metadata::kInt32);
  schemas_.primitive(b, L"a", metadata::kStruct, 4, L"a");
  layout = resolve(L"a");
  ASSERT_NE(nullptr, layout);
  EXPECT_EQ((std::vector<std::wstring>{L"x", L"b.y"}), names(layout));
}

}  // namespace
}  // namespace kestrine::platform::data::Schema
