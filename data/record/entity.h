#ifndef KPL_DATA_RECORD_ENTITY_H_
#define KPL_DATA_RECORD_ENTITY_H_

#include <vector>

#include "data/record/base.h"

namespace kestrine::platform::data::Record {

// Flag bits of the entity header (byte 13).
enum tFlag : std::uint8_t {
  kOptional = 0x01,    // read from an element marked optional="true"
  kNameLocked = 0x02,  // the set refuses to rename or remove it; set by hiding, never cleared
  kHidden = 0x04,      // hidden, cleared by showing
  kUri = 0x08,         // primitive only: the value array holds a URI
};

// A record that starts with the entity header (roots, primitives, tables, containers):
//   0 kind u8 | 1 parent u32 | 5 reference count u32 | 9 locale table u32 | 13 flags u8
// followed by a fixed part of its kind and its variable arrays back to back. Each array's
// byte length stands in the fixed part at a position called its selector.
class Entity : public Base {
 public:
  // Loads the entity at `offset` and checks it against its own size: the kind of an entity,
  // the fixed part of its kind, arrays that end within the record, texts of whole
  // characters, and for a primitive a value type that exists. Throws core::Exception
  // "damaged record at offset N: ..." when it fails; a record that is not there loads empty
  // and is not checked.
  Entity(IDataStore* store, unsigned offset, Loading how = Loading::kCopy);
  // Loads and checks the entity at `offset` in place of the one held (see Base::load); false,
  // with nothing to read, where no entity is (no record, a list or a locale table). A damaged
  // entity throws as the constructor does.
  bool load(unsigned offset, Loading how = Loading::kCopy);
  // A fresh, unwritten record: parent and locale BADOFF, count and flags 0.
  Entity(IDataStore* store, unsigned size, tType kind);

  unsigned parent() const { return get32(1); }
  void parent(unsigned offset) { put32(1, offset); }
  unsigned references() const { return get32(5); }
  void references(unsigned count) { put32(5, count); }
  unsigned locale() const { return get32(9); }
  void locale(unsigned offset) { put32(9, offset); }
  std::uint8_t flags() const { return get8(13); }
  void flags(std::uint8_t bits) { put8(13, bits); }

  // Count +1 / -1, written alone with changed false. Neither checks for overflow or
  // underflow; reaching zero frees nothing (the owning set decides that).
  void ref();
  void unref();

  // Where the array at `selector` begins, and its byte length.
  unsigned char* arrays(unsigned selector) { return data() + arrayStart(selector); }
  const unsigned char* arrays(unsigned selector) const { return data() + arrayStart(selector); }
  unsigned length(unsigned selector) const { return get32(selector); }
  // The wide string held by the array at `selector`; empty when the array is.
  core::string::WideString string(unsigned selector) const;
  // The same text as a view into the buffer.
  std::wstring_view text(unsigned selector) const;
  // Replaces the array at `selector` and writes the record (see Base::replaceArray).
  void arrays(unsigned selector, const void* data, unsigned length);
  // Stores `text` with its terminator in the array at `selector`, or empties it for null.
  void string(unsigned selector, const wchar_t* text);

  // The entity's own name, whatever its kind.
  core::string::WideString name() const;
  // Replaces the name with `text` in an array of `length` bytes (at least 4k + 4 for k
  // characters: any room beyond the terminator is zero).
  void name(const wchar_t* text, unsigned length);
  // The selector of the name array of this record's kind.
  unsigned nameSelector() const;

 protected:
  // Writes the name of a fresh record, whose arrays are all still empty.
  void initName(const wchar_t* text);
  // Fills the array at `selector` of a fresh record with `length` bytes of `data` (zeros when
  // it is null). An array starts after the ones before it in storage order, so those are
  // filled first; the record was made large enough for them all.
  void initArray(unsigned selector, const void* data, unsigned length);
  // For the typed records: a loaded record of another kind is damaged (its bytes would be
  // read in the wrong layout).
  void expect(tType kind) const;

 private:
  void check() const;
  unsigned arrayStart(unsigned selector) const;
};

// The header shared by primitives and tables: the entity header, 4 bytes their own kinds
// use differently, then the units field at 18.
class Property : public Entity {
 public:
  Property(IDataStore* store, unsigned offset) : Entity(store, offset) {}
  // As Entity, with units 0.
  Property(IDataStore* store, unsigned size, tType kind);

  std::uint32_t units() const { return get32(18); }
  void units(std::uint32_t unit) { put32(18, unit); }
};

// The entity header of the record at `offset` alone, read and written without the rest:
// reference counts, flags and the parent change on every open, close and adoption of an
// item, and a primitive's values behind them may be large. Each setter writes its own field.
class Header {
 public:
  // Reads the header; throws "damaged record at offset N: ..." when the record is missing,
  // is no entity or is shorter than a header.
  Header(IDataStore* store, unsigned offset);
  unsigned parent() const { return field(1); }
  void parent(unsigned offset);
  unsigned references() const { return field(5); }
  // Written as a count, with changed false.
  void references(unsigned count);
  std::uint8_t flags() const { return bytes_[13]; }
  void flags(std::uint8_t bits);

 private:
  std::uint32_t field(unsigned at) const {
    std::uint32_t value;
    std::memcpy(&value, bytes_ + at, 4);
    return value;
  }
  void put(unsigned at, const void* value, unsigned width, bool changed);

  IDataStore* store_;
  unsigned offset_;
  unsigned char bytes_[14];
};

// Bytes a wide string of `text`'s length takes with its terminator (4k + 4).
unsigned wideBytes(const wchar_t* text);

// The name of an entity as its record holds it, read from the start of the record alone:
// the bytes of its characters (UTF-32, unaligned), without the terminator.
class NamePeek {
 public:
  NamePeek() = default;
  NamePeek(const NamePeek&) = delete;
  NamePeek& operator=(const NamePeek&) = delete;

  // The kind of the record at `offset` (as peek() gives it) and, for a primitive, table or
  // container, its name's bytes (else none).
  tType read(IDataStore* store, unsigned offset);
  const unsigned char* bytes() const { return bytes_; }
  std::size_t length() const { return length_; }

 private:
  unsigned char head_[128];
  // A record whose name ends past the head is read whole.
  std::vector<unsigned char> whole_;
  const unsigned char* bytes_ = head_;
  std::size_t length_ = 0;
};

// The kind of the record at `offset` (as peek() gives it) and, for a primitive, table or
// container, its name (else the name is left empty). Only the start of the record is read, up
// to the end of the name: a set indexes its children by name, and a primitive's values, which
// follow its name, may be large.
tType peekName(IDataStore* store, unsigned offset, core::string::WideString& name);

}  // namespace kestrine::platform::data::Record

#endif  // KPL_DATA_RECORD_ENTITY_H_
