#include "data/xml/number_lookahead.h"

#include <cstdint>
#include <cstring>

#include "data/values/value_types.h"

namespace kestrine::platform::data::XML {

namespace {

// Opens an attachment; the elements follow it.
struct tHeader {
  std::uint64_t numbers;
  std::uint8_t type;
  bool read;
  bool trailing;
};

// Longer than any type's name.
constexpr std::size_t kLongestName = 16;

}  // namespace

NumberLookahead::NumberLookahead() {
  types_.set_empty_key("");
  for (const Values::tValueTraits* type = Values::begin(); type != Values::end(); ++type)
    if (type->text == Values::tTextForm::kNumbers) types_[type->name] = type->type;
}

metadata::tValue NumberLookahead::typeOf(const char* name) const {
  // Names are matched as the import matches them: ASCII letters in either case.
  char lowered[kLongestName + 1];
  std::size_t i = 0;
  for (; name[i] != '\0'; ++i) {
    if (i == kLongestName) return metadata::kNone;
    const char c = name[i];
    lowered[i] = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  }
  lowered[i] = '\0';
  auto found = types_.find(lowered);
  if (found != types_.end()) return found->second;
  if (std::strcmp(lowered, "val") == 0 && !open_.empty()) return open_.back();
  return metadata::kNone;
}

void NumberLookahead::startElement(const char* name) {
  open_.push_back(typeOf(name));
  text_.clear();
}

void NumberLookahead::characterData(const char* data, int length) {
  if (!open_.empty() && open_.back() != metadata::kNone)
    text_.append(data, static_cast<std::size_t>(length));
}

void NumberLookahead::endElement(const char*, std::string* attachment) {
  // In automatic mode the first events go unseen: an end tag may close an element whose
  // start was never seen here, and whose text may have begun unseen. Such an element is no
  // open one, since every element opened here closes before it: nothing is attached.
  const metadata::tValue type = open_.empty() ? metadata::kNone : open_.back();
  if (!open_.empty()) open_.pop_back();
  if (type == metadata::kNone || text_.empty() || attachment == nullptr) {
    text_.clear();
    return;
  }
  elements_.clear();
  Values::tBlock block;
  const bool read = Values::scanBlock(type, text_.c_str(), elements_, block);
  text_.clear();
  const tHeader header{block.numbers, static_cast<std::uint8_t>(type), read, block.trailing};
  attachment->assign(reinterpret_cast<const char*>(&header), sizeof header);
  if (read) attachment->append(elements_.data(), elements_.size());
}

bool NumberLookahead::scanned(std::string_view attachment, tScanned& block) {
  if (attachment.size() < sizeof(tHeader)) return false;
  tHeader header;
  std::memcpy(&header, attachment.data(), sizeof header);
  block.type = static_cast<metadata::tValue>(header.type);
  block.read = header.read;
  block.block.numbers = header.numbers;
  block.block.trailing = header.trailing;
  block.elements = attachment.substr(sizeof header);
  return true;
}

}  // namespace kestrine::platform::data::XML
