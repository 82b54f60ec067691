#ifndef KPL_DATA_TREE_OFFSET_SET_H_
#define KPL_DATA_TREE_OFFSET_SET_H_

#include <cstdint>
#include <vector>

#include <sparsehash/dense_hash_set>

namespace kestrine::platform::data::Metadata {

// The record offsets a walk over a tree has met, so that it can tell one met twice: only a
// damaged store lists a record twice, or in a cycle. Stores give out small offsets first and
// keep them mostly dense, so offsets below kDense are kept in a bitmap, a bit each and no
// hashing, which a walk over a large tree would otherwise pay for at every record; any
// others go to a hash set.
class OffsetSet {
 public:
  OffsetSet();

  // Takes in `offset`, BADOFF included; false when it was met before.
  bool insert(unsigned offset);

 private:
  static constexpr unsigned kDense = 1u << 26;  // a bitmap of at most 8 MiB

  std::vector<std::uint64_t> bits_;
  google::dense_hash_set<unsigned> others_;
  bool badoff_ = false;  // BADOFF is the hash set's empty key
};

}  // namespace kestrine::platform::data::Metadata

#endif  // KPL_DATA_TREE_OFFSET_SET_H_
