#ifndef KPL_DATA_TREE_INDEX_CACHE_H_
#define KPL_DATA_TREE_INDEX_CACHE_H_

#include <cstddef>
#include <functional>
#include <memory>
#include <vector>

#include <sparsehash/dense_hash_map>

#include "data/tree/child_index.h"
#include "kestrine/platform/core/datastore.h"

namespace kestrine::platform::data::Metadata {

using core::storage::datastore::IDataStore;

// What a set knows of its children: the offset of its children list and its index by name.
struct SetIndex {
  explicit SetIndex(unsigned expected = 0) : names(expected) {}
  unsigned children = IDataStore::BADOFF;
  ChildIndex names;
};

// The indexes of the sets of one store, shared by everything that works on the store inside
// an IndexScope, so that opening a set again (through another handle, on another thread, or
// to look one name up) finds its index ready and current instead of reading every child. A
// set's index is built from the store the first time it is needed and from then on kept in
// step by the library's own changes (Metadata::Set adds, removes and renames through it).
//
// Currency. Changes made any other way show in the store's stamp (IDataStore::stamp). At the
// start of each outermost scope the stamp must be where the library left it at the end of
// the last one, or every index is dropped; during a scope, a move of the stamp's `foreign`
// part (another process's commits, which a shared store takes in at the scope's first change)
// drops them too. A store without stamps gets a cache that lives for one scope only: slower,
// never stale.
//
// Memory. The index of a set of kWideSet children or more is kept until dropped: it costs
// about a third of its children's own records. Of the others, those in use by a live set
// object, and the most recently used up to kNarrowBudget bytes.
//
// Only the thread inside a scope on the store uses its cache, so the cache needs no lock of
// its own: the scope's holder has the store's lock.
class IndexCache : public IDataStore::IAttachment {
 public:
  static constexpr unsigned kWideSet = 1024;
  static constexpr std::size_t kNarrowBudget = std::size_t(8) << 20;

  // One set's index as the cache keeps it.
  struct Entry : SetIndex {
    explicit Entry(unsigned expected) : SetIndex(expected) {}
    unsigned offset = IDataStore::BADOFF;  // the set's record
    unsigned pins = 0;                     // live set objects using it in the current scope
    bool detached = false;                 // dropped while pinned: freed when the last pin goes
    std::size_t charged = 0;               // bytes counted against the narrow budget while unpinned
    Entry* older = nullptr;  // the narrow, unpinned entries, least recently used first
    Entry* newer = nullptr;
  };

  // Builds a set's index from the store: called with the set's offset and a fresh entry.
  using Builder = std::function<void(SetIndex&)>;

  explicit IndexCache(IDataStore* store);
  ~IndexCache() override;

  // The cache of the scope this thread holds on `store`, or null outside one.
  static IndexCache* current(IDataStore* store);

  // Drops every index when the stamp's foreign part moved since it was last looked at.
  void check();
  // The index of the set at `offset`, built by `build` when the cache has none, pinned until
  // release() or the end of the scope.
  Entry* acquire(unsigned offset, const Builder& build);
  void release(Entry* entry);
  // The index of the set at `offset` when the cache holds one, else null; neither built nor
  // pinned, for a look within one call.
  const SetIndex* find(unsigned offset) const;
  // Forgets the index of the set at `offset`: its record was freed or changed behind the
  // index's back.
  void forget(unsigned offset);
  // Changes once per outermost scope: pins taken in an earlier scope are void.
  unsigned long long serial() const { return serial_; }

 private:
  friend class IndexScope;

  void begin();
  void end() noexcept;
  void flush();
  void drop(Entry* entry);
  void unlink(Entry* entry);
  void append(Entry* entry);
  void trim();

  IDataStore* store_;
  bool tracked_ = false;
  IDataStore::tStamp left_;         // the stamp at the end of the last scope
  unsigned long long foreign_ = 0;  // the stamp's foreign part as last looked at
  unsigned long long serial_ = 0;
  google::dense_hash_map<unsigned, Entry*> entries_;
  std::vector<Entry*> pinned_;  // entries pinned during this scope, detached ones included
  Entry* oldest_ = nullptr;
  Entry* newest_ = nullptr;
  std::size_t narrowBytes_ = 0;
};

// The library's hold on a store for one operation, taken right after the store's lock (by
// Metadata::Lock) and released before it. Scopes nest per thread and store; the outermost
// one checks the store's stamp on entry and records it on exit (see IndexCache). Inside a
// scope, sets use the store's shared indexes; outside, each set object builds its own, as a
// snapshot.
class IndexScope {
 public:
  explicit IndexScope(IDataStore* store);
  ~IndexScope();
  IndexScope(const IndexScope&) = delete;
  IndexScope& operator=(const IndexScope&) = delete;

 private:
  IDataStore* store_;
};

}  // namespace kestrine::platform::data::Metadata

#endif  // KPL_DATA_TREE_INDEX_CACHE_H_
