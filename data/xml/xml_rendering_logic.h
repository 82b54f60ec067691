#ifndef KPL_DATA_XML_XML_RENDERING_LOGIC_H_
#define KPL_DATA_XML_XML_RENDERING_LOGIC_H_

#include <string>
#include <string_view>
#include <vector>

#include "data/tree/item_reader.h"
#include "data/tree/offset_set.h"
#include "data/xml/markup_stream.h"
#include "data/xml/primitive_text.h"
#include "kestrine/platform/core/datastore.h"
#include "kestrine/platform/data/format/xml.h"
#include "kestrine/platform/data/metadata/schema.h"

namespace kestrine::platform::data::XML {

// Writes a subtree of a store as an XML document: each record is read by its kind and written
// as its element, then its children in list order. Hidden items (flag 0x04) are left out with
// their whole subtree; records of other kinds are skipped. The elements:
//   <root version=".." name="..">, then the localized names;
//   <node|group|link name=".." class=".." to="..">, then the localized names;
//   <table name=".." class="..">, one empty <default unit=".." type=".."/> per unit group in
//     ascending group order ("type" left out for a value type without a default name), then
//     the localized names;
//   a primitive's element with "name", "units", "locale", "type" (structs), "uri" (URI mode),
//     the localized names, and the values unless there are none or it is in URI mode. The
//     values go into one "val" when the item has localized names, so that text never mixes
//     with them; several strings each get their own "val". Struct values are written only
//     with a locator that resolves the base.
// An exact export (tExportOptions::exact) writes floating values in the fewest digits that
// read back bit for bit, and optional="true" on optional containers and tables.
//
// Records are read in place, never opened as items: writing a tree moves no reference count
// and copies no text out of a record. Owns none of its pointers. One thread at a time.
class XMLRenderingLogic {
 public:
  // Writes the XML header and the record at `offset` with its subtree, as `options` say.
  // Store and writer failures pass through.
  XMLRenderingLogic(core::storage::datastore::IDataStore* store, MarkupStream* writer,
                    metadata::ISchemaLocator* locator, unsigned offset,
                    const format::xml::tExportOptions& options = format::xml::tExportOptions());
  ~XMLRenderingLogic();
  XMLRenderingLogic(const XMLRenderingLogic&) = delete;
  XMLRenderingLogic& operator=(const XMLRenderingLogic&) = delete;

  // Writes the record at `offset` and its descendants; nothing for BADOFF.
  void translate(unsigned offset);

 private:
  // Writes the record's start tag (a primitive's whole element) when `parent`, the lister
  // that gave it, lists it; true when it is a set whose children are to be written next, as
  // `children` lists them. Nothing changes the store while the document is written, so they
  // are listed as the walk goes.
  bool start(unsigned offset, std::size_t depth, Metadata::Set::Lister* parent,
             Metadata::Set::Lister& children);
  // The start tag of the record just read, by kind, with its attributes and localized names
  // (a primitive's whole element but its end tag). A container of no known kind writes
  // nothing and answers false.
  void root();
  bool container();
  void table();
  void primitive();
  // Starts element `tag` with the record's "name" attribute.
  void begin(const char* tag);
  // Adds an attribute unless `value` is empty or null.
  void attribute(const char* name, std::wstring_view value);
  void attribute(const char* name, const wchar_t* value);
  // In an exact export, optional="true" for an optional item.
  void optional();
  // One "name" element per localized name of the record, in list order.
  void names();
  // One block of values, in a "val" element when `wrap`.
  template <class Text>
  void block(bool wrap, const Text& text);

  core::storage::datastore::IDataStore* store_;
  MarkupStream* writer_;
  const bool exact_;
  Metadata::ItemReader reader_;
  PrimitiveText text_;
  // Every record written. A tree lists each record once; in a damaged store a children list
  // may lead back up, or list one subtree many times over, and the output would grow without
  // bound.
  Metadata::OffsetSet written_;
};

}  // namespace kestrine::platform::data::XML

#endif  // KPL_DATA_XML_XML_RENDERING_LOGIC_H_
