#include "FakeDirectory.h"

#include "DirectoryEntries.h"
#include "Eventually.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <ldap.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace TestDirectory {
namespace {

using ::testing::AnyOf;
using ::testing::ElementsAre;
using ::testing::Eq;
using ::testing::IsEmpty;
using Behaviour = FakeDirectory::Behaviour;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

const char* const BASE = "dc=example,dc=com";
const char* const READER_DN = "cn=reader,dc=example,dc=com";
const char* const START_TLS_OID = "1.3.6.1.4.1.1466.20037";
// Far beyond what any step here needs on a loaded machine, far below a hung test.
constexpr milliseconds GENEROUS{5000};
constexpr milliseconds SHORT_TIMEOUT{1000};

milliseconds since(Clock::time_point start) { return std::chrono::duration_cast<milliseconds>(Clock::now() - start); }

timeval timeOf(milliseconds duration) {
  timeval value{};
  value.tv_sec = static_cast<time_t>(duration.count() / 1000);
  value.tv_usec = static_cast<suseconds_t>((duration.count() % 1000) * 1000);
  return value;
}

// What a search brought back: the result code of the search (or of the failure), the entries, the
// continuation references and the referral of the SearchResultDone.
struct Found {
  int code = LDAP_OTHER;
  std::vector<FakeDirectory::Entry> entries;
  std::vector<std::string> references;
  std::vector<std::string> referrals;
  std::string diagnosticMessage;
};

struct Search {
  std::string base = BASE;
  int scope = LDAP_SCOPE_SUBTREE;
  std::string filter = "(objectClass=*)";
  std::vector<std::string> attributes;
  int sizeLimit = 0;
  milliseconds timeout = GENEROUS;
  std::vector<std::string> controls;
};

// A libldap session as a client of the directory would hold it: LDAPv3, referrals not chased.
class Client {
 public:
  explicit Client(const std::string& uri, milliseconds networkTimeout = GENEROUS) {
    if (ldap_initialize(&_ld, uri.c_str()) != LDAP_SUCCESS) throw std::runtime_error("ldap_initialize " + uri);
    const int version = LDAP_VERSION3;
    const timeval network = timeOf(networkTimeout);
    const timeval operation = timeOf(GENEROUS);
    ldap_set_option(_ld, LDAP_OPT_PROTOCOL_VERSION, &version);
    ldap_set_option(_ld, LDAP_OPT_REFERRALS, LDAP_OPT_OFF);
    ldap_set_option(_ld, LDAP_OPT_NETWORK_TIMEOUT, &network);
    ldap_set_option(_ld, LDAP_OPT_TIMEOUT, &operation);
  }
  ~Client() { ldap_unbind_ext_s(_ld, nullptr, nullptr); }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  LDAP* session() const { return _ld; }

  // TLS in a context of this session's own; caFile empty: the server's certificate is not checked.
  void useTls(const std::string& caFile) {
    const int requirement = caFile.empty() ? LDAP_OPT_X_TLS_NEVER : LDAP_OPT_X_TLS_DEMAND;
    const int clientContext = 0;
    ldap_set_option(_ld, LDAP_OPT_X_TLS_REQUIRE_CERT, &requirement);
    if (!caFile.empty()) ldap_set_option(_ld, LDAP_OPT_X_TLS_CACERTFILE, caFile.c_str());
    ldap_set_option(_ld, LDAP_OPT_X_TLS_NEWCTX, &clientContext);
  }

  int bind(const std::string& dn, const std::string& password) {
    berval credentials{static_cast<ber_len_t>(password.size()), const_cast<char*>(password.data())};
    return ldap_sasl_bind_s(_ld, dn.c_str(), LDAP_SASL_SIMPLE, &credentials, nullptr, nullptr, nullptr);
  }

  int startTls() { return ldap_start_tls_s(_ld, nullptr, nullptr); }

  Found search(const Search& search) {
    std::vector<char*> attributes;
    for (const std::string& attribute : search.attributes) attributes.push_back(const_cast<char*>(attribute.c_str()));
    attributes.push_back(nullptr);
    std::vector<LDAPControl> controls(search.controls.size());
    std::vector<LDAPControl*> controlList;
    for (std::size_t i = 0; i < search.controls.size(); ++i) {
      controls[i].ldctl_oid = const_cast<char*>(search.controls[i].c_str());
      controlList.push_back(&controls[i]);
    }
    controlList.push_back(nullptr);
    timeval timeout = timeOf(search.timeout);
    LDAPMessage* result = nullptr;
    Found found;
    found.code = ldap_search_ext_s(_ld, search.base.c_str(), search.scope, search.filter.c_str(),
                                   search.attributes.empty() ? nullptr : attributes.data(), 0, controlList.data(),
                                   nullptr, &timeout, search.sizeLimit, &result);
    // libldap asserts on a null chain, which a failed search leaves.
    for (LDAPMessage* message = result != nullptr ? ldap_first_message(_ld, result) : nullptr; message != nullptr;
         message = ldap_next_message(_ld, message)) {
      read(message, found);
    }
    ldap_msgfree(result);
    return found;
  }

  Found search(const std::string& filter) {
    Search request;
    request.filter = filter;
    return search(request);
  }

 private:
  void read(LDAPMessage* message, Found& found) {
    const int type = ldap_msgtype(message);
    if (type == LDAP_RES_SEARCH_ENTRY) {
      found.entries.push_back(entry(message));
    } else if (type == LDAP_RES_SEARCH_REFERENCE) {
      char** references = nullptr;
      if (ldap_parse_reference(_ld, message, &references, nullptr, 0) == LDAP_SUCCESS) {
        for (const std::string& uri : strings(references)) found.references.push_back(uri);
      }
      ber_memvfree(reinterpret_cast<void**>(references));
    } else if (type == LDAP_RES_SEARCH_RESULT) {
      int code = LDAP_OTHER;
      char* diagnostic = nullptr;
      char** referrals = nullptr;
      if (ldap_parse_result(_ld, message, &code, nullptr, &diagnostic, &referrals, nullptr, 0) == LDAP_SUCCESS) {
        found.code = code;
        found.referrals = strings(referrals);
        found.diagnosticMessage = diagnostic != nullptr ? diagnostic : "";
      }
      ldap_memfree(diagnostic);
      ber_memvfree(reinterpret_cast<void**>(referrals));
    }
  }

  FakeDirectory::Entry entry(LDAPMessage* message) {
    FakeDirectory::Entry entry;
    char* dn = ldap_get_dn(_ld, message);
    entry.dn = dn != nullptr ? dn : "(no DN)";
    ldap_memfree(dn);
    BerElement* ber = nullptr;
    for (char* name = ldap_first_attribute(_ld, message, &ber); name != nullptr;
         name = ldap_next_attribute(_ld, message, ber)) {
      std::vector<std::string> values;
      berval** found = ldap_get_values_len(_ld, message, name);
      for (berval** value = found; value != nullptr && *value != nullptr; ++value) {
        values.emplace_back((*value)->bv_val, (*value)->bv_len);
      }
      ldap_value_free_len(found);
      entry.attributes.emplace_back(name, std::move(values));
      ldap_memfree(name);
    }
    ber_free(ber, 0);
    return entry;
  }

  static std::vector<std::string> strings(char** list) {
    std::vector<std::string> result;
    for (; list != nullptr && *list != nullptr; ++list) result.emplace_back(*list);
    return result;
  }

  LDAP* _ld = nullptr;
};

FakeDirectory::Entry alice() {
  return {"uid=alice,ou=people,dc=example,dc=com",
          {{"objectClass", {"top", "posixAccount", "inetOrgPerson"}},
           {"uid", {"alice"}},
           {"cn", {"Alice Liddell", "Alice"}},
           {"uidNumber", {"1001"}},
           {"userCertificate;binary", {std::string("\x30\x00\x01\xff", 4)}}}};
}

FakeDirectory::Entry bob() {
  return {"uid=bob,ou=people,dc=example,dc=com", {{"uid", {"bob"}}, {"role", {"operator", "viewer"}}}};
}

// A script that answers every search with answer.
FakeDirectory::SearchScript always(const FakeDirectory::SearchAnswer& answer) {
  return [answer](const FakeDirectory::SearchRequest&) { return answer; };
}

FakeDirectory::SearchAnswer withEntries(std::vector<FakeDirectory::Entry> entries) {
  FakeDirectory::SearchAnswer answer;
  answer.entries = std::move(entries);
  return answer;
}

// A TCP connection to the directory without libldap, for bytes no LDAP client would send.
class RawConnection {
 public:
  explicit RawConnection(int port) : _descriptor(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    if (_descriptor < 0 || ::connect(_descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
      throw std::runtime_error("cannot connect to port " + std::to_string(port));
    }
    const timeval bound = timeOf(GENEROUS);
    ::setsockopt(_descriptor, SOL_SOCKET, SO_RCVTIMEO, &bound, sizeof bound);
  }
  ~RawConnection() { ::close(_descriptor); }
  RawConnection(const RawConnection&) = delete;
  RawConnection& operator=(const RawConnection&) = delete;

  bool send(const std::string& bytes) {
    return ::send(_descriptor, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
  }

  // What arrives until the directory closes the connection (or GENEROUS passes without a byte).
  std::string receiveAll() {
    std::string bytes;
    char buffer[4096];
    ssize_t received = 0;
    while ((received = ::recv(_descriptor, buffer, sizeof buffer, 0)) > 0) {
      bytes.append(buffer, static_cast<std::size_t>(received));
    }
    _error = received < 0 ? errno : 0;
    return bytes;
  }

  // errno of the receive that ended receiveAll; 0 when the directory closed the connection.
  int error() const { return _error; }

 private:
  int _descriptor;
  int _error = 0;
};

// An LDAPMessage as liblber encodes what format and arguments describe.
template <typename... Arguments>
std::string encoded(const char* format, Arguments... arguments) {
  BerElement* ber = ber_alloc_t(LBER_USE_DER);
  berval flat{0, nullptr};
  std::string bytes;
  if (ber != nullptr && ber_printf(ber, format, arguments...) != -1 && ber_flatten2(ber, &flat, 0) == 0) {
    bytes.assign(flat.bv_val, flat.bv_len);
  }
  ber_free(ber, 1);
  return bytes;
}

// A simple BindRequest as the reader, under messageId.
std::string bindRequest(int messageId) {
  return encoded("{it{isto}}", static_cast<ber_int_t>(messageId), LDAP_REQ_BIND, static_cast<ber_int_t>(LDAP_VERSION3),
                 const_cast<char*>(READER_DN), LDAP_AUTH_SIMPLE, const_cast<char*>("readerpw"),
                 static_cast<ber_len_t>(8));
}

std::string unbindRequest(int messageId) {
  return encoded("{itn}", static_cast<ber_int_t>(messageId), LDAP_REQ_UNBIND);
}

// The message id, the protocolOp's tag and the result code of an LDAPResult message; -1 each when
// it is none.
struct Result {
  int messageId = -1;
  long tag = -1;
  int code = -1;
};

Result decodedResult(const std::string& bytes) {
  Result result;
  // liblber reads through a null buffer when given no bytes.
  if (bytes.empty()) return result;
  berval message{static_cast<ber_len_t>(bytes.size()), const_cast<char*>(bytes.data())};
  BerElement* ber = ber_init(&message);
  ber_int_t id = 0;
  ber_tag_t tag = LBER_DEFAULT;
  ber_int_t code = 0;
  if (ber != nullptr && ber_scanf(ber, "{it{e", &id, &tag, &code) != LBER_ERROR) {
    result.messageId = id;
    result.tag = static_cast<long>(tag);
    result.code = code;
  }
  ber_free(ber, 1);
  return result;
}

// --- silence ---

TEST(FakeDirectoryTest, SilentAfterAcceptNeverReadsSoASearchTimesOut) {
  FakeDirectory directory(Behaviour::SILENT_AFTER_ACCEPT);
  Client client(directory.uri());
  Search request;
  request.timeout = SHORT_TIMEOUT;

  const Clock::time_point start = Clock::now();
  const Found found = client.search(request);
  const milliseconds elapsed = since(start);

  EXPECT_EQ(LDAP_TIMEOUT, found.code);
  EXPECT_GE(elapsed, SHORT_TIMEOUT - milliseconds(50));
  EXPECT_LT(elapsed, GENEROUS);
  EXPECT_EQ(1, directory.connectionsAccepted());
  EXPECT_EQ(0U, directory.bytesReceived());
  EXPECT_EQ(0, directory.requestsReceived());
}

TEST(FakeDirectoryTest, SilentAfterFirstReadRecordsTheSearchButNeverAnswers) {
  FakeDirectory directory(Behaviour::SILENT_AFTER_FIRST_READ);
  Client client(directory.uri());
  Search request;
  request.filter = "(uid=alice)";
  request.timeout = SHORT_TIMEOUT;

  const Clock::time_point start = Clock::now();
  const Found found = client.search(request);

  EXPECT_EQ(LDAP_TIMEOUT, found.code);
  EXPECT_LT(since(start), GENEROUS);
  ASSERT_EQ(1U, directory.searches().size());
  EXPECT_EQ("(uid=alice)", directory.searches()[0].filter);
}

// libldap 2.5 with GnuTLS never gives up on an LDAPS handshake that gets no answer, whatever its
// network time-out: here the end of the directory ends the client's wait.
TEST(FakeDirectoryTest, SilentAfterFirstReadSwallowsATlsClientHello) {
  auto directory = std::make_unique<FakeDirectory>(Behaviour::SILENT_AFTER_FIRST_READ);
  Client client("ldaps://" + directory->address(), SHORT_TIMEOUT);
  client.useTls("");
  std::atomic<bool> ended{false};
  int code = LDAP_SUCCESS;
  std::thread search([&] {
    code = client.search("(uid=alice)").code;
    ended = true;
  });

  const bool helloRead = eventually([&] { return directory->bytesReceived() > 0; });
  std::this_thread::sleep_for(SHORT_TIMEOUT);
  const bool endedWhileSilent = ended;
  directory.reset();
  search.join();

  EXPECT_TRUE(helloRead);
  EXPECT_FALSE(endedWhileSilent);
  EXPECT_NE(LDAP_SUCCESS, code);
}

// --- answers ---

TEST(FakeDirectoryTest, AnswersASimpleBindAndRecordsNameAndPassword) {
  FakeDirectory directory;
  Client client(directory.uri());

  EXPECT_EQ(LDAP_SUCCESS, client.bind(READER_DN, "readerpw"));

  EXPECT_THAT(directory.bindDns(), ElementsAre(READER_DN));
  EXPECT_THAT(directory.bindPasswords(), ElementsAre("readerpw"));
}

TEST(FakeDirectoryTest, AnswersBindsWithTheResultCodeSet) {
  FakeDirectory directory;
  directory.setBindResultCode(LDAP_INVALID_CREDENTIALS);
  Client client(directory.uri());

  EXPECT_EQ(LDAP_INVALID_CREDENTIALS, client.bind(READER_DN, "wrong"));
}

TEST(FakeDirectoryTest, ByDefaultFindsAnEmptyRootDseAndNothingElse) {
  FakeDirectory directory;
  Client client(directory.uri());
  Search rootDse;
  rootDse.base = "";
  rootDse.scope = LDAP_SCOPE_BASE;

  const Found root = client.search(rootDse);
  const Found other = client.search("(uid=alice)");

  EXPECT_EQ(LDAP_SUCCESS, root.code);
  ASSERT_EQ(1U, root.entries.size());
  EXPECT_EQ("", root.entries[0].dn);
  EXPECT_THAT(root.entries[0].attributes, IsEmpty());
  EXPECT_EQ(LDAP_SUCCESS, other.code);
  EXPECT_THAT(other.entries, IsEmpty());
}

TEST(FakeDirectoryTest, SendsScriptedEntriesWithAttributesAndValuesInOrder) {
  FakeDirectory directory;
  directory.setSearchScript(always(withEntries({alice(), bob()})));
  Client client(directory.uri());

  const Found found = client.search("(objectClass=posixAccount)");

  EXPECT_EQ(LDAP_SUCCESS, found.code);
  ASSERT_EQ(2U, found.entries.size());
  EXPECT_EQ(alice().dn, found.entries[0].dn);
  EXPECT_EQ(alice().attributes, found.entries[0].attributes);
  EXPECT_EQ(bob().dn, found.entries[1].dn);
  EXPECT_EQ(bob().attributes, found.entries[1].attributes);
}

// Each answer can only reach the search it belongs to when the message id is echoed.
TEST(FakeDirectoryTest, AnswersEachRequestOfAConnectionUnderItsMessageId) {
  FakeDirectory directory;
  directory.setSearchScript([](const FakeDirectory::SearchRequest& request) {
    return withEntries({{"cn=" + request.filter.substr(4, 1) + ",dc=example,dc=com", {}}});
  });
  Client client(directory.uri());

  ASSERT_EQ(LDAP_SUCCESS, client.bind(READER_DN, "readerpw"));
  for (const char* name : {"a", "b", "c"}) {
    const Found found = client.search(std::string("(cn=") + name + ")");
    EXPECT_EQ(LDAP_SUCCESS, found.code) << name;
    ASSERT_EQ(1U, found.entries.size()) << name;
    EXPECT_EQ(std::string("cn=") + name + ",dc=example,dc=com", found.entries[0].dn);
  }
  EXPECT_EQ(1, directory.connectionsAccepted());
  EXPECT_EQ(4, directory.requestsReceived());
}

TEST(FakeDirectoryTest, SendsOnlyTheRequestedAttributesWhateverTheCaseOfTheirNames) {
  FakeDirectory directory;
  directory.setSearchScript(always(withEntries({alice()})));
  Client client(directory.uri());
  Search request;
  request.attributes = {"CN", "uidnumber", "mail"};

  const Found found = client.search(request);

  EXPECT_EQ(LDAP_SUCCESS, found.code);
  ASSERT_EQ(1U, found.entries.size());
  EXPECT_THAT(found.entries[0].attributes,
              ElementsAre(std::make_pair(std::string("cn"), std::vector<std::string>{"Alice Liddell", "Alice"}),
                          std::make_pair(std::string("uidNumber"), std::vector<std::string>{"1001"})));
  ASSERT_EQ(1U, directory.searches().size());
  EXPECT_THAT(directory.searches()[0].attributes, ElementsAre("CN", "uidnumber", "mail"));
}

TEST(FakeDirectoryTest, SendsNoAttributeForTheNoAttributesSelector) {
  FakeDirectory directory;
  directory.setSearchScript(always(withEntries({alice()})));
  Client client(directory.uri());
  Search request;
  request.attributes = {LDAP_NO_ATTRS};

  const Found found = client.search(request);

  ASSERT_EQ(1U, found.entries.size());
  EXPECT_EQ(alice().dn, found.entries[0].dn);
  EXPECT_THAT(found.entries[0].attributes, IsEmpty());
}

TEST(FakeDirectoryTest, RecordsBaseScopeLimitsAndControlsOfASearch) {
  FakeDirectory directory;
  Client client(directory.uri());
  Search request;
  request.base = "ou=people,dc=example,dc=com";
  request.scope = LDAP_SCOPE_ONELEVEL;
  request.filter = "(uid=alice)";
  request.sizeLimit = 7;
  request.timeout = milliseconds(3000);
  request.controls = {LDAP_CONTROL_MANAGEDSAIT};

  ASSERT_EQ(LDAP_SUCCESS, client.search(request).code);

  ASSERT_EQ(1U, directory.searches().size());
  const FakeDirectory::SearchRequest recorded = directory.searches()[0];
  EXPECT_EQ("ou=people,dc=example,dc=com", recorded.base);
  EXPECT_EQ(LDAP_SCOPE_ONELEVEL, recorded.scope);
  EXPECT_EQ("(uid=alice)", recorded.filter);
  EXPECT_THAT(recorded.attributes, IsEmpty());
  EXPECT_EQ(7, recorded.sizeLimit);
  // libldap asks the server for the client's own time-out, in whole seconds.
  EXPECT_EQ(3, recorded.timeLimit);
  EXPECT_FALSE(recorded.typesOnly);
  EXPECT_THAT(recorded.controls, ElementsAre(LDAP_CONTROL_MANAGEDSAIT));
}

// libldap encodes the filter text; the directory must give the same text back.
class FakeDirectoryFilterTest : public ::testing::TestWithParam<const char*> {};

TEST_P(FakeDirectoryFilterTest, DecodesTheFilterToTheTextTheClientSearchedWith) {
  FakeDirectory directory;
  Client client(directory.uri());

  ASSERT_EQ(LDAP_SUCCESS, client.search(GetParam()).code);

  ASSERT_EQ(1U, directory.searches().size());
  EXPECT_EQ(GetParam(), directory.searches()[0].filter);
}

INSTANTIATE_TEST_SUITE_P(Filters, FakeDirectoryFilterTest,
                         ::testing::Values("(&(objectClass=posixAccount)(uid=alice))",
                                           "(|(cn=Al*)(cn=*li*ce)(sn=*ddell))", "(!(uid=bob))", "(uidNumber>=1000)",
                                           "(uidNumber<=2000)", "(cn~=alise)", "(objectClass=*)", "(cn=A*l*i*e)",
                                           "(uid=a\\2a\\28\\29\\5cb\\00c)", "(cn:dn:2.5.13.5:=Alice)",
                                           "(&(|(role=operator)(role=viewer))(!(uid=carol))(memberUid=*))"));

// --- huge answers ---

TEST(FakeDirectoryTest, SendsAnAttributeOfAHundredThousandValues) {
  FakeDirectory::Entry big{"cn=big,dc=example,dc=com", {{"memberUid", {}}}};
  for (int i = 0; i < 100000; ++i) big.attributes[0].second.push_back("user" + std::to_string(i));
  FakeDirectory directory;
  directory.setSearchScript(always(withEntries({big})));
  Client client(directory.uri());

  const Clock::time_point start = Clock::now();
  const Found found = client.search("(cn=big)");

  EXPECT_EQ(LDAP_SUCCESS, found.code);
  ASSERT_EQ(1U, found.entries.size());
  ASSERT_EQ(1U, found.entries[0].attributes.size());
  EXPECT_EQ(100000U, found.entries[0].attributes[0].second.size());
  EXPECT_TRUE(big.attributes == found.entries[0].attributes);
  EXPECT_LT(since(start), GENEROUS);
}

TEST(FakeDirectoryTest, SendsAValueOfOneMebibyte) {
  std::string value(1024 * 1024, '\0');
  for (std::size_t i = 0; i < value.size(); ++i) value[i] = static_cast<char>(i * 7 % 251);
  FakeDirectory directory;
  directory.setSearchScript(always(withEntries({{"cn=big,dc=example,dc=com", {{"jpegPhoto", {value}}}}})));
  Client client(directory.uri());

  const Found found = client.search("(cn=big)");

  EXPECT_EQ(LDAP_SUCCESS, found.code);
  ASSERT_EQ(1U, found.entries.size());
  ASSERT_EQ(1U, found.entries[0].attributes.size());
  ASSERT_EQ(1U, found.entries[0].attributes[0].second.size());
  EXPECT_TRUE(value == found.entries[0].attributes[0].second[0]);
}

TEST(FakeDirectoryTest, SendsTenThousandEntries) {
  std::vector<FakeDirectory::Entry> entries;
  for (int i = 0; i < 10000; ++i) {
    const std::string uid = "user" + std::to_string(i);
    entries.push_back({"uid=" + uid + ",ou=people,dc=example,dc=com", {{"uid", {uid}}}});
  }
  FakeDirectory directory;
  directory.setSearchScript(always(withEntries(entries)));
  Client client(directory.uri());

  const Found found = client.search("(uid=*)");

  EXPECT_EQ(LDAP_SUCCESS, found.code);
  ASSERT_EQ(10000U, found.entries.size());
  EXPECT_EQ("uid=user0,ou=people,dc=example,dc=com", found.entries.front().dn);
  EXPECT_EQ("uid=user9999,ou=people,dc=example,dc=com", found.entries.back().dn);
  EXPECT_THAT(found.entries[4711].attributes,
              ElementsAre(std::make_pair(std::string("uid"), std::vector<std::string>{"user4711"})));
}

// --- framing ---

TEST(FakeDirectoryTest, AnswersARequestThatArrivesOneByteAtATimeUnderItsMessageId) {
  FakeDirectory directory;
  RawConnection connection(directory.port());
  const std::string request = bindRequest(4711);
  ASSERT_FALSE(request.empty());

  bool sent = true;
  for (char byte : request) {
    sent = sent && connection.send(std::string(1, byte));
    std::this_thread::sleep_for(milliseconds(1));
  }
  ASSERT_TRUE(sent);
  ASSERT_TRUE(eventually([&] { return directory.requestsReceived() == 1; }));
  ASSERT_TRUE(connection.send(unbindRequest(4712)));
  const Result answer = decodedResult(connection.receiveAll());

  EXPECT_EQ(4711, answer.messageId);
  EXPECT_EQ(static_cast<long>(LDAP_RES_BIND), answer.tag);
  EXPECT_EQ(LDAP_SUCCESS, answer.code);
  EXPECT_EQ(0, connection.error());
  EXPECT_EQ(2, directory.requestsReceived());
  EXPECT_THAT(directory.bindDns(), ElementsAre(READER_DN));
  EXPECT_THAT(directory.bindPasswords(), ElementsAre("readerpw"));
}

TEST(FakeDirectoryTest, CutsTheMessageAfterHalfItsBytesAndThenClosesTheConnection) {
  FakeDirectory whole;
  FakeDirectory cutting(Behaviour::CLOSE_MID_ANSWER, 1);
  RawConnection toWhole(whole.port());
  RawConnection toCutting(cutting.port());

  ASSERT_TRUE(toWhole.send(bindRequest(1) + unbindRequest(2)));
  ASSERT_TRUE(toCutting.send(bindRequest(1)));
  const std::string answer = toWhole.receiveAll();
  const std::string cut = toCutting.receiveAll();

  ASSERT_EQ(static_cast<long>(LDAP_RES_BIND), decodedResult(answer).tag);
  EXPECT_EQ(answer.substr(0, answer.size() / 2), cut);
  EXPECT_EQ(0, toCutting.error());
}

TEST(FakeDirectoryTest, ResetsTheConnectionOnTheNthRequestInsteadOfAnsweringIt) {
  FakeDirectory directory(Behaviour::RESET_ON_REQUEST, 2);
  RawConnection connection(directory.port());

  ASSERT_TRUE(connection.send(bindRequest(1)));
  ASSERT_TRUE(eventually([&] { return directory.requestsReceived() == 1; }));
  ASSERT_TRUE(connection.send(bindRequest(2)));
  const std::string answers = connection.receiveAll();

  EXPECT_EQ(1, decodedResult(answers).messageId);
  EXPECT_EQ(ECONNRESET, connection.error());
  EXPECT_EQ(2, directory.requestsReceived());
}

TEST(FakeDirectoryTest, ClosesAConnectionThatSendsWhatIsNotLdap) {
  FakeDirectory directory;
  RawConnection connection(directory.port());

  ASSERT_TRUE(connection.send("GET / HTTP/1.0\r\n\r\n"));

  EXPECT_EQ("", connection.receiveAll());
  EXPECT_EQ(0, connection.error());
  EXPECT_EQ(0, directory.requestsReceived());
}

// --- references, referrals, result codes ---

TEST(FakeDirectoryTest, SendsContinuationReferencesBesideTheEntries) {
  FakeDirectory::SearchAnswer answer = withEntries({alice()});
  answer.continuationReferences = {"ldap://east.example.com/ou=east,dc=example,dc=com",
                                   "ldap://west.example.com/ou=west,dc=example,dc=com"};
  FakeDirectory directory;
  directory.setSearchScript(always(answer));
  Client client(directory.uri());

  const Found found = client.search("(uid=alice)");

  EXPECT_EQ(LDAP_SUCCESS, found.code);
  EXPECT_EQ(1U, found.entries.size());
  EXPECT_EQ(answer.continuationReferences, found.references);
}

TEST(FakeDirectoryTest, AnswersAReferralWithItsUris) {
  FakeDirectory::SearchAnswer answer;
  answer.resultCode = LDAP_REFERRAL;
  answer.referralUris = {"ldap://other.example.com/dc=example,dc=com", "ldaps://third.example.com/"};
  FakeDirectory directory;
  directory.setSearchScript(always(answer));
  Client client(directory.uri());

  const Found found = client.search("(uid=alice)");

  EXPECT_EQ(LDAP_REFERRAL, found.code);
  EXPECT_EQ(answer.referralUris, found.referrals);
}

TEST(FakeDirectoryTest, AnswersWhatTheScriptThrowsAsOther) {
  FakeDirectory directory;
  directory.setSearchScript([](const FakeDirectory::SearchRequest&) -> FakeDirectory::SearchAnswer {
    throw std::runtime_error("no such script");
  });
  Client client(directory.uri());

  const Found found = client.search("(uid=alice)");

  EXPECT_EQ(LDAP_OTHER, found.code);
  EXPECT_EQ("no such script", found.diagnosticMessage);
}

TEST(FakeDirectoryTest, RefusesStartTlsWithAProtocolErrorUnlessToldOtherwise) {
  FakeDirectory directory;
  Client first(directory.uri());

  EXPECT_EQ(LDAP_PROTOCOL_ERROR, first.startTls());
  directory.setExtendedResultCode(LDAP_UNWILLING_TO_PERFORM);
  Client second(directory.uri());
  EXPECT_EQ(LDAP_UNWILLING_TO_PERFORM, second.startTls());

  EXPECT_THAT(directory.extendedRequests(), ElementsAre(START_TLS_OID, START_TLS_OID));
}

TEST(FakeDirectoryTest, SilentAfterStartTlsGrantsItThenNeverAnswers) {
  FakeDirectory directory(Behaviour::SILENT_AFTER_START_TLS);
  directory.setExtendedResultCode(LDAP_SUCCESS);
  Client client(directory.uri());
  // The operation alone, without the handshake libldap would start after it.
  char* oid = nullptr;
  berval* data = nullptr;
  EXPECT_EQ(LDAP_SUCCESS, ldap_extended_operation_s(client.session(), START_TLS_OID, nullptr, nullptr, nullptr,
                                                    &oid, &data));
  ldap_memfree(oid);
  ber_bvfree(data);
  Search request;
  request.timeout = SHORT_TIMEOUT;
  EXPECT_EQ(LDAP_TIMEOUT, client.search(request).code);
  // The search arrived and was not answered (libldap may abandon it after its time-out).
  EXPECT_EQ(1u, directory.searches().size());
  EXPECT_THAT(directory.extendedRequests(), ElementsAre(START_TLS_OID));
}

TEST(FakeDirectoryTest, ListensOnTheLoopbackAddressAndPortItIsGiven) {
  FakeDirectory first;
  FakeDirectory second(Behaviour::ANSWER, 1, "127.0.0.2", first.port());
  EXPECT_EQ("127.0.0.2:" + std::to_string(first.port()), second.address());
  Client client(second.uri());
  EXPECT_EQ(LDAP_SUCCESS, client.bind("cn=someone", "pw"));
  EXPECT_THAT(second.bindDns(), ElementsAre("cn=someone"));
  EXPECT_TRUE(first.bindDns().empty());
}

// --- delays ---

TEST(FakeDirectoryTest, HoldsAnAnswerBackForItsDelay) {
  FakeDirectory::SearchAnswer answer = withEntries({alice()});
  answer.delayMs = 400;
  FakeDirectory directory;
  directory.setSearchScript(always(answer));
  Client client(directory.uri());

  const Clock::time_point start = Clock::now();
  const Found found = client.search("(uid=alice)");
  const milliseconds elapsed = since(start);

  EXPECT_EQ(LDAP_SUCCESS, found.code);
  EXPECT_EQ(1U, found.entries.size());
  EXPECT_GE(elapsed, milliseconds(400));
  EXPECT_LT(elapsed, GENEROUS);
}

TEST(FakeDirectoryTest, ADelayBeyondTheClientsTimeOutTimesTheSearchOut) {
  FakeDirectory::SearchAnswer answer;
  answer.delayMs = 4000;
  FakeDirectory directory;
  directory.setSearchScript(always(answer));
  Client client(directory.uri());
  Search request;
  request.timeout = milliseconds(300);

  const Clock::time_point start = Clock::now();
  const Found found = client.search(request);

  EXPECT_EQ(LDAP_TIMEOUT, found.code);
  EXPECT_LT(since(start), milliseconds(3000));
}

TEST(FakeDirectoryTest, ADelayedAnswerHoldsUpNoOtherConnection) {
  FakeDirectory directory;
  directory.setSearchScript([](const FakeDirectory::SearchRequest& request) {
    FakeDirectory::SearchAnswer answer;
    if (request.filter == "(uid=slow)") answer.delayMs = 2000;
    return answer;
  });
  Client slowClient(directory.uri());
  int slowCode = LDAP_OTHER;
  std::thread slow([&] { slowCode = slowClient.search("(uid=slow)").code; });
  const bool slowArrived = eventually([&] { return directory.searches().size() == 1; });
  Client fastClient(directory.uri());

  const Clock::time_point start = Clock::now();
  const Found fast = fastClient.search("(uid=fast)");
  const milliseconds elapsed = since(start);
  slow.join();

  EXPECT_TRUE(slowArrived);
  EXPECT_EQ(LDAP_SUCCESS, fast.code);
  EXPECT_LT(elapsed, milliseconds(1500));
  EXPECT_EQ(LDAP_SUCCESS, slowCode);
}

// --- broken connections ---

TEST(FakeDirectoryTest, CuttingTheFirstMessageFailsTheSearch) {
  FakeDirectory directory(Behaviour::CLOSE_MID_ANSWER, 1);
  directory.setSearchScript(always(withEntries({alice()})));
  Client client(directory.uri());

  const Clock::time_point start = Clock::now();
  const Found found = client.search("(uid=alice)");

  EXPECT_THAT(found.code, AnyOf(Eq(LDAP_SERVER_DOWN), Eq(LDAP_DECODING_ERROR)));
  EXPECT_THAT(found.entries, IsEmpty());
  EXPECT_LT(since(start), GENEROUS);
}

// Every message counts: the bind response is the first, the first search's entry and end the
// second and third, the second search's entry the fourth.
TEST(FakeDirectoryTest, CuttingTheThirdMessageFailsTheFirstSearchAfterTheBind) {
  FakeDirectory directory(Behaviour::CLOSE_MID_ANSWER, 3);
  directory.setSearchScript(always(withEntries({alice()})));
  Client client(directory.uri());

  EXPECT_EQ(LDAP_SUCCESS, client.bind(READER_DN, "readerpw"));
  EXPECT_THAT(client.search("(uid=alice)").code, AnyOf(Eq(LDAP_SERVER_DOWN), Eq(LDAP_DECODING_ERROR)));
}

TEST(FakeDirectoryTest, CuttingTheFourthMessageFailsTheSecondSearch) {
  FakeDirectory directory(Behaviour::CLOSE_MID_ANSWER, 4);
  directory.setSearchScript(always(withEntries({alice()})));
  Client client(directory.uri());

  EXPECT_EQ(LDAP_SUCCESS, client.bind(READER_DN, "readerpw"));
  const Found first = client.search("(uid=alice)");
  const Found second = client.search("(uid=alice)");

  EXPECT_EQ(LDAP_SUCCESS, first.code);
  EXPECT_EQ(1U, first.entries.size());
  EXPECT_THAT(second.code, AnyOf(Eq(LDAP_SERVER_DOWN), Eq(LDAP_DECODING_ERROR)));
  EXPECT_THAT(second.entries, IsEmpty());
}

TEST(FakeDirectoryTest, ResetOnTheFirstRequestFailsTheBind) {
  FakeDirectory directory(Behaviour::RESET_ON_REQUEST, 1);
  Client client(directory.uri());

  EXPECT_EQ(LDAP_SERVER_DOWN, client.bind(READER_DN, "readerpw"));
  EXPECT_THAT(directory.bindDns(), ElementsAre(READER_DN));
}

TEST(FakeDirectoryTest, ResetOnTheSecondRequestFailsTheSearchAfterTheBind) {
  FakeDirectory directory(Behaviour::RESET_ON_REQUEST, 2);
  directory.setSearchScript(always(withEntries({alice()})));
  Client client(directory.uri());

  EXPECT_EQ(LDAP_SUCCESS, client.bind(READER_DN, "readerpw"));
  const Found found = client.search("(uid=alice)");

  EXPECT_EQ(LDAP_SERVER_DOWN, found.code);
  EXPECT_THAT(found.entries, IsEmpty());
  EXPECT_EQ(1U, directory.searches().size());
}

TEST(FakeDirectoryTest, ABehaviourSetLaterHoldsForLaterConnectionsOnly) {
  FakeDirectory directory;
  Client before(directory.uri());
  ASSERT_EQ(LDAP_SUCCESS, before.bind(READER_DN, "readerpw"));

  directory.setBehaviour(Behaviour::SILENT_AFTER_ACCEPT);
  Client after(directory.uri());
  Search request;
  request.timeout = milliseconds(300);

  EXPECT_EQ(LDAP_TIMEOUT, after.search(request).code);
  EXPECT_EQ(LDAP_SUCCESS, before.search(request).code);
  EXPECT_EQ(2, directory.connectionsAccepted());
}

// --- the end ---

TEST(FakeDirectoryTest, EndsPromptlyWhateverItsClientsDo) {
  // ThreadSanitizer starts a thread of its own at the process's first thread creation: one made
  // and joined first keeps it out of the comparison.
  std::thread([] {}).join();
  const std::set<std::string> descriptors = directoryEntries("/proc/self/fd");
  const std::set<std::string> threads = directoryEntries("/proc/self/task");
  auto directory = std::make_unique<FakeDirectory>();
  // Far more than the socket buffers hold, for a client that never reads it.
  std::vector<FakeDirectory::Entry> entries(1000, {"cn=big,dc=example,dc=com", {{"cn", {std::string(16384, 'x')}}}});
  directory->setSearchScript([&entries](const FakeDirectory::SearchRequest& request) {
    FakeDirectory::SearchAnswer answer;
    if (request.filter == "(cn=big)") {
      answer.entries = entries;
    } else {
      answer.delayMs = 60000;
    }
    return answer;
  });
  {
    Client notReading(directory->uri());
    Client waiting(directory->uri());
    int id = 0;
    ASSERT_EQ(LDAP_SUCCESS, ldap_search_ext(notReading.session(), BASE, LDAP_SCOPE_SUBTREE, "(cn=big)", nullptr, 0,
                                            nullptr, nullptr, nullptr, 0, &id));
    ASSERT_EQ(LDAP_SUCCESS, ldap_search_ext(waiting.session(), BASE, LDAP_SCOPE_SUBTREE, "(cn=late)", nullptr, 0,
                                            nullptr, nullptr, nullptr, 0, &id));
    ASSERT_TRUE(eventually([&] { return directory->searches().size() == 2; }));
    directory->setBehaviour(Behaviour::SILENT_AFTER_ACCEPT);
    Client unanswered(directory->uri());
    ASSERT_EQ(LDAP_SUCCESS, ldap_search_ext(unanswered.session(), BASE, LDAP_SCOPE_SUBTREE, "(cn=none)", nullptr, 0,
                                            nullptr, nullptr, nullptr, 0, &id));
    ASSERT_TRUE(eventually([&] { return directory->connectionsAccepted() == 3; }));

    const Clock::time_point start = Clock::now();
    directory.reset();
    EXPECT_LT(since(start), milliseconds(1000));
  }

  EXPECT_EQ(descriptors, directoryEntries("/proc/self/fd"));
  EXPECT_EQ(threads, directoryEntries("/proc/self/task"));
}

}  // namespace
}  // namespace TestDirectory
