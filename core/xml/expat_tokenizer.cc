#include "core/xml/expat_tokenizer.h"

#include <expat.h>

#include <cstring>
#include <new>
#include <utility>

namespace kestrine::platform::core::xml {

namespace {

// Expat joins namespace URI, local name and prefix with this character. It cannot occur in
// any of them: U+0001 is not an XML 1.0 character, not even through a character reference,
// so splitting at it is never ambiguous.
constexpr char kSeparator = '\x01';

// The name as written, from expat's "uri<sep>local[<sep>prefix]" (or a bare "local" when the
// name is in no namespace): "prefix:local" or "local". `out` is scratch for the result.
const char* asWritten(const char* expanded, std::string& out) {
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

}  // namespace

struct ExpatTokenizer::Handlers {
  // The attribute array with every name as written; expat's own array when none needs it.
  static const char** rewriteAttributes(ExpatTokenizer& self, const char** expanded) {
    bool rewrite = false;
    std::size_t count = 0;
    for (; expanded[count] != nullptr; count += 2)
      rewrite = rewrite || std::strchr(expanded[count], kSeparator) != nullptr;
    if (!rewrite) return expanded;
    self.attributeText_.resize(count / 2);
    self.attributes_.clear();
    for (std::size_t i = 0; i < count; i += 2) {
      self.attributes_.push_back(asWritten(expanded[i], self.attributeText_[i / 2]));
      self.attributes_.push_back(expanded[i + 1]);
    }
    self.attributes_.push_back(nullptr);
    return self.attributes_.data();
  }

  // Runs one callback; an exception is kept and expat stopped. Expat may still report an
  // event or two after the stop; those are dropped.
  template <class Event>
  static void deliver(void* data, Event event) {
    ExpatTokenizer& self = *static_cast<ExpatTokenizer*>(data);
    if (self.failure_) return;
    try {
      event(self);
    } catch (...) {
      self.failure_ = std::current_exception();
      XML_StopParser(self.parser_, XML_FALSE);
    }
  }

  static void onStart(void* data, const XML_Char* name, const XML_Char** attributes) {
    deliver(data, [&](ExpatTokenizer& self) {
      const char** written = rewriteAttributes(self, attributes);
      self.callback_->notifyStartElement(asWritten(name, self.name_), written);
    });
  }
  static void onEnd(void* data, const XML_Char* name) {
    deliver(data, [&](ExpatTokenizer& self) {
      self.callback_->notifyEndElement(asWritten(name, self.name_));
    });
  }
  static void onText(void* data, const XML_Char* text, int length) {
    deliver(data,
            [&](ExpatTokenizer& self) { self.callback_->notifyCharacterData(text, length); });
  }
  static void onStartNamespace(void* data, const XML_Char* prefix, const XML_Char* uri) {
    // xmlns="" (undeclaring the default namespace) comes with no URI: it is reported as "".
    deliver(data, [&](ExpatTokenizer& self) {
      self.callback_->notifyStartNamespace(prefix, uri ? uri : "");
    });
  }
  static void onEndNamespace(void* data, const XML_Char* prefix) {
    deliver(data, [&](ExpatTokenizer& self) { self.callback_->notifyEndNamespace(prefix); });
  }
};

ExpatTokenizer::ExpatTokenizer(XMLCallback* callback)
    : parser_(XML_ParserCreateNS(nullptr, kSeparator)), callback_(callback) {
  if (parser_ == nullptr) throw std::bad_alloc();
  XML_SetReturnNSTriplet(parser_, XML_TRUE);
  XML_SetUserData(parser_, this);
  XML_SetElementHandler(parser_, &Handlers::onStart, &Handlers::onEnd);
  XML_SetCharacterDataHandler(parser_, &Handlers::onText);
  XML_SetNamespaceDeclHandler(parser_, &Handlers::onStartNamespace, &Handlers::onEndNamespace);
}

ExpatTokenizer::~ExpatTokenizer() {
  XML_ParserFree(parser_);
}

void* ExpatTokenizer::buffer(std::size_t size) {
  void* room = XML_GetBuffer(parser_, static_cast<int>(size));
  if (room == nullptr) throw std::bad_alloc();
  return room;
}

void ExpatTokenizer::parseBuffer(std::size_t size, bool last) {
  if (XML_ParseBuffer(parser_, static_cast<int>(size), last) != XML_STATUS_OK) throwFailure();
}

void ExpatTokenizer::parse(const char* bytes, std::size_t size, bool last) {
  if (XML_Parse(parser_, bytes, static_cast<int>(size), last) != XML_STATUS_OK) throwFailure();
}

void ExpatTokenizer::throwFailure() {
  if (failure_) std::rethrow_exception(std::exchange(failure_, nullptr));
  if (XML_GetErrorCode(parser_) == XML_ERROR_NO_MEMORY) throw std::bad_alloc();
  throw XMLException(XML_ErrorString(XML_GetErrorCode(parser_)), line(), column());
}

unsigned long ExpatTokenizer::line() const {
  return XML_GetCurrentLineNumber(parser_);
}

unsigned long ExpatTokenizer::column() const {
  // Expat counts columns from 0.
  return XML_GetCurrentColumnNumber(parser_) + 1;
}

}  // namespace kestrine::platform::core::xml
