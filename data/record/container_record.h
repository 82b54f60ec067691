#ifndef KPL_DATA_RECORD_CONTAINER_RECORD_H_
#define KPL_DATA_RECORD_CONTAINER_RECORD_H_

#include "data/record/entity.h"

namespace kestrine::platform::data::Record {

// A node, group or link (kind 4): entity header, children list at 14, container kind u8 at
// 18, the lengths of its arrays at 19 (name), 23 (base schema) and 27 (info), 1 reserved
// byte, the arrays from 32. 36 + 4k bytes fresh.
class Container : public Entity {
 public:
  static const unsigned kName = 19;
  static const unsigned kBase = 23;
  static const unsigned kInfo = 27;

  Container(IDataStore* store, unsigned offset) : Entity(store, offset) { expect(kContainer); }
  // Creates and writes a container (kind byte 0) named `name` with no children.
  Container(IDataStore* store, const wchar_t* name)
      : Entity(store, 32 + wideBytes(name), kContainer) {
    children(IDataStore::BADOFF);
    initName(name);
    update(true);
  }

  unsigned children() const { return get32(14); }
  void children(unsigned offset) { put32(14, offset); }
  std::uint8_t type() const { return get8(18); }
  void type(std::uint8_t kind) { put8(18, kind); }
};

}  // namespace kestrine::platform::data::Record

#endif  // KPL_DATA_RECORD_CONTAINER_RECORD_H_
