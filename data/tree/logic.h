#ifndef KPL_DATA_TREE_LOGIC_H_
#define KPL_DATA_TREE_LOGIC_H_

#include "data/record/base.h"
#include "data/tree/set.h"

namespace kestrine::platform::data::Design {

using Metadata::IDataStore;

// Owns the logic object of a record whose kind is known only from its first byte: a
// Metadata::Root, Design::Table, Structural::Container or Design::Primitive. This is the one
// place that maps a record kind to its logic class; sets use it to check, clear, copy and
// inherit children, the finder to walk down a path.
//
// The object holds a reference count on its record while open, so it must be closed before
// the record is freed.
class Logic {
 public:
  // Opens the record at `offset`; tables and containers index their children unless
  // `shallow` (a root always does). Nothing is opened for a list, a locale table or an
  // offset that holds no record.
  Logic(IDataStore* store, unsigned offset, bool shallow);
  // Closes the object; a store failure passes as from the object's own destructor.
  ~Logic() noexcept(false);
  Logic(const Logic&) = delete;
  Logic& operator=(const Logic&) = delete;

  explicit operator bool() const { return item_ != nullptr; }
  Metadata::Item* operator->() const { return item_; }
  Record::tType kind() const { return kind_; }
  // The object as a set (root, table or container); null for a primitive or nothing.
  Metadata::Set* set() const;
  // Closes the object now.
  void close();

 private:
  Record::tType kind_;
  Metadata::Item* item_;
};

}  // namespace kestrine::platform::data::Design

#endif  // KPL_DATA_TREE_LOGIC_H_
