#ifndef KPL_DATA_XML_XML_PARSING_LOGIC_H_
#define KPL_DATA_XML_XML_PARSING_LOGIC_H_

#include <deque>
#include <string>
#include <utility>

#include <sparsehash/dense_hash_map>

#include "data/tree/item.h"
#include "data/xml/element.h"
#include "data/xml/remarks.h"
#include "kestrine/platform/core/hash.h"
#include "kestrine/platform/core/xml.h"
#include "kestrine/platform/data/format/xml.h"
#include "kestrine/platform/data/metadata/schema.h"

namespace kestrine::platform::data::XML {

// What a parse does beyond the default one.
struct ParsingOptions {
  // The root refuses, by throwing XMLRoot::NameTaken, a child whose name it holds.
  bool exclusiveRoot = false;
  // Reports, besides the problems, what the parse passes over in silence (see Remarks), and
  // tells with each report its line and column: "line L, column C: <element> : <message>".
  bool thorough = false;
  // Elements nested deeper than this many levels are reported and skipped; 0: no limit.
  unsigned depthLimit = 0;
  // A primitive whose values would take more bytes than this is reported and skipped, or
  // keeps the values it had; 0: no limit. The text of one element or sub-element may take
  // kTextPerValueByte times as many bytes: past that it is reported and dropped whole, as
  // if it were empty, so that no document can make the parse hold more.
  unsigned long long valueLimit = 0;
  static constexpr unsigned kTextPerValueByte = 8;
};

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
class XMLParsingLogic : public core::xml::XMLCallback, private Remarks {
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

  // The parser whose events this driver receives, for the position of each report in a
  // thorough parse and for what a NumberLookahead attached to its end tags; may be null.
  // Only a thorough parse has the parser work positions out.
  void locate(core::xml::XMLParser* parser);

  // Element names longer than this are cut to it before the look-up.
  static const unsigned kNameLength = 256;

 private:
  using tRegistry = google::dense_hash_map<const char*, Element*, core::tSFHKernel,
                                           core::tCompareEqual<const char*>>;
  using tOpen = std::pair<Metadata::Item*, Element*>;

  // The work of a start and an end tag.
  void startTag(const char* name, const char** attributes);
  void endTag(const char* name);
  // Lower-cases `name` into lowered_, cut to kNameLength bytes.
  void lower(const char* name);
  // Pushes the outermost element's item, or the target in its place.
  void start(const char* name, Element* handler, Metadata::Item* item);
  // Reports "<name> : <text>" (name UTF-8), with its position in a thorough parse.
  void report(const char* name, const WideString& text);
  // A remark on the element at hand (see Remarks).
  void remark(const WideString& text) override;
  // Empties the collected text; in a thorough parse, remarks text that is not blank and that
  // nobody takes: it is dropped.
  void dropText(const char* owner);

  ParsingOptions options_;
  const core::xml::XMLParser* parser_ = nullptr;
  // The element whose event is being handled, for remarks.
  const char* current_ = "";
  // Character data arrived inside a skipped element since the text was last emptied.
  bool skippedText_ = false;
  // The text grew past the limit and is being dropped until the element at hand ends.
  bool textDropped_ = false;
  // The text holds only character data that came after the last tag, skipped ones too: text
  // is kept across the tags of a skipped element.
  bool textFromTag_ = true;

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
