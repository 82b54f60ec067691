#ifndef KESTRINE_PLATFORM_DATA_FORMAT_XML_H_
#define KESTRINE_PLATFORM_DATA_FORMAT_XML_H_

#include "kestrine/platform/core/datastore.h"
#include "kestrine/platform/core/io.h"
#include "kestrine/platform/core/string.h"
#include "kestrine/platform/data/export.h"
#include "kestrine/platform/data/metadata/schema.h"
#include "kestrine/platform/data/structure/container.h"

namespace kestrine::platform::data::format::xml {

// Reads XML documents into datastores and writes datastore subtrees as XML.
class KPL_DATA_API IXMLFrontEnd {
 public:
  // Receives each problem found in a document, one message a call.
  class KPL_DATA_API IErrorReporter {
   public:
    virtual ~IErrorReporter();
    virtual void report(core::string::WideString message) = 0;
  };

  IXMLFrontEnd() = delete;

  // Reads a whole document into `store`, creating a new root, then calls store->complete().
  // Problems in the content go to `reporter` (may be null) and their subtrees are skipped;
  // malformed XML and every other exception end the parse silently (what was read stays).
  static void parse(core::storage::datastore::IDataStore* store, core::io::IDataReader* reader,
                    metadata::ISchemaLocator* locator, metadata::IURIResolver* resolver,
                    IErrorReporter* reporter);
  // Reads a document into an existing container: the outermost element stands for it.
  // Unlike the form above, exceptions (malformed XML among them) pass through.
  static void parse(structure::IContainer* target, core::io::IDataReader* reader,
                    metadata::ISchemaLocator* locator, metadata::IURIResolver* resolver,
                    IErrorReporter* reporter);
  // Writes the record at `offset` and its subtree. Struct values are written only when a
  // locator is given.
  static void serialize(core::storage::datastore::IDataStore* store, core::io::IDataWriter* writer,
                        metadata::ISchemaLocator* locator, unsigned int offset);
};

}  // namespace kestrine::platform::data::format::xml

#endif  // KESTRINE_PLATFORM_DATA_FORMAT_XML_H_
