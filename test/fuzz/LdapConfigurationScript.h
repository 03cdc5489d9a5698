#ifndef QIV_FUZZ_LDAP_CONFIGURATION_SCRIPT_H
#define QIV_FUZZ_LDAP_CONFIGURATION_SCRIPT_H

#include "LdapConfiguration.h"

#include <string>

// Fills an LdapConfiguration from fuzz script records named after its fields ("bindDn",
// "filterType", "nodeCredential.nodeCertFileName", ...). Strings take the value as it is, any
// bytes; enumerations and numbers take any 32-bit value, cut to the field's width, so values
// outside the enumerations arrive as well.
class LdapConfigurationScript {
 public:
  // False when key names no field (config is then unchanged).
  static bool apply(QivAccessManagement::LdapConfiguration& config, const std::string& key, const std::string& value);
};

#endif
