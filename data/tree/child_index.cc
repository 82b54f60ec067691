#include "data/tree/child_index.h"

#include <algorithm>
#include <cstring>
#include <cwchar>

#include "data/tree/name_index.h"

namespace kestrine::platform::data::Metadata {

namespace {

const unsigned kAbsent = 0xFFFFFFFF;

// Writes `value` as a base-128 varint, low bits first, at `at`; returns where it ends.
unsigned char* putVarint(unsigned char* at, std::uint32_t value) {
  while (value >= 0x80) {
    *at++ = static_cast<unsigned char>(value | 0x80);
    value >>= 7;
  }
  *at++ = static_cast<unsigned char>(value);
  return at;
}

// The bytes putVarint writes for `value`.
std::size_t varintSize(std::uint32_t value) {
  std::size_t size = 1;
  for (; value >= 0x80; value >>= 7)
    ++size;
  return size;
}

void appendVarint(std::vector<unsigned char>& out, std::uint32_t value) {
  unsigned char bytes[5];
  out.insert(out.end(), bytes, putVarint(bytes, value));
}

// Reads a varint at `at`, moving `at` past it.
std::uint32_t getVarint(const unsigned char*& at) {
  std::uint32_t value = 0;
  for (unsigned shift = 0;; shift += 7) {
    unsigned char byte = *at++;
    value |= std::uint32_t(byte & 0x7F) << shift;
    if ((byte & 0x80) == 0) return value;
  }
}

// Packs the characters of `name` (not its length) at `at`, which has room for 5 bytes a
// character; returns where they end.
unsigned char* packCharacters(const wchar_t* name, unsigned char* at) {
  for (; *name != 0; ++name)
    at = putVarint(at, static_cast<std::uint32_t>(*name));
  return at;
}

std::vector<unsigned char> packed(const wchar_t* name) {
  std::vector<unsigned char> bytes(std::wcslen(name) * 5);
  bytes.resize(static_cast<std::size_t>(packCharacters(name, bytes.data()) - bytes.data()));
  return bytes;
}

const std::vector<unsigned char> kEmptyBytes = packed(kEmptyKey);
const std::vector<unsigned char> kDeletedBytes = packed(kDeletedKey);

// The hash of a name's characters (as the name being looked up is hashed).
std::size_t hashCharacters(const wchar_t* name, std::size_t length) {
  return hashBytes(name, length * sizeof(wchar_t));
}

// Whether packed bytes hold exactly the characters of `name`.
bool holds(const unsigned char* at, std::size_t size, const wchar_t* name, std::size_t length) {
  if (size == length) {
    // As many bytes as characters: the common case of an ASCII name, compared directly, from
    // the end, since names that collide mostly share their start. A byte of a longer varint
    // sends the comparison the slow way: it must not match a character of the same value.
    std::size_t i = length;
    while (i-- > 0 && at[i] < 0x80)
      if (at[i] != static_cast<std::uint32_t>(name[i])) return false;
    if (i == static_cast<std::size_t>(-1)) return true;
  }
  const unsigned char* end = at + size;
  for (std::size_t i = 0; i < length; ++i) {
    if (at == end || getVarint(at) != static_cast<std::uint32_t>(name[i])) return false;
  }
  return at == end;
}

}  // namespace

// Points the index's probe at a name for as long as a look-up lasts.
class ChildIndex::ProbeScope {
 public:
  ProbeScope(const ChildIndex& index, const wchar_t* name) : index_(index) {
    std::size_t length = std::wcslen(name);
    index_.probe_ = {name, length, static_cast<StoredHash>(hashCharacters(name, length)), kProbe};
  }
  ~ProbeScope() { index_.probe_ = {nullptr, 0, 0, kProbe}; }
  ProbeScope(const ProbeScope&) = delete;
  ProbeScope& operator=(const ProbeScope&) = delete;

 private:
  const ChildIndex& index_;
};

ChildIndex::ChildIndex(unsigned expected) : map_(emptyMap(this, expected)) {}

ChildIndex::Map ChildIndex::emptyMap(const ChildIndex* index, unsigned expected) {
  // Sized for at least one entry: with none expected, sparsehash starts at 32 buckets, which
  // every open set of a deep tree would pay for.
  Map map(std::max(expected, 1u), Hash{index}, Equal{index});
  map.set_empty_key(kEmpty);
  map.set_deleted_key(kDeleted);
  return map;
}

ChildIndex::Bytes ChildIndex::bytes(Position position) const {
  switch (position) {
    case kEmpty:
      return {kEmptyBytes.data(), kEmptyBytes.size()};
    case kDeleted:
      return {kDeletedBytes.data(), kDeletedBytes.size()};
    default: {
      const unsigned char* at = names_.data() + position + sizeof(StoredHash);
      std::uint32_t size = getVarint(at);
      return {at, size};
    }
  }
}

std::size_t ChildIndex::hashStored(Position position) const {
  StoredHash hash;
  std::memcpy(&hash, names_.data() + position, sizeof hash);
  return hash;
}

bool ChildIndex::holdsProbe(Position position) const {
  Bytes stored = bytes(position);
  return holds(stored.data, stored.size, probe_.name, probe_.length);
}

ChildIndex::Map::const_iterator ChildIndex::lookUp(const wchar_t* name) const {
  ProbeScope probe(*this, name);
  return map_.find(kProbe);
}

unsigned ChildIndex::find(const wchar_t* name) const {
  if (name == nullptr) return kAbsent;
  auto found = lookUp(name);
  return found == map_.end() ? kAbsent : found->second;
}

ChildIndex::Position ChildIndex::store() {
  const auto position = static_cast<Position>(names_.size());
  // Sized first, so that the name is packed straight into its place.
  std::uint32_t size = 0;
  for (std::size_t i = 0; i < probe_.length; ++i)
    size += varintSize(static_cast<std::uint32_t>(probe_.name[i]));
  unsigned char prefix[sizeof(StoredHash) + 5];
  std::memcpy(prefix, &probe_.hash, sizeof probe_.hash);
  const auto prefixLength =
      static_cast<std::size_t>(putVarint(prefix + sizeof probe_.hash, size) - prefix);
  const std::size_t end = position + prefixLength + size;
  // Grown by half rather than doubled: the names take about half of an index's memory.
  if (end > names_.capacity()) names_.reserve(std::max(end, names_.capacity() * 3 / 2));
  names_.resize(end);
  packCharacters(probe_.name, std::copy(prefix, prefix + prefixLength, names_.data() + position));
  return position;
}

bool ChildIndex::insert(const wchar_t* name, unsigned offset) {
  if (name == nullptr || reserved(name)) return false;
  ProbeScope probe(*this, name);
  // Stored first and inserted under its position, which compares as the name itself: one
  // probe of the map, not a look-up and then an insert. A name that is taken is let go.
  probe_.stored = store();
  if (map_.insert({probe_.stored, offset}).second) return true;
  names_.resize(probe_.stored);
  return false;
}

void ChildIndex::discard(Position position) {
  Bytes name = bytes(position);
  wasted_ += static_cast<std::size_t>(name.data + name.size - (names_.data() + position));
}

bool ChildIndex::erase(const wchar_t* name) {
  if (name == nullptr) return false;
  auto found = lookUp(name);
  if (found == map_.end()) return false;
  Position position = found->first;
  map_.erase(position);
  discard(position);
  compactIfWasteful();
  return true;
}

bool ChildIndex::rename(const wchar_t* old, const wchar_t* name) {
  if (old == nullptr || name == nullptr || reserved(name) || find(name) != kAbsent) return false;
  auto found = lookUp(old);
  if (found == map_.end()) return false;
  Position position = found->first;
  unsigned offset = found->second;
  map_.erase(position);
  discard(position);
  ProbeScope probe(*this, name);
  probe_.stored = store();
  map_.insert({probe_.stored, offset});
  compactIfWasteful();
  return true;
}

void ChildIndex::clear() {
  map_ = emptyMap(this, 0);
  std::vector<unsigned char>().swap(names_);
  wasted_ = 0;
}

std::vector<unsigned> ChildIndex::offsets() const {
  std::vector<unsigned> result;
  result.reserve(map_.size());
  for (const auto& entry : map_)
    result.push_back(entry.second);
  return result;
}

std::size_t ChildIndex::memory() const {
  return sizeof *this + map_.bucket_count() * sizeof(Map::value_type) + names_.capacity();
}

// Erasing leaves a name's bytes unused; once they are half the storage, the live names move
// to fresh storage, which costs no more than the erasures that wasted it.
void ChildIndex::compactIfWasteful() {
  if (wasted_ < 4096 || wasted_ * 2 < names_.size()) return;
  std::vector<unsigned char> names;
  names.reserve(names_.size() - wasted_);
  std::vector<std::pair<Position, unsigned>> entries;
  entries.reserve(size());
  for (const auto& [position, offset] : map_) {
    Bytes name = bytes(position);
    entries.emplace_back(static_cast<Position>(names.size()), offset);
    const unsigned char* hash = names_.data() + position;
    names.insert(names.end(), hash, hash + sizeof(StoredHash));
    appendVarint(names, static_cast<std::uint32_t>(name.size));
    names.insert(names.end(), name.data, name.data + name.size);
  }
  // The hash reads names_, so the map is filled only once the new storage is in place.
  names_.swap(names);
  map_ = emptyMap(this, size());
  for (const auto& entry : entries)
    map_.insert(entry);
  wasted_ = 0;
}

}  // namespace kestrine::platform::data::Metadata
