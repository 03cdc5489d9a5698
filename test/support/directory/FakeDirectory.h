#ifndef TEST_DIRECTORY_FAKE_DIRECTORY_H
#define TEST_DIRECTORY_FAKE_DIRECTORY_H

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace TestDirectory {

// An LDAPv3 endpoint on a free loopback port that misbehaves on purpose, for fault tests of an
// LDAP client: it stays silent, answers searches through a script, cuts an answer short or resets
// the connection. A thread of its own serves every connection; each connection keeps the
// behaviour that was set when it was accepted. The destructor closes every connection and returns
// within a fraction of a second, whatever the clients do (a search script that is running is
// waited for). Every member is thread-safe.
class FakeDirectory {
 public:
  enum class Behaviour {
    // Accepts, then neither reads nor writes; the connection stays open until destruction.
    SILENT_AFTER_ACCEPT,
    // Reads whatever comes (and records the LDAP requests in it) but never answers.
    SILENT_AFTER_FIRST_READ,
    // Answers binds, searches (through the script) and extended operations; refuses updates and
    // compares with 53 (unwillingToPerform); ignores abandons; closes after an unbind once the
    // answers before it are out, and at once on what is not an LDAP request.
    ANSWER,
    // As ANSWER, but the nth message written on the connection (from 1, every message counts)
    // goes out with only the first half of its bytes, and the connection is closed.
    CLOSE_MID_ANSWER,
    // As ANSWER until the nth request of the connection (from 1), answered by a reset (RST).
    RESET_ON_REQUEST,
    // As ANSWER until it has granted a StartTLS request; then reads what comes (the TLS
    // ClientHello) and never answers: a handshake that stalls.
    SILENT_AFTER_START_TLS,
  };

  struct SearchRequest {
    std::string base;
    // LDAP_SCOPE_BASE (0), LDAP_SCOPE_ONELEVEL (1) or LDAP_SCOPE_SUBTREE (2).
    int scope = 0;
    // In RFC 4515 text, e.g. "(&(objectClass=posixAccount)(uid=alice))"; values escape only
    // '*', '(', ')', '\' and NUL (as \2a, \28, \29, \5c, \00).
    std::string filter;
    // As the client named them, in order; empty: all.
    std::vector<std::string> attributes;
    int sizeLimit = 0;
    int timeLimit = 0;
    bool typesOnly = false;
    // The OIDs of the request's controls, in order.
    std::vector<std::string> controls;
  };

  struct Entry {
    std::string dn;
    // Attribute descriptions with their values, sent in this order.
    std::vector<std::pair<std::string, std::vector<std::string>>> attributes;
  };

  struct SearchAnswer {
    // Each a SearchResultEntry carrying the requested attributes only (names compared without
    // regard to case; "*" or no name asks for all); no values when the request asked types only.
    std::vector<Entry> entries;
    // Each a SearchResultReference with that one URI, after the entries.
    std::vector<std::string> continuationReferences;
    // The SearchResultDone's result code and referral field (e.g. 10, referral, with URIs).
    int resultCode = 0;
    std::vector<std::string> referralUris;
    // How long the whole answer is held back; later answers on the same connection wait behind
    // it, other connections do not.
    unsigned delayMs = 0;
  };

  // Called on the serving thread, which waits for it. An exception it throws is answered with
  // result code 80 (other) and the exception's text as the diagnostic message.
  using SearchScript = std::function<SearchAnswer(const SearchRequest&)>;

  // Throws std::runtime_error when it cannot listen. nth as for setBehaviour.
  explicit FakeDirectory(Behaviour behaviour = Behaviour::ANSWER, int nth = 1);
  // On host (a loopback IPv4 address) and port, e.g. another server's port on 127.0.0.2.
  FakeDirectory(Behaviour behaviour, int nth, const std::string& host, int port);
  ~FakeDirectory();
  FakeDirectory(const FakeDirectory&) = delete;
  FakeDirectory& operator=(const FakeDirectory&) = delete;

  // For connections accepted from now on: one whose connect has returned may still wait to be
  // accepted (connectionsAccepted tells). nth is the message that CLOSE_MID_ANSWER cuts or the
  // request that RESET_ON_REQUEST answers by a reset; the other behaviours ignore it.
  void setBehaviour(Behaviour behaviour, int nth = 1);
  // For searches received from now on; an empty script restores defaultAnswer.
  void setSearchScript(SearchScript script);
  // The result code of every BindResponse; 0 (success) unless set.
  void setBindResultCode(int resultCode);
  // The result code of every ExtendedResponse (StartTLS among them); 2 (protocolError) unless set.
  // On 0 the response names the requested OID.
  void setExtendedResultCode(int resultCode);

  // The script in place unless another is set: the root DSE read (base "", scope base) finds one
  // entry with the empty DN and no attribute; every other search finds nothing, with success.
  static SearchAnswer defaultAnswer(const SearchRequest& request);

  const std::string& host() const;
  int port() const;
  // "<host>:<port>".
  std::string address() const;
  // "ldap://<host>:<port>".
  std::string uri() const;

  int connectionsAccepted() const;
  // Complete LDAP messages received, over all connections and behaviours.
  int requestsReceived() const;
  // Bytes received, LDAP or not (such as a TLS ClientHello).
  std::uint64_t bytesReceived() const;
  // Of every BindRequest, in the order received; passwords of simple binds, empty otherwise.
  std::vector<std::string> bindDns() const;
  std::vector<std::string> bindPasswords() const;
  // The request names (OIDs) of every ExtendedRequest, in the order received.
  std::vector<std::string> extendedRequests() const;
  std::vector<SearchRequest> searches() const;

 private:
  class Impl;
  std::unique_ptr<Impl> _impl;
};

}  // namespace TestDirectory

#endif
