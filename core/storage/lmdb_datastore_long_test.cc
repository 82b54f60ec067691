// Half a minute of one process importing documents into a store file with kmeta and another
// exporting it. Labelled "long": the default test run leaves it out, `ctest -L long` runs it.
#include "core/storage/lmdb_import_test_support.h"

namespace kestrine::platform::core::storage::datastore {
namespace {

TEST(LmdbImport, ExportsSeeOnlyWholeImportsForHalfAMinute) {
  exportWhileAnotherProcessImports(30);
}

}  // namespace
}  // namespace kestrine::platform::core::storage::datastore
