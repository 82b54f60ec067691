#include "data/xml/xml_rendering_logic.h"

#include <string>

#include "data/tree/container.h"
#include "data/tree/descent.h"
#include "data/tree/primitive.h"
#include "data/values/value_types.h"
#include "data/xml/xml_container.h"
#include "data/xml/xml_primitive.h"
#include "data/xml/xml_root.h"
#include "data/xml/xml_table.h"
#include "kestrine/platform/core/exception.h"

namespace kestrine::platform::data::XML {

using core::storage::datastore::IDataStore;

XMLRenderingLogic::XMLRenderingLogic(IDataStore* store, core::xml::XMLSerializer* writer,
                                     metadata::ISchemaLocator* locator, unsigned offset,
                                     const format::xml::tExportOptions& options)
    : store_(store),
      writer_(writer),
      root_(new XMLRoot(store)),
      table_(new XMLTable(store, nullptr)) {
  written_.set_empty_key(IDataStore::BADOFF);
  for (unsigned kind = structure::IContainer::kNode; kind <= structure::IContainer::kLink; ++kind)
    containers_.emplace_back(
        new XMLContainer(store, static_cast<structure::IContainer::tType>(kind), nullptr));
  for (const Values::tValueTraits* type = Values::begin(); type != Values::end(); ++type) {
    if (primitives_.size() <= type->type) primitives_.resize(type->type + 1);
    primitives_[type->type].reset(new XMLPrimitive(store, type->type, locator));
  }
  for (Element* each : std::initializer_list<Element*>{root_.get(), table_.get()})
    each->exact(options.exact);
  for (auto& container : containers_)
    container->exact(options.exact);
  for (auto& primitive : primitives_)
    if (primitive) primitive->exact(options.exact);

  writer_->emitXMLHeader();
  const bool wrap = options.inRoot && offset != 0 && Record::peek(store_, 0) == Record::kRoot;
  if (wrap) {
    Design::Logic root(store_, 0, false);
    root_->serialize(root.operator->(), writer_);
  }
  translate(offset);
  if (wrap) writer_->endElement(false);
}

XMLRenderingLogic::~XMLRenderingLogic() = default;

Element* XMLRenderingLogic::handler(Record::tType kind, unsigned type) {
  switch (kind) {
    case Record::kRoot:
      return root_.get();
    case Record::kTable:
      return table_.get();
    case Record::kContainer:
      return type < containers_.size() ? containers_[type].get() : nullptr;
    case Record::kPrimitive:
      return type < primitives_.size() ? primitives_[type].get() : nullptr;
    default:
      return nullptr;
  }
}

void XMLRenderingLogic::translate(unsigned offset) {
  // A loop over the open elements rather than recursion: the depth of a tree is bounded by
  // memory, never by the stack.
  std::deque<tOpen> open;
  start(offset, open);
  while (!open.empty()) {
    tOpen& top = open.back();
    if (top.next < top.children.size()) {
      start(top.children[top.next++], open);
      continue;
    }
    open.pop_back();
    writer_->endElement(false);
  }
}

void XMLRenderingLogic::start(unsigned offset, std::deque<tOpen>& open) {
  if (offset == IDataStore::BADOFF) return;
  Metadata::Descent::check(offset, open.size());
  if (!written_.insert(offset).second) {
    throw core::Exception("damaged record at offset " + std::to_string(offset) +
                          ": listed twice in the tree, or in a cycle");
  }
  open.emplace_back(store_, offset);
  Design::Logic& logic = open.back().logic;
  Metadata::Item* item = logic ? logic.operator->() : nullptr;
  bool written = false;
  if (item != nullptr && (item->flags() & 0x04) == 0) {
    unsigned type = 0;
    if (logic.kind() == Record::kPrimitive)
      type = static_cast<Design::Primitive*>(item)->valuetype();
    else if (logic.kind() == Record::kContainer)
      type = static_cast<Structural::Container*>(item)->type();
    Element* writer = handler(logic.kind(), type);
    written = writer != nullptr && writer->serialize(item, writer_);
    // A primitive's element is whole: it has no children to wait for.
    if (written && logic.kind() == Record::kPrimitive) {
      writer_->endElement(false);
      written = false;
    }
  }
  // Only sets with a written start tag stay open for their children.
  if (!written)
    open.pop_back();
  else
    logic.set()->entries(open.back().children);
}

}  // namespace kestrine::platform::data::XML
