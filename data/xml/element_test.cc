#include "data/xml/element.h"

#include <gtest/gtest.h>

#include "data/tree/primitive.h"

namespace kestrine::platform::data::XML {
namespace {

using core::storage::datastore::MemoryDataStore;

// A handler that keeps every behaviour of the base.
class Plain : public Element {
 public:
  using Element::Element;
  const char* name() const override { return "plain"; }
};

// Catches a "name" that does not localize the item (under its locale, "en-us" by default),
// and a "val" whose text is used or whose state lets later sub-elements in: the base
// handler accepts "val" but refuses its text, and then every sub-element after it.
TEST(ElementTest, NameSubElementLocalizesAndValBlocksLaterOnes) {
  MemoryDataStore store;
  unsigned offset;
  {
    Design::Primitive item(&store, metadata::kInt32, L"p");
    offset = item.offset();
    Plain plain(&store);
    const char* german[] = {"locale", "de-de", nullptr};
    const char* none[] = {nullptr};
    ASSERT_TRUE(plain.sub("name", german));
    EXPECT_FALSE(plain.sub("name", none)) << "one sub-element at a time";
    EXPECT_TRUE(plain.set(&item, "Eigenschaft"));
    EXPECT_EQ(plain.substate(), Element::kNoSub);
    ASSERT_TRUE(plain.sub("name", none));
    EXPECT_TRUE(plain.set(&item, "Property"));
    EXPECT_FALSE(plain.set(&item, "no sub-element open"));

    EXPECT_FALSE(plain.sub("NAME", none)) << "sub-element names are byte-exact";
    ASSERT_TRUE(plain.sub("val", none));
    EXPECT_FALSE(plain.set(&item, "12"));
    EXPECT_EQ(plain.substate(), Element::kValSub);
    EXPECT_FALSE(plain.sub("name", none));
    EXPECT_FALSE(plain.sub("val", none));
  }
  Design::Primitive reopened(&store, offset);
  ASSERT_EQ(reopened.locales(), 2u);
  WideString text, locale;
  reopened.locale(0, text, locale);
  EXPECT_EQ(text, WideString(L"Eigenschaft"));
  EXPECT_EQ(locale, WideString(L"de-de"));
  reopened.locale(1, text, locale);
  EXPECT_EQ(text, WideString(L"Property"));
  EXPECT_EQ(locale, WideString(L"en-us")) << "the default locale";
  EXPECT_EQ(reopened.dimension(), 0u) << "the base never takes values";
}

}  // namespace
}  // namespace kestrine::platform::data::XML
