#ifndef KPL_DATA_API_CURSOR_H_
#define KPL_DATA_API_CURSOR_H_

#include "data/record/base.h"
#include "kestrine/platform/core/datastore.h"

namespace kestrine::platform::data::Api {

using core::storage::datastore::IDataStore;

// The walk that every enumeration filter makes: a position over a sequence of child offsets
// that stops only on children whose record kind the filter accepts. The derived filter says
// where the sequence comes from (a copy taken at creation, or a table's live list) and how
// far forward() may go.
//
// count is the length of the sequence when the filter was made; next() and prev() guard on
// it. A failed next() leaves the cursor past the end, a failed prev() leaves it where it
// stood. Each move takes the store lock for its own length; nothing is held between calls.
class Cursor {
 public:
  Cursor(const Cursor&) = delete;
  Cursor& operator=(const Cursor&) = delete;

  // True when the cursor stands on a position below count.
  bool valid() const { return count_ != 0 && position_ < count_; }
  // From the position on, the first accepted child: its position, or BADOFF (standing past
  // the end) when there is none.
  unsigned forward();
  // From the position down, the first accepted child: its position, or BADOFF (standing on
  // 0) when there is none.
  unsigned backward();
  bool next();
  bool prev();

 protected:
  // `kinds` holds bit (1 << kind) for every accepted record kind.
  Cursor(IDataStore* store, unsigned kinds) : store_(store), kinds_(kinds) {}
  virtual ~Cursor() = default;

  // Takes the count and stands on the first accepted child. The derived constructor calls it
  // once the sequence is ready; its caller holds the store lock.
  void start(unsigned count);
  // The offset of the child under the cursor; BADOFF when the cursor is not valid. The caller
  // holds the store lock.
  unsigned offset() const { return valid() ? child(position_) : IDataStore::BADOFF; }
  IDataStore* store() const { return store_; }

  // The child offset at `position`, or BADOFF.
  virtual unsigned child(unsigned position) const = 0;
  // Where forward() stops.
  virtual unsigned end() const = 0;

 private:
  bool accepted(unsigned position) const;

  IDataStore* store_;
  unsigned kinds_;
  unsigned position_ = 0;
  unsigned count_ = 0;
};

// Bit masks of accepted record kinds.
constexpr unsigned kContainers = 1u << Record::kContainer;
constexpr unsigned kProperties = (1u << Record::kPrimitive) | (1u << Record::kTable);

}  // namespace kestrine::platform::data::Api

#endif  // KPL_DATA_API_CURSOR_H_
