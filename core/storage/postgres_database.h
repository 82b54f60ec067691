#ifndef KPL_CORE_STORAGE_POSTGRES_DATABASE_H_
#define KPL_CORE_STORAGE_POSTGRES_DATABASE_H_

#include <string>
#include <vector>

#include "core/storage/pending_transaction.h"
#include "core/storage/postgres_address.h"
#include "core/storage/postgres_connection.h"
#include "core/storage/record_cache.h"
#include "core/storage/store_state.h"

namespace kestrine::platform::core::storage::datastore {

// A store's committed state as the database holds it, with the number of its commits.
struct SharedState {
  StoreState state;
  unsigned long long commits = 0;
};

// One named store in a PostgreSQL database, through one connection: its tables and row, its
// lock, reads of its records and free stack, and commits. The SQL is all here. Every method
// throws core::Exception on failure. Not thread-safe.
class PostgresDatabase final : public CommittedStore {
 public:
  // Connects and finds the store. When it is missing and `create`, makes it (and the tables,
  // in a database that has none yet); otherwise throws "<address>: no such store".
  PostgresDatabase(const PostgresAddress& address, bool create);

  const std::string& name() const override { return connection_.name(); }

  // False once the connection has failed: the server has then dropped the store's lock.
  bool connected() const { return !connection_.broken(); }

  // The newest committed state. Connects again first if the connection was lost.
  SharedState state();

  // Takes the store's lock, waiting while another client holds it, and answers the newest
  // committed state. Connects again first if the connection was lost. The lock belongs to
  // the session: the server drops it when the connection ends, however the client ended.
  // The free stack is read afresh under each holding of the lock.
  SharedState lock();
  void unlock();

  // The records at offsets first .. last.
  RecordCache::Records records(unsigned first, unsigned last);

  // Reads the committed free stack some hundred positions at a time, downwards from the
  // one asked for, which is the order in which a transaction pops it.
  unsigned freeOffset(unsigned position) override;

  // Writes `transaction` in one database transaction and answers the store's number of
  // commits after it; with `unlock`, releases the lock in the same round trip. On failure
  // the database keeps its last committed state and, unless the connection was lost, this
  // client keeps the lock.
  unsigned long long commit(const PendingTransaction& transaction, bool unlock);

 private:
  int find(const std::string& store);
  void make(const std::string& store);
  void tidy(const PostgresStatement& statement);
  SharedState stateIn(const PostgresResult& answer) const;
  PostgresParameters lockKey() const;
  [[noreturn]] void damaged(const std::string& what) const;

  PostgresConnection connection_;
  int id_ = 0;
  // The free stack from position freeWindowStart_ up, as last read.
  std::vector<unsigned> freeWindow_;
  unsigned freeWindowStart_ = 0;
};

}  // namespace kestrine::platform::core::storage::datastore

#endif  // KPL_CORE_STORAGE_POSTGRES_DATABASE_H_
