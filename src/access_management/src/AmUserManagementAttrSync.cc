#include "AmUserManagementAttrSync.h"

#include "LdapModel.h"

using namespace QivAccessManagement::LdapModel;

AmUserManagementAttrSync::AmUserManagementAttrSync()
    : AmAttrSync(
          USER_MANAGEMENT_CLASS, "Failed to register as interceptor for UserManagement MOC.",
          {{TARGET_TYPE, LDAP_DN, NODE_TYPE, "Could not set attribute value for attribute nodeType in Ldap MOC"}}) {}
