#include "kestrine/platform/core/datastore.h"

namespace kestrine::platform::core::storage::datastore {

// The in-class initialiser gives the value; this definition gives clients an address to
// bind references to (EXPECT_EQ and the like take their arguments by reference).
const unsigned IDataStore::BADOFF;

IDataStore::ILock::~ILock() = default;

IDataStore::~IDataStore() = default;

}  // namespace kestrine::platform::core::storage::datastore
