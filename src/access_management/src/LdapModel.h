#ifndef QIV_ACCESS_MANAGEMENT_LDAP_MODEL_H
#define QIV_ACCESS_MANAGEMENT_LDAP_MODEL_H

// Names of the information model that the component addresses, and its own fixed names.
namespace QivAccessManagement {
namespace LdapModel {

inline constexpr char COMPONENT_NAME[] = "QivAccessManagementComponent";

// Classes, comma form (instance look-up).
inline constexpr char USER_MANAGEMENT_CLASS[] = "ManagedElement,SystemFunctions,SecM,UserManagement";
inline constexpr char LDAP_AUTHENTICATION_METHOD_CLASS[] =
    "ManagedElement,SystemFunctions,SecM,UserManagement,LdapAuthenticationMethod";
inline constexpr char LDAP_CLASS[] = "ManagedElement,SystemFunctions,SecM,UserManagement,LdapAuthenticationMethod,Ldap";
inline constexpr char FILTER_CLASS[] =
    "ManagedElement,SystemFunctions,SecM,UserManagement,LdapAuthenticationMethod,Ldap,Filter";
inline constexpr char ORBELIN_FILTER_CLASS[] =
    "ManagedElement,SystemFunctions,SecM,UserManagement,LdapAuthenticationMethod,Ldap,OrbelinFilter";
inline constexpr char TLS_CLASS[] = "ManagedElement,SystemFunctions,SecM,Tls";

// Classes, slash form (object-implementer registration, event filters).
inline constexpr char LDAP_AUTHENTICATION_METHOD_CLASS_PATH[] =
    "/ManagedElement/SystemFunctions/SecM/UserManagement/LdapAuthenticationMethod";
inline constexpr char LDAP_CLASS_PATH[] = "/ManagedElement/SystemFunctions/SecM/UserManagement/LdapAuthenticationMethod/Ldap";
inline constexpr char FILTER_CLASS_PATH[] =
    "/ManagedElement/SystemFunctions/SecM/UserManagement/LdapAuthenticationMethod/Ldap/Filter";
inline constexpr char ORBELIN_FILTER_CLASS_PATH[] =
    "/ManagedElement/SystemFunctions/SecM/UserManagement/LdapAuthenticationMethod/Ldap/OrbelinFilter";

// Instances with fixed DNs.
inline constexpr char USER_MANAGEMENT_DN[] = "ManagedElement=1,SystemFunctions=1,SecM=1,UserManagement=1";
inline constexpr char LDAP_DN[] = "ManagedElement=1,SystemFunctions=1,SecM=1,UserManagement=1,LdapAuthenticationMethod=1,Ldap=1";
inline constexpr char ORBELIN_FILTER_DN[] =
    "ManagedElement=1,SystemFunctions=1,SecM=1,UserManagement=1,LdapAuthenticationMethod=1,Ldap=1,OrbelinFilter=1";

// Child DNs are the parent's DN + "," + RDN name + INSTANCE_SUFFIX.
inline constexpr char LDAP_RDN[] = "Ldap";
inline constexpr char FILTER_RDN[] = "Filter";
inline constexpr char ORBELIN_FILTER_RDN[] = "OrbelinFilter";
inline constexpr char INSTANCE_SUFFIX[] = "=1";

// Attributes.
inline constexpr char ADMINISTRATIVE_STATE[] = "administrativeState";
inline constexpr char LDAP_IP_ADDRESS[] = "ldapIpAddress";
inline constexpr char FALLBACK_LDAP_IP_ADDRESS[] = "fallbackLdapIpAddress";
inline constexpr char SERVER_PORT[] = "serverPort";
inline constexpr char BIND_DN[] = "bindDn";
inline constexpr char BIND_PASSWORD[] = "bindPassword";
inline constexpr char PASSWORD_MEMBER[] = "password";
inline constexpr char BASE_DN[] = "baseDn";
inline constexpr char USE_TLS[] = "useTls";
inline constexpr char USE_TLS_FALLBACK[] = "useTlsFallback";
inline constexpr char TLS_MODE[] = "tlsMode";
inline constexpr char TLS_CA_CERTIFICATE[] = "tlsCaCertificate";
inline constexpr char TLS_CLIENT_CERTIFICATE[] = "tlsClientCertificate";
inline constexpr char TLS_CLIENT_KEY[] = "tlsClientKey";
inline constexpr char NODE_CREDENTIAL[] = "nodeCredential";
inline constexpr char TRUST_CATEGORY[] = "trustCategory";
inline constexpr char USE_REFERRALS[] = "useReferrals";
inline constexpr char PROFILE_FILTER[] = "profileFilter";
inline constexpr char FILTER_TYPE[] = "filterType";
inline constexpr char NODE_TYPE[] = "nodeType";
inline constexpr char ROLE_ALIASES_BASE_DN[] = "roleAliasesBaseDn";
inline constexpr char FILTER[] = "filter";
inline constexpr char TYPE[] = "type";
inline constexpr char TARGET_BASED_ACCESS_CONTROL[] = "targetBasedAccessControl";
inline constexpr char VERSION[] = "version";
inline constexpr char TARGET_TYPE[] = "targetType";
inline constexpr char CIPHER_FILTER[] = "cipherFilter";

// Keys of the component's own configuration file.
inline constexpr char LDAP_SERVER_PORT_KEY[] = "ldapServerPort";
inline constexpr char LDAP_TLS_MODE_KEY[] = "ldapTlsMode";
inline constexpr char SERVICE_MODULE_KEY[] = "serviceModule";
inline constexpr char LDAP_INIT_CONFIG_TIMEOUT_KEY[] = "ldapInitConfigTimeout";

inline constexpr char PORT_PATTERN[] = "(^[0-9]+$|SERVER_PORT_NOT_SET + $)";
inline constexpr char DEFAULT_SERVICE_MODULE[] = "/opt/qiv/lib/modules/libqiv_ldap_sm.so";
inline constexpr char CIPHER_STRENGTH_SUFFIX[] = ":@STRENGTH";
inline constexpr char DEFAULT_CIPHER_FILTER[] = "ALL:!aNULL:!eNULL:@STRENGTH";
inline constexpr char TLS_SUBSCRIPTION_PATTERN[] = "^ManagedElement=.*,SystemFunctions=.*,SecM=.*,Tls=.*$";

}  // namespace LdapModel
}  // namespace QivAccessManagement

#endif
