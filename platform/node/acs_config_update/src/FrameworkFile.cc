#include "FrameworkFile.h"

#include <sstream>

namespace AcsConfigUpdate {

namespace {

const char kGeneral[] = "GENERAL";
const char kSssd[] = "SSSD";
const char kServiceModule[] = "UAI_SERVICE_MODULE";
const char kVersion[] = "ACS_IFREG-1";

std::string trimmed(const std::string& text) {
  const std::string::size_type first = text.find_first_not_of(" \t");
  if (first == std::string::npos) return std::string();
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

std::string bracketed(const std::string& section) { return "[" + section + "]"; }

}  // namespace

std::string FrameworkFile::check(const std::string& text) {
  FrameworkFile file;
  std::istringstream lines(text);
  int number = 0;
  for (std::string line; std::getline(lines, line);) {
    ++number;
    const std::string reason = file.take(line);
    if (!reason.empty()) return "line " + std::to_string(number) + ": " + reason;
  }
  return file.finish();
}

std::string FrameworkFile::take(const std::string& line) {
  const std::string text = trimmed(line);
  if (text.empty() || text[0] == '#') return std::string();
  if (text.front() == '[' && text.back() == ']') return openSection(text.substr(1, text.size() - 2));
  if (_sections.empty()) return "text before the first section";
  if (_sections.back() == kServiceModule) return takeServiceModule();
  return takeSetting(text);
}

std::string FrameworkFile::finish() const {
  if (_sections.size() < 3) return "no " + bracketed(kServiceModule) + " section";
  if (setting(kGeneral, "VERSION") != kVersion) return bracketed(kGeneral) + " VERSION is not " + kVersion;
  if (setting(kSssd, "ldap_uri").empty()) return bracketed(kSssd) + " has no ldap_uri";
  return std::string();
}

std::string FrameworkFile::openSection(const std::string& name) {
  static const char* const order[] = {kGeneral, kSssd, kServiceModule};
  const std::vector<std::string>::size_type next = _sections.size();
  if (next == 3) return bracketed(name) + " after " + bracketed(kServiceModule);
  if (name != order[next]) return bracketed(name) + " where " + bracketed(order[next]) + " was expected";
  _sections.push_back(name);
  return std::string();
}

std::string FrameworkFile::takeSetting(const std::string& text) {
  const std::string::size_type equals = text.find('=');
  if (equals == std::string::npos) return "\"" + text + "\" is not \"key = value\"";
  const std::string key = trimmed(text.substr(0, equals));
  if (key.empty() || key.find_first_of(" \t") != std::string::npos) return "\"" + key + "\" is no key";
  if (!_settings[_sections.back()].emplace(key, trimmed(text.substr(equals + 1))).second) return key + " stands twice";
  return std::string();
}

std::string FrameworkFile::takeServiceModule() {
  if (_serviceModuleRead) return "more than one service module";
  _serviceModuleRead = true;
  return std::string();
}

std::string FrameworkFile::setting(const std::string& section, const std::string& key) const {
  const auto found = _settings.find(section);
  if (found == _settings.end()) return std::string();
  const auto value = found->second.find(key);
  return value == found->second.end() ? std::string() : value->second;
}

}  // namespace AcsConfigUpdate
