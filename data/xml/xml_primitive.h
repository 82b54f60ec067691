#ifndef KPL_DATA_XML_XML_PRIMITIVE_H_
#define KPL_DATA_XML_XML_PRIMITIVE_H_

#include <string>
#include <vector>

#include "data/xml/element.h"

namespace kestrine::platform::data::Design {
class Primitive;
}  // namespace kestrine::platform::data::Design

namespace kestrine::platform::data::XML {

// The primitive elements, one handler per value type, named after it ("binary", "uuid",
// "string", "time", "uri", "version", "bool", "int8" ... "uint64", "scalar", "double",
// "vector2" ... "matrix4x4", "struct"). Attributes "name" (mandatory), "type" (the schema of
// a struct; mandatory there, ignored elsewhere), "dim" (element count; vectors and matrices
// have a fixed one), "uri" (the values live elsewhere), "locale" (of the values), "units";
// content: the values, directly or in "val" sub-elements; sub-element "name".
//
// Value text: "binary" is base64; the text types hold one string per block (several "val"
// blocks give several strings one after the other); numeric types are decimal tokens
// separated by blanks, one per element; a struct is the components of all its fields in
// layout order, each read and written as its field's type.
class XMLPrimitive : public Element {
 public:
  // `locator` resolves the schemas of structs; the other types do without.
  XMLPrimitive(IDataStore* store, metadata::tValue type, metadata::ISchemaLocator* locator);

  // The element name of a value type; null for a type without one.
  static const char* name(metadata::tValue type);

  const char* name() const override;
  const wchar_t* wname() const override;
  unsigned type() const override;
  // A new Design::Primitive holding "dim" zero elements (or a vector's or matrix's fixed
  // count), or the "uri" in place of values. A struct needs "type" and a locator (else null
  // with the message set); its "type" is the primitive's base and sizes the elements when
  // it resolves, and when it does not, the primitive is still made, without base and values
  // (the message is kept but nothing reports it). A count whose bytes do not fit in a
  // record counts as unreadable: 0.
  Metadata::Item* open(const char** attributes) override;
  // The text of an open "name" is a localized name (true). Otherwise the text holds values
  // (false): a "val" block of a text type is appended after the strings already held,
  // everything else is written from element 0 on, growing the array as needed. A token that
  // does not read leaves its element as it was. Nothing changes in URI mode, nor for a
  // struct whose schema does not resolve.
  bool set(Metadata::Item* item, const char* text) override;
  // The element with "name", "units", "locale", "type" (structs), "uri" (URI mode), the
  // localized names, and the values unless there are none or the primitive is in URI mode.
  // The values go into one "val" when the item has localized names, so that text never
  // mixes with them; several strings each get their own "val". Struct values are written
  // only with a locator that resolves the base.
  bool serialize(Metadata::Item* item, core::xml::XMLSerializer* writer) override;

 private:
  // Element count from the start tag.
  unsigned count(const char** attributes) const;
  // Splits `text` into tokens_ at blanks, tabs, CRs and LFs: leading and repeated
  // separators make no token, the text after the last separator always makes one (empty
  // after trailing whitespace).
  void split(const char* text);
  // Reads tokens_ into elements 0.. of the array, all in one record write.
  void numbers(Design::Primitive* primitive);
  // Reads tokens_ as whole structs of the base's layout and replaces the values with them.
  void structs(Design::Primitive* primitive);
  // The value text (without wrapping) of a numeric or struct primitive; false when there
  // is none to write.
  bool text(Design::Primitive* primitive, std::wstring& out);
  // Writes one value block, in a "val" when `wrap`.
  static void block(core::xml::XMLSerializer* writer, const wchar_t* text, std::size_t length,
                    bool wrap);

  metadata::tValue type_;
  metadata::ISchemaLocator* locator_;
  // Per parse, so that documents parsed on several threads at once never share them: the
  // text cut into tokens, the tokens, and the values being assembled.
  std::string scratch_;
  std::vector<const char*> tokens_;
  std::vector<char> values_;
};

}  // namespace kestrine::platform::data::XML

#endif  // KPL_DATA_XML_XML_PRIMITIVE_H_
