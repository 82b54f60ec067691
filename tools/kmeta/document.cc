#include "tools/kmeta/document.h"

#include <strings.h>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <optional>
#include <utility>

#include "data/tree/root.h"
#include "data/xml/xml_parsing_logic.h"
#include "kestrine/platform/core/xml.h"
#include "kestrine/platform/data/structure/container.h"
#include "tools/kmeta/failure.h"
#include "tools/kmeta/tree_path.h"

namespace kmeta {

namespace core = kestrine::platform::core;
namespace data = kestrine::platform::data;
using core::string::StringAlgorithm;

namespace {

// Checks the syntax and keeps the names of the containers and tables directly under the
// outermost element.
class TopLevelNames : public core::xml::XMLCallback {
 public:
  explicit TopLevelNames(std::vector<std::string>& names) : names_(names) {}
  void notifyStartElement(const char* element, const char** attributes) override {
    if (++depth_ != 2 || !isSet(element)) return;
    for (const char** attribute = attributes; attribute[0] != nullptr; attribute += 2)
      if (std::strcmp(attribute[0], "name") == 0) names_.push_back(attribute[1]);
  }
  void notifyEndElement(const char*) override { --depth_; }
  void notifyStartNamespace(const char*, const char*) override {}
  void notifyEndNamespace(const char*) override {}
  void notifyCharacterData(const char*, int) override {}

 private:
  // Element names are matched without regard to case, as the parsing driver does.
  static bool isSet(const char* element) {
    for (const char* name : {"node", "group", "link", "table"})
      if (strcasecmp(element, name) == 0) return true;
    return false;
  }

  std::vector<std::string>& names_;
  int depth_ = 0;
};

bool isStandardInput(const std::string& path) {
  return path == "-";
}

}  // namespace

Document::Document(std::string path)
    : path_(std::move(path)), name_(isStandardInput(path_) ? "standard input" : path_) {
  try {
    if (isStandardInput(path_)) {
      core::io::FileReader in(path_);
      in.open();
      char buffer[1 << 16];
      while (unsigned count = in.read(buffer, sizeof buffer))
        input_.append(buffer, count);
    }
    std::unique_ptr<core::io::IDataReader> reader = open();
    TopLevelNames events(topLevel_);
    core::xml::XMLParser(&events).parseDocument(reader.get());
  } catch (const core::xml::XMLException& error) {
    throw Failure(name_ + ": " + error.what());
  } catch (const core::Exception& error) {
    // Read errors name the file already.
    throw Failure(error.what());
  }
}

std::unique_ptr<core::io::IDataReader> Document::open() const {
  std::unique_ptr<core::io::IDataReader> reader;
  if (isStandardInput(path_)) {
    reader = std::make_unique<core::io::MemoryReader>(input_);
  } else {
    std::error_code ignored;
    if (std::filesystem::is_directory(path_, ignored)) throw Failure(path_ + ": is a directory");
    reader = std::make_unique<core::io::FileReader>(path_);
  }
  errno = 0;
  if (!reader->open())
    throw Failure(path_ + ": cannot open" +
                  (errno != 0 ? std::string(": ") + std::strerror(errno) : ""));
  return reader;
}

void Document::import(IDataStore* store, data::metadata::ISchemaLocator* locator,
                      data::format::xml::IXMLFrontEnd::IErrorReporter* reporter) const {
  std::optional<data::Metadata::Root> root;
  if (holdsTree(store)) {
    root.emplace(store, 0);
    // The root takes a child whose name is taken without merging it and without a report:
    // the child's records would stay in the store, out of the tree.
    for (const std::string& name : topLevel_) {
      if (root->find(StringAlgorithm::UTF8Decode(name.c_str()).string()) != IDataStore::BADOFF)
        throw Failure(name_ + ": the store holds '" + name +
                      "' already; an import adds new top-level containers and tables only");
    }
  } else if (store->used() != 0) {
    throw Failure("the store holds records but no tree to import into");
  } else {
    // As IContainerFrontEnd::toplevel does for a fresh store; a "version" attribute of the
    // document's root overrides it.
    store->version(data::structure::IContainerFrontEnd::version());
  }
  std::unique_ptr<core::io::IDataReader> reader = open();
  {
    // The parsing driver itself rather than IXMLFrontEnd::parse: the front end completes
    // the store even after a failure, which would commit half a document to a store file.
    data::XML::XMLParsingLogic logic(store, root ? &*root : nullptr, nullptr, locator, reporter);
    core::xml::XMLParser(&logic).parseDocument(reader.get());
  }
  // Closed before the commit, so that the root's reference count is committed as it was.
  root.reset();
  store->complete();
}

}  // namespace kmeta
