#ifndef QIV_ACCESS_MANAGEMENT_AM_USER_MANAGEMENT_ATTR_SYNC_H
#define QIV_ACCESS_MANAGEMENT_AM_USER_MANAGEMENT_ATTR_SYNC_H

#include "AmAttrSync.h"

// Interceptor of the UserManagement class: copies "targetType" to the Ldap object's "nodeType".
class AmUserManagementAttrSync : public AmAttrSync {
 public:
  AmUserManagementAttrSync();
};

#endif
