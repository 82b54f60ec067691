// Half a minute of one process writing and another reading the same store file. Labelled
// "long": the default test run leaves it out, `ctest -L long` runs it.
#include "core/storage/lmdb_process_test_support.h"

namespace kestrine::platform::core::storage::datastore {
namespace {

TEST(LmdbDataStoreProcesses, ReaderSeesOnlyWholeGenerationsForHalfAMinute) {
  readWhileAnotherProcessWrites(30);
}

}  // namespace
}  // namespace kestrine::platform::core::storage::datastore
