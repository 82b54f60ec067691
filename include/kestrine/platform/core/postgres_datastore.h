#ifndef KESTRINE_PLATFORM_CORE_POSTGRES_DATASTORE_H_
#define KESTRINE_PLATFORM_CORE_POSTGRES_DATASTORE_H_

#include <string>

#include "kestrine/platform/core/export.h"
#include "kestrine/platform/core/transactional_datastore.h"

namespace kestrine::platform::core::storage::datastore {

// Records kept in a PostgreSQL database, shared by every client that opens the same store:
// other processes, on this machine or others. For the same sequence of operations it gives
// the same answers as MemoryDataStore and LmdbDataStore (see TransactionalDataStore).
//
// Address. A libpq connection URI, postgresql://[user[:password]@][host][:port][/database]
// [?parameter=value&...] (or postgres://), whose parameter `store` names the store (percent-
// encoded; "default" when absent); several stores share one database. Whatever the URI does
// not say comes the usual libpq ways: PGHOST, PGUSER, PGPASSWORD, ~/.pgpass and the rest.
// Messages show the URI without its password.
//
// Tables. The first client to open a store of a database makes them; two clients that make
// the same store or the first tables at once take turns under a transaction lock, and the
// second finds the work done. The role needs CREATE on the schema only for that.
//
//   CREATE TABLE kpl_stores (id integer GENERATED ALWAYS AS IDENTITY PRIMARY KEY,
//     name text NOT NULL UNIQUE, next_offset bigint NOT NULL DEFAULT 0,
//     free_count bigint NOT NULL DEFAULT 0, live_records bigint NOT NULL DEFAULT 0,
//     live_bytes bigint NOT NULL DEFAULT 0, version bigint NOT NULL DEFAULT 0,
//     commits bigint NOT NULL DEFAULT 0);
//   CREATE TABLE kpl_records (store integer NOT NULL, record_offset bigint NOT NULL,
//     bytes bytea NOT NULL, PRIMARY KEY (store, record_offset));
//   CREATE TABLE kpl_free (store integer NOT NULL, stack_position bigint NOT NULL,
//     freed_offset bigint NOT NULL, PRIMARY KEY (store, stack_position));
//
// kpl_free is the stack of freed offsets, bottom at position 0. The primary keys are the only
// indexes: everything is looked up by store and offset or position. The records refer to
// their store without a foreign key, whose check per row would slow bulk loads.
//
// The store lock. lock() takes a PostgreSQL advisory lock of the store (a session lock keyed
// by the store's id) besides the process's own re-entrant mutex, so it excludes every other
// client on every machine until the outermost handle is released; it throws core::Exception
// when the server cannot be reached. While it is held, nobody else commits: what the holder
// reads is one committed state, the newest when it took the lock. A client that ends in any
// way, killed included, loses the lock with its connection.
//
// Transactions. Changes gather in memory, shared by all threads of the process, and reach
// the database in one database transaction (all of it or none of it, also when the client
// or the server is killed) at the release of the outermost store lock, at complete(), at
// flush() and when the store is destroyed. A commit costs a handful of round trips whatever
// its size: the records go by one binary COPY. Changes made without the store lock (a
// document import) take the advisory lock at the first change and keep it until one of
// those points, so that they too start from the newest state and can never interleave with
// another client's; such a transaction waits while another client holds the lock.
//
// Reads and the cache. Committed records that this client read or wrote stay in memory
// (within a bound) and are read a few hundred offsets at a time, one round trip each. The
// store's row counts its commits; whenever this client takes the advisory lock, or reads
// without holding it, it compares the count with the one its cache belongs to, and drops the
// cache when another client has committed meanwhile, moving stamp()'s `foreign`. Reads made
// without the lock and with nothing pending thus cost a round trip each, and see the newest
// committed state, as with a store file; under the lock, cached records cost none.
//
// Failures. A server that is down, refuses, or does not answer a connection within 10
// seconds (connect_timeout or PGCONNECT_TIMEOUT say otherwise) makes the operation throw
// core::Exception with one line. A failed commit keeps the changes pending for the next
// commit point to retry, as the store file does; but when the connection is lost, the
// server drops the lock, and with it the base those changes were made on: they are dropped
// (own moves), the next flush() or complete() throws saying so, committing nothing, and the
// next operation connects again.
//
// Two objects on one store, in one process or not, are two clients: one waits for the
// other's lock. Every operation is safe from any thread, with or without the store lock;
// the connection serves one operation at a time.
class KPL_CORE_API PostgresDataStore : public TransactionalDataStore {
 public:
  // Connects to the database of `uri` and opens its store, creating it (and the tables) if
  // it does not exist and `create`. Throws core::Exception naming the address (without its
  // password) and the cause: a malformed address, a server that cannot be reached or
  // refuses, a store that does not exist and !create ("...: no such store").
  explicit PostgresDataStore(const std::string& uri, bool create = true);

  // The address as messages show it: the URI given, without its password.
  const std::string& address() const;
};

}  // namespace kestrine::platform::core::storage::datastore

#endif  // KESTRINE_PLATFORM_CORE_POSTGRES_DATASTORE_H_
