#include "data/tree/set.h"

#include <algorithm>
#include <cwchar>
#include <memory>
#include <optional>

#include "data/record/entity.h"
#include "data/record/offsets.h"
#include "data/tree/item_reader.h"
#include "data/tree/lock.h"
#include "kestrine/platform/core/memory.h"
#include "kestrine/platform/data/metadata/schema.h"
// A set's children are tables, containers and primitives, which are logic classes of the
// layer above; removing, checking and copying them goes through Design::Logic, and dotted
// look-ups through the schema finder. These are the only upward calls of this layer.
#include "data/tree/definition_chain.h"
#include "data/tree/descent.h"
#include "data/tree/finder.h"
#include "data/tree/logic.h"

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

Set::Set() : children_(IDataStore::BADOFF) {}

Set::~Set() {
  if (shared_ == nullptr) return;
  IndexCache* cache = IndexCache::current(store_);
  if (cache != nullptr && cache->serial() == serial_) cache->release(shared_);
}

SetIndex& Set::state() const {
  IndexCache* cache = IndexCache::current(store_);
  if (cache == nullptr) return ownState();
  cache->check();
  // An entry pinned in an earlier scope may be gone; only this scope's pin keeps it alive.
  if (shared_ == nullptr || serial_ != cache->serial() || shared_->detached) {
    if (shared_ != nullptr && serial_ == cache->serial()) cache->release(shared_);
    shared_ = nullptr;
    shared_ = cache->acquire(offset_, [this](SetIndex& index) {
      index.children = ParentRecord(store_, offset_).children();
      fill(store_, index);
    });
    serial_ = cache->serial();
  }
  return *shared_;
}

SetIndex& Set::ownState() const {
  if (!own_) {
    own_ = std::make_unique<SetIndex>();
    own_->children = children_;
    if (populated_) fill(store_, *own_);
  }
  return *own_;
}

void Set::fill(IDataStore* store, SetIndex& index) {
  if (index.children == IDataStore::BADOFF) return;
  const Record::Offsets list(store, index.children, Record::Loading::kInPlace);
  index.names.reserve(list.items());
  WideString name;
  for (unsigned i = 0, n = list.items(); i < n; ++i) {
    unsigned child = list.get(i);
    // A later child whose name is taken stays in the list, unindexed.
    if (childKind(Record::peekName(store, child, name))) index.names.insert(name.string(), child);
  }
}

void Set::populate() {
  populated_ = true;
  // Inside a scope the shared index serves; it is built when first needed.
  if (IndexCache::current(store_) != nullptr) return;
  own_.reset();
  ownState();
}

// Outside a scope this needs no index, so it builds none: a set that several threads read,
// such as a layout's definition, is never changed by reading it.
unsigned Set::children() const {
  if (IndexCache::current(store_) != nullptr) return state().children;
  return own_ ? own_->children : children_;
}

unsigned Set::items() const {
  return state().names.size();
}

unsigned Set::at(unsigned i) const {
  unsigned children = state().children;
  if (children == IDataStore::BADOFF) return IDataStore::BADOFF;
  Record::Offsets list(store_, children);
  return i < list.items() ? list.get(i) : IDataStore::BADOFF;
}

void Set::entries(std::vector<unsigned>& out) const {
  listed(store_, state(), out);
}

Set::Lister::~Lister() = default;

void Set::Lister::start(IDataStore* store, unsigned offset) {
  if (list_ == nullptr || store != store_)
    list_ = std::make_unique<Record::Offsets>(store, IDataStore::BADOFF);
  store_ = store;
  next_ = 0;
  hashes_.clear();
  hashed_.reset();
  IndexCache* cache = IndexCache::current(store);
  if (cache != nullptr) {
    cache->check();
    if (const SetIndex* index = cache->find(offset)) {
      // As Set::listed gives them: as many as the index holds, BADOFF past the list's end.
      list_->load(index->children, Record::Loading::kInPlace);
      listed_ = index->names.size();
      counted_ = true;
      return;
    }
  }
  counted_ = false;
  children_ = ParentRecord(store, offset, Record::Loading::kInPlace).children();
  list_->load(children_, Record::Loading::kInPlace);
}

bool Set::Lister::next(unsigned& entry) {
  const std::size_t items = list_ != nullptr ? list_->items() : 0;
  if (next_ >= (counted_ ? listed_ : items)) return false;
  entry = next_ < items ? list_->get(static_cast<unsigned>(next_)) : IDataStore::BADOFF;
  ++next_;
  return true;
}

bool Set::Lister::listed(Record::tType kind, const ItemReader& reader) {
  if (counted_) return true;  // next() gives no others
  if (childKind(kind)) {
    const std::wstring_view name = reader.name();
    const std::size_t length = name.size() * sizeof(wchar_t);
    if (!reserved(name.data(), length) && distinct(hashBytes(name.data(), length))) return true;
  }
  // Counted as entries() counts. The entries before this one are all listed.
  listed_ = std::min<std::size_t>(indexable(store_, *list_), list_->items());
  counted_ = true;
  return next_ - 1 < listed_;
}

bool Set::Lister::distinct(std::size_t hash) {
  constexpr std::size_t kFew = 16;
  if (hashed_ == nullptr) {
    if (std::find(hashes_.begin(), hashes_.end(), hash) != hashes_.end()) return false;
    hashes_.push_back(hash);
    if (hashes_.size() <= kFew) return true;
    hashed_ = std::make_unique<google::dense_hash_set<std::size_t>>();
    hashed_->set_empty_key(0);
    for (std::size_t seen : hashes_)
      if (seen == 0 || !hashed_->insert(seen).second) return false;
    return true;
  }
  // The empty key stands for no name: a name that hashes to it is counted the long way.
  return hash != 0 && hashed_->insert(hash).second;
}

std::size_t Set::indexable(IDataStore* store, const Record::Offsets& list) {
  // Names are told apart by a 64-bit hash of their bytes. Two equal hashes, which two equal
  // names make, send the count to an index, which compares the names themselves.
  std::vector<std::size_t> hashes;
  hashes.reserve(list.items());
  Record::NamePeek name;
  for (unsigned i = 0, n = list.items(); i < n; ++i) {
    if (!childKind(name.read(store, list.get(i))) || reserved(name.bytes(), name.length()))
      continue;
    hashes.push_back(hashBytes(name.bytes(), name.length()));
  }
  std::sort(hashes.begin(), hashes.end());
  if (std::adjacent_find(hashes.begin(), hashes.end()) == hashes.end()) return hashes.size();
  SetIndex index;
  index.children = list.offset();
  fill(store, index);
  return index.names.size();
}

void Set::listed(IDataStore* store, const SetIndex& index, std::vector<unsigned>& out) {
  out.assign(index.names.size(), IDataStore::BADOFF);
  if (index.children == IDataStore::BADOFF) return;
  const Record::Offsets list(store, index.children, Record::Loading::kInPlace);
  // A list that is not there loads empty, without bytes to point into.
  std::size_t count = std::min<std::size_t>(out.size(), list.items());
  if (count != 0) std::copy_n(list.get(), count, out.begin());
}

unsigned Set::find(const wchar_t* name) const {
  if (name == nullptr || reserved(name)) return IDataStore::BADOFF;
  return state().names.find(name);
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
  // Only the name and the parent field are touched: a primitive's values may be large.
  WideString name;
  return childKind(Record::peekName(store_, offset, name)) && add(offset, name.string());
}

bool Set::add(unsigned offset, const wchar_t* name) {
  SetIndex& index = state();
  // The index refuses a name it holds, or a reserved one, in the probe that takes it in; it
  // lets the name go again if the store refuses the change.
  if (!index.names.insert(name, offset)) return false;
  try {
    Record::Header(store_, offset).parent(offset_);
    if (index.children != IDataStore::BADOFF) {
      // The list is appended to without being read.
      store_->append(index.children, &offset, 4);
    } else {
      Record::Offsets list(store_);
      list.add(offset);
      ParentRecord record(store_, offset_);
      record.children(list.offset());
      record.update(true);
      index.children = list.offset();
    }
  } catch (...) {
    index.names.erase(name);
    throw;
  }
  return true;
}

bool Set::remove(const wchar_t* name) {
  unsigned child = find(name);
  if (child == IDataStore::BADOFF) return false;
  {
    Design::Logic logic(store_, child, false);
    if (!opened(logic) || (logic->flags() & Record::kNameLocked) || !logic->unreferenced())
      return false;
    logic->clear();
  }  // closed before the free: it holds a count on the record
  release(child);
  SetIndex& index = state();
  index.names.erase(name);
  Record::Offsets(store_, index.children).removeVal(child);
  return true;
}

bool Set::rename(const wchar_t* old, const wchar_t* name) {
  if (old == nullptr || name == nullptr || reserved(name)) return false;
  if (find(name) != IDataStore::BADOFF) return false;
  unsigned child = find(old);
  if (child == IDataStore::BADOFF || !childKind(Record::peek(store_, child))) return false;
  Record::Entity record(store_, child);
  if (record.flags() & Record::kNameLocked) return false;
  // The array is deliberately twice the name's size: readers stop at the terminator, and
  // the arrays after it are placed by their stored lengths, so the padding is inert.
  unsigned length = static_cast<unsigned>(std::wcslen(name));
  record.name(name, 8 * length + 8);
  state().names.rename(old, name);
  return true;
}

void Set::hide(unsigned offset) {
  Record::tType kind = Record::peek(store_, offset);
  if (!childKind(kind)) return;
  Descent level(offset);
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
  unsigned children = state().children;
  if (children == IDataStore::BADOFF) return IDataStore::BADOFF;
  Descent level(offset_);
  Record::Offsets list(store_, children);
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
  Descent level(offset_);
  for (unsigned child : state().names.offsets()) {
    Design::Logic logic(store_, child, false);
    if (opened(logic) && !logic->unreferenced()) return false;
  }
  return true;
}

void Set::update() {
  children_ = ParentRecord(store_, offset_).children();
  populated_ = true;
  if (IndexCache* cache = IndexCache::current(store_)) {
    cache->forget(offset_);
    state();
    return;
  }
  own_.reset();
  ownState();
}

void Set::cleanup() {
  SetIndex& index = state();
  if (index.children == IDataStore::BADOFF) return;
  Descent level(offset_);
  // Each name leaves the index as its child goes, so a failure midway leaves the index
  // naming exactly the children that are still there.
  for (unsigned child : index.names.offsets()) {
    WideString name;
    {
      Design::Logic logic(store_, child, false);
      if (opened(logic)) {
        name = logic->tag();
        logic->clear();
      } else {
        name = Record::Entity(store_, child).name();
      }
    }
    release(child);
    index.names.erase(name.string());
  }
  store_->free(index.children);
  index.children = IDataStore::BADOFF;
  index.names.clear();
}

void Set::release(unsigned offset) {
  store_->free(offset);
  if (IndexCache* cache = IndexCache::current(store_)) cache->forget(offset);
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
  auto* chain = dynamic_cast<Metadata::DefinitionChain*>(schema);
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
