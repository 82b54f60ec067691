#include "data/xml/element.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <limits>
#include <locale>
#include <string>
#include <thread>

#include "data/design/primitive.h"
#include "data/xml/value_text.h"
#include "data/xml/xml_table.h"

namespace kestrine::platform::data::XML {
namespace {

using core::storage::datastore::MemoryDataStore;

template <class T>
std::wstring text(const T& value) {
  wchar_t out[kNumberText];
  ToWString(out, value);
  return out;
}

std::wstring printed(metadata::tValue type, const void* value) {
  wchar_t out[kNumberText] = L"untouched";
  if (!Element::print(type, static_cast<const char*>(value), out)) return L"<refused>";
  return out;
}

// Scans into an 8-byte value preset to 0x55 bytes, so that what was not written shows.
std::string scanned(metadata::tValue type, const char* token) {
  char value[8];
  std::memset(value, 0x55, sizeof value);
  if (!Element::scan(type, token, value)) return "<refused>";
  return std::string(value, sizeof value);
}

// Numbers are written in the C locale whatever the process locale; catches a stream that
// is not imbued with lc.
TEST(ValueTextTest, WritesIntegersAsIntegersAndFloatsWithSevenDigits) {
  EXPECT_EQ(text(static_cast<signed char>(-5)), L"-5");
  EXPECT_EQ(text(static_cast<unsigned char>(200)), L"200");
  EXPECT_EQ(text(true), L"1");
  EXPECT_EQ(text(false), L"0");
  EXPECT_EQ(text(std::numeric_limits<long>::min()), L"-9223372036854775808");
  EXPECT_EQ(text(std::numeric_limits<unsigned long>::max()), L"18446744073709551615");
  EXPECT_EQ(text(1234567), L"1234567");
  EXPECT_EQ(text(3.14159265), L"3.141593");
  EXPECT_EQ(text(1234567.8), L"1234568");
  EXPECT_EQ(text(0.1), L"0.1");
  EXPECT_EQ(text(1e-10), L"1e-10");
  EXPECT_EQ(text(0.1f), L"0.1");
  EXPECT_EQ(text(-1.5e300), L"-1.5e+300");
}

TEST(ValueTextTest, ReadsTheLeadingNumberOfAToken) {
  int i = -1;
  EXPECT_TRUE(CastTo("12abc", i));
  EXPECT_EQ(i, 12);
  EXPECT_TRUE(CastTo("  7", i));
  EXPECT_EQ(i, 7);
  EXPECT_TRUE(CastTo("1.5", i));
  EXPECT_EQ(i, 1);
  i = 99;
  EXPECT_FALSE(CastTo("true", i));
  EXPECT_FALSE(CastTo("", i));
  EXPECT_FALSE(CastTo("99999999999", i));
  EXPECT_EQ(i, 99) << "a failed read leaves the result alone";
  double d = 0;
  EXPECT_TRUE(CastTo("3.141593", d));
  EXPECT_DOUBLE_EQ(d, 3.141593);
  unsigned long long u = 0;
  EXPECT_TRUE(CastTo("18446744073709551615", u));
  EXPECT_EQ(u, std::numeric_limits<unsigned long long>::max());
  long long s = 0;
  EXPECT_TRUE(CastTo("-9223372036854775808", s));
  EXPECT_EQ(s, std::numeric_limits<long long>::min());
}

// A locale with "," as decimal point and digit grouping, as a user's locale may be.
struct CommaPunct : std::numpunct<wchar_t> {
  wchar_t do_decimal_point() const override { return L','; }
  wchar_t do_thousands_sep() const override { return L'.'; }
  std::string do_grouping() const override { return "\3"; }
};
struct NarrowCommaPunct : std::numpunct<char> {
  char do_decimal_point() const override { return ','; }
  char do_thousands_sep() const override { return '.'; }
  std::string do_grouping() const override { return "\3"; }
};

TEST(ValueTextTest, IgnoresTheProcessLocale) {
  std::locale previous = std::locale::global(
      std::locale(std::locale(std::locale::classic(), new CommaPunct), new NarrowCommaPunct));
  std::wstring big, fraction;
  double read = 0;
  // A new thread builds its streams under the changed global locale.
  std::thread([&] {
    big = text(1234567);
    fraction = text(0.5);
    CastTo("2.25", read);
  }).join();
  std::locale::global(previous);
  EXPECT_EQ(big, L"1234567");
  EXPECT_EQ(fraction, L"0.5");
  EXPECT_DOUBLE_EQ(read, 2.25);
}

TEST(ElementValueTest, PrintsEachNumericTypeAtItsWidth) {
  const signed char i8 = -128;
  const unsigned short u16 = 65535;
  const int i32 = INT_MIN;
  const long long i64 = LLONG_MIN;
  const unsigned long long u64 = ULLONG_MAX;
  const float f = 0.25f;
  const double d = 3.14159265;
  EXPECT_EQ(printed(metadata::kInt8, &i8), L"-128");
  EXPECT_EQ(printed(metadata::kUInt16, &u16), L"65535");
  EXPECT_EQ(printed(metadata::kInt32, &i32), L"-2147483648");
  EXPECT_EQ(printed(metadata::kInt64, &i64), L"-9223372036854775808");
  EXPECT_EQ(printed(metadata::kUInt64, &u64), L"18446744073709551615");
  EXPECT_EQ(printed(metadata::kScalar, &f), L"0.25");
  EXPECT_EQ(printed(metadata::kDouble, &d), L"3.141593");
  EXPECT_EQ(printed(metadata::kMatrix4x4, &d), L"3.141593");
  const unsigned char two = 2, zero = 0;
  EXPECT_EQ(printed(metadata::kBool, &two), L"1");
  EXPECT_EQ(printed(metadata::kBool, &zero), L"0");
  EXPECT_EQ(printed(metadata::kString, &i32), L"<refused>");
  EXPECT_EQ(printed(metadata::kStruct, &i32), L"<refused>");
  EXPECT_EQ(printed(metadata::tValue(25), &i32), L"<refused>");
}

TEST(ElementValueTest, ScansIntoTheWidthOfTheReadType) {
  // Small signed types read a whole int: 300 keeps its low byte, 44.
  std::string value = scanned(metadata::kInt8, "300");
  EXPECT_EQ(static_cast<unsigned char>(value[0]), 44);
  EXPECT_EQ(value.substr(4), std::string(4, '\x55')) << "an int is 4 bytes";
  EXPECT_EQ(scanned(metadata::kBool, "true"), "<refused>");
  EXPECT_EQ(scanned(metadata::kBool, "2")[0], 2);
  EXPECT_EQ(scanned(metadata::kInt32, ""), "<refused>");
  int i = 0;
  std::memcpy(&i, scanned(metadata::kInt32, "1.5").data(), 4);
  EXPECT_EQ(i, 1);
  unsigned long long u = 0;
  std::memcpy(&u, scanned(metadata::kUInt64, "18446744073709551615").data(), 8);
  EXPECT_EQ(u, ULLONG_MAX);
  float f = 0;
  value = scanned(metadata::kScalar, "0.5");
  std::memcpy(&f, value.data(), 4);
  EXPECT_EQ(f, 0.5f);
  EXPECT_EQ(value.substr(4), std::string(4, '\x55')) << "a float is 4 bytes";
  double d = 0;
  std::memcpy(&d, scanned(metadata::kVector3, "3.141593").data(), 8);
  EXPECT_DOUBLE_EQ(d, 3.141593);
  EXPECT_EQ(scanned(metadata::kString, "1"), "<refused>");
  EXPECT_EQ(scanned(metadata::kBinary, "1"), "<refused>");
}

TEST(ElementTest, FindsTheFirstAttributeOfAName) {
  const char* attributes[] = {"name", "a", "dim", "3", "name", "b", nullptr};
  EXPECT_STREQ(Element::find("name", attributes), "a");
  EXPECT_STREQ(Element::find("dim", attributes), "3");
  EXPECT_EQ(Element::find("Name", attributes), nullptr);
  const char* none[] = {nullptr};
  EXPECT_EQ(Element::find("name", none), nullptr);
  EXPECT_EQ(Element::find("name", nullptr), nullptr);
}

// A handler that keeps every behaviour of the base.
class Plain : public Element {
 public:
  using Element::Element;
  const char* name() const override { return "plain"; }
};

TEST(ElementTest, BaseRefusesToMakeNestOrWriteAnything) {
  MemoryDataStore store;
  Plain plain(&store);
  EXPECT_EQ(plain.type(), 6u);
  EXPECT_EQ(plain.wname(), nullptr);
  const char* attributes[] = {"name", "x", nullptr};
  EXPECT_EQ(plain.open(attributes), nullptr);
  EXPECT_EQ(plain.message(), WideString(L"unknown element, skipping"));
  EXPECT_EQ(plain.nest(nullptr, nullptr), nullptr);
  EXPECT_EQ(plain.message(), WideString(L"unable to nest"));
  EXPECT_FALSE(plain.serialize(nullptr, nullptr));
}

// The "name" sub-element names the item; "val" is accepted but its text is not used, and the
// state it leaves makes the handler refuse every sub-element after it.
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

TEST(ElementTest, DefaultTypeNamesAreTheShortForms) {
  ASSERT_NE(XMLTable::lookup("vec3"), nullptr);
  EXPECT_EQ(XMLTable::lookup("vec3")->value, metadata::kVector3);
  EXPECT_EQ(XMLTable::lookup("mtx4x4")->value, metadata::kMatrix4x4);
  EXPECT_EQ(XMLTable::lookup("vector3"), nullptr);
  EXPECT_EQ(XMLTable::lookup("struct"), nullptr);
  EXPECT_EQ(XMLTable::lookup("String"), nullptr);
  EXPECT_EQ(XMLTable::lookup(metadata::kString), &XMLTable::_kpTypes[0]);
  EXPECT_EQ(XMLTable::lookup(metadata::kStruct), nullptr);
  unsigned entries = 0, strings = 0;
  for (const XMLTable::tType* entry = XMLTable::_kpTypes; entry->value != metadata::kNone;
       ++entry, ++entries)
    strings += std::strcmp(entry->name, "string") == 0;
  EXPECT_EQ(entries, 24u);
  EXPECT_EQ(strings, 2u);
}

TEST(ElementTest, SharesOneUnitsDictionary) {
  EXPECT_EQ(Element::_oUnits.unit("Meter"), units::Meter);
  EXPECT_EQ(Element::_oUnits.unit("InvCelsius"), units::tUnit(0));
}

}  // namespace
}  // namespace kestrine::platform::data::XML
