#ifndef KPL_CORE_STORAGE_DATASTORE_TEST_SUPPORT_H_
#define KPL_CORE_STORAGE_DATASTORE_TEST_SUPPORT_H_

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>
#include <system_error>

#include "core/storage/scratch_postgres_server.h"
#include "kestrine/platform/core/exception.h"
#include "kestrine/platform/core/lmdb_datastore.h"

namespace kestrine::platform::core::storage::datastore {

// The whole record at `offset`; "" when it holds none.
inline std::string readAll(IDataStore& store, unsigned offset) {
  std::string bytes(store.size(offset), '\0');
  EXPECT_EQ(store.read(offset, bytes.data(), 0xFFFFFFFF), bytes.size());
  return bytes;
}

inline unsigned createText(IDataStore& store, const std::string& text) {
  return store.create(text.data(), static_cast<unsigned>(text.size()));
}

// What `action` threw as core::Exception, or "(no exception)".
inline std::string message(const std::function<void()>& action) {
  try {
    action();
  } catch (const Exception& error) {
    return error.what();
  }
  return "(no exception)";
}

// A fresh directory under the system's temporary directory, removed with its contents.
class TemporaryDirectory {
 public:
  TemporaryDirectory() {
    std::string pattern = (std::filesystem::temp_directory_path() / "kpl-test-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp " + pattern);
    directory_ = pattern;
  }
  ~TemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(directory_, ignored);
  }
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  const std::string& directory() const { return directory_; }

 private:
  std::string directory_;
};

// An LmdbDataStore on a new file in a directory of its own. Bases are destroyed in reverse
// order, so the store has closed its file by the time the directory is removed.
class ScratchLmdbDataStore : private TemporaryDirectory, public LmdbDataStore {
 public:
  ScratchLmdbDataStore() : LmdbDataStore(directory() + "/store") {}
};

// The process's scratch PostgreSQL server, started at the first call. A server that cannot
// start throws from every call, so that each test that needs it fails saying why.
inline ScratchPostgresServer& scratchPostgres() {
  static ScratchPostgresServer server;
  return server;
}

// A store name of the running test's own, for a store in the scratch server's database.
inline std::string testStoreName() {
  const ::testing::TestInfo* test = ::testing::UnitTest::GetInstance()->current_test_info();
  return std::string(test->test_suite_name()) + "." + test->name();
}

}  // namespace kestrine::platform::core::storage::datastore

#endif  // KPL_CORE_STORAGE_DATASTORE_TEST_SUPPORT_H_
