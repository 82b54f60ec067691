#ifndef KPL_DATA_METADATA_NAME_INDEX_H_
#define KPL_DATA_METADATA_NAME_INDEX_H_

#include <sparsehash/dense_hash_map>

#include "kestrine/platform/core/hash.h"

namespace kestrine::platform::data::Metadata {

// The keys that mark empty and deleted buckets of every wide-name index; no name may equal
// either of them.
extern const wchar_t* const kEmptyKey;    // "$$$$$_____empty_key"
extern const wchar_t* const kDeletedKey;  // "$$$$$_____deleted_key"

// True when `name` equals one of the marker keys: such a name can never be indexed (the hash
// map would take it for an empty or deleted bucket), so the indexes refuse it.
bool reserved(const wchar_t* name);

// An index from a zero-terminated wide name to a value. Keys are not copied: each points at
// a name owned by the value it maps to. Hashing uses the truncating Murmur2 kernel, equality
// compares whole names. A fresh or reset index has 32 buckets (sparsehash's default shape:
// grows past half full, shrinks below a fifth).
template <class Value>
class NameIndex : public google::dense_hash_map<const wchar_t*, Value, core::tMurmur2Kernel,
                                                core::tWCharCompareEqual> {
  using Base =
      google::dense_hash_map<const wchar_t*, Value, core::tMurmur2Kernel, core::tWCharCompareEqual>;

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

#endif  // KPL_DATA_METADATA_NAME_INDEX_H_
