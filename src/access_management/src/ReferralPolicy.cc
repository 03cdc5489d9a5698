#include "ReferralPolicy.h"

#include <Qiv/LoggingWrapper.h>

#include <strings.h>

#include <cstring>

namespace Ldap {

namespace {

// libldap sets up TLS on a referral's connection for ldaps:// and for the StartTLS extension.
bool keepsTls(const LDAPURLDesc* srv) {
  if (srv->lud_scheme != nullptr && std::strcmp(srv->lud_scheme, "ldaps") == 0) return true;
  for (char** extension = srv->lud_exts; extension != nullptr && *extension != nullptr; ++extension) {
    const char* name = **extension == '!' ? *extension + 1 : *extension;
    if (strcasecmp(name, "StartTLS") == 0 || strcasecmp(name, "X-StartTLS") == 0 ||
        std::strcmp(name, LDAP_EXOP_START_TLS) == 0) {
      return true;
    }
  }
  return false;
}

}  // namespace

ReferralPolicy::ReferralPolicy(const TlsModeConnection& mode, const std::string& bindDn, const std::string& password)
    : _mode(mode), _bindDn(bindDn), _password(password), _sessionSockbuf(nullptr) {
  _callbacks.lc_add = &ReferralPolicy::connectionAdded;
  _callbacks.lc_del = &ReferralPolicy::connectionRemoved;
  _callbacks.lc_arg = this;
}

void ReferralPolicy::attach(LDAP* ld) {
  ldap_get_option(ld, LDAP_OPT_SOCKBUF, &_sessionSockbuf);
  ldap_set_option(ld, LDAP_OPT_CONNECT_CB, &_callbacks);
  ldap_set_rebind_proc(ld, &ReferralPolicy::rebind, this);
}

// Refused here, the referral fails as an unreachable one does; refused later, at the bind, libldap
// would wait for it until the session's deadline.
int ReferralPolicy::connectionAdded(LDAP*, Sockbuf* sb, LDAPURLDesc* srv, sockaddr*, ldap_conncb* callbacks) {
  const ReferralPolicy* self = static_cast<const ReferralPolicy*>(callbacks->lc_arg);
  if (sb == self->_sessionSockbuf || self->_mode == TLS_NONE || keepsTls(srv)) return 0;
  char* url = ldap_url_desc2str(srv);
  refuse(url != nullptr ? url : "");
  ldap_memfree(url);
  return -1;
}

void ReferralPolicy::connectionRemoved(LDAP*, Sockbuf*, ldap_conncb*) {}

void ReferralPolicy::refuse(const char* url) { QIV_LOG(4, "Referral to %s not followed: it would leave TLS", url); }

// libldap calls this with the referral's connection as the handle's default one, after any TLS
// it could set up for it: ldap_tls_inplace tells whether that connection is protected. A non-zero
// answer makes libldap drop the connection unused.
int ReferralPolicy::rebind(LDAP* ld, const char* url, ber_tag_t, ber_int_t, void* policy) {
  const ReferralPolicy* self = static_cast<const ReferralPolicy*>(policy);
  if (self->_mode != TLS_NONE && ldap_tls_inplace(ld) == 0) {
    refuse(url);
    return LDAP_CONFIDENTIALITY_REQUIRED;
  }
  berval credentials;
  credentials.bv_len = self->_password.size();
  credentials.bv_val = const_cast<char*>(self->_password.data());
  const int rc =
      ldap_sasl_bind_s(ld, self->_bindDn.c_str(), LDAP_SASL_SIMPLE, &credentials, nullptr, nullptr, nullptr);
  if (rc != LDAP_SUCCESS) {
    QIV_LOG(4, "Referral to %s not followed: bind as '%s' failed: %s", url, self->_bindDn.c_str(),
            ldap_err2string(rc));
  }
  return rc;
}

}  // namespace Ldap
