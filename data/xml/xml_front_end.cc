#include "kestrine/platform/data/format/xml.h"

#include <optional>

#include "data/api/container_impl.h"
#include "data/api/property_impl.h"
#include "data/record/base.h"
#include "data/tree/finder.h"
#include "data/tree/lock.h"
#include "data/tree/primitive.h"
#include "data/tree/root.h"
#include "data/xml/markup_stream.h"
#include "data/xml/number_lookahead.h"
#include "data/xml/primitive_text.h"
#include "data/xml/xml_parsing_logic.h"
#include "data/xml/xml_rendering_logic.h"
#include "data/xml/xml_root.h"
#include "kestrine/platform/core/string.h"
#include "kestrine/platform/core/xml.h"

namespace kestrine::platform::data::format::xml {

using core::storage::datastore::IDataStore;
using core::string::StringAlgorithm;
using core::string::WideString;

IXMLFrontEnd::IErrorReporter::~IErrorReporter() = default;

namespace {

using Threading = core::xml::XMLParser::Threading;

// Runs the tokenizer over an opened reader; the reader is closed only after a whole parse.
void tokenize(core::io::IDataReader* reader, XML::XMLParsingLogic* logic,
              Threading threading = Threading::kCallingThread) {
  if (!reader->open()) return;
  core::xml::XMLParser parser(logic, threading);
  XML::NumberLookahead lookahead;
  parser.lookahead(&lookahead);
  logic->locate(&parser);
  parser.parseDocument(reader);
  logic->locate(nullptr);
  reader->close();
}

// Writes the subtree at `offset` as a document, under the caller's lock of the store.
void render(IDataStore* store, core::io::IDataWriter* writer, metadata::ISchemaLocator* locator,
            unsigned offset, const tExportOptions& options) {
  // The answer of open is not consulted: a writer that did not open fails on its own.
  writer->open();
  XML::MarkupStream markup(writer, options.secondThread);
  try {
    XML::XMLRenderingLogic rendering(store, &markup, locator, offset, options);
  } catch (...) {
    // What came before the fault is written, as without a second thread. A failure of the
    // writer lies earlier in the output, and passes through instead.
    markup.abandon();
    throw;
  }
  markup.finish();
  writer->close();
}

// Passes reports on and counts them.
class CountingReporter : public IXMLFrontEnd::IErrorReporter {
 public:
  explicit CountingReporter(IXMLFrontEnd::IErrorReporter* reporter) : reporter_(reporter) {}
  void report(WideString message) override {
    ++count_;
    if (reporter_ != nullptr) reporter_->report(message);
  }
  unsigned count() const { return count_; }

 private:
  IXMLFrontEnd::IErrorReporter* reporter_;
  unsigned count_ = 0;
};

// The logic object behind a primitive handle of this library; null for any other.
Design::Primitive* logicOf(metadata::IPrimitive* primitive) {
  auto* property = primitive != nullptr
                       ? dynamic_cast<metadata::PropertyImpl*>(primitive->container())
                       : nullptr;
  return property != nullptr ? dynamic_cast<Design::Primitive*>(property->logic()) : nullptr;
}

}  // namespace

// A document is read and written under the store's lock: other threads never see a tree in
// part, and the sets it fills share the store's indexes.
void IXMLFrontEnd::parse(IDataStore* store, core::io::IDataReader* reader,
                         metadata::ISchemaLocator* locator, metadata::IURIResolver*,
                         IErrorReporter* reporter) {
  {
    Metadata::Lock lock(store);
    XML::XMLParsingLogic logic(store, nullptr, locator, reporter);
    try {
      tokenize(reader, &logic);
    } catch (...) {
      // A document read into a store of its own keeps what was read before the fault; the
      // caller learns of it from the reports and the store, not from an exception.
    }
  }
  store->complete();
}

void IXMLFrontEnd::parse(structure::IContainer* target, core::io::IDataReader* reader,
                         metadata::ISchemaLocator* locator, metadata::IURIResolver*,
                         IErrorReporter* reporter) {
  // Only the library's own containers have a logic object to parse into.
  auto* container = dynamic_cast<structure::ContainerImpl*>(target);
  if (container == nullptr) return;
  Metadata::Lock lock(container->store());
  XML::XMLParsingLogic logic(container->store(), container->logic(), locator, reporter);
  // Unlike a parse into a store, every failure reaches the caller, who holds the container.
  tokenize(reader, &logic);
}

void IXMLFrontEnd::serialize(IDataStore* store, core::io::IDataWriter* writer,
                             metadata::ISchemaLocator* locator, unsigned int offset) {
  Metadata::Lock lock(store);
  render(store, writer, locator, offset, tExportOptions());
}

IXMLFrontEnd::tImport IXMLFrontEnd::import(IDataStore* store, core::io::IDataReader* reader,
                                           metadata::ISchemaLocator* locator,
                                           IErrorReporter* reporter,
                                           const tImportOptions& options) {
  tImport result;
  Metadata::Lock lock(store);
  std::optional<Metadata::Root> root;
  if (Record::peek(store, 0) == Record::kRoot) {
    root.emplace(store, 0u);
  } else if (store->used() != 0) {
    result.refused = kNoTree;
    return result;
  } else {
    store->version(structure::IContainerFrontEnd::version());
  }
  CountingReporter counting(reporter);
  XML::ParsingOptions parsing;
  parsing.exclusiveRoot = true;
  parsing.thorough = options.thorough;
  parsing.depthLimit = options.depthLimit;
  parsing.valueLimit = options.valueLimit;
  try {
    XML::XMLParsingLogic logic(store, root ? &*root : nullptr, locator, &counting, parsing);
    tokenize(reader, &logic, options.secondThread ? Threading::kAuto : Threading::kCallingThread);
  } catch (const XML::XMLRoot::NameTaken& taken) {
    result.refused = kNameTaken;
    result.name = taken.name;
  }
  // Records without a root would refuse every later import.
  if (!root && result.refused == kNotRefused && Record::peek(store, 0) != Record::kRoot)
    result.refused = kNoRoot;
  result.reports = counting.count();
  return result;
}

bool IXMLFrontEnd::serialize(IDataStore* store, core::io::IDataWriter* writer,
                             metadata::ISchemaLocator* locator, WideString path,
                             const tExportOptions& options) {
  // Held on through the writing, so that the subtree is written as it stands now.
  Metadata::Lock lock(store);
  const unsigned offset = Metadata::resolvePath(store, path.string());
  Record::tType kind = Record::peek(store, offset);
  if (kind != Record::kRoot && kind != Record::kContainer && kind != Record::kTable) return false;
  render(store, writer, locator, offset, options);
  return true;
}

std::vector<WideString> IXMLFrontEnd::values(metadata::IPrimitive* primitive,
                                             metadata::ISchemaLocator* locator) {
  std::vector<WideString> blocks;
  Design::Primitive* logic = logicOf(primitive);
  if (logic == nullptr) return blocks;
  Metadata::Lock lock(logic->store());
  for (const std::wstring& block :
       XML::PrimitiveText(locator).write(*logic, Values::FloatDigits::kSeven))
    blocks.emplace_back(block.data(), static_cast<unsigned>(block.size()));
  return blocks;
}

bool IXMLFrontEnd::values(metadata::IPrimitive* primitive, const std::vector<WideString>& blocks,
                          metadata::ISchemaLocator* locator) {
  Design::Primitive* logic = logicOf(primitive);
  if (logic == nullptr) return false;
  Metadata::Lock lock(logic->store());
  XML::PrimitiveText text(locator);
  for (std::size_t i = 0; i < blocks.size(); ++i)
    text.read(*logic, StringAlgorithm::UTF8Encode(blocks[i]).c_str(), i > 0,
              XML::PrimitiveText::tWatch());
  text.finish(*logic);
  return true;
}

}  // namespace kestrine::platform::data::format::xml
