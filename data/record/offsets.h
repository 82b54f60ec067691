#ifndef KPL_DATA_RECORD_OFFSETS_H_
#define KPL_DATA_RECORD_OFFSETS_H_

#include "data/record/base.h"

namespace kestrine::platform::data::Record {

// A list of 32-bit entries (kind 3): kind byte, 3 reserved bytes, then the entries.
// 4 + 4n bytes for n entries. Every change is written at once.
class Offsets : public Base {
 public:
  // Loads the list at `offset`; throws core::Exception "damaged record at offset N: ..." for a
  // record that is not a list of whole entries. A list that is not there loads empty.
  Offsets(IDataStore* store, unsigned offset, Loading how = Loading::kCopy);
  // Loads and checks the list at `offset` in place of the one held, as the constructor does.
  void load(unsigned offset, Loading how = Loading::kCopy);
  // Creates and writes an empty list.
  explicit Offsets(IDataStore* store) : Base(store, 4, kOffsets) { update(true); }

  // Number of entries; 0 also for a record that could not be read (a BADOFF list).
  unsigned items() const { return used() < 4 ? 0 : (used() - 4) / 4; }
  // Entry i, unchecked.
  unsigned get(unsigned i) const { return get32(4 + 4 * i); }
  const unsigned* get() const { return reinterpret_cast<const unsigned*>(data() + 4); }

  void add(unsigned value);
  // Stores entry i, first extending the list with zero entries up to it when needed.
  void set(unsigned i, unsigned value);
  // Stores entries i and i + 1 so, in one write.
  void set(unsigned i, unsigned first, unsigned second);
  // Removes entry i; false (nothing written) when i is past the end.
  bool removeIndex(unsigned i);
  // Removes the first entry equal to `value`; false when there is none.
  bool removeVal(unsigned value);

 private:
  void check() const;
};

}  // namespace kestrine::platform::data::Record

#endif  // KPL_DATA_RECORD_OFFSETS_H_
