#include "core/storage/record_cache.h"

namespace kestrine::platform::core::storage::datastore {

namespace {

// What an entry costs beyond its bytes: the hash node, the vector, the allocator's header.
constexpr std::size_t kEntryOverhead = 64;

std::size_t cost(const PendingTransaction::Change& change) {
  return change.bytes.size() + kEntryOverhead;
}

}  // namespace

const PendingTransaction::Change* RecordCache::find(unsigned offset) const {
  static const PendingTransaction::Change kNone{false, {}};
  auto found = records_.find(offset);
  if (found != records_.end()) return &found->second;
  return blocks_.count(offset / kBlock) != 0 ? &kNone : nullptr;
}

void RecordCache::load(unsigned block, Records records) {
  std::size_t incoming = 0;
  for (const auto& record : records)
    incoming += record.second.size() + kEntryOverhead;
  if (bytes_ + incoming > capacity_) clear();
  for (auto& [offset, bytes] : records) {
    auto [entry, added] = records_.try_emplace(offset, PendingTransaction::Change{true, {}});
    if (!added) continue;  // this client wrote it: the same bytes
    entry->second.bytes = std::move(bytes);
    bytes_ += cost(entry->second);
  }
  blocks_.insert(block);
}

void RecordCache::absorb(PendingTransaction::Changes changes) {
  // The larger map stays and takes in the entries of the smaller, the newer ones winning:
  // after a large import, the cache is mostly the import.
  if (changes.size() > records_.size()) {
    records_.swap(changes);
    bytes_ = 0;
    for (const auto& entry : records_)
      bytes_ += cost(entry.second);
    for (auto& [offset, older] : changes) {
      std::size_t olderCost = cost(older);
      if (records_.try_emplace(offset, std::move(older)).second) bytes_ += olderCost;
    }
  } else {
    for (auto& [offset, change] : changes) {
      auto [entry, added] = records_.try_emplace(offset, std::move(change));
      if (!added) {
        bytes_ -= cost(entry->second);
        entry->second = std::move(change);
      }
      bytes_ += cost(entry->second);
    }
  }
  if (bytes_ > capacity_) clear();
}

void RecordCache::clear() {
  PendingTransaction::Changes().swap(records_);
  std::unordered_set<unsigned>().swap(blocks_);
  bytes_ = 0;
}

}  // namespace kestrine::platform::core::storage::datastore
