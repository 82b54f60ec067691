#include "document.h"

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "failure.h"
#include "progress.h"

namespace kmeta {

namespace core = kestrine::platform::core;

namespace {

// The document's name in messages.
std::string nameOf(const std::string& path) {
  return path == "-" ? "standard input" : path;
}

// A document opened once, before the import, so that one that cannot be opened is told as
// such. The import's own open() then finds it ready: a pipe, or standard input, opened a
// second time would have nothing left to give.
class OpenedDocument : public core::io::IDataReader {
 public:
  explicit OpenedDocument(const std::string& path) : file_(path) {
    std::error_code ignored;
    if (path != "-" && std::filesystem::is_directory(path, ignored))
      throw Failure(path + ": is a directory");
    errno = 0;
    if (!file_.open())
      throw Failure(nameOf(path) + ": cannot open" +
                    (errno != 0 ? std::string(": ") + std::strerror(errno) : ""));
  }
  bool open() override { return true; }
  unsigned read(void* buffer, unsigned size) override {
    unsigned count = file_.read(buffer, size);
    progress_.advance(count);
    return count;
  }
  void close() override {}

 private:
  core::io::FileReader file_;
  Progress progress_{"read"};
};

}  // namespace

tImportOptions readingOptions(const Limits& limits, bool thorough) {
  tImportOptions options;
  options.thorough = thorough;
  options.depthLimit = static_cast<unsigned>(limits.depth);
  options.valueLimit = limits.valueBytes;
  // The tool is the client here, and its process has nothing else to do meanwhile.
  options.secondThread = true;
  return options;
}

unsigned importDocument(const std::string& path, IDataStore* store,
                        kestrine::platform::data::metadata::ISchemaLocator* locator,
                        IXMLFrontEnd::IErrorReporter* reporter, const tImportOptions& options) {
  OpenedDocument reader(path);
  IXMLFrontEnd::tImport done;
  try {
    done = IXMLFrontEnd::import(store, &reader, locator, reporter, options);
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
