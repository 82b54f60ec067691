#ifndef KPL_DATA_SCHEMA_LAYOUT_H_
#define KPL_DATA_SCHEMA_LAYOUT_H_

#include <memory>
#include <string>
#include <vector>

#include "data/tree/name_index.h"
#include "data/tree/set.h"
#include "kestrine/platform/data/metadata/schema.h"

namespace kestrine::platform::data::Schema {

class SchemaLocatorImpl;

// A schema table flattened into packed fields. Its primitive members become fields named
// after them; a nested table contributes its members under "table." names; a struct member
// whose base resolves to exactly one layout is expanded into that layout's fields, once per
// element ("p[0].x", "p[1].x", or "p.x" for a single element). There is no alignment: each
// field starts where the previous one ends, and the stride is the sum of the sizes.
//
// Immutable once built, so any number of threads may read it. The locator that built it owns
// it; it lives until the locator is destroyed or the store that defines it is popped.
class Layout : public metadata::IStructLayout {
 public:
  // One flattened field: its own copy of the name and the public view pointing at it.
  class Field {
   public:
    // A field of that name with type, count, offset and size 0.
    explicit Field(const wchar_t* name);
    // A field of that name with the type, count, offset and size of `other`.
    Field(const wchar_t* name, const Field& other);
    // The view points into the field itself, so a field never moves.
    Field(const Field&) = delete;
    Field& operator=(const Field&) = delete;

    const tField& view() const { return view_; }
    tField& view() { return view_; }

   private:
    core::string::WideString name_;
    tField view_;
  };

  // What the constructor throws when the layout would hold more fields than the locator's
  // limit.
  struct TooLarge {};

  // Lays out `definition`, a fully loaded table of `path`, and takes ownership of it (also
  // when construction fails). Struct members resolve their bases through `locator`, which
  // may therefore build further layouts on this thread; without a locator they are left out.
  // Throws TooLarge past the locator's field limit; store and allocation failures pass
  // through.
  Layout(SchemaLocatorImpl* locator, const wchar_t* path, Metadata::Set* definition);
  // Destroys the fields and the definition. A store failure while the definition drops its
  // reference count cannot leave a destructor of the public interface; it is dropped, and the
  // schema record merely keeps that count.
  ~Layout() override;
  Layout(const Layout&) = delete;
  Layout& operator=(const Layout&) = delete;

  unsigned fields() const override;
  unsigned stride() const override;
  unsigned values() const override;
  const tField* get(core::string::WideString name) override;
  const tField* get(unsigned index) override;

  // The schema path the layout was built for; also the locator's cache key.
  const wchar_t* path() const { return path_.string(); }
  // The table whose members the layout describes; owned by the layout.
  Metadata::Set* definition() const { return definition_.get(); }

  // Appends `field` (taking ownership, also when this fails) at the current stride and
  // indexes its name unless an earlier field has it: the first field of a name answers
  // get(name), but every field counts.
  void add(Field* field);

 private:
  // Drops the definition without letting a store failure escape (see the destructor).
  struct tQuietDelete {
    void operator()(Metadata::Set* set) const noexcept;
  };

  // Appends the fields of every member of `set`, each named `prefix` + its name. `prefix` is
  // the walk's one name buffer; it is left as it was found.
  void layout(SchemaLocatorImpl* locator, std::wstring& prefix, Metadata::Set* set);
  // Appends `count` copies of the fields of `sub`, one per struct element.
  void expand(const std::wstring& member, const Layout& sub, unsigned count);
  // Adds one field or table with a name of `characters` to the cost, and throws TooLarge past
  // the limit.
  void charge(unsigned long long characters);

  // Declared first so that it is owned before anything else can fail.
  std::unique_ptr<Metadata::Set, tQuietDelete> definition_;
  core::string::WideString path_;
  Metadata::NameIndex<Field*> index_;
  std::vector<std::unique_ptr<Field>> fields_;
  unsigned stride_;
  unsigned values_;
  // The most the layout may cost, 0 for no limit: a field or nested table costs one, and one
  // more for every kCharactersPerField characters of its name.
  static constexpr unsigned kCharactersPerField = 64;
  const unsigned long long limit_;
  unsigned long long cost_;
};

}  // namespace kestrine::platform::data::Schema

#endif  // KPL_DATA_SCHEMA_LAYOUT_H_
