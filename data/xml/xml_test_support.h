#ifndef KPL_DATA_XML_XML_TEST_SUPPORT_H_
#define KPL_DATA_XML_XML_TEST_SUPPORT_H_

#include <string>
#include <vector>

#include "kestrine/platform/core/datastore.h"
#include "kestrine/platform/core/io.h"
#include "kestrine/platform/core/string.h"
#include "kestrine/platform/data/format/xml.h"

// Parsing and writing documents through the XML front end in tests, and the documents that
// tests, benchmarks and the fuzzing corpus use (not part of the library).
namespace kestrine::platform::data::XML::testing {

using core::storage::datastore::IDataStore;
using format::xml::IXMLFrontEnd;

// Keeps every report, as UTF-8.
class Reports : public IXMLFrontEnd::IErrorReporter {
 public:
  void report(core::string::WideString message) override {
    messages.push_back(core::string::StringAlgorithm::UTF8Encode(message));
  }
  std::vector<std::string> messages;
};

// Parses `xml` into `store` (store form); returns the reports.
inline std::vector<std::string> parse(IDataStore& store, const std::string& xml,
                                      metadata::ISchemaLocator* locator = nullptr) {
  Reports reports;
  core::io::MemoryReader reader(xml);
  IXMLFrontEnd::parse(&store, &reader, locator, nullptr, &reports);
  return reports.messages;
}

// The document written from the record at `offset` (the root by default).
inline std::string render(IDataStore& store, metadata::ISchemaLocator* locator = nullptr,
                          unsigned offset = 0) {
  core::io::MemoryWriter writer;
  IXMLFrontEnd::serialize(&store, &writer, locator, offset);
  return writer.bytes();
}

// Documents for tests, benchmarks and the fuzzing corpus (not part of the library): every
// element, attribute and value type of the XML format, written as the writer writes them
// (integers at their extremes, floating point with 7 significant digits, canonical base64,
// attributes and children in the writer's order) but for line breaks and the "optional"
// flags, which are read and never written; so what survives a round trip compares as text.
class SampleDocument {
 public:
  // The schema store's document: table "point" (double x, double y, int16 tag[2]) and
  // table "pair" (int32 a, uint8 b).
  static std::string schemas() {
    return "<root name=\"schemas\">"
           "<table name=\"point\"><double name=\"x\" dim=\"1\"/><double name=\"y\" dim=\"1\"/>"
           "<int16 name=\"tag\" dim=\"2\"/></table>"
           "<table name=\"pair\"><int32 name=\"a\" dim=\"1\"/><uint8 name=\"b\" dim=\"1\"/>"
           "</table></root>";
  }

  // A root named "doc" holding `nodes` nodes "n0", "n1" ... (see node), a group inheriting
  // "pair" and a link to n0's table. Struct values need "point" from schemas().
  static std::string document(unsigned nodes) {
    std::string xml =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<root version=\"1\" name=\"doc\">"
        "<name locale=\"en-us\">Document</name><name locale=\"de-de\">Dokument</name>";
    for (unsigned i = 0; i < nodes; ++i)
      xml += node(i);
    xml +=
        "<group name=\"g\" class=\"pair\" optional=\"true\"><int32 name=\"a\">12</int32>"
        "<node name=\"inner\"/></group>"
        "<link name=\"l\" to=\"n0.tab\"><name locale=\"en-us\">Shortcut</name></link>"
        "</root>\n";
    return xml;
  }

  // Node "n<i>": every value type once (integers with both extremes and i), a string of three
  // blocks, a URI-mode primitive, value locale, units, localized names on the node, a table
  // and a primitive, a table inheriting "point" with defaults, a nested table and a struct.
  static std::string node(unsigned i) { return node(i, "n" + std::to_string(i)); }
  // The same, named `name`.
  static std::string node(unsigned i, const std::string& name) {
    std::string n = std::to_string(i);
    std::string xml = "<node name=\"" + name + "\" optional=\"true\">";
    xml += "<name locale=\"en-us\">Node " + n + "</name><name locale=\"fr-fr\">N\xc5\x93ud " + n +
           "</name>";
    xml += "<binary name=\"bin\">AAEC/f7/" + base64(i) + "</binary>";
    xml += "<uuid name=\"id\">6f9619ff-8b86-d011-b42d-00cf4fc9" + hex(i) + "</uuid>";
    xml +=
        "<string name=\"text\" locale=\"fr-fr\">caf\xc3\xa9 &amp; cr\xc3\xa8me " + n + "</string>";
    xml +=
        "<string name=\"list\"><val>alpha</val><val/><val>&lt;gamma&gt; " + n + "</val></string>";
    xml += "<time name=\"when\">2024-05-01T12:00:00Z</time>";
    xml += "<uri name=\"where\">https://example.org/item/" + n + "?q=1&amp;r=2</uri>";
    xml += "<version name=\"release\">1.2." + n + "</version>";
    xml += "<bool name=\"flag\">0 1</bool>";
    xml += "<int8 name=\"i8\">-128 127 " + std::to_string(i % 100) + "</int8>";
    xml += "<uint8 name=\"u8\">0 255</uint8>";
    xml += "<int16 name=\"i16\">-32768 32767</int16>";
    xml += "<uint16 name=\"u16\">0 65535</uint16>";
    xml += "<int32 name=\"i32\" units=\"Meter\">-2147483648 2147483647 " + n + "</int32>";
    xml += "<uint32 name=\"u32\">0 4294967295</uint32>";
    xml += "<int64 name=\"i64\">-9223372036854775808 9223372036854775807 " +
           std::to_string(-static_cast<long long>(i)) + "</int64>";
    xml += "<uint64 name=\"u64\">0 18446744073709551615</uint64>";
    xml += "<scalar name=\"f\" units=\"Second\">3.141593 -0.5 1e-10 1234568</scalar>";
    xml += "<double name=\"d\" units=\"InvCelsius,\">2.718282 -1.5e+300 1e-300 " + n + "</double>";
    xml += "<vector2 name=\"v2\">1 2</vector2><vector3 name=\"v3\">1 -2 3.5</vector3>";
    xml += "<vector4 name=\"v4\">0 0 0 1</vector4><matrix2x2 name=\"m2\">1 0 0 1</matrix2x2>";
    xml += "<matrix3x3 name=\"m3\">1 2 3 4 5 6 7 8 9</matrix3x3>";
    xml += "<matrix4x4 name=\"m4\">1 0 0 0 0 1 0 0 0 0 1 0 0.25 0.5 0.75 1</matrix4x4>";
    xml += "<struct name=\"pts\" units=\"Meter\" type=\"point\">1.5 2.5 7 8 -3 4 -5 " + n +
           "</struct>";
    xml += "<int32 name=\"remote\" uri=\"file:///data/remote" + n + ".bin\"/>";
    xml += "<int32 name=\"named\"><name locale=\"en-us\">Named</name><val>1 2 3</val></int32>";
    xml +=
        "<table name=\"tab\" class=\"point\">"
        "<default unit=\"Meter\" type=\"double\"/><default unit=\"Second\" type=\"vec3\"/>"
        "<name locale=\"en-us\">Points</name>"
        "<double name=\"x\">1.5</double><int32 name=\"extra\">5</int32>"
        "<table name=\"inner\" optional=\"true\"><int8 name=\"z\">-1</int8></table></table>";
    xml += "</node>";
    return xml;
  }

  // Documents of any size, for the tests and benchmarks that import into persistent stores:
  // each generation adds a recognisable subtree, so that a store shows which generations it
  // holds, and whether wholly.
  //
  // A name the name indexes can tell apart. They hash only the first quarter of a name's
  // bytes (its first n bytes for n characters), so names such as "item_123" and "item_124"
  // all share one hash and every look-up compares them one by one; here the unique part comes
  // first and the name is long enough for it to be hashed.
  static std::string distinctName(unsigned i) {
    static const char digits[] = "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
    std::string name;
    for (int place = 0; place < 4; ++place, i /= 62)
      name += digits[i % 62];
    return name + "_generated_part";
  }
  // One part of generation `generation`: a node whose "stamp" holds the generation and `i`.
  static std::string generationPart(unsigned generation, unsigned i) {
    std::string g = std::to_string(generation), n = std::to_string(i);
    return "<node name=\"" + distinctName(i) + "\"><int32 name=\"stamp\">" + g + " " + n +
           "</int32><string name=\"label\">generation " + g + ", part " + n +
           "</string><double name=\"mass\" units=\"Kilogram\">" + n +
           ".25</double><vector3 name=\"position\" units=\"Meter\">" + n + " " + g +
           " 0.5</vector3></node>\n";
  }
  // A document whose root holds one group "gen_<generation>" of `parts` parts.
  static std::string generation(unsigned generation, unsigned parts) {
    std::string xml =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<root version=\"1\" name=\"parts\">"
        "<group name=\"gen_" +
        std::to_string(generation) + "\">\n";
    for (unsigned i = 0; i < parts; ++i)
      xml += generationPart(generation, i);
    return xml + "</group></root>\n";
  }

 private:
  static std::string hex(unsigned i) {
    static const char digits[] = "0123456789abcdef";
    std::string out;
    for (int shift = 12; shift >= 0; shift -= 4)
      out += digits[(i >> shift) & 0xF];
    return out;
  }
  // Canonical base64 of the three bytes i, i >> 8 and i >> 16.
  static std::string base64(unsigned i) {
    static const char alphabet[] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    unsigned bits = (i & 0xFF) << 16 | ((i >> 8) & 0xFF) << 8 | ((i >> 16) & 0xFF);
    std::string out;
    for (int shift = 18; shift >= 0; shift -= 6)
      out += alphabet[(bits >> shift) & 0x3F];
    return out;
  }
};

}  // namespace kestrine::platform::data::XML::testing

#endif  // KPL_DATA_XML_XML_TEST_SUPPORT_H_
