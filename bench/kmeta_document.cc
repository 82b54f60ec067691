// Writes a generated document of about MEGABYTES megabytes on standard output, for
// kmeta_import_bench.sh: one group of parts, each a node with four values.
//   kmeta_bench_document MEGABYTES
#include <cstdio>
#include <cstdlib>
#include <string>

#include "tools/kmeta/generated_document.h"

int main(int argc, char** argv) {
  double megabytes = argc == 2 ? std::atof(argv[1]) : 0;
  if (megabytes <= 0) {
    std::fprintf(stderr, "usage: kmeta_bench_document MEGABYTES\n");
    return 2;
  }
  // Parts of the middle of the range stand for the average length.
  std::size_t part = kmeta::testing::generationPart(1, 500000).size();
  unsigned parts = static_cast<unsigned>(megabytes * 1e6 / part);
  std::string document = kmeta::testing::generationDocument(1, parts);
  return std::fwrite(document.data(), 1, document.size(), stdout) == document.size() ? 0 : 1;
}
