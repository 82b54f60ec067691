// A second process for the LMDB store's tests.
//
//   lmdb_datastore_test_child fill PATH RECORDS
//     Creates RECORDS records of a thousand bytes and more ("rrr...r<i>"), all in one
//     transaction on a map of 64 KiB, so that the map must grow while the transaction is
//     pending, and commits them.
//   lmdb_datastore_test_child summary PATH
//     Prints "records used version" of the committed state.
//
// Exits 0 on success, 1 after printing what failed, 2 on a usage error.
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>

#include "kestrine/platform/core/lmdb_datastore.h"

namespace datastore = kestrine::platform::core::storage::datastore;

int main(int argc, char** argv) {
  std::string mode = argc > 1 ? argv[1] : "";
  if (!(mode == "summary" && argc == 3) && !(mode == "fill" && argc == 4)) {
    std::fprintf(stderr,
                 "usage: lmdb_datastore_test_child fill PATH RECORDS\n"
                 "       lmdb_datastore_test_child summary PATH\n");
    return 2;
  }
  try {
    if (mode == "summary") {
      datastore::LmdbDataStore store(argv[2]);
      std::printf("%u %llu %u\n", store.records(), store.used(), store.version());
      return 0;
    }
    datastore::LmdbDataStore store(argv[2], 64 << 10);
    unsigned count = static_cast<unsigned>(std::strtoul(argv[3], nullptr, 10));
    for (unsigned i = 0; i < count; ++i) {
      std::string record = std::string(1000, 'r') + std::to_string(i);
      store.create(record.data(), static_cast<unsigned>(record.size()));
    }
    store.flush();
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "lmdb_datastore_test_child: %s\n", error.what());
    return 1;
  }
}
