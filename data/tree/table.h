#ifndef KPL_DATA_TREE_TABLE_H_
#define KPL_DATA_TREE_TABLE_H_

#include <map>
#include <vector>

#include "data/tree/set.h"
#include "kestrine/platform/data/metadata/schema.h"
#include "kestrine/platform/data/metadata/value.h"
#include "kestrine/platform/data/units.h"

namespace kestrine::platform::data::Record {
class Offsets;
}  // namespace kestrine::platform::data::Record

namespace kestrine::platform::data::Design {

using Metadata::IDataStore;
using Metadata::WideString;

// The logic over one table record: a set of member properties with, per unit group, a
// default unit and value type for new members, and the ";"-joined schema paths it inherited
// its members from ("base"). The defaults live in a Record::Offsets list of (unit, type)
// pairs in the order groups first got defaults; the group index maps each group to its
// pair and is rebuilt on load (the first pair of a group wins). The object holds one
// reference count on the record from construction to destruction.
class Table : public Metadata::Set {
 public:
  // Creates a new table record named `name`.
  Table(IDataStore* store, const wchar_t* name);
  // Opens the record at `offset`; the members are indexed unless `shallow`.
  Table(IDataStore* store, unsigned offset, bool shallow);
  ~Table() override;

  // inherit(ISchema*) below would hide the set's member-wise inherit.
  using Metadata::Set::inherit;

  // Sets the default unit and type of the unit's group (unit & 0xFFFFF000): 1, or 0
  // (nothing created) when either is 0. Re-setting a group overwrites its pair in place.
  unsigned defaults(units::tUnit unit, metadata::tValue type);
  // The group's default unit / type; 0 for group 0 or a group without defaults.
  units::tUnit units(units::tUnitGroup group) const;
  metadata::tValue valuetype(units::tUnitGroup group) const;
  // The groups with defaults, ascending by group value.
  std::vector<units::tUnitGroup> groups() const;
  // One group's default as units() and valuetype() give it.
  struct tDefault {
    units::tUnit unit;
    metadata::tValue type;
  };
  // The default of every group of the defaults list at `list` (a table record's field), in
  // the order of groups(), read without opening the table.
  static std::vector<tDefault> defaults(IDataStore* store, unsigned list);
  // The inherited schema paths; null when none.
  const wchar_t* base() const;
  // Takes over the members of every layout of the schema's chain (cloned, added, hidden)
  // and appends their paths to base. Answers 1.
  unsigned inherit(metadata::ISchema* schema);
  // Same name and same base; members and defaults are not compared.
  bool equivalent(const Table& other) const;

  // True when this object holds the only reference count and every member is unreferenced.
  bool unreferenced() override;
  // Frees the localized names, the members and the defaults; keeps the name and base.
  void clear() override;
  // Copies the record, its members, localized names and defaults into `target`, count 0.
  unsigned clone(IDataStore* target) override;

 private:
  std::uint32_t pair(units::tUnitGroup group, unsigned entry) const;
  // Entry `entry` of the pair at `index` of `list`; 0 for group 0 or past the list's end.
  static std::uint32_t pair(const Record::Offsets& list, units::tUnitGroup group, unsigned index,
                            unsigned entry);
  // Each group's pair index in `list`, in ascending group order: the first pair of a group
  // that occurs twice.
  static std::vector<std::pair<units::tUnitGroup, unsigned>> orderedGroups(
      const Record::Offsets& list);

  std::map<units::tUnitGroup, unsigned> groups_;
  unsigned defaults_;
  WideString base_;
};

}  // namespace kestrine::platform::data::Design

#endif  // KPL_DATA_TREE_TABLE_H_
