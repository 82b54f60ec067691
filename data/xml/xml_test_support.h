#ifndef KPL_DATA_XML_XML_TEST_SUPPORT_H_
#define KPL_DATA_XML_XML_TEST_SUPPORT_H_

#include <string>
#include <vector>

#include "kestrine/platform/core/datastore.h"
#include "kestrine/platform/core/io.h"
#include "kestrine/platform/core/string.h"
#include "kestrine/platform/data/format/xml.h"

// Parsing and writing documents through the XML front end in tests (not part of the library).
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

}  // namespace kestrine::platform::data::XML::testing

#endif  // KPL_DATA_XML_XML_TEST_SUPPORT_H_
