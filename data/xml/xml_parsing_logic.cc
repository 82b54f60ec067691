#include "data/xml/xml_parsing_logic.h"

#include <cctype>
#include <memory>

#include "data/record/base.h"
#include "data/values/value_types.h"
#include "data/xml/xml_container.h"
#include "data/xml/xml_primitive.h"
#include "data/xml/xml_root.h"
#include "data/xml/xml_table.h"

namespace kestrine::platform::data::XML {

using core::string::StringAlgorithm;

XMLParsingLogic::XMLParsingLogic(IDataStore* store, Metadata::Item* target,
                                 metadata::ISchemaLocator* locator,
                                 format::xml::IXMLFrontEnd::IErrorReporter* reporter,
                                 const ParsingOptions& options)
    : store_(store),
      reporter_(reporter),
      locator_(locator),
      target_(target),
      pending_(false),
      skipSet_(false),
      subElement_(false),
      skipping_(false),
      depth_(0) {
  lowered_[0] = '\0';
  registry_.set_empty_key("$$$$$_____empty_key");
  registry_.set_deleted_key("$$$$$_____deleted_key");
  add(new XMLRoot(store, options.exclusiveRoot));
  add(new XMLTable(store, locator));
  // One primitive handler per value type; only structs resolve schemas.
  for (const Values::tValueTraits* type = Values::begin(); type != Values::end(); ++type)
    add(new XMLPrimitive(store, type->type, type->type == metadata::kStruct ? locator : nullptr));
  add(new XMLContainer(store, structure::IContainer::kNode, locator));
  add(new XMLContainer(store, structure::IContainer::kGroup, locator));
  add(new XMLContainer(store, structure::IContainer::kLink, locator));
}

XMLParsingLogic::~XMLParsingLogic() {
  for (auto& entry : registry_)
    delete entry.second;
  while (!stack_.empty()) {
    Metadata::Item* item = stack_.back().first;
    stack_.pop_back();
    if (item == target_) continue;
    try {
      delete item;
    } catch (...) {
      // The parse has ended already; the record merely keeps a reference count.
    }
  }
}

void XMLParsingLogic::add(Element* handler) {
  std::unique_ptr<Element> owned(handler);
  if (registry_.insert(tRegistry::value_type(handler->name(), handler)).second) owned.release();
}

void XMLParsingLogic::signal(const char* name, const wchar_t* text) {
  skipping_ = true;
  depth_ = 1;
  if (reporter_ == nullptr) return;
  WideString message = StringAlgorithm::UTF8Decode(name);
  message.append(L" : ");
  message.append(text);
  reporter_->report(message);
}

void XMLParsingLogic::lower(const char* name) {
  unsigned i = 0;
  for (; i < kNameLength && name[i] != '\0'; ++i)
    lowered_[i] = static_cast<char>(std::tolower(static_cast<unsigned char>(name[i])));
  lowered_[i] = '\0';
}

void XMLParsingLogic::notifyStartElement(const char* name, const char** attributes) {
  if (skipping_) {
    ++depth_;
    return;
  }
  if (subElement_) {
    signal(name, L"cannot nest anything under a sub-element");
    return;
  }
  // Text between a parent's start tag and a child's belongs to nobody.
  if (pending_) {
    text_.clear();
    pending_ = false;
  }
  // An empty name never resolves and the answer is dropped; the call is made on every start
  // tag outside a skip all the same, so that a locator sees the calls it always saw.
  if (locator_ != nullptr) locator_->resolve(WideString());
  lower(name);

  tRegistry::const_iterator found = registry_.find(lowered_);
  if (found == registry_.end()) {
    if (!stack_.empty() && stack_.back().second->sub(lowered_, attributes)) {
      subElement_ = true;
      if (stack_.back().second->type() == Record::kPrimitive) skipSet_ = true;
      return;
    }
    signal(lowered_, L"unknown element, skipping");
    return;
  }
  Element* handler = found->second;
  std::unique_ptr<Metadata::Item> item(handler->open(attributes));
  if (!item) {
    signal(name, handler->message().string());
    return;
  }
  if (stack_.empty()) {
    start(name, handler, item.release());
    return;
  }
  Metadata::Item* result = stack_.back().second->nest(stack_.back().first, item.get());
  if (result == nullptr) {
    signal(lowered_, L"could not nest the element");
    return;
  }
  if (result == item.get()) item.release();
  // Otherwise an existing item stands for the new one, which goes.
  std::unique_ptr<Metadata::Item> kept(result);
  stack_.emplace_back(result, handler);
  kept.release();
}

void XMLParsingLogic::start(const char* name, Element* handler, Metadata::Item* item) {
  std::unique_ptr<Metadata::Item> owned(item);
  if (target_ == nullptr) {
    stack_.emplace_back(item, handler);
    owned.release();
    return;
  }
  // The outermost element only names the kind of the target; its own item and attributes
  // are not used.
  owned.reset();
  Record::tType kind = Record::peek(store_, target_->offset());
  for (const auto& entry : registry_) {
    if (entry.second->type() != kind) continue;
    stack_.emplace_back(target_, handler);
    return;
  }
  signal(name, L"could not...");
}

void XMLParsingLogic::notifyEndElement(const char* name) {
  if (skipping_) {
    if (--depth_ == 0) skipping_ = false;
    return;
  }
  if (stack_.empty()) return;
  auto [item, handler] = stack_.back();
  if (subElement_) {
    handler->set(item, text_.c_str());
    subElement_ = false;
  } else {
    if (!skipSet_)
      handler->set(item, text_.c_str());
    else
      skipSet_ = false;
    // Items are views: the records stay in the store.
    stack_.pop_back();
    if (item != target_) delete item;
  }
  if (pending_) {
    text_.clear();
    pending_ = false;
  }
}

void XMLParsingLogic::notifyStartNamespace(const char* prefix, const char* uri) {}

void XMLParsingLogic::notifyEndNamespace(const char* prefix) {}

void XMLParsingLogic::notifyCharacterData(const char* data, int length) {
  if (length <= 0) return;
  text_.append(data, static_cast<std::size_t>(length));
  pending_ = true;
}

}  // namespace kestrine::platform::data::XML
