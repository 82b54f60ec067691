#include "tools/kmeta/value_text.h"

#include <cstring>
#include <vector>

#include "data/tree/primitive.h"
#include "data/xml/xml_primitive.h"
#include "kestrine/platform/core/io.h"
#include "kestrine/platform/core/uuid.h"
#include "kestrine/platform/core/xml.h"

namespace kmeta {

namespace core = kestrine::platform::core;
namespace data = kestrine::platform::data;

namespace {

// Collects the value blocks of one rendered primitive element: its "val" children, or its
// own text when it has no child element at all (with children, its own text is only the
// writer's indentation).
class ValueBlocks : public core::xml::XMLCallback {
 public:
  void notifyStartElement(const char* name, const char**) override {
    ++depth_;
    if (depth_ == 2) {
      hasChildren_ = true;
      inVal_ = std::strcmp(name, "val") == 0;
      if (inVal_) vals_.emplace_back();
    }
  }
  void notifyEndElement(const char*) override {
    if (depth_-- == 2) inVal_ = false;
  }
  void notifyStartNamespace(const char*, const char*) override {}
  void notifyEndNamespace(const char*) override {}
  void notifyCharacterData(const char* data, int length) override {
    if (depth_ == 1) own_.append(data, length);
    if (depth_ == 2 && inVal_) vals_.back().append(data, length);
  }

  std::vector<std::string> blocks() const {
    if (!vals_.empty()) return vals_;
    if (hasChildren_ || own_.empty()) return {};
    return {own_};
  }

 private:
  int depth_ = 0;
  bool hasChildren_ = false;
  bool inVal_ = false;
  std::string own_;
  std::vector<std::string> vals_;
};

}  // namespace

// Rendered by the element's own handler and read back, so that the text is exactly what
// an export writes, whatever the type.
std::string valueText(IDataStore* store, unsigned offset, data::metadata::ISchemaLocator* locator) {
  core::io::MemoryWriter element;
  {
    data::Design::Primitive primitive(store, offset);
    data::XML::XMLPrimitive handler(store, primitive.valuetype(), locator);
    core::KPLUUID id;
    core::xml::XMLSerializer serializer(id);
    element.open();
    serializer.attach(&element);
    if (!handler.serialize(&primitive, &serializer)) return std::string();
    serializer.endElement();
    serializer.detach();
  }
  ValueBlocks blocks;
  core::io::MemoryReader reader(element.bytes());
  reader.open();
  core::xml::XMLParser(&blocks).parseDocument(&reader);
  std::string out;
  for (const std::string& block : blocks.blocks())
    out += block + '\n';
  return out;
}

}  // namespace kmeta
