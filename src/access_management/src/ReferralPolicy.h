#ifndef QIV_ACCESS_MANAGEMENT_REFERRAL_POLICY_H
#define QIV_ACCESS_MANAGEMENT_REFERRAL_POLICY_H

#include "ILdapTlsWrapper.h"

#include <ldap.h>

#include <string>

namespace Ldap {

// Which referrals a session follows, and as whom. libldap chases a referral over a connection of
// its own: a session under TLS follows only a referral whose connection is under TLS too
// (ldaps://, or the StartTLS extension, with the handle's CA, certificate requirement and client
// certificate), and every referral is bound with the session's own DN and password rather than
// anonymously. A referral URL that cannot keep TLS is refused as its connection is made, before
// anything is sent; one whose StartTLS did not take is refused before the bind. Either is logged
// at level 4 and not followed. Reads the wrapper's mode and credentials, which must outlive it.
class ReferralPolicy {
 public:
  ReferralPolicy(const TlsModeConnection& mode, const std::string& bindDn, const std::string& password);
  ReferralPolicy(const ReferralPolicy&) = delete;
  ReferralPolicy& operator=(const ReferralPolicy&) = delete;

  // Makes the policy the handle's rebind procedure; it must outlive the handle.
  void attach(LDAP* ld);

 private:
  static int connectionAdded(LDAP* ld, Sockbuf* sb, LDAPURLDesc* srv, sockaddr* addr, ldap_conncb* callbacks);
  static void connectionRemoved(LDAP* ld, Sockbuf* sb, ldap_conncb* callbacks);
  static int rebind(LDAP* ld, const char* url, ber_tag_t request, ber_int_t msgid, void* policy);
  static void refuse(const char* url);

  const TlsModeConnection& _mode;
  const std::string& _bindDn;
  const std::string& _password;
  ldap_conncb _callbacks;
  // The handle's own connection goes through it; any other connection is a referral's.
  Sockbuf* _sessionSockbuf;
};

}  // namespace Ldap

#endif
