#ifndef TEST_DIRECTORY_LDAP_ANSWER_ENCODER_H
#define TEST_DIRECTORY_LDAP_ANSWER_ENCODER_H

#include "FakeDirectory.h"

#include <lber.h>

#include <string>
#include <vector>

namespace TestDirectory {

// Encodes the LDAPMessages a fake directory answers with (RFC 4511), with liblber. Each function
// returns one complete message; std::bad_alloc when liblber cannot encode it.
class LdapAnswerEncoder {
 public:
  // An LDAPResult under the response tag (LDAP_RES_BIND, LDAP_RES_SEARCH_RESULT, ...), with an
  // empty matched DN and, when there are any, the referral URIs.
  static std::string result(int messageId, ber_tag_t response, int resultCode,
                            const std::string& diagnosticMessage = std::string(),
                            const std::vector<std::string>& referralUris = std::vector<std::string>());
  // An ExtendedResponse; an empty responseName is left out.
  static std::string extendedResult(int messageId, int resultCode, const std::string& responseName);
  // A SearchResultEntry with the attributes of entry that requested names (without regard to
  // case; all when it is empty or holds "*"), without values when typesOnly.
  static std::string searchEntry(int messageId, const FakeDirectory::Entry& entry,
                                 const std::vector<std::string>& requested, bool typesOnly);
  // A SearchResultReference with one URI.
  static std::string searchReference(int messageId, const std::string& uri);
};

}  // namespace TestDirectory

#endif
