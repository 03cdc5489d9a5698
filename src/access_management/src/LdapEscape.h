#ifndef QIV_ACCESS_MANAGEMENT_LDAP_ESCAPE_H
#define QIV_ACCESS_MANAGEMENT_LDAP_ESCAPE_H

#include <string>

namespace QivAccessManagement {

// Turns untrusted text (a user name, a role read from the directory) into a value that stands
// for itself inside an LDAP search filter or a DN, so that no name can widen a search or move
// it to another entry. Stateless.
class LdapEscape {
 public:
  // A filter assertion value (RFC 4515): "*", "(", ")", "\" and NUL become "\2a", "\28",
  // "\29", "\5c" and "\00"; every other byte is kept.
  static std::string filterValue(const std::string& value);

  // A DN attribute value (RFC 4514): ",", "+", '"', "\", "<", ">", ";", a leading "#" or blank
  // and a trailing blank get a "\" in front; NUL becomes "\00"; every other byte is kept.
  static std::string dnValue(const std::string& value);
};

}  // namespace QivAccessManagement

#endif
