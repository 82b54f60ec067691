#ifndef KPL_TOOLS_KMETA_DOCUMENT_H_
#define KPL_TOOLS_KMETA_DOCUMENT_H_

#include <memory>
#include <string>
#include <vector>

#include "kestrine/platform/core/datastore.h"
#include "kestrine/platform/core/io.h"
#include "kestrine/platform/data/format/xml.h"
#include "kestrine/platform/data/metadata/schema.h"

namespace kmeta {

using kestrine::platform::core::storage::datastore::IDataStore;

// An XML document named on the command line, checked before any store is touched: a file,
// or "-" for standard input (kept in memory, since it is read twice).
class Document {
 public:
  // Reads the whole document once. Throws Failure "PATH: ..." when it cannot be read or is
  // not well-formed XML ("PATH: XML error at line L, column C: ...").
  explicit Document(std::string path);

  // Parses the document into `store`, then calls store->complete(). Into an empty store the
  // document makes the tree: its root at offset 0 and, unless the document says otherwise,
  // the format version. Into a store that holds a tree, the document's outermost element
  // stands for the existing root and its children are nested into it, so that offset 0
  // stays the one root; its containers and tables must be of names the root does not hold
  // yet. Problems in the content go to `reporter`. Throws Failure when the store holds
  // records but no tree, or a top-level name is taken; store and reader failures pass
  // through. complete() is called only after a whole parse.
  void import(IDataStore* store, kestrine::platform::data::metadata::ISchemaLocator* locator,
              kestrine::platform::data::format::xml::IXMLFrontEnd::IErrorReporter* reporter) const;

 private:
  // A fresh reader over the document, already open.
  std::unique_ptr<kestrine::platform::core::io::IDataReader> open() const;

  std::string path_;
  // The path, or "standard input", for messages.
  std::string name_;
  // Names of the containers and tables under the outermost element.
  std::vector<std::string> topLevel_;
  // Standard input's bytes; unused for a file.
  std::string input_;
};

}  // namespace kmeta

#endif  // KPL_TOOLS_KMETA_DOCUMENT_H_
