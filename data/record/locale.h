#ifndef KPL_DATA_RECORD_LOCALE_H_
#define KPL_DATA_RECORD_LOCALE_H_

#include "data/record/base.h"

namespace kestrine::platform::data::Record {

// A table of localized names (kind 5): kind byte, payload length u32 at 1, 3 reserved bytes,
// the payload from 8 (its format belongs to the metadata item).
class Locale : public Base {
 public:
  // Loads the table at `offset`; throws core::Exception "damaged record at offset N: ..." for a
  // record that is not a table whose payload lies within it. A table that is not there loads
  // empty.
  Locale(IDataStore* store, unsigned offset, Loading how = Loading::kCopy);
  // Loads and checks the table at `offset` in place of the one held, as the constructor does.
  void load(unsigned offset, Loading how = Loading::kCopy);
  // Creates and writes an empty table.
  explicit Locale(IDataStore* store) : Base(store, 8, kLocale) { update(true); }

  unsigned length() const { return get32(1); }
  const unsigned char* payload() const { return data() + 8; }
  // Replaces the payload and writes the record. The new buffer is neither zero-filled nor
  // filled from the old one, so the reserved bytes 5 to 7 hold whatever it held.
  void payload(unsigned length, const void* bytes);

 private:
  void check() const;
};

}  // namespace kestrine::platform::data::Record

#endif  // KPL_DATA_RECORD_LOCALE_H_
