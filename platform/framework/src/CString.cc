#include <Framework/CString.h>

#include <cstdlib>
#include <cstring>
#include <new>

namespace Framework {

char* CString::duplicate(const std::string& text) {
  char* copy = static_cast<char*>(std::malloc(text.size() + 1));
  if (copy == nullptr) throw std::bad_alloc();
  std::memcpy(copy, text.c_str(), text.size() + 1);
  return copy;
}

std::string CString::orEmpty(const char* text) { return text == nullptr ? std::string() : std::string(text); }

}  // namespace Framework
