#ifndef KPL_DATA_XML_XML_PARSING_LOGIC_H_
#define KPL_DATA_XML_XML_PARSING_LOGIC_H_

#include <deque>
#include <string>
#include <utility>

#include <sparsehash/dense_hash_map>

#include "data/tree/item.h"
#include "data/xml/element.h"
#include "kestrine/platform/core/hash.h"
#include "kestrine/platform/core/xml.h"
#include "kestrine/platform/data/format/xml.h"
#include "kestrine/platform/data/metadata/schema.h"

namespace kestrine::platform::data::XML {

// Turns the events of the XML tokenizer into metadata items. Each start tag is looked up,
// by its lower-cased name, in a registry of element handlers; the handler creates the item,
// the enclosing element's handler nests it, and at the end tag the handler gets the text
// collected since the last tag. An unregistered name may still be a sub-element ("name",
// "val", "default") that the enclosing handler accepts. Every problem goes to the error
// reporter as "<element> : <message>" and the offending subtree is skipped; parsing never
// stops on the content.
//
// One driver parses one document on one thread. Several drivers may parse at once on
// different threads into different stores: all their scratch space is their own.
// What a parse does beyond the described one.
struct ParsingOptions {
  // The root refuses, by throwing XMLRoot::NameTaken, a child whose name it holds.
  bool exclusiveRoot = false;
};

class XMLParsingLogic : public core::xml::XMLCallback {
 public:

  // Registers the handlers of every element. With `target` (an item of the store, not
  // owned), the document's outermost element stands for it and its children are nested
  // into it; without, the outermost element creates its own item (a new root). The locator
  // and reporter may be null and are not owned.
  XMLParsingLogic(IDataStore* store, Metadata::Item* target, metadata::ISchemaLocator* locator,
                  format::xml::IXMLFrontEnd::IErrorReporter* reporter,
                  const ParsingOptions& options = ParsingOptions());
  // Deletes the handlers and the items still open (an unterminated document leaves some).
  // Store failures at this point are dropped.
  ~XMLParsingLogic() override;
  XMLParsingLogic(const XMLParsingLogic&) = delete;
  XMLParsingLogic& operator=(const XMLParsingLogic&) = delete;

  // Takes ownership of `handler` and registers it under its name, unless a handler of
  // that name is registered already (then `handler` is deleted).
  void add(Element* handler);
  // Reports "<name> : <text>" (name UTF-8) and skips the element being started with all
  // it contains.
  void signal(const char* name, const wchar_t* text);

  void notifyStartElement(const char* name, const char** attributes) override;
  void notifyEndElement(const char* name) override;
  void notifyStartNamespace(const char* prefix, const char* uri) override;
  void notifyEndNamespace(const char* prefix) override;
  void notifyCharacterData(const char* data, int length) override;

  // Element names longer than this are cut to it before the look-up.
  static const unsigned kNameLength = 256;

 private:
  using tRegistry = google::dense_hash_map<const char*, Element*, core::tSFHKernel,
                                           core::tCompareEqual<const char*>>;
  using tOpen = std::pair<Metadata::Item*, Element*>;

  // Lower-cases `name` into lowered_, cut to kNameLength bytes.
  void lower(const char* name);
  // Pushes the outermost element's item, or the target in its place.
  void start(const char* name, Element* handler, Metadata::Item* item);

  IDataStore* store_;
  format::xml::IXMLFrontEnd::IErrorReporter* reporter_;
  metadata::ISchemaLocator* locator_;
  Metadata::Item* target_;
  std::string text_;
  bool pending_;
  tRegistry registry_;
  // The open elements, innermost last.
  std::deque<tOpen> stack_;
  // A sub-element was accepted under a primitive, which already got its text from it.
  bool skipSet_;
  // A sub-element is open on the innermost handler.
  bool subElement_;
  bool skipping_;
  unsigned depth_;
  char lowered_[kNameLength + 1];
};

}  // namespace kestrine::platform::data::XML

#endif  // KPL_DATA_XML_XML_PARSING_LOGIC_H_
