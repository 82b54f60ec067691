#ifndef KPL_DATA_RECORD_TABLE_RECORD_H_
#define KPL_DATA_RECORD_TABLE_RECORD_H_

#include "data/record/entity.h"

namespace kestrine::platform::data::Record {

// A table (kind 2): property header, children list at 14, units at 18 (left 0), defaults
// list at 22, the lengths of its arrays at 26 (name) and 30 (base schema), 2 reserved bytes,
// the arrays from 36. 40 + 4k bytes fresh.
class Table : public Property {
 public:
  static const unsigned kName = 26;
  static const unsigned kBase = 30;

  Table(IDataStore* store, unsigned offset) : Property(store, offset) { expect(kTable); }
  // Creates and writes a table named `name` with no members and no defaults.
  Table(IDataStore* store, const wchar_t* name) : Property(store, 36 + wideBytes(name), kTable) {
    children(IDataStore::BADOFF);
    defaults(IDataStore::BADOFF);
    initName(name);
    update(true);
  }

  unsigned children() const { return get32(14); }
  void children(unsigned offset) { put32(14, offset); }
  unsigned defaults() const { return get32(22); }
  void defaults(unsigned offset) { put32(22, offset); }
};

}  // namespace kestrine::platform::data::Record

#endif  // KPL_DATA_RECORD_TABLE_RECORD_H_
