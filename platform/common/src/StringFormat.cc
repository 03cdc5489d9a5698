#include "StringFormat.h"

#include <cstdio>

namespace Qiv {

std::string vformat(const char* format, va_list args) {
  va_list measureArgs;
  va_copy(measureArgs, args);
  const int length = std::vsnprintf(nullptr, 0, format, measureArgs);
  va_end(measureArgs);
  if (length <= 0) return std::string();

  // vsnprintf needs room for the terminator; the string already keeps one past size().
  std::string text(static_cast<std::size_t>(length), '\0');
  std::vsnprintf(&text[0], text.size() + 1, format, args);
  return text;
}

}  // namespace Qiv
