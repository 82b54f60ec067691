#include "data/xml/xml_parsing_logic.h"

#include <memory>
#include <string>

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
    : options_(options),
      store_(store),
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
  for (auto& entry : registry_) {
    if (options.thorough) entry.second->remarks(this);
    if (auto* primitive = dynamic_cast<XMLPrimitive*>(entry.second))
      primitive->limit(options.valueLimit);
  }
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

void XMLParsingLogic::locate(core::xml::XMLParser* parser) {
  parser_ = parser;
  if (parser != nullptr) parser->positions(options_.thorough);
}

void XMLParsingLogic::signal(const char* name, const wchar_t* text) {
  skipping_ = true;
  depth_ = 1;
  report(name, text);
}

void XMLParsingLogic::report(const char* name, const WideString& text) {
  if (reporter_ == nullptr) return;
  WideString message;
  if (options_.thorough && parser_ != nullptr) {
    message = StringAlgorithm::UTF8Decode(("line " + std::to_string(parser_->line()) + ", column " +
                                           std::to_string(parser_->column()) + ": ")
                                              .c_str());
  }
  message.append(StringAlgorithm::UTF8Decode(name));
  message.append(L" : ");
  message.append(text);
  reporter_->report(message);
}

void XMLParsingLogic::remark(const WideString& text) {
  if (options_.thorough) report(current_, text);
}

void XMLParsingLogic::dropText(const char* owner) {
  if (options_.thorough && text_.find_first_not_of(" \t\r\n") != std::string::npos) {
    // Cut, so that a long text does not make a long report.
    std::string shown = text_.substr(0, 40);
    WideString text(L"its text is dropped: '");
    text.append(StringAlgorithm::UTF8Decode(shown.c_str()));
    text.append(text_.size() > shown.size() ? L"...'" : L"'");
    report(owner, text);
  }
  text_.clear();
  pending_ = false;
  skippedText_ = false;
}

void XMLParsingLogic::lower(const char* name) {
  // ASCII letters only, whatever the process's locale: the bytes of a UTF-8 name past ASCII
  // stay as they are.
  unsigned i = 0;
  for (; i < kNameLength && name[i] != '\0'; ++i) {
    const char c = name[i];
    lowered_[i] = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  }
  lowered_[i] = '\0';
}

void XMLParsingLogic::notifyStartElement(const char* name, const char** attributes) {
  startTag(name, attributes);
  textFromTag_ = text_.empty();
}

void XMLParsingLogic::notifyEndElement(const char* name) {
  endTag(name);
  textFromTag_ = text_.empty();
}

void XMLParsingLogic::startTag(const char* name, const char** attributes) {
  if (skipping_) {
    ++depth_;
    return;
  }
  current_ = name;
  if (subElement_) {
    signal(name, L"cannot nest anything under a sub-element");
    return;
  }
  // Text between a parent's start tag and a child's belongs to nobody.
  if (pending_) dropText(stack_.empty() ? name : stack_.back().second->name());
  textDropped_ = false;
  if (options_.depthLimit != 0 && stack_.size() >= options_.depthLimit) {
    signal(name,
           (L"nested deeper than the limit of " + std::to_wstring(options_.depthLimit) + L" levels")
               .c_str());
    return;
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

void XMLParsingLogic::endTag(const char* name) {
  if (skipping_) {
    if (--depth_ == 0) skipping_ = false;
    return;
  }
  if (stack_.empty()) return;
  current_ = name;
  auto [item, handler] = stack_.back();
  if (skippedText_ && handler->type() == Record::kPrimitive)
    remark(L"the text of a skipped element becomes part of the values");
  // A text dropped for its size reaches the handler as none at all.
  const char* text = textDropped_ ? nullptr : text_.c_str();
  textDropped_ = false;
  // The lookahead read the text since the last tag, which this text is when it began after
  // that tag.
  handler->ahead(text != nullptr && textFromTag_ && parser_ != nullptr ? parser_->attached()
                                                                       : std::string_view());
  if (subElement_) {
    handler->set(item, text);
    subElement_ = false;
  } else {
    // Only primitives take an element's own text.
    if (handler->type() != Record::kPrimitive) dropText(name);
    if (!skipSet_) {
      handler->set(item, text);
    } else {
      // Values came in sub-elements; text beside them is nobody's.
      dropText(name);
      skipSet_ = false;
    }
    handler->close(item);
    // Items are views: the records stay in the store.
    stack_.pop_back();
    if (item != target_) delete item;
  }
  if (pending_) {
    text_.clear();
    pending_ = false;
  }
  skippedText_ = false;
}

void XMLParsingLogic::notifyStartNamespace(const char* prefix, const char* uri) {}

void XMLParsingLogic::notifyEndNamespace(const char* prefix) {}

void XMLParsingLogic::notifyCharacterData(const char* data, int length) {
  if (length <= 0 || textDropped_) return;
  const unsigned long long limit = options_.valueLimit * ParsingOptions::kTextPerValueByte;
  if (limit != 0 && text_.size() + static_cast<unsigned long long>(length) > limit) {
    report(current_, (L"its text takes more than " + std::to_wstring(limit) +
                      L" bytes, the limit: it is dropped")
                         .c_str());
    textDropped_ = true;
    std::string().swap(text_);
    pending_ = false;
    return;
  }
  text_.append(data, static_cast<std::size_t>(length));
  pending_ = true;
  if (skipping_) skippedText_ = true;
}

}  // namespace kestrine::platform::data::XML
