#include <expat.h>

#include <cstring>
#include <exception>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "kestrine/platform/core/xml.h"

namespace kestrine::platform::core::xml {

XMLCallback::~XMLCallback() = default;

namespace {

// Expat joins namespace URI, local name and prefix with this character. It cannot occur in
// any of them: U+0001 is not an XML 1.0 character, not even through a character reference,
// so splitting at it is never ambiguous.
constexpr char kSeparator = '\x01';

// Bytes handed to expat per call: large enough to amortise the calls, small enough that a
// document of any size streams through a fixed buffer.
constexpr int kChunk = 64 * 1024;

struct ParserDeleter {
  void operator()(XML_Parser parser) const { XML_ParserFree(parser); }
};
using ParserHandle = std::unique_ptr<XML_ParserStruct, ParserDeleter>;

}  // namespace

struct XMLParser::Impl {
  XMLCallback* callback;
  XML_Parser parser = nullptr;
  // The first exception thrown by the callback; the parse stops and it is rethrown later.
  std::exception_ptr failure;
  // Scratch for names rewritten as written; reused so that most events allocate nothing.
  std::string name;
  std::vector<std::string> attributeText;
  std::vector<const char*> attributes;

  // The name as written, from expat's "uri<sep>local[<sep>prefix]" (or a bare "local" when
  // the name is in no namespace): "prefix:local" or "local". `out` is scratch for the result.
  static const char* asWritten(const char* expanded, std::string& out) {
    const char* local = std::strchr(expanded, kSeparator);
    if (local == nullptr) return expanded;
    ++local;
    const char* prefix = std::strchr(local, kSeparator);
    if (prefix == nullptr) return local;
    out.assign(prefix + 1);
    out += ':';
    out.append(local, prefix - local);
    return out.c_str();
  }

  // The attribute array with every name as written; expat's own array when none needs it.
  const char** rewriteAttributes(const char** expanded) {
    bool rewrite = false;
    std::size_t count = 0;
    for (; expanded[count] != nullptr; count += 2)
      rewrite = rewrite || std::strchr(expanded[count], kSeparator) != nullptr;
    if (!rewrite) return expanded;
    attributeText.resize(count / 2);
    attributes.clear();
    for (std::size_t i = 0; i < count; i += 2) {
      attributes.push_back(asWritten(expanded[i], attributeText[i / 2]));
      attributes.push_back(expanded[i + 1]);
    }
    attributes.push_back(nullptr);
    return attributes.data();
  }

  // Runs one callback; an exception must not unwind through expat's C frames, so it is kept
  // and the parse stopped. Expat may still deliver an event or two after the stop; those
  // are dropped.
  template <class Event>
  static void deliver(void* data, Event event) {
    Impl* impl = static_cast<Impl*>(data);
    if (impl->failure) return;
    try {
      event(*impl);
    } catch (...) {
      impl->failure = std::current_exception();
      XML_StopParser(impl->parser, XML_FALSE);
    }
  }

  static void onStart(void* data, const XML_Char* name, const XML_Char** attributes) {
    deliver(data, [&](Impl& impl) {
      const char** written = impl.rewriteAttributes(attributes);
      impl.callback->notifyStartElement(asWritten(name, impl.name), written);
    });
  }
  static void onEnd(void* data, const XML_Char* name) {
    deliver(data, [&](Impl& impl) { impl.callback->notifyEndElement(asWritten(name, impl.name)); });
  }
  static void onText(void* data, const XML_Char* text, int length) {
    deliver(data, [&](Impl& impl) { impl.callback->notifyCharacterData(text, length); });
  }
  static void onStartNamespace(void* data, const XML_Char* prefix, const XML_Char* uri) {
    // xmlns="" (undeclaring the default namespace) comes with no URI: it is reported as "".
    deliver(data, [&](Impl& impl) { impl.callback->notifyStartNamespace(prefix, uri ? uri : ""); });
  }
  static void onEndNamespace(void* data, const XML_Char* prefix) {
    deliver(data, [&](Impl& impl) { impl.callback->notifyEndNamespace(prefix); });
  }

  [[noreturn]] void throwSyntaxError() {
    unsigned long line = XML_GetCurrentLineNumber(parser);
    unsigned long column = XML_GetCurrentColumnNumber(parser) + 1;
    throw XMLException(XML_ErrorString(XML_GetErrorCode(parser)), line, column);
  }
};

XMLParser::XMLParser(XMLCallback* callback) : impl_(new Impl) {
  impl_->callback = callback;
}

XMLParser::~XMLParser() = default;

void XMLParser::parseDocument(io::IDataReader* reader) {
  // A fresh expat parser per document: nothing of an earlier (maybe failed) parse remains.
  ParserHandle handle(XML_ParserCreateNS(nullptr, kSeparator));
  if (!handle) throw std::bad_alloc();
  XML_Parser parser = handle.get();
  Impl& impl = *impl_;
  impl.parser = parser;
  impl.failure = nullptr;
  // The expat parser goes with this call, however it ends; line() and column() then say 0.
  struct Forget {
    Impl& impl;
    ~Forget() { impl.parser = nullptr; }
  } forget{impl};
  XML_SetReturnNSTriplet(parser, XML_TRUE);
  XML_SetUserData(parser, &impl);
  XML_SetElementHandler(parser, &Impl::onStart, &Impl::onEnd);
  XML_SetCharacterDataHandler(parser, &Impl::onText);
  XML_SetNamespaceDeclHandler(parser, &Impl::onStartNamespace, &Impl::onEndNamespace);

  for (;;) {
    void* buffer = XML_GetBuffer(parser, kChunk);
    if (buffer == nullptr) throw std::bad_alloc();
    // The reader runs here, outside expat, so its exceptions pass straight through.
    unsigned count = reader->read(buffer, kChunk);
    bool last = count == 0;
    if (XML_ParseBuffer(parser, static_cast<int>(count), last) != XML_STATUS_OK) {
      if (impl.failure) std::rethrow_exception(std::exchange(impl.failure, nullptr));
      if (XML_GetErrorCode(parser) == XML_ERROR_NO_MEMORY) throw std::bad_alloc();
      impl.throwSyntaxError();
    }
    if (last) return;
  }
}

unsigned long XMLParser::line() const {
  return impl_->parser != nullptr ? XML_GetCurrentLineNumber(impl_->parser) : 0;
}

unsigned long XMLParser::column() const {
  return impl_->parser != nullptr ? XML_GetCurrentColumnNumber(impl_->parser) + 1 : 0;
}

}  // namespace kestrine::platform::core::xml
