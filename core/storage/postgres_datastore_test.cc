// What the PostgreSQL store adds to the shared IDataStore contract (datastore_conformance_test.cc):
// several clients of one store, addresses, lost connections and what the server answers.
// Every test runs against the process's scratch server, which it starts if need be.
#include "kestrine/platform/core/postgres_datastore.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "core/storage/datastore_test_support.h"
#include "kestrine/platform/core/exception.h"

namespace kestrine::platform::core::storage::datastore {
namespace {

using Lock = std::unique_ptr<IDataStore::ILock>;

bool contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

class PostgresDataStoreTest : public ::testing::Test {
 protected:
  std::string uri() const { return scratchPostgres().uri(testStoreName()); }
};

// Catches: a cache that serves records another client has rewritten since, reads without the
// lock that miss another client's commit, and a stamp whose foreign part stays put at another
// client's commit or moves at this client's own.
TEST_F(PostgresDataStoreTest, AnotherClientsCommitsAreSeenAndMoveTheForeignStamp) {
  PostgresDataStore mine(uri()), theirs(uri());
  unsigned offset = createText(mine, "first");
  mine.flush();
  IDataStore::tStamp before, after;
  {
    Lock lock(mine.lock());
    EXPECT_EQ(readAll(mine, offset), "first");
    mine.stamp(before);
  }
  theirs.write(offset, "second", 6, true);
  theirs.flush();
  {
    Lock lock(mine.lock());
    EXPECT_EQ(readAll(mine, offset), "second");
    mine.stamp(after);
  }
  EXPECT_NE(after.foreign, before.foreign);
  EXPECT_EQ(after.own, before.own);

  createText(mine, "mine");
  mine.flush();
  mine.stamp(before);
  EXPECT_EQ(before.foreign, after.foreign) << "its own commit counted as foreign";
  EXPECT_NE(before.own, after.own);

  theirs.free(offset);
  theirs.flush();
  EXPECT_EQ(mine.size(offset), 0u);
  EXPECT_EQ(mine.records(), 1u);
}

// Catches: a store lock that excludes only the threads of one client, so that two clients
// would give out the same offsets or read each other's half-made changes.
TEST_F(PostgresDataStoreTest, StoreLockExcludesClientsOnOtherThreads) {
  PostgresDataStore mine(uri()), theirs(uri());
  Lock held(mine.lock());
  unsigned first = createText(mine, "mine");
  std::atomic<bool> done{false};
  unsigned second = IDataStore::BADOFF;
  std::string seen;
  std::thread other([&] {
    Lock lock(theirs.lock());
    seen = readAll(theirs, first);
    second = createText(theirs, "theirs");
    done = true;
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  EXPECT_FALSE(done.load()) << "the other client got the lock while it was held";
  held.reset();
  other.join();
  EXPECT_EQ(seen, "mine");
  EXPECT_NE(second, first);
}

// Catches: two clients that make the tables or the same store at once failing on each
// other's half-made work, or making two stores of one name.
TEST_F(PostgresDataStoreTest, ClientsOnSeveralThreadsMakeTheFirstStoresAtOnce) {
  scratchPostgres().sql("CREATE DATABASE fresh");
  std::vector<std::thread> clients;
  std::atomic<int> failures{0};
  for (int i = 0; i < 6; ++i) {
    clients.emplace_back([&, i] {
      try {
        PostgresDataStore store(scratchPostgres().uri(i % 2 == 0 ? "even" : "odd", "fresh"));
        createText(store, std::to_string(i));
      } catch (const Exception& error) {
        ADD_FAILURE() << error.what();
        ++failures;
      }
    });
  }
  for (std::thread& client : clients)
    client.join();
  EXPECT_EQ(failures.load(), 0);
  EXPECT_EQ(
      scratchPostgres().sql("SELECT name, live_records FROM kpl_stores ORDER BY name", "fresh"),
      "even|3\nodd|3\n");
}

// Catches: the store parameter reaching libpq or naming another store, a name that smuggles
// SQL out of its parameter, a password in a message, and a server that is not there failing
// otherwise than with one line.
TEST_F(PostgresDataStoreTest, AddressesNameStoresAndKeepPasswordsOutOfMessages) {
  const std::string hostile = "it's\"; DROP TABLE kpl_records; --";
  {
    PostgresDataStore plain(uri()), odd(scratchPostgres().uri(hostile));
    createText(plain, "plain");
    createText(odd, "odd");
  }
  std::string spelling = scratchPostgres().uri(hostile);
  spelling.replace(0, std::string("postgresql").size(), "postgres");
  PostgresDataStore again(spelling, false);
  EXPECT_EQ(readAll(again, 0), "odd");
  EXPECT_EQ(again.records(), 1u);
  EXPECT_EQ(readAll(*std::make_unique<PostgresDataStore>(uri(), false), 0), "plain");

  EXPECT_TRUE(contains(message([] { PostgresDataStore("mysql://host/db"); }), "postgresql://"));
  EXPECT_TRUE(contains(message([&] { PostgresDataStore(uri() + "&store=twice"); }), "one store"));
  EXPECT_TRUE(contains(message([&] { PostgresDataStore(uri() + "%00"); }), "one store"));
  EXPECT_TRUE(contains(message([&] { PostgresDataStore(uri() + "x", false); }), "no such store"));
  TemporaryDirectory nobody;
  for (std::string address : {"postgresql://kpl:s3cr%65t@/db?host=" + nobody.directory(),
                              "postgresql:///db?password=s3cret&host=" + nobody.directory(),
                              std::string("postgresql://kpl:s3cret@[::1")}) {
    std::string error = message([&] { PostgresDataStore store(address); });
    EXPECT_TRUE(contains(error, "connect: ")) << error;
    EXPECT_FALSE(contains(error, "s3cret") || contains(error, "s3cr%65t")) << error;
    EXPECT_FALSE(contains(error, "\n")) << error;
  }
}

// Catches: changes begun under a lock that the server dropped with the connection being
// committed on a new connection anyway (over another client's work), their loss going
// unreported, and a client that stays broken once the server is back.
TEST_F(PostgresDataStoreTest, ALostConnectionDropsPendingChangesAndReconnects) {
  PostgresDataStore store(uri());
  createText(store, "kept");
  store.flush();
  {
    Lock lock(store.lock());
    createText(store, "pending");
    scratchPostgres().stop(true);
    scratchPostgres().start();
  }
  EXPECT_TRUE(contains(message([&] { store.flush(); }), "connection to the server was lost"));
  EXPECT_EQ(store.records(), 1u);
  EXPECT_EQ(createText(store, "again"), 1u);
  store.flush();
  EXPECT_EQ(readAll(*std::make_unique<PostgresDataStore>(uri()), 1), "again");
}

// Catches: a damaged row or free list read as a state, which would give out offsets that
// hold records or answer sizes from nowhere, instead of being refused.
TEST_F(PostgresDataStoreTest, RefusesADamagedStateOrFreeList) {
  scratchPostgres().sql("CREATE DATABASE damaged");
  PostgresDataStore store(scratchPostgres().uri("store", "damaged"));
  createText(store, "a");
  createText(store, "b");
  store.free(0);
  store.flush();
  scratchPostgres().sql("DELETE FROM kpl_free", "damaged");
  EXPECT_TRUE(contains(message([&] { createText(store, "c"); }), "damaged store: free list"));
  scratchPostgres().sql("UPDATE kpl_stores SET live_records = next_offset + 1", "damaged");
  EXPECT_TRUE(contains(message([&] { store.used(); }), "damaged store: "));
}

}  // namespace
}  // namespace kestrine::platform::core::storage::datastore
