#include "kestrine/platform/core/datastore.h"

namespace kestrine::platform::core::storage::datastore {

// The in-class initialiser gives the value; this definition gives clients an address to
// bind references to (EXPECT_EQ and the like take their arguments by reference).
const unsigned IDataStore::BADOFF;

IDataStore::ILock::~ILock() = default;

IDataStore::~IDataStore() = default;

IDataStore::IAttachment::~IAttachment() = default;

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
