#ifndef KPL_TOOLS_KMETA_SESSION_H_
#define KPL_TOOLS_KMETA_SESSION_H_

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include <kestrine/platform/core.h>
#include <kestrine/platform/data.h>

#include "options.h"

namespace kmeta {

using kestrine::platform::core::storage::datastore::IDataStore;

// Writes each parse report to a stream (standard error unless told), one line each, as
// UTF-8.
class LineReporter : public kestrine::platform::data::format::xml::IXMLFrontEnd::IErrorReporter {
 public:
  explicit LineReporter(std::FILE* out = stderr) : out_(out) {}
  void report(kestrine::platform::core::string::WideString message) override;

 private:
  std::FILE* out_;
};

// What one command works on: the store, the schema documents (each parsed into an in-memory
// store of its own and pushed to one locator) and the reporter.
//
// A command is one transaction. The store's lock is held from open() to commit() or
// abandon(). A command that changes the store makes its first change before anything is
// read: a file store then bases the transaction on its newest committed state (a database
// store does so when its lock is taken). That matters because even reading writes: logic
// objects keep reference counts in their records, and a transaction begun after a read could
// write back a record from an older state. A command that only reads opens a store file
// read-only instead: it reads one committed state, never writes the file and never waits for
// a writer.
class Session {
 public:
  Session() = default;
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  enum class Use { kRead, kImport };

  // Parses the schema documents of `options` within its limits, then opens `store`:
  // ":memory:" for a fresh memory store, a postgresql:// or postgres:// address for a
  // database store, else a store file. To read, a persistent store must exist; an import
  // creates it. Throws Failure, or core::Exception from the store, naming what could not be
  // opened or read.
  void open(const Options& options, const std::string& store, Use use);

  // The store; null before open().
  IDataStore* store() const { return store_.get(); }
  // The store when it is a file or a database store; null otherwise.
  kestrine::platform::core::storage::datastore::TransactionalDataStore* persistent() const {
    return persistent_;
  }
  // The locator over the schema documents; null when none was given.
  kestrine::platform::data::metadata::ISchemaLocator* locator() const;
  LineReporter* reporter() { return &reporter_; }

  // Live records and bytes used (see IDataStore::used) of the store.
  unsigned records() const;

  // Commits what the command did and releases the lock; throws core::Exception when a
  // persistent store cannot commit (it then stays as it was).
  void commit();
  // Drops what the command did: a persistent store stays as it was, and a store file that
  // open() created is removed again. Never throws.
  void abandon() noexcept;

 private:
  // Schema stores first: the locator refers to them and must go before they do.
  std::vector<std::unique_ptr<IDataStore>> schemaStores_;
  kestrine::platform::core::memory::SharedPtr<kestrine::platform::data::metadata::ISchemaLocator>
      locator_;
  LineReporter reporter_;
  std::unique_ptr<IDataStore> store_;
  kestrine::platform::core::storage::datastore::TransactionalDataStore* persistent_ = nullptr;
  // The path of a store file that open() created; empty otherwise.
  std::string created_;
  std::unique_ptr<IDataStore::ILock> lock_;
};

}  // namespace kmeta

#endif  // KPL_TOOLS_KMETA_SESSION_H_
