#include <dlfcn.h>
#include <gtest/gtest.h>

#include <kestrine/platform/core.h>

namespace {

// Catches: libpq (and the Kerberos, LDAP and TLS libraries it needs) loaded with the core
// library, which every process would pay for at start. This program uses the core library
// but opens no PostgreSQL store.
TEST(PostgresLibrary, IsNotLoadedWithTheCoreLibrary) {
  kestrine::platform::core::storage::datastore::MemoryDataStore store;
  store.create("x", 1);
  void* libpq = dlopen("libpq.so.5", RTLD_LAZY | RTLD_NOLOAD);
  EXPECT_EQ(libpq, nullptr);
  if (libpq != nullptr) dlclose(libpq);
}

}  // namespace
