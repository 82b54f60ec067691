#ifndef KPL_DATA_XML_XML_ROOT_H_
#define KPL_DATA_XML_XML_ROOT_H_

#include <string>
#include <unordered_set>

#include "data/xml/element.h"

namespace kestrine::platform::data::XML {

// The "root" element: the outermost element of a document. Attributes "name" (mandatory)
// and "version" (the store's format version); children: containers and tables; sub-element
// "name".
class XMLRoot : public Element {
 public:
  // What nest() throws, when the root is exclusive, for a child whose name the root's set
  // holds already.
  struct NameTaken {
    WideString name;
  };

  // An exclusive root refuses, by throwing NameTaken, a child whose name its set held before
  // the parse: an import that adds to a tree keeps all of a document or nothing. Names the
  // document itself repeats are handled as by any root.
  explicit XMLRoot(IDataStore* store, bool exclusive = false);

  const char* name() const override;
  unsigned type() const override;
  // A new Metadata::Root named by "name"; "version", when present, is read as an unsigned
  // 32-bit number (0 when unreadable) and stored as the store's format version.
  Metadata::Item* open(const char** attributes) override;
  // Containers and tables are added to the root's set (the child is taken even when the
  // set refuses its name, unless the root is exclusive); primitives and roots are refused.
  Metadata::Item* nest(Metadata::Item* parent, Metadata::Item* child) override;

 private:
  bool exclusive_;
  // The names an exclusive root took from this document. A standard set, because it
  // allocates nothing until a name goes in: every parse and every export makes a root
  // handler, and only an import into a tree ever fills this one.
  std::unordered_set<std::wstring> added_;
};

}  // namespace kestrine::platform::data::XML

#endif  // KPL_DATA_XML_XML_ROOT_H_
