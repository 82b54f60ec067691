#ifndef KPL_DATA_TREE_SET_H_
#define KPL_DATA_TREE_SET_H_

#include <cstddef>
#include <memory>
#include <vector>

#include <sparsehash/dense_hash_set>

#include "data/record/base.h"
#include "data/record/offsets.h"
#include "data/tree/index_cache.h"
#include "data/tree/item.h"

namespace kestrine::platform::data::metadata {
class ISchema;
}  // namespace kestrine::platform::data::metadata

namespace kestrine::platform::data::Metadata {

class ItemReader;

// An item with named children: the root, every container and every table. The children
// live in the store as a Record::Offsets list whose offset stands in the set's children
// field; in memory an index maps each child's name to its offset. Names are unique within a
// set: add and rename refuse a name that is taken. Name look-ups never touch the store.
//
// The list may hold offsets the index does not name (records of other kinds, or a later
// child whose name an earlier one already had when the index was built): at() sees them,
// items() does not. The order of children is the list's; the index has none.
//
// Which index a set uses depends on where it is used. Inside the library's lock (an
// IndexScope, taken by Metadata::Lock) every set object of the store works on the store's
// shared, current index (IndexCache): a change made through one object is seen by the next
// call through any other, and opening a set costs nothing more than its own record. Outside,
// a set object works on its own index, built when it was opened, and sees only its own
// changes until update(). Refusals change nothing.
class Set : public Item {
 public:
  Set();
  ~Set() override;

  // True when every indexed child is unreferenced (an empty set is).
  bool unreferenced() override;
  Set* asSet() override { return this; }

  // Builds the index from the children list (outside a scope; inside, the shared index is
  // built when first needed).
  void populate();
  // Number of indexed names.
  unsigned items() const;
  // Entry i of the children list, read from the store; BADOFF past its end or without a list.
  unsigned at(unsigned i) const;
  // Entries 0 to items() - 1, as at() gives them, into `out`, reading the list once.
  void entries(std::vector<unsigned>& out) const;

  // The same entries of the set record at `offset`, without opening it (no reference count
  // is taken), one at a time, for a walk that reads each child anyway. The shared index
  // counts them when the scope's cache holds it. Otherwise no index is built: while every
  // entry so far is a child with a name of its own, the next one is among them for certain,
  // and the children are counted from their names, which reads every one of them, only when
  // one is not. A walk over a whole tree would otherwise build the index of every set, only
  // to keep few of them.
  class Lister {
   public:
    Lister() = default;
    Lister(Lister&&) noexcept = default;
    Lister& operator=(Lister&&) noexcept = default;
    ~Lister();

    // Starts on the set record at `offset`.
    void start(IDataStore* store, unsigned offset);
    // The next entry into `entry`; false after the last. Until the entries are counted, an
    // entry is only offered: listed() must say whether it is one before next() is called
    // again.
    bool next(unsigned& entry);
    // Whether the entry next() gave last is listed, from `reader`, which read its record as
    // `kind` (kNoRecord when the record did not read).
    bool listed(Record::tType kind, const ItemReader& reader);

   private:
    // Takes in the hash of a name; false when it came before.
    bool distinct(std::size_t hash);

    IDataStore* store_ = nullptr;
    unsigned children_ = IDataStore::BADOFF;  // the children list
    // The list, read in place where the store allows; made at the first start.
    std::unique_ptr<Record::Offsets> list_;
    std::size_t next_ = 0;
    // Once counted, the number of entries listed.
    std::size_t listed_ = 0;
    bool counted_ = false;
    // The hashes of the names so far, while not counted: few are searched, many indexed.
    std::vector<std::size_t> hashes_;
    std::unique_ptr<google::dense_hash_set<std::size_t>> hashed_;
  };
  // The child indexed under exactly `name`, or BADOFF.
  unsigned find(const wchar_t* name) const;
  // A child by dotted path: the first name by find(), the rest by a finder from there.
  unsigned lookup(const wchar_t* path) const;
  // Makes the existing primitive, table or container at `offset` a child (setting its
  // parent field); false for another kind or a name that is taken. Reference counts are
  // not touched.
  bool add(unsigned offset);
  // The same for a child whose kind was checked and whose record holds `name`, which the
  // caller knows already (the tag of the item it just made).
  bool add(unsigned offset, const wchar_t* name);
  // Clears and frees the child `name` and its subtree; false when it is unknown,
  // name-locked, or still referenced (its or its subtree's records open elsewhere).
  bool remove(const wchar_t* name);
  // Renames a child; false when `name` is taken, `old` unknown, or the child name-locked.
  // The name array becomes 8k + 8 bytes long for k characters (name, terminator, and as
  // many bytes of padding): readers stop at the terminator.
  bool rename(const wchar_t* old, const wchar_t* name);
  // Marks the entity at `offset` and its whole subtree hidden and name-locked (any offset
  // of the set's store).
  void hide(unsigned offset);
  // Takes over a member of another tree: when no child has its name, a copy is cloned into
  // this set's store, added and hidden.
  void inherit(IDataStore* source, unsigned offset);
  // Copies the children into `target` as children of `parent` (an offset there); the new
  // children list's offset, or BADOFF when the set has no list.
  unsigned duplicate(IDataStore* target, unsigned parent) const;
  using Item::duplicate;
  // Rebuilds the index from the store.
  void update();
  // Clears and frees every indexed child and the children list; the set's own children
  // field is left for the caller's clear() to rewrite.
  void cleanup();

  // The children list's offset; BADOFF while the set has no child.
  unsigned children() const;

 protected:
  // The shared halves of the concrete classes' clear(), clone() and inherit().
  //
  // Frees the localized names and every child, and writes BADOFF into the record's children
  // and locale fields.
  void clearSet();
  // Copies the record into `target` with its localized names and children, reference
  // count 0, and returns the copy's offset. Other offset fields are copied as they are.
  unsigned cloneSet(IDataStore* target);
  // Takes over the members of every layout of the schema's chain, in order, appending each
  // layout's path to `base` (";"-joined), and stores `base` in the array at `baseSelector`.
  // With `lockSource` the defining store's lock is held while its members are copied. A
  // schema that is not a layout chain has nothing to inherit and changes nothing.
  void inheritChain(metadata::ISchema* schema, WideString& base, unsigned baseSelector,
                    bool lockSource);

  // The children field of the record as loaded; set by the derived constructors.
  unsigned children_;

 private:
  // The index this call works on: the store's shared one inside a scope, else the object's.
  SetIndex& state() const;
  SetIndex& ownState() const;
  // Fills `index` from the children list that `index.children` names.
  static void fill(IDataStore* store, SetIndex& index);
  // The number of names an index of `list` would hold, counted without building one.
  static std::size_t indexable(IDataStore* store, const Record::Offsets& list);
  // The first entries of the children list, as many as `index` names.
  static void listed(IDataStore* store, const SetIndex& index, std::vector<unsigned>& out);
  // Frees a child's record, and forgets the shared index of a set that was there.
  void release(unsigned offset);

  mutable std::unique_ptr<SetIndex> own_;
  bool populated_ = false;  // populate() ran: the own index holds the children
  mutable IndexCache::Entry* shared_ = nullptr;
  mutable unsigned long long serial_ = 0;  // the scope in which shared_ was pinned
};

}  // namespace kestrine::platform::data::Metadata

#endif  // KPL_DATA_TREE_SET_H_
