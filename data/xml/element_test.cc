#include "data/xml/element.h"

#include <gtest/gtest.h>

#include <cstring>
#include <locale>
#include <string>
#include <thread>

#include "data/tree/primitive.h"
#include "data/xml/value_text.h"

namespace kestrine::platform::data::XML {
namespace {

using core::storage::datastore::MemoryDataStore;

std::wstring printed(metadata::tValue type, const void* value) {
  wchar_t out[kNumberText] = L"untouched";
  if (!Element::print(type, static_cast<const char*>(value), out)) return L"<refused>";
  return out;
}

// Catches a float written with other than 7 significant digits, a one-byte or bool value
// written as a character, and a non-numeric type printed at all. (The extremes of every
// type are checked where documents make a round trip, reading where they are parsed.)
TEST(ElementValueTest, PrintsIntegersExactlyAndFloatsWithSevenDigits) {
  const double d[] = {3.14159265, 1234567.8, 0.1, 1e-10, -1.5e300};
  const wchar_t* doubles[] = {L"3.141593", L"1234568", L"0.1", L"1e-10", L"-1.5e+300"};
  for (int i = 0; i < 5; ++i)
    EXPECT_EQ(printed(metadata::kDouble, &d[i]), doubles[i]);
  EXPECT_EQ(printed(metadata::kMatrix4x4, &d[0]), L"3.141593");
  const float f = 0.1f;
  EXPECT_EQ(printed(metadata::kScalar, &f), L"0.1");
  const unsigned char u8 = 200, two = 2;
  const signed char i8 = -128;
  EXPECT_EQ(printed(metadata::kUInt8, &u8), L"200");
  EXPECT_EQ(printed(metadata::kInt8, &i8), L"-128");
  EXPECT_EQ(printed(metadata::kBool, &two), L"1");
  for (metadata::tValue type : {metadata::kString, metadata::kStruct, metadata::tValue(25)})
    EXPECT_EQ(printed(type, &d[0]), L"<refused>");
}

// A locale with "," as decimal point and digit grouping, as a user's locale may be.
template <class Char>
struct CommaPunct : std::numpunct<Char> {
  Char do_decimal_point() const override { return ','; }
  Char do_thousands_sep() const override { return '.'; }
  std::string do_grouping() const override { return "\3"; }
};

// Catches a number stream that is not imbued with the C locale: a new thread builds its
// streams under the changed global locale.
TEST(ValueTextTest, IgnoresTheProcessLocale) {
  std::locale previous = std::locale::global(std::locale(
      std::locale(std::locale::classic(), new CommaPunct<wchar_t>), new CommaPunct<char>));
  wchar_t big[kNumberText], fraction[kNumberText];
  double read = 0;
  std::thread([&] {
    ToWString(big, 1234567);
    ToWString(fraction, 0.5);
    CastTo("2.25", read);
  }).join();
  std::locale::global(previous);
  EXPECT_EQ(std::wstring(big), L"1234567");
  EXPECT_EQ(std::wstring(fraction), L"0.5");
  EXPECT_DOUBLE_EQ(read, 2.25);
}

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
