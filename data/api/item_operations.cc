#include "data/api/item_operations.h"

#include <cwchar>

#include "data/record/entity.h"
#include "data/tree/lock.h"
#include "data/tree/logic.h"

namespace kestrine::platform::data::Api {

namespace {

WideString recordName(const Metadata::Item& item) {
  return Record::Entity(item.store(), item.offset()).name();
}

}  // namespace

WideString name(const Metadata::Item& item) {
  Metadata::Lock lock(item.store());
  return recordName(item);
}

WideString path(const Metadata::Item& item) {
  Metadata::Lock lock(item.store());
  WideString opened;
  item.path(opened);
  unsigned stem = opened.length() - static_cast<unsigned>(std::wcslen(item.tag()));
  return WideString(opened.string(), stem).append(recordName(item));
}

bool rename(const Metadata::Item& item, const WideString& name, bool tableParent) {
  Metadata::Lock lock(item.store());
  Record::tType kind = Record::peek(item.store(), item.parent());
  if (kind != Record::kContainer && !(tableParent && kind == Record::kTable)) return false;
  Design::Logic parent(item.store(), item.parent(), false);
  return parent.set()->rename(recordName(item).string(), name.value());
}

unsigned locales(Metadata::Item& item) {
  Metadata::Lock lock(item.store());
  return item.locales();
}

WideString locale(Metadata::Item& item, unsigned index) {
  Metadata::Lock lock(item.store());
  WideString text, locale;
  item.locale(index, text, locale);
  return locale;
}

unsigned describe(Metadata::Item& item, const WideString& locale, const WideString& text) {
  Metadata::Lock lock(item.store());
  return item.localize(text.value(), locale.value());
}

WideString localize(Metadata::Item& item, const WideString& locale) {
  Metadata::Lock lock(item.store());
  unsigned position = item.localize(locale.value());
  WideString text, found;
  if (position != 0xFFFFFFFF) item.locale(position, text, found);
  return text;
}

}  // namespace kestrine::platform::data::Api
