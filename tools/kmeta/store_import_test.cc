// The persistent stores under kmeta, the way users meet them: documents imported by one
// process, exported by another, imports killed at any moment, servers stopped under them.
#include <signal.h>

#include "tools/kmeta/kmeta_test_support.h"

namespace kmeta::testing {
namespace {

using StoreImport = PersistentStoreTest;

// Catches: a kill in the middle of an import (or of its commit) leaving part of the document
// in the store, a store that no longer opens, or an import that commits in pieces.
TEST_P(StoreImport, KilledImportsLeaveTheStateBeforeOrAfter) {
  // Kills land up to half as long again as an import takes, so that some land before the
  // commit, some during, and some after it.
  Cuts cuts = cutImports(store(), scratch(), 24, 1.5, 128 + SIGKILL,
                         [](pid_t importer) { ::kill(importer, SIGKILL); });
  // Both outcomes, or the kills were timed too early or too late to prove anything.
  EXPECT_GT(cuts.before, 0u);
  EXPECT_GT(cuts.after, 0u);
}

// Catches: an export that reads a half-committed import, records of two states, or a
// record written back from an older state by the reference counts of a reading process.
TEST_P(StoreImport, ExportsSeeOnlyWholeImportsWhileAnotherProcessImports) {
  exportWhileAnotherProcessImports(store(), scratch(), 4);
}

INSTANTIATE_TEST_SUITE_P(Stores, StoreImport, ::testing::Values("File", "Postgres"), storeKindName);

// Catches: a server crash in the middle of an import leaving part of it committed, a store
// that no longer opens after recovery, and kmeta hanging when the server goes away.
TEST(DatabaseImport, ServerStoppedMidImportLeavesTheStateBeforeOrAfter) {
  TemporaryDirectory directory;
  std::string store = storeArgument("Postgres", directory.directory());
  // The first import, which times the others, makes the tables too: later ones run faster.
  Cuts cuts = cutImports(store, directory.directory(), 5, 0.5, 1, [](pid_t) {
    scratchPostgres().stop(true);
    scratchPostgres().start();
  });
  EXPECT_GT(cuts.before, 0u) << "no stop landed before a commit";
}

}  // namespace
}  // namespace kmeta::testing
