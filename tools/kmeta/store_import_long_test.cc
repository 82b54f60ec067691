// Half a minute of one process importing documents into each persistent store with kmeta and
// another exporting it. Labelled "long": the default test run leaves it out, `ctest -L long`
// runs it.
#include "tools/kmeta/kmeta_test_support.h"

namespace kmeta::testing {
namespace {

using StoreImport = PersistentStoreTest;

// Catches: what the short run catches (an export that reads a half-committed import or
// mixes states) when it shows only after many more imports.
TEST_P(StoreImport, ExportsSeeOnlyWholeImportsForHalfAMinute) {
  exportWhileAnotherProcessImports(store(), scratch(), 30);
}

INSTANTIATE_TEST_SUITE_P(Stores, StoreImport, ::testing::Values("File", "Postgres"), storeKindName);

}  // namespace
}  // namespace kmeta::testing
