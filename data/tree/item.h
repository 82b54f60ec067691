#ifndef KPL_DATA_TREE_ITEM_H_
#define KPL_DATA_TREE_ITEM_H_

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "data/tree/name_index.h"
#include "kestrine/platform/core/datastore.h"
#include "kestrine/platform/core/string.h"

namespace kestrine::platform::data::Record {
class Locale;
}  // namespace kestrine::platform::data::Record

namespace kestrine::platform::data::Design {
class Primitive;
}  // namespace kestrine::platform::data::Design

namespace kestrine::platform::data::Metadata {

class Set;

using core::storage::datastore::IDataStore;
using core::string::WideString;

// One entry of an item's locale table, as views into the table's bytes; each is followed by
// its terminator.
struct tLocalized {
  std::wstring_view locale;
  std::wstring_view text;
};

// The entries of a locale table in list order, into `out`. The table holds zero-terminated
// strings, locale and text in turn; a locale left without a text at the end is dropped.
void localizedNames(const Record::Locale& table, std::vector<tLocalized>& out);

// The in-memory handle of one entity record (root, container, primitive or table) and the
// base of every metadata object. It keeps the store, the record's offset, snapshots of the
// parent, locale table and name taken at load, and the localized names, which are loaded
// lazily, changed in memory and written back once, when the item is destroyed.
//
// An item belongs to one thread; callers serialise access to the store with Metadata::Lock.
// Offsets are not validated: they go to the store as they are, and the store's exceptions
// pass through.
class Item {
 public:
  // One localized name; owned by the item, allocated from the pooled heap.
  struct tName {
    WideString locale;
    WideString text;
    static void* operator new(std::size_t size);
    static void operator delete(void* block, std::size_t size);
  };

  Item();
  // Writes the localized names back when they were changed. A store failure escapes only
  // when no other exception is already unwinding the stack (then it is dropped, so that the
  // first failure reaches the caller instead of terminating the process).
  virtual ~Item() noexcept(false);
  Item(const Item&) = delete;
  Item& operator=(const Item&) = delete;

  // True when nothing but this object holds the item's record (for a set: nor any record
  // of its subtree), so that it may be freed.
  virtual bool unreferenced() = 0;
  // Empties the item's content and localized names, keeping its record.
  virtual void clear() = 0;
  // Copies the item's records into `target`; the copy's offset, or BADOFF for a kind that
  // cannot be copied.
  virtual unsigned clone(IDataStore* target) = 0;
  // The item as a set of children, or null: what a dynamic_cast tells, for the importer,
  // which asks for every element it adopts.
  virtual Set* asSet() { return nullptr; }
  // The item as a primitive, or null, likewise: the importer asks twice for every value.
  virtual Design::Primitive* asPrimitive() { return nullptr; }

  IDataStore* store() const { return store_; }
  unsigned offset() const { return offset_; }
  unsigned parent() const { return parent_; }
  // The set at `parent` has just added the item, whose record names it already; the item's
  // own copy follows.
  void adopted(unsigned parent) { parent_ = parent; }
  // The item's own name, zero-terminated.
  const wchar_t* tag() const { return name_.string(); }

  // The flags byte of the record (0x01 optional, 0x02 name locked, 0x04 hidden, 0x08 URI),
  // read from the store; on/off set or clear bits and write the record.
  std::uint8_t flags() const;
  void on(std::uint8_t bits);
  void off(std::uint8_t bits);
  // Clears the hidden bit of the item and of its hidden ancestors up to the first visible
  // one above the item; the root is never changed and the name-locked bit stays.
  void show();
  // The names from below the root down to the item joined by "." (not escaped). The parent
  // chain must lead through entities to a root.
  void path(WideString& out) const;
  // A copy of the item's locale table in `target`, or BADOFF when it has none.
  unsigned duplicate(IDataStore* target) const;
  // Frees the locale table and forgets the names in memory (the record's locale field is
  // left for the caller's clear() to rewrite).
  void cleanup();

  // Localized names. The queries look at the store first: names added in memory to an item
  // that has no locale table yet are seen only after the item was destroyed (which writes
  // them) and loaded again.
  //
  // The position of `locale`, or 0xFFFFFFFF when absent.
  unsigned localize(const wchar_t* locale);
  // Sets the text for `locale` (adding it when absent), or removes it when `text` is null;
  // returns the position concerned. After a removal the positions of later entries stay one
  // too high until the item is loaded again.
  unsigned localize(const wchar_t* text, const wchar_t* locale);
  // Number of indexed locales.
  unsigned locales();
  // Entry i of the list: its text and its locale; both empty past the end of the list or
  // when there is no locale table.
  void locale(unsigned i, WideString& text, WideString& locale);

 protected:
  // Drops the reference count that a logic object holds on its record; their destructors
  // call it. A store failure is dropped while another exception unwinds the stack.
  void unref();

  // Set by the derived constructors from the loaded or created record.
  IDataStore* store_;
  unsigned offset_;
  unsigned parent_;
  unsigned locale_;
  WideString name_;

 private:
  // A locale's entry: its position as it was when indexed (stale after a removal, as the
  // queries report it) and the entry itself, so that a stale position never picks another.
  struct tSlot {
    unsigned position;
    tName* name;
  };

  void setupLocales();
  void append(tName* name);
  void writeBack();
  void dropNames();
  // The locale index, made on first use: most items have no localized names, and an index
  // holds a table of 32 buckets however few names it has, which for the items a deep
  // parse keeps open adds up.
  NameIndex<tSlot>& index();
  bool unindexed() const { return !index_ || index_->empty(); }

  std::unique_ptr<NameIndex<tSlot>> index_;
  std::vector<tName*> names_;
  bool modified_;
};

}  // namespace kestrine::platform::data::Metadata

#endif  // KPL_DATA_TREE_ITEM_H_
