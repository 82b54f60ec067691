#include "core/storage/pending_transaction.h"

#include <algorithm>
#include <utility>

#include "kestrine/platform/core/datastore.h"
#include "kestrine/platform/core/exception.h"

namespace kestrine::platform::core::storage::datastore {

std::vector<unsigned char> PendingTransaction::copy(const void* data, unsigned size) {
  const unsigned char* bytes = static_cast<const unsigned char*>(data);
  std::vector<unsigned char> copy(bytes, bytes + (data != nullptr ? size : 0));
  copy.resize(size);
  return copy;
}

void PendingTransaction::start(const StoreState& base) {
  // Swapped with empty ones, not cleared, so that a large import gives its memory back.
  Changes().swap(changes_);
  std::vector<unsigned>().swap(freed_);
  base_ = base;
  state_ = base;
  committedFree_ = base.freeCount;
}

bool PendingTransaction::empty() const {
  return changes_.empty() && state_.version == base_.version;
}

const PendingTransaction::Change* PendingTransaction::find(unsigned offset) const {
  auto found = changes_.find(offset);
  return found == changes_.end() ? nullptr : &found->second;
}

unsigned PendingTransaction::create(std::vector<unsigned char> bytes, CommittedStore& committed) {
  unsigned offset;
  if (!freed_.empty()) {
    offset = freed_.back();
    freed_.pop_back();
  } else if (committedFree_ != 0) {
    offset = committed.freeOffset(committedFree_ - 1);
    --committedFree_;
  } else {
    if (state_.nextOffset == IDataStore::BADOFF) {
      throw Exception(committed.name() + ": create: no offsets left");
    }
    offset = state_.nextOffset++;
  }
  state_.freeCount = committedFree_ + static_cast<unsigned>(freed_.size());
  state_.liveBytes += bytes.size();
  ++state_.liveRecords;
  changes_[offset] = Change{true, std::move(bytes)};
  return offset;
}

void PendingTransaction::replace(unsigned offset, std::vector<unsigned char> bytes,
                                 const RecordBytes& current) {
  state_.liveBytes += bytes.size();
  state_.liveBytes -= current.size;
  changes_[offset] = Change{true, std::move(bytes)};
}

void PendingTransaction::append(unsigned offset, const RecordBytes& current,
                                const unsigned char* data, unsigned size) {
  Change& change = changes_[offset];
  // `current` points into change.bytes when the record was already touched here.
  if (!change.live)
    change = Change{true, std::vector<unsigned char>(current.data, current.data + current.size)};
  change.bytes.insert(change.bytes.end(), data, data + size);
  state_.liveBytes += size;
}

void PendingTransaction::remove(unsigned offset, const RecordBytes& current) {
  state_.liveBytes -= current.size;
  --state_.liveRecords;
  changes_[offset] = Change{false, {}};
  freed_.push_back(offset);
  state_.freeCount = committedFree_ + static_cast<unsigned>(freed_.size());
}

void PendingTransaction::apply(CommitWriter& writer) const {
  std::vector<unsigned> offsets;
  offsets.reserve(changes_.size());
  for (const auto& entry : changes_)
    offsets.push_back(entry.first);
  std::sort(offsets.begin(), offsets.end());
  for (unsigned offset : offsets) {
    const Change& change = changes_.at(offset);
    if (change.live) {
      writer.putRecord(offset, RecordBytes{change.bytes.data(), change.bytes.size()});
    } else {
      writer.deleteRecord(offset);
    }
  }
  if (committedFree_ < base_.freeCount) writer.dropFree(committedFree_, base_.freeCount);
  for (std::size_t i = 0; i < freed_.size(); ++i) {
    writer.putFree(committedFree_ + static_cast<unsigned>(i), freed_[i]);
  }
  writer.putState(state_);
}

std::vector<unsigned> PendingTransaction::touchedCommittedOffsets() const {
  std::vector<unsigned> offsets;
  for (const auto& entry : changes_)
    if (entry.first < base_.nextOffset) offsets.push_back(entry.first);
  return offsets;
}

PendingTransaction::Changes PendingTransaction::takeChanges() {
  Changes taken;
  taken.swap(changes_);
  return taken;
}

}  // namespace kestrine::platform::core::storage::datastore
