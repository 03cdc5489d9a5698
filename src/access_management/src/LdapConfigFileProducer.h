#ifndef QIV_ACCESS_MANAGEMENT_LDAP_CONFIG_FILE_PRODUCER_H
#define QIV_ACCESS_MANAGEMENT_LDAP_CONFIG_FILE_PRODUCER_H

#include "LdapConfiguration.h"

#include <cstdint>
#include <map>
#include <ostream>
#include <string>

namespace QivAccessManagement {

// Writes the security framework's LDAP file and the LDAP service module's file from an
// LdapConfiguration, by expanding "<!name!>" keywords in two fixed templates. The configuration
// being written is held in the object, so one producer writes one file at a time.
class LdapConfigFileProducer {
 public:
  explicit LdapConfigFileProducer(const std::string& serviceModulePath = std::string());

  // Write the file at path (truncated, then mode 0640). 0 on success, -1 when it could not be
  // opened or written or its mode could not be set.
  int writeSecAaConfig(const std::string& path, const LdapConfiguration& config);
  int writeLdapSmConfig(const std::string& path, const LdapConfiguration& config);

  // Expand the framework or the service-module template into stream; result as writeConfig.
  int writeSecAaConfig(std::ostream& stream, const LdapConfiguration& config);
  int writeLdapSmConfig(std::ostream& stream, const LdapConfiguration& config);

  // Copies templateText to stream with every known "<!keyword!>" replaced by its value; unknown
  // keywords and an unclosed "<!" are copied as they are, and values are never scanned again.
  // 0, or -1 when the stream ends up failed or bad.
  int writeConfig(std::ostream& stream, const LdapConfiguration& config, const std::string& templateText);

  void setServiceModelPath(const std::string& path);
  void setCaCertDir(const std::string& dir);
  void setTlsCaCertificate(const std::string& file);
  void setTlsKey(const std::string& file);
  void setTlsCertificate(const std::string& file);

  // The URI scheme, "ldaps://" or "ldap://"; a port of 0 becomes that scheme's default.
  static std::string getUriPrefixAndPort(uint16_t& port, bool ldaps);

  // chmod 0640; 0, or -1 after logging the failure.
  static int setPermission(const std::string& path);

 private:
  typedef std::string (LdapConfigFileProducer::*Getter)() const;

  static std::map<std::string, Getter> initKeywordExpansion();

  int writeFile(const std::string& path, const LdapConfiguration& config, const std::string& templateText);

  // Values of the keywords; those of the record read the configuration given to writeConfig.
  std::string getBindDn() const;
  std::string getBaseDn() const;
  std::string getBindPassword() const;
  std::string getFilter() const;
  std::string getNodeType() const;
  std::string getRoleAliasesBaseDn() const;
  std::string getCipherFilter() const;
  std::string getType() const;
  std::string getFilterType() const;
  std::string getOrbFiltVersion() const;
  std::string getOrbFiltTargetBasedAccessControl() const;
  std::string getTlsMode() const;
  std::string getUseReferrals() const;
  std::string getDisableTls() const;
  std::string getUseStartTls() const;
  std::string getLdapUri() const;
  std::string getSsdFilter() const;
  std::string getOverrideGid() const;
  std::string getServiceModulePath() const;
  std::string getCaCertDir() const;
  std::string getTlsCaCertificate() const;
  std::string getTlsKey() const;
  std::string getTlsCertificate() const;

  static const std::map<std::string, Getter> keywordExpansion;

  const LdapConfiguration* _config;
  std::string _serviceModulePath;
  std::string _caCertDir;
  std::string _tlsCaCertificate;
  std::string _tlsKey;
  std::string _tlsCertificate;
};

}  // namespace QivAccessManagement

#endif
