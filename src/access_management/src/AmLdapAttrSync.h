#ifndef QIV_ACCESS_MANAGEMENT_AM_LDAP_ATTR_SYNC_H
#define QIV_ACCESS_MANAGEMENT_AM_LDAP_ATTR_SYNC_H

#include "AmAttrSync.h"

// Interceptor of the Ldap class: keeps "filterType" and "profileFilter" in step (1, 2, 3 against
// 0, 1, 2), copies "nodeType" to UserManagement's "targetType" and "roleAliasesBaseDn" to the
// OrbelinFilter's, and refuses a request that sets the filter pair to disagreeing values.
class AmLdapAttrSync : public AmAttrSync {
 public:
  AmLdapAttrSync();

  // True when the null-terminated list sets both "filterType" and "profileFilter" and they
  // disagree: both have enumeration values that do not map onto each other, or one has a value
  // and the other none (the two would no longer read back alike). A value of another type is
  // left to the router and counts as no conflict.
  bool checkForConflicts(PymMoNamedAttributeValueContainer_3** attributes) const;

 protected:
  PymReturnT writePartner(unsigned long txHandle, const char* dn, const char* attributeName,
                          const QivMoAttributeValueContainer_3* value, bool singleWrite) override;
  // Refuses a conflicting list (checkForConflicts) with -1, in the log and to the operator.
  PymReturnT checkRequest(PymMoNamedAttributeValueContainer_3** attributes) override;
};

#endif
