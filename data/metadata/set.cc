#include "data/metadata/set.h"

#include <cwchar>
#include <memory>
#include <optional>

#include "data/metadata/lock.h"
#include "data/record/entity.h"
#include "data/record/offsets.h"
#include "kestrine/platform/core/memory.h"
#include "kestrine/platform/data/metadata/schema.h"
// A set's children are tables, containers and primitives, which are logic classes of the
// layer above; removing, checking and copying them goes through Design::Logic, and dotted
// look-ups through the schema finder. These are the only upward calls of this layer.
#include "data/design/logic.h"
#include "data/schema/finder.h"
#include "data/schema/layout_chain.h"

namespace kestrine::platform::data::Metadata {

using core::memory::PooledHeap;

namespace {

// The children field stands at 14 in every record kind that has children (root, table,
// container).
class ParentRecord : public Record::Entity {
 public:
  using Record::Entity::Entity;
  unsigned children() const { return get32(14); }
  void children(unsigned offset) { put32(14, offset); }
};

bool childKind(Record::tType kind) {
  return kind == Record::kPrimitive || kind == Record::kTable || kind == Record::kContainer;
}

// A child opened with its logic class; a root is never anyone's child.
bool opened(const Design::Logic& child) {
  return child && child.kind() != Record::kRoot;
}

}  // namespace

void* Set::tEntry::operator new(std::size_t size) {
  return PooledHeap::malloc(size);
}

void Set::tEntry::operator delete(void* block, std::size_t size) {
  PooledHeap::free(block, size);
}

Set::Set() : children_(IDataStore::BADOFF) {}

Set::~Set() {
  // Advance before deleting: the iterator compares the keys of the buckets it passes, and
  // each key lives in its entry.
  for (auto entry = index_.begin(); entry != index_.end();)
    delete (entry++)->second;
}

void Set::destroyEntries() {
  NameIndex<tEntry*> old;
  old.swap(index_);  // leaves index_ in the fresh shape
  for (auto entry = old.begin(); entry != old.end();)
    delete (entry++)->second;
}

void Set::index(unsigned offset, const WideString& name) {
  if (reserved(name.string()) || index_.find(name.string()) != index_.end()) return;
  std::unique_ptr<tEntry> entry(new tEntry{offset, name});
  index_.insert({entry->name.string(), entry.get()});
  entry.release();
}

void Set::populate() {
  if (children_ == IDataStore::BADOFF) return;
  Record::Offsets list(store_, children_);
  for (unsigned i = 0, n = list.items(); i < n; ++i) {
    unsigned child = list.get(i);
    if (!childKind(Record::peek(store_, child))) continue;
    // A later child whose name is taken stays in the list, unindexed.
    index(child, Record::Entity(store_, child).name());
  }
}

unsigned Set::items() const {
  return static_cast<unsigned>(index_.size());
}

unsigned Set::at(unsigned i) const {
  if (children_ == IDataStore::BADOFF) return IDataStore::BADOFF;
  Record::Offsets list(store_, children_);
  return i < list.items() ? list.get(i) : IDataStore::BADOFF;
}

unsigned Set::find(const wchar_t* name) const {
  if (name == nullptr || reserved(name)) return IDataStore::BADOFF;
  auto found = index_.find(name);
  return found == index_.end() ? IDataStore::BADOFF : found->second->offset;
}

unsigned Set::lookup(const wchar_t* path) const {
  if (path == nullptr) return IDataStore::BADOFF;
  const wchar_t* dot = std::wcschr(path, L'.');
  if (dot == nullptr) return find(path);
  unsigned child = find(WideString(path, static_cast<unsigned>(dot - path)).string());
  if (child == IDataStore::BADOFF) return IDataStore::BADOFF;
  return Schema::Finder(store_, child, dot + 1).offset();
}

bool Set::add(unsigned offset) {
  if (!childKind(Record::peek(store_, offset))) return false;
  Record::Entity child(store_, offset);
  WideString name = child.name();
  if (find(name.string()) != IDataStore::BADOFF || reserved(name.string())) return false;
  child.parent(offset_);
  child.update(true);
  appendChild(offset);
  index(offset, name);
  return true;
}

// Adds `offset` to the children list without reading it, creating the list at the first
// child.
void Set::appendChild(unsigned offset) {
  if (children_ != IDataStore::BADOFF) {
    store_->append(children_, &offset, 4);
    return;
  }
  Record::Offsets list(store_);
  list.add(offset);
  ParentRecord record(store_, offset_);
  record.children(list.offset());
  record.update(true);
  children_ = list.offset();
}

bool Set::remove(const wchar_t* name) {
  if (name == nullptr) return false;
  auto found = index_.find(name);
  if (found == index_.end()) return false;
  tEntry* entry = found->second;
  unsigned child = entry->offset;
  {
    Design::Logic logic(store_, child, false);
    if (!opened(logic) || (logic->flags() & Record::kNameLocked) || !logic->unreferenced())
      return false;
    logic->clear();
  }  // closed before the free: it holds a count on the record
  store_->free(child);
  index_.erase(entry->name.string());
  delete entry;
  Record::Offsets(store_, children_).removeVal(child);
  return true;
}

bool Set::rename(const wchar_t* old, const wchar_t* name) {
  if (old == nullptr || name == nullptr || reserved(name)) return false;
  if (find(name) != IDataStore::BADOFF) return false;
  auto found = index_.find(old);
  if (found == index_.end()) return false;
  tEntry* entry = found->second;
  if (!childKind(Record::peek(store_, entry->offset))) return false;
  Record::Entity record(store_, entry->offset);
  if (record.flags() & Record::kNameLocked) return false;
  // The array is deliberately twice the name's size: readers stop at the terminator, and
  // the arrays after it are placed by their stored lengths, so the padding is inert.
  unsigned length = static_cast<unsigned>(std::wcslen(name));
  record.name(name, 8 * length + 8);
  index_.erase(found);
  entry->name = name;
  index_.insert({entry->name.string(), entry});
  return true;
}

void Set::hide(unsigned offset) {
  Record::tType kind = Record::peek(store_, offset);
  if (!childKind(kind)) return;
  ParentRecord record(store_, offset);
  if (kind != Record::kPrimitive && record.children() != IDataStore::BADOFF) {
    Record::Offsets list(store_, record.children());
    for (unsigned i = 0, n = list.items(); i < n; ++i)
      hide(list.get(i));
  }
  record.flags(record.flags() | Record::kHidden | Record::kNameLocked);
  record.update(true);
}

void Set::inherit(IDataStore* source, unsigned offset) {
  unsigned copy;
  {
    Design::Logic member(source, offset, true);
    // A member whose name is here already stays as it is: it may have been shown and edited.
    if (!opened(member) || find(member->tag()) != IDataStore::BADOFF) return;
    copy = member->clone(store_);
  }
  add(copy);
  hide(copy);
}

unsigned Set::duplicate(IDataStore* target, unsigned parent) const {
  if (children_ == IDataStore::BADOFF) return IDataStore::BADOFF;
  Record::Offsets list(store_, children_);
  Record::Offsets copies(target);
  for (unsigned i = 0, n = list.items(); i < n; ++i) {
    unsigned entry = list.get(i);
    if (childKind(Record::peek(store_, entry))) {
      {
        Design::Logic child(store_, entry, true);
        entry = child->clone(target);
      }
      Record::Entity copy(target, entry);
      copy.parent(parent);
      copy.update(true);
    }
    target->append(copies.offset(), &entry, 4);
  }
  return copies.offset();
}

bool Set::unreferenced() {
  for (const auto& entry : index_) {
    Design::Logic child(store_, entry.second->offset, false);
    if (opened(child) && !child->unreferenced()) return false;
  }
  return true;
}

void Set::update() {
  destroyEntries();
  children_ = ParentRecord(store_, offset_).children();
  populate();
}

void Set::cleanup() {
  if (children_ == IDataStore::BADOFF) return;
  std::vector<tEntry*> entries;
  entries.reserve(index_.size());
  for (const auto& entry : index_)
    entries.push_back(entry.second);
  // Each entry leaves the index as its child goes, so a failure midway leaves the index
  // naming exactly the children that are still there.
  for (tEntry* entry : entries) {
    {
      Design::Logic child(store_, entry->offset, false);
      if (opened(child)) child->clear();
    }
    store_->free(entry->offset);
    index_.erase(entry->name.string());
    delete entry;
  }
  store_->free(children_);
  children_ = IDataStore::BADOFF;
  index_.reset();
}

void Set::clearSet() {
  Item::cleanup();
  cleanup();
  ParentRecord record(store_, offset_);
  record.children(IDataStore::BADOFF);
  record.locale(IDataStore::BADOFF);
  record.update(true);
}

unsigned Set::cloneSet(IDataStore* target) {
  ParentRecord record(store_, offset_);
  record.locale(Item::duplicate(target));
  record.references(0);
  unsigned copy = record.clone(target);
  // The children need the copy's offset as their parent, so they follow it.
  unsigned children = duplicate(target, copy);
  ParentRecord clone(target, copy);
  clone.children(children);
  clone.update(true);
  return copy;
}

void Set::inheritChain(metadata::ISchema* schema, WideString& base, unsigned baseSelector,
                       bool lockSource) {
  auto* chain = dynamic_cast<Schema::LayoutChain*>(schema);
  if (chain == nullptr) return;
  // The cached base changes only once the record holds it.
  WideString paths = base;
  for (unsigned link = 0, n = chain->links(); link < n; ++link) {
    if (!paths.empty()) paths.append(L";");
    if (chain->path(link) != nullptr) paths.append(chain->path(link));
    Set* definition = chain->definition(link);
    if (definition == nullptr) continue;
    std::optional<Lock> lock;
    if (lockSource) lock.emplace(definition->store());
    Record::Offsets members(definition->store(), definition->children());
    for (unsigned i = 0, count = members.items(); i < count; ++i)
      inherit(definition->store(), members.get(i));
  }
  Record::Entity record(store_, offset_);
  record.string(baseSelector, paths.string());
  base = paths;
}

}  // namespace kestrine::platform::data::Metadata
