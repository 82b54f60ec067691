#ifndef KPL_DATA_XML_ELEMENT_H_
#define KPL_DATA_XML_ELEMENT_H_

#include <cstdint>
#include <string>
#include <string_view>

#include "data/tree/set.h"
#include "data/units/units_dictionary.h"
#include "data/values/number_text.h"
#include "data/xml/remarks.h"
#include "kestrine/platform/core/datastore.h"
#include "kestrine/platform/core/string.h"
#include "kestrine/platform/core/xml.h"
#include "kestrine/platform/data/metadata/schema.h"
#include "kestrine/platform/data/metadata/value.h"

namespace kestrine::platform::data::XML {

using core::storage::datastore::IDataStore;
using core::string::WideString;

// The handler of one element name of the XML format: it creates the item that a start tag
// describes, nests children into it, and gives it the element's text. The parsing driver registers
// one handler per name and lets it serve every element of that name in a document, so what a
// handler remembers (its sub-state above all) carries over from one element to the next.
//
// A handler belongs to one parse on one thread. Items it returns are owned
// by the caller. Store failures pass through.
class Element {
 public:
  // What the handler has open below its current element.
  enum tSubState : std::int32_t {
    kNoSub = 0,
    kNameSub = 1,     // a "name" element: its text is a localized name
    kValSub = 2,      // a "val" element: its text is one value block
    kDefaultSub = 3,  // a "default" element of a table
  };

  explicit Element(IDataStore* store);
  virtual ~Element();
  Element(const Element&) = delete;
  Element& operator=(const Element&) = delete;

  // The element name the handler serves, lower-case ASCII.
  virtual const char* name() const = 0;
  // The record kind the handler makes (0 root, 1 primitive, 2 table, 4 container); 6 here.
  virtual unsigned type() const;
  // A new item from a start tag's attributes (a null-terminated name/value array, UTF-8);
  // null with message() set when it cannot be made. Here: "unknown element, skipping".
  virtual Metadata::Item* open(const char** attributes);
  // Attaches `child` under `parent` and returns it, or an existing item that takes its
  // place (the caller then discards `child`), or null when the parent refuses it. Here:
  // null with the message "unable to nest".
  virtual Metadata::Item* nest(Metadata::Item* parent, Metadata::Item* child);
  // Gives the element's (or its open sub-element's) text, UTF-8, to `item`. Here: the text
  // of an open "name" becomes the localized name for its locale (true); anything else is
  // refused (false), a "val" included, whose state then stays, so that the handler refuses
  // every later sub-element. A null `text` (dropped for its size) sets nothing, but ends an
  // open sub-element all the same.
  virtual bool set(Metadata::Item* item, const char* text);
  // The element of `item` has ended: its text and sub-elements are all given. Nothing here.
  virtual void close(Metadata::Item* item);
  // Accepts an unregistered child element as a sub-element (true) or refuses it. Here:
  // "val", or "name" with its "locale" attribute ("en-us" when absent), while no other
  // sub-element is pending.
  virtual bool sub(const char* name, const char** attributes);

  // Why the last open or nest returned null.
  const WideString& message() const { return message_; }
  // Where a thorough parse takes the handler's remarks; null (the default) for none.
  void remarks(Remarks* remarks) { remarks_ = remarks; }
  // The current sub-state (see tSubState).
  std::int32_t substate() const { return substate_; }
  // What the lookahead attached to the end tag whose text the next set() gives, when that
  // text is the text it read (see NumberLookahead); empty otherwise.
  void ahead(std::string_view attachment) { ahead_ = attachment; }

  // The value of the first attribute named exactly `name`; null when there is none.
  static const char* find(const char* name, const char** attributes);
  // Writes one element of a numeric type (7 to 23) read from `value` as text into `out`
  // (Values::kNumberTextSize characters); false, writing nothing, for any other type. Vector and
  // matrix elements are one double component each.
  static bool print(metadata::tValue type, const char* value, wchar_t* out);
  // Reads one token as an element of a numeric type into `value` (8 bytes): an int for
  // bool, int8, int16 and int32 and an unsigned int for the unsigned types up to 32 bits,
  // of which the caller keeps the element's width (300 read as int8 keeps 44), a 64-bit
  // integer, a float or a double. False, writing nothing, for a token that holds no number
  // ("true" for a bool among them) and for any other type.
  static bool scan(metadata::tValue type, const char* text, char* value);

  // Unit names and numbers, shared read-only by every handler of the process.
  static const UnitsDictionary& _oUnits;

 protected:
  // How a parent takes a child of one record kind.
  enum tAdoption {
    kRefuse,     // never
    kAdd,        // added to the parent's set; the child is taken even when the set refuses
    kAddOrFail,  // added to the parent's set, refused when the set refuses it
    kMerge,      // merged with a child of the same name (see adopt)
  };

  // The nesting shared by the set handlers, chosen per kind of the child's record. Merging
  // adds the child when the parent has no child of its name; reuses that child instead when
  // it has the same kind and is equivalent (shown again and returned in the child's place);
  // and refuses otherwise. Roots are never nested.
  Metadata::Item* adopt(Metadata::Item* parent, Metadata::Item* child, tAdoption container,
                        tAdoption table, tAdoption primitive);

  // `text`, given as UTF-8, decoded into a string the handler reuses, so that naming each
  // element costs no allocation; valid until the next call. Never null.
  const wchar_t* decoded(const char* text);
  // The mandatory "name" attribute; null with the message set when it is missing.
  const char* mandatory(const char** attributes);
  // Accepts a "name" sub-element.
  bool acceptName(const char** attributes);
  // Applies the text of an open "name" sub-element; false when none is open.
  bool localize(Metadata::Item* item, const char* text);
  // Applies "optional" (only the exact value "true" counts) and, when a locator is given,
  // "class": the schema of that name is inherited; an unknown one is ignored (and remarked).
  template <class Logic>
  void derive(Logic* logic, const char** attributes, metadata::ISchemaLocator* locator);
  // Tells a thorough parse what is passed over; nothing in a lenient one.
  void remark(const WideString& text) const {
    if (remarks_ != nullptr) remarks_->remark(text);
  }
  // The same for a text of the document, within quotes: "<before>'<quoted>'<after>".
  void remark(const wchar_t* before, const WideString& quoted, const wchar_t* after) const;

  IDataStore* store_;
  Remarks* remarks_ = nullptr;
  std::string_view ahead_;
  WideString message_;
  std::int32_t substate_;
  // The locale of the open "name" sub-element.
  std::string locale_;

 private:
  std::wstring decoded_;
};

template <class Logic>
void Element::derive(Logic* logic, const char** attributes, metadata::ISchemaLocator* locator) {
  const char* optional = find("optional", attributes);
  if (optional != nullptr && std::string(optional) == "true") logic->on(0x01);
  const char* base = find("class", attributes);
  if (base == nullptr) return;
  core::memory::SharedPtr<metadata::ISchema> schema;
  if (locator != nullptr)
    schema = locator->resolve(core::string::StringAlgorithm::UTF8Decode(base));
  if (schema)
    logic->inherit(schema.get());
  else
    remark(L"class ", core::string::StringAlgorithm::UTF8Decode(base),
           L" does not resolve: nothing is inherited");
}

}  // namespace kestrine::platform::data::XML

#endif  // KPL_DATA_XML_ELEMENT_H_
