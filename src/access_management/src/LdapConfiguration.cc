#include "LdapConfiguration.h"

#include "LdapModel.h"

namespace QivAccessManagement {

LdapConfiguration::LdapConfiguration()
    : administrativeState(LOCKED),
      useTls(false),
      useTlsFallback(false),
      filterType(FILTER_TYPE_NOT_SET),
      tlsMode(STARTTLS),
      serverPort(0),
      targetBasedAccessControl(UNLOCKED),
      orbFiltVersion(1),
      useReferrals(false),
      serviceModule(LdapModel::DEFAULT_SERVICE_MODULE),
      initConfigTimeout(0),
      configFileInvalid(false) {}

LdapConfiguration::~LdapConfiguration() = default;

LdapConfiguration::LdapConfiguration(const LdapConfiguration& other) = default;

LdapConfiguration& LdapConfiguration::operator=(const LdapConfiguration& other) = default;

std::string LdapConfiguration::joinNodeTypes(const std::vector<std::string>& nodeTypes) {
  std::string joined;
  for (const std::string& nodeType : nodeTypes) {
    if (&nodeType != &nodeTypes.front()) joined += ':';
    joined += nodeType;
  }
  return joined;
}

}  // namespace QivAccessManagement
