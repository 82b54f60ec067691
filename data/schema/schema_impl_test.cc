#include "data/schema/schema_impl.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "data/schema/schema_locator_impl.h"
#include "data/schema/schema_test_support.h"

namespace kestrine::platform::data::Schema {
namespace {

using core::string::WideString;

std::vector<std::wstring> segments(const wchar_t* uri) {
  std::vector<std::wstring> out;
  for (const WideString& segment : SchemaImpl::split(uri))
    out.push_back(segment.wstring());
  return out;
}

// Catches empty segments dropped or spaces trimmed.
TEST(SchemaImplSplitTest, KeepsEverySegment) {
  using V = std::vector<std::wstring>;
  EXPECT_EQ((V{L"a", L"", L"b"}), segments(L"a;;b"));
  EXPECT_EQ((V{L"a", L""}), segments(L"a;"));
  EXPECT_EQ((V{L"", L""}), segments(L";"));
  EXPECT_EQ((V{L" a ", L"b.c"}), segments(L" a ;b.c"));
  EXPECT_EQ((V{L""}), segments(L""));
  EXPECT_EQ((V{L""}), segments(nullptr));
}

// Schemas "a" (x, y), "b" (z) and "none" (no members), resolved through a locator; a
// document store for the candidates.
class SchemaImplTest : public ::testing::Test {
 protected:
  SchemaImplTest() {
    const unsigned a = schemas_.table(L"a");
    schemas_.primitive(a, L"x", metadata::kDouble);
    schemas_.primitive(a, L"y", metadata::kUInt16, 3);
    schemas_.primitive(schemas_.table(L"b"), L"z", metadata::kInt32);
    schemas_.table(L"none");
    locator_.push(schemas_.store());
  }

  core::memory::SharedPtr<SchemaImpl> resolve(const wchar_t* uri) {
    core::memory::SharedPtr<SchemaImpl> schema = locator_.schema(uri);
    if (!schema) ADD_FAILURE() << "a schema URI did not resolve";
    return schema;
  }
  // A document table holding the members `names` (x double, y uint16, z int32).
  Design::Table candidate(std::initializer_list<const wchar_t*> names) {
    const unsigned table = documents_.table(std::to_wstring(++candidates_).c_str());
    for (const wchar_t* name : names) {
      const std::wstring n(name);
      documents_.primitive(table, name,
                           n == L"x"   ? metadata::kDouble
                           : n == L"y" ? metadata::kUInt16
                                       : metadata::kInt32);
    }
    return Design::Table(documents_.store(), table, false);
  }

  SchemaStore schemas_;
  SchemaStore documents_;
  SchemaLocatorImpl locator_;
  unsigned candidates_ = 0;
};

// Catches an empty schema that validates anything, and one taken for empty because its
// first layout has no members.
TEST_F(SchemaImplTest, EmptySchemasValidateNothing) {
  SchemaImpl fresh;
  Design::Table table = candidate({L"x"});
  EXPECT_TRUE(fresh.empty());
  EXPECT_EQ(0u, fresh.links());
  EXPECT_EQ(nullptr, fresh.layout());
  EXPECT_TRUE(fresh.path().empty());
  EXPECT_EQ(0u, fresh.validate(&table));
  EXPECT_EQ(1u, fresh.prevalidate(L"anything"));

  // Layouts without members leave the schema empty, and an empty table conforms to nothing.
  auto none = resolve(L"none;none");
  EXPECT_TRUE(none->empty());
  EXPECT_EQ(2u, none->links());
  EXPECT_EQ(0u, none->validate(&table));

  // One layout with a member is enough to make it non-empty, wherever it stands.
  auto mixed = resolve(L"none;b");
  EXPECT_FALSE(mixed->empty());
  EXPECT_EQ(WideString(L"none"), mixed->path());
  EXPECT_EQ(mixed->layout(0), mixed->layout());
  EXPECT_STREQ(L"b", mixed->path(1));
  EXPECT_EQ(mixed->layout(1)->definition(), mixed->definition(1));
}

// Catches a validation that stops at the first layout of the chain, and a prevalidation
// that takes a base missing one of the chain's paths, or matches paths by prefix or with
// their spaces trimmed.
TEST_F(SchemaImplTest, ValidateAndPrevalidateNeedEveryLayoutOfTheChain) {
  auto ab = resolve(L"a;b");
  ASSERT_EQ(2u, ab->links());
  Design::Table all = candidate({L"x", L"y", L"z"});
  Design::Table onlyA = candidate({L"x", L"y"});
  Design::Table onlyB = candidate({L"z"});
  EXPECT_EQ(1u, ab->validate(&all));
  EXPECT_EQ(0u, ab->validate(&onlyA));
  EXPECT_EQ(0u, ab->validate(&onlyB));
  EXPECT_EQ(1u, resolve(L"b")->validate(&onlyB));
  EXPECT_EQ(1u, resolve(L"a")->prevalidate(L"a;b"));
  EXPECT_EQ(0u, resolve(L"a;none")->prevalidate(L"a;b"));
  EXPECT_EQ(1u, resolve(L"b;a")->prevalidate(L"a;b"));
  EXPECT_EQ(0u, resolve(L"a")->prevalidate(L"ab"));
  EXPECT_EQ(0u, resolve(L"a")->prevalidate(L"a ;b"));
  EXPECT_EQ(0u, resolve(L"a")->prevalidate(nullptr));
}

}  // namespace
}  // namespace kestrine::platform::data::Schema
