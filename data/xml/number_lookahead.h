#ifndef KPL_DATA_XML_NUMBER_LOOKAHEAD_H_
#define KPL_DATA_XML_NUMBER_LOOKAHEAD_H_

#include <string>
#include <string_view>
#include <vector>

#include <sparsehash/dense_hash_map>

#include "data/values/number_text.h"
#include "kestrine/platform/core/hash.h"
#include "kestrine/platform/core/xml.h"
#include "kestrine/platform/data/metadata/value.h"

namespace kestrine::platform::data::XML {

// Reads blocks of numbers on the tokenizing thread, ahead of the import: reading numbers is
// the largest part of an import's work on the calling thread, while the tokenizing thread
// waits for it. At the end tag of an element whose name makes its text a block of numbers
// (a numeric primitive, or a "val" inside one), the text since the last tag goes through
// Values::scanBlock, and what it answers is attached to the end tag.
//
// The lookahead only guesses, from names alone, and its guess may be wrong: the element may
// be skipped, or stand for a target of another type, or its text include that of a skipped
// child. The import therefore takes a block only for the type it reads, and only when its
// own text is the text since the last tag, which is then the text the block was read from.
class NumberLookahead : public core::xml::XMLLookahead {
 public:
  NumberLookahead();

  void startElement(const char* name) override;
  void characterData(const char* data, int length) override;
  void endElement(const char* name, std::string* attachment) override;

  // What Values::scanBlock answered for `type` and the text: `read`, the block and, when
  // read, its elements, unaligned.
  struct tScanned {
    metadata::tValue type = metadata::kNone;
    bool read = false;
    Values::tBlock block;
    std::string_view elements;
  };
  // The block of an end tag's attachment; false when it has none.
  static bool scanned(std::string_view attachment, tScanned& block);

 private:
  // The numeric type whose block an element's text is by the element's name; kNone for
  // none.
  metadata::tValue typeOf(const char* name) const;

  google::dense_hash_map<const char*, metadata::tValue, core::tSFHKernel,
                         core::tCompareEqual<const char*>>
      types_;
  // The type of each open element seen, innermost last.
  std::vector<metadata::tValue> open_;
  std::string text_;
  std::vector<char> elements_;
};

}  // namespace kestrine::platform::data::XML

#endif  // KPL_DATA_XML_NUMBER_LOOKAHEAD_H_
