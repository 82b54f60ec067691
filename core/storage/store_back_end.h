#ifndef KPL_CORE_STORAGE_STORE_BACK_END_H_
#define KPL_CORE_STORAGE_STORE_BACK_END_H_

#include <optional>

#include "core/storage/pending_transaction.h"
#include "core/storage/store_state.h"

namespace kestrine::platform::core::storage::datastore {

// What a TransactionalDataStore asks of the place that keeps its committed state: an LMDB
// file, or a store in a PostgreSQL database. The shared part keeps the pending transaction,
// the store lock and the bookkeeping; the back end answers how the committed state is read,
// how this process gets its turn to change it, and how a commit reaches it.
//
// Holding. While the store lock is held or a transaction is pending, the store is `held`:
// the back end then keeps whatever fixes the committed state that this process reads (a
// file's read view, a database's advisory lock), until letGo(). A pending transaction's base
// is that state, the newest one when its change began.
//
// Every method but awaitTurn() is called with the store's mutex held, never concurrently.
// Each may throw core::Exception; the shared part then puts its own state right.
class StoreBackEnd {
 public:
  virtual ~StoreBackEnd() = default;

  // -- Reading the committed state ------------------------------------------------------------

  // The committed free stack, and the store's name for messages.
  virtual CommittedStore& committed() = 0;

  // Before an operation reads: makes the committed state it sees current. That is the newest
  // one, unless the store is `held` and the back end already keeps a state fixed for it.
  virtual void startReading(bool held) = 0;

  // The committed record at `offset`; absent when it holds none. After startReading().
  virtual std::optional<RecordBytes> record(unsigned offset) = 0;
  virtual StoreState state() = 0;

  // How often what this process reads has come to include commits made elsewhere.
  virtual unsigned long long foreignChanges() const = 0;

  // -- Holding --------------------------------------------------------------------------------

  // The store lock has just been taken. A back end whose lock holder must see no commits of
  // others takes its hold here; by default nothing is held until the first read.
  virtual void lockStore() {}

  // The store is no longer held (see above): whatever keeps its state fixed may go. Called
  // after every operation that leaves the store unheld, so it must be cheap when nothing is
  // held.
  virtual void letGo() = 0;

  // -- Changing -------------------------------------------------------------------------------

  // Blocks until this process may begin a change, without the store's mutex, so that reads
  // go on meanwhile; one thread of the process waits and the others wait for it. By default
  // the turn is taken in startChange(), under the mutex.
  virtual void awaitTurn() {}

  // Begins a change after awaitTurn(): holds the newest committed state and answers it, the
  // new transaction's base.
  virtual StoreState startChange() = 0;

  // Writes `transaction` atomically, and lets the next reads see it; `keepHolding` when the
  // store lock stays held after it. On failure the committed state is as it was, and the
  // transaction stays pending unless lostHold() says that its base is gone.
  virtual void commit(PendingTransaction& transaction, bool keepHolding) = 0;

  // The transaction has ended (committed, abandoned, or not begun after all): the turn that
  // awaitTurn() took goes back.
  virtual void endChange() {}

  // -- Failures -------------------------------------------------------------------------------

  // After a failed operation: true when the failure cost the back end what it held, and so a
  // pending transaction its base, which the shared part then drops; `changesDropped` when
  // that transaction had changed anything. The back end then holds nothing. By default what
  // is held survives every failure.
  virtual bool lostHold(bool /*changesDropped*/) { return false; }

  // Throws core::Exception, once, when changes went with a lost hold since the last call;
  // flush() calls it before it commits.
  virtual void reportLostChanges() {}
};

}  // namespace kestrine::platform::core::storage::datastore

#endif  // KPL_CORE_STORAGE_STORE_BACK_END_H_
