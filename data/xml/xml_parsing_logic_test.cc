#include "data/xml/xml_parsing_logic.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>
#include <vector>

#include "data/tree/container.h"
#include "data/tree/logic.h"
#include "data/tree/primitive.h"
#include "data/tree/root.h"
#include "data/tree/table.h"
#include "data/xml/xml_test_support.h"
#include "kestrine/platform/data/structure/container.h"

namespace kestrine::platform::data::XML {
namespace {

using core::storage::datastore::MemoryDataStore;
using testing::parse;
using Strings = std::vector<std::string>;

// The offset of the item at a dotted path below the store's root; BADOFF when there is none.
unsigned at(IDataStore& store, const wchar_t* path) {
  Metadata::Root root(&store, 0);
  return root.lookup(path);
}

template <class T>
std::vector<T> values(IDataStore& store, const wchar_t* path) {
  unsigned offset = at(store, path);
  if (offset == IDataStore::BADOFF) return {};
  Design::Primitive primitive(&store, offset);
  std::vector<T> out(primitive.valuesize() / sizeof(T));
  primitive.get(reinterpret_cast<char*>(out.data()), 0, primitive.dimension());
  return out;
}

// "locale=text" for each localized name of the item at `offset`.
Strings names(IDataStore& store, unsigned offset) {
  Design::Logic logic(&store, offset, true);
  Strings out;
  for (unsigned i = 0; i < logic->locales(); ++i) {
    WideString text, locale;
    logic->locale(i, text, locale);
    out.push_back(core::string::StringAlgorithm::UTF8Encode(locale) + "=" +
                  core::string::StringAlgorithm::UTF8Encode(text));
  }
  return out;
}

unsigned char flags(IDataStore& store, const wchar_t* path) {
  Design::Logic logic(&store, at(store, path), true);
  return logic->flags();
}

// Catches an exact-case registry look-up (which would skip ROOT and Node), attribute names
// matched without case, an overrun of the lowered-name buffer or a report of the uncut
// name, and an "optional" that takes more than the exact value "true".
TEST(XMLParsingLogicTest, ElementNamesIgnoreCaseAttributesDoNot) {
  MemoryDataStore store;
  const std::string name(300, 'Q');
  EXPECT_EQ(parse(store,
                  "<ROOT name='r'><Node name='a' optional='true'><INT32 name='x'>5</INT32>"
                  "</Node><group NAME='b'/><" +
                      name + "><node name='c'/></" + name +
                      "><node name='d' optional='TRUE'/><table name='e' optional='yes'/>"
                      "<table name='f' optional='true'/></ROOT>"),
            (Strings{"group : missing mandatory 'id' attribute",
                     std::string(256, 'q') + " : unknown element, skipping"}));
  EXPECT_EQ(values<int>(store, L"a.x"), std::vector<int>{5});
  EXPECT_EQ(at(store, L"b"), IDataStore::BADOFF);
  EXPECT_EQ(at(store, L"c"), IDataStore::BADOFF);
  ASSERT_NE(at(store, L"d"), IDataStore::BADOFF);
  EXPECT_EQ(flags(store, L"a") & 1, 1);
  EXPECT_EQ(flags(store, L"d") & 1, 0);
  EXPECT_EQ(flags(store, L"e") & 1, 0);
  EXPECT_EQ(flags(store, L"f") & 1, 1);
}

// Catches a skip that ends at the first end tag or reports each element of the subtree.
TEST(XMLParsingLogicTest, SkipsAnUnknownSubtreeWithOneReport) {
  MemoryDataStore store;
  EXPECT_EQ(parse(store,
                  "<root name='r'><bogus><node name='a'><bogus/></node><int32 name='x'/>"
                  "</bogus><node name='b'><int32 name='y'>1</int32></node></root>"),
            Strings{"bogus : unknown element, skipping"});
  EXPECT_EQ(at(store, L"a"), IDataStore::BADOFF);
  EXPECT_EQ(values<int>(store, L"b.y"), std::vector<int>{1});

  MemoryDataStore quiet;
  core::io::MemoryReader reader("<root name='r'><bogus><node name='a'/></bogus></root>");
  format::xml::IXMLFrontEnd::parse(&quiet, &reader, nullptr, nullptr, nullptr);
  EXPECT_EQ(at(quiet, L"a"), IDataStore::BADOFF) << "without a reporter, still skipped";
  EXPECT_EQ(Metadata::Root(&quiet, 0).items(), 0u);
}

// Catches text collected across child tags, and a tag inside "name" that is not reported
// and skipped (the text around it, and since text is collected while skipping, in it, still
// names the item).
TEST(XMLParsingLogicTest, GivesOnlyTheTextSinceTheLastTag) {
  MemoryDataStore store;
  EXPECT_EQ(parse(store,
                  "<root name='r'>stray<node name='n'>before<name locale='de'>Knoten"
                  "</name>after<int32 name='x'>4</int32>tail</node>"
                  "<node name='a'><name locale='de'>Kno<b>x<c/></b>ten</name></node></root>"),
            Strings{"b : cannot nest anything under a sub-element"});
  EXPECT_EQ(names(store, at(store, L"n")), Strings{"de=Knoten"});
  EXPECT_EQ(values<int>(store, L"n.x"), std::vector<int>{4});
  EXPECT_EQ(names(store, at(store, L"a")), Strings{"de=Knoxten"});
}

// Catches a "val" under a set element that is not accepted and dropped, or that does not
// leave that element's handler refusing every later sub-element of the document; other
// handlers are unaffected.
TEST(XMLParsingLogicTest, ValUnderASetElementBlocksItsNamesForTheDocument) {
  MemoryDataStore store;
  EXPECT_EQ(parse(store,
                  "<root name='r'><node name='a'><val>dropped</val><name>A</name></node>"
                  "<node name='b'><name>B</name></node>"
                  "<group name='g'><name>G</name></group></root>"),
            (Strings{"name : unknown element, skipping", "name : unknown element, skipping"}));
  EXPECT_TRUE(names(store, at(store, L"a")).empty());
  EXPECT_TRUE(names(store, at(store, L"b")).empty());
  EXPECT_EQ(names(store, at(store, L"g")), Strings{"en-us=G"});

  MemoryDataStore other;
  EXPECT_EQ(parse(other,
                  "<root name='r'><val/><name>R</name><link name='l'><val/></link>"
                  "<link name='m'><val/></link></root>"),
            (Strings{"name : unknown element, skipping", "val : unknown element, skipping"}));
  EXPECT_TRUE(names(other, 0).empty());
}

// Catches a merge that adds a second child of a taken name, or one across value types, and
// a parent that takes a child of a kind it cannot hold.
TEST(XMLParsingLogicTest, MergesAlikeChildrenAndRefusesOthers) {
  MemoryDataStore store;
  EXPECT_EQ(parse(store,
                  "<root name='r'><int32 name='p'/><table name='u'><node name='m'/>"
                  "<double name='d'>1</double></table><node name='m'><root name='q'/></node>"
                  "<node name='n'>"
                  "<int32 name='x'>1 2 3</int32><int32 name='x'>7</int32>"
                  "<int32 name='y'>1</int32><uint32 name='y'>2</uint32>"
                  "<table name='t'><int8 name='a'>1</int8></table>"
                  "<table name='t'><int8 name='b'>2</int8><int8 name='a'>5</int8></table>"
                  "<node name='c'/><node name='c'/><table name='c'/>"
                  "</node></root>"),
            (Strings{"int32 : could not nest the element", "node : could not nest the element",
                     "root : could not nest the element", "uint32 : could not nest the element",
                     "node : could not nest the element", "table : could not nest the element"}));
  EXPECT_EQ(at(store, L"p"), IDataStore::BADOFF);
  EXPECT_EQ(values<double>(store, L"u.d"), std::vector<double>{1});
  EXPECT_EQ(at(store, L"u.m"), IDataStore::BADOFF);
  EXPECT_EQ(values<int>(store, L"n.x"), (std::vector<int>{7, 2, 3}));
  EXPECT_EQ(values<int>(store, L"n.y"), std::vector<int>{1});
  EXPECT_EQ(values<signed char>(store, L"n.t.a"), std::vector<signed char>{5});
  EXPECT_EQ(values<signed char>(store, L"n.t.b"), std::vector<signed char>{2});
  Structural::Container node(&store, at(store, L"n"), false);
  EXPECT_EQ(node.items(), 4u);
}

// Catches a handler message reported under the lowered name, and a root without a name
// that is written anyway.
TEST(XMLParsingLogicTest, ReportsTheHandlersMessagesWithTheNameAsGiven) {
  MemoryDataStore store;
  EXPECT_EQ(parse(store,
                  "<root name='r'><NODE/><Table/><node name='n'><int8/><struct name='s'/>"
                  "<struct name='t' type='point'/></node></root>"),
            (Strings{"NODE : missing mandatory 'id' attribute",
                     "Table : missing mandatory 'id' attribute",
                     "int8 : missing mandatory 'id' attribute",
                     "struct : missing mandatory 'type' attribute for <struct>",
                     "struct : missing locator to resolve the 'type' attribute"}));
  MemoryDataStore nameless;
  EXPECT_EQ(parse(nameless, "<root><node name='n'/></root>"),
            Strings{"root : missing mandatory 'id' attribute"});
  EXPECT_EQ(nameless.used(), 0u);
}

// Catches values read other than token by token: whitespace of any kind separates, a bad
// token leaves its element 0, "dim" pads or is 0 when unreadable, and values beside a URI
// are dropped.
TEST(XMLParsingLogicTest, ReadsNumbersTokenByToken) {
  MemoryDataStore store;
  parse(store,
        "<root name='r'><node name='n'>"
        "<int32 name='grow'> 1\t2\r\n3  </int32>"
        "<int32 name='partial' dim='3'>x 9</int32>"
        "<int32 name='cut'>1.5 12abc</int32>"
        "<bool name='b' dim='2'>true 2</bool>"
        "<int8 name='wrap'>300 -129</int8>"
        "<vector3 name='v' dim='5'>1 2</vector3>"
        "<double name='d' dim='3'> 1.5\t-2.25\n </double>"
        "<scalar name='s' dim='1'>.5 -0.25 </scalar>"
        "<uint16 name='big' dim='99999999999'/>"
        "<binary name='bin'>AAEC/w==</binary><binary name='bad'>*</binary>"
        "<uint8 name='ref' uri='file:///x'>1 2</uint8>"
        "<int32 name='again' dim='3'>5 6 7</int32><int32 name='again'>x 9</int32>"
        "</node></root>");
  EXPECT_EQ(values<int>(store, L"n.grow"), (std::vector<int>{1, 2, 3}));
  EXPECT_EQ(values<int>(store, L"n.partial"), (std::vector<int>{0, 9, 0}));
  EXPECT_EQ(values<int>(store, L"n.cut"), (std::vector<int>{1, 12}));
  EXPECT_EQ(values<unsigned char>(store, L"n.b"), (std::vector<unsigned char>{0, 2}));
  EXPECT_EQ(values<signed char>(store, L"n.wrap"), (std::vector<signed char>{44, 127}));
  EXPECT_EQ(values<double>(store, L"n.v"), (std::vector<double>{1, 2, 0}));
  EXPECT_EQ(values<double>(store, L"n.d"), (std::vector<double>{1.5, -2.25, 0}));
  EXPECT_EQ(values<float>(store, L"n.s"), (std::vector<float>{0.5f, -0.25f}));
  EXPECT_EQ(values<int>(store, L"n.again"), (std::vector<int>{5, 9, 7})) << "held values kept";
  EXPECT_TRUE(values<unsigned short>(store, L"n.big").empty()) << "an unreadable dim is 0";
  EXPECT_EQ(values<unsigned char>(store, L"n.bin"), (std::vector<unsigned char>{0, 1, 2, 255}));
  EXPECT_TRUE(values<unsigned char>(store, L"n.bad").empty());
  Design::Primitive ref(&store, at(store, L"n.ref"));
  EXPECT_EQ(WideString(ref.uri()), WideString(L"file:///x"));
  EXPECT_EQ(ref.dimension(), 0u);
}

// Catches a default with an unknown type or unit that is taken, and a rejected "default"
// that does not block: its state makes the table handler refuse every later sub-element of
// the document.
TEST(XMLParsingLogicTest, SetsTableDefaultsAndRejectedTypesBlockEveryLaterTable) {
  MemoryDataStore store;
  EXPECT_EQ(parse(store,
                  "<root name='r'>"
                  "<table name='good'><default unit='Meter' type='vec2'/>"
                  "<default unit='Second' type='string'/><default unit='Meter' type='int8'/>"
                  "<default unit='Nowhere' type='double'/><default unit='Meter'/></table>"
                  "<table name='t1'><default unit='Meter' type='vector2'/><name>T1</name>"
                  "</table><table name='t2'><default unit='Meter' type='double'/>"
                  "<name>T2</name></table></root>"),
            (Strings{"default : unknown element, skipping", "name : unknown element, skipping",
                     "default : unknown element, skipping", "name : unknown element, skipping"}));
  Design::Table good(&store, at(store, L"good"), true);
  EXPECT_EQ(good.groups(),
            (std::vector<units::tUnitGroup>{units::group::Length, units::group::Time}));
  EXPECT_EQ(good.valuetype(units::group::Length), metadata::kInt8) << "re-set in place";
  EXPECT_EQ(good.valuetype(units::group::Time), metadata::kString);
  EXPECT_TRUE(Design::Table(&store, at(store, L"t2"), true).groups().empty());
  EXPECT_TRUE(names(store, at(store, L"t1")).empty());
}

// Catches struct values not laid out by the schema the locator resolves (packed x, y and
// tag[2], 20 bytes per element), a "dim" that does not size them, and a "type" read off
// structs.
TEST(XMLParsingLogicTest, ReadsStructsThroughTheSchemaLocator) {
  MemoryDataStore schemas;
  parse(schemas, testing::SampleDocument::schemas());
  auto locator = metadata::ISchemaLocator::make(&schemas);
  MemoryDataStore store;
  EXPECT_TRUE(parse(store,
                    "<root name='r'><node name='n'>"
                    "<struct name='one' type='point'>1.5 2.5 7 8 99</struct>"
                    "<struct name='two' type='point' dim='2'>1 2 3 4 5 6 -7 -8</struct>"
                    "<struct name='sized' type='point' dim='3'/>"
                    "<struct name='unknown' type='nothing'>1 2 3 4</struct>"
                    "<int32 name='typed' type='point'>5</int32></node></root>",
                    locator.get())
                  .empty());
  struct Point {
    double x, y;
    short tag[2];
  };
  auto point = [](const std::vector<char>& bytes, unsigned i) {
    Point p;
    std::memcpy(&p.x, &bytes.at(20 * i), 8);
    std::memcpy(&p.y, &bytes.at(20 * i + 8), 8);
    std::memcpy(p.tag, &bytes.at(20 * i + 16), 4);
    return p;
  };
  EXPECT_EQ(WideString(Design::Primitive(&store, at(store, L"n.one")).base()),
            WideString(L"point"));
  std::vector<char> one = values<char>(store, L"n.one"), two = values<char>(store, L"n.two");
  ASSERT_EQ(one.size(), 20u);
  ASSERT_EQ(two.size(), 40u);
  Point p = point(one, 0);
  EXPECT_EQ(p.x, 1.5);
  EXPECT_EQ(p.y, 2.5);
  EXPECT_EQ(p.tag[0], 7);
  EXPECT_EQ(p.tag[1], 8);
  p = point(two, 1);
  EXPECT_EQ(p.tag[0], -7);
  EXPECT_EQ(p.tag[1], -8);
  EXPECT_EQ(values<char>(store, L"n.sized").size(), 60u);
  Design::Primitive unknown(&store, at(store, L"n.unknown"));
  EXPECT_EQ(unknown.base(), nullptr);
  EXPECT_EQ(unknown.valuesize(), 0u);
  EXPECT_EQ(values<int>(store, L"n.typed"), std::vector<int>{5}) << "type ignored off structs";
}

}  // namespace
}  // namespace kestrine::platform::data::XML
