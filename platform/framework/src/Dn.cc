#include <Framework/Dn.h>

#include <stdexcept>

namespace Framework {

std::string Dn::classPath(const std::string& dn) {
  std::string path;
  std::string::size_type start = 0;
  while (true) {
    const std::string::size_type end = dn.find(',', start);
    const std::string element = dn.substr(start, end == std::string::npos ? std::string::npos : end - start);
    const std::string::size_type equals = element.find('=');
    if (equals == std::string::npos || equals == 0 || equals + 1 == element.size()) {
      throw std::invalid_argument("malformed DN \"" + dn + "\": element \"" + element + "\" is not Class=value");
    }
    if (!path.empty()) path += ',';
    path += element.substr(0, equals);
    if (end == std::string::npos) return path;
    start = end + 1;
  }
}

std::string Dn::implementerPath(const std::string& dn) {
  std::string path = "/" + classPath(dn);
  for (char& character : path) {
    if (character == ',') character = '/';
  }
  return path;
}

std::string Dn::parent(const std::string& dn) {
  const std::string::size_type comma = dn.rfind(',');
  return comma == std::string::npos ? std::string() : dn.substr(0, comma);
}

std::string Dn::lastElement(const std::string& path) {
  const std::string::size_type comma = path.rfind(',');
  return comma == std::string::npos ? path : path.substr(comma + 1);
}

}  // namespace Framework
