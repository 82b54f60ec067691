#include "kestrine/platform/core/datastore.h"

#include <cstring>
#include <string>
#include <vector>

#include "kestrine/platform/core/exception.h"

namespace kestrine::platform::core::storage::datastore {

// The in-class initialiser gives the value; this definition gives clients an address to
// bind references to (EXPECT_EQ and the like take their arguments by reference).
const unsigned IDataStore::BADOFF;

IDataStore::ILock::~ILock() = default;

IDataStore::~IDataStore() = default;

IDataStore::IAttachment::~IAttachment() = default;

void IDataStore::patch(unsigned offset, unsigned at, const void* data, unsigned size,
                       bool changed) {
  const unsigned length = this->size(offset);
  if (length == 0)
    throw Exception("patch of offset " + std::to_string(offset) + ", which holds no record");
  if (at > length || size > length - at)
    throw Exception("patch of " + std::to_string(size) + " bytes at byte " + std::to_string(at) +
                    " of the record at offset " + std::to_string(offset) + ", which has " +
                    std::to_string(length));
  std::vector<unsigned char> record(length);
  read(offset, record.data(), length);
  if (size != 0) std::memcpy(record.data() + at, data, size);
  write(offset, record.data(), length, changed);
}

const void* IDataStore::view(unsigned, unsigned&) {
  return nullptr;
}

bool IDataStore::abandon() {
  return false;
}

bool IDataStore::stamp(tStamp&) {
  return false;
}

IDataStore::IAttachment* IDataStore::attachment() {
  return nullptr;
}

void IDataStore::attach(std::unique_ptr<IAttachment>) {}

}  // namespace kestrine::platform::core::storage::datastore
