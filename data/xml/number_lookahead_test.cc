#include "data/xml/number_lookahead.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "data/tree/lock.h"
#include "data/tree/primitive.h"
#include "data/tree/root.h"
#include "data/xml/xml_parsing_logic.h"

namespace kestrine::platform::data::XML {
namespace {

using core::storage::datastore::MemoryDataStore;

template <class T>
std::vector<T> elements(std::string_view bytes) {
  std::vector<T> out(bytes.size() / sizeof(T));
  std::memcpy(out.data(), bytes.data(), out.size() * sizeof(T));
  return out;
}

// Catches names matched in one case only, a "val" that does not take its primitive's type,
// a localized name read as numbers, text kept across tags or lost between runs, a block
// attached when none is asked for, and an end tag whose start went unseen upsetting what
// follows.
TEST(NumberLookahead, ReadsTheTextSinceTheLastTagOfNumericElements) {
  NumberLookahead ahead;
  std::string attachment;
  auto end = [&](const char* name) -> const std::string& {
    attachment.clear();
    ahead.endElement(name, &attachment);
    return attachment;
  };
  NumberLookahead::tScanned block;

  EXPECT_EQ(end("unseen"), "");
  ahead.startElement("root");
  ahead.startElement("DOUBLE");
  ahead.characterData("1.5 -2", 6);
  ahead.characterData("5e1 ", 4);
  ASSERT_TRUE(NumberLookahead::scanned(end("DOUBLE"), block));
  EXPECT_EQ(block.type, metadata::kDouble);
  EXPECT_TRUE(block.read);
  EXPECT_TRUE(block.block.trailing);
  EXPECT_EQ(elements<double>(block.elements), (std::vector<double>{1.5, -250}));

  ahead.startElement("int32");
  ahead.characterData("\n", 1);
  ahead.startElement("val");
  ahead.characterData("7 8", 3);
  ASSERT_TRUE(NumberLookahead::scanned(end("val"), block));
  EXPECT_EQ(block.type, metadata::kInt32);
  EXPECT_EQ(elements<int>(block.elements), (std::vector<int>{7, 8}));
  ahead.startElement("name");
  ahead.characterData("9", 1);
  EXPECT_EQ(end("name"), "");
  EXPECT_EQ(end("int32"), "");

  ahead.startElement("string");
  ahead.characterData("1 2", 3);
  EXPECT_EQ(end("string"), "");
  ahead.startElement("uint32");
  ahead.characterData("-1", 2);
  ASSERT_TRUE(NumberLookahead::scanned(end("uint32"), block));
  EXPECT_FALSE(block.read);

  ahead.startElement("double");
  ahead.characterData("3", 1);
  ahead.endElement("double", nullptr);
  ahead.startElement("double");
  ahead.characterData("4", 1);
  ASSERT_TRUE(NumberLookahead::scanned(end("double"), block));
  EXPECT_EQ(elements<double>(block.elements), std::vector<double>{4});
  EXPECT_EQ(end("root"), "");
  EXPECT_FALSE(NumberLookahead::scanned("", block));
}

// Attaches, wherever the real lookahead attaches a block, a block of doubles that reads 99.
class Forger : public NumberLookahead {
 public:
  void endElement(const char* name, std::string* attachment) override {
    NumberLookahead::endElement(name, attachment);
    if (attachment == nullptr || attachment->empty()) return;
    attachment->clear();
    forged_.startElement("double");
    forged_.characterData("99", 2);
    forged_.endElement("double", attachment);
  }

 private:
  NumberLookahead forged_;
};

// Holds the import up at its first event, so that batches pile up and the lookahead is
// offered to attach.
class Slow : public core::xml::XMLCallback {
 public:
  explicit Slow(XMLParsingLogic& logic) : logic_(logic) {}
  void notifyStartElement(const char* name, const char** attributes) override {
    if (first_) std::this_thread::sleep_for(std::chrono::milliseconds(100));
    first_ = false;
    logic_.notifyStartElement(name, attributes);
  }
  void notifyEndElement(const char* name) override { logic_.notifyEndElement(name); }
  void notifyStartNamespace(const char* prefix, const char* uri) override {}
  void notifyEndNamespace(const char* prefix) override {}
  void notifyCharacterData(const char* data, int length) override {
    logic_.notifyCharacterData(data, length);
  }

 private:
  XMLParsingLogic& logic_;
  bool first_ = true;
};

std::vector<double> doubles(IDataStore& store, const std::wstring& path) {
  Design::Primitive primitive(&store, Metadata::Root(&store, 0).lookup(path.c_str()));
  std::vector<double> out(primitive.dimension());
  primitive.get(reinterpret_cast<char*>(out.data()), 0, primitive.dimension());
  return out;
}

// Catches the import taking a block read from other text than its own (here, the text in a
// skipped child is part of the values, but not of what the lookahead read) or for another
// type than the primitive's, and an import that never takes a block.
TEST(NumberLookahead, TheImportTakesOnlyBlocksOfItsOwnTextAndType) {
  constexpr int kElements = 3000;
  std::string document = "<root name='r'><node name='n'>";
  for (int i = 0; i < kElements; ++i) {
    const std::string n = std::to_string(i);
    document += "<double name='a" + n + "'>1 2</double><double name='b" + n +
                "'>1 <x>5</x> 2</double><int32 name='c" + n + "'>1 2</int32>\n";
  }
  document += "</node></root>";

  MemoryDataStore store;
  {
    Metadata::Lock lock(&store);
    XMLParsingLogic logic(&store, nullptr, nullptr, nullptr, ParsingOptions());
    Slow slow(logic);
    core::xml::XMLParser parser(&slow, core::xml::XMLParser::Threading::kSecondThread);
    Forger forger;
    parser.lookahead(&forger);
    logic.locate(&parser);
    core::io::MemoryReader reader(document);
    reader.open();
    parser.parseDocument(&reader);
  }

  // Held, so that the lookups share the store's indexes instead of building them each time.
  Metadata::Lock lock(&store);
  int forged = 0;
  for (int i = 0; i < kElements; ++i) {
    const std::wstring n = std::to_wstring(i);
    const std::vector<double> a = doubles(store, L"n.a" + n);
    if (a == std::vector<double>{99})
      ++forged;
    else
      EXPECT_EQ(a, (std::vector<double>{1, 2}));
    EXPECT_EQ(doubles(store, L"n.b" + n), (std::vector<double>{5, 2})) << i;
    Design::Primitive c(&store, Metadata::Root(&store, 0).lookup((L"n.c" + n).c_str()));
    std::vector<int> ints(c.dimension());
    c.get(reinterpret_cast<char*>(ints.data()), 0, c.dimension());
    EXPECT_EQ(ints, (std::vector<int>{1, 2})) << i;
  }
  EXPECT_GT(forged, 0);
}

}  // namespace
}  // namespace kestrine::platform::data::XML
