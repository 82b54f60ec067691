#ifndef KPL_DATA_TREE_CHILD_INDEX_H_
#define KPL_DATA_TREE_CHILD_INDEX_H_

#include <cstddef>
#include <cstdint>
#include <vector>

#include <sparsehash/dense_hash_map>

namespace kestrine::platform::data::Metadata {

// The children of one set by name: child name -> child record offset. A set may hold a million
// children, so the names are kept once, packed, and the hash map holds only 32-bit positions
// into them: 30 to 40 bytes per child for names like "item_123456", against well over 100 for
// a map of wide strings.
//
// The packed form of a name is its byte length and then each 32-bit character as a base-128
// varint (one byte for ASCII), so equal names pack equally and any wide string packs. Names
// hash by their characters, not their packed bytes, so that a name being looked up is hashed
// and compared as it is given. Each packed name is kept after its hash, so that the map,
// as it grows, moves its entries without unpacking and hashing every name again.
// Erased and renamed names leave their bytes behind until they make up half the storage;
// then the live names are packed afresh.
//
// Names equal to a marker key ("$$$$$_____empty_key", "$$$$$_____deleted_key") are never
// indexed. An index belongs to one thread at a time, look-ups included: the name being
// looked up is kept in the index while the hash map compares it.
class ChildIndex {
 public:
  // Room for `expected` names without growing.
  explicit ChildIndex(unsigned expected = 0);
  ChildIndex(const ChildIndex&) = delete;
  ChildIndex& operator=(const ChildIndex&) = delete;

  unsigned size() const { return static_cast<unsigned>(map_.size()); }
  // The offset indexed under exactly `name`, or 0xFFFFFFFF.
  unsigned find(const wchar_t* name) const;
  // Indexes `offset` under `name`; false, changing nothing, when the name is taken or is a
  // marker key.
  bool insert(const wchar_t* name, unsigned offset);
  // Forgets `name`; false when it was not indexed.
  bool erase(const wchar_t* name);
  // Moves the entry of `old` to `name`; false, changing nothing, when `old` is not indexed
  // or `name` is taken or a marker key.
  bool rename(const wchar_t* old, const wchar_t* name);
  void clear();
  // Makes room for `expected` names in all.
  void reserve(unsigned expected) { map_.resize(expected); }

  // Every indexed offset, in the index's own order.
  std::vector<unsigned> offsets() const;
  // Bytes of memory the index holds.
  std::size_t memory() const;

 private:
  // A position in names_, or one of the markers below, which name byte strings kept apart.
  using Position = std::uint32_t;
  // The hash kept before each packed name: the low half of the name's hash, which is all the
  // map uses below four billion buckets.
  using StoredHash = std::uint32_t;
  static constexpr Position kEmpty = 0xFFFFFFFF;
  static constexpr Position kDeleted = 0xFFFFFFFE;
  static constexpr Position kProbe = 0xFFFFFFFD;  // the name being looked up

  // A packed name.
  struct Bytes {
    const unsigned char* data;
    std::size_t size;
  };
  Bytes bytes(Position position) const;
  // The name being looked up, as given: it is hashed and compared without being packed.
  struct Probe {
    const wchar_t* name;
    std::size_t length;
    StoredHash hash;
    // Where an insert stored the name: that position hashes as the probe, without being
    // unpacked again.
    Position stored;
  };
  class ProbeScope;

  // Inline: the hash map calls these for every bucket it probes.
  struct Hash {
    const ChildIndex* index;
    std::size_t operator()(Position position) const {
      return position == kProbe || position == index->probe_.stored ? index->probe_.hash
                                                                    : index->hashStored(position);
    }
  };
  // Stored names are unique, so two stored positions are equal only when they are the same
  // position; names are compared only against the name being looked up or inserted.
  struct Equal {
    const ChildIndex* index;
    bool operator()(Position a, Position b) const {
      if (a == b) return true;
      const bool aProbes = a == kProbe || a == index->probe_.stored;
      const bool bProbes = b == kProbe || b == index->probe_.stored;
      if (aProbes == bProbes) return aProbes;
      return index->holdsProbe(aProbes ? b : a);
    }
  };
  std::size_t hashStored(Position position) const;
  bool holdsProbe(Position position) const;
  using Map = google::dense_hash_map<Position, unsigned, Hash, Equal>;

  // The entry of `name`, or end().
  Map::const_iterator lookUp(const wchar_t* name) const;
  // Appends the probe's name, packed, to names_ and returns its position.
  Position store();
  void discard(Position position);
  void compactIfWasteful();
  static Map emptyMap(const ChildIndex* index, unsigned expected);

  std::vector<unsigned char> names_;
  std::size_t wasted_ = 0;  // bytes of names_ that no entry uses
  mutable Probe probe_{nullptr, 0, 0, kProbe};
  Map map_;
};

}  // namespace kestrine::platform::data::Metadata

#endif  // KPL_DATA_TREE_CHILD_INDEX_H_
