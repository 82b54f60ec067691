#include "data/tree/offset_set.h"

#include <algorithm>

#include "kestrine/platform/core/datastore.h"

namespace kestrine::platform::data::Metadata {

using core::storage::datastore::IDataStore;

OffsetSet::OffsetSet() {
  others_.set_empty_key(IDataStore::BADOFF);
}

bool OffsetSet::insert(unsigned offset) {
  if (offset >= kDense) {
    if (offset != IDataStore::BADOFF) return others_.insert(offset).second;
    const bool first = !badoff_;
    badoff_ = true;
    return first;
  }
  const std::size_t word = offset / 64;
  if (word >= bits_.size()) bits_.resize(std::max(word + 1, 2 * bits_.size()));
  const std::uint64_t bit = std::uint64_t{1} << (offset % 64);
  if ((bits_[word] & bit) != 0) return false;
  bits_[word] |= bit;
  return true;
}

}  // namespace kestrine::platform::data::Metadata
