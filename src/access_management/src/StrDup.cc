#include "StrDup.h"

#include <cstring>

namespace Ldap {

char* StrDup(const char* text) {
  if (text == nullptr) return nullptr;
  const std::size_t size = std::strlen(text) + 1;
  char* copy = new char[size];
  std::memcpy(copy, text, size);
  return copy;
}

}  // namespace Ldap
