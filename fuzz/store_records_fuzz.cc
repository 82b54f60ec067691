// Feeds arbitrary bytes to the object model as a store's records, then reads them as kmeta's
// read commands do: list the tree (names, kinds, units, descriptions, values), check it, and
// export it. Every damaged record must end in core::Exception or an answer; nothing may
// crash, hang, leak or allocate without bound.
//
// The input is the records in offset order, separated by kSeparator; record 0 is the root.
// Each input goes into a memory store, and into the pending transaction of a store file made
// once per process and abandoned after each input (never committed, which would cost a
// sync), so that the file store's own code paths run too. Seeds: run the target with
// KPL_DUMP_SEED=DIR and a document on standard input, and it writes the records of that document's
// import to DIR as one input.

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iostream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "kestrine/platform/core.h"
#include "kestrine/platform/data.h"

namespace {

namespace core = kestrine::platform::core;
using core::io::MemoryWriter;
using core::storage::datastore::IDataStore;
using core::storage::datastore::LmdbDataStore;
using core::storage::datastore::MemoryDataStore;
using kestrine::platform::data::format::xml::IXMLFrontEnd;
using kestrine::platform::data::metadata::IPrimitive;
using kestrine::platform::data::structure::IContainerFrontEnd;

const std::string kSeparator("\xfe\xed\xfa\xce", 4);

std::vector<std::string> split(const std::string& input) {
  std::vector<std::string> records;
  std::size_t start = 0;
  for (std::size_t at; (at = input.find(kSeparator, start)) != std::string::npos;
       start = at + kSeparator.size())
    records.push_back(input.substr(start, at - start));
  records.push_back(input.substr(start));
  return records;
}

// Lists the children at `path` and below, as `kmeta ls` and `get` read each one. The walk is
// bounded: a damaged children list may name a record again and again.
void list(IDataStore* store, const core::string::WideString& path, int depth, int& visits) {
  if (depth > 6 || visits > 2000) return;
  std::vector<core::string::WideString> below;
  IContainerFrontEnd::children(store, path, [&](const IContainerFrontEnd::tChild& child) {
    ++visits;
    if (child.container) {
      child.container->tag();
      child.container->flags();
      below.push_back(child.container->path());
    } else if (child.property) {
      child.property->tag();
      for (unsigned i = 0; i < child.property->locales() && i < 8; ++i)
        child.property->localize(child.property->locale(i));
      if (IPrimitive* primitive = IPrimitive::to(child.property.get())) {
        primitive->dimension();
        IXMLFrontEnd::values(primitive, nullptr);
      } else {
        below.push_back(child.property->path());
      }
    }
  });
  for (const auto& next : below)
    list(store, next, depth + 1, visits);
}

void read(IDataStore* store) {
  try {
    int visits = 0;
    list(store, L"", 0, visits);
  } catch (const core::Exception&) {
  }
  try {
    IContainerFrontEnd::check(store, [](const std::string&) {});
  } catch (const core::Exception&) {
  }
  try {
    MemoryWriter writer;
    IXMLFrontEnd::serialize(store, &writer, nullptr, L"");
  } catch (const core::Exception&) {
  }
}

void fill(IDataStore& store, const std::vector<std::string>& records) {
  for (const std::string& record : records)
    store.create(record.data(), static_cast<unsigned>(record.size()));
}

LmdbDataStore& file() {
  static LmdbDataStore* store = [] {
    std::string path = "/tmp/kpl-store-fuzz-" + std::to_string(::getpid());
    auto* opened = new LmdbDataStore(path);
    for (const char* suffix : {"", "-lock", "-writer"})
      std::remove((path + suffix).c_str());  // the open file lives on unlinked
    return opened;
  }();
  return *store;
}

// Writes the records of the document on standard input, imported, as one seed to `directory`.
void dumpSeed(const char* directory) {
  std::string document{std::istreambuf_iterator<char>(std::cin), {}};
  MemoryDataStore store;
  core::io::MemoryReader reader(document);
  IXMLFrontEnd::parse(&store, &reader, nullptr, nullptr, nullptr);
  std::string seed;
  for (unsigned offset = 0; offset < store.records(); ++offset) {
    std::string bytes(store.size(offset), '\0');
    store.read(offset, bytes.data(), static_cast<unsigned>(bytes.size()));
    seed += (offset == 0 ? "" : kSeparator) + bytes;
  }
  std::ofstream(std::string(directory) + "/" + std::to_string(std::hash<std::string>()(seed)),
                std::ios::binary)
      << seed;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  if (const char* directory = std::getenv("KPL_DUMP_SEED")) {
    dumpSeed(directory);
    std::exit(0);
  }
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::vector<std::string> records = split(std::string(reinterpret_cast<const char*>(data), size));
  {
    MemoryDataStore memory;
    fill(memory, records);
    read(&memory);
  }
  // Under the store lock nothing commits: the records stay pending, and go again.
  LmdbDataStore& store = file();
  std::unique_ptr<IDataStore::ILock> lock(store.lock());
  fill(store, records);
  read(&store);
  store.abandon();
  return 0;
}
