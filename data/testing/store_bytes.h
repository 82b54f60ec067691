#ifndef KPL_DATA_TESTING_STORE_BYTES_H_
#define KPL_DATA_TESTING_STORE_BYTES_H_

#include <cstdint>
#include <cwchar>
#include <map>
#include <string>

#include "kestrine/platform/core/datastore.h"

// A store's bytes read independently of the record classes: to check layouts, and to prove
// that an operation changed nothing.
namespace kestrine::platform::data::testing {

using core::storage::datastore::IDataStore;
using core::storage::datastore::MemoryDataStore;

inline std::string bytes(IDataStore& store, unsigned offset) {
  std::string record(store.size(offset), '\0');
  store.read(offset, record.data(), 0xFFFFFFFF);
  return record;
}

// The u32 at `at` of the record at `offset` (positions 1 parent, 5 count, 9 locale, 14 children).
inline std::uint32_t u32(IDataStore& store, unsigned offset, unsigned at) {
  std::uint32_t value = 0;
  std::string record = bytes(store, offset);
  for (unsigned i = 4; i-- > 0;)
    value = value << 8 | std::uint8_t(record.at(at + i));
  return value;
}

inline std::string wide(const wchar_t* text) {
  return std::string(reinterpret_cast<const char*>(text), (std::wcslen(text) + 1) * 4);
}

// Every live record by offset (a memory store hands offsets out densely from 0).
inline std::map<unsigned, std::string> snapshot(MemoryDataStore& store) {
  std::map<unsigned, std::string> records;
  for (unsigned offset = 0; records.size() < store.records(); ++offset)
    if (store.size(offset) != 0) records[offset] = bytes(store, offset);
  return records;
}

}  // namespace kestrine::platform::data::testing

#endif  // KPL_DATA_TESTING_STORE_BYTES_H_
