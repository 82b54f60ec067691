#ifndef KPL_DATA_XML_XML_PRIMITIVE_H_
#define KPL_DATA_XML_XML_PRIMITIVE_H_

#include "data/xml/element.h"
#include "data/xml/primitive_text.h"

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
// The values are text blocks as PrimitiveText reads and writes them; several "val" blocks
// of a text type give several strings one after the other.
class XMLPrimitive : public Element {
 public:
  // `locator` resolves the schemas of structs; the other types do without.
  XMLPrimitive(IDataStore* store, metadata::tValue type, metadata::ISchemaLocator* locator);

  const char* name() const override;
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
  // Writes the strings the "val" blocks appended.
  void close(Metadata::Item* item) override;

  // Refuses a primitive whose values would take more than `bytes` (0: no limit): its start
  // tag with "the values would take N bytes, more than the limit of M", its text by
  // keeping the values it had.
  void limit(unsigned long long bytes) { limit_ = bytes; }

 private:
  // Element count from the start tag.
  unsigned count(const char** attributes) const;

  metadata::tValue type_;
  metadata::ISchemaLocator* locator_;
  unsigned long long limit_ = 0;
  // Per parse, so that documents parsed on several threads at once never share its buffers.
  PrimitiveText text_;
};

}  // namespace kestrine::platform::data::XML

#endif  // KPL_DATA_XML_XML_PRIMITIVE_H_
