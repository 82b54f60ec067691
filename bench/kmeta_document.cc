// Writes a generated document on standard output, for kmeta_import_bench.sh: of about
// MEGABYTES megabytes, one group of parts, each a node with four values; or with
// --siblings, one group of COUNT values side by side.
//   kmeta_bench_document MEGABYTES
//   kmeta_bench_document --siblings COUNT
#include <cstdio>
#include <cstdlib>
#include <string>

#include "data/xml/xml_test_support.h"

namespace {

using kestrine::platform::data::XML::testing::SampleDocument;

std::string siblingsDocument(unsigned count) {
  std::string xml =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<root version=\"1\" name=\"siblings\">"
      "<group name=\"values\">\n";
  for (unsigned i = 0; i < count; ++i) {
    xml += "<int32 name=\"" + SampleDocument::distinctName(i) + "\">" + std::to_string(i) +
           "</int32>\n";
  }
  return xml + "</group></root>\n";
}

}  // namespace

int main(int argc, char** argv) {
  bool siblings = argc == 3 && std::string(argv[1]) == "--siblings";
  double amount = argc == 2 || siblings ? std::atof(argv[argc - 1]) : 0;
  if (amount <= 0) {
    std::fprintf(stderr,
                 "usage: kmeta_bench_document MEGABYTES\n"
                 "       kmeta_bench_document --siblings COUNT\n");
    return 2;
  }
  std::string document;
  if (siblings) {
    document = siblingsDocument(static_cast<unsigned>(amount));
  } else {
    // Parts of the middle of the range stand for the average length.
    std::size_t part = SampleDocument::generationPart(1, 500000).size();
    document = SampleDocument::generation(1, static_cast<unsigned>(amount * 1e6 / part));
  }
  return std::fwrite(document.data(), 1, document.size(), stdout) == document.size() ? 0 : 1;
}
