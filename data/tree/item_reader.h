#ifndef KPL_DATA_TREE_ITEM_READER_H_
#define KPL_DATA_TREE_ITEM_READER_H_

#include <cstdint>
#include <string_view>
#include <vector>

#include "data/record/entity.h"
#include "data/record/locale.h"
#include "data/tree/item.h"
#include "data/tree/set.h"
#include "data/tree/table.h"
#include "kestrine/platform/data/metadata/value.h"
#include "kestrine/platform/data/units.h"

namespace kestrine::platform::data::Metadata {

// Reads the records of items one after another without opening them: no reference count is
// moved, nothing is copied out of a record, and one buffer serves every record read. It is
// for walks that only read, such as writing a tree as a document, where opening each item
// would cost more than writing it. Every answer is the one the item's own object gives;
// where that object answers null for an empty text, the reader gives an empty view.
//
// Views stay valid until the next read(). Store failures pass through, and a damaged record
// throws as opening its item would. One thread at a time, inside the store's lock.
class ItemReader {
 public:
  explicit ItemReader(IDataStore* store);

  // Reads the record at `offset`: its kind, or kNoRecord where no item is (no record, or one
  // of another kind). Nothing below may be asked then.
  Record::tType read(unsigned offset);

  std::uint8_t flags() const { return record_.flags(); }
  std::wstring_view name() const { return name_; }
  // The localized names as the item lists them, its first locales() entries.
  const std::vector<tLocalized>& names();

  // Containers: the kind of container (node, group, link), the inherited schema paths, and
  // the info text (a link's target).
  std::uint8_t containerType() const;
  std::wstring_view info() const;
  // Containers and tables: the inherited schema paths; primitives: a struct's schema.
  std::wstring_view base() const;
  // Tables: the default of every unit group.
  std::vector<Design::Table::tDefault> defaults() const;
  // Roots, tables and containers: starts `out` on their children, as Set::entries lists them.
  void children(Set::Lister& out) const;

  // Primitives.
  metadata::tValue valuetype() const;
  units::tUnit units() const;
  std::wstring_view valueLocale() const;
  // The URI standing for the values; empty unless in URI mode.
  std::wstring_view uri() const;
  // The value array's bytes; none in URI mode.
  std::string_view values() const;

 private:
  // The fields of every kind, by position.
  class Fields : public Record::Entity {
   public:
    using Record::Entity::Entity;
    std::uint8_t byte(unsigned at) const { return get8(at); }
    std::uint32_t word(unsigned at) const { return get32(at); }
  };

  bool uriMode() const { return (record_.flags() & Record::kUri) != 0; }

  IDataStore* store_;
  Fields record_;
  Record::tType kind_ = Record::kNoRecord;
  // Measured once per record: a walk asks for it more than once.
  std::wstring_view name_;
  std::vector<tLocalized> names_;
  // The locale table the names are read from, once asked for, and the locales counted among
  // them.
  Record::Locale table_;
  bool namesRead_ = false;
  std::vector<std::wstring_view> locales_;
};

}  // namespace kestrine::platform::data::Metadata

#endif  // KPL_DATA_TREE_ITEM_READER_H_
