// XML import and export beside the peers a user would measure them against: expat
// tokenizing the same bytes (the floor under any import built on it) and pugixml parsing them
// into its DOM and saving that DOM again. Prints MB/s for each, the ratios that matter, and
// the peak memory of one import (measured in a child process) against the bytes of the
// records it makes. pugixml saves into a string with room reserved for its output, as the
// peers' pugixml_save does; the export into a MemoryWriter, which has no room to reserve. Both
// savers also run once more with their output discarded, which shows their own work.
//
//   xml_bench [DOCUMENT] [benchmark flags]
//
// Without DOCUMENT, a generated document of about 50 MB that uses every element and value
// type; with it, that file (for instance one of the peers' generated documents). Rates are
// on CPU time, which the other work of a shared machine disturbs least, except for the
// import that tokenizes on a second thread: its rate is on wall time.

#include <benchmark/benchmark.h>
#include <expat.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <map>
#include <memory>
#include <pugixml.hpp>
#include <sstream>
#include <string>

#include "data/xml/xml_test_support.h"
#include "kestrine/platform/core/datastore.h"
#include "kestrine/platform/core/io.h"
#include "kestrine/platform/core/xml.h"
#include "kestrine/platform/data/format/xml.h"
#include "kestrine/platform/data/metadata/schema.h"

namespace {

using kestrine::platform::core::io::MemoryReader;
using kestrine::platform::core::io::MemoryWriter;
using kestrine::platform::core::storage::datastore::MemoryDataStore;
using kestrine::platform::data::format::xml::IXMLFrontEnd;
using kestrine::platform::data::metadata::ISchemaLocator;
using kestrine::platform::data::XML::testing::SampleDocument;

constexpr std::size_t kDocumentBytes = 50u << 20;

// A node name that the name indexes can tell apart. Their hash reads only the first quarter
// of a name's bytes (its first n bytes for n characters), so names such as "n123" and "n124"
// all land on one hash and every look-up compares them one by one; here the unique part comes
// first and the name is long enough for it to be hashed.
std::string nodeName(unsigned i) {
  static const char digits[] = "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
  std::string name;
  for (int place = 0; place < 4; ++place, i /= 62)
    name += digits[i % 62];
  return name + "_measurement";
}

// The document given on the command line; empty for the generated one.
std::string documentPath;

std::string generatedDocument() {
  std::string xml = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<root version=\"1\" name=\"doc\">";
  for (unsigned i = 0; xml.size() < kDocumentBytes; ++i)
    xml += SampleDocument::node(i, nodeName(i));
  return xml + "</root>\n";
}

const std::string& document() {
  static const std::string text = [] {
    if (documentPath.empty()) return generatedDocument();
    std::ifstream file(documentPath, std::ios::binary);
    std::ostringstream bytes;
    bytes << file.rdbuf();
    return bytes.str();
  }();
  return text;
}

struct Schemas {
  Schemas() {
    MemoryReader reader(SampleDocument::schemas());
    IXMLFrontEnd::parse(&store, &reader, nullptr, nullptr, nullptr);
    locator = ISchemaLocator::make(&store);
  }
  MemoryDataStore store;
  kestrine::platform::core::memory::SharedPtr<ISchemaLocator> locator;
};

ISchemaLocator* locator() {
  static Schemas* schemas = new Schemas;
  return schemas->locator.get();
}

void import(MemoryDataStore& store) {
  MemoryReader reader(document());
  IXMLFrontEnd::parse(&store, &reader, locator(), nullptr, nullptr);
}

void BM_Import(benchmark::State& state) {
  for (auto _ : state) {
    auto store = std::make_unique<MemoryDataStore>();
    import(*store);
    state.PauseTiming();
    store.reset();
    state.ResumeTiming();
  }
  state.SetBytesProcessed(state.iterations() * document().size());
}

// The import as kmeta runs it: expat on a second thread while this one builds the tree.
void BM_ImportSecondThread(benchmark::State& state) {
  kestrine::platform::data::format::xml::tImportOptions options;
  options.secondThread = true;
  for (auto _ : state) {
    auto store = std::make_unique<MemoryDataStore>();
    MemoryReader reader(document());
    IXMLFrontEnd::import(store.get(), &reader, locator(), nullptr, options);
    state.PauseTiming();
    store.reset();
    state.ResumeTiming();
  }
  state.SetBytesProcessed(state.iterations() * document().size());
}

// Counts the bytes it is given and keeps none: the discarding runs show the savers' own
// work, without the page faults of filling 40 MB of fresh memory.
class CountingWriter : public kestrine::platform::core::io::IDataWriter {
 public:
  bool open() override { return true; }
  void write(const void*, unsigned size) override { bytes += size; }
  void close() override {}
  std::size_t bytes = 0;
};

// A saver's rate is on the bytes it wrote.
void reportOutput(benchmark::State& state, std::size_t bytes) {
  state.SetBytesProcessed(state.iterations() * bytes);
  state.counters["output_MB"] = bytes / 1e6;
}

// The room the peers' pugixml_save reserves for its output: the document's size and a quarter.
std::size_t savedRoom() {
  return document().size() + document().size() / 4;
}

// A memory writer given the same room as pugixml's string, so that neither pays for growing.
class ReservedWriter : public MemoryWriter {
 public:
  ReservedWriter() { reserve(savedRoom()); }
};

std::size_t written(const MemoryWriter& writer) {
  return writer.bytes().size();
}
std::size_t written(const CountingWriter& writer) {
  return writer.bytes;
}

template <class Writer>
void exportInto(benchmark::State& state, bool secondThread = false) {
  MemoryDataStore store;
  import(store);
  kestrine::platform::data::format::xml::tExportOptions options;
  options.secondThread = secondThread;
  std::size_t bytes = 0;
  for (auto _ : state) {
    Writer writer;
    IXMLFrontEnd::serialize(&store, &writer, locator(), L"", options);
    bytes = written(writer);
  }
  reportOutput(state, bytes);
}

void BM_Export(benchmark::State& state) {
  exportInto<ReservedWriter>(state);
}
void BM_ExportGrowing(benchmark::State& state) {
  exportInto<MemoryWriter>(state);
}
void BM_ExportDiscarded(benchmark::State& state) {
  exportInto<CountingWriter>(state);
}
void BM_ExportDiscardedSecondThread(benchmark::State& state) {
  exportInto<CountingWriter>(state, true);
}

// Our tokenizer with a callback that does nothing: the import's floor within this library.
class Silent : public kestrine::platform::core::xml::XMLCallback {
 public:
  void notifyStartElement(const char*, const char**) override {}
  void notifyEndElement(const char*) override {}
  void notifyStartNamespace(const char*, const char*) override {}
  void notifyEndNamespace(const char*) override {}
  void notifyCharacterData(const char*, int) override {}
};

void BM_Tokenizer(benchmark::State& state) {
  for (auto _ : state) {
    Silent callback;
    kestrine::platform::core::xml::XMLParser parser(&callback);
    MemoryReader reader(document());
    reader.open();
    parser.parseDocument(&reader);
  }
  state.SetBytesProcessed(state.iterations() * document().size());
}

// Expat by itself over the whole buffer in one call, counting elements, attributes and text
// bytes: what a user would measure as "tokenizing" the document.
struct ExpatCounts {
  std::size_t elements = 0, attributes = 0, text = 0;
};

void BM_Expat(benchmark::State& state) {
  ExpatCounts counts;
  for (auto _ : state) {
    counts = ExpatCounts();
    XML_Parser parser = XML_ParserCreate(nullptr);
    XML_SetUserData(parser, &counts);
    XML_SetElementHandler(
        parser,
        [](void* data, const XML_Char*, const XML_Char** attributes) {
          auto* counts = static_cast<ExpatCounts*>(data);
          ++counts->elements;
          for (; attributes[0] != nullptr; attributes += 2)
            ++counts->attributes;
        },
        [](void*, const XML_Char*) {});
    XML_SetCharacterDataHandler(parser, [](void* data, const XML_Char*, int length) {
      static_cast<ExpatCounts*>(data)->text += static_cast<std::size_t>(length);
    });
    if (XML_Parse(parser, document().data(), static_cast<int>(document().size()), XML_TRUE) !=
        XML_STATUS_OK)
      state.SkipWithError(XML_ErrorString(XML_GetErrorCode(parser)));
    XML_ParserFree(parser);
  }
  state.SetBytesProcessed(state.iterations() * document().size());
  state.counters["elements"] = static_cast<double>(counts.elements);
}

// pugixml's DOM parse of the same bytes (default options; it copies the buffer), freeing the
// DOM included.
void BM_PugixmlParse(benchmark::State& state) {
  for (auto _ : state) {
    pugi::xml_document dom;
    pugi::xml_parse_result result = dom.load_buffer(document().data(), document().size());
    if (!result) state.SkipWithError(result.description());
  }
  state.SetBytesProcessed(state.iterations() * document().size());
}

// Into a string with room reserved for the whole output, as the peers' pugixml_save does.
class StringWriter : public pugi::xml_writer {
 public:
  StringWriter() { bytes.reserve(savedRoom()); }
  void write(const void* data, size_t size) override {
    bytes.append(static_cast<const char*>(data), size);
  }
  std::size_t size() const { return bytes.size(); }
  std::string bytes;
};

class CountingPugiWriter : public pugi::xml_writer {
 public:
  void write(const void*, size_t size) override { bytes += size; }
  std::size_t size() const { return bytes; }
  std::size_t bytes = 0;
};

// pugixml saving that DOM (default format) into memory, or discarding it; the rate is on the
// output's bytes, as for the export.
template <class Writer>
void saveInto(benchmark::State& state) {
  pugi::xml_document dom;
  if (!dom.load_buffer(document().data(), document().size())) state.SkipWithError("no DOM");
  std::size_t bytes = 0;
  for (auto _ : state) {
    Writer writer;
    dom.save(writer);
    bytes = writer.size();
  }
  reportOutput(state, bytes);
}

void BM_PugixmlSave(benchmark::State& state) {
  saveInto<StringWriter>(state);
}
void BM_PugixmlSaveDiscarded(benchmark::State& state) {
  saveInto<CountingPugiWriter>(state);
}

BENCHMARK(BM_Import)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_ImportSecondThread)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();
BENCHMARK(BM_Export)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_ExportGrowing)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_Tokenizer)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_Expat)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_PugixmlParse)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_PugixmlSave)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_ExportDiscarded)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_ExportDiscardedSecondThread)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(3)
    ->UseRealTime();
BENCHMARK(BM_PugixmlSaveDiscarded)->Unit(benchmark::kMillisecond)->Iterations(3);

// Keeps each benchmark's throughput for the ratios printed at the end.
class Reporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      auto found = run.counters.find("bytes_per_second");
      if (found != run.counters.end()) rates[run.benchmark_name()] = found->second;
    }
  }
  std::map<std::string, double> rates;
};

// Resident memory now, in KiB.
long residentKiB() {
  long pages = 0, resident = 0;
  if (std::FILE* statm = std::fopen("/proc/self/statm", "r")) {
    if (std::fscanf(statm, "%ld %ld", &pages, &resident) != 2) resident = 0;
    std::fclose(statm);
  }
  return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

// Peak resident memory of one import, in a child process forked before the benchmarks
// allocate anything: the peak during the import less what was resident before it (the
// document, the reader's copy of it and the schemas), against the bytes of the records the
// import made. The aim is at most 1.5 times those bytes and 16 MB.
void peakMemory() {
  int ends[2];
  if (pipe(ends) != 0) return;
  pid_t child = fork();
  if (child == 0) {
    close(ends[0]);
    double megabytes = document().size() / 1e6;
    locator();
    MemoryReader reader(document());
    long before = residentKiB();
    double records = 0;
    {
      MemoryDataStore store;
      IXMLFrontEnd::parse(&store, &reader, locator(), nullptr, nullptr);
      records = store.used() / 1e6;
    }
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    double import = (usage.ru_maxrss - before) * 1024 / 1e6;
    char line[512];
    int length = std::snprintf(
        line, sizeof line,
        "document %.1f MB: resident %.1f MB before the import, peak %.1f MB during it; the "
        "import took %.1f MB for %.1f MB of records (%.2f x, aim <= 1.5 x + 16 MB = %.1f MB)\n",
        megabytes, before * 1024 / 1e6, usage.ru_maxrss * 1024 / 1e6, import, records,
        import / records, 1.5 * records + 16);
    ssize_t ignored = write(ends[1], line, length);
    (void)ignored;
    _exit(0);
  }
  close(ends[1]);
  char line[512] = {};
  ssize_t length = read(ends[0], line, sizeof line - 1);
  close(ends[0]);
  waitpid(child, nullptr, 0);
  if (length > 0) std::fputs(line, stdout);
}

// The figures the work on throughput aims at, from the rates of one run.
void printRatios(std::map<std::string, double>& rates) {
  auto rate = [&](const char* name) { return rates[std::string(name) + "/iterations:3"] / 1e6; };
  double import = rate("BM_Import"), exported = rate("BM_Export"), expat = rate("BM_Expat");
  double parse = rate("BM_PugixmlParse"), save = rate("BM_PugixmlSave");
  if (import <= 0 || exported <= 0 || expat <= 0 || parse <= 0 || save <= 0) return;
  std::printf("\n%-8s %8.1f MB/s  %5.2f x the time of expat tokenizing (%.1f MB/s; aim <= 2.0)\n",
              "import", import, expat / import, expat);
  std::printf("%-8s %8s       %5.2f x the time of pugixml's parse (%.1f MB/s)\n", "", "",
              parse / import, parse);
  if (double aside = rates["BM_ImportSecondThread/iterations:3/real_time"] / 1e6; aside > 0) {
    std::printf("%-8s %8.1f MB/s  %5.2f x expat's time, tokenizing on a second thread\n", "", aside,
                expat / aside);
  }
  std::printf(
      "%-8s %8.1f MB/s  %5.2f x pugixml's save rate (%.1f MB/s; aim >= 0.5), both into\n"
      "%-8s %8s       %5s   room reserved for the output\n",
      "export", exported, exported / save, save, "", "", "");
  if (double growing = rate("BM_ExportGrowing"); growing > 0) {
    std::printf("%-8s %8.1f MB/s  %5.2f x, into a writer that grows as it goes\n", "", growing,
                growing / save);
  }
  double discarded = rate("BM_ExportDiscarded"), saveDiscarded = rate("BM_PugixmlSaveDiscarded");
  if (discarded <= 0 || saveDiscarded <= 0) return;
  std::printf("%-8s %8.1f MB/s  %5.2f x pugixml's save rate, output discarded (%.1f MB/s)\n", "",
              discarded, discarded / saveDiscarded, saveDiscarded);
  if (double aside = rates["BM_ExportDiscardedSecondThread/iterations:3/real_time"] / 1e6;
      aside > 0) {
    std::printf("%-8s %8.1f MB/s  %5.2f x, with a second thread\n", "", aside,
                aside / saveDiscarded);
  }
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (argc > 2) {
    std::fprintf(stderr, "usage: xml_bench [DOCUMENT] [benchmark flags]\n");
    return 2;
  }
  if (argc == 2) documentPath = argv[1];
  if (!documentPath.empty() && !std::ifstream(documentPath)) {
    std::fprintf(stderr, "xml_bench: cannot read %s\n", documentPath.c_str());
    return 2;
  }
  peakMemory();
  Reporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  printRatios(reporter.rates);
  benchmark::Shutdown();
  return 0;
}
