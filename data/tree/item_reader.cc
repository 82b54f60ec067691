#include "data/tree/item_reader.h"

#include <algorithm>

#include "data/record/container_record.h"
#include "data/record/locale.h"
#include "data/record/primitive_record.h"
#include "data/record/table_record.h"
#include "data/tree/name_index.h"
#include "data/tree/set.h"

namespace kestrine::platform::data::Metadata {

namespace {

// Fields of the typed records, by position: the units of primitives and tables, a
// container's kind, a primitive's value type and a table's defaults list.
const unsigned kUnits = 18;
const unsigned kContainerType = 18;
const unsigned kValueType = 22;
const unsigned kDefaults = 22;

}  // namespace

ItemReader::ItemReader(IDataStore* store)
    : store_(store), record_(store, IDataStore::BADOFF), table_(store, IDataStore::BADOFF) {}

Record::tType ItemReader::read(unsigned offset) {
  names_.clear();
  namesRead_ = false;
  name_ = {};
  kind_ = record_.load(offset, Record::Loading::kInPlace) ? record_.id() : Record::kNoRecord;
  if (kind_ != Record::kNoRecord) name_ = record_.text(record_.nameSelector());
  return kind_;
}

const std::vector<tLocalized>& ItemReader::names() {
  const unsigned locale = record_.locale();
  if (namesRead_ || locale == IDataStore::BADOFF) return names_;
  table_.load(locale, Record::Loading::kInPlace);
  namesRead_ = true;
  localizedNames(table_, names_);
  // The item lists every entry but counts its locales, each once and none of the reserved
  // ones, and gives as many entries as it counts.
  locales_.clear();
  for (const tLocalized& entry : names_)
    if (!reserved(entry.locale.data())) locales_.push_back(entry.locale);
  std::sort(locales_.begin(), locales_.end());
  const auto counted = std::unique(locales_.begin(), locales_.end()) - locales_.begin();
  names_.resize(std::min<std::size_t>(names_.size(), counted));
  return names_;
}

std::uint8_t ItemReader::containerType() const {
  return record_.byte(kContainerType);
}

std::wstring_view ItemReader::info() const {
  return record_.text(Record::Container::kInfo);
}

std::wstring_view ItemReader::base() const {
  switch (kind_) {
    case Record::kContainer:
      return record_.text(Record::Container::kBase);
    case Record::kTable:
      return record_.text(Record::Table::kBase);
    case Record::kPrimitive:
      return record_.text(Record::Primitive::kBase);
    default:
      return {};
  }
}

std::vector<Design::Table::tDefault> ItemReader::defaults() const {
  return Design::Table::defaults(store_, record_.word(kDefaults));
}

void ItemReader::children(Set::Lister& out) const {
  out.start(store_, record_.offset());
}

metadata::tValue ItemReader::valuetype() const {
  return static_cast<metadata::tValue>(record_.word(kValueType));
}

units::tUnit ItemReader::units() const {
  return static_cast<units::tUnit>(record_.word(kUnits));
}

std::wstring_view ItemReader::valueLocale() const {
  return record_.text(Record::Primitive::kValueLocale);
}

std::wstring_view ItemReader::uri() const {
  return uriMode() ? record_.text(Record::Primitive::kValues) : std::wstring_view();
}

std::string_view ItemReader::values() const {
  if (uriMode()) return {};
  return {reinterpret_cast<const char*>(record_.arrays(Record::Primitive::kValues)),
          record_.length(Record::Primitive::kValues)};
}

}  // namespace kestrine::platform::data::Metadata
