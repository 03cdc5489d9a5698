#ifndef TEST_DIRECTORY_LDAP_REQUEST_DECODER_H
#define TEST_DIRECTORY_LDAP_REQUEST_DECODER_H

#include "FakeDirectory.h"

#include <lber.h>

#include <cstddef>
#include <string>

namespace TestDirectory {

// Splits the bytes a client sends into LDAPMessages and decodes the requests a fake directory
// answers (RFC 4511), with liblber. Stateless.
class LdapRequestDecoder {
 public:
  struct Request {
    int messageId = 0;
    // The protocolOp's tag, such as LDAP_REQ_BIND or LDAP_REQ_SEARCH.
    ber_tag_t operation = 0;
    // BindRequest: the name and, for a simple bind, the password.
    std::string bindDn;
    std::string bindPassword;
    // ExtendedRequest: the requestName.
    std::string extendedOid;
    // SearchRequest; its controls are those of any request.
    FakeDirectory::SearchRequest search;
  };

  // The size of the LDAPMessage that starts at data[from], once all of it is there; 0 while it is
  // not. Throws std::runtime_error when the bytes there cannot start an LDAPMessage.
  static std::size_t messageLength(const std::string& data, std::size_t from);

  // Decodes one complete LDAPMessage; throws std::runtime_error when it is malformed. Operations
  // other than bind, search and extended keep only their message id and tag.
  static Request decode(const std::string& message);
};

}  // namespace TestDirectory

#endif
