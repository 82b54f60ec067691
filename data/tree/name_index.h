#ifndef KPL_DATA_TREE_NAME_INDEX_H_
#define KPL_DATA_TREE_NAME_INDEX_H_

#include <cstddef>
#include <cwchar>

#include <sparsehash/dense_hash_map>

#include "kestrine/platform/core/hash.h"

// XXH3 inlined: a name index hashes on every look-up, and the call would cost as much as the
// hash of a short name.
#define XXH_INLINE_ALL
#include <xxhash.h>

namespace kestrine::platform::data::Metadata {

// The keys that mark empty and deleted buckets of every name index; no name may equal
// either of them.
extern const wchar_t* const kEmptyKey;    // "$$$$$_____empty_key"
extern const wchar_t* const kDeletedKey;  // "$$$$$_____deleted_key"

// True when `name` equals one of the marker keys: such a name can never be indexed (the hash
// map would take it for an empty or deleted bucket), so the indexes refuse it.
bool reserved(const wchar_t* name);
// The same for a name given as the bytes of its characters (UTF-32, unaligned).
bool reserved(const void* bytes, std::size_t length);

// The hash of a name index: XXH3 over every byte of the name. Names that people give share
// their start and their length ("item_1" ... "item_9999"), so a hash of only part of a name
// would pile them into a few buckets and make every look-up walk them all.
inline std::size_t hashBytes(const void* bytes, std::size_t length) {
  return static_cast<std::size_t>(XXH3_64bits(bytes, length));
}

struct WholeNameHash {
  std::size_t operator()(const wchar_t* name) const {
    return hashBytes(name, std::wcslen(name) * sizeof(wchar_t));
  }
};

// An index from a zero-terminated wide name to a value, for the small indexes whose names
// live in the values anyway (an item's locales, a layout's fields). Keys are not copied: each
// points at a name owned by the value it maps to. Equality compares whole names. A fresh or
// reset index has 32 buckets (sparsehash's default shape: grows past half full, shrinks below
// a fifth).
template <class Value>
class NameIndex : public google::dense_hash_map<const wchar_t*, Value, WholeNameHash,
                                                core::tWCharCompareEqual> {
  using Base =
      google::dense_hash_map<const wchar_t*, Value, WholeNameHash, core::tWCharCompareEqual>;

 public:
  NameIndex() {
    Base::set_empty_key(kEmptyKey);
    Base::set_deleted_key(kDeletedKey);
  }
  // Back to the initial shape: no entries, no deleted entries, 32 buckets. (clear() would
  // leave 4 buckets, so a fresh index is swapped in.)
  void reset() {
    NameIndex fresh;
    Base::swap(fresh);
  }
};

}  // namespace kestrine::platform::data::Metadata

#endif  // KPL_DATA_TREE_NAME_INDEX_H_
