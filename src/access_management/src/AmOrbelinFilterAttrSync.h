#ifndef QIV_ACCESS_MANAGEMENT_AM_ORBELIN_FILTER_ATTR_SYNC_H
#define QIV_ACCESS_MANAGEMENT_AM_ORBELIN_FILTER_ATTR_SYNC_H

#include "AmAttrSync.h"

// Interceptor of the OrbelinFilter class: copies "roleAliasesBaseDn" to the Ldap object's.
class AmOrbelinFilterAttrSync : public AmAttrSync {
 public:
  AmOrbelinFilterAttrSync();
};

#endif
