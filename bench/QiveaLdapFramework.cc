#include "QiveaLdapFramework.h"

#include <cstdio>
#include <exception>
#include <string>

namespace Bench {

namespace {

const char LDAP_AUTHENTICATION_METHOD_DN[] =
    "ManagedElement=1,SystemFunctions=1,SecM=1,UserManagement=1,LdapAuthenticationMethod=1";
const char LDAP_DN[] = "ManagedElement=1,SystemFunctions=1,SecM=1,UserManagement=1,LdapAuthenticationMethod=1,Ldap=1";

Framework::ManagementFramework::Options frameworkOptions() {
  Framework::ManagementFramework::Options options;
  options.modelFile = std::string(QIV_FIXTURES_DIR) + "/models/ldap20.xml";
  options.logLevel = 4;
  options.echoLevel = -1;
  return options;
}

}  // namespace

const char QiveaLdapFramework::COMPONENT_CONFIG[] =
    "<QivAccessManagementComponent><ldapInitConfigTimeout>10</ldapInitConfigTimeout></QivAccessManagementComponent>";

int QiveaLdapFramework::run(const char* program, const std::function<int(QiveaLdapFramework&)>& body) {
  try {
    QiveaLdapFramework framework;
    try {
      return body(framework);
    } catch (const std::exception& e) {
      std::fprintf(stderr, "%s: %s\n", program, e.what());
      framework.printLog();
      return 1;
    }
  } catch (const std::exception& e) {
    std::fprintf(stderr, "%s: %s\n", program, e.what());
    return 1;
  }
}

QiveaLdapFramework::QiveaLdapFramework() : _framework(frameworkOptions()) {
  _framework.model().setStringValues(LDAP_AUTHENTICATION_METHOD_DN, "administrativeState", {"UNLOCKED"});
  _framework.model().setStringValues(LDAP_DN, "filterType", {"POSIX_GROUPS"});
  _framework.model().setStringValues(LDAP_DN, "profileFilter", {"POSIX_GROUPS"});
}

Framework::ManagementFramework& QiveaLdapFramework::framework() { return _framework; }

void QiveaLdapFramework::printLog() {
  for (const Framework::LogRecord& record : _framework.log().records())
    std::fprintf(stderr, "  log %d %s: %s\n", record.level, record.method.c_str(), record.text.c_str());
}

}  // namespace Bench
