#include "data/tree/table.h"

#include <algorithm>

#include "data/record/offsets.h"
#include "data/record/table_record.h"

namespace kestrine::platform::data::Design {

namespace {

const std::uint32_t kGroupMask = 0xFFFFF000;
// Lists of at most this many pairs are ordered by insertion.
const std::size_t kFewGroups = 32;

units::tUnitGroup groupOf(units::tUnit unit) {
  return static_cast<units::tUnitGroup>(unit & kGroupMask);
}

}  // namespace

Table::Table(IDataStore* store, const wchar_t* name) : defaults_(IDataStore::BADOFF) {
  store_ = store;
  Record::Table record(store, name);
  offset_ = record.offset();
  name_ = name;
  record.ref();
}

Table::Table(IDataStore* store, unsigned offset, bool shallow) : defaults_(IDataStore::BADOFF) {
  store_ = store;
  offset_ = offset;
  Record::Table record(store, offset);
  parent_ = record.parent();
  name_ = record.name();
  base_ = record.string(Record::Table::kBase);
  children_ = record.children();
  defaults_ = record.defaults();
  locale_ = record.locale();
  if (defaults_ != IDataStore::BADOFF) {
    const auto groups = orderedGroups(Record::Offsets(store, defaults_));
    groups_.insert(groups.begin(), groups.end());
  }
  if (!shallow) populate();
  // Counted last, so that a constructor that fails leaves the count as it was.
  record.ref();
}

Table::~Table() {
  unref();
}

unsigned Table::defaults(units::tUnit unit, metadata::tValue type) {
  if (unit == 0 || type == 0) return 0;
  units::tUnitGroup group = groupOf(unit);
  if (defaults_ == IDataStore::BADOFF) {
    Record::Offsets list(store_);
    Record::Table record(store_, offset_);
    record.defaults(list.offset());
    record.update(true);
    defaults_ = list.offset();
  }
  auto found = groups_.find(group);
  // A group seen for the first time takes the next pair; a known one is overwritten in place.
  unsigned index = found != groups_.end() ? found->second : static_cast<unsigned>(groups_.size());
  Record::Offsets list(store_, defaults_);
  list.set(2 * index, unit, type);
  groups_.emplace(group, index);
  return 1;
}

std::vector<std::pair<units::tUnitGroup, unsigned>> Table::orderedGroups(
    const Record::Offsets& list) {
  std::vector<std::pair<units::tUnitGroup, unsigned>> groups;
  groups.reserve(list.items() / 2);
  for (unsigned i = 0, n = list.items(); i < n; i += 2)
    groups.emplace_back(groupOf(static_cast<units::tUnit>(list.get(i))), i / 2);
  // Stable, so that unique() keeps the first pair of a group. A table has a few defaults, one
  // a unit group, which an insertion sort orders without the buffer stable_sort takes; only a
  // damaged list is long, and it must not cost quadratic time.
  const auto byGroup = [](const auto& a, const auto& b) { return a.first < b.first; };
  if (groups.size() > kFewGroups) {
    std::stable_sort(groups.begin(), groups.end(), byGroup);
  } else {
    for (auto next = groups.begin(); next != groups.end(); ++next)
      std::rotate(std::upper_bound(groups.begin(), next, *next, byGroup), next, next + 1);
  }
  groups.erase(std::unique(groups.begin(), groups.end(),
                           [](const auto& a, const auto& b) { return a.first == b.first; }),
               groups.end());
  return groups;
}

std::uint32_t Table::pair(const Record::Offsets& list, units::tUnitGroup group, unsigned index,
                          unsigned entry) {
  unsigned at = 2 * index + entry;
  return group != 0 && at < list.items() ? list.get(at) : 0;
}

// Entry `entry` (0 unit, 1 type) of the group's pair, or 0 when the group has none.
std::uint32_t Table::pair(units::tUnitGroup group, unsigned entry) const {
  if (group == 0) return 0;
  auto found = groups_.find(group);
  if (found == groups_.end()) return 0;
  return pair(Record::Offsets(store_, defaults_), group, found->second, entry);
}

std::vector<Table::tDefault> Table::defaults(IDataStore* store, unsigned list) {
  std::vector<tDefault> defaults;
  if (list == IDataStore::BADOFF) return defaults;
  const Record::Offsets pairs(store, list, Record::Loading::kInPlace);
  const auto groups = orderedGroups(pairs);
  defaults.reserve(groups.size());
  for (const auto& [group, index] : groups)
    defaults.push_back({static_cast<units::tUnit>(pair(pairs, group, index, 0)),
                        static_cast<metadata::tValue>(pair(pairs, group, index, 1))});
  return defaults;
}

units::tUnit Table::units(units::tUnitGroup group) const {
  return static_cast<units::tUnit>(pair(group, 0));
}

metadata::tValue Table::valuetype(units::tUnitGroup group) const {
  return static_cast<metadata::tValue>(pair(group, 1));
}

std::vector<units::tUnitGroup> Table::groups() const {
  std::vector<units::tUnitGroup> groups;
  groups.reserve(groups_.size());
  for (const auto& group : groups_)
    groups.push_back(group.first);
  return groups;
}

const wchar_t* Table::base() const {
  return base_.value();
}

unsigned Table::inherit(metadata::ISchema* schema) {
  // Unlike a container, a table deliberately copies the members without taking the schema
  // store's lock.
  inheritChain(schema, base_, Record::Table::kBase, false);
  return 1;
}

bool Table::equivalent(const Table& other) const {
  return name_ == other.name_ && base_ == other.base_;
}

bool Table::unreferenced() {
  if (Record::Table(store_, offset_).references() > 1) return false;
  return Set::unreferenced();
}

void Table::clear() {
  clearSet();
  if (defaults_ == IDataStore::BADOFF) return;
  store_->free(defaults_);
  defaults_ = IDataStore::BADOFF;
  groups_.clear();
  Record::Table record(store_, offset_);
  record.defaults(IDataStore::BADOFF);
  record.update(true);
}

unsigned Table::clone(IDataStore* target) {
  unsigned copy = cloneSet(target);
  if (defaults_ == IDataStore::BADOFF) return copy;
  Record::Table record(target, copy);
  record.defaults(Record::Offsets(store_, defaults_).clone(target));
  record.update(true);
  return copy;
}

}  // namespace kestrine::platform::data::Design
