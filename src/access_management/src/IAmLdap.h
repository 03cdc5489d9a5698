#ifndef QIV_ACCESS_MANAGEMENT_I_AM_LDAP_H
#define QIV_ACCESS_MANAGEMENT_I_AM_LDAP_H

#include "LdapConfiguration.h"

#include <PymSpiTypes.h>

#include <string>
#include <vector>

namespace QivAccessManagement {

// The built-in role lookup in the directory, as the role query uses it. The set/verify
// operations let a test double be scripted and checked; the real lookup keeps the defaults.
class IAmLdap {
 public:
  virtual ~IAmLdap() = default;
  // 0 with roles as one comma-separated string, -1 when the directory could not be used, -2
  // when the user does not exist.
  virtual int authorizationLdap(const LdapConfiguration* config, const std::string& user, std::string& roles) = 0;
  virtual void setReply(std::vector<std::string> reply) {}
  virtual void setReturn(PymReturnT result) {}
  virtual bool verifyTlsMode(const TlsMode& mode) { return false; }
  virtual bool verifyServerPort(const unsigned short& port) { return false; }
  virtual bool verifyUseTls(const bool& useTls) { return false; }
};

}  // namespace QivAccessManagement

#endif
