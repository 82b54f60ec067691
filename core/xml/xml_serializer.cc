#include <algorithm>
#include <array>
#include <cstring>
#include <cwchar>
#include <string>
#include <type_traits>
#include <vector>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include "core/string/utf8.h"
#include "kestrine/platform/core/string.h"
#include "kestrine/platform/core/xml.h"

namespace kestrine::platform::core::xml {

namespace utf8 = string::utf8;

namespace {

// Output is handed to the writer in pieces of about this size.
constexpr std::size_t kFlushBytes = 64 * 1024;
// Indentation stops growing at this depth: a chain of a hundred thousand elements would
// otherwise write gigabytes of spaces.
constexpr std::size_t kIndentLevels = 64;
constexpr char kDeclaration[] = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";

// The characters an XML 1.0 document can carry at all (production Char).
bool isXMLChar(char32_t c) {
  return c == 0x9 || c == 0xA || c == 0xD || (c >= 0x20 && c <= 0xD7FF) ||
         (c >= 0xE000 && c <= 0xFFFD) || (c >= 0x10000 && c <= 0x10FFFF);
}

enum class Context { kName, kText, kAttribute };

// Whether `c` is printable ASCII that goes out as it is: one byte, no reference.
constexpr bool plain(char32_t c, Context context) {
  if (c < 0x20 || c > 0x7E) return false;
  if (context == Context::kName) return true;
  return c != '&' && c != '<' && c != '>' && (c != '"' || context == Context::kText);
}

// plain() by context for every byte value: a UTF-8 byte past ASCII is never plain. A table
// look-up per character is what the writer's inner loops cost.
constexpr std::array<std::array<bool, 256>, 3> kPlain = [] {
  std::array<std::array<bool, 256>, 3> table{};
  for (Context context : {Context::kName, Context::kText, Context::kAttribute})
    for (unsigned c = 0; c < 256; ++c)
      table[static_cast<int>(context)][c] = plain(c, context);
  return table;
}();

bool plainUnit(char32_t c, Context context) {
  return c < 256 && kPlain[static_cast<int>(context)][c];
}

// The pending output. Bytes are stored at a cursor into a buffer that grows only when a
// piece outgrows it, so that writing a character is a store rather than a call.
class Output {
 public:
  // Room for `n` more bytes, written from the answer on and then committed where they end.
  char* room(std::size_t n) {
    if (bytes_.size() - used_ < n) bytes_.resize(std::max(2 * bytes_.size(), used_ + n));
    return bytes_.data() + used_;
  }
  void commit(const char* end) { used_ = static_cast<std::size_t>(end - bytes_.data()); }
  void put(char c) {
    *room(1) = c;
    ++used_;
  }
  void put(const char* text, std::size_t length) {
    std::memcpy(room(length), text, length);
    used_ += length;
  }
  const char* data() const { return bytes_.data(); }
  std::size_t size() const { return used_; }
  bool empty() const { return used_ == 0; }
  void clear() { used_ = 0; }

 private:
  std::string bytes_;
  std::size_t used_ = 0;
};

// Writes `c`, which is not plain(), as UTF-8 escaped for where it goes; where it ends. In
// attribute values, tab, newline and carriage return are written as references because a
// parser normalises the literal characters to spaces; in text, a literal carriage return
// would be read back as a newline.
char* escape(char32_t c, Context context, char* to) {
  auto put = [&to](const char* reference) {
    const std::size_t length = std::strlen(reference);
    std::memcpy(to, reference, length);
    return to + length;
  };
  if (context != Context::kName) {
    switch (c) {
      case '&':
        return put("&amp;");
      case '<':
        return put("&lt;");
      case '>':  // always, so that "]]>" never appears in text
        return put("&gt;");
      case '\r':
        return put("&#xD;");
    }
    if (context == Context::kAttribute) {
      switch (c) {
        case '"':
          return put("&quot;");
        case '\t':
          return put("&#x9;");
        case '\n':
          return put("&#xA;");
      }
    }
  }
  return utf8::encode(isXMLChar(c) ? c : utf8::kReplacement, to);
}

#ifdef __SSE2__
// Which of the sixteen bytes are not plain() in `context`, as a mask of their bits.
int markupBytes(__m128i bytes, Context context) {
  // Compared as signed bytes: those past ASCII are negative, below the space.
  __m128i markup = _mm_or_si128(_mm_cmplt_epi8(bytes, _mm_set1_epi8(0x20)),
                                _mm_cmpgt_epi8(bytes, _mm_set1_epi8(0x7E)));
  if (context != Context::kName) {
    markup = _mm_or_si128(markup, _mm_cmpeq_epi8(bytes, _mm_set1_epi8('&')));
    // "<" (0x3C) and ">" (0x3E) are the two bytes that become ">" with bit 1 set.
    markup = _mm_or_si128(
        markup, _mm_cmpeq_epi8(_mm_or_si128(bytes, _mm_set1_epi8(2)), _mm_set1_epi8('>')));
    if (context == Context::kAttribute)
      markup = _mm_or_si128(markup, _mm_cmpeq_epi8(bytes, _mm_set1_epi8('"')));
  }
  return _mm_movemask_epi8(markup);
}

// The characters from `text` on that are plain() in `context`, up to `length` and in blocks of
// eight and four, written as bytes at `to`; how many. The characters are narrowed with saturation,
// so that any past ASCII, or negative, lands on a byte that is not plain.
std::size_t copyPlainBlocks(const wchar_t* text, std::size_t length, Context context, char* to) {
  static_assert(sizeof(wchar_t) == 4, "four characters to a vector");
  auto four = [text](std::size_t at) {
    const __m128i wide = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text + at));
    return _mm_packs_epi32(wide, wide);
  };
  std::size_t done = 0;
  for (; done + 8 <= length; done += 8) {
    const __m128i narrow = _mm_unpacklo_epi64(four(done), four(done + 4));
    const __m128i bytes = _mm_packus_epi16(narrow, narrow);
    if ((markupBytes(bytes, context) & 0xFF) != 0) break;
    _mm_storel_epi64(reinterpret_cast<__m128i*>(to + done), bytes);
  }
  // Then four at a time, the last four once more where they reach back into those already
  // copied, so that a name's tail needs no character-by-character step.
  while (done < length && length >= 4) {
    const std::size_t at = std::min(done, length - 4);
    const __m128i bytes = _mm_packus_epi16(four(at), four(at));
    if ((markupBytes(bytes, context) & 0xF) != 0) break;
    const int copied = _mm_cvtsi128_si32(bytes);
    std::memcpy(to + at, &copied, 4);
    done = at + 4;
  }
  return done;
}
#endif

// Each character takes at most this many bytes escaped ("&quot;").
constexpr std::size_t kWidest = 6;
// Text is escaped this many characters at a time, each slice's room asked for once.
constexpr std::size_t kSlice = 4096;

// Writes `length` characters of `text`, at most kSlice, as UTF-8 escaped for where they go at
// `to`, which has room for kWidest bytes a character; where they end. Runs of plain ASCII,
// which names and most values are, go four characters at a time.
char* putEscaped(const wchar_t* text, std::size_t length, Context context, char* to) {
  for (std::size_t i = 0; i < length; ++i) {
#ifdef __SSE2__
    if (const std::size_t plain = copyPlainBlocks(text + i, length - i, context, to)) {
      to += plain;
      i += plain;
      if (i == length) break;
    }
#endif
    const char32_t c = utf8::codePoint(text[i]);
    if (plainUnit(c, context))
      *to++ = static_cast<char>(c);
    else
      to = escape(c, context, to);
  }
  return to;
}

// Appends `text` as UTF-8, escaped for where it goes, a slice at a time.
void appendEscaped(Output& out, const wchar_t* text, std::size_t length, Context context) {
  while (length != 0) {
    const std::size_t count = std::min(length, kSlice);
    out.commit(putEscaped(text, count, context, out.room(count * kWidest)));
    text += count;
    length -= count;
  }
}

// Copies `text` to `to` when every byte of it is plain in text, printable ASCII but "&", "<"
// and ">"; false, with `to` partly written, when one is not. Most text given as UTF-8 is
// numbers, all plain, so with SSE2 sixteen bytes are told and copied at a time.
bool copyPlainText(const char* text, std::size_t length, char* to) {
  std::size_t i = 0;
#ifdef __SSE2__
  for (; i + 16 <= length; i += 16) {
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text + i));
    if (markupBytes(bytes, Context::kText) != 0) return false;
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to + i), bytes);
  }
#endif
  for (; i < length; ++i) {
    const unsigned char c = static_cast<unsigned char>(text[i]);
    if (!kPlain[static_cast<int>(Context::kText)][c]) return false;
    to[i] = static_cast<char>(c);
  }
  return true;
}

void appendName(Output& out, const wchar_t* name) {
  appendEscaped(out, name, std::wcslen(name), Context::kName);
}

// Names given as UTF-8 up to this many bytes are copied and checked in one pass.
constexpr std::size_t kShortName = 64;

// Writes `name`, given as UTF-8, at `to`, which has room for kShortName bytes, when it is that
// short and plain, as a program's ASCII constants are; where it ends, or null for any other.
char* putShortName(const char* name, char* to) {
  bool plain = true;
  for (std::size_t i = 0; i < kShortName; ++i) {
    const unsigned char c = static_cast<unsigned char>(name[i]);
    if (c == 0) return plain ? to + i : nullptr;
    to[i] = static_cast<char>(c);
    plain &= kPlain[static_cast<int>(Context::kName)][c];
  }
  return nullptr;
}

void appendName(Output& out, const char* name) {
  if (char* end = putShortName(name, out.room(kShortName))) {
    out.commit(end);
    return;
  }
  const string::WideString wide = string::StringAlgorithm::UTF8Decode(name);
  appendEscaped(out, wide.string(), wide.length(), Context::kName);
}

// The names of the open elements, as written, one after the other: each ends where the next
// one starts. Every name has kShortName bytes of room from its start, so that a short one is
// copied in and out as a block of that fixed size, a few moves rather than a call.
class NameStack {
 public:
  std::size_t size() const { return used_; }

  // Pushes the `length` bytes at `name`; when there are at most kShortName of them, that
  // many must be readable there.
  void push(const char* name, std::size_t length) {
    const std::size_t wanted = used_ + std::max(length, kShortName);
    if (bytes_.size() < wanted) bytes_.resize(2 * wanted);
    std::memcpy(bytes_.data() + used_, name, length <= kShortName ? kShortName : length);
    used_ += length;
  }

  // Writes the names from `start` on, the innermost one, at `to`, which has room for it and
  // for at least kShortName bytes; where it ends.
  char* copy(std::size_t start, char* to) const {
    const std::size_t length = used_ - start;
    std::memcpy(to, bytes_.data() + start, length <= kShortName ? kShortName : length);
    return to + length;
  }

  void pop(std::size_t start) { used_ = start; }

 private:
  std::vector<char> bytes_;
  std::size_t used_ = 0;
};

// Writes a line break and the indentation for `depth` at `to`, which has room for
// kLineBreakRoom bytes; where they end. The spaces go sixteen at a time.
constexpr std::size_t kLineBreakRoom = 1 + 2 * kIndentLevels + 16;
char* putLineBreak(std::size_t depth, char* to) {
  static constexpr char kSpaces[] = "                ";
  const std::size_t indent = 2 * std::min(depth, kIndentLevels);
  *to++ = '\n';
  for (std::size_t i = 0; i < indent; i += 16)
    std::memcpy(to + i, kSpaces, 16);
  return to + indent;
}

}  // namespace

struct XMLSerializer::Impl {
  // An element whose end tag is not written yet.
  struct Open {
    std::size_t name;          // where its name starts in `names`
    bool startTagOpen = true;  // its start tag still takes attributes: ">" not written
    bool hasChildren = false;
    bool hasText = false;
  };

  KPLUUID id;
  io::IDataWriter* writer = nullptr;
  Output buffer;
  std::vector<Open> open;
  NameStack names;
  // Open elements that have received character data. While there is one, everything written
  // is part of its text, so no whitespace may be added.
  std::size_t withText = 0;

  explicit Impl(const KPLUUID& id) : id(id) {}

  void flush() {
    if (writer == nullptr || buffer.empty()) return;
    // Emptied first, so that a failing writer leaves no half-sent buffer behind; the bytes
    // stay where they are until the next write.
    const std::size_t size = buffer.size();
    buffer.clear();
    for (std::size_t at = 0; at < size;) {
      unsigned piece = static_cast<unsigned>(std::min<std::size_t>(size - at, 1u << 30));
      writer->write(buffer.data() + at, piece);
      at += piece;
    }
  }

  void flushIfLarge() {
    if (buffer.size() >= kFlushBytes) flush();
  }

  // The innermost open element, which must exist for `operation`.
  Open& innermost(const char* operation) {
    if (open.empty())
      throw Exception(std::string("XML serializer: ") + operation + " outside any element");
    return open.back();
  }

  // Prepares the innermost element for `length` characters of text; false when there are
  // none to write.
  bool startText(std::size_t length) {
    Open& element = innermost("character data");
    if (length == 0) return false;
    closeStartTag(element);
    if (!element.hasText) ++withText;
    element.hasText = true;
    return true;
  }

  void closeStartTag(Open& element) {
    if (!element.startTagOpen) return;
    buffer.put('>');
    element.startTagOpen = false;
  }

  template <class Char>
  void start(const Char* name) {
    if (name == nullptr || *name == 0) throw Exception("XML serializer: element without a name");
    // The parent's ">", the line break and "<" in one piece of room, with room for a short
    // name behind them, which the name stack reads whole.
    char* to = buffer.room(1 + kLineBreakRoom + 1 + kShortName);
    if (!open.empty()) {
      Open& parent = open.back();
      if (parent.startTagOpen) *to++ = '>';
      parent.startTagOpen = false;
      if (withText == 0) to = putLineBreak(open.size(), to);
      parent.hasChildren = true;
    }
    *to++ = '<';
    buffer.commit(to);
    open.push_back({names.size()});
    const std::size_t start = buffer.size();
    appendName(buffer, name);
    names.push(buffer.data() + start, buffer.size() - start);
    flushIfLarge();
  }

  template <class Char>
  void attribute(const Char* name, const wchar_t* value, std::size_t length) {
    if (!innermost("attribute").startTagOpen)
      throw Exception("XML serializer: attribute after the content of its element");
    if (name == nullptr || *name == 0) throw Exception("XML serializer: attribute without a name");
    if (value == nullptr) length = 0;
    // A short plain name and a value of one slice, the usual attribute, in one piece of room.
    if constexpr (std::is_same_v<Char, char>) {
      if (length <= kSlice) {
        char* to = buffer.room(kShortName + length * kWidest + 4);
        if (char* end = putShortName(name, to + 1)) {
          *to = ' ';
          std::memcpy(end, "=\"", 2);
          end = putEscaped(value, length, Context::kAttribute, end + 2);
          *end++ = '"';
          buffer.commit(end);
          flushIfLarge();
          return;
        }
      }
    }
    buffer.put(' ');
    appendName(buffer, name);
    buffer.put("=\"", 2);
    appendEscaped(buffer, value, length, Context::kAttribute);
    buffer.put('"');
    flushIfLarge();
  }
};

XMLSerializer::XMLSerializer(const KPLUUID& id) : impl_(new Impl(id)) {}

// Best effort: a destructor cannot report a failing writer. detach() can.
XMLSerializer::~XMLSerializer() {
  try {
    impl_->flush();
  } catch (...) {
  }
}

const KPLUUID& XMLSerializer::id() const {
  return impl_->id;
}

void XMLSerializer::attach(io::IDataWriter* writer) {
  impl_->writer = writer;
  impl_->flushIfLarge();
}

void XMLSerializer::detach() {
  impl_->flush();
  impl_->writer = nullptr;
}

void XMLSerializer::emitXMLHeader() {
  impl_->buffer.put(kDeclaration, sizeof kDeclaration - 1);
}

void XMLSerializer::startElement(const wchar_t* name) {
  impl_->start(name);
}

void XMLSerializer::startElement(const char* name) {
  impl_->start(name);
}

void XMLSerializer::addAttribute(const wchar_t* name, const wchar_t* value) {
  addAttribute(name, value, value != nullptr ? std::wcslen(value) : 0);
}

void XMLSerializer::addAttribute(const wchar_t* name, const wchar_t* value, std::size_t length) {
  impl_->attribute(name, value, length);
}

void XMLSerializer::addAttribute(const char* name, const wchar_t* value, std::size_t length) {
  impl_->attribute(name, value, length);
}

void XMLSerializer::characters(const wchar_t* text) {
  characters(text, text == nullptr ? 0 : std::wcslen(text));
}

void XMLSerializer::characters(const wchar_t* text, std::size_t length) {
  Impl& impl = *impl_;
  if (!impl.startText(text != nullptr ? length : 0)) return;
  appendEscaped(impl.buffer, text, length, Context::kText);
  impl.flushIfLarge();
}

void XMLSerializer::characters(const char* text, std::size_t length) {
  Impl& impl = *impl_;
  if (!impl.startText(text != nullptr ? length : 0)) return;
  char* to = impl.buffer.room(length);
  if (copyPlainText(text, length, to)) {
    impl.buffer.commit(to + length);
  } else {
    const string::WideString wide = string::StringAlgorithm::UTF8Decode(text, length);
    appendEscaped(impl.buffer, wide.string(), wide.length(), Context::kText);
  }
  impl.flushIfLarge();
}

void XMLSerializer::endElement(bool flush) {
  Impl& impl = *impl_;
  Impl::Open& element = impl.innermost("end tag");
  const std::size_t length = impl.names.size() - element.name;
  char* to = impl.buffer.room(kLineBreakRoom + 3 + std::max(length, kShortName) + 1);
  if (element.startTagOpen) {
    std::memcpy(to, "/>", 2);
    to += 2;
  } else {
    if (element.hasChildren && impl.withText == 0) to = putLineBreak(impl.open.size() - 1, to);
    std::memcpy(to, "</", 2);
    to = impl.names.copy(element.name, to + 2);
    *to++ = '>';
  }
  impl.names.pop(element.name);
  if (element.hasText) --impl.withText;
  impl.open.pop_back();
  if (impl.open.empty()) *to++ = '\n';
  impl.buffer.commit(to);
  if (flush)
    impl.flush();
  else
    impl.flushIfLarge();
}

}  // namespace kestrine::platform::core::xml
