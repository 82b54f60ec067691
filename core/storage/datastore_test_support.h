#ifndef KPL_CORE_STORAGE_DATASTORE_TEST_SUPPORT_H_
#define KPL_CORE_STORAGE_DATASTORE_TEST_SUPPORT_H_

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "kestrine/platform/core/datastore.h"

namespace kestrine::platform::core::storage::datastore {

// Makes a fresh, empty store of one implementation for the conformance suite.
struct StoreFactory {
  std::string name;
  std::function<std::unique_ptr<IDataStore>()> make;
};

// Every store implementation the suite runs against.
inline std::vector<StoreFactory> allStoreFactories() {
  return {
      {"Memory", [] { return std::unique_ptr<IDataStore>(new MemoryDataStore); }},
  };
}

}  // namespace kestrine::platform::core::storage::datastore

#endif  // KPL_CORE_STORAGE_DATASTORE_TEST_SUPPORT_H_
