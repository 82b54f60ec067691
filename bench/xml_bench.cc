// XML import and export against the tokenizer alone, over one generated document of about
// 50 MB that uses every element and value type. Prints MB/s for each, the ratios to the
// tokenizer, and the peak memory of one import measured in a child process.

#include <benchmark/benchmark.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <map>
#include <memory>
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

const std::string& document() {
  static const std::string text = [] {
    std::string xml =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<root version=\"1\" name=\"doc\">";
    for (unsigned i = 0; xml.size() < kDocumentBytes; ++i)
      xml += SampleDocument::node(i, nodeName(i));
    return xml + "</root>\n";
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

void BM_Export(benchmark::State& state) {
  MemoryDataStore store;
  import(store);
  std::size_t written = 0;
  for (auto _ : state) {
    MemoryWriter writer;
    IXMLFrontEnd::serialize(&store, &writer, locator(), 0);
    written = writer.bytes().size();
  }
  state.SetBytesProcessed(state.iterations() * written);
  state.counters["output_MB"] = written / 1e6;
}

// The tokenizer with a callback that does nothing: the floor under the import.
class Silent : public kestrine::platform::core::xml::XMLCallback {
 public:
  void notifyStartElement(const char*, const char**) override {}
  void notifyEndElement(const char*) override {}
  void notifyStartNamespace(const char*, const char*) override {}
  void notifyEndNamespace(const char*) override {}
  void notifyCharacterData(const char*, int) override {}
};

void BM_ExpatOnly(benchmark::State& state) {
  for (auto _ : state) {
    Silent callback;
    kestrine::platform::core::xml::XMLParser parser(&callback);
    MemoryReader reader(document());
    reader.open();
    parser.parseDocument(&reader);
  }
  state.SetBytesProcessed(state.iterations() * document().size());
}

BENCHMARK(BM_Import)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_Export)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_ExpatOnly)->Unit(benchmark::kMillisecond)->Iterations(3);

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
// allocate anything: the peak after the import against what was resident before it (the
// document and the schemas).
void peakMemory() {
  int ends[2];
  if (pipe(ends) != 0) return;
  pid_t child = fork();
  if (child == 0) {
    close(ends[0]);
    double megabytes = document().size() / 1e6;
    locator();
    long before = residentKiB();
    {
      MemoryDataStore store;
      import(store);
    }
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    char line[256];
    int length = std::snprintf(line, sizeof line,
                               "document %.1f MB: resident %.1f MB before the import, peak %.1f MB "
                               "during it (%.1f MB for the import, %.1f x the document)\n",
                               megabytes, before / 1024.0, usage.ru_maxrss / 1024.0,
                               (usage.ru_maxrss - before) / 1024.0,
                               (usage.ru_maxrss - before) / 1024.0 / megabytes);
    ssize_t ignored = write(ends[1], line, length);
    (void)ignored;
    _exit(0);
  }
  close(ends[1]);
  char line[256] = {};
  ssize_t length = read(ends[0], line, sizeof line - 1);
  close(ends[0]);
  waitpid(child, nullptr, 0);
  if (length > 0) std::fputs(line, stdout);
}

}  // namespace

int main(int argc, char** argv) {
  peakMemory();
  benchmark::Initialize(&argc, argv);
  Reporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  double expat = reporter.rates["BM_ExpatOnly/iterations:3"];
  if (expat > 0) {
    for (const char* name : {"BM_Import/iterations:3", "BM_Export/iterations:3"}) {
      double rate = reporter.rates[name];
      std::printf("%-24s %8.1f MB/s, %5.1f x slower than the tokenizer alone (%.1f MB/s)\n", name,
                  rate / 1e6, expat / rate, expat / 1e6);
    }
  }
  benchmark::Shutdown();
  return 0;
}
