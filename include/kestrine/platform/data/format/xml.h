#ifndef KESTRINE_PLATFORM_DATA_FORMAT_XML_H_
#define KESTRINE_PLATFORM_DATA_FORMAT_XML_H_

#include <cstdint>
#include <vector>

#include "kestrine/platform/core/datastore.h"
#include "kestrine/platform/core/io.h"
#include "kestrine/platform/core/string.h"
#include "kestrine/platform/data/export.h"
#include "kestrine/platform/data/metadata/primitive.h"
#include "kestrine/platform/data/metadata/schema.h"
#include "kestrine/platform/data/structure/container.h"

namespace kestrine::platform::data::format::xml {

// How IXMLFrontEnd::import() reads a document of unknown origin. The defaults read it as
// parse() does, with no limits.
struct tImportOptions {
  // Reports also what the import passes over in silence: tokens that are no number or do
  // not fit their type, text of skipped elements that reaches a value, unknown units and
  // classes, names and defaults that block later ones, children dropped or merged beside
  // another of their name. Each report then begins "line L, column C: ".
  bool thorough = false;
  // Elements nested deeper than this many levels are reported and skipped; 0: no limit.
  unsigned depthLimit = 0;
  // A primitive whose values would take more bytes than this is reported and skipped (or
  // keeps the values it had), and the text of an element that takes more than 8 times as
  // many is reported and dropped; 0: no limit.
  unsigned long long valueLimit = 0;
  // Tokenizes a document of more than 64 KiB on a second thread while the calling thread
  // builds the tree, if it may run on more than one processor (core::xml::XMLParser's
  // automatic mode): the import then takes about as long as building the tree alone. The
  // reader, the locator and the reporter are still called on the calling thread only, and
  // the result is the same. Off by default, so that the library starts no thread unasked.
  bool secondThread = false;
};

// How IXMLFrontEnd::serialize() writes a subtree.
struct tExportOptions {
  // A container or table is written inside the start and end tags of the tree's root, so
  // that the document imports as a tree of its own.
  bool inRoot = false;
  // Writes what the default export leaves out, so that a tree survives export and import
  // unchanged: finite scalar and double values in the fewest digits that read back bit for
  // bit (rather than 7 significant digits), and optional="true" on optional containers and
  // tables. Infinities and NaN are written as ever, and read back as no number.
  bool exact = false;
  // Writes a document of more than 64 KiB with a second thread, if one can be had: the
  // calling thread reads the store while that one prints numbers, escapes text and calls the
  // writer, which is then called on that thread only, one call at a time, until serialize()
  // returns. The output and the exceptions are the same. Off by default, so that the library
  // starts no thread unasked.
  bool secondThread = false;
};

// Reads XML documents into datastores and writes datastore subtrees as XML.
class KPL_DATA_API IXMLFrontEnd {
 public:
  // Receives each problem found in a document, one message a call.
  class KPL_DATA_API IErrorReporter {
   public:
    virtual ~IErrorReporter();
    virtual void report(core::string::WideString message) = 0;
  };

  IXMLFrontEnd() = delete;

  // Reads a whole document into `store`, creating a new root, then calls store->complete().
  // Problems in the content go to `reporter` (may be null) and their subtrees are skipped;
  // malformed XML and every other exception end the parse silently (what was read stays).
  static void parse(core::storage::datastore::IDataStore* store, core::io::IDataReader* reader,
                    metadata::ISchemaLocator* locator, metadata::IURIResolver* resolver,
                    IErrorReporter* reporter);
  // Reads a document into an existing container: the outermost element stands for it.
  // Unlike the form above, exceptions (malformed XML among them) pass through.
  static void parse(structure::IContainer* target, core::io::IDataReader* reader,
                    metadata::ISchemaLocator* locator, metadata::IURIResolver* resolver,
                    IErrorReporter* reporter);
  // Writes the record at `offset` and its subtree. Struct values are written only when a
  // locator is given.
  static void serialize(core::storage::datastore::IDataStore* store, core::io::IDataWriter* writer,
                        metadata::ISchemaLocator* locator, unsigned int offset);

  // -- For clients that decide what to keep ------------------------------------------------

  // Why import() kept nothing.
  enum tRefusal : std::uint32_t {
    kNotRefused = 0,
    kNoTree = 1,     // the store holds records but no tree to add to
    kNameTaken = 2,  // the tree holds a top-level container or table of a name the document adds
    kNoRoot = 3,     // the document, read into an empty store, made no tree (its outermost
                     // element is no "root")
  };
  // What import() did.
  struct tImport {
    tRefusal refused = kNotRefused;
    core::string::WideString name;  // with kNameTaken: the name
    unsigned reports = 0;           // the problems reported, each to the reporter
  };

  // Reads a whole document into `store` under the store's lock. Into an empty store the
  // document makes the tree: its root and the format version (1, unless the document's
  // root says otherwise). Into a store that holds a tree, the document's outermost element
  // stands for the tree's root and its containers and tables are added to it, none under a
  // name the root holds already: the import stops at the first such name, refused. A
  // document that leaves an empty store without a tree is refused too. Problems in the
  // content go to `reporter` (may be null), as in parse(), and are counted; `options` may
  // ask for more reports and set limits.
  //
  // Never calls complete(). Malformed XML throws core::xml::XMLException (line and column);
  // store and reader failures pass through. After a refusal or an exception the store holds
  // what was read before it; a client that wants all of a document or nothing holds the
  // store's lock around the call and then commits (complete()) or abandons
  // (IDataStore::abandon()). A store file commits at the release of its outermost lock.
  static tImport import(core::storage::datastore::IDataStore* store, core::io::IDataReader* reader,
                        metadata::ISchemaLocator* locator, IErrorReporter* reporter,
                        const tImportOptions& options = tImportOptions());

  // Writes the root (an empty path) or the container or table at the dotted `path` with its
  // subtree, as the form above does; false, writing nothing, when the path names none.
  static bool serialize(core::storage::datastore::IDataStore* store, core::io::IDataWriter* writer,
                        metadata::ISchemaLocator* locator, core::string::WideString path,
                        const tExportOptions& options = tExportOptions());

  // The values of a primitive as an export writes them, in blocks of text: "binary" one
  // base64 block, each string of a text type a block of its own, numbers one block of
  // blank-separated tokens, a struct one block of its fields' components (only with a
  // locator that resolves its type). None without values or in URI mode.
  static std::vector<core::string::WideString> values(metadata::IPrimitive* primitive,
                                                      metadata::ISchemaLocator* locator);
  // Gives a primitive the values of blocks of text, as an import reads an element's text
  // and its "val" children: the first block from element 0 on, each later string block
  // after the strings held, each later block of numbers from element 0 again. A token that
  // does not read leaves its element as it was. False, changing nothing, for a primitive
  // handle that this library did not make.
  static bool values(metadata::IPrimitive* primitive,
                     const std::vector<core::string::WideString>& blocks,
                     metadata::ISchemaLocator* locator);
};

}  // namespace kestrine::platform::data::format::xml

#endif  // KESTRINE_PLATFORM_DATA_FORMAT_XML_H_
