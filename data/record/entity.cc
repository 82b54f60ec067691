#include "data/record/entity.h"

#include <algorithm>
#include <cstring>
#include <cwchar>
#include <string>
#include <vector>

#include "data/record/primitive_record.h"
#include "kestrine/platform/data/metadata/value.h"

namespace kestrine::platform::data::Record {

namespace {

// The variable part of each entity kind: size of the fixed part, the selectors of its
// arrays in storage order, and which of them holds the name.
struct ArrayLayout {
  unsigned fixed;
  unsigned count;
  unsigned selectors[4];
  unsigned name;
};

const ArrayLayout kRootLayout = {24, 1, {18}, 18};
const ArrayLayout kPrimitiveLayout = {44, 4, {26, 30, 34, 38}, 30};
const ArrayLayout kTableLayout = {36, 2, {26, 30}, 26};
const ArrayLayout kContainerLayout = {32, 3, {19, 23, 27}, 19};

const ArrayLayout& layoutOf(tType kind) {
  switch (kind) {
    case kPrimitive:
      return kPrimitiveLayout;
    case kTable:
      return kTableLayout;
    case kContainer:
      return kContainerLayout;
    default:
      return kRootLayout;
  }
}

}  // namespace

unsigned wideBytes(const wchar_t* text) {
  return text == nullptr ? 0 : static_cast<unsigned>(std::wcslen(text)) * 4 + 4;
}

Entity::Entity(IDataStore* store, unsigned offset, Loading how) : Base(store, offset, how) {
  if (used() != 0) check();
}

bool Entity::load(unsigned offset, Loading how) {
  Base::load(offset, how);
  const tType kind = id();
  if (kind != kRoot && kind != kPrimitive && kind != kTable && kind != kContainer) return false;
  check();
  return true;
}

void Entity::expect(tType kind) const {
  if (used() != 0 && id() != kind)
    damaged("a record of kind " + std::to_string(id()) + " where one of kind " +
            std::to_string(kind) + " belongs");
}

void Entity::check() const {
  tType kind = id();
  if (kind != kRoot && kind != kPrimitive && kind != kTable && kind != kContainer)
    damaged("its kind " + std::to_string(kind) + " is no entity's");
  const ArrayLayout& layout = layoutOf(kind);
  if (used() < layout.fixed) damaged("shorter than the fixed part of its kind");
  unsigned long long end = layout.fixed;
  for (unsigned i = 0; i < layout.count; ++i) {
    unsigned selector = layout.selectors[i];
    unsigned length = get32(selector);
    // Every array holds wide text but a primitive's values, unless they are a URI.
    bool text = !(kind == kPrimitive && selector == Primitive::kValues && !(flags() & kUri));
    if (text && length % 4 != 0) damaged("a text of " + std::to_string(length) + " bytes");
    end += length;
  }
  if (end > used()) damaged("its arrays run past its end");
  if (kind == kPrimitive) {
    std::uint32_t type = get32(22);
    if (type < metadata::kBinary || type > metadata::kStruct)
      damaged("a value type " + std::to_string(type) + " that does not exist");
  }
}

Entity::Entity(IDataStore* store, unsigned size, tType kind) : Base(store, size, kind) {
  parent(IDataStore::BADOFF);
  locale(IDataStore::BADOFF);
}

void Entity::ref() {
  references(references() + 1);
  patch(5, 4, false);
}

void Entity::unref() {
  references(references() - 1);
  patch(5, 4, false);
}

Header::Header(IDataStore* store, unsigned offset) : store_(store), offset_(offset) {
  const unsigned read = store->read(offset, bytes_, sizeof bytes_);
  if (read == 0) damagedRecord(offset, "no record is there");
  const auto kind = static_cast<tType>(bytes_[0]);
  if (kind != kRoot && kind != kPrimitive && kind != kTable && kind != kContainer)
    damagedRecord(offset, "its kind " + std::to_string(kind) + " is no entity's");
  if (read < sizeof bytes_) damagedRecord(offset, "shorter than the fixed part of its kind");
}

Primitive::tPlace Primitive::values(IDataStore* store, unsigned offset) {
  unsigned char fixed[44];
  const unsigned read = store->read(offset, fixed, sizeof fixed);
  if (read == 0) damagedRecord(offset, "no record is there");
  if (fixed[0] != kPrimitive)
    damagedRecord(offset, "a record of kind " + std::to_string(fixed[0]) + " where one of kind " +
                              std::to_string(kPrimitive) + " belongs");
  if (read < sizeof fixed) damagedRecord(offset, "shorter than the fixed part of its kind");
  auto field = [&fixed](unsigned at) {
    std::uint32_t value;
    std::memcpy(&value, fixed + at, 4);
    return value;
  };
  // The values are the last array.
  const unsigned long long start =
      sizeof fixed + 0ull + field(kValueLocale) + field(kName) + field(kBase);
  const unsigned end = store->size(offset);
  if (start + field(kValues) > end) damagedRecord(offset, "its arrays run past its end");
  return {static_cast<unsigned>(start), field(kValues), end};
}

void Header::put(unsigned at, const void* value, unsigned width, bool changed) {
  store_->patch(offset_, at, value, width, changed);
  std::memcpy(bytes_ + at, value, width);
}

void Header::parent(unsigned offset) {
  put(1, &offset, 4, true);
}

void Header::references(unsigned count) {
  put(5, &count, 4, false);
}

void Header::flags(std::uint8_t bits) {
  put(13, &bits, 1, true);
}

unsigned Entity::arrayStart(unsigned selector) const {
  const ArrayLayout& layout = layoutOf(id());
  return Base::arrayStart(layout.fixed, layout.selectors, layout.count, selector);
}

core::string::WideString Entity::string(unsigned selector) const {
  const std::wstring_view held = text(selector);
  return core::string::WideString(held.data(), static_cast<unsigned>(held.size()));
}

std::wstring_view Entity::text(unsigned selector) const {
  return arrayText(arrayStart(selector), length(selector));
}

void Entity::arrays(unsigned selector, const void* data, unsigned length) {
  const ArrayLayout& layout = layoutOf(id());
  replaceArray(layout.fixed, layout.selectors, layout.count, selector, data, length);
}

void Entity::string(unsigned selector, const wchar_t* text) {
  arrays(selector, text, wideBytes(text));
}

unsigned Entity::nameSelector() const {
  return layoutOf(id()).name;
}

core::string::WideString Entity::name() const {
  return string(nameSelector());
}

void Entity::name(const wchar_t* text, unsigned length) {
  std::vector<unsigned char> bytes(length, 0);
  std::memcpy(bytes.data(), text, std::min(length, wideBytes(text)));
  arrays(nameSelector(), bytes.data(), length);
}

void Entity::initName(const wchar_t* text) {
  initArray(nameSelector(), text, wideBytes(text));
}

void Entity::initArray(unsigned selector, const void* data, unsigned length) {
  put32(selector, length);
  if (data != nullptr && length != 0) std::memcpy(arrays(selector), data, length);
}

Property::Property(IDataStore* store, unsigned size, tType kind) : Entity(store, size, kind) {}

tType NamePeek::read(IDataStore* store, unsigned offset) {
  bytes_ = head_;
  length_ = 0;
  unsigned read = store->read(offset, head_, sizeof head_);
  tType kind = static_cast<tType>(read != 0 ? head_[0] : 0);
  if (kind != kPrimitive && kind != kTable && kind != kContainer) return kind;
  const ArrayLayout& layout = layoutOf(kind);
  if (read < layout.fixed) return kind;
  auto field = [this](unsigned position) {
    std::uint32_t value;
    std::memcpy(&value, head_ + position, 4);
    return value;
  };
  // The name's place: after the fixed part and the arrays stored before it.
  unsigned long long start = layout.fixed;
  for (unsigned i = 0; layout.selectors[i] != layout.name; ++i)
    start += field(layout.selectors[i]);
  unsigned long long end = start + field(layout.name);
  if (end > read && read == sizeof head_) {
    whole_.resize(static_cast<std::size_t>(std::min<unsigned long long>(end, store->size(offset))));
    read = store->read(offset, whole_.data(), static_cast<unsigned>(whole_.size()));
    bytes_ = whole_.data();
  }
  end = std::min<unsigned long long>(end, read);
  // Up to the terminator: a renamed child's array is longer than its name.
  unsigned long long at = start;
  for (; at + 4 <= end; at += 4) {
    std::uint32_t character;
    std::memcpy(&character, bytes_ + at, 4);
    if (character == 0) break;
  }
  bytes_ += start;
  length_ = static_cast<std::size_t>(at - start);
  return kind;
}

tType peekName(IDataStore* store, unsigned offset, core::string::WideString& name) {
  NamePeek peek;
  const tType kind = peek.read(store, offset);
  std::wstring characters(peek.length() / 4, L'\0');
  std::memcpy(characters.data(), peek.bytes(), peek.length());
  name = core::string::WideString(std::move(characters));
  return kind;
}

}  // namespace kestrine::platform::data::Record
