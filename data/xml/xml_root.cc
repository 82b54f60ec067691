#include "data/xml/xml_root.h"

#include "data/tree/root.h"
#include "data/values/number_text.h"

namespace kestrine::platform::data::XML {

using core::string::StringAlgorithm;

XMLRoot::XMLRoot(IDataStore* store, bool exclusive) : Element(store), exclusive_(exclusive) {}

const char* XMLRoot::name() const {
  return "root";
}

unsigned XMLRoot::type() const {
  return 0;
}

Metadata::Item* XMLRoot::open(const char** attributes) {
  const char* name = mandatory(attributes);
  if (name == nullptr) return nullptr;
  if (const char* version = find("version", attributes)) {
    unsigned value = 0;
    scan(metadata::kUInt32, version, reinterpret_cast<char*>(&value));
    store_->version(value);
  }
  return new Metadata::Root(store_, decoded(name));
}

Metadata::Item* XMLRoot::nest(Metadata::Item* parent, Metadata::Item* child) {
  Metadata::Set* root = parent != nullptr ? parent->asSet() : nullptr;
  if (!exclusive_ || root == nullptr || child == nullptr)
    return adopt(parent, child, kAdd, kAdd, kRefuse);
  const wchar_t* name = child->tag();
  if (root->find(name) != IDataStore::BADOFF && added_.count(name) == 0) throw NameTaken{name};
  Metadata::Item* adopted = adopt(parent, child, kAdd, kAdd, kRefuse);
  if (adopted != nullptr) added_.insert(name);
  return adopted;
}

}  // namespace kestrine::platform::data::XML
