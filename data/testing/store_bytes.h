#ifndef KPL_DATA_TESTING_STORE_BYTES_H_
#define KPL_DATA_TESTING_STORE_BYTES_H_

#include <cstdint>
#include <cwchar>
#include <map>
#include <string>

#include "kestrine/platform/core/datastore.h"

// Reading a store's bytes independently of the record classes, to check layouts and to prove
// that an operation changed nothing.
namespace kestrine::platform::data::testing {

using core::storage::datastore::IDataStore;
using core::storage::datastore::MemoryDataStore;

inline std::string bytes(IDataStore& store, unsigned offset) {
  std::string record(store.size(offset), '\0');
  if (!record.empty()) store.read(offset, record.data(), 0xFFFFFFFF);
  return record;
}

inline std::uint32_t u32(const std::string& record, unsigned at) {
  std::uint32_t value = 0;
  for (unsigned i = 0; i < 4; ++i)
    value |= std::uint32_t(std::uint8_t(record.at(at + i))) << (8 * i);
  return value;
}

// The bytes of a wide string with its terminator, as records hold it.
inline std::string wide(const wchar_t* text) {
  return std::string(reinterpret_cast<const char*>(text), (std::wcslen(text) + 1) * 4);
}

// Every live record by offset. Offsets of a memory store are handed out densely from 0.
inline std::map<unsigned, std::string> snapshot(MemoryDataStore& store) {
  std::map<unsigned, std::string> records;
  for (unsigned offset = 0; records.size() < store.records() && offset < (1u << 24); ++offset)
    if (store.size(offset) != 0) records[offset] = bytes(store, offset);
  return records;
}

}  // namespace kestrine::platform::data::testing

#endif  // KPL_DATA_TESTING_STORE_BYTES_H_
