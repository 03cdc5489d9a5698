#include "ConfigurationPrinter.h"

#include "CommandWords.h"

#include <Framework/OperatorTransaction.h>

#include <string>
#include <vector>

namespace Amhost {

namespace {

struct LdapObject {
  const char* dn;
  std::vector<const char*> attributes;
};

const char PASSWORD_ATTRIBUTE[] = "bindPassword";

const std::vector<LdapObject>& ldapObjects() {
  static const std::vector<LdapObject> objects = {
      {"ManagedElement=1,SystemFunctions=1,SecM=1,UserManagement=1,LdapAuthenticationMethod=1",
       {"administrativeState"}},
      {"ManagedElement=1,SystemFunctions=1,SecM=1,UserManagement=1,LdapAuthenticationMethod=1,Ldap=1",
       {"ldapIpAddress", "fallbackLdapIpAddress", "serverPort", "bindDn", PASSWORD_ATTRIBUTE, "baseDn", "useTls",
        "useTlsFallback", "tlsMode", "tlsCaCertificate", "tlsClientCertificate", "tlsClientKey", "nodeCredential",
        "trustCategory", "useReferrals", "profileFilter", "filterType", "nodeType", "roleAliasesBaseDn"}},
      {"ManagedElement=1,SystemFunctions=1,SecM=1,UserManagement=1,LdapAuthenticationMethod=1,Ldap=1,Filter=1",
       {"filter", "type"}},
      {"ManagedElement=1,SystemFunctions=1,SecM=1,UserManagement=1,LdapAuthenticationMethod=1,Ldap=1,OrbelinFilter=1",
       {"targetBasedAccessControl", "version", "roleAliasesBaseDn"}}};
  return objects;
}

}  // namespace

ConfigurationPrinter::ConfigurationPrinter(Framework::ManagementFramework& framework) : _framework(framework) {}

bool ConfigurationPrinter::print(std::ostream& out, std::ostream& err) const {
  // A transaction of its own, never committed: reads see what is committed, not an open edit.
  Framework::OperatorTransaction reader(_framework);
  bool complete = true;
  for (const LdapObject& object : ldapObjects()) {
    if (!_framework.model().exists(object.dn)) continue;
    out << object.dn << "\n";
    for (const std::string attribute : object.attributes) {
      if (!_framework.model().hasAttribute(object.dn, attribute)) continue;
      std::vector<std::string> values;
      try {
        values = reader.getText(object.dn, attribute);
      } catch (const Framework::OperatorError& error) {
        err << "error: " << error.what() << "\n";
        complete = false;
        continue;
      }
      if (values.empty()) {
        out << "  " << attribute << " (unset)\n";
        continue;
      }
      out << "  " << attribute << " =";
      if (attribute == PASSWORD_ATTRIBUTE) {
        out << " ****";
      } else {
        for (const std::string& value : values) out << " " << CommandWords::quote(value);
      }
      out << "\n";
    }
  }
  return complete;
}

}  // namespace Amhost
