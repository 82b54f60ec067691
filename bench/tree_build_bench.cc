// Builds the hierarchy of a document through the public object model, as a client that
// holds its data in memory would, to set beside HDF5 building the same hierarchy
// (tree_build_bench.sh runs both). The document is parsed with pugixml once, untimed. Timed:
// a memory store, one container per group or node, one table per table or struct, one link
// per link, one primitive per value element with its values read from the text and set, and
// dropping the store at the end. Units, dims, locales, URIs, table defaults and localized
// names are left out, as the HDF5 build leaves them out.
//
//   tree_build_bench DOCUMENT [RUNS]
//
// Prints "tree_build BYTES BEST_S MB/S MEDIAN_S CLIENT_S" (MB/s on the document's bytes, wall
// time; CLIENT_S the best time of reading every name and value as the build does, building
// nothing, which is the client's own part of the build) and what it built on standard error.
#include <kestrine/platform/core.h>
#include <kestrine/platform/data.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <memory>
#include <pugixml.hpp>
#include <sstream>
#include <string>
#include <vector>

namespace {

using namespace kestrine::platform;
using core::memory::SharedPtr;
using core::storage::datastore::MemoryDataStore;
using core::string::StringAlgorithm;
using data::metadata::IPrimitive;
using data::metadata::ITable;
using data::metadata::tValue;
using data::structure::IContainer;
using data::structure::IContainerFrontEnd;
using data::structure::ILink;

struct Counts {
  std::size_t containers = 0, tables = 0, links = 0, primitives = 0;
};

std::wstring wide(const char* text) {
  core::string::WideString decoded = StringAlgorithm::UTF8Decode(text);
  return std::wstring(decoded.string(), decoded.length());
}

bool separator(char c) {
  return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

// The blank-separated numbers of `text` as elements of T, each read by `read` (strtod and the
// like), stopping at the first token that holds none.
template <class T, class Read>
void numbers(const char* text, std::vector<char>& out, Read read) {
  out.clear();
  for (char* end;; text = end) {
    T value = static_cast<T>(read(text, &end));
    if (end == text) return;
    const char* bytes = reinterpret_cast<const char*>(&value);
    out.insert(out.end(), bytes, bytes + sizeof value);
  }
}

// "true" and "1" are true, any other token false.
void booleans(const char* text, std::vector<char>& out) {
  out.clear();
  while (*text != '\0') {
    while (separator(*text))
      ++text;
    if (*text == '\0') return;
    out.push_back(*text == 't' || *text == '1');
    while (*text != '\0' && !separator(*text))
      ++text;
  }
}

class Builder {
 public:
  Builder() {
    for (unsigned type = data::metadata::kBinary; type < data::metadata::kStruct; ++type)
      types_[data::metadata::valueTypeName(static_cast<tValue>(type))] = static_cast<tValue>(type);
  }

  // Builds the children of `element` into `container`.
  void children(IContainer& container, pugi::xml_node element) {
    for (pugi::xml_node child : element.children()) {
      if (child.type() != pugi::node_element) continue;
      const char* tag = child.name();
      std::wstring name = wide(child.attribute("name").value());
      if (std::strcmp(tag, "group") == 0 || std::strcmp(tag, "node") == 0) {
        auto kind = tag[0] == 'g' ? IContainer::kGroup : IContainer::kNode;
        if (SharedPtr<IContainer> made = container.create(kind, name.c_str(), nullptr)) {
          ++counts.containers;
          children(*made, child);
        }
      } else if (std::strcmp(tag, "link") == 0) {
        if (SharedPtr<IContainer> made =
                container.create(IContainer::kLink, name.c_str(), nullptr)) {
          ILink::to(made.get())->target(wide(child.attribute("to").value()).c_str());
          ++counts.links;
        }
      } else if (std::strcmp(tag, "table") == 0 || std::strcmp(tag, "struct") == 0) {
        if (SharedPtr<ITable> made = container.create(name.c_str(), nullptr)) members(*made, child);
      } else if (tValue type = valueType(tag)) {
        if (SharedPtr<IPrimitive> made = container.create(name.c_str(), type)) set(*made, child);
      }
    }
  }

  // The client's own part of building `element`'s children: every name and value read as
  // children() and members() read them, and nothing built. Its time is not the library's.
  void readOnly(pugi::xml_node element, bool members = false) {
    for (pugi::xml_node child : element.children()) {
      if (child.type() != pugi::node_element) continue;
      const char* tag = child.name();
      std::wstring name = wide(child.attribute("name").value());
      if (std::strcmp(tag, "table") == 0 || std::strcmp(tag, "struct") == 0) {
        readOnly(child, true);
      } else if (tValue type = valueType(tag)) {
        read(type, child);
      } else if (members) {
        continue;
      } else if (std::strcmp(tag, "group") == 0 || std::strcmp(tag, "node") == 0) {
        readOnly(child);
      } else if (std::strcmp(tag, "link") == 0) {
        text_ = wide(child.attribute("to").value());
      }
    }
  }

  Counts counts;

 private:
  // Builds the members of a table (or of a struct, which is built as one).
  void members(ITable& table, pugi::xml_node element) {
    ++counts.tables;
    for (pugi::xml_node child : element.children()) {
      if (child.type() != pugi::node_element) continue;
      std::wstring name = wide(child.attribute("name").value());
      if (std::strcmp(child.name(), "table") == 0 || std::strcmp(child.name(), "struct") == 0) {
        if (SharedPtr<ITable> made = table.create(name.c_str(), nullptr)) members(*made, child);
      } else if (tValue type = valueType(child.name())) {
        if (SharedPtr<IPrimitive> made = table.create(name.c_str(), type, data::units::tUnit(0)))
          set(*made, child);
      }
    }
  }

  tValue valueType(const char* tag) const {
    auto found = types_.find(tag);
    return found != types_.end() ? found->second : data::metadata::kNone;
  }

  // Reads the element's values (in its "val" when it has one) and sets them.
  void set(IPrimitive& primitive, pugi::xml_node element) {
    ++counts.primitives;
    Values values = read(primitive.valuetype(), element);
    unsigned count = static_cast<unsigned>(values.bytes / primitive.stride());
    if (count > 0) primitive.set(values.data, 0, count);
  }

  // The element's values as `type` stores them: numbers read from the text, text decoded to
  // wide characters with its terminator, binary decoded. Valid until the next read.
  struct Values {
    const void* data;
    std::size_t bytes;
  };
  Values read(tValue type, pugi::xml_node element) {
    pugi::xml_node val = element.child("val");
    const char* text = (val ? val : element).child_value();
    switch (type) {
      case data::metadata::kBinary:
        bytes_.clear();
        StringAlgorithm::DecodeBase64(text, std::strlen(text), bytes_);
        return {bytes_.data(), bytes_.size()};
      case data::metadata::kUUID:
      case data::metadata::kString:
      case data::metadata::kTime:
      case data::metadata::kURI:
      case data::metadata::kVersion:
        text_ = wide(text);
        return {text_.c_str(), (text_.size() + 1) * sizeof(wchar_t)};
      case data::metadata::kBool:
        booleans(text, values_);
        break;
      case data::metadata::kInt8:
        numbers<std::int8_t>(text, values_, signedNumber);
        break;
      case data::metadata::kUInt8:
        numbers<std::uint8_t>(text, values_, unsignedNumber);
        break;
      case data::metadata::kInt16:
        numbers<std::int16_t>(text, values_, signedNumber);
        break;
      case data::metadata::kUInt16:
        numbers<std::uint16_t>(text, values_, unsignedNumber);
        break;
      case data::metadata::kInt32:
        numbers<std::int32_t>(text, values_, signedNumber);
        break;
      case data::metadata::kUInt32:
        numbers<std::uint32_t>(text, values_, unsignedNumber);
        break;
      case data::metadata::kInt64:
        numbers<std::int64_t>(text, values_, signedNumber);
        break;
      case data::metadata::kUInt64:
        numbers<std::uint64_t>(text, values_, unsignedNumber);
        break;
      case data::metadata::kScalar:
        numbers<float>(text, values_, [](const char* p, char** e) { return std::strtof(p, e); });
        break;
      default:  // double, and the components of vectors and matrices
        numbers<double>(text, values_, [](const char* p, char** e) { return std::strtod(p, e); });
        break;
    }
    return {values_.data(), values_.size()};
  }

  static long long signedNumber(const char* text, char** end) {
    return std::strtoll(text, end, 10);
  }
  static unsigned long long unsignedNumber(const char* text, char** end) {
    return std::strtoull(text, end, 10);
  }

  std::map<std::string, tValue, std::less<>> types_;
  std::vector<char> values_;
  std::vector<unsigned char> bytes_;
  std::wstring text_;
};

// The wall times of `runs` calls of `work`, shortest first.
template <class Work>
std::vector<double> timed(int runs, Work work) {
  std::vector<double> seconds;
  for (int run = 0; run < runs; ++run) {
    auto start = std::chrono::steady_clock::now();
    work();
    seconds.push_back(
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
  }
  std::sort(seconds.begin(), seconds.end());
  return seconds;
}

std::string readFile(const char* path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream bytes;
  bytes << file.rdbuf();
  return bytes.str();
}

}  // namespace

int main(int argc, char** argv) {
  int runs = argc == 3 ? std::atoi(argv[2]) : 3;
  if (argc < 2 || argc > 3 || runs < 1) {
    std::fprintf(stderr, "usage: tree_build_bench DOCUMENT [RUNS]\n");
    return 2;
  }
  const std::string bytes = readFile(argv[1]);
  pugi::xml_document dom;
  if (bytes.empty() || !dom.load_buffer(bytes.data(), bytes.size())) {
    std::fprintf(stderr, "tree_build_bench: %s is no XML document\n", argv[1]);
    return 1;
  }
  pugi::xml_node root = dom.document_element();
  const std::wstring top = wide(root.attribute("name").value());

  Counts counts;
  std::vector<double> seconds = timed(runs, [&] {
    MemoryDataStore store;
    Builder builder;
    // The root's children go into one top-level group, as HDF5 puts them under "/".
    SharedPtr<IContainer> group = IContainerFrontEnd::toplevel(&store, top.c_str());
    builder.children(*group, root);
    counts = builder.counts;
  });
  std::vector<double> client = timed(runs, [&] { Builder().readOnly(root); });
  std::printf("tree_build %zu %.4f %.1f %.4f %.4f\n", bytes.size(), seconds.front(),
              bytes.size() / 1e6 / seconds.front(), seconds[seconds.size() / 2], client.front());
  std::fprintf(stderr, "# tree_build containers=%zu tables=%zu links=%zu primitives=%zu\n",
               counts.containers, counts.tables, counts.links, counts.primitives);
  return 0;
}
