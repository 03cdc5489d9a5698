#ifndef QIV_ACCESS_MANAGEMENT_TEXT_EQUALS_H
#define QIV_ACCESS_MANAGEMENT_TEXT_EQUALS_H

#include <cstring>

namespace QivAccessManagement {

// Whether a C string the framework handed over (possibly null) holds expected.
inline bool textEquals(const char* text, const char* expected) {
  return text != nullptr && std::strcmp(text, expected) == 0;
}

}  // namespace QivAccessManagement

#endif
