#ifndef KPL_DATA_TREE_LOCK_H_
#define KPL_DATA_TREE_LOCK_H_

#include <memory>

#include "data/tree/index_cache.h"
#include "kestrine/platform/core/datastore.h"

namespace kestrine::platform::data::Metadata {

// Holds a datastore's lock for the length of one interface call: taken at construction,
// released at destruction on every path, exceptions included. Inside it the store's sets
// share their indexes (IndexScope).
class Lock {
 public:
  explicit Lock(core::storage::datastore::IDataStore* store)
      : handle_(store->lock()), scope_(store) {}
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;

 private:
  // Declared in this order so that the scope ends before the store's lock is released.
  std::unique_ptr<core::storage::datastore::IDataStore::ILock> handle_;
  IndexScope scope_;
};

}  // namespace kestrine::platform::data::Metadata

#endif  // KPL_DATA_TREE_LOCK_H_
