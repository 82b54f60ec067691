#include <algorithm>
#include <array>
#include <cwchar>
#include <string>
#include <vector>

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

// Appends `text` as UTF-8, escaped for where it goes. In attribute values, tab, newline and
// carriage return are written as references because a parser normalises the literal
// characters to spaces; in text, a literal carriage return would be read back as a newline.
void appendEscaped(std::string& out, const wchar_t* text, std::size_t length, Context context) {
  for (std::size_t i = 0; i < length; ++i) {
    // Most text is runs of plain ASCII (names, numbers): those are copied a run at a time.
    std::size_t run = i;
    while (run < length && plain(utf8::codePoint(text[run]), context))
      ++run;
    while (i != run) {
      char narrow[256];
      const std::size_t count = std::min(run - i, sizeof narrow);
      std::copy(text + i, text + i + count, narrow);
      out.append(narrow, count);
      i += count;
    }
    if (i == length) return;
    char32_t c = utf8::codePoint(text[i]);
    if (context != Context::kName) {
      switch (c) {
        case '&':
          out += "&amp;";
          continue;
        case '<':
          out += "&lt;";
          continue;
        case '>':  // always, so that "]]>" never appears in text
          out += "&gt;";
          continue;
        case '\r':
          out += "&#xD;";
          continue;
      }
      if (context == Context::kAttribute) {
        switch (c) {
          case '"':
            out += "&quot;";
            continue;
          case '\t':
            out += "&#x9;";
            continue;
          case '\n':
            out += "&#xA;";
            continue;
        }
      }
    }
    utf8::append(out, isXMLChar(c) ? c : utf8::kReplacement);
  }
}

// plain() in text, for every byte: a UTF-8 byte past ASCII is not plain.
constexpr std::array<bool, 256> kPlainInText = [] {
  std::array<bool, 256> table{};
  for (unsigned c = 0; c < table.size(); ++c)
    table[c] = plain(c, Context::kText);
  return table;
}();

void appendName(std::string& out, const wchar_t* name) {
  appendEscaped(out, name, std::wcslen(name), Context::kName);
}

}  // namespace

struct XMLSerializer::Impl {
  // An element whose end tag is not written yet.
  struct Open {
    std::string name;
    bool startTagOpen = true;  // its start tag still takes attributes: ">" not written
    bool hasChildren = false;
    bool hasText = false;
  };

  KPLUUID id;
  io::IDataWriter* writer = nullptr;
  std::string buffer;
  std::vector<Open> open;
  // Open elements that have received character data. While there is one, everything written
  // is part of its text, so no whitespace may be added.
  std::size_t withText = 0;

  explicit Impl(const KPLUUID& id) : id(id) {}

  void flush() {
    if (writer == nullptr || buffer.empty()) return;
    // Emptied first, so that a failing writer leaves no half-sent buffer behind.
    std::string pending;
    pending.swap(buffer);
    for (std::size_t at = 0; at < pending.size();) {
      unsigned piece = static_cast<unsigned>(std::min<std::size_t>(pending.size() - at, 1u << 30));
      writer->write(pending.data() + at, piece);
      at += piece;
    }
    pending.clear();
    buffer.swap(pending);  // keeps the capacity for the next round
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
    buffer += '>';
    element.startTagOpen = false;
  }

  void newLine(std::size_t depth) {
    buffer += '\n';
    buffer.append(2 * std::min(depth, kIndentLevels), ' ');
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
  impl_->buffer += "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
}

void XMLSerializer::startElement(const wchar_t* name) {
  Impl& impl = *impl_;
  if (name == nullptr || *name == 0) throw Exception("XML serializer: element without a name");
  if (!impl.open.empty()) {
    Impl::Open& parent = impl.open.back();
    impl.closeStartTag(parent);
    if (impl.withText == 0) impl.newLine(impl.open.size());
    parent.hasChildren = true;
  }
  impl.open.emplace_back();
  appendName(impl.open.back().name, name);
  impl.buffer += '<';
  impl.buffer += impl.open.back().name;
  impl.flushIfLarge();
}

void XMLSerializer::addAttribute(const wchar_t* name, const wchar_t* value) {
  addAttribute(name, value, value != nullptr ? std::wcslen(value) : 0);
}

void XMLSerializer::addAttribute(const wchar_t* name, const wchar_t* value, std::size_t length) {
  Impl& impl = *impl_;
  if (!impl.innermost("attribute").startTagOpen)
    throw Exception("XML serializer: attribute after the content of its element");
  if (name == nullptr || *name == 0) throw Exception("XML serializer: attribute without a name");
  impl.buffer += ' ';
  appendName(impl.buffer, name);
  impl.buffer += "=\"";
  if (value != nullptr) appendEscaped(impl.buffer, value, length, Context::kAttribute);
  impl.buffer += '"';
  impl.flushIfLarge();
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
  auto plainText = [](char c) { return kPlainInText[static_cast<unsigned char>(c)]; };
  if (text != nullptr && !std::all_of(text, text + length, plainText)) {
    string::WideString wide = string::StringAlgorithm::UTF8Decode(text, length);
    characters(wide.string(), wide.length());
    return;
  }
  Impl& impl = *impl_;
  if (!impl.startText(text != nullptr ? length : 0)) return;
  impl.buffer.append(text, length);
  impl.flushIfLarge();
}

void XMLSerializer::endElement(bool flush) {
  Impl& impl = *impl_;
  Impl::Open& element = impl.innermost("end tag");
  if (element.startTagOpen) {
    impl.buffer += "/>";
  } else {
    if (element.hasChildren && impl.withText == 0) impl.newLine(impl.open.size() - 1);
    impl.buffer += "</";
    impl.buffer += element.name;
    impl.buffer += '>';
  }
  if (element.hasText) --impl.withText;
  impl.open.pop_back();
  if (impl.open.empty()) impl.buffer += '\n';
  if (flush)
    impl.flush();
  else
    impl.flushIfLarge();
}

}  // namespace kestrine::platform::core::xml
