#ifndef KPL_CORE_STORAGE_GENERATION_RECORDS_H_
#define KPL_CORE_STORAGE_GENERATION_RECORDS_H_

// A store content that checks itself, for the crash and multi-process tests of the stores.
// Generation g is: a header at offset 0 (magic, g, record count, index offset, checksum), an
// index record listing the offsets of the data records, and the data records, each stamped
// with g and its position. A mix of two generations fails the stamps or the checksum.

#include <cstring>
#include <vector>

namespace kestrine::platform::core::storage::datastore::generation {

constexpr unsigned kHeaderBytes = 28;
constexpr char kMagic[4] = {'G', 'E', 'N', '1'};

struct Header {
  unsigned long long generation = 0;
  unsigned count = 0;
  unsigned index = 0;
  unsigned long long checksum = 0;
};

inline std::vector<unsigned char> encode(const Header& header) {
  std::vector<unsigned char> bytes(kHeaderBytes);
  std::memcpy(bytes.data(), kMagic, 4);
  std::memcpy(bytes.data() + 4, &header.generation, 8);
  std::memcpy(bytes.data() + 12, &header.count, 4);
  std::memcpy(bytes.data() + 16, &header.index, 4);
  std::memcpy(bytes.data() + 20, &header.checksum, 8);
  return bytes;
}

inline bool decode(const std::vector<unsigned char>& bytes, Header* header) {
  if (bytes.size() != kHeaderBytes || std::memcmp(bytes.data(), kMagic, 4) != 0) return false;
  std::memcpy(&header->generation, bytes.data() + 4, 8);
  std::memcpy(&header->count, bytes.data() + 12, 4);
  std::memcpy(&header->index, bytes.data() + 16, 4);
  std::memcpy(&header->checksum, bytes.data() + 20, 8);
  return true;
}

// Data record `position` of generation `generation`; its length varies with both, so that
// writes change record sizes.
inline std::vector<unsigned char> dataRecord(unsigned long long generation, unsigned position) {
  std::vector<unsigned char> bytes(12 + (generation * 31 + position * 17) % 200,
                                   static_cast<unsigned char>(generation + position));
  std::memcpy(bytes.data(), &generation, 8);
  std::memcpy(bytes.data() + 8, &position, 4);
  return bytes;
}

// FNV-1a, continued from `sum` over `bytes`.
inline unsigned long long checksum(unsigned long long sum,
                                   const std::vector<unsigned char>& bytes) {
  for (unsigned char byte : bytes)
    sum = (sum ^ byte) * 1099511628211ull;
  return sum;
}

constexpr unsigned long long kChecksumSeed = 14695981039346656037ull;

}  // namespace kestrine::platform::core::storage::datastore::generation

#endif  // KPL_CORE_STORAGE_GENERATION_RECORDS_H_
