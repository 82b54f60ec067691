#ifndef KPL_DATA_XML_PRIMITIVE_TEXT_H_
#define KPL_DATA_XML_PRIMITIVE_TEXT_H_

#include <string>
#include <string_view>
#include <vector>

#include "data/values/number_text.h"
#include "data/xml/remarks.h"
#include "kestrine/platform/data/metadata/schema.h"

namespace kestrine::platform::data::Design {
class Primitive;
}  // namespace kestrine::platform::data::Design

namespace kestrine::platform::data::XML {

// The values of a primitive as documents hold them, in blocks of text: "binary" is one
// base64 block; each string of a text type is a block of its own; the numbers are one block of
// decimal tokens, one per element; a struct is one block of the components of all its
// fields in layout order, each written and read as its field's type. The element handler
// reads and writes documents with it, and the front end offers it to clients for one
// primitive.
//
// One object serves one thread: it keeps its scratch buffers between calls.
class PrimitiveText {
 public:
  // `locator` resolves the schemas of structs; without one, struct values have no text.
  explicit PrimitiveText(metadata::ISchemaLocator* locator) : locator_(locator) {}

  // A primitive's values as they are written: its type, its value array (none in URI mode)
  // and, for a struct, its schema.
  struct tValues {
    metadata::tValue type;
    std::string_view bytes;
    std::wstring_view base;
  };

  // The blocks of the values; none when there are none, in URI mode, or for a struct whose
  // schema does not resolve.
  std::vector<std::wstring> write(const tValues& values, Values::FloatDigits digits);
  std::vector<std::wstring> write(Design::Primitive& primitive, Values::FloatDigits digits);
  // For the numeric types and structs, whose values are one block of numbers, that block as
  // ASCII in `text` (true), or false when write() gives no block; false for the other types.
  // Saves writers of UTF-8 the detour through wide text. The text stays until the next call.
  bool writeNumbers(const tValues& values, Values::FloatDigits digits, std::string_view& text);
  // Whether the values are a block of numbers of a numeric type (not a struct), which
  // writeNumbers() writes as Values::printNumbers prints them.
  static bool numberBlock(const tValues& values);
  // For binary values, their base64 block in `text` (true); false for other types and when
  // there are no values. The text stays until the next call.
  bool writeBase64(const tValues& values, std::string_view& text);
  // For the text types, their strings as write() gives them, as views that stay until the
  // next call; none for other types.
  const std::vector<std::wstring_view>& writeStrings(const tValues& values);

  // What a reader of a document watches for: where to remark what it passes over (null for
  // nowhere), and how many bytes a primitive's values may take (0: no limit).
  struct tWatch {
    Remarks* remarks = nullptr;
    unsigned long long limit = 0;
  };

  // Reads one block (UTF-8) into the primitive. A block of a text type is written at element
  // 0, or with `append` after the strings held: appended strings are kept here until
  // finish(), since writing each to the record would copy all the values every time, which
  // makes thousands of blocks take minutes. Numbers are written from element 0 on,
  // growing the array as needed; a token that does not read leaves its element as it was.
  // Struct tokens make whole structs only, written from element 0. Nothing changes in URI
  // mode, nor for a struct whose schema does not resolve, nor when the values would take more
  // than the limit. Remarks: tokens that are no number or do not fit the type, struct tokens
  // left over, values over the limit. `ahead` is what a NumberLookahead attached for the
  // text, if anything: a block read there for the primitive's type is taken as it is.
  void read(Design::Primitive& primitive, const char* text, bool append, const tWatch& watch,
            std::string_view ahead = {});
  // Writes the strings appended to `primitive` since the last call; the primitive's blocks
  // are complete.
  void finish(Design::Primitive& primitive);

 private:
  // Splits `text` into tokens_ at blanks, tabs, CRs and LFs: leading and repeated separators
  // make no token, the text after the last separator always makes one (empty after trailing
  // whitespace).
  void split(const char* text);
  // The common block, whose every token reads whole and is kept as written, read at once
  // without splitting it, with the result the tokens give; false, having changed nothing,
  // when the tokens are to be read one by one.
  bool readNumberBlock(Design::Primitive& primitive, const char* text, const tWatch& watch,
                       std::string_view ahead);
  void readNumbers(Design::Primitive& primitive, const tWatch& watch);
  void readStructs(Design::Primitive& primitive, const tWatch& watch);
  // False, with a remark, when `bytes` of values are over the limit.
  static bool fits(unsigned long long bytes, const tWatch& watch);
  // Remarks a token that is no number (`stored` null) or that was stored otherwise.
  static void remarkToken(const tWatch& watch, metadata::tValue type, const char* token,
                          const char* stored);
  std::string_view numbers(const tValues& values, Values::FloatDigits digits);
  bool structs(const tValues& values, Values::FloatDigits digits, std::string_view& text);
  // The struct layout of the schema `base`; null without a locator or when it does not
  // resolve. `schema` keeps it alive.
  metadata::IStructLayout* layout(std::wstring_view base,
                                  core::memory::SharedPtr<metadata::ISchema>& schema);

  metadata::ISchemaLocator* locator_;
  std::string scratch_;
  // The text of the last block of numbers or base64 written, the strings last written and
  // the characters they lie in.
  std::string printed_;
  std::vector<std::wstring_view> strings_;
  std::vector<wchar_t> characters_;
  std::vector<const char*> tokens_;
  std::vector<char> values_;
  // Places whose held value a read keeps.
  std::vector<unsigned> kept_;
  // Strings appended and not yet written, each with its terminator.
  std::wstring appended_;
};

}  // namespace kestrine::platform::data::XML

#endif  // KPL_DATA_XML_PRIMITIVE_TEXT_H_
