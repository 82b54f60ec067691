#ifndef KPL_DATA_RECORD_ROOT_RECORD_H_
#define KPL_DATA_RECORD_ROOT_RECORD_H_

#include "data/record/entity.h"

namespace kestrine::platform::data::Record {

// The root of a tree (kind 0): entity header, children list at 14, name length at 18, two
// reserved bytes, the name at 24. 28 + 4k bytes for a name of k characters.
class Root : public Entity {
 public:
  static const unsigned kName = 18;

  Root(IDataStore* store, unsigned offset) : Entity(store, offset) { expect(kRoot); }
  // Creates and writes a root named `name` with no children.
  Root(IDataStore* store, const wchar_t* name) : Entity(store, 24 + wideBytes(name), kRoot) {
    children(IDataStore::BADOFF);
    initName(name);
    update(true);
  }

  unsigned children() const { return get32(14); }
  void children(unsigned offset) { put32(14, offset); }
};

}  // namespace kestrine::platform::data::Record

#endif  // KPL_DATA_RECORD_ROOT_RECORD_H_
