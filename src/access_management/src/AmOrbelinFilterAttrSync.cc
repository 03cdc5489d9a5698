#include "AmOrbelinFilterAttrSync.h"

#include "LdapModel.h"

using namespace QivAccessManagement::LdapModel;

// The failure text says "roleAliasBaseDn" although "roleAliasesBaseDn" is written; operators
// and log readers know it by that text.
AmOrbelinFilterAttrSync::AmOrbelinFilterAttrSync()
    : AmAttrSync(ORBELIN_FILTER_CLASS, "Failed to register as interceptor for OrbelinFilter MOC.",
                 {{ROLE_ALIASES_BASE_DN, LDAP_DN, ROLE_ALIASES_BASE_DN,
                   "Could not set attribute value for attribute roleAliasBaseDn in Ldap MOC"}}) {}
