#ifndef KPL_TOOLS_KMETA_GENERATED_DOCUMENT_H_
#define KPL_TOOLS_KMETA_GENERATED_DOCUMENT_H_

// Documents of any size for the tests and benchmarks that drive kmeta: each one adds a
// recognisable subtree, so that a store shows which of them it holds, and whether wholly.

#include <string>

namespace kmeta::testing {

// A name the name indexes can tell apart. They hash only the first quarter of a name's bytes
// (its first n bytes for n characters), so names such as "item_123" and "item_124" all share
// one hash and every look-up compares them one by one; here the unique part comes first and
// the name is long enough for it to be hashed.
inline std::string distinctName(unsigned i) {
  static const char digits[] = "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
  std::string name;
  for (int place = 0; place < 4; ++place, i /= 62)
    name += digits[i % 62];
  return name + "_generated_part";
}

// One part of generation `generation`: a node whose "stamp" holds the generation and `i`.
inline std::string generationPart(unsigned generation, unsigned i) {
  std::string g = std::to_string(generation), n = std::to_string(i);
  return "<node name=\"" + distinctName(i) + "\"><int32 name=\"stamp\">" + g + " " + n +
         "</int32><string name=\"label\">generation " + g + ", part " + n +
         "</string><double name=\"mass\" units=\"Kilogram\">" + n +
         ".25</double><vector3 name=\"position\" units=\"Meter\">" + n + " " + g +
         " 0.5</vector3></node>\n";
}

// A document whose root holds one group "gen_<generation>" of `parts` parts.
inline std::string generationDocument(unsigned generation, unsigned parts) {
  std::string xml =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<root version=\"1\" name=\"parts\">"
      "<group name=\"gen_" +
      std::to_string(generation) + "\">\n";
  for (unsigned i = 0; i < parts; ++i)
    xml += generationPart(generation, i);
  return xml + "</group></root>\n";
}

}  // namespace kmeta::testing

#endif  // KPL_TOOLS_KMETA_GENERATED_DOCUMENT_H_
