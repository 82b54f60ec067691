#ifndef KPL_DATA_XML_XML_CONTAINER_H_
#define KPL_DATA_XML_XML_CONTAINER_H_

#include "data/xml/element.h"
#include "kestrine/platform/data/structure/container.h"

namespace kestrine::platform::data::XML {

// The "node", "group" and "link" elements, one handler per kind. Attributes "name"
// (mandatory), "optional", "class" (a schema to inherit from) and, on links, "to" (the
// target path); children: containers, tables and primitives; sub-element "name".
class XMLContainer : public Element {
 public:
  // `locator` resolves "class"; without one, "class" is ignored.
  XMLContainer(IDataStore* store, structure::IContainer::tType kind,
               metadata::ISchemaLocator* locator);

  const char* name() const override;
  unsigned type() const override;
  // A new Structural::Container of the handler's kind.
  Metadata::Item* open(const char** attributes) override;
  // Containers are added (refused when the name is taken); tables and primitives are
  // merged with a child of the same name; roots are refused.
  Metadata::Item* nest(Metadata::Item* parent, Metadata::Item* child) override;

 private:
  structure::IContainer::tType kind_;
  metadata::ISchemaLocator* locator_;
};

}  // namespace kestrine::platform::data::XML

#endif  // KPL_DATA_XML_XML_CONTAINER_H_
