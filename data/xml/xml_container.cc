#include "data/xml/xml_container.h"

#include <memory>

#include "data/tree/container.h"

namespace kestrine::platform::data::XML {

using core::string::StringAlgorithm;

namespace {

const char* const kpNames[] = {"node", "group", "link"};

}  // namespace

XMLContainer::XMLContainer(IDataStore* store, structure::IContainer::tType kind,
                           metadata::ISchemaLocator* locator)
    : Element(store), kind_(kind), locator_(locator) {}

const char* XMLContainer::name() const {
  return kind_ <= structure::IContainer::kLink ? kpNames[kind_] : nullptr;
}

unsigned XMLContainer::type() const {
  return 4;
}

Metadata::Item* XMLContainer::open(const char** attributes) {
  const char* name = mandatory(attributes);
  if (name == nullptr) return nullptr;
  std::unique_ptr<Structural::Container> container(
      new Structural::Container(store_, kind_, decoded(name)));
  derive(container.get(), attributes, locator_);
  const char* to = find("to", attributes);
  if (to != nullptr && kind_ == structure::IContainer::kLink)
    container->info(StringAlgorithm::UTF8Decode(to).string());
  return container.release();
}

Metadata::Item* XMLContainer::nest(Metadata::Item* parent, Metadata::Item* child) {
  return adopt(parent, child, kAddOrFail, kMerge, kMerge);
}

}  // namespace kestrine::platform::data::XML
