#include "data/tree/item.h"

#include <algorithm>
#include <exception>
#include <memory>
#include <string>

#include "data/record/entity.h"
#include "data/record/locale.h"
#include "data/tree/pooled_buffer.h"
#include "kestrine/platform/core/exception.h"
#include "kestrine/platform/core/memory.h"

namespace kestrine::platform::data::Metadata {

using core::memory::PooledHeap;

namespace {

const unsigned kAbsent = 0xFFFFFFFF;

// Called from a catch block of a destructor: lets the failure through unless the destructor
// runs because another exception is unwinding the stack, where a second one would terminate
// the process; the first failure is the one the caller needs to see.
void rethrowUnlessUnwinding() {
  if (std::uncaught_exceptions() == 0) throw;
}

unsigned wideSize(const WideString& text) {
  return text.length() * 4 + 4;
}

unsigned char* putWide(unsigned char* at, const WideString& text) {
  std::memcpy(at, text.string(), wideSize(text));
  return at + wideSize(text);
}

}  // namespace

void* Item::tName::operator new(std::size_t size) {
  return PooledHeap::malloc(size);
}

void Item::tName::operator delete(void* block, std::size_t size) {
  PooledHeap::free(block, size);
}

Item::Item()
    : store_(nullptr),
      offset_(IDataStore::BADOFF),
      parent_(IDataStore::BADOFF),
      locale_(IDataStore::BADOFF),
      modified_(false) {}

Item::~Item() noexcept(false) {
  try {
    if (modified_) writeBack();
  } catch (...) {
    dropNames();
    rethrowUnlessUnwinding();
    return;
  }
  dropNames();
}

void Item::unref() {
  try {
    Record::Header header(store_, offset_);
    header.references(header.references() - 1);
  } catch (...) {
    rethrowUnlessUnwinding();
  }
}

std::uint8_t Item::flags() const {
  return Record::Header(store_, offset_).flags();
}

void Item::on(std::uint8_t bits) {
  Record::Header header(store_, offset_);
  header.flags(header.flags() | bits);
}

void Item::off(std::uint8_t bits) {
  Record::Header header(store_, offset_);
  header.flags(header.flags() & ~bits);
}

void Item::show() {
  unsigned current = offset_;
  for (unsigned step = 0;; ++step) {
    // A parent that is gone ends the walk. Only headers are read: every setting of values
    // shows the item, and its values may be large.
    if (store_->size(current) == 0) return;
    Record::Header header(store_, current);
    // The root ends the walk unchanged.
    if (header.parent() == IDataStore::BADOFF) return;
    if (header.flags() & Record::kHidden)
      header.flags(header.flags() & ~Record::kHidden);
    else if (step != 0)
      return;  // the first visible ancestor: everything above it is visible already
    current = header.parent();
  }
}

void Item::path(WideString& out) const {
  std::vector<WideString> names;
  unsigned current = Record::Entity(store_, offset_).parent();
  // A damaged chain may lead back to itself. Brent's check finds such a loop within twice its
  // length plus the steps before it: the chain's head is compared with a marker that moves
  // on to it at every power of two.
  unsigned marker = offset_, stride = 1, steps = 0;
  for (;;) {
    Record::tType kind = Record::peek(store_, current);
    // The root's name is never part of a path; a record that is not an entity cannot be on
    // a parent chain and ends it too.
    if (kind != Record::kPrimitive && kind != Record::kTable && kind != Record::kContainer) break;
    if (current == marker) {
      throw core::Exception("damaged record at offset " + std::to_string(current) +
                            ": its parents lead back to it");
    }
    if (++steps == stride) {
      marker = current;
      stride *= 2;
      steps = 0;
    }
    Record::Entity record(store_, current);
    names.push_back(record.name());
    current = record.parent();
  }
  out.clear();
  for (auto name = names.rbegin(); name != names.rend(); ++name)
    out.append(*name).append(L".");
  out.append(name_);
}

unsigned Item::duplicate(IDataStore* target) const {
  if (locale_ == IDataStore::BADOFF) return IDataStore::BADOFF;
  return Record::Locale(store_, locale_).clone(target);
}

void Item::cleanup() {
  if (locale_ == IDataStore::BADOFF) return;
  store_->free(locale_);
  index_.reset();
  dropNames();
  locale_ = IDataStore::BADOFF;
}

void localizedNames(const Record::Locale& table, std::vector<tLocalized>& out) {
  out.clear();
  if (table.used() < 8) return;
  unsigned length = std::min(table.length(), table.used() - 8);
  const wchar_t* units = reinterpret_cast<const wchar_t*>(table.payload());
  std::wstring_view locale;
  bool pending = false;  // a locale is read and waits for its text
  unsigned start = 0;
  for (unsigned i = 0, count = length / 4; i < count; ++i) {
    if (units[i] != 0) continue;
    std::wstring_view text(units + start, i - start);
    start = i + 1;
    if (pending)
      out.push_back({locale, text});
    else
      locale = text;
    pending = !pending;
  }
}

void Item::setupLocales() {
  Record::Locale table(store_, locale_);
  std::vector<tLocalized> entries;
  localizedNames(table, entries);
  for (const tLocalized& entry : entries) {
    std::unique_ptr<tName> name(new tName);
    name->locale = WideString(entry.locale.data(), static_cast<unsigned>(entry.locale.size()));
    name->text = WideString(entry.text.data(), static_cast<unsigned>(entry.text.size()));
    append(name.get());
    name.release();
  }
}

// Lists `name` (the list owns it from here) and indexes it under its locale at its list
// position, unless that locale is indexed already: the first entry keeps it.
void Item::append(tName* name) {
  names_.push_back(name);
  const wchar_t* key = name->locale.string();
  if (reserved(key)) return;
  NameIndex<tSlot>& index = this->index();
  if (index.find(key) == index.end())
    index.insert({key, tSlot{static_cast<unsigned>(names_.size() - 1), name}});
}

NameIndex<Item::tSlot>& Item::index() {
  if (!index_) index_ = std::make_unique<NameIndex<tSlot>>();
  return *index_;
}

unsigned Item::localize(const wchar_t* locale) {
  if (locale_ == IDataStore::BADOFF || locale == nullptr) return kAbsent;
  if (unindexed()) setupLocales();
  if (!index_) return kAbsent;
  auto found = index_->find(locale);
  return found == index_->end() ? kAbsent : found->second.position;
}

unsigned Item::localize(const wchar_t* text, const wchar_t* locale) {
  if (locale == nullptr || reserved(locale)) return kAbsent;
  if (unindexed() && locale_ != IDataStore::BADOFF) setupLocales();
  NameIndex<tSlot>& index = this->index();
  auto found = index.find(locale);
  if (found == index.end()) {
    if (text == nullptr) return kAbsent;  // nothing to remove
    std::unique_ptr<tName> name(new tName);
    name->locale = locale;
    name->text = text;
    append(name.get());
    name.release();
    modified_ = true;
    return static_cast<unsigned>(names_.size() - 1);
  }
  tSlot slot = found->second;
  modified_ = true;
  if (text != nullptr) {
    slot.name->text = text;
    return slot.position;
  }
  // The later entries move down in the list, but their indexed positions are left as they
  // are until the names are next loaded from the store.
  index.erase(found);
  names_.erase(std::find(names_.begin(), names_.end(), slot.name));
  delete slot.name;
  return slot.position;
}

unsigned Item::locales() {
  if (locale_ == IDataStore::BADOFF) return 0;
  if (unindexed()) setupLocales();
  return index_ ? static_cast<unsigned>(index_->size()) : 0;
}

void Item::locale(unsigned i, WideString& text, WideString& locale) {
  text.clear();
  locale.clear();
  if (locale_ == IDataStore::BADOFF) return;
  if (unindexed()) setupLocales();
  if (i >= names_.size()) return;  // a stale position past the end reads nothing
  text = names_[i]->text;
  locale = names_[i]->locale;
}

void Item::writeBack() {
  // An emptied list deliberately writes nothing: the table in the store stays as it was.
  if (names_.empty()) return;
  unsigned size = 0;
  for (const tName* name : names_)
    size += wideSize(name->locale) + wideSize(name->text);
  PooledBuffer payload(size);
  unsigned char* at = payload.data();
  for (const tName* name : names_)
    at = putWide(putWide(at, name->locale), name->text);

  if (locale_ != IDataStore::BADOFF) {
    Record::Locale(store_, locale_).payload(size, payload.data());
    return;
  }
  Record::Locale table(store_);
  table.payload(size, payload.data());
  Record::Entity record(store_, offset_);
  record.locale(table.offset());
  record.update(true);
  locale_ = table.offset();
}

void Item::dropNames() {
  for (tName* name : names_)
    delete name;
  names_.clear();
}

}  // namespace kestrine::platform::data::Metadata
