#ifndef FRAMEWORK_C_STRING_H
#define FRAMEWORK_C_STRING_H

#include <string>

namespace Framework {

// C strings as they cross the framework's C interfaces.
class CString {
 public:
  // A malloc'ed copy the receiver releases with free; throws std::bad_alloc.
  static char* duplicate(const std::string& text);
  // text, or "" for null.
  static std::string orEmpty(const char* text);
};

}  // namespace Framework

#endif
