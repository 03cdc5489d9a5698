#include "ReferralPolicy.h"

#include <Qiv/LoggingWrapper.h>

namespace Ldap {

ReferralPolicy::ReferralPolicy(const TlsModeConnection& mode, const std::string& bindDn, const std::string& password)
    : _mode(mode), _bindDn(bindDn), _password(password) {}

void ReferralPolicy::attach(LDAP* ld) { ldap_set_rebind_proc(ld, &ReferralPolicy::rebind, this); }

// libldap calls this with the referral's connection as the handle's default one, after any TLS
// it could set up for it: ldap_tls_inplace tells whether that connection is protected. A non-zero
// answer makes libldap drop the connection unused.
int ReferralPolicy::rebind(LDAP* ld, const char* url, ber_tag_t, ber_int_t, void* policy) {
  const ReferralPolicy* self = static_cast<const ReferralPolicy*>(policy);
  if (self->_mode != TLS_NONE && ldap_tls_inplace(ld) == 0) {
    QIV_LOG(4, "Referral to %s not followed: it would leave TLS", url);
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
