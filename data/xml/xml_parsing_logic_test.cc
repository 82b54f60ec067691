#include "data/xml/xml_parsing_logic.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>
#include <vector>

#include "data/design/container.h"
#include "data/design/logic.h"
#include "data/design/primitive.h"
#include "data/design/table.h"
#include "data/metadata/root.h"
#include "data/xml/sample_document.h"
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

// The strings a text primitive holds, each with its terminator.
std::wstring text(IDataStore& store, const wchar_t* path) {
  std::vector<wchar_t> chars = values<wchar_t>(store, path);
  return std::wstring(chars.begin(), chars.end());
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

// Catches an exact-case registry look-up, which would skip ROOT and Node.
TEST(XMLParsingLogicTest, MatchesElementNamesWhateverTheirCase) {
  MemoryDataStore store;
  EXPECT_EQ(parse(store,
                  "<ROOT name='r'><Node name='a'><INT32 name='x'>5</INT32></Node>"
                  "<group NAME='b'/></ROOT>"),
            Strings{"group : missing mandatory 'id' attribute"})
      << "attribute names stay byte-exact";
  EXPECT_EQ(values<int>(store, L"a.x"), std::vector<int>{5});
  EXPECT_EQ(at(store, L"b"), IDataStore::BADOFF);
}

// Catches an overrun of the lowered-name buffer and a report of the uncut name.
TEST(XMLParsingLogicTest, CutsLongElementNamesTo256Bytes) {
  MemoryDataStore store;
  std::string name(300, 'Q');
  EXPECT_EQ(parse(store, "<root name='r'><" + name + "><node name='a'/></" + name +
                             "><node name='b'/></root>"),
            Strings{std::string(256, 'q') + " : unknown element, skipping"});
  EXPECT_EQ(at(store, L"a"), IDataStore::BADOFF);
  EXPECT_NE(at(store, L"b"), IDataStore::BADOFF);
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

// Catches text collected across child tags.
TEST(XMLParsingLogicTest, GivesOnlyTheTextSinceTheLastTag) {
  MemoryDataStore store;
  EXPECT_TRUE(parse(store,
                    "<root name='r'>stray<node name='n'>before<name locale='de'>Knoten"
                    "</name>after<int32 name='x'>4</int32>tail</node></root>")
                  .empty());
  EXPECT_EQ(names(store, at(store, L"n")), Strings{"de=Knoten"});
  EXPECT_EQ(values<int>(store, L"n.x"), std::vector<int>{4});
}

// Catches a primitive set twice: once from "val", once more (with the remaining text) at
// its own end tag.
TEST(XMLParsingLogicTest, ValSetsAPrimitiveOnceAndAppendsStrings) {
  MemoryDataStore store;
  EXPECT_TRUE(parse(store,
                    "<root name='r'><node name='n'>"
                    "<int32 name='x'><val>1 2</val>9</int32>"
                    "<int32 name='y'><name>Y</name>7 8</int32>"
                    "<string name='s'><val>ab</val><val></val><val>c</val></string>"
                    "<uuid name='u'>one<val>two</val></uuid>"
                    "<string name='plain'>only</string></node></root>")
                  .empty());
  EXPECT_EQ(values<int>(store, L"n.x"), (std::vector<int>{1, 2}));
  EXPECT_TRUE(values<int>(store, L"n.y").empty()) << "text after a sub-element is not set";
  EXPECT_EQ(text(store, L"n.s"), std::wstring(L"ab\0\0c\0", 6));
  EXPECT_EQ(text(store, L"n.u"), std::wstring(L"two\0", 4));
  EXPECT_EQ(text(store, L"n.plain"), std::wstring(L"only\0", 5));
}

// A "val" under a set element is accepted and dropped, and leaves that element's handler
// refusing every later sub-element of the document; other handlers are unaffected.
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

// A tag inside "name" is reported and skipped; the text around it (and, since text is
// collected while skipping, in it) still names the item.
TEST(XMLParsingLogicTest, ReportsATagInsideASubElement) {
  MemoryDataStore store;
  EXPECT_EQ(parse(store,
                  "<root name='r'><node name='a'><name locale='de'>Kno<b>x<c/></b>ten"
                  "</name><int32 name='x'>3</int32></node></root>"),
            Strings{"b : cannot nest anything under a sub-element"});
  EXPECT_EQ(names(store, at(store, L"a")), Strings{"de=Knoxten"});
  EXPECT_EQ(values<int>(store, L"a.x"), std::vector<int>{3});
}

// Catches a merge that adds a second child of a taken name, or one across value types.
TEST(XMLParsingLogicTest, MergesAlikeChildrenAndRefusesOthers) {
  MemoryDataStore store;
  EXPECT_EQ(parse(store,
                  "<root name='r'><node name='n'>"
                  "<int32 name='x'>1 2 3</int32><int32 name='x'>7</int32>"
                  "<int32 name='y'>1</int32><uint32 name='y'>2</uint32>"
                  "<table name='t'><int8 name='a'>1</int8></table>"
                  "<table name='t'><int8 name='b'>2</int8><int8 name='a'>5</int8></table>"
                  "<node name='c'/><node name='c'/><table name='c'/>"
                  "</node></root>"),
            (Strings{"uint32 : could not nest the element", "node : could not nest the element",
                     "table : could not nest the element"}));
  EXPECT_EQ(values<int>(store, L"n.x"), (std::vector<int>{7, 2, 3}));
  EXPECT_EQ(values<int>(store, L"n.y"), std::vector<int>{1});
  EXPECT_EQ(values<signed char>(store, L"n.t.a"), std::vector<signed char>{5});
  EXPECT_EQ(values<signed char>(store, L"n.t.b"), std::vector<signed char>{2});
  Structural::Container node(&store, at(store, L"n"), false);
  EXPECT_EQ(node.items(), 4u);
}

TEST(XMLParsingLogicTest, NestsOnlyWhatTheParentTakes) {
  MemoryDataStore store;
  EXPECT_EQ(parse(store,
                  "<root name='r'><int32 name='x'/><table name='t'><node name='n'/>"
                  "<double name='d'>1</double></table><node name='m'><root name='q'/>"
                  "</node></root>"),
            (Strings{"int32 : could not nest the element", "node : could not nest the element",
                     "root : could not nest the element"}));
  EXPECT_EQ(at(store, L"x"), IDataStore::BADOFF);
  EXPECT_EQ(values<double>(store, L"t.d"), std::vector<double>{1});
  EXPECT_EQ(at(store, L"t.n"), IDataStore::BADOFF);
}

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

TEST(XMLParsingLogicTest, OnlyTheExactValueTrueMakesAnItemOptional) {
  MemoryDataStore store;
  parse(store,
        "<root name='r'><node name='a' optional='true'/><node name='b' optional='TRUE'/>"
        "<table name='c' optional='yes'/><table name='d' optional='true'/></root>");
  EXPECT_EQ(flags(store, L"a") & 1, 1);
  EXPECT_EQ(flags(store, L"b") & 1, 0);
  EXPECT_EQ(flags(store, L"c") & 1, 0);
  EXPECT_EQ(flags(store, L"d") & 1, 1);
}

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
        "<uint16 name='big' dim='99999999999'/>"
        "<binary name='bin'>AAEC/w==</binary><binary name='bad'>*</binary>"
        "<uint8 name='ref' uri='file:///x'>1 2</uint8>"
        "</node></root>");
  EXPECT_EQ(values<int>(store, L"n.grow"), (std::vector<int>{1, 2, 3}));
  EXPECT_EQ(values<int>(store, L"n.partial"), (std::vector<int>{0, 9, 0}));
  EXPECT_EQ(values<int>(store, L"n.cut"), (std::vector<int>{1, 12}));
  EXPECT_EQ(values<unsigned char>(store, L"n.b"), (std::vector<unsigned char>{0, 2}));
  EXPECT_EQ(values<signed char>(store, L"n.wrap"), (std::vector<signed char>{44, 127}));
  EXPECT_EQ(values<double>(store, L"n.v"), (std::vector<double>{1, 2, 0}));
  EXPECT_TRUE(values<unsigned short>(store, L"n.big").empty()) << "an unreadable dim is 0";
  EXPECT_EQ(values<unsigned char>(store, L"n.bin"), (std::vector<unsigned char>{0, 1, 2, 255}));
  EXPECT_TRUE(values<unsigned char>(store, L"n.bad").empty());
  Design::Primitive ref(&store, at(store, L"n.ref"));
  EXPECT_EQ(WideString(ref.uri()), WideString(L"file:///x"));
  EXPECT_EQ(ref.dimension(), 0u);
}

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
  Design::Primitive one(&store, at(store, L"n.one"));
  EXPECT_EQ(WideString(one.base()), WideString(L"point"));
  ASSERT_EQ(one.valuesize(), 20u) << "x, y, tag[2] packed: 8 + 8 + 2 x 2";
  char bytes[40];
  one.get(bytes, 0, 20);
  double x, y;
  short tag[2];
  std::memcpy(&x, bytes, 8);
  std::memcpy(&y, bytes + 8, 8);
  std::memcpy(tag, bytes + 16, 4);
  EXPECT_EQ(x, 1.5);
  EXPECT_EQ(y, 2.5);
  EXPECT_EQ(tag[0], 7);
  EXPECT_EQ(tag[1], 8);
  Design::Primitive two(&store, at(store, L"n.two"));
  ASSERT_EQ(two.valuesize(), 40u);
  two.get(bytes, 0, 40);
  std::memcpy(tag, bytes + 36, 4);
  EXPECT_EQ(tag[0], -7);
  EXPECT_EQ(tag[1], -8);
  EXPECT_EQ(Design::Primitive(&store, at(store, L"n.sized")).valuesize(), 60u);
  Design::Primitive unknown(&store, at(store, L"n.unknown"));
  EXPECT_EQ(unknown.base(), nullptr);
  EXPECT_EQ(unknown.valuesize(), 0u);
  EXPECT_EQ(values<int>(store, L"n.typed"), std::vector<int>{5}) << "type ignored off structs";
}

// The outermost element stands for the target: only its kind counts, and its children go
// into the target.
TEST(XMLParsingLogicTest, ParsesIntoATargetContainer) {
  MemoryDataStore store;
  parse(store, "<root name='r'><group name='g'><int32 name='old'>1</int32></group></root>");
  unsigned offset = at(store, L"g");
  {
    Structural::Container target(&store, offset, false);
    testing::Reports reports;
    XMLParsingLogic logic(&store, &target, nullptr, nullptr, &reports);
    core::xml::XMLParser parser(&logic);
    core::io::MemoryReader reader(
        "<node name='ignored' optional='true'><int32 name='new'>2</int32>"
        "<int32 name='old'>3</int32><table name='t'/></node>");
    ASSERT_TRUE(reader.open());
    parser.parseDocument(&reader);
    EXPECT_TRUE(reports.messages.empty());
  }
  EXPECT_EQ(values<int>(store, L"g.new"), std::vector<int>{2});
  EXPECT_EQ(values<int>(store, L"g.old"), std::vector<int>{3});
  EXPECT_NE(at(store, L"g.t"), IDataStore::BADOFF);
  EXPECT_EQ(flags(store, L"g") & 1, 0) << "the outermost element's attributes are not applied";
  EXPECT_EQ(at(store, L"ignored"), IDataStore::BADOFF);
}

// Catches items leaked when a document ends inside open elements (the ASan build reports
// them) and a driver that cannot be fed after an error.
TEST(XMLParsingLogicTest, ReleasesTheItemsOfAnUnterminatedDocument) {
  MemoryDataStore store;
  {
    XMLParsingLogic logic(&store, nullptr, nullptr, nullptr, nullptr);
    const char* root[] = {"name", "r", nullptr};
    const char* node[] = {"name", "n", nullptr};
    logic.notifyStartElement("root", root);
    logic.notifyStartElement("node", node);
    logic.notifyStartElement("name", node);
    logic.notifyCharacterData("N", 1);
  }
  Metadata::Root root(&store, 0);
  EXPECT_NE(root.find(L"n"), IDataStore::BADOFF);
  EXPECT_TRUE(root.unreferenced()) << "every record's count was dropped again";
}

}  // namespace
}  // namespace kestrine::platform::data::XML
