// A second process for the LMDB store's tests.
//
//   lmdb_datastore_child generations PATH RECORDS SECONDS
//     Writes generation after generation (see generation_records.h) of RECORDS data records,
//     each as one transaction made without the store lock and ended by complete(), the way
//     a document import works; the first one at least, then more until SECONDS have passed.
//   lmdb_datastore_child summary PATH
//     Prints "records used version" of the committed state.
//
// Exits 0 on success, 1 after printing what failed, 2 on a usage error.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <string>
#include <vector>

#include "core/storage/generation_records.h"
#include "kestrine/platform/core/lmdb_datastore.h"

namespace datastore = kestrine::platform::core::storage::datastore;
namespace generation = datastore::generation;

namespace {

std::vector<unsigned char> readAll(datastore::IDataStore& store, unsigned offset) {
  std::vector<unsigned char> bytes(store.size(offset));
  store.read(offset, bytes.data(), 0xFFFFFFFF);
  return bytes;
}

// One transaction from the stored generation to the next. Every data record is rewritten,
// one in five is freed and created anew (taking offsets back from the free list), and the
// header goes last.
unsigned long long writeGeneration(datastore::IDataStore& store, unsigned count) {
  generation::Header header;
  std::vector<unsigned> offsets(count);
  bool fresh = !generation::decode(readAll(store, 0), &header);
  header.generation += 1;
  if (fresh) {
    header = generation::Header{1, count, 0, 0};
    store.create(nullptr, generation::kHeaderBytes);  // offset 0 in a new store
    header.index = store.create(nullptr, count * 4);
    for (unsigned i = 0; i < count; ++i) {
      std::vector<unsigned char> bytes = generation::dataRecord(1, i);
      offsets[i] = store.create(bytes.data(), static_cast<unsigned>(bytes.size()));
    }
  } else {
    store.read(header.index, offsets.data(), count * 4);
    for (unsigned i = 0; i < count; ++i) {
      if ((i + header.generation) % 5 == 0) store.free(offsets[i]);
    }
    for (unsigned i = 0; i < count; ++i) {
      std::vector<unsigned char> bytes = generation::dataRecord(header.generation, i);
      unsigned size = static_cast<unsigned>(bytes.size());
      if ((i + header.generation) % 5 == 0) {
        offsets[i] = store.create(bytes.data(), size);
      } else {
        store.write(offsets[i], bytes.data(), size, true);
      }
    }
  }
  store.write(header.index, offsets.data(), count * 4, true);
  header.checksum = generation::kChecksumSeed;
  for (unsigned i = 0; i < count; ++i) {
    header.checksum =
        generation::checksum(header.checksum, generation::dataRecord(header.generation, i));
  }
  std::vector<unsigned char> bytes = generation::encode(header);
  store.write(0, bytes.data(), generation::kHeaderBytes, true);
  store.complete();
  return header.generation;
}

int usage() {
  std::fprintf(stderr,
               "usage: lmdb_datastore_child generations PATH RECORDS SECONDS\n"
               "       lmdb_datastore_child summary PATH\n");
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) return usage();
  std::string mode = argv[1];
  try {
    datastore::LmdbDataStore store(argv[2]);
    if (mode == "summary" && argc == 3) {
      std::printf("%u %llu %u\n", store.records(), store.used(), store.version());
      return 0;
    }
    if (mode != "generations" || argc != 5) return usage();
    unsigned count = static_cast<unsigned>(std::strtoul(argv[3], nullptr, 10));
    auto end = std::chrono::steady_clock::now() + std::chrono::seconds(std::atoi(argv[4]));
    do {
      writeGeneration(store, count);
    } while (std::chrono::steady_clock::now() < end);
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "lmdb_datastore_child: %s\n", error.what());
    return 1;
  }
}
