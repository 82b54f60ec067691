#include "data/xml/xml_rendering_logic.h"

#include <exception>
#include <string>

#include "data/record/base.h"
#include "data/tree/descent.h"
#include "data/units/units_dictionary.h"
#include "data/values/number_text.h"
#include "data/values/value_types.h"
#include "kestrine/platform/core/exception.h"
#include "kestrine/platform/data/structure/container.h"

namespace kestrine::platform::data::XML {

using core::storage::datastore::IDataStore;

namespace {

const char* const kContainerTags[] = {"node", "group", "link"};

}  // namespace

XMLRenderingLogic::XMLRenderingLogic(IDataStore* store, MarkupStream* writer,
                                     metadata::ISchemaLocator* locator, unsigned offset,
                                     const format::xml::tExportOptions& options)
    : store_(store), writer_(writer), exact_(options.exact), reader_(store), text_(locator) {
  writer_->header();
  const bool wrap = options.inRoot && offset != 0 && Record::peek(store_, 0) == Record::kRoot;
  if (wrap) {
    reader_.read(0);
    root();
  }
  translate(offset);
  if (wrap) writer_->endElement();
}

XMLRenderingLogic::~XMLRenderingLogic() = default;

void XMLRenderingLogic::translate(unsigned offset) {
  // A loop over the open elements rather than recursion: the depth of a tree is bounded by
  // memory, never by the stack. Levels keep their lists' buffers for the next element there.
  std::vector<Metadata::Set::Lister> open(1);
  std::size_t depth = 0;
  if (start(offset, 0, nullptr, open[0])) depth = 1;
  while (depth != 0) {
    unsigned child;
    if (!open[depth - 1].next(child)) {
      --depth;
      writer_->endElement();
      continue;
    }
    if (open.size() == depth) open.emplace_back();
    if (start(child, depth, &open[depth - 1], open[depth])) ++depth;
  }
}

bool XMLRenderingLogic::start(unsigned offset, std::size_t depth, Metadata::Set::Lister* parent,
                              Metadata::Set::Lister& children) {
  // The record is read first: whether its parent lists it at all may hang on its name. The
  // error of a record that does not read counts, if it is listed, after the checks' errors.
  Record::tType kind = Record::kNoRecord;
  std::exception_ptr unread;
  if (offset != IDataStore::BADOFF) {
    try {
      kind = reader_.read(offset);
    } catch (...) {
      unread = std::current_exception();
      kind = Record::kNoRecord;
    }
  }
  if (parent != nullptr && !parent->listed(kind, reader_)) return false;
  if (offset == IDataStore::BADOFF) return false;
  Metadata::Descent::check(offset, depth);
  if (!written_.insert(offset)) {
    throw core::Exception("damaged record at offset " + std::to_string(offset) +
                          ": listed twice in the tree, or in a cycle");
  }
  if (unread) std::rethrow_exception(unread);
  if (kind == Record::kNoRecord || (reader_.flags() & Record::kHidden) != 0) return false;
  switch (kind) {
    case Record::kPrimitive:
      primitive();
      writer_->endElement();
      return false;
    case Record::kRoot:
      root();
      break;
    case Record::kTable:
      table();
      break;
    case Record::kContainer:
      if (!container()) return false;
      break;
    default:
      return false;
  }
  reader_.children(children);
  return true;
}

void XMLRenderingLogic::root() {
  const unsigned version = store_->version();
  wchar_t text[Values::kNumberTextSize];
  Values::printNumber(metadata::kUInt32, reinterpret_cast<const char*>(&version), text,
                      Values::FloatDigits::kSeven);
  writer_->startElement("root");
  attribute("version", text);
  const std::wstring_view name = reader_.name();
  writer_->addAttribute("name", name.data(), name.size());
  names();
}

bool XMLRenderingLogic::container() {
  const unsigned type = reader_.containerType();
  if (type > structure::IContainer::kLink) return false;
  begin(kContainerTags[type]);
  attribute("class", reader_.base());
  if (type == structure::IContainer::kLink) attribute("to", reader_.info());
  optional();
  names();
  return true;
}

void XMLRenderingLogic::table() {
  begin("table");
  attribute("class", reader_.base());
  optional();
  for (const Design::Table::tDefault& entry : reader_.defaults()) {
    writer_->startElement("default");
    // Always written, empty for a unit without a name.
    const std::wstring_view unit = unitsDictionary().wideUnit(entry.unit);
    writer_->addAttribute("unit", unit.data(), unit.size());
    attribute("type", Values::traits(entry.type).wideDefaultName);
    writer_->endElement();
  }
  names();
}

void XMLRenderingLogic::primitive() {
  const metadata::tValue type = reader_.valuetype();
  begin(Values::traits(type).name);
  attribute("units", unitsDictionary().wideUnit(reader_.units()));
  attribute("locale", reader_.valueLocale());
  const std::wstring_view base = type == metadata::kStruct ? reader_.base() : std::wstring_view();
  attribute("type", base);
  attribute("uri", reader_.uri());
  names();
  // Values go into "val" elements when the item has localized names, so that text never
  // mixes with them, and whenever there are several strings. Numbers, the bulk of most
  // documents, and base64 go out as ASCII without a wide copy.
  const bool named = !reader_.names().empty();
  const PrimitiveText::tValues values{type, reader_.values(), base};
  const Values::FloatDigits digits =
      exact_ ? Values::FloatDigits::kShortest : Values::FloatDigits::kSeven;
  if (PrimitiveText::numberBlock(values)) {
    // Printed by the stream, on its second thread when it has one.
    if (named) writer_->startElement("val");
    writer_->numbers(values, digits);
    if (named) writer_->endElement();
    return;
  }
  std::string_view text;
  if (text_.writeNumbers(values, digits, text) || text_.writeBase64(values, text)) {
    block(named, text);
    return;
  }
  const std::vector<std::wstring_view>& strings = text_.writeStrings(values);
  const bool wrap = strings.size() > 1 || (!strings.empty() && named);
  for (std::wstring_view string : strings)
    block(wrap, string);
}

template <class Text>
void XMLRenderingLogic::block(bool wrap, const Text& text) {
  if (wrap) writer_->startElement("val");
  writer_->characters(text.data(), text.size());
  if (wrap) writer_->endElement();
}

void XMLRenderingLogic::begin(const char* tag) {
  writer_->startElement(tag);
  const std::wstring_view name = reader_.name();
  writer_->addAttribute("name", name.data(), name.size());
}

void XMLRenderingLogic::attribute(const char* name, std::wstring_view value) {
  if (!value.empty()) writer_->addAttribute(name, value.data(), value.size());
}

void XMLRenderingLogic::attribute(const char* name, const wchar_t* value) {
  if (value != nullptr) attribute(name, std::wstring_view(value));
}

void XMLRenderingLogic::optional() {
  if (exact_ && (reader_.flags() & Record::kOptional) != 0) attribute("optional", L"true");
}

void XMLRenderingLogic::names() {
  for (const Metadata::tLocalized& entry : reader_.names()) {
    writer_->startElement("name");
    writer_->addAttribute("locale", entry.locale.data(), entry.locale.size());
    writer_->characters(entry.text.data(), entry.text.size());
    writer_->endElement();
  }
}

}  // namespace kestrine::platform::data::XML
