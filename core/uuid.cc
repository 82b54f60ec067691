#include <uuid/uuid.h>

#include <cstring>

#include "kestrine/platform/core/uuid.h"

namespace kestrine::platform::core {

static_assert(sizeof(uuid_t) == 16, "a UUID is 16 bytes");

KPLUUID::KPLUUID() {
  uuid_generate_random(bytes_);
}

KPLUUID::KPLUUID(NilTag) {
  uuid_clear(bytes_);
}

KPLUUID KPLUUID::nil() {
  return KPLUUID(NilTag());
}

bool KPLUUID::parse(const char* text, KPLUUID& out) {
  uuid_t parsed;
  if (text == nullptr || uuid_parse(text, parsed) != 0) return false;
  std::memcpy(out.bytes_, parsed, sizeof(parsed));
  return true;
}

std::string KPLUUID::toString() const {
  char text[37];
  uuid_unparse_lower(bytes_, text);
  return std::string(text, 36);
}

bool KPLUUID::isNil() const {
  return uuid_is_null(bytes_) != 0;
}

bool KPLUUID::operator==(const KPLUUID& other) const {
  return std::memcmp(bytes_, other.bytes_, sizeof(bytes_)) == 0;
}

}  // namespace kestrine::platform::core
