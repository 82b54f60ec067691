#include "data/tree/primitive.h"

#include <cassert>
#include <cstring>
#include <cwchar>

#include "data/record/primitive_record.h"
#include "data/tree/pooled_buffer.h"
#include "data/values/value_types.h"

namespace kestrine::platform::data::Design {

namespace {

// Type 0 has no element size: reaching an operation that counts elements with it is a bug
// of the caller, not a result.
unsigned elementSize(metadata::tValue type) {
  unsigned size = Primitive::stride(type);
  assert(size != 0 && "a primitive without a value type has no elements");
  return size;
}

}  // namespace

Primitive::Primitive(IDataStore* store, metadata::tValue type, const wchar_t* name)
    : Primitive(store, type, name, tStart()) {}

Primitive::Primitive(IDataStore* store, metadata::tValue type, const wchar_t* name,
                     const tStart& start)
    : uriMode_(start.uri != nullptr), valuetype_(type), valuesize_(0) {
  store_ = store;
  // Mostly there are none of these: the strings are made only for those there are.
  if (type == metadata::kStruct && start.base != nullptr) base_ = start.base;
  if (start.uri != nullptr) uri_ = start.uri;
  if (start.valuelocale != nullptr) valuelocale_ = start.valuelocale;
  Record::Primitive::tFresh fresh;
  fresh.type = type;
  fresh.name = name;
  fresh.units = start.units;
  fresh.references = 1;
  fresh.valueLocale = start.valuelocale;
  fresh.base = type == metadata::kStruct ? start.base : nullptr;
  if (uriMode_) {
    fresh.flags = Record::kUri;
    fresh.values = start.uri;
    fresh.valueBytes = Record::wideBytes(start.uri);
  } else {
    unsigned long long bytes = static_cast<unsigned long long>(start.elements) * stride(type);
    // An array no record can hold is no array: the primitive starts empty.
    if (bytes <= 0xFFFFFFFFull) fresh.valueBytes = static_cast<unsigned>(bytes);
  }
  Record::Primitive record(store, fresh);
  offset_ = record.offset();
  name_ = name;
  valuesize_ = fresh.valueBytes;
}

Primitive::Primitive(IDataStore* store, unsigned offset) : uriMode_(false), valuesize_(0) {
  store_ = store;
  offset_ = offset;
  Record::Primitive record(store, offset);
  parent_ = record.parent();
  name_ = record.name();
  base_ = record.string(Record::Primitive::kBase);
  valuetype_ = static_cast<metadata::tValue>(record.valuetype());
  valuesize_ = record.length(Record::Primitive::kValues);
  if (record.flags() & Record::kUri) {
    uri_ = record.string(Record::Primitive::kValues);
    uriMode_ = true;
  }
  locale_ = record.locale();
  valuelocale_ = record.string(Record::Primitive::kValueLocale);
  record.ref();
}

Primitive::~Primitive() {
  unref();
}

unsigned Primitive::stride(metadata::tValue type) {
  return Values::traits(type).elementSize;
}

unsigned Primitive::dimension() const {
  if (uriMode_) return 0;
  return valuesize_ / elementSize(valuetype_);
}

const wchar_t* Primitive::base() const {
  return base_.value();
}

unsigned Primitive::base(const wchar_t* uri) {
  if (valuetype_ != metadata::kStruct) return 0;
  Record::Primitive record(store_, offset_);
  record.string(Record::Primitive::kBase, uri);
  base_ = uri;
  return 1;
}

const wchar_t* Primitive::uri() const {
  return uriMode_ ? uri_.value() : nullptr;
}

unsigned Primitive::uri(const wchar_t* uri) {
  Record::Primitive record(store_, offset_);
  if (uri != nullptr)
    record.flags(record.flags() | Record::kUri);
  else
    record.flags(record.flags() & ~Record::kUri);
  record.string(Record::Primitive::kValues, uri);
  valuesize_ = record.length(Record::Primitive::kValues);
  uri_ = uri;
  uriMode_ = uri != nullptr;
  return 1;
}

const wchar_t* Primitive::valuelocale() const {
  return valuelocale_.value();
}

unsigned Primitive::valuelocale(const wchar_t* locale) {
  Record::Primitive record(store_, offset_);
  record.string(Record::Primitive::kValueLocale, locale);
  valuelocale_ = locale;
  return 1;
}

units::tUnit Primitive::units() const {
  return static_cast<units::tUnit>(Record::Primitive(store_, offset_).units());
}

void Primitive::units(units::tUnit unit) {
  Record::Primitive record(store_, offset_);
  record.units(unit);
  record.update(true);
}

unsigned Primitive::set(const char* data, unsigned index, unsigned count) {
  if (count == 0 || uriMode_) return 0;
  unsigned long long e = elementSize(valuetype_);
  unsigned long long n = valuesize_ / e;
  unsigned long long size = (static_cast<unsigned long long>(index) + count) * e;
  if (size > 0xFFFFFFFFull) return 0;  // no record can hold it
  if (n > 0 && index + count <= n) {
    // Only the bytes that change are written; the record is not read whole.
    const Record::Primitive::tPlace values = Record::Primitive::values(store_, offset_);
    if (values.length == valuesize_) {
      store_->patch(offset_, values.start + static_cast<unsigned>(index * e), data,
                    static_cast<unsigned>(count * e), true);
      return 1;
    }
  }
  if (n == 0 && index == 0) {
    // The values are the record's last array: an empty one grows by appending to the record,
    // which is not read whole. The bytes go first, so that a failure leaves the length as it
    // was, and the record readable.
    const Record::Primitive::tPlace values = Record::Primitive::values(store_, offset_);
    if (values.length == 0 && values.start == values.end) {
      const unsigned bytes = static_cast<unsigned>(size);
      store_->append(offset_, data, bytes);
      store_->patch(offset_, Record::Primitive::kValues, &bytes, 4, true);
      valuesize_ = bytes;
      return 1;
    }
  }
  Record::Primitive record(store_, offset_);
  if (n > 0 && index + count <= n) {
    std::memcpy(record.arrays(Record::Primitive::kValues) + index * e, data, count * e);
    record.update(true);
    return 1;
  }
  if (n == 0 && index == 0) {
    record.arrays(Record::Primitive::kValues, data, static_cast<unsigned>(size));
    valuesize_ = static_cast<unsigned>(size);
    return 1;
  }
  // Growing: the old elements (if any) at the start, zeros up to `index`, then the new ones.
  // An empty array takes them from `data` at the same byte position as in the target array,
  // since such callers deliberately pass a buffer laid out like the whole array.
  Metadata::PooledBuffer values(static_cast<unsigned>(size));
  if (n > 0) std::memcpy(values.data(), record.arrays(Record::Primitive::kValues), valuesize_);
  const char* source = n == 0 ? data + index * e : data;
  std::memcpy(values.data() + index * e, source, count * e);
  record.arrays(Record::Primitive::kValues, values.data(), values.size());
  valuesize_ = values.size();
  return 1;
}

unsigned Primitive::get(char* data, unsigned index, unsigned count) const {
  if (valuesize_ == 0 || count == 0 || uriMode_) return 0;
  unsigned long long e = elementSize(valuetype_);
  if (static_cast<unsigned long long>(index) + count > valuesize_ / e) return 0;
  Record::Primitive record(store_, offset_);
  std::memcpy(data, record.arrays(Record::Primitive::kValues) + index * e, count * e);
  return count;
}

unsigned Primitive::reset(unsigned count) {
  if (uriMode_) return 0;
  unsigned long long size = static_cast<unsigned long long>(count) * stride(valuetype_);
  if (size > 0xFFFFFFFFull) return 0;
  Record::Primitive record(store_, offset_);
  if (size == 0) {
    record.arrays(Record::Primitive::kValues, nullptr, 0);
  } else {
    Metadata::PooledBuffer zeros(static_cast<unsigned>(size));
    record.arrays(Record::Primitive::kValues, zeros.data(), zeros.size());
  }
  valuesize_ = static_cast<unsigned>(size);
  return 1;
}

bool Primitive::equivalent(const Primitive& other) const {
  return name_ == other.name_ && valuetype_ == other.valuetype_;
}

bool Primitive::unreferenced() {
  return Record::Primitive(store_, offset_).references() == 1;
}

void Primitive::clear() {
  Item::cleanup();
  Record::Primitive record(store_, offset_);
  record.locale(IDataStore::BADOFF);
  record.update(true);
}

unsigned Primitive::clone(IDataStore* target) {
  Record::Primitive record(store_, offset_);
  record.locale(duplicate(target));
  record.references(0);
  return record.clone(target);
}

}  // namespace kestrine::platform::data::Design
