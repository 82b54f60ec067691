#ifndef KPL_DATA_API_SNAPSHOT_H_
#define KPL_DATA_API_SNAPSHOT_H_

#include <vector>

#include "data/api/cursor.h"

namespace kestrine::platform::data::Api {

// A cursor over a copy of a container's children list, taken when the filter is made:
// children added later are never visited, and a removed child's offset stays in the copy.
// The container filters are snapshots; they differ only in the kinds they accept.
class Snapshot : public Cursor {
 protected:
  // Copies the children list of the container record at `container`; the caller holds the
  // store lock.
  Snapshot(IDataStore* store, unsigned container, unsigned kinds);

  unsigned child(unsigned position) const override;
  unsigned end() const override { return static_cast<unsigned>(offsets_.size()); }

 private:
  std::vector<unsigned> offsets_;
};

}  // namespace kestrine::platform::data::Api

#endif  // KPL_DATA_API_SNAPSHOT_H_
