#ifndef KPL_DATA_METADATA_LOCK_H_
#define KPL_DATA_METADATA_LOCK_H_

#include <memory>

#include "kestrine/platform/core/datastore.h"

namespace kestrine::platform::data::Metadata {

// Holds a datastore's lock for the length of one interface call: taken at construction,
// released at destruction on every path, exceptions included.
class Lock {
 public:
  explicit Lock(core::storage::datastore::IDataStore* store) : handle_(store->lock()) {}
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;

 private:
  std::unique_ptr<core::storage::datastore::IDataStore::ILock> handle_;
};

}  // namespace kestrine::platform::data::Metadata

#endif  // KPL_DATA_METADATA_LOCK_H_
