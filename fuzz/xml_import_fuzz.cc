// Feeds arbitrary bytes to the XML import as a document, then writes the store back as XML
// and imports that once more: nothing may crash, hang, leak or touch memory it does not own,
// and what the writer produces must read back to the same text.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "data/xml/xml_test_support.h"
#include "kestrine/platform/core/datastore.h"
#include "kestrine/platform/core/io.h"
#include "kestrine/platform/data/format/xml.h"
#include "kestrine/platform/data/metadata/schema.h"

namespace {

using kestrine::platform::core::io::MemoryReader;
using kestrine::platform::core::io::MemoryWriter;
using kestrine::platform::core::storage::datastore::MemoryDataStore;
using kestrine::platform::core::string::WideString;
using kestrine::platform::data::format::xml::IXMLFrontEnd;
using kestrine::platform::data::metadata::ISchemaLocator;

// Counts the reports, so that the reporting path runs too.
class Reporter : public IXMLFrontEnd::IErrorReporter {
 public:
  void report(WideString message) override { reports += message.length() > 0; }
  unsigned reports = 0;
};

// Structs and "class" attributes resolve against the sample schemas ("point", "pair"). The
// schema store and its locator are built once: the locator caches layouts of that store
// only, which no input changes, so sharing it costs no input a path it could take.
ISchemaLocator* locator() {
  static MemoryDataStore* schemas = [] {
    auto* store = new MemoryDataStore;
    MemoryReader reader(kestrine::platform::data::XML::testing::SampleDocument::schemas());
    IXMLFrontEnd::parse(store, &reader, nullptr, nullptr, nullptr);
    return store;
  }();
  static auto shared = ISchemaLocator::make(schemas);
  return shared.get();
}

// The store's root written as XML; empty when the document made no root.
std::string exported(MemoryDataStore& store) {
  if (store.used() == 0) return std::string();
  MemoryWriter writer;
  IXMLFrontEnd::serialize(&store, &writer, locator(), 0);
  return writer.bytes();
}

std::string imported(const std::string& document) {
  MemoryDataStore store;
  Reporter reporter;
  MemoryReader reader(document);
  IXMLFrontEnd::parse(&store, &reader, locator(), nullptr, &reporter);
  return exported(store);
}

// A "dim" asks for that many zeroed elements, which the import allocates as asked: a
// document may legitimately need gigabytes ("-1" reads as 4294967295). Such inputs only
// exercise the allocator and would stop the fuzzer at its memory limit, so documents where
// the text after a "dim" (up to the next ">", which also covers DTD defaults) holds a number
// above a million, a sign or a reference are not run.
bool declaresHugeArrays(const std::string& document) {
  for (std::size_t at = document.find("dim"); at != std::string::npos;
       at = document.find("dim", at + 3)) {
    unsigned long long number = 0;
    for (std::size_t i = at + 3; i < document.size() && document[i] != '>'; ++i) {
      char c = document[i];
      if (c == '&' || c == '-') return true;
      number = c >= '0' && c <= '9' ? number * 10 + (c - '0') : 0;
      if (number > 1000000) return true;
    }
  }
  return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string document(reinterpret_cast<const char*>(data), size);
  if (declaresHugeArrays(document)) return 0;
  std::string first = imported(document);
  if (first.empty()) return 0;
  std::string second = imported(first);
  // One import may normalise (characters XML cannot carry, unreadable numbers); after that
  // the text must stay as it is. The import is deterministic, so a first export that reads
  // back to itself is stable already and needs no third round.
  if (second != first && imported(second) != second) std::abort();
  return 0;
}
