#include "DirectoryModel.h"

#include <string>

namespace Bench {

namespace {

const char LDAP_AUTHENTICATION_METHOD_DN[] =
    "ManagedElement=1,SystemFunctions=1,SecM=1,UserManagement=1,LdapAuthenticationMethod=1";
const char LDAP_DN[] = "ManagedElement=1,SystemFunctions=1,SecM=1,UserManagement=1,LdapAuthenticationMethod=1,Ldap=1";

}  // namespace

void DirectoryModel::configure(Framework::ModelStore& model, const TestDirectory::SlapdInstance& directory,
                               bool useTls, const char* tlsMode) {
  const bool ldaps = useTls && std::string(tlsMode) == "LDAPS";
  const int port = ldaps ? directory.ldapsPort() : directory.plainPort();
  model.setStringValues(LDAP_AUTHENTICATION_METHOD_DN, "administrativeState", {"UNLOCKED"});
  model.setStringValues(LDAP_DN, "ldapIpAddress", {TestDirectory::SlapdInstance::host()});
  model.setStringValues(LDAP_DN, "serverPort", {std::to_string(port)});
  model.setStringValues(LDAP_DN, "baseDn", {TestDirectory::SlapdInstance::baseDn()});
  model.setStringValues(LDAP_DN, "profileFilter", {"ORBELIN"});
  model.setStringValues(LDAP_DN, "filterType", {"ORBELIN"});
  model.setStringValues(LDAP_DN, "useTls", {useTls ? "true" : "false"});
  model.setStringValues(LDAP_DN, "tlsMode", {tlsMode});
  model.setStringValues(LDAP_DN, "tlsCaCertificate", {directory.caFile()});
  for (const char* attribute : {"bindDn", "nodeCredential", "trustCategory"})
    model.setStringValues(LDAP_DN, attribute, {});
}

}  // namespace Bench
