#ifndef KESTRINE_PLATFORM_DATA_METADATA_PROPERTY_H_
#define KESTRINE_PLATFORM_DATA_METADATA_PROPERTY_H_

#include "kestrine/platform/core/datastore.h"
#include "kestrine/platform/core/memory.h"
#include "kestrine/platform/core/string.h"
#include "kestrine/platform/data/export.h"

namespace kestrine::platform::data::metadata {

class IPrimitive;

// A property of a container or a member of a table: a primitive value or a table. Every
// operation but store() takes the store's lock for its whole length; handles may be used
// from several threads. Destroying a handle never changes the store.
class KPL_DATA_API IProperty {
 public:
  enum tType : std::uint32_t { kPrimitive = 0, kTable = 1 };

  virtual ~IProperty();
  virtual core::string::WideString tag() const = 0;
  // The names from below the root down to this one, joined by ".".
  virtual core::string::WideString path() const = 0;
  virtual core::storage::datastore::IDataStore* store() const = 0;
  virtual tType type() const = 0;
  // Renames it within its container or table; false when the name is taken, the property
  // is name-locked (inherited and still hidden), or the parent is neither.
  virtual bool rename(core::string::WideString name) = 0;
  // The table that holds this property; empty for a property of a container.
  virtual core::memory::SharedPtr<IProperty> parent() = 0;
  // Localized descriptions: how many, the locale of the index-th, set one (a null text
  // removes it; the position concerned is returned), and the text for a locale (empty when
  // there is none). Descriptions set through a handle are stored when the handle's last
  // copy goes, and seen by handles opened afterwards.
  virtual unsigned locales() = 0;
  virtual core::string::WideString locale(unsigned int index) = 0;
  virtual unsigned describe(core::string::WideString locale, core::string::WideString text) = 0;
  virtual core::string::WideString localize(core::string::WideString locale) = 0;
  // The flag bits: 0x01 optional, 0x02 name locked, 0x04 hidden, 0x08 value is a URI; the
  // other bits are the caller's.
  virtual unsigned char flags() const = 0;
  virtual void on(unsigned char bits) = 0;
  virtual void off(unsigned char bits) = 0;
};

// An in-memory list of wide strings, packed into and out of text-typed primitives as the
// strings end to end, each with one zero terminator. Not shared between threads.
class KPL_DATA_API IStringArray {
 public:
  virtual ~IStringArray();
  virtual unsigned strings() const = 0;
  // A copy of the index-th string, unchecked: the caller keeps index below strings().
  virtual core::string::WideString get(unsigned int index) const = 0;
  virtual void add(core::string::WideString text) = 0;
  // Replaces the values of a text-typed primitive ("uuid", "string", "time", "uri",
  // "version") by the packed strings; false, changing nothing, for any other type.
  virtual bool write(IPrimitive* target) = 0;

  // Splits `count` wide characters at every zero into strings (characters after the last
  // zero are dropped). The caller owns the result and deletes it.
  static IStringArray* to(wchar_t const* buffer, unsigned int count);
};

}  // namespace kestrine::platform::data::metadata

#endif  // KESTRINE_PLATFORM_DATA_METADATA_PROPERTY_H_
