#include "kestrine/platform/data/format/xml.h"

#include "data/api/container_impl.h"
#include "data/tree/lock.h"
#include "data/xml/xml_parsing_logic.h"
#include "data/xml/xml_rendering_logic.h"
#include "kestrine/platform/core/uuid.h"
#include "kestrine/platform/core/xml.h"

namespace kestrine::platform::data::format::xml {

using core::storage::datastore::IDataStore;

IXMLFrontEnd::IErrorReporter::~IErrorReporter() = default;

namespace {

// Runs the tokenizer over an opened reader; the reader is closed only after a whole parse.
void tokenize(core::io::IDataReader* reader, XML::XMLParsingLogic* logic) {
  if (!reader->open()) return;
  core::xml::XMLParser parser(logic);
  parser.parseDocument(reader);
  reader->close();
}

}  // namespace

// A document is read and written under the store's lock: other threads never see a tree in
// part, and the sets it fills share the store's indexes.
void IXMLFrontEnd::parse(IDataStore* store, core::io::IDataReader* reader,
                         metadata::ISchemaLocator* locator, metadata::IURIResolver* resolver,
                         IErrorReporter* reporter) {
  {
    Metadata::Lock lock(store);
    XML::XMLParsingLogic logic(store, nullptr, resolver, locator, reporter);
    try {
      tokenize(reader, &logic);
    } catch (...) {
      // A document read into a store of its own keeps what was read before the fault; the
      // caller learns of it from the reports and the store, not from an exception.
    }
  }
  store->complete();
}

void IXMLFrontEnd::parse(structure::IContainer* target, core::io::IDataReader* reader,
                         metadata::ISchemaLocator* locator, metadata::IURIResolver* resolver,
                         IErrorReporter* reporter) {
  // Only the library's own containers have a logic object to parse into.
  auto* container = dynamic_cast<structure::ContainerImpl*>(target);
  if (container == nullptr) return;
  Metadata::Lock lock(container->store());
  XML::XMLParsingLogic logic(container->store(), container->logic(), resolver, locator, reporter);
  // Unlike a parse into a store, every failure reaches the caller, who holds the container.
  tokenize(reader, &logic);
}

void IXMLFrontEnd::serialize(IDataStore* store, core::io::IDataWriter* writer,
                             metadata::ISchemaLocator* locator, unsigned int offset) {
  core::KPLUUID id;
  core::xml::XMLSerializer serializer(id);
  // The answer of open is not consulted: a writer that did not open fails on its own.
  writer->open();
  serializer.attach(writer);
  Metadata::Lock lock(store);
  XML::XMLRenderingLogic rendering(store, &serializer, locator, offset);
  serializer.detach();
  writer->close();
}

}  // namespace kestrine::platform::data::format::xml
