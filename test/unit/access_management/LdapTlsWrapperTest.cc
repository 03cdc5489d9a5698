#include "LdapTlsWrapper.h"

#include <arpa/inet.h>
#include <dlfcn.h>
#include <ldap.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "FrameworkTestBase.h"
#include "LibldapDefaults.h"
#include "SlapdInstance.h"

using Ldap::LdapTlsWrapper;
using TestDirectory::SlapdInstance;

namespace {

typedef std::vector<std::string> Strings;
typedef std::list<std::string> Lines;

const int kTrace = 8;

// What this program's ldap_set_option below saw: the handle (null: libldap's defaults), the
// option and, for the options that take an int, its value.
struct SetOptionCall {
  LDAP* ld;
  int option;
  int intValue;
};

// Failures that libldap cannot be brought to produce on demand, injected by the definitions of
// ldap_set_option and ldap_unbind_ext_s below while a test asks for them; calls are recorded only
// while a wrapper test runs.
std::atomic<bool> recordingSetOptionCalls{false};
std::atomic<int> failingOption{-1};
std::atomic<int> failingOptionResult{LDAP_SUCCESS};
std::atomic<int> failingUnbindResult{LDAP_SUCCESS};
std::mutex setOptionCallsMutex;
std::vector<SetOptionCall> setOptionCalls;

bool takesInt(int option) {
  return option == LDAP_OPT_PROTOCOL_VERSION || option == LDAP_OPT_X_TLS_PROTOCOL_MIN ||
         option == LDAP_OPT_X_TLS_REQUIRE_CERT || option == LDAP_OPT_X_TLS_NEWCTX;
}

template <class Function>
Function libldapDefinition(const char* name) {
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

}  // namespace

// This program's definitions come before libldap's: they record the call and hand it on to
// libldap, unless a test has asked for a failure.
extern "C" int ldap_set_option(LDAP* ld, int option, const void* invalue) {
  if (recordingSetOptionCalls) {
    std::lock_guard<std::mutex> lock(setOptionCallsMutex);
    setOptionCalls.push_back(
        {ld, option, takesInt(option) && invalue != nullptr ? *static_cast<const int*>(invalue) : 0});
  }
  if (option == failingOption.load()) return failingOptionResult.load();
  static const auto next = libldapDefinition<int (*)(LDAP*, int, const void*)>("ldap_set_option");
  return next(ld, option, invalue);
}

// The handle is always released; only the answer is replaced.
extern "C" int ldap_unbind_ext_s(LDAP* ld, LDAPControl** serverControls, LDAPControl** clientControls) {
  static const auto next = libldapDefinition<int (*)(LDAP*, LDAPControl**, LDAPControl**)>("ldap_unbind_ext_s");
  const int rc = next(ld, serverControls, clientControls);
  const int injected = failingUnbindResult.load();
  return injected != LDAP_SUCCESS ? injected : rc;
}

namespace {

// Every ldap_set_option with option fails with rc while the object lives.
class SetOptionFailure {
 public:
  SetOptionFailure(int option, int rc) {
    failingOptionResult = rc;
    failingOption = option;
  }
  ~SetOptionFailure() { failingOption = -1; }
  SetOptionFailure(const SetOptionFailure&) = delete;
  SetOptionFailure& operator=(const SetOptionFailure&) = delete;
};

// Every unbind answers rc while the object lives.
class UnbindFailure {
 public:
  explicit UnbindFailure(int rc) { failingUnbindResult = rc; }
  ~UnbindFailure() { failingUnbindResult = LDAP_SUCCESS; }
  UnbindFailure(const UnbindFailure&) = delete;
  UnbindFailure& operator=(const UnbindFailure&) = delete;
};

std::vector<SetOptionCall> takeSetOptionCalls() {
  std::lock_guard<std::mutex> lock(setOptionCallsMutex);
  std::vector<SetOptionCall> calls;
  calls.swap(setOptionCalls);
  return calls;
}

// Established TCP connections from this process to port: its open sockets asked directly (the
// system-wide table may skip lines while other programs open and close sockets).
int connectionsTo(int port) {
  int count = 0;
  for (const std::filesystem::directory_entry& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    const int fd = std::atoi(entry.path().filename().c_str());
    sockaddr_in peer{};
    socklen_t peerLength = sizeof peer;
    tcp_info info{};
    socklen_t infoLength = sizeof info;
    if (::getpeername(fd, reinterpret_cast<sockaddr*>(&peer), &peerLength) == 0 && peer.sin_family == AF_INET &&
        ntohs(peer.sin_port) == port && ::getsockopt(fd, IPPROTO_TCP, TCP_INFO, &info, &infoLength) == 0 &&
        info.tcpi_state == TCP_ESTABLISHED) {
      ++count;
    }
  }
  return count;
}

std::string loopback(int port) { return std::string(SlapdInstance::host()) + ":" + std::to_string(port); }

class LdapTlsWrapperTest : public FrameworkTestBase {
 protected:
  LdapTlsWrapperTest() { recordingSetOptionCalls = true; }
  ~LdapTlsWrapperTest() override {
    recordingSetOptionCalls = false;
    takeSetOptionCalls();
  }

  void SetUp() override {
    takeSetOptionCalls();
    log().clear();
  }

  // "method:text" of every trace, in order.
  Strings traces() {
    Strings texts;
    for (const Framework::LogRecord& record : log().records()) {
      if (record.level == kTrace) texts.push_back(record.method + ":" + record.text);
    }
    return texts;
  }

  // Records below trace level, as "level method: text".
  LibldapDefaults defaults;
  LdapTlsWrapper wrapper;
};

TEST_F(LdapTlsWrapperTest, NewWrapperHasNoHandleAndNoUri) {
  EXPECT_EQ("", wrapper.getUri());
  EXPECT_FALSE(wrapper.ping());
  EXPECT_EQ(Strings({"ping: >> ", "ping:LDAP handle not set", "ping: << "}), traces());
  EXPECT_FALSE(wrapper.deleteEntry("cn=reader,dc=example,dc=com"));
  EXPECT_TRUE(wrapper.search("dc=example,dc=com", Ldap::SCOPE_SUBTREE, "", nullptr).empty());
  EXPECT_TRUE(logLines().empty());
}

// One createURI on a fresh wrapper: the host and mode it is given and the URI list it builds.
struct UriCase {
  const char* host;
  Ldap::TlsModeConnection mode;
  const char* uri;
};

std::ostream& operator<<(std::ostream& out, const UriCase& uri) { return out << uri.host << " in mode " << uri.mode; }

class LdapTlsWrapperUriTest : public LdapTlsWrapperTest, public ::testing::WithParamInterface<UriCase> {};

TEST_P(LdapTlsWrapperUriTest, CreateUriBuildsTheUriList) {
  wrapper.createURI(GetParam().host, GetParam().mode);
  EXPECT_EQ(GetParam().uri, wrapper.getUri());
}

INSTANTIATE_TEST_SUITE_P(KeepsAWholeUriAsItIs, LdapTlsWrapperUriTest,
                         ::testing::Values(UriCase{"ldap://host", Ldap::TLS_LDAPS, "ldap://host"},
                                           UriCase{"ldaps://10.0.0.1:636", Ldap::TLS_STARTTLS, "ldaps://10.0.0.1:636"},
                                           UriCase{"ldap://x", Ldap::TLS_NONE, "ldap://x"},
                                           UriCase{"ldaps://", Ldap::TLS_NONE, "ldaps://"}));

INSTANTIATE_TEST_SUITE_P(PrefixesAnAddressWithTheSchemeOfTheMode, LdapTlsWrapperUriTest,
                         ::testing::Values(UriCase{"10.0.0.1:636", Ldap::TLS_LDAPS, "ldaps://10.0.0.1:636"},
                                           UriCase{"10.0.0.1:389", Ldap::TLS_STARTTLS, "ldap://10.0.0.1:389"},
                                           UriCase{"10.0.0.1:389", Ldap::TLS_NONE, "ldap://10.0.0.1:389"},
                                           UriCase{"[2001:db8::1]:636", Ldap::TLS_LDAPS, "ldaps://[2001:db8::1]:636"}));

INSTANTIATE_TEST_SUITE_P(AddsASchemeToLdapColonSlash, LdapTlsWrapperUriTest,
                         ::testing::Values(UriCase{"ldap:/host", Ldap::TLS_NONE, "ldap://ldap:/host"},
                                           UriCase{"ldaps:/host:636", Ldap::TLS_LDAPS, "ldaps://ldaps:/host:636"}));

INSTANTIATE_TEST_SUITE_P(AlwaysAddsASchemeToSevenCharactersOrFewer, LdapTlsWrapperUriTest,
                         ::testing::Values(UriCase{"ldap://", Ldap::TLS_STARTTLS, "ldap://ldap://"},
                                           UriCase{"ldap://", Ldap::TLS_LDAPS, "ldaps://ldap://"},
                                           UriCase{"ldaps:/", Ldap::TLS_LDAPS, "ldaps://ldaps:/"},
                                           UriCase{"h:389", Ldap::TLS_NONE, "ldap://h:389"}));

TEST_F(LdapTlsWrapperTest, CreateUriAppendsAfterACommaAndTracesItsName) {
  wrapper.createURI("10.0.0.1:389", Ldap::TLS_NONE);
  wrapper.createURI("ldap://10.0.0.2:389", Ldap::TLS_NONE);
  wrapper.createURI("10.0.0.3:636", Ldap::TLS_LDAPS);
  EXPECT_EQ("ldap://10.0.0.1:389,ldap://10.0.0.2:389,ldaps://10.0.0.3:636", wrapper.getUri());
  EXPECT_EQ(Strings({"createURI: >> ", "createURI: << ", "createURI: >> ", "createURI: << ", "createURI: >> ",
                     "createURI: << "}),
            traces());
}

// One connect on a fresh wrapper: its arguments and the URI list it makes.
struct ConnectCase {
  const char* name;
  Ldap::TlsModeConnection mode;
  const char* host;
  const char* fallbackHost;
  const char* uri;
};

std::ostream& operator<<(std::ostream& out, const ConnectCase& connect) { return out << connect.name; }

class LdapTlsWrapperConnectTest : public LdapTlsWrapperTest, public ::testing::WithParamInterface<ConnectCase> {};

TEST_P(LdapTlsWrapperConnectTest, ConnectListsTheAddresses) {
  EXPECT_TRUE(wrapper.connect(GetParam().mode, GetParam().host, GetParam().fallbackHost));
  EXPECT_EQ(GetParam().uri, wrapper.getUri());
}

INSTANTIATE_TEST_SUITE_P(
    PrimaryAndFallback, LdapTlsWrapperConnectTest,
    ::testing::Values(ConnectCase{"PrimaryThenTheFallback", Ldap::TLS_LDAPS, "10.0.0.1:636", "10.0.0.2:636",
                                  "ldaps://10.0.0.1:636,ldaps://10.0.0.2:636"},
                      ConnectCase{"OnlyThePrimaryWithoutFallback", Ldap::TLS_LDAPS, "10.0.0.1:636", "",
                                  "ldaps://10.0.0.1:636"},
                      ConnectCase{"OnlyAFallback", Ldap::TLS_STARTTLS, "", "10.0.0.2:389", "ldap://10.0.0.2:389"},
                      ConnectCase{"NothingWithoutAddressesLeavingTheServerToLibldap", Ldap::TLS_NONE, "", "", ""}),
    [](const ::testing::TestParamInfo<ConnectCase>& info) { return std::string(info.param.name); });

TEST_F(LdapTlsWrapperTest, ConnectReplacesTheEarlierUriList) {
  ASSERT_TRUE(wrapper.connect(Ldap::TLS_LDAPS, "10.0.0.1:636", "10.0.0.2:636"));
  EXPECT_TRUE(wrapper.connect(Ldap::TLS_NONE, "10.0.0.3:389", ""));
  EXPECT_EQ("ldap://10.0.0.3:389", wrapper.getUri());
}

TEST_F(LdapTlsWrapperTest, ConnectSetsProtocolVersionThreeAndTlsOneZeroAtLeastOnTheNewHandle) {
  ASSERT_TRUE(wrapper.connect(Ldap::TLS_LDAPS, "10.0.0.1:636", ""));
  std::map<int, int> onHandle;
  for (const SetOptionCall& call : takeSetOptionCalls()) {
    const bool versionOption = call.option == LDAP_OPT_PROTOCOL_VERSION || call.option == LDAP_OPT_X_TLS_PROTOCOL_MIN;
    if (versionOption && call.ld != nullptr) onHandle[call.option] = call.intValue;
  }
  EXPECT_EQ((std::map<int, int>{{LDAP_OPT_PROTOCOL_VERSION, 3}, {LDAP_OPT_X_TLS_PROTOCOL_MIN, 0x301}}), onHandle);
}

TEST_F(LdapTlsWrapperTest, ConnectFailsForAnUnparsableUriAndLeavesNoHandle) {
  EXPECT_FALSE(wrapper.connect(Ldap::TLS_NONE, "ldap://foo://bar", ""));
  log().clear();
  EXPECT_FALSE(wrapper.ping());
  EXPECT_EQ(Strings({"ping: >> ", "ping:LDAP handle not set", "ping: << "}), traces());
}

TEST_F(LdapTlsWrapperTest, SettersWithoutHandleChangeLibldapsDefaults) {
  EXPECT_TRUE(wrapper.setCaCertificate("/certs/ca.pem"));
  EXPECT_EQ("/certs/ca.pem", LibldapDefaults::text(LDAP_OPT_X_TLS_CACERTFILE));
  EXPECT_TRUE(wrapper.setCaCertDirectory("/certs"));
  EXPECT_EQ("/certs", LibldapDefaults::text(LDAP_OPT_X_TLS_CACERTDIR));
  EXPECT_TRUE(wrapper.setClientCertificate("/certs/node.pem"));
  EXPECT_EQ("/certs/node.pem", LibldapDefaults::text(LDAP_OPT_X_TLS_CERTFILE));
  EXPECT_TRUE(wrapper.setClientKey("/certs/node.key"));
  EXPECT_EQ("/certs/node.key", LibldapDefaults::text(LDAP_OPT_X_TLS_KEYFILE));
  EXPECT_TRUE(wrapper.setSynchronousTimeout(7));
  EXPECT_EQ(7, LibldapDefaults::seconds(LDAP_OPT_TIMEOUT));
  EXPECT_TRUE(wrapper.setNetworkTimeout(3));
  EXPECT_EQ(3, LibldapDefaults::seconds(LDAP_OPT_NETWORK_TIMEOUT));
  EXPECT_TRUE(logLines().empty());
  for (const SetOptionCall& call : takeSetOptionCalls()) EXPECT_EQ(nullptr, call.ld) << "option " << call.option;
}

TEST_F(LdapTlsWrapperTest, SetRequireCertMapsEachOptionToLibldapsValue) {
  const std::vector<std::pair<Ldap::ReqCertOptionT, int>> mapping = {{Ldap::REQCERT_NEVER, LDAP_OPT_X_TLS_NEVER},
                                                                     {Ldap::REQCERT_DEMAND, LDAP_OPT_X_TLS_DEMAND},
                                                                     {Ldap::REQCERT_ALLOW, LDAP_OPT_X_TLS_ALLOW},
                                                                     {Ldap::REQCERT_TRY, LDAP_OPT_X_TLS_TRY},
                                                                     {Ldap::REQCERT_HARD, LDAP_OPT_X_TLS_HARD}};
  for (const auto& pair : mapping) {
    EXPECT_TRUE(wrapper.setRequireCert(pair.first));
    EXPECT_EQ(pair.second, LibldapDefaults::number(LDAP_OPT_X_TLS_REQUIRE_CERT)) << "option " << pair.first;
  }
}

TEST_F(LdapTlsWrapperTest, SetRequireCertOutsideTheEnumerationDemands) {
  ASSERT_TRUE(wrapper.setRequireCert(Ldap::REQCERT_NEVER));
  ASSERT_EQ(LDAP_OPT_X_TLS_NEVER, LibldapDefaults::number(LDAP_OPT_X_TLS_REQUIRE_CERT));
  EXPECT_TRUE(wrapper.setRequireCert(static_cast<Ldap::ReqCertOptionT>(7)));
  EXPECT_EQ(LDAP_OPT_X_TLS_DEMAND, LibldapDefaults::number(LDAP_OPT_X_TLS_REQUIRE_CERT));
  ASSERT_TRUE(wrapper.setRequireCert(Ldap::REQCERT_NEVER));
  EXPECT_TRUE(wrapper.setRequireCert(static_cast<Ldap::ReqCertOptionT>(-1)));
  EXPECT_EQ(LDAP_OPT_X_TLS_DEMAND, LibldapDefaults::number(LDAP_OPT_X_TLS_REQUIRE_CERT));
}

TEST_F(LdapTlsWrapperTest, ReferralChasingFollowsTheArgument) {
  ldap_set_option(nullptr, LDAP_OPT_REFERRALS, LDAP_OPT_ON);
  ASSERT_NE(0, LibldapDefaults::number(LDAP_OPT_REFERRALS));
  EXPECT_TRUE(wrapper.setLdapOptReferrals(false));
  EXPECT_EQ(0, LibldapDefaults::number(LDAP_OPT_REFERRALS));

  EXPECT_TRUE(wrapper.setLdapOptReferrals(true));
  EXPECT_NE(0, LibldapDefaults::number(LDAP_OPT_REFERRALS));
}

TEST_F(LdapTlsWrapperTest, ServerControlsAreOneManageDsaItControlThatIsNotCritical) {
  EXPECT_TRUE(wrapper.setLdapOptServerControls());
  LDAPControl** controls = nullptr;
  ASSERT_EQ(LDAP_SUCCESS, ldap_get_option(nullptr, LDAP_OPT_SERVER_CONTROLS, &controls));
  ASSERT_NE(nullptr, controls);
  ASSERT_NE(nullptr, controls[0]);
  EXPECT_STREQ("2.16.840.1.113730.3.4.2", controls[0]->ldctl_oid);
  EXPECT_EQ(0, controls[0]->ldctl_iscritical);
  EXPECT_EQ(0u, controls[0]->ldctl_value.bv_len);
  EXPECT_EQ(nullptr, controls[1]);
  ldap_controls_free(controls);
  EXPECT_TRUE(logLines().empty());
}

TEST_F(LdapTlsWrapperTest, SettersActOnTheHandleOnceConnected) {
  ASSERT_TRUE(wrapper.connect(Ldap::TLS_LDAPS, "10.0.0.1:636", ""));
  const std::string before = LibldapDefaults::text(LDAP_OPT_X_TLS_CACERTFILE);
  takeSetOptionCalls();
  EXPECT_TRUE(wrapper.setCaCertificate("/elsewhere/ca.pem"));
  EXPECT_TRUE(wrapper.setRequireCert(Ldap::REQCERT_TRY));
  EXPECT_EQ(before, LibldapDefaults::text(LDAP_OPT_X_TLS_CACERTFILE));
  const std::vector<SetOptionCall> calls = takeSetOptionCalls();
  ASSERT_EQ(2u, calls.size());
  EXPECT_NE(nullptr, calls[0].ld);
  EXPECT_EQ(LDAP_OPT_X_TLS_CACERTFILE, calls[0].option);
  EXPECT_EQ(calls[0].ld, calls[1].ld);
  EXPECT_EQ(LDAP_OPT_X_TLS_REQUIRE_CERT, calls[1].option);
  EXPECT_EQ(LDAP_OPT_X_TLS_TRY, calls[1].intValue);
}

TEST_F(LdapTlsWrapperTest, EachSetterLogsItsOwnFailureAtLevelThree) {
  struct Case {
    int option;
    std::function<bool()> set;
    std::string line;
  };
  const std::string reason = ldap_err2string(LDAP_PARAM_ERROR);
  const std::vector<Case> cases = {
      {LDAP_OPT_X_TLS_CACERTFILE, [&] { return wrapper.setCaCertificate("/c/ca.pem"); },
       "setCaCertificate: Couldn't set CA cert (/c/ca.pem): " + reason},
      {LDAP_OPT_X_TLS_CACERTDIR, [&] { return wrapper.setCaCertDirectory("/c"); },
       "setCaCertDirectory: Couldn't set CA cert directory (/c): " + reason},
      {LDAP_OPT_X_TLS_CERTFILE, [&] { return wrapper.setClientCertificate("/c/node.pem"); },
       "setClientCertificate: Couldn't set client cert (/c/node.pem): " + reason},
      {LDAP_OPT_X_TLS_KEYFILE, [&] { return wrapper.setClientKey("/c/node.key"); },
       "setClientKey: Couldn't set client key (/c/node.key): " + reason},
      {LDAP_OPT_X_TLS_CIPHER_SUITE, [&] { return wrapper.setCipherSuite("HIGH:!aNULL"); },
       "setCipherSuite: Couldn't set cipher suite (HIGH:!aNULL): " + reason},
      {LDAP_OPT_X_TLS_REQUIRE_CERT, [&] { return wrapper.setRequireCert(Ldap::REQCERT_ALLOW); },
       "setRequireCert: Couldn't set require-cert flag: " + reason},
      {LDAP_OPT_TIMEOUT, [&] { return wrapper.setSynchronousTimeout(5); },
       "setSynchronousTimeout: Couldn't set timeout: " + reason},
      {LDAP_OPT_NETWORK_TIMEOUT, [&] { return wrapper.setNetworkTimeout(5); },
       "setNetworkTimeout: Couldn't set network timeout: " + reason},
      {LDAP_OPT_REFERRALS, [&] { return wrapper.setLdapOptReferrals(true); },
       "setLdapOptReferrals: Couldn't set ldap opt referals " + reason},
      {LDAP_OPT_SERVER_CONTROLS, [&] { return wrapper.setLdapOptServerControls(); },
       "setLdapOptServerControls: Couldn't set ldap opt server controls " + reason},
      {LDAP_OPT_X_TLS_NEWCTX, [&] { return wrapper.createNewCtx(); },
       "createNewCtx: Couldn't create new SSL context " + reason},
  };
  for (const Case& failing : cases) {
    log().clear();
    SetOptionFailure failure(failing.option, LDAP_PARAM_ERROR);
    EXPECT_FALSE(failing.set()) << failing.line;
    EXPECT_EQ(Strings({"3 " + failing.line}), logLines());
  }
}

TEST_F(LdapTlsWrapperTest, CreateNewCtxFailsWhenTheCaFileCannotBeRead) {
  ASSERT_TRUE(wrapper.connect(Ldap::TLS_LDAPS, "10.0.0.1:636", ""));
  ASSERT_TRUE(wrapper.setCaCertificate("/nonexistent/ca.pem"));
  EXPECT_FALSE(wrapper.createNewCtx());
  EXPECT_EQ(Strings({"3 createNewCtx: Couldn't create new SSL context Can't contact LDAP server"}), logLines());
}

TEST_F(LdapTlsWrapperTest, SettersTraceEntryAndExitUnderTheirName) {
  wrapper.setNetworkTimeout(4);
  wrapper.setLdapOptReferrals(false);
  EXPECT_EQ(Strings({"setNetworkTimeout: >> ", "setNetworkTimeout: << ", "setLdapOptReferrals: >> ",
                     "setLdapOptReferrals: << "}),
            traces());
}

TEST_F(LdapTlsWrapperTest, StartTlsWithoutHandleConnectsWithoutTlsAndSucceeds) {
  EXPECT_TRUE(wrapper.startTls());
  EXPECT_EQ("", wrapper.getUri());
  EXPECT_EQ(Strings({"startTls: >> ", "connect: >> ", "connect: << ", "startTls: << "}), traces());
}

TEST_F(LdapTlsWrapperTest, StartTlsSendsNothingInLdapsOrPlainMode) {
  // Nothing listens on the port: any request would fail.
  const int port = SlapdInstance::unusedPort();
  for (Ldap::TlsModeConnection mode : {Ldap::TLS_LDAPS, Ldap::TLS_NONE}) {
    ASSERT_TRUE(wrapper.connect(mode, loopback(port), ""));
    log().clear();
    EXPECT_TRUE(wrapper.startTls()) << "mode " << mode;
    EXPECT_EQ(Strings({"startTls: >> ", "startTls: << "}), traces());
    EXPECT_TRUE(logLines().empty());
  }
}

TEST_F(LdapTlsWrapperTest, BindWithoutHandleConnectsOnItsOwnWithoutDeadlocking) {
  // The URI list is empty, so the server is libldap's default; the point is that the nested
  // connect returns.
  EXPECT_FALSE(wrapper.bind("cn=nobody,dc=example,dc=com", "not-a-password"));
  EXPECT_EQ(Strings({"bind: >> ", "bind: >> ", "connect: >> ", "connect: << ",
                     "bind:Binding using DN: cn=nobody,dc=example,dc=com", "bind: << ", "bind: << "}),
            traces());
}

TEST_F(LdapTlsWrapperTest, UnbindForgetsTheDnAndPassword) {
  const std::string address = loopback(SlapdInstance::unusedPort());
  ASSERT_TRUE(wrapper.connect(Ldap::TLS_NONE, address, ""));
  EXPECT_FALSE(wrapper.bind("cn=someone,dc=example,dc=com", "pw"));
  wrapper.unbind();
  ASSERT_TRUE(wrapper.connect(Ldap::TLS_NONE, address, ""));
  log().clear();
  EXPECT_FALSE(wrapper.bind());
  EXPECT_EQ(Strings({"bind: >> ", "bind:Binding using DN: ", "bind: << "}), traces());
}

TEST_F(LdapTlsWrapperTest, DisconnectForgetsTheHandleAndTheUri) {
  ASSERT_TRUE(wrapper.connect(Ldap::TLS_NONE, "10.0.0.1:389", ""));
  wrapper.disconnect();
  EXPECT_EQ("", wrapper.getUri());
  log().clear();
  EXPECT_FALSE(wrapper.ping());
  EXPECT_EQ(Strings({"ping: >> ", "ping:LDAP handle not set", "ping: << "}), traces());
}

TEST_F(LdapTlsWrapperTest, FailedUnbindIsAWarningOnlyWhenVerbose) {
  ASSERT_TRUE(wrapper.connect(Ldap::TLS_NONE, "10.0.0.1:389", ""));
  UnbindFailure failure(LDAP_OTHER);
  log().clear();
  wrapper.disconnect();
  EXPECT_EQ(Strings({"4 freeLdapHandle: Couldn't unbind LDAP connection: " + std::string(ldap_err2string(LDAP_OTHER))}),
            logLines());

  ASSERT_TRUE(wrapper.connect(Ldap::TLS_NONE, "10.0.0.1:389", ""));
  log().clear();
  wrapper.freeLdapHandle(false);
  EXPECT_TRUE(log().records().empty());
  EXPECT_FALSE(wrapper.ping());
}

TEST_F(LdapTlsWrapperTest, DestructionReleasesTheHandleQuietly) {
  UnbindFailure failure(LDAP_OTHER);
  {
    LdapTlsWrapper other;
    ASSERT_TRUE(other.connect(Ldap::TLS_NONE, "10.0.0.1:389", ""));
    log().clear();
  }
  EXPECT_TRUE(log().records().empty());
}

TEST_F(LdapTlsWrapperTest, MessageIsLibldapsText) {
  EXPECT_EQ("Can't contact LDAP server", wrapper.message(LDAP_SERVER_DOWN));
  EXPECT_EQ("Invalid credentials", wrapper.message(LDAP_INVALID_CREDENTIALS));
  EXPECT_EQ("Success", wrapper.message(LDAP_SUCCESS));
}

TEST_F(LdapTlsWrapperTest, PingOnAClosedPortSaysTheServerIsDown) {
  const int port = SlapdInstance::unusedPort();
  ASSERT_TRUE(wrapper.connect(Ldap::TLS_NONE, loopback(port), ""));
  log().clear();
  EXPECT_FALSE(wrapper.ping());
  EXPECT_EQ(
      Strings({"ping: >> ", "ping:LDAP server ldap://127.0.0.1:" + std::to_string(port) + " is down", "ping: << "}),
      traces());
  EXPECT_TRUE(logLines().empty());
}

// Against a real slapd with the project's sample layout and two entries of its own.
class LdapTlsWrapperDirectoryTest : public LdapTlsWrapperTest {
 protected:
  void SetUp() override {
    const std::string ldif = writeEntries();
    try {
      directory.reset(new SlapdInstance(options(ldif)));
    } catch (const std::exception& e) {
      std::filesystem::remove(ldif);
      FAIL() << e.what();
    }
    std::filesystem::remove(ldif);
    LdapTlsWrapperTest::SetUp();
  }

  // Our session goes before the server does.
  void TearDown() override { wrapper.freeLdapHandle(false); }

  static SlapdInstance::Options options(const std::string& ldif) {
    SlapdInstance::Options options;
    options.ldifFile = ldif;
    return options;
  }

  static std::string writeEntries() {
    std::string path = (std::filesystem::temp_directory_path() / "qiv-ldap-wrapper-XXXXXX").string();
    const int fd = ::mkstemp(&path[0]);
    if (fd >= 0) ::close(fd);
    std::ofstream(path) << "dn: cn=pair,dc=example,dc=com\n"
                           "objectClass: organizationalRole\n"
                           "cn: pair\n"
                           "description: a\n"
                           "description: b\n"
                           "\n"
                           "dn: cn=doomed,dc=example,dc=com\n"
                           "objectClass: organizationalRole\n"
                           "cn: doomed\n";
    return path;
  }

  // Connected in mode to address, trusting only caFile and demanding the server's certificate.
  void connectTrusting(Ldap::TlsModeConnection mode, const std::string& address, const std::string& caFile) {
    ASSERT_TRUE(wrapper.connect(mode, address, ""));
    ASSERT_TRUE(wrapper.setCaCertificate(caFile));
    ASSERT_TRUE(wrapper.setRequireCert(Ldap::REQCERT_DEMAND));
    ASSERT_TRUE(wrapper.createNewCtx());
  }

  // Bound as the reader over plain LDAP: this process's one connection to the server.
  void bindAsReader() {
  ASSERT_TRUE(wrapper.connect(Ldap::TLS_NONE, directory->plainAddress(), ""));
  ASSERT_TRUE(wrapper.bind(SlapdInstance::readerDn(), SlapdInstance::readerPassword()));
  ASSERT_EQ(1, connectionsTo(directory->plainPort()));
  }

  // The session handle that the wrapper's last connect created, as libldap saw it.
  static LDAP* handleOfLastConnect() {
    LDAP* handle = nullptr;
    for (const SetOptionCall& call : takeSetOptionCalls()) {
      if (call.option == LDAP_OPT_PROTOCOL_VERSION) handle = call.ld;
    }
    return handle;
  }

  Lines search(const std::string& base, Ldap::ScopeT scope, const std::string& filter, const Lines& attributes) {
    return wrapper.search(base, scope, filter, &attributes);
  }

  std::unique_ptr<SlapdInstance> directory;
};

TEST_F(LdapTlsWrapperDirectoryTest, BindWithTheAdministratorsPasswordSucceedsAndNeverLogsIt) {
  ASSERT_TRUE(wrapper.connect(Ldap::TLS_NONE, directory->plainAddress(), ""));
  EXPECT_TRUE(wrapper.bind(SlapdInstance::rootDn(), SlapdInstance::rootPassword()));
  EXPECT_EQ(1u, log().count(kTrace, std::string("Binding using DN: ") + SlapdInstance::rootDn()));
  EXPECT_EQ(0u, log().countContaining(SlapdInstance::rootPassword()));
  EXPECT_TRUE(logLines().empty());
}

TEST_F(LdapTlsWrapperDirectoryTest, BindWithAWrongPasswordFails) {
  ASSERT_TRUE(wrapper.connect(Ldap::TLS_NONE, directory->plainAddress(), ""));
  EXPECT_FALSE(wrapper.bind(SlapdInstance::rootDn(), "wrong-password"));
  EXPECT_EQ(0u, log().countContaining("wrong-password"));
  EXPECT_TRUE(wrapper.bind(SlapdInstance::readerDn(), SlapdInstance::readerPassword()));
}

TEST_F(LdapTlsWrapperDirectoryTest, BindUsesTheFallbackWhenThePrimaryIsDown) {
  ASSERT_TRUE(wrapper.connect(Ldap::TLS_NONE, loopback(SlapdInstance::unusedPort()), directory->plainAddress()));
  EXPECT_TRUE(wrapper.bind(SlapdInstance::readerDn(), SlapdInstance::readerPassword()));
  EXPECT_EQ(1, connectionsTo(directory->plainPort()));
}

TEST_F(LdapTlsWrapperDirectoryTest, SecondConnectReleasesTheFirstHandle) {
  ASSERT_NO_FATAL_FAILURE(bindAsReader());
  log().clear();

  EXPECT_TRUE(wrapper.connect(Ldap::TLS_NONE, directory->plainAddress(), ""));
  EXPECT_EQ(0, connectionsTo(directory->plainPort()));
  EXPECT_EQ(Strings({"connect: >> ", "freeLdapHandle: >> ", "freeLdapHandle: << ", "createURI: >> ", "createURI: << ",
                     "connect: << "}),
            traces());
  EXPECT_TRUE(wrapper.bind(SlapdInstance::readerDn(), SlapdInstance::readerPassword()));
  EXPECT_EQ(1, connectionsTo(directory->plainPort()));
}

TEST_F(LdapTlsWrapperDirectoryTest, DisconnectClosesTheConnection) {
  ASSERT_NO_FATAL_FAILURE(bindAsReader());
  wrapper.disconnect();
  EXPECT_EQ(0, connectionsTo(directory->plainPort()));
}

TEST_F(LdapTlsWrapperDirectoryTest, TwoValuedAttributeGivesOneLinePerValue) {
  ASSERT_TRUE(wrapper.connect(Ldap::TLS_NONE, directory->plainAddress(), ""));
  EXPECT_EQ(Lines({"description: a", "description: b"}),
            search("cn=pair,dc=example,dc=com", Ldap::SCOPE_BASE, "(objectClass=*)", {"description"}));
}

TEST_F(LdapTlsWrapperDirectoryTest, SearchWithoutAttributeListAnswersEveryAttributeInServerOrder) {
  ASSERT_TRUE(wrapper.connect(Ldap::TLS_NONE, directory->plainAddress(), ""));
  const Lines expected = {"objectClass: organizationalRole", "cn: pair", "description: a", "description: b"};
  EXPECT_EQ(expected, wrapper.search("cn=pair,dc=example,dc=com", Ldap::SCOPE_BASE, "(cn=pair)", nullptr));
  const Lines none;
  EXPECT_EQ(expected, wrapper.search("cn=pair,dc=example,dc=com", Ldap::SCOPE_BASE, "(cn=pair)", &none));
}

TEST_F(LdapTlsWrapperDirectoryTest, AttributesAreAnsweredForEachEntryWithoutTheDns) {
  ASSERT_TRUE(wrapper.connect(Ldap::TLS_NONE, directory->plainAddress(), ""));
  EXPECT_EQ(
      Lines({"cn: reader", "description: Binds to read users and their roles", "cn: pair", "description: a",
             "description: b", "cn: doomed"}),
      search("dc=example,dc=com", Ldap::SCOPE_SUBTREE, "(objectClass=organizationalRole)", {"cn", "description"}));
}

TEST_F(LdapTlsWrapperDirectoryTest, ScopeDecidesWhichEntriesAreSearched) {
  ASSERT_TRUE(wrapper.connect(Ldap::TLS_NONE, directory->plainAddress(), ""));
  const Lines ou = {"ou"};
  EXPECT_EQ(Lines({"ou: people", "ou: groups", "ou: roleAliases"}),
            search("dc=example,dc=com", Ldap::SCOPE_ONELEVEL, "(objectClass=organizationalUnit)", ou));
  EXPECT_EQ(Lines({"ou: people"}), search("dc=example,dc=com", Ldap::SCOPE_SUBTREE, "(ou=people)", ou));
  EXPECT_TRUE(search("dc=example,dc=com", Ldap::SCOPE_BASE, "(objectClass=organizationalUnit)", ou).empty());
  EXPECT_EQ(Lines({"ou: people"}), search("ou=people,dc=example,dc=com", static_cast<Ldap::ScopeT>(7), "", ou));
  EXPECT_TRUE(search("dc=example,dc=com", static_cast<Ldap::ScopeT>(7), "(ou=people)", ou).empty());
}

TEST_F(LdapTlsWrapperDirectoryTest, EmptyBaseAndFilterReadTheRootDse) {
  ASSERT_TRUE(wrapper.connect(Ldap::TLS_NONE, directory->plainAddress(), ""));
  EXPECT_EQ(Lines({"namingContexts: dc=example,dc=com"}), search("", Ldap::SCOPE_BASE, "", {"namingContexts"}));
}

TEST_F(LdapTlsWrapperDirectoryTest, FailedSearchAnswersNothingAndLogsNothing) {
  ASSERT_TRUE(wrapper.connect(Ldap::TLS_NONE, directory->plainAddress(), ""));
  log().clear();
  EXPECT_TRUE(wrapper.search("ou=nowhere,dc=example,dc=com", Ldap::SCOPE_SUBTREE, "(objectClass=*)", nullptr).empty());
  EXPECT_TRUE(wrapper.search("dc=example,dc=com", Ldap::SCOPE_SUBTREE, "(((", nullptr).empty());
  EXPECT_TRUE(logLines().empty());
  const Strings oneSearch = {"search: >> ", "getAttrsResult: >> ", "getAttrsResult: << ", "search: << "};
  Strings both = oneSearch;
  both.insert(both.end(), oneSearch.begin(), oneSearch.end());
  EXPECT_EQ(both, traces());
}

TEST_F(LdapTlsWrapperDirectoryTest, ServerAcceptsTheManageDsaItControl) {
  ASSERT_TRUE(wrapper.connect(Ldap::TLS_NONE, directory->plainAddress(), ""));
  ASSERT_TRUE(wrapper.setLdapOptServerControls());
  EXPECT_EQ(Lines({"cn: pair"}), search("cn=pair,dc=example,dc=com", Ldap::SCOPE_BASE, "", {"cn"}));
}

TEST_F(LdapTlsWrapperDirectoryTest, StartTlsWithTheRightCaSucceedsOnceAndThenReportsTlsInPlace) {
  connectTrusting(Ldap::TLS_STARTTLS, directory->plainAddress(), directory->caFile());
  log().clear();
  EXPECT_TRUE(wrapper.startTls());
  EXPECT_EQ(Strings({"startTls: >> ", "startTls: << "}), traces());

  log().clear();
  EXPECT_FALSE(wrapper.startTls());
  EXPECT_EQ(Strings({"startTls: >> ", "startTls:TLS is already inplace.", "startTls: << "}), traces());
  EXPECT_TRUE(logLines().empty());

  EXPECT_TRUE(wrapper.bind(SlapdInstance::rootDn(), SlapdInstance::rootPassword()));
  EXPECT_EQ(Lines({"cn: pair"}), search("cn=pair,dc=example,dc=com", Ldap::SCOPE_BASE, "", {"cn"}));
}

TEST_F(LdapTlsWrapperDirectoryTest, StartTlsWithAnotherCaFailsWithAnError) {
  connectTrusting(Ldap::TLS_STARTTLS, directory->plainAddress(), directory->otherCaFile());
  log().clear();
  EXPECT_FALSE(wrapper.startTls());
  EXPECT_EQ(Strings({"3 startTls: Can't start starttls for connection : " +
                     std::string(ldap_err2string(LDAP_CONNECT_ERROR))}),
            logLines());
}

TEST_F(LdapTlsWrapperDirectoryTest, LdapsWithTheRightCaBindsAndSearches) {
  connectTrusting(Ldap::TLS_LDAPS, directory->ldapsAddress(), directory->caFile());
  EXPECT_EQ("ldaps://" + directory->ldapsAddress(), wrapper.getUri());
  EXPECT_TRUE(wrapper.bind(SlapdInstance::readerDn(), SlapdInstance::readerPassword()));
  EXPECT_EQ(Lines({"cn: pair"}), search("cn=pair,dc=example,dc=com", Ldap::SCOPE_BASE, "", {"cn"}));
  EXPECT_EQ(1, connectionsTo(directory->ldapsPort()));
}

TEST_F(LdapTlsWrapperDirectoryTest, LdapsWithAnotherCaCannotBind) {
  connectTrusting(Ldap::TLS_LDAPS, directory->ldapsAddress(), directory->otherCaFile());
  EXPECT_FALSE(wrapper.bind(SlapdInstance::readerDn(), SlapdInstance::readerPassword()));
  EXPECT_TRUE(search("cn=pair,dc=example,dc=com", Ldap::SCOPE_BASE, "", {"cn"}).empty());
}

TEST_F(LdapTlsWrapperDirectoryTest, PingOnALiveServerIsTrue) {
  ASSERT_TRUE(wrapper.connect(Ldap::TLS_NONE, directory->plainAddress(), ""));
  log().clear();
  EXPECT_TRUE(wrapper.ping());
  EXPECT_EQ(Strings({"ping: >> ", "ping: << "}), traces());
}

// The server answers the root-DSE read with an error: a control marked critical that it does not
// know, put on the wrapper's handle behind its back.
TEST_F(LdapTlsWrapperDirectoryTest, PingOnALiveServerThatAnswersTheReadWithAnErrorIsTrue) {
  ASSERT_TRUE(wrapper.connect(Ldap::TLS_NONE, directory->plainAddress(), ""));
  LDAP* handle = handleOfLastConnect();
  ASSERT_NE(nullptr, handle);
  LDAPControl unknown = {const_cast<char*>("1.3.6.1.4.1.32473.99"), {0, nullptr}, 1};
  LDAPControl* controls[] = {&unknown, nullptr};
  ASSERT_EQ(LDAP_SUCCESS, ldap_set_option(handle, LDAP_OPT_SERVER_CONTROLS, controls));
  LDAPMessage* result = nullptr;
  EXPECT_EQ(LDAP_UNAVAILABLE_CRITICAL_EXTENSION, ldap_search_ext_s(handle, nullptr, LDAP_SCOPE_BASE, nullptr, nullptr,
                                                                   0, nullptr, nullptr, nullptr, 0, &result));
  ldap_msgfree(result);

  log().clear();
  EXPECT_TRUE(wrapper.ping());
  EXPECT_EQ(Strings({"ping: >> ", "ping: << "}), traces());
}

// libldap reports a TLS handshake that fails on connecting as a server that is down.
TEST_F(LdapTlsWrapperDirectoryTest, PingOverLdapsToAnUntrustedServerSaysItIsDown) {
  connectTrusting(Ldap::TLS_LDAPS, directory->ldapsAddress(), directory->otherCaFile());
  log().clear();
  EXPECT_FALSE(wrapper.ping());
  EXPECT_EQ(Strings({"ping: >> ", "ping:LDAP server ldaps://" + directory->ldapsAddress() + " is down", "ping: << "}),
            traces());
}

TEST_F(LdapTlsWrapperDirectoryTest, PingAfterTheServerStoppedSaysItIsDown) {
  ASSERT_TRUE(wrapper.connect(Ldap::TLS_NONE, directory->plainAddress(), ""));
  ASSERT_TRUE(wrapper.ping());
  directory->stop();
  log().clear();
  EXPECT_FALSE(wrapper.ping());
  EXPECT_EQ(1u, log().count(kTrace, "LDAP server ldap://" + directory->plainAddress() + " is down"));
}

TEST_F(LdapTlsWrapperDirectoryTest, DeleteEntryAsAdministratorRemovesIt) {
  ASSERT_TRUE(wrapper.connect(Ldap::TLS_NONE, directory->plainAddress(), ""));
  ASSERT_TRUE(wrapper.bind(SlapdInstance::rootDn(), SlapdInstance::rootPassword()));
  ASSERT_EQ(Lines({"cn: doomed"}), search("cn=doomed,dc=example,dc=com", Ldap::SCOPE_BASE, "", {"cn"}));
  EXPECT_TRUE(wrapper.deleteEntry("cn=doomed,dc=example,dc=com"));
  EXPECT_TRUE(search("cn=doomed,dc=example,dc=com", Ldap::SCOPE_BASE, "", {"cn"}).empty());
  EXPECT_FALSE(wrapper.deleteEntry("cn=doomed,dc=example,dc=com"));
}

TEST_F(LdapTlsWrapperDirectoryTest, DeleteEntryWithoutRightsFailsAndKeepsIt) {
  ASSERT_TRUE(wrapper.connect(Ldap::TLS_NONE, directory->plainAddress(), ""));
  ASSERT_TRUE(wrapper.bind(SlapdInstance::readerDn(), SlapdInstance::readerPassword()));
  EXPECT_FALSE(wrapper.deleteEntry("cn=doomed,dc=example,dc=com"));
  EXPECT_EQ(Lines({"cn: doomed"}), search("cn=doomed,dc=example,dc=com", Ldap::SCOPE_BASE, "", {"cn"}));
}

}  // namespace
