#include "document.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <memory>

#include "failure.h"

namespace kmeta {

namespace core = kestrine::platform::core;

namespace {

// The document's name in messages.
std::string nameOf(const std::string& path) {
  return path == "-" ? "standard input" : path;
}

std::unique_ptr<core::io::IDataReader> open(const std::string& path) {
  std::error_code ignored;
  if (path != "-" && std::filesystem::is_directory(path, ignored))
    throw Failure(path + ": is a directory");
  auto reader = std::make_unique<core::io::FileReader>(path);
  errno = 0;
  if (!reader->open())
    throw Failure(nameOf(path) + ": cannot open" +
                  (errno != 0 ? std::string(": ") + std::strerror(errno) : ""));
  return reader;
}

}  // namespace

tImportOptions readingOptions(const Limits& limits, bool thorough) {
  tImportOptions options;
  options.thorough = thorough;
  options.depthLimit = static_cast<unsigned>(limits.depth);
  options.valueLimit = limits.valueBytes;
  return options;
}

unsigned importDocument(const std::string& path, IDataStore* store,
                        kestrine::platform::data::metadata::ISchemaLocator* locator,
                        IXMLFrontEnd::IErrorReporter* reporter, const tImportOptions& options) {
  std::unique_ptr<core::io::IDataReader> reader = open(path);
  IXMLFrontEnd::tImport done;
  try {
    done = IXMLFrontEnd::import(store, reader.get(), locator, reporter, options);
  } catch (const core::xml::XMLException& error) {
    throw Failure(nameOf(path) + ": " + error.what());
  }
  switch (done.refused) {
    case IXMLFrontEnd::kNoTree:
      throw Failure("the store holds records but no tree to import into");
    case IXMLFrontEnd::kNameTaken:
      throw Failure(nameOf(path) + ": the store holds '" +
                    core::string::StringAlgorithm::UTF8Encode(done.name) +
                    "' already; an import adds new top-level containers and tables only");
    case IXMLFrontEnd::kNoRoot:
      throw Failure(nameOf(path) + ": the document holds no tree: its outermost element " +
                    "must be a root, as in <root name=\"...\">");
    case IXMLFrontEnd::kNotRefused:
      break;
  }
  return done.reports;
}

}  // namespace kmeta
