#ifndef QIV_ACCESS_MANAGEMENT_LDAP_CONFIGURATION_H
#define QIV_ACCESS_MANAGEMENT_LDAP_CONFIGURATION_H

#include "NodeCredential.h"
#include "TrustCategory.h"

#include <cstdint>
#include <string>
#include <vector>

namespace QivAccessManagement {

// Administrative state, also the values of targetBasedAccessControl. Other values can arrive
// from the model and are kept as they are.
enum AdministrativeState : int32_t { LOCKED = 0, UNLOCKED = 1 };

enum TlsMode : int32_t { STARTTLS = 0, LDAPS = 1 };

// The model's "filterType" values; 0 means not set.
enum FilterType : int32_t { FILTER_TYPE_NOT_SET = 0, POSIX_GROUPS = 1, ORBELIN = 2, FLEXIBLE = 3 };

// Which object-implementer registration interface the component uses.
enum OIVersion { OI_V2 = 2, OI_V3 = 3 };

// One complete LDAP configuration, copied by value between the configuration thread, the
// transactions and the back ends. bindPassword holds clear text and must never be logged.
class LdapConfiguration {
 public:
  LdapConfiguration();
  ~LdapConfiguration();
  LdapConfiguration(const LdapConfiguration& other);
  LdapConfiguration& operator=(const LdapConfiguration& other);

  // The "nodeType" sequence as held in nodeType: the elements joined with ":".
  static std::string joinNodeTypes(const std::vector<std::string>& nodeTypes);

  AdministrativeState administrativeState;
  std::string bindDn;
  std::string ldapIpAddress;
  bool useTls;
  std::string baseDn;
  std::string fallbackLdapIpAddress;
  bool useTlsFallback;
  NodeCredential nodeCredential;
  TrustCategory trustCategory;
  std::string tlsCaCertificate;
  std::string tlsClientCertificate;
  std::string tlsClientKey;
  std::string nodeType;
  std::string roleAliasesBaseDn;
  FilterType filterType;
  std::string bindPassword;
  TlsMode tlsMode;
  uint16_t serverPort;  // 0: the back end's default port
  std::string cipherFilter;
  std::string filter;
  std::string type;
  AdministrativeState targetBasedAccessControl;
  uint32_t orbFiltVersion;
  bool useReferrals;
  std::string serviceModule;
  uint16_t initConfigTimeout;  // seconds start-up waits for the initial configuration
  bool configFileInvalid;      // the component file held an invalid port or TLS mode
};

}  // namespace QivAccessManagement

#endif
