#include "data/xml/primitive_text.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "data/tree/primitive.h"
#include "data/values/value_types.h"
#include "data/xml/number_lookahead.h"
#include "kestrine/platform/core/string.h"

namespace kestrine::platform::data::XML {

using core::string::StringAlgorithm;
using core::string::WideString;
using Values::tTextForm;

namespace {

// Calls visit(type, position, width) for each component of `structs` packed structs laid
// out by `layout`: per struct, the fields in layout order, each field's components in turn,
// at the field's offset plus the component's index times its width. Stops when visit
// answers false.
template <class Visit>
void components(metadata::IStructLayout* layout, std::size_t structs, Visit visit) {
  unsigned fields = layout->fields();
  for (std::size_t s = 0; s < structs; ++s) {
    for (unsigned f = 0; f < fields; ++f) {
      const metadata::IStructLayout::tField* field = layout->get(f);
      if (field == nullptr || field->count == 0) continue;
      unsigned width = field->size / field->count;
      for (unsigned c = 0; c < field->count; ++c) {
        std::size_t position = s * layout->stride() + field->offset + std::size_t(c) * width;
        if (!visit(field->type, position, width)) return;
      }
    }
  }
}

// The blanks, tabs, CRs and LFs that separate tokens, by byte.
constexpr std::array<bool, 256> kSeparators = [] {
  std::array<bool, 256> table{};
  for (unsigned char c : {' ', '\t', '\r', '\n'})
    table[c] = true;
  return table;
}();

// Appends one number's text to a blank-separated block.
void appendToken(std::string& out, const char* token, std::size_t length) {
  if (!out.empty()) out += ' ';
  out.append(token, length);
}

}  // namespace

std::vector<std::wstring> PrimitiveText::write(Design::Primitive& primitive,
                                               Values::FloatDigits digits) {
  // In URI mode there are no elements, and no values to write.
  const bool held = primitive.dimension() != 0;
  values_.assign(held ? primitive.valuesize() : 0, 0);
  if (held) primitive.get(values_.data(), 0, primitive.dimension());
  const wchar_t* base = primitive.base();
  return write(tValues{primitive.valuetype(),
                       {values_.data(), values_.size()},
                       base != nullptr ? std::wstring_view(base) : std::wstring_view()},
               digits);
}

std::vector<std::wstring> PrimitiveText::write(const tValues& values, Values::FloatDigits digits) {
  std::vector<std::wstring> blocks;
  std::string_view text;
  if (writeNumbers(values, digits, text) || writeBase64(values, text))
    blocks.emplace_back(text.begin(), text.end());
  for (std::wstring_view string : writeStrings(values))
    blocks.emplace_back(string);
  return blocks;
}

bool PrimitiveText::writeBase64(const tValues& values, std::string_view& text) {
  if (Values::traits(values.type).text != tTextForm::kBase64 || values.bytes.empty()) return false;
  printed_.assign(StringAlgorithm::EncodeBase64(values.bytes.data(), values.bytes.size()));
  text = printed_;
  return true;
}

const std::vector<std::wstring_view>& PrimitiveText::writeStrings(const tValues& values) {
  strings_.clear();
  const unsigned width = Values::traits(values.type).elementSize;
  if (Values::traits(values.type).text != tTextForm::kStrings || values.bytes.size() < width)
    return strings_;
  // Copied out: the values need not lie where wide characters may be read.
  characters_.resize(values.bytes.size() / width);
  std::memcpy(characters_.data(), values.bytes.data(), characters_.size() * width);
  // Strings end at their terminators; a last one without is still a string.
  std::size_t start = 0;
  for (std::size_t i = 0; i < characters_.size(); ++i) {
    if (characters_[i] != L'\0') continue;
    strings_.emplace_back(characters_.data() + start, i - start);
    start = i + 1;
  }
  if (start < characters_.size())
    strings_.emplace_back(characters_.data() + start, characters_.size() - start);
  return strings_;
}

bool PrimitiveText::numberBlock(const tValues& values) {
  const unsigned width = Values::traits(values.type).elementSize;
  return Values::traits(values.type).text == tTextForm::kNumbers && width != 0 &&
         values.bytes.size() >= width;
}

bool PrimitiveText::writeNumbers(const tValues& values, Values::FloatDigits digits,
                                 std::string_view& text) {
  if (numberBlock(values)) {
    text = numbers(values, digits);
    return true;
  }
  const unsigned width = Values::traits(values.type).elementSize;
  return Values::traits(values.type).text == tTextForm::kStruct && width != 0 &&
         values.bytes.size() >= width && structs(values, digits, text);
}

std::string_view PrimitiveText::numbers(const tValues& values, Values::FloatDigits digits) {
  const std::size_t count = values.bytes.size() / Values::traits(values.type).elementSize;
  // Printed in place. The buffer only grows, so that it is not filled anew for each block.
  const std::size_t room = count * Values::kNumberTextSize;
  if (printed_.size() < room) printed_.resize(room);
  return {printed_.data(),
          Values::printNumbers(values.type, values.bytes.data(), count, printed_.data(), digits)};
}

metadata::IStructLayout* PrimitiveText::layout(std::wstring_view base,
                                               core::memory::SharedPtr<metadata::ISchema>& schema) {
  if (locator_ == nullptr || base.empty()) return nullptr;
  schema = locator_->resolve(WideString(base.data(), static_cast<unsigned>(base.size())));
  return schema ? schema->layout() : nullptr;
}

bool PrimitiveText::structs(const tValues& values, Values::FloatDigits digits,
                            std::string_view& text) {
  core::memory::SharedPtr<metadata::ISchema> schema;
  metadata::IStructLayout* layout = this->layout(values.base, schema);
  if (layout == nullptr || layout->stride() == 0) return false;
  const std::string_view bytes = values.bytes;
  char number[Values::kNumberTextSize];
  std::string& out = printed_;
  out.clear();
  components(layout, bytes.size() / layout->stride(),
             [&](metadata::tValue type, std::size_t position, unsigned) {
               // A component without a number form (a string member) reads back as zero.
               bool fits = position + Design::Primitive::stride(type) <= bytes.size();
               std::size_t length =
                   fits ? Values::printNumber(type, bytes.data() + position, number, digits) : 0;
               if (length == 0) number[length++] = '0';
               appendToken(out, number, length);
               return true;
             });
  text = out;
  return true;
}

void PrimitiveText::read(Design::Primitive& primitive, const char* text, bool append,
                         const tWatch& watch, std::string_view ahead) {
  if (text == nullptr || primitive.uri() != nullptr) return;
  switch (Values::traits(primitive.valuetype()).text) {
    case tTextForm::kBase64: {
      std::vector<unsigned char> bytes;
      StringAlgorithm::DecodeBase64(text, std::strlen(text), bytes);
      if (!bytes.empty() && fits(bytes.size(), watch))
        primitive.set(reinterpret_cast<const char*>(bytes.data()), 0,
                      static_cast<unsigned>(bytes.size()));
      break;
    }
    case tTextForm::kStrings: {
      WideString string = StringAlgorithm::UTF8Decode(text);
      const unsigned long long held = primitive.dimension() + appended_.size();
      const unsigned width = Design::Primitive::stride(primitive.valuetype());
      if (append) {
        if (fits((held + string.length() + 1) * width, watch))
          appended_.append(string.string(), string.length() + 1);
        break;
      }
      finish(primitive);
      if (fits(std::max(string.length() + 1ull, held) * width, watch))
        primitive.set(reinterpret_cast<const char*>(string.string()), 0, string.length() + 1);
      break;
    }
    case tTextForm::kNumbers:
      if (readNumberBlock(primitive, text, watch, ahead)) break;
      split(text);
      readNumbers(primitive, watch);
      break;
    case tTextForm::kStruct:
      split(text);
      readStructs(primitive, watch);
      break;
    case tTextForm::kNone:
      break;
  }
}

void PrimitiveText::finish(Design::Primitive& primitive) {
  if (appended_.empty()) return;
  std::wstring strings;
  strings.swap(appended_);
  primitive.set(reinterpret_cast<const char*>(strings.data()), primitive.dimension(),
                static_cast<unsigned>(strings.size()));
}

bool PrimitiveText::fits(unsigned long long bytes, const tWatch& watch) {
  if (watch.limit == 0 || bytes <= watch.limit) return true;
  if (watch.remarks != nullptr)
    watch.remarks->remark((L"the values would take " + std::to_wstring(bytes) +
                           L" bytes, more than the limit of " + std::to_wstring(watch.limit) +
                           L": they are not read")
                              .c_str());
  return false;
}

void PrimitiveText::split(const char* text) {
  auto separator = [](char c) { return kSeparators[static_cast<unsigned char>(c)]; };
  scratch_.assign(text);
  tokens_.clear();
  char* at = scratch_.data();
  char* end = at + scratch_.size();
  while (at != end && separator(*at))
    ++at;
  for (;;) {
    tokens_.push_back(at);
    while (at != end && !separator(*at))
      ++at;
    if (at == end) return;
    *at++ = '\0';
    while (at != end && separator(*at))
      ++at;
    if (at == end) {
      tokens_.push_back(at);
      return;
    }
  }
}

bool PrimitiveText::readNumberBlock(Design::Primitive& primitive, const char* text,
                                    const tWatch& watch, std::string_view ahead) {
  const metadata::tValue type = primitive.valuetype();
  const unsigned held = primitive.dimension();
  NumberLookahead::tScanned scanned;
  if (!NumberLookahead::scanned(ahead, scanned) || scanned.type != type) {
    values_.clear();
    scanned.type = type;
    scanned.read = Values::scanBlock(type, text, values_, scanned.block);
    scanned.elements = {values_.data(), values_.size()};
  }
  const Values::tBlock& block = scanned.block;
  // Fewer numbers than held values keep the rest, which the tokens do.
  if (!scanned.read || block.numbers < held) return false;
  // Limited as the tokens are: a split makes one more, empty, after trailing separators.
  const std::size_t tokens = block.numbers + (block.trailing ? 1 : 0);
  if (!fits(std::max<unsigned long long>(held, tokens) * Design::Primitive::stride(type), watch))
    return true;
  primitive.set(scanned.elements.data(), 0, static_cast<unsigned>(block.numbers));
  return true;
}

void PrimitiveText::readNumbers(Design::Primitive& primitive, const tWatch& watch) {
  // Setting token by token would write the record once per token, each time whole; the
  // array is assembled here instead and written once, with the same result.
  metadata::tValue type = primitive.valuetype();
  unsigned width = Design::Primitive::stride(type);
  unsigned held = primitive.dimension();
  if (!fits(std::max<unsigned long long>(held, tokens_.size()) * width, watch)) return;
  values_.assign(std::max<std::size_t>(held, tokens_.size()) * width, 0);
  // Tokens that are no number keep the value held at their place, as do the places past the
  // last number read; only then are the held values read. A document's primitive is made with
  // as many zeros as it gives numbers, so mostly they are not read at all.
  kept_.clear();
  unsigned end = 0;
  for (unsigned i = 0; i < tokens_.size(); ++i) {
    char value[8];
    if (!Values::scanNumber(type, tokens_[i], value)) {
      // The empty token that trailing whitespace makes holds no number to lose.
      if (watch.remarks != nullptr && *tokens_[i] != '\0')
        remarkToken(watch, type, tokens_[i], nullptr);
      if (i < held) kept_.push_back(i);
      continue;
    }
    if (watch.remarks != nullptr && !Values::fitsElement(type, tokens_[i], value))
      remarkToken(watch, type, tokens_[i], value);
    std::memcpy(values_.data() + std::size_t(i) * width, value, width);
    end = i + 1;
  }
  if (end == 0) return;
  if (!kept_.empty() || end < held) {
    std::vector<char> old(std::size_t(held) * width);
    primitive.get(old.data(), 0, held);
    for (unsigned i = end; i < held; ++i)
      kept_.push_back(i);
    for (unsigned i : kept_)
      std::memcpy(values_.data() + std::size_t(i) * width, old.data() + std::size_t(i) * width,
                  width);
  }
  primitive.set(values_.data(), 0, std::max(end, held));
}

// "'abc' is no int32: the element keeps its value", or "'300' does not fit an int8: it is
// stored as 44".
void PrimitiveText::remarkToken(const tWatch& watch, metadata::tValue type, const char* token,
                                const char* stored) {
  WideString text(L"'");
  text.append(StringAlgorithm::UTF8Decode(token)).append(L"'");
  WideString name = StringAlgorithm::UTF8Decode(Values::traits(type).name);
  if (stored == nullptr) {
    text.append(L" is no ").append(name).append(L" number: the element keeps its value");
  } else {
    wchar_t number[Values::kNumberTextSize];
    Values::printNumber(type, stored, number, Values::FloatDigits::kSeven);
    text.append(L" does not fit a ").append(name).append(L": it is stored as ").append(number);
  }
  watch.remarks->remark(text);
}

void PrimitiveText::readStructs(Design::Primitive& primitive, const tWatch& watch) {
  core::memory::SharedPtr<metadata::ISchema> schema;
  const wchar_t* base = primitive.base();
  metadata::IStructLayout* layout =
      this->layout(base != nullptr ? std::wstring_view(base) : std::wstring_view(), schema);
  if (layout == nullptr || layout->values() == 0 || layout->fields() == 0) return;
  std::size_t count = tokens_.size() / layout->values();
  std::size_t bytes = count * layout->stride();
  if (watch.remarks != nullptr && tokens_.size() % layout->values() != 0 && *tokens_.back() != '\0')
    watch.remarks->remark((std::to_wstring(tokens_.size() % layout->values()) +
                           L" tokens are left over: a struct of this type takes " +
                           std::to_wstring(layout->values()))
                              .c_str());
  if (bytes == 0 || bytes > 0xFFFFFFFFu || !fits(bytes, watch)) return;
  values_.assign(bytes, 0);
  std::size_t token = 0;
  components(layout, count, [&](metadata::tValue type, std::size_t position, unsigned width) {
    if (token == tokens_.size()) return false;
    char value[8];
    bool read = width <= sizeof value && position + width <= values_.size() &&
                Values::scanNumber(type, tokens_[token], value);
    if (read)
      std::memcpy(values_.data() + position, value, width);
    else if (watch.remarks != nullptr)
      remarkToken(watch, type, tokens_[token], nullptr);
    ++token;
    return true;
  });
  primitive.set(values_.data(), 0, static_cast<unsigned>(bytes));
}

}  // namespace kestrine::platform::data::XML
