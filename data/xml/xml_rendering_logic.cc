#include "data/xml/xml_rendering_logic.h"

#include "data/tree/container.h"
#include "data/tree/descent.h"
#include "data/tree/primitive.h"
#include "data/xml/xml_container.h"
#include "data/xml/xml_primitive.h"
#include "data/xml/xml_root.h"
#include "data/xml/xml_table.h"

namespace kestrine::platform::data::XML {

using core::storage::datastore::IDataStore;

XMLRenderingLogic::XMLRenderingLogic(IDataStore* store, core::xml::XMLSerializer* writer,
                                     metadata::ISchemaLocator* locator, unsigned offset,
                                     bool inRoot)
    : store_(store), writer_(writer), locator_(locator) {
  writer_->emitXMLHeader();
  const bool wrap = inRoot && offset != 0 && Record::peek(store_, 0) == Record::kRoot;
  if (wrap) {
    Design::Logic root(store_, 0, false);
    XMLRoot(store_).serialize(root.operator->(), writer_);
  }
  translate(offset);
  if (wrap) writer_->endElement(false);
}

void XMLRenderingLogic::translate(unsigned offset) {
  // A loop over the open elements rather than recursion: the depth of a tree is bounded by
  // memory, never by the stack.
  std::deque<tOpen> open;
  start(offset, open);
  while (!open.empty()) {
    tOpen& top = open.back();
    Metadata::Set* set = top.logic.set();
    if (top.next < set->items()) {
      start(set->at(top.next++), open);
      continue;
    }
    open.pop_back();
    writer_->endElement(false);
  }
}

void XMLRenderingLogic::start(unsigned offset, std::deque<tOpen>& open) {
  if (offset == IDataStore::BADOFF) return;
  Metadata::Descent::check(offset, open.size());
  open.emplace_back(store_, offset);
  Design::Logic& logic = open.back().logic;
  Metadata::Item* item = logic ? logic.operator->() : nullptr;
  bool written = false;
  if (item != nullptr && (item->flags() & 0x04) == 0) {
    switch (logic.kind()) {
      case Record::kPrimitive: {
        auto* primitive = static_cast<Design::Primitive*>(item);
        XMLPrimitive handler(store_, primitive->valuetype(), locator_);
        if (handler.serialize(item, writer_)) writer_->endElement(false);
        break;
      }
      case Record::kRoot:
        written = XMLRoot(store_).serialize(item, writer_);
        break;
      case Record::kTable:
        written = XMLTable(store_, nullptr).serialize(item, writer_);
        break;
      case Record::kContainer: {
        auto* container = static_cast<Structural::Container*>(item);
        written = XMLContainer(store_, container->type(), nullptr).serialize(item, writer_);
        break;
      }
      default:
        break;
    }
  }
  // Only sets with a written start tag stay open for their children.
  if (!written) open.pop_back();
}

}  // namespace kestrine::platform::data::XML
