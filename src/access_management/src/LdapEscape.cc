#include "LdapEscape.h"

#include <cstring>

namespace QivAccessManagement {

std::string LdapEscape::filterValue(const std::string& value) {
  std::string escaped;
  escaped.reserve(value.size());
  for (const char c : value) {
    switch (c) {
      case '*':
        escaped += "\\2a";
        break;
      case '(':
        escaped += "\\28";
        break;
      case ')':
        escaped += "\\29";
        break;
      case '\\':
        escaped += "\\5c";
        break;
      case '\0':
        escaped += "\\00";
        break;
      default:
        escaped += c;
    }
  }
  return escaped;
}

std::string LdapEscape::dnValue(const std::string& value) {
  static const char SPECIAL[] = ",+\"\\<>;";
  std::string escaped;
  escaped.reserve(value.size());
  for (std::string::size_type index = 0; index < value.size(); ++index) {
    const char c = value[index];
    if (c == '\0') {
      escaped += "\\00";
      continue;
    }
    const bool leading = index == 0 && (c == '#' || c == ' ');
    const bool trailing = index + 1 == value.size() && c == ' ';
    // strchr would also match the terminator; NUL is handled above.
    if (leading || trailing || std::strchr(SPECIAL, c) != nullptr) escaped += '\\';
    escaped += c;
  }
  return escaped;
}

}  // namespace QivAccessManagement
