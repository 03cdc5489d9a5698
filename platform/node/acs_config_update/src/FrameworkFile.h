#ifndef ACS_CONFIG_UPDATE_FRAMEWORK_FILE_H
#define ACS_CONFIG_UPDATE_FRAMEWORK_FILE_H

#include <map>
#include <string>
#include <vector>

namespace AcsConfigUpdate {

// The check of a file offered for registration: the security framework's LDAP file, in the
// format the framework reads:
//   [GENERAL]               first, with "VERSION = ACS_IFREG-1"
//   [SSSD]                  "key = value" lines, "ldap_uri" among them
//   [UAI_SERVICE_MODULE]    last: at most one line, the service module's path
// Blank lines and lines starting with '#' may stand anywhere; a key stands once per section.
class FrameworkFile {
 public:
  // Empty when text is such a file, else the first reason it is not ("line 3: ...").
  static std::string check(const std::string& text);

 private:
  FrameworkFile() = default;

  // Empty, or why the line does not belong where it stands.
  std::string take(const std::string& line);
  // Empty, or what the whole file lacks.
  std::string finish() const;
  std::string openSection(const std::string& name);
  std::string takeSetting(const std::string& text);
  std::string takeServiceModule();
  // The value of key in section, empty when it has none.
  std::string setting(const std::string& section, const std::string& key) const;

  std::vector<std::string> _sections;
  std::map<std::string, std::map<std::string, std::string>> _settings;
  bool _serviceModuleRead = false;
};

}  // namespace AcsConfigUpdate

#endif
