#include "data/tree/index_cache.h"

#include <algorithm>
#include <atomic>

namespace kestrine::platform::data::Metadata {

namespace {

// A scope this thread holds: on which store, with which cache, how deeply nested.
struct ActiveScope {
  IDataStore* store;
  IndexCache* cache;
  std::unique_ptr<IndexCache> temporary;  // the one-scope cache of a store without stamps
  unsigned depth;
};

// The scopes this thread holds, made with its first scope. Plain data, so that it stays
// readable to the thread's very end: a handle may close after the thread's thread-local
// destructors have run (one held by a static, closed at exit, or by a thread-local destroyed
// later). From then on `gone` holds and the thread takes no scopes: its sets build their own
// indexes, slower but never stale.
struct ThreadScopes {
  std::vector<ActiveScope>* scopes;
  bool gone;
};
thread_local ThreadScopes tScopes;

// Frees the thread's scopes with its other thread-local objects.
struct ScopesOwner {
  void arm() {}  // odr-using the variable makes the runtime register the destructor
  ~ScopesOwner() {
    delete tScopes.scopes;
    tScopes = {nullptr, true};
  }
};
thread_local ScopesOwner tScopesOwner;

// The thread's scopes, made when `make` and there are none yet; null once they are gone.
std::vector<ActiveScope>* threadScopes(bool make) {
  ThreadScopes& state = tScopes;
  if (state.scopes != nullptr || state.gone || !make) return state.scopes;
  tScopesOwner.arm();
  state.scopes = new std::vector<ActiveScope>;
  return state.scopes;
}

// Takes the thread's scopes as an argument: in a shared library every access to a
// thread_local is a call, and a scope is entered and left on every interface call.
ActiveScope* activeScope(std::vector<ActiveScope>* scopes, IDataStore* store) {
  if (scopes == nullptr) return nullptr;
  for (ActiveScope& scope : *scopes)
    if (scope.store == store) return &scope;
  return nullptr;
}

// Serials are unique across caches: a set object may outlive the one-scope cache it pinned an
// entry in, and must never take a later cache's serial for its own.
std::atomic<unsigned long long> gSerials{0};

}  // namespace

IndexCache::IndexCache(IDataStore* store) : store_(store) {
  entries_.set_empty_key(IDataStore::BADOFF);
  entries_.set_deleted_key(IDataStore::BADOFF - 1);
}

IndexCache::~IndexCache() {
  for (auto& entry : entries_)
    delete entry.second;
  // Entries dropped while pinned are owned by the pins; a cache goes with its store, after
  // every set object that could hold one.
}

IndexCache* IndexCache::current(IDataStore* store) {
  ActiveScope* scope = activeScope(threadScopes(false), store);
  return scope != nullptr ? scope->cache : nullptr;
}

void IndexCache::begin() {
  IDataStore::tStamp stamp;
  tracked_ = store_->stamp(stamp);
  if (!tracked_ || stamp != left_) flush();
  foreign_ = stamp.foreign;
  serial_ = ++gSerials;
}

void IndexCache::end() noexcept {
  IDataStore::tStamp stamp;
  bool current = false;
  try {
    current = tracked_ && store_->stamp(stamp) && stamp.foreign == foreign_;
  } catch (...) {
    // The store cannot say where it stands: trust nothing.
  }
  if (!current) flush();
  left_ = current ? stamp : IDataStore::tStamp();
  // The pins of this scope end with it; set objects that live on take new ones next time.
  while (!pinned_.empty()) {
    Entry* entry = pinned_.back();
    pinned_.pop_back();
    entry->pins = 0;
    if (entry->detached) {
      delete entry;
    } else {
      append(entry);
    }
  }
  trim();
}

void IndexCache::check() {
  if (!tracked_) return;
  IDataStore::tStamp stamp;
  store_->stamp(stamp);
  if (stamp.foreign == foreign_) return;
  flush();
  foreign_ = stamp.foreign;
}

IndexCache::Entry* IndexCache::acquire(unsigned offset, const Builder& build) {
  Entry* entry;
  auto found = entries_.find(offset);
  if (found != entries_.end()) {
    entry = found->second;
    if (entry->pins == 0) unlink(entry);
  } else {
    std::unique_ptr<Entry> built(new Entry(0));
    built->offset = offset;
    build(*built);
    entries_[offset] = built.get();
    entry = built.release();
  }
  if (entry->pins++ == 0) pinned_.push_back(entry);
  return entry;
}

const SetIndex* IndexCache::find(unsigned offset) const {
  auto found = entries_.find(offset);
  return found != entries_.end() ? found->second : nullptr;
}

void IndexCache::release(Entry* entry) {
  if (entry->pins == 0 || --entry->pins != 0) return;
  // Pins come and go in nested order, so the entry is near the end.
  pinned_.erase(std::find(pinned_.rbegin(), pinned_.rend(), entry).base() - 1);
  if (entry->detached) {
    delete entry;
    return;
  }
  append(entry);
  trim();
}

void IndexCache::forget(unsigned offset) {
  auto found = entries_.find(offset);
  if (found == entries_.end()) return;
  Entry* entry = found->second;
  entries_.erase(found);
  drop(entry);
}

void IndexCache::flush() {
  for (auto& found : entries_)
    drop(found.second);
  entries_.clear();
}

// An entry that has left entries_: freed now, or by its last pin.
void IndexCache::drop(Entry* entry) {
  if (entry->pins != 0) {
    entry->detached = true;
    return;
  }
  unlink(entry);
  delete entry;
}

// Takes an unpinned entry out of the narrow list, if it is there.
void IndexCache::unlink(Entry* entry) {
  if (entry->charged == 0) return;
  (entry->older != nullptr ? entry->older->newer : oldest_) = entry->newer;
  (entry->newer != nullptr ? entry->newer->older : newest_) = entry->older;
  entry->older = entry->newer = nullptr;
  narrowBytes_ -= entry->charged;
  entry->charged = 0;
}

// Puts an entry that just lost its last pin where its size says: a wide one stays outside any
// budget, a narrow one becomes the most recently used.
void IndexCache::append(Entry* entry) {
  if (entry->names.size() >= kWideSet) return;
  entry->charged = std::max<std::size_t>(entry->names.memory() + sizeof(Entry), 1);
  entry->older = newest_;
  entry->newer = nullptr;
  (newest_ != nullptr ? newest_->newer : oldest_) = entry;
  newest_ = entry;
  narrowBytes_ += entry->charged;
}

void IndexCache::trim() {
  while (narrowBytes_ > kNarrowBudget && oldest_ != nullptr) {
    Entry* entry = oldest_;
    entries_.erase(entry->offset);
    unlink(entry);
    delete entry;
  }
}

IndexScope::IndexScope(IDataStore* store) : store_(store) {
  std::vector<ActiveScope>* scopes = threadScopes(true);
  if (scopes == nullptr) return;
  if (ActiveScope* scope = activeScope(scopes, store)) {
    ++scope->depth;
    return;
  }
  ActiveScope scope{store, dynamic_cast<IndexCache*>(store->attachment()), nullptr, 1};
  if (scope.cache == nullptr) {
    IDataStore::tStamp stamp;
    if (store->stamp(stamp)) store->attach(std::make_unique<IndexCache>(store));
    scope.cache = dynamic_cast<IndexCache*>(store->attachment());
  }
  if (scope.cache == nullptr) {
    scope.temporary = std::make_unique<IndexCache>(store);
    scope.cache = scope.temporary.get();
  }
  scope.cache->begin();
  scopes->push_back(std::move(scope));
}

IndexScope::~IndexScope() {
  std::vector<ActiveScope>* scopes = threadScopes(false);
  ActiveScope* scope = activeScope(scopes, store_);
  if (scope == nullptr || --scope->depth != 0) return;
  scope->cache->end();
  scopes->erase(scopes->begin() + (scope - scopes->data()));
}

}  // namespace kestrine::platform::data::Metadata
