#ifndef KPL_TOOLS_KMETA_DOCUMENT_H_
#define KPL_TOOLS_KMETA_DOCUMENT_H_

#include <string>

#include <kestrine/platform/core.h>
#include <kestrine/platform/data.h>

#include "options.h"

namespace kmeta {

using kestrine::platform::core::storage::datastore::IDataStore;
using kestrine::platform::data::format::xml::IXMLFrontEnd;
using kestrine::platform::data::format::xml::tImportOptions;

// How a document is read: within `limits`, and `thorough`ly when every silent loss is to be
// reported too.
tImportOptions readingOptions(const Limits& limits, bool thorough);

// Reads the XML document at `path` ("-" for standard input, read once as it comes) into
// `store` (IXMLFrontEnd::import): into an empty store the document makes the tree; into one
// that holds a tree, its containers and tables are added to the tree's root. Parse reports
// go to `reporter`; the answer says how many there were. Throws Failure naming the document
// ("PATH: ...", "standard input: ...") when it cannot be read, is not well-formed XML ("XML
// error at line L, column C: ..."), makes no tree, or adds a top-level name the tree holds
// already, and when the store holds records but no tree; store failures pass through. The
// store then holds part of the document: the caller abandons it.
unsigned importDocument(const std::string& path, IDataStore* store,
                        kestrine::platform::data::metadata::ISchemaLocator* locator,
                        IXMLFrontEnd::IErrorReporter* reporter, const tImportOptions& options);

}  // namespace kmeta

#endif  // KPL_TOOLS_KMETA_DOCUMENT_H_
