#ifndef KPL_DATA_XML_XML_RENDERING_LOGIC_H_
#define KPL_DATA_XML_XML_RENDERING_LOGIC_H_

#include <sparsehash/dense_hash_set>

#include <deque>
#include <memory>
#include <vector>

#include "data/tree/logic.h"
#include "kestrine/platform/core/datastore.h"
#include "kestrine/platform/core/xml.h"
#include "kestrine/platform/data/format/xml.h"
#include "kestrine/platform/data/metadata/schema.h"

namespace kestrine::platform::data::XML {

class Element;
class XMLContainer;
class XMLPrimitive;
class XMLRoot;
class XMLTable;

// Writes a subtree of a store as an XML document: each record is opened by its kind and
// written by the handler of its element, then its children in list order. Hidden items
// (flag 0x04) are left out with their whole subtree; records of other kinds are skipped.
// Struct values are written only with a locator.
//
// Holds no state between calls and owns none of its pointers. One thread at a time.
class XMLRenderingLogic {
 public:
  // Writes the XML header and the record at `offset` with its subtree, as `options` say.
  // Store and writer failures pass through.
  XMLRenderingLogic(core::storage::datastore::IDataStore* store, core::xml::XMLSerializer* writer,
                    metadata::ISchemaLocator* locator, unsigned offset,
                    const format::xml::tExportOptions& options = format::xml::tExportOptions());
  ~XMLRenderingLogic();
  XMLRenderingLogic(const XMLRenderingLogic&) = delete;
  XMLRenderingLogic& operator=(const XMLRenderingLogic&) = delete;

  // Writes the record at `offset` and its descendants; nothing for BADOFF.
  void translate(unsigned offset);

 private:
  // A written start tag whose children are being written.
  struct tOpen {
    tOpen(core::storage::datastore::IDataStore* store, unsigned offset)
        : logic(store, offset, false), next(0) {}
    Design::Logic logic;
    // The children to write, read once the start tag is written; nothing changes the store
    // while the document is written.
    std::vector<unsigned> children;
    unsigned next;
  };

  // Writes the record's start tag (a primitive's whole element) and opens it on `open`
  // when it has children to write.
  void start(unsigned offset, std::deque<tOpen>& open);

  // The handler that writes a record of `kind` (a container's or primitive's `type`); null
  // for a kind that has none.
  Element* handler(Record::tType kind, unsigned type);

  core::storage::datastore::IDataStore* store_;
  core::xml::XMLSerializer* writer_;
  // Every record written. A tree lists each record once; in a damaged store a children list
  // may lead back up, or list one subtree many times over, and the output would grow without
  // bound.
  google::dense_hash_set<unsigned> written_;
  // One handler per element name, made once for the whole document.
  std::unique_ptr<XMLRoot> root_;
  std::unique_ptr<XMLTable> table_;
  std::vector<std::unique_ptr<XMLContainer>> containers_;
  std::vector<std::unique_ptr<XMLPrimitive>> primitives_;
};

}  // namespace kestrine::platform::data::XML

#endif  // KPL_DATA_XML_XML_RENDERING_LOGIC_H_
