#ifndef KPL_DATA_XML_PRIMITIVE_TEXT_H_
#define KPL_DATA_XML_PRIMITIVE_TEXT_H_

#include <string>
#include <vector>

#include "data/values/number_text.h"
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

  // The blocks of the primitive's values; none when it has none, is in URI mode, or is a
  // struct whose schema does not resolve.
  std::vector<std::wstring> write(Design::Primitive& primitive, Values::FloatDigits digits);

  // Reads one block (UTF-8) into the primitive. A block of a text type replaces the values
  // with its string, or with `append` is added after the strings held. Numbers are written
  // from element 0 on, growing the array as needed; a token that does not read leaves its
  // element as it was. Struct tokens make whole structs only, which replace the values.
  // Nothing changes in URI mode, nor for a struct whose schema does not resolve.
  void read(Design::Primitive& primitive, const char* text, bool append);

 private:
  // Splits `text` into tokens_ at blanks, tabs, CRs and LFs: leading and repeated separators
  // make no token, the text after the last separator always makes one (empty after trailing
  // whitespace).
  void split(const char* text);
  void readNumbers(Design::Primitive& primitive);
  void readStructs(Design::Primitive& primitive);
  std::wstring numbers(Design::Primitive& primitive, Values::FloatDigits digits);
  bool structs(Design::Primitive& primitive, Values::FloatDigits digits, std::wstring& out);
  metadata::IStructLayout* layout(Design::Primitive& primitive,
                                  core::memory::SharedPtr<metadata::ISchema>& schema);

  metadata::ISchemaLocator* locator_;
  std::string scratch_;
  std::vector<const char*> tokens_;
  std::vector<char> values_;
};

}  // namespace kestrine::platform::data::XML

#endif  // KPL_DATA_XML_PRIMITIVE_TEXT_H_
