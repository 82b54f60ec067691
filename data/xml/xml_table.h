#ifndef KPL_DATA_XML_XML_TABLE_H_
#define KPL_DATA_XML_XML_TABLE_H_

#include <string>

#include "data/xml/element.h"

namespace kestrine::platform::data::XML {

// The "table" element. Attributes "name" (mandatory), "optional", "class"; children:
// primitives and tables; sub-elements "name" and "default" (with "unit" and "type": the
// default unit and value type of the unit's group).
class XMLTable : public Element {
 public:
  // `locator` resolves "class"; without one, "class" is ignored.
  XMLTable(IDataStore* store, metadata::ISchemaLocator* locator);

  const char* name() const override;
  unsigned type() const override;
  // A new Design::Table.
  Metadata::Item* open(const char** attributes) override;
  // Primitives and tables are merged with a child of the same name; the rest is refused.
  Metadata::Item* nest(Metadata::Item* parent, Metadata::Item* child) override;
  // A "name" as in Element; a "default" that has both "unit" and "type". Nothing while
  // another sub-element is pending, which a "default" of an unknown type leaves for good.
  bool sub(const char* name, const char** attributes) override;
  // A "name" as in Element. A "default" sets the defaults of its unit's group and answers
  // false; when its type has no default name (vectors and matrices go by their short
  // names, "vec3", "mtx4x4"; a struct cannot be a default) nothing changes and the
  // "default" stays pending, so every later sub-element of every table of the document is
  // refused.
  bool set(Metadata::Item* item, const char* text) override;

 private:
  metadata::ISchemaLocator* locator_;
  // The attributes of the pending "default".
  std::string unit_;
  std::string type_;
  // A "default" of an unknown type is pending for good.
  bool blocked_ = false;
};

}  // namespace kestrine::platform::data::XML

#endif  // KPL_DATA_XML_XML_TABLE_H_
