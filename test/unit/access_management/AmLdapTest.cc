#include "AmLdap.h"

#include <algorithm>
#include <functional>
#include <list>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "FrameworkTestBase.h"
#include "MockLdapTlsWrapper.h"

using QivAccessManagement::AmLdap;
using QivAccessManagement::LdapConfiguration;
using ::testing::ElementsAre;
using ::testing::InSequence;
using ::testing::Invoke;
using ::testing::InvokeWithoutArgs;
using ::testing::IsNull;
using ::testing::Matcher;
using ::testing::Pointee;
using ::testing::Return;
using ::testing::StrictMock;

namespace {

typedef std::list<std::string> Lines;
typedef std::vector<std::string> Strings;

const int kTrace = 8;
const char kBaseDn[] = "dc=example,dc=com";
const char kServer[] = "192.0.2.10";
const char kScopeAttribute[] = "orbelinUserAuthenticationScope";
const char kOrbelinRoleAttribute[] = "orbelinUserAuthorizationScope";
// The filters that look up bob's groups (filterType 1) and bob's account (filterType 2).
const char kBobsGroups[] = "(&(objectClass=posixGroup)(memberUid=bob))";
const char kBobsAccount[] = "(&(objectClass=posixAccount)(uid=bob))";

// The lookup with its working fields in reach of the tests.
class InspectableAmLdap : public AmLdap {
 public:
  using AmLdap::AmLdap;
  using AmLdap::filter;
  using AmLdap::ldapWrapper;
  using AmLdap::mutex;
  using AmLdap::nodeTypes;
  using AmLdap::roleAttribute;
  using AmLdap::roles;
  using AmLdap::targetTypes;
};

// A plain, anonymous configuration with referrals on, so that connecting takes the fewest calls.
LdapConfiguration plainConfig(QivAccessManagement::FilterType filterType = QivAccessManagement::POSIX_GROUPS) {
  LdapConfiguration config;
  config.administrativeState = QivAccessManagement::UNLOCKED;
  config.ldapIpAddress = kServer;
  config.baseDn = kBaseDn;
  config.useTls = false;
  config.useReferrals = true;
  config.filterType = filterType;
  return config;
}

// A filterType 2 configuration with target-based access control for nodeType.
LdapConfiguration targetBasedConfig(const std::string& nodeType) {
  LdapConfiguration config = plainConfig(QivAccessManagement::ORBELIN);
  config.nodeType = nodeType;
  config.targetBasedAccessControl = QivAccessManagement::UNLOCKED;
  return config;
}

// A StartTLS configuration that takes every step of the connection: CA file, client
// certificate and key, bind, server controls.
LdapConfiguration startTlsConfig() {
  LdapConfiguration config = plainConfig();
  config.useTls = true;
  config.tlsMode = QivAccessManagement::STARTTLS;
  config.tlsCaCertificate = "/certs/ca.pem";
  config.tlsClientCertificate = "/certs/client.pem";
  config.tlsClientKey = "/certs/client.key";
  config.cipherFilter = "ALL:!aNULL";
  config.useReferrals = false;
  config.bindDn = "cn=reader,dc=example,dc=com";
  config.bindPassword = "s3cret-pass";
  return config;
}

Matcher<const Lines*> attributes(const std::string& name) { return Pointee(ElementsAre(name)); }

class AmLdapTest : public FrameworkTestBase {
 protected:
  AmLdapTest() : amLdap(&wrapper) {}

  void SetUp() override { log().clear(); }

  // Every trace line so far, in order.
  Strings traces() {
    Strings texts;
    for (const Framework::LogRecord& record : log().records()) {
      if (record.level == kTrace) texts.push_back(record.text);
    }
    return texts;
  }

  // Traces that a role value's parsing writes are left out, to keep expectations short.
  Strings tracesWithoutParsing() {
    Strings texts;
    for (const std::string& text : traces()) {
      if (text.rfind(" >> in: ", 0) != 0 && text.rfind(" << out: ", 0) != 0) texts.push_back(text);
    }
    return texts;
  }

  void expectTimeouts() {
    EXPECT_CALL(wrapper, setSynchronousTimeout(12)).WillOnce(Return(true));
    EXPECT_CALL(wrapper, setNetworkTimeout(11)).WillOnce(Return(true));
  }

  // The TLS settings of startTlsConfig() after the CA: client certificate and key, then the
  // cipher filter, the demand for the server's certificate and the context built from them.
  void expectClientTls(const std::string& certificate, const std::string& key) {
    EXPECT_CALL(wrapper, setClientCertificate(certificate)).WillOnce(Return(true));
    EXPECT_CALL(wrapper, setClientKey(key)).WillOnce(Return(true));
    EXPECT_CALL(wrapper, setCipherSuite("ALL:!aNULL")).WillOnce(Return(true));
    EXPECT_CALL(wrapper, setRequireCert(Ldap::REQCERT_DEMAND)).WillOnce(Return(true));
    EXPECT_CALL(wrapper, createNewCtx()).WillOnce(Return(true));
  }

  // The calls that open plainConfig()'s connection.
  void expectPlainConnection() {
    expectTimeouts();
    EXPECT_CALL(wrapper, connect(Ldap::TLS_NONE, std::string(kServer) + ":389", "")).WillOnce(Return(true));
    EXPECT_CALL(wrapper, setLdapOptReferrals(true)).WillOnce(Return(true));
    EXPECT_CALL(wrapper, ping()).WillOnce(Return(true));
  }

  void expectSearch(const std::string& base, const std::string& filter, const Matcher<const Lines*>& attributeList,
                    const Lines& answer) {
    EXPECT_CALL(wrapper, search(base, Ldap::SCOPE_SUBTREE, filter, attributeList)).WillOnce(Return(answer));
  }

  // The existence check of user, answered as found.
  void expectUserFound(const std::string& user) {
    expectSearch(kBaseDn, "(uid=" + user + ")", IsNull(), {"uid: " + user, "objectClass: posixAccount"});
  }

  // Connection, existence check, scope search and role search of one lookup with filter.
  void expectLookup(const std::string& user, const std::string& filter, const std::string& roleAttribute,
                    const Lines& scopeLines, const Lines& roleLines) {
    expectPlainConnection();
    expectUserFound(user);
    expectSearch(kBaseDn, filter, attributes(kScopeAttribute), scopeLines);
    expectSearch(kBaseDn, filter, attributes(roleAttribute), roleLines);
  }

  // The roles that a lookup of bob with config answers; the lookup is expected to succeed.
  std::string rolesOfBob(const LdapConfiguration& config) {
    std::string roles;
    EXPECT_EQ(0, amLdap.authorizationLdap(&config, "bob", roles));
    return roles;
  }

  // The filter that prepareFilter makes of config for user.
  std::string preparedFilter(const LdapConfiguration& config, const std::string& user) {
    amLdap.prepareFilter(&config, user);
    return amLdap.filter;
  }

  // The filter that prepareFilter makes for user of a flexible configuration with filter.
  std::string flexibleFilter(const std::string& filter, const std::string& user) {
    LdapConfiguration config = plainConfig(QivAccessManagement::FLEXIBLE);
    config.filter = filter;
    return preparedFilter(config, user);
  }

  // Each role value parsed in turn under config, against what it should give.
  void expectParsed(const LdapConfiguration& config, const std::vector<std::pair<std::string, std::string>>& values) {
    for (const auto& value : values) EXPECT_EQ(value.second, amLdap.parseRoleLine(value.first, &config)) << value.first;
  }

  StrictMock<MockLdapTlsWrapper> wrapper;
  InspectableAmLdap amLdap;
};

// ---------------------------------------------------------------------------------------------
// Construction

// The wrapper that a test hands in, noting when it is destroyed.
class TrackedWrapper : public MockLdapTlsWrapper {
 public:
  explicit TrackedWrapper(bool& destroyed) : _destroyed(destroyed) {}
  ~TrackedWrapper() override { _destroyed = true; }

 private:
  bool& _destroyed;
};

TEST(AmLdapConstructionTest, DestructorLeavesTheWrapperToItsCreator) {
  bool destroyed = false;
  TrackedWrapper* wrapper = new TrackedWrapper(destroyed);
  {
    InspectableAmLdap amLdap(wrapper);
    EXPECT_EQ(wrapper, amLdap.ldapWrapper);
  }
  EXPECT_FALSE(destroyed);
  delete wrapper;
  EXPECT_TRUE(destroyed);
}

TEST(AmLdapConstructionTest, DefaultConstructionHasNoWrapper) {
  InspectableAmLdap amLdap;
  EXPECT_EQ(nullptr, amLdap.ldapWrapper);
  EXPECT_TRUE(amLdap.filter.empty());
  EXPECT_TRUE(amLdap.roleAttribute.empty());
}

TEST(AmLdapConstructionTest, OnlyTheLookupIsOverridden) {
  AmLdap amLdap;
  QivAccessManagement::IAmLdap& lookup = amLdap;
  lookup.setReply({"admin"});
  lookup.setReturn(0);
  EXPECT_FALSE(lookup.verifyTlsMode(QivAccessManagement::STARTTLS));
  EXPECT_FALSE(lookup.verifyServerPort(0));
  EXPECT_FALSE(lookup.verifyUseTls(false));
}

// ---------------------------------------------------------------------------------------------
// Opening the connection

TEST_F(AmLdapTest, PlainConnectionCallsTheWrapperInOrder) {
  LdapConfiguration config = startTlsConfig();
  config.useTls = false;
  config.fallbackLdapIpAddress = "192.0.2.11";
  {
    InSequence order;
    expectTimeouts();
    EXPECT_CALL(wrapper, connect(Ldap::TLS_NONE, "192.0.2.10:389", "192.0.2.11:389")).WillOnce(Return(true));
    EXPECT_CALL(wrapper, setLdapOptReferrals(false)).WillOnce(Return(true));
    EXPECT_CALL(wrapper, setLdapOptServerControls()).WillOnce(Return(true));
    EXPECT_CALL(wrapper, bind("cn=reader,dc=example,dc=com", "s3cret-pass")).WillOnce(Return(true));
    EXPECT_CALL(wrapper, ping()).WillOnce(Return(true));
  }
  EXPECT_EQ(0, amLdap.openLdapConnection(&config));
  EXPECT_EQ(Strings({"No TLS"}), traces());
}

TEST_F(AmLdapTest, LdapsConnectionSetsTheCaFileBeforeTheTrustCategoryAndNeverStartsTls) {
  LdapConfiguration config = startTlsConfig();
  config.tlsMode = QivAccessManagement::LDAPS;
  config.trustCategory.trustCatDirName = "/trust";
  config.nodeCredential.nodeCertFileName = "/node/cert.pem";
  config.nodeCredential.nodeKeyFileName = "/node/key.pem";
  config.useReferrals = true;
  config.bindDn.clear();
  {
    InSequence order;
    expectTimeouts();
    EXPECT_CALL(wrapper, connect(Ldap::TLS_LDAPS, "192.0.2.10:636", "")).WillOnce(Return(true));
    EXPECT_CALL(wrapper, setCaCertificate("/certs/ca.pem")).WillOnce(Return(true));
    expectClientTls("/certs/client.pem", "/certs/client.key");
    EXPECT_CALL(wrapper, setLdapOptReferrals(true)).WillOnce(Return(true));
    EXPECT_CALL(wrapper, ping()).WillOnce(Return(true));
  }
  EXPECT_EQ(0, amLdap.openLdapConnection(&config));
  EXPECT_EQ(Strings({"Using TLS"}), traces());
}

TEST_F(AmLdapTest, StartTlsConnectionTakesTheTrustCategoryAndTheNodeCredential) {
  LdapConfiguration config = startTlsConfig();
  config.tlsCaCertificate.clear();
  config.tlsClientCertificate.clear();
  config.tlsClientKey.clear();
  config.trustCategory.trustCatDirName = "/trust";
  config.nodeCredential.nodeCertFileName = "/node/cert.pem";
  config.nodeCredential.nodeKeyFileName = "/node/key.pem";
  {
    InSequence order;
    expectTimeouts();
    EXPECT_CALL(wrapper, connect(Ldap::TLS_STARTTLS, "192.0.2.10:389", "")).WillOnce(Return(true));
    EXPECT_CALL(wrapper, setCaCertDirectory("/trust")).WillOnce(Return(true));
    expectClientTls("/node/cert.pem", "/node/key.pem");
    EXPECT_CALL(wrapper, startTls()).WillOnce(Return(true));
    EXPECT_CALL(wrapper, setLdapOptReferrals(false)).WillOnce(Return(true));
    EXPECT_CALL(wrapper, setLdapOptServerControls()).WillOnce(Return(true));
    EXPECT_CALL(wrapper, bind("cn=reader,dc=example,dc=com", "s3cret-pass")).WillOnce(Return(true));
    EXPECT_CALL(wrapper, ping()).WillOnce(Return(true));
  }
  EXPECT_EQ(0, amLdap.openLdapConnection(&config));
}

TEST_F(AmLdapTest, TlsWithoutCaSetsNoCaOptionAndEmptyClientFiles) {
  LdapConfiguration config = startTlsConfig();
  config.tlsCaCertificate.clear();
  config.tlsClientCertificate.clear();
  config.tlsClientKey.clear();
  config.useReferrals = true;
  config.bindDn.clear();
  {
    InSequence order;
    expectTimeouts();
    EXPECT_CALL(wrapper, connect(Ldap::TLS_STARTTLS, "192.0.2.10:389", "")).WillOnce(Return(true));
    expectClientTls("", "");
    EXPECT_CALL(wrapper, startTls()).WillOnce(Return(true));
    EXPECT_CALL(wrapper, setLdapOptReferrals(true)).WillOnce(Return(true));
    EXPECT_CALL(wrapper, ping()).WillOnce(Return(true));
  }
  EXPECT_EQ(0, amLdap.openLdapConnection(&config));
}

TEST_F(AmLdapTest, TimeoutResultsAreNotChecked) {
  const LdapConfiguration config = plainConfig();
  InSequence order;
  EXPECT_CALL(wrapper, setSynchronousTimeout(12)).WillOnce(Return(false));
  EXPECT_CALL(wrapper, setNetworkTimeout(11)).WillOnce(Return(false));
  EXPECT_CALL(wrapper, connect(Ldap::TLS_NONE, "192.0.2.10:389", "")).WillOnce(Return(true));
  EXPECT_CALL(wrapper, setLdapOptReferrals(true)).WillOnce(Return(true));
  EXPECT_CALL(wrapper, ping()).WillOnce(Return(true));
  EXPECT_EQ(0, amLdap.openLdapConnection(&config));
}

// The server address handed to connect, for config.
std::string connectedAddress(const LdapConfiguration& config) {
  StrictMock<MockLdapTlsWrapper> wrapper;
  AmLdap amLdap(&wrapper);
  std::string address;
  EXPECT_CALL(wrapper, setSynchronousTimeout(12)).WillOnce(Return(true));
  EXPECT_CALL(wrapper, setNetworkTimeout(11)).WillOnce(Return(true));
  EXPECT_CALL(wrapper, connect(testing::_, testing::_, testing::_))
      .WillOnce(Invoke([&address](Ldap::TlsModeConnection, const std::string& host, const std::string&) {
        address = host;
        return false;
      }));
  EXPECT_EQ(-1, amLdap.openLdapConnection(&config));
  return address;
}

TEST_F(AmLdapTest, DefaultPortFollowsTheTlsSettings) {
  LdapConfiguration config = plainConfig();
  config.useTls = true;
  config.tlsMode = QivAccessManagement::LDAPS;
  EXPECT_EQ("192.0.2.10:636", connectedAddress(config));
  config.useTls = false;
  EXPECT_EQ("192.0.2.10:389", connectedAddress(config));
  config.useTls = true;
  config.tlsMode = QivAccessManagement::STARTTLS;
  EXPECT_EQ("192.0.2.10:389", connectedAddress(config));
}

TEST_F(AmLdapTest, TlsModeOutsideTheEnumerationGetsNoDefaultPort) {
  LdapConfiguration config = plainConfig();
  config.useTls = true;
  config.tlsMode = static_cast<QivAccessManagement::TlsMode>(7);
  EXPECT_EQ("192.0.2.10:", connectedAddress(config));
}

TEST_F(AmLdapTest, ConfiguredPortWins) {
  LdapConfiguration config = plainConfig();
  config.serverPort = 10636;
  config.useTls = true;
  config.tlsMode = QivAccessManagement::LDAPS;
  EXPECT_EQ("192.0.2.10:10636", connectedAddress(config));
}

TEST_F(AmLdapTest, Ipv6AddressesGetBracketsAndTheFallbackTheSameTlsMode) {
  LdapConfiguration config = plainConfig();
  config.ldapIpAddress = "2001:db8::1";
  config.fallbackLdapIpAddress = "2001:db8::2";
  config.useTls = true;
  config.useTlsFallback = false;
  config.tlsMode = QivAccessManagement::LDAPS;
  expectTimeouts();
  EXPECT_CALL(wrapper, connect(Ldap::TLS_LDAPS, "[2001:db8::1]:636", "[2001:db8::2]:636")).WillOnce(Return(false));
  EXPECT_EQ(-1, amLdap.openLdapConnection(&config));
}

TEST_F(AmLdapTest, EmptyServerAddressesStayEmpty) {
  LdapConfiguration config = plainConfig();
  config.ldapIpAddress.clear();
  EXPECT_EQ("", connectedAddress(config));
}

// One step of the full StartTLS connection, expected to answer ok, and the trace of its failure.
struct ConnectionStep {
  std::string name;
  std::function<void(MockLdapTlsWrapper&, bool)> expect;
  std::string failureTrace;
};

std::vector<ConnectionStep> startTlsSteps() {
  return {
      {"Connect",
       [](MockLdapTlsWrapper& w, bool ok) {
         EXPECT_CALL(w, connect(Ldap::TLS_STARTTLS, "192.0.2.10:389", "")).WillOnce(Return(ok));
       },
       "Connect failed"},
      {"CaCertificate",
       [](MockLdapTlsWrapper& w, bool ok) { EXPECT_CALL(w, setCaCertificate("/certs/ca.pem")).WillOnce(Return(ok)); },
       "setCaCertificate failed: /certs/ca.pem"},
      {"ClientCertificate",
       [](MockLdapTlsWrapper& w, bool ok) {
         EXPECT_CALL(w, setClientCertificate("/certs/client.pem")).WillOnce(Return(ok));
       },
       "setClientCertificate failed: /certs/client.pem"},
      {"ClientKey",
       [](MockLdapTlsWrapper& w, bool ok) { EXPECT_CALL(w, setClientKey("/certs/client.key")).WillOnce(Return(ok)); },
       "setClientKey failed: /certs/client.key"},
      {"CipherSuite",
       [](MockLdapTlsWrapper& w, bool ok) { EXPECT_CALL(w, setCipherSuite("ALL:!aNULL")).WillOnce(Return(ok)); },
       "setCipherSuite failed"},
      {"RequireCert",
       [](MockLdapTlsWrapper& w, bool ok) {
         EXPECT_CALL(w, setRequireCert(Ldap::REQCERT_DEMAND)).WillOnce(Return(ok));
       },
       "setRequireCert failed"},
      {"NewContext", [](MockLdapTlsWrapper& w, bool ok) { EXPECT_CALL(w, createNewCtx()).WillOnce(Return(ok)); },
       "createNewCtx failed"},
      {"StartTls", [](MockLdapTlsWrapper& w, bool ok) { EXPECT_CALL(w, startTls()).WillOnce(Return(ok)); },
       "startTls failed"},
      {"Referrals",
       [](MockLdapTlsWrapper& w, bool ok) { EXPECT_CALL(w, setLdapOptReferrals(false)).WillOnce(Return(ok)); },
       "setLdapOptReferrals failed"},
      {"ServerControls",
       [](MockLdapTlsWrapper& w, bool ok) { EXPECT_CALL(w, setLdapOptServerControls()).WillOnce(Return(ok)); },
       "setLdapOptServerControls failed"},
      {"Bind",
       [](MockLdapTlsWrapper& w, bool ok) {
         EXPECT_CALL(w, bind("cn=reader,dc=example,dc=com", "s3cret-pass")).WillOnce(Return(ok));
       },
       "Bind failed"},
      {"Ping", [](MockLdapTlsWrapper& w, bool ok) { EXPECT_CALL(w, ping()).WillOnce(Return(ok)); }, "Ping failed"},
  };
}

class AmLdapFailingStepTest : public AmLdapTest, public ::testing::WithParamInterface<std::size_t> {};

// The lookup stops at the failing step with -1 and that step's trace; nothing after it is
// called, the wrapper is not disconnected and the output is empty.
TEST_P(AmLdapFailingStepTest, FailingStepEndsTheLookupWithMinusOne) {
  const std::vector<ConnectionStep> steps = startTlsSteps();
  const std::size_t failing = GetParam();
  const LdapConfiguration config = startTlsConfig();
  {
    InSequence order;
    expectTimeouts();
    for (std::size_t index = 0; index < failing; ++index) steps[index].expect(wrapper, true);
    steps[failing].expect(wrapper, false);
  }
  std::string roles = "stale";
  EXPECT_EQ(-1, amLdap.authorizationLdap(&config, "bob", roles));
  EXPECT_EQ("", roles);
  EXPECT_EQ(Strings({" >> user: bob", "Using TLS", steps[failing].failureTrace, " << result: -1 roles: '"}), traces());
}

INSTANTIATE_TEST_SUITE_P(EveryStep, AmLdapFailingStepTest, ::testing::Range<std::size_t>(0, startTlsSteps().size()),
                         [](const ::testing::TestParamInfo<std::size_t>& info) {
                           return startTlsSteps()[info.param].name;
                         });

TEST_F(AmLdapTest, FailingPlainConnectIsTracedAndNotDisconnected) {
  const LdapConfiguration config = plainConfig();
  expectTimeouts();
  EXPECT_CALL(wrapper, connect(Ldap::TLS_NONE, "192.0.2.10:389", "")).WillOnce(Return(false));
  std::string roles;
  EXPECT_EQ(-1, amLdap.authorizationLdap(&config, "bob", roles));
  EXPECT_EQ(Strings({" >> user: bob", "No TLS", "Connect failed", " << result: -1 roles: '"}), traces());
}

TEST_F(AmLdapTest, FailingCaDirectoryIsTraced) {
  LdapConfiguration config = startTlsConfig();
  config.tlsCaCertificate.clear();
  config.trustCategory.trustCatDirName = "/trust";
  InSequence order;
  expectTimeouts();
  EXPECT_CALL(wrapper, connect(Ldap::TLS_STARTTLS, "192.0.2.10:389", "")).WillOnce(Return(true));
  EXPECT_CALL(wrapper, setCaCertDirectory("/trust")).WillOnce(Return(false));
  EXPECT_EQ(-1, amLdap.openLdapConnection(&config));
  EXPECT_EQ(Strings({"Using TLS", "setCaCertDirectory failed: /trust"}), traces());
}

TEST_F(AmLdapTest, BindPasswordNeverReachesTheLog) {
  LdapConfiguration config = startTlsConfig();
  config.useTls = false;
  InSequence order;
  expectTimeouts();
  EXPECT_CALL(wrapper, connect(Ldap::TLS_NONE, "192.0.2.10:389", "")).WillOnce(Return(true));
  EXPECT_CALL(wrapper, setLdapOptReferrals(false)).WillOnce(Return(true));
  EXPECT_CALL(wrapper, setLdapOptServerControls()).WillOnce(Return(true));
  EXPECT_CALL(wrapper, bind("cn=reader,dc=example,dc=com", "s3cret-pass")).WillOnce(Return(false));
  std::string roles;
  EXPECT_EQ(-1, amLdap.authorizationLdap(&config, "bob", roles));
  ASSERT_FALSE(log().records().empty());
  EXPECT_EQ(0u, log().countContaining("s3cret-pass"));
}

// ---------------------------------------------------------------------------------------------
// Whole lookups

TEST_F(AmLdapTest, PosixGroupsGiveTheGroupNames) {
  const LdapConfiguration config = plainConfig();
  {
    InSequence order;
    expectLookup("bob", kBobsGroups, "cn", {}, {"cn: admin", "cn: ops"});
    EXPECT_CALL(wrapper, disconnect());
  }
  EXPECT_EQ("admin,ops", rolesOfBob(config));
  EXPECT_EQ(Strings({" >> user: bob", "No TLS", " >> user: bob", "got line: cn: admin", "saved: admin",
                     "got line: cn: ops", "saved: ops", " << result: 0 roles: admin,ops'"}),
            tracesWithoutParsing());
}

TEST_F(AmLdapTest, RolesComeSortedByteWiseAndOnce) {
  const LdapConfiguration config = plainConfig();
  {
    InSequence order;
    expectLookup("bob", kBobsGroups, "cn", {},
                 {"cn: ops", "cn: b", "cn: admin", "cn: ops", "cn: B", "cn: b"});
    EXPECT_CALL(wrapper, disconnect());
  }
  EXPECT_EQ("B,admin,b,ops", rolesOfBob(config));
}

TEST_F(AmLdapTest, UserWithoutRolesSucceedsWithEmptyRoles) {
  const LdapConfiguration config = plainConfig();
  {
    InSequence order;
    expectLookup("bob", kBobsGroups, "cn", {}, {});
    EXPECT_CALL(wrapper, disconnect());
  }
  std::string roles = "stale";
  EXPECT_EQ(0, amLdap.authorizationLdap(&config, "bob", roles));
  EXPECT_EQ("", roles);
  EXPECT_EQ(" << result: 0 roles: '", traces().back());
}

TEST_F(AmLdapTest, UnknownUserGivesMinusTwoWithoutExitTraceOrDisconnect) {
  const LdapConfiguration config = plainConfig();
  {
    InSequence order;
    expectPlainConnection();
    expectSearch(kBaseDn, "(uid=ghost)", IsNull(), {});
  }
  std::string roles = "stale";
  EXPECT_EQ(-2, amLdap.authorizationLdap(&config, "ghost", roles));
  EXPECT_EQ("", roles);
  EXPECT_EQ(Strings({" >> user: ghost", "No TLS", " >> user: ghost", "user not found: ghost"}), traces());
}

TEST_F(AmLdapTest, OrbelinRolesFollowTheNodeAndTargetTypes) {
  const LdapConfiguration config = targetBasedConfig("X");
  {
    InSequence order;
    expectLookup("bob", kBobsAccount, kOrbelinRoleAttribute, {"orbelinUserAuthenticationScope: X"},
                 {"orbelinUserAuthorizationScope: X:admin", "orbelinUserAuthorizationScope: Y:admin",
                  "orbelinUserAuthorizationScope: *:oper"});
    // Without a role-aliases base, every kept role is looked up as an alias to discard.
    expectSearch(kBaseDn, "(&(objectClass=orbelinRoleAlias)(role=admin))", IsNull(), {});
    EXPECT_CALL(wrapper, disconnect());
  }
  EXPECT_EQ("admin", rolesOfBob(config));
  const Strings all = traces();
  EXPECT_NE(all.end(), std::find(all.begin(), all.end(), "Authenticationscope Entry: orbelinUserAuthenticationScope: X"));
  EXPECT_NE(all.end(), std::find(all.begin(), all.end(), "Allow Target Type : X"));
}

TEST_F(AmLdapTest, WildcardTargetTypeNeedsTheWildcardScope) {
  const LdapConfiguration config = targetBasedConfig("X");
  {
    InSequence order;
    expectLookup("bob", kBobsAccount, kOrbelinRoleAttribute,
                 {"orbelinUserAuthenticationScope: X", "orbelinUserAuthenticationScope: *"},
                 {"orbelinUserAuthorizationScope: *:oper", "orbelinUserAuthorizationScope: X:admin"});
    expectSearch(kBaseDn, "(&(objectClass=orbelinRoleAlias)(role=oper))", IsNull(), {});
    expectSearch(kBaseDn, "(&(objectClass=orbelinRoleAlias)(role=admin))", IsNull(), {});
    EXPECT_CALL(wrapper, disconnect());
  }
  EXPECT_EQ("admin,oper", rolesOfBob(config));
}

TEST_F(AmLdapTest, OrbelinLookupResolvesAliasesUnderTheirBase) {
  LdapConfiguration config = plainConfig(QivAccessManagement::ORBELIN);
  config.targetBasedAccessControl = QivAccessManagement::LOCKED;
  config.nodeType = "X";
  config.roleAliasesBaseDn = "ou=aliases,dc=example,dc=com";
  {
    InSequence order;
    // Target-based access LOCKED: the node type plays no part and "*:" values are kept.
    expectLookup("bob", kBobsAccount, kOrbelinRoleAttribute, {},
                 {"orbelinUserAuthorizationScope: operator", "orbelinUserAuthorizationScope: *:admin"});
    expectSearch("role=operator,ou=aliases,dc=example,dc=com", "", IsNull(),
                 {"objectClass: orbelinRoleAlias", "role: operator", "orbelinUserAuthorizationScope: reader",
                  "orbelinUserAuthorizationScope: writer"});
    expectSearch("role=admin,ou=aliases,dc=example,dc=com", "", IsNull(), {});
    EXPECT_CALL(wrapper, disconnect());
  }
  EXPECT_EQ("admin,reader,writer", rolesOfBob(config));
}

TEST_F(AmLdapTest, FlexibleFilterAndTypeSelectTheRoles) {
  LdapConfiguration config = plainConfig(QivAccessManagement::FLEXIBLE);
  config.filter = "(&(objectClass=person)(uid=<UID>))";
  config.type = "memberOf";
  {
    InSequence order;
    expectLookup("bob", "(&(objectClass=person)(uid=bob))", "memberOf", {}, {"memberOf: audit"});
    EXPECT_CALL(wrapper, disconnect());
  }
  EXPECT_EQ("audit", rolesOfBob(config));
}

TEST_F(AmLdapTest, LookupHoldsItsMutex) {
  const LdapConfiguration config = plainConfig();
  bool lockedDuringLookup = false;
  expectTimeouts();
  EXPECT_CALL(wrapper, connect(Ldap::TLS_NONE, "192.0.2.10:389", "")).WillOnce(Invoke([&](auto, auto, auto) {
    lockedDuringLookup = !amLdap.mutex.tryLock();
    if (!lockedDuringLookup) amLdap.mutex.unlock();
    return false;
  }));
  std::string roles;
  EXPECT_EQ(-1, amLdap.authorizationLdap(&config, "bob", roles));
  EXPECT_TRUE(lockedDuringLookup);
}

TEST_F(AmLdapTest, ShortScopeLineThrowsClosesTheSessionAndReleasesTheMutex) {
  const LdapConfiguration config = plainConfig();
  {
    InSequence order;
    expectPlainConnection();
    expectUserFound("bob");
    expectSearch(kBaseDn, kBobsGroups, attributes(kScopeAttribute), {"orbelinUserAuthenticationScope: X", "scope: X"});
    EXPECT_CALL(wrapper, disconnect());
  }
  std::string roles;
  try {
    amLdap.authorizationLdap(&config, "bob", roles);
    ADD_FAILURE() << "no exception";
  } catch (const std::out_of_range& e) {
    EXPECT_EQ(0, std::string(e.what()).rfind("basic_string::substr", 0)) << e.what();
  }
  ASSERT_TRUE(amLdap.mutex.tryLock());
  amLdap.mutex.unlock();

  // The next lookup starts afresh.
  {
    InSequence order;
    expectLookup("bob", kBobsGroups, "cn", {"orbelinUserAuthenticationScope: "}, {"cn: admin"});
    EXPECT_CALL(wrapper, disconnect());
  }
  EXPECT_EQ(0, amLdap.authorizationLdap(&config, "bob", roles));
  EXPECT_EQ("admin", roles);
  EXPECT_EQ(Lines({""}), amLdap.targetTypes);
}

TEST_F(AmLdapTest, LookupStartsWithEmptyLists) {
  LdapConfiguration config = plainConfig();
  amLdap.roles = {"old"};
  amLdap.nodeTypes = {"old"};
  amLdap.targetTypes = {"old"};
  expectTimeouts();
  EXPECT_CALL(wrapper, connect(Ldap::TLS_NONE, "192.0.2.10:389", "")).WillOnce(Return(false));
  std::string roles;
  EXPECT_EQ(-1, amLdap.authorizationLdap(&config, "bob", roles));
  EXPECT_TRUE(amLdap.roles.empty());
  EXPECT_TRUE(amLdap.nodeTypes.empty());
  EXPECT_TRUE(amLdap.targetTypes.empty());
}

TEST_F(AmLdapTest, LookupFillsTheNodeTypesOnlyForTargetBasedAccess) {
  LdapConfiguration config = targetBasedConfig("X::Y");
  EXPECT_CALL(wrapper, setSynchronousTimeout(12)).Times(2).WillRepeatedly(Return(true));
  EXPECT_CALL(wrapper, setNetworkTimeout(11)).Times(2).WillRepeatedly(Return(true));
  EXPECT_CALL(wrapper, connect(Ldap::TLS_NONE, "192.0.2.10:389", "")).Times(2).WillRepeatedly(Return(false));
  std::string roles;
  amLdap.authorizationLdap(&config, "bob", roles);
  EXPECT_EQ(Lines({"X", "Y"}), amLdap.nodeTypes);
  config.targetBasedAccessControl = QivAccessManagement::LOCKED;
  amLdap.authorizationLdap(&config, "bob", roles);
  EXPECT_TRUE(amLdap.nodeTypes.empty());
}

// ---------------------------------------------------------------------------------------------
// The steps one by one

TEST_F(AmLdapTest, UserExistSearchesTheUidWithAllAttributes) {
  const LdapConfiguration config = plainConfig();
  expectUserFound("bob");
  EXPECT_TRUE(amLdap.userExist(&config, "bob"));
  expectSearch(kBaseDn, "(uid=eve)", IsNull(), {});
  EXPECT_FALSE(amLdap.userExist(&config, "eve"));
  EXPECT_EQ(Strings({" >> user: bob", " >> user: eve", "user not found: eve"}), traces());
}

TEST_F(AmLdapTest, FetchRolesKeepsTrimmedValuesOfTheRoleAttribute) {
  const LdapConfiguration config = plainConfig();
  amLdap.prepareFilter(&config, "bob");
  EXPECT_TRUE(amLdap.fetchRoles(&config, {"cn: \tadmin \n", "cnx: other", "objectClass: posixGroup", "cn:ops",
                                          "cn: ab:c", "cn:  "}));
  EXPECT_EQ(Lines({"admin", "ops"}), amLdap.roles);
}

TEST_F(AmLdapTest, FetchRolesAnswersWhetherThereWereLines) {
  const LdapConfiguration config = plainConfig();
  amLdap.prepareFilter(&config, "bob");
  EXPECT_FALSE(amLdap.fetchRoles(&config, {}));
  EXPECT_TRUE(amLdap.fetchRoles(&config, {"objectClass: top"}));
  EXPECT_TRUE(amLdap.roles.empty());
}

TEST_F(AmLdapTest, PrepareFilterByFilterType) {
  LdapConfiguration config = plainConfig(QivAccessManagement::POSIX_GROUPS);
  EXPECT_EQ("(&(objectClass=posixGroup)(memberUid=bob))", preparedFilter(config, "bob"));
  EXPECT_EQ("cn", amLdap.roleAttribute);

  config.filterType = QivAccessManagement::ORBELIN;
  EXPECT_EQ("(&(objectClass=posixAccount)(uid=bob))", preparedFilter(config, "bob"));
  EXPECT_EQ("orbelinUserAuthorizationScope", amLdap.roleAttribute);

  config.filterType = QivAccessManagement::FLEXIBLE;
  config.filter = "(uid=<UID>)";
  config.type = "memberOf";
  EXPECT_EQ("(uid=bob)", preparedFilter(config, "bob"));
  EXPECT_EQ("memberOf", amLdap.roleAttribute);

  // Other types keep what the last lookup set.
  config.filterType = QivAccessManagement::FILTER_TYPE_NOT_SET;
  EXPECT_EQ("(uid=bob)", preparedFilter(config, "eve"));
  EXPECT_EQ("memberOf", amLdap.roleAttribute);
  config.filterType = static_cast<QivAccessManagement::FilterType>(9);
  EXPECT_EQ("(uid=bob)", preparedFilter(config, "eve"));
}

TEST_F(AmLdapTest, FreshObjectKeepsAnEmptyFilterForUnsetType) {
  const LdapConfiguration config = plainConfig(QivAccessManagement::FILTER_TYPE_NOT_SET);
  EXPECT_EQ("", preparedFilter(config, "bob"));
  EXPECT_EQ("", amLdap.roleAttribute);
}

TEST_F(AmLdapTest, FlexibleFilterPrefersTheQuotePairOverUid) {
  EXPECT_EQ("(&(cn=<UID>)(uid=bob)(sn=\"\"))", flexibleFilter("(&(cn=<UID>)(uid=\"\")(sn=\"\"))", "bob"));
  EXPECT_EQ("(|(uid=bob)(cn=<UID>))", flexibleFilter("(|(uid=<UID>)(cn=<UID>))", "bob"));
  EXPECT_EQ("(objectClass=person)", flexibleFilter("(objectClass=person)", "bob"));
}

TEST_F(AmLdapTest, GetNodeTypeOnlyForTargetBasedOrbelinFilter) {
  LdapConfiguration config = targetBasedConfig("a:b");
  std::string out = "stale";
  amLdap.getNodeType(out, &config);
  EXPECT_EQ("a:b", out);

  config.targetBasedAccessControl = QivAccessManagement::LOCKED;
  amLdap.getNodeType(out, &config);
  EXPECT_EQ("", out);

  out = "stale";
  config.targetBasedAccessControl = QivAccessManagement::UNLOCKED;
  config.filterType = QivAccessManagement::FLEXIBLE;
  amLdap.getNodeType(out, &config);
  EXPECT_EQ("", out);
}

TEST_F(AmLdapTest, CreateNodeTypeListSkipsEmptyPieces) {
  const LdapConfiguration config = plainConfig(QivAccessManagement::ORBELIN);
  amLdap.createNodeTypeList("a::b:", &config);
  EXPECT_EQ(Lines({"a", "b"}), amLdap.nodeTypes);
  amLdap.createNodeTypeList(":c", &config);
  EXPECT_EQ(Lines({"a", "b", "c"}), amLdap.nodeTypes);
  amLdap.createNodeTypeList(":", &config);
  EXPECT_EQ(Lines({"a", "b", "c"}), amLdap.nodeTypes);
}

TEST_F(AmLdapTest, TrimRemovesBlanksTabsAndLineFeedsAtBothEnds) {
  EXPECT_EQ("a b", amLdap.trim(" \t a b\n \t"));
  EXPECT_EQ("a", amLdap.trim("a"));
  EXPECT_EQ("", amLdap.trim(" \t\n "));
  EXPECT_EQ("", amLdap.trim(""));
  EXPECT_EQ("a\r", amLdap.trim(" a\r"));
}

// ---------------------------------------------------------------------------------------------
// parseRoleLine's rules

TEST_F(AmLdapTest, OutsideFilterTypeTwoOnlyValuesWithoutColonOrColonAtIndexOnePass) {
  const LdapConfiguration config = plainConfig(QivAccessManagement::POSIX_GROUPS);
  expectParsed(config, {{"admin", "admin"}, {"*", "*"}, {"X:admin", "X:admin"}, {"X:a:b", "X:a:b"}, {"XY:admin", ""},
                        {":admin", ""}});
  const Strings all = traces();
  ASSERT_LE(2u, all.size());
  EXPECT_EQ(Strings({" >> in: admin", " << out: admin"}), Strings(all.begin(), all.begin() + 2));
}

TEST_F(AmLdapTest, OutsideFilterTypeTwoNodeTypesChangeNothing) {
  const LdapConfiguration config = plainConfig(QivAccessManagement::FLEXIBLE);
  amLdap.createNodeTypeList("XY", &config);
  amLdap.targetTypes = {"XY"};
  expectParsed(config, {{"admin", "admin"}, {"X:admin", "X:admin"}, {"XY:admin", ""}});
}

TEST_F(AmLdapTest, FilterTypeTwoWithoutNodeTypesKeepsPlainAndWildcardValues) {
  const LdapConfiguration config = plainConfig(QivAccessManagement::ORBELIN);
  expectParsed(config, {{"admin", "admin"}, {"*", ""}, {"*:admin", "admin"}, {"*:a:b", "a:b"}, {"X:admin", ""},
                        {"**:admin", ""}});
}

TEST_F(AmLdapTest, FilterTypeTwoWithNodeTypesMatchesNodeAndTargetType) {
  LdapConfiguration config = plainConfig(QivAccessManagement::ORBELIN);
  amLdap.createNodeTypeList("X:Z", &config);
  amLdap.targetTypes = {"Z", "*"};
  // A node type not in the scope, the second node type in the scope, the wildcard scope, neither
  // node type, a value cut at the first colon.
  expectParsed(config, {{"X:admin", ""}, {"Z:ops", "ops"}, {"*:any", "any"}, {"Y:admin", ""}, {"Z:a:b", "a:b"},
                        {"XZ:admin", ""}});
  const Strings all = traces();
  EXPECT_EQ(2, std::count(all.begin(), all.end(), "Allow Target Type : Z"));
  EXPECT_EQ(1, std::count(all.begin(), all.end(), "Allow Target Type : *"));

  amLdap.targetTypes = {"X"};
  expectParsed(config, {{"X:admin", "admin"}, {"*:any", ""}});
}

TEST_F(AmLdapTest, FilterTypeTwoWithNodeTypesKeepsPlainValuesOnlyInVersionOne) {
  LdapConfiguration config = plainConfig(QivAccessManagement::ORBELIN);
  amLdap.createNodeTypeList("X", &config);
  config.orbFiltVersion = 1;
  expectParsed(config, {{"admin", "admin"}, {"*", "*"}});
  config.orbFiltVersion = 2;
  expectParsed(config, {{"admin", ""}});
}

// ---------------------------------------------------------------------------------------------
// Aliases

TEST_F(AmLdapTest, ResolveAliasesVisitsOnlyTheInitialRolesAndSkipsTheWildcard) {
  const LdapConfiguration config = plainConfig(QivAccessManagement::ORBELIN);
  amLdap.prepareFilter(&config, "bob");
  amLdap.roles = {"operator", "*", "admin", "empty"};
  const std::string base = "ou=aliases,dc=example,dc=com";
  {
    InSequence order;
    expectSearch("role=operator," + base, "", IsNull(),
                 {"role: operator", "orbelinUserAuthorizationScope: reader", "orbelinUserAuthorizationScope: admin"});
    expectSearch("role=admin," + base, "", IsNull(), {});
    // An alias entry without role values still counts as an alias.
    expectSearch("role=empty," + base, "", IsNull(), {"objectClass: orbelinRoleAlias"});
  }
  amLdap.resolveAliases(base, &config);
  EXPECT_EQ(Lines({"*", "admin", "reader", "admin"}), amLdap.roles);
}

TEST_F(AmLdapTest, DiscardAliasesRemovesRolesThatAreAliasEntries) {
  const LdapConfiguration config = plainConfig(QivAccessManagement::ORBELIN);
  amLdap.roles = {"admin", "operator", "ops"};
  {
    InSequence order;
    expectSearch(kBaseDn, "(&(objectClass=orbelinRoleAlias)(role=admin))", IsNull(), {});
    expectSearch(kBaseDn, "(&(objectClass=orbelinRoleAlias)(role=operator))", IsNull(), {"role: operator"});
    expectSearch(kBaseDn, "(&(objectClass=orbelinRoleAlias)(role=ops))", IsNull(), {"objectClass: orbelinRoleAlias"});
  }
  amLdap.discardAliases(&config);
  EXPECT_EQ(Lines({"admin"}), amLdap.roles);
}

// ---------------------------------------------------------------------------------------------
// No name widens a search

TEST_F(AmLdapTest, FilterTemplatesEscapeTheUserName) {
  LdapConfiguration config = plainConfig(QivAccessManagement::POSIX_GROUPS);
  EXPECT_EQ("(&(objectClass=posixGroup)(memberUid=\\2a))", preparedFilter(config, "*"));
  EXPECT_EQ("(&(objectClass=posixGroup)(memberUid=a\\2a\\29\\28uid=\\2a))", preparedFilter(config, "a*)(uid=*"));

  config.filterType = QivAccessManagement::ORBELIN;
  EXPECT_EQ("(&(objectClass=posixAccount)(uid=\\2a))", preparedFilter(config, "*"));
  EXPECT_EQ("(&(objectClass=posixAccount)(uid=a\\2a\\29\\28uid=\\2a))", preparedFilter(config, "a*)(uid=*"));
}

TEST_F(AmLdapTest, FlexibleFilterEscapesTheUserName) {
  EXPECT_EQ("(uid=\\2a)", flexibleFilter("(uid=<UID>)", "*"));
  EXPECT_EQ("(uid=a\\2a\\29\\28uid=\\2a)", flexibleFilter("(uid=\"\")", "a*)(uid=*"));
  EXPECT_EQ("(uid=back\\5cslash)", flexibleFilter("(uid=\"\")", "back\\slash"));
}

TEST_F(AmLdapTest, WildcardUserIsLookedUpAsItself) {
  const LdapConfiguration config = plainConfig();
  {
    InSequence order;
    expectPlainConnection();
    expectSearch(kBaseDn, "(uid=\\2a)", IsNull(), {});
  }
  std::string roles;
  EXPECT_EQ(-2, amLdap.authorizationLdap(&config, "*", roles));
  EXPECT_EQ("", roles);
  EXPECT_EQ("user not found: *", traces().back());
}

TEST_F(AmLdapTest, InjectedUserNameIsLookedUpAsItself) {
  const LdapConfiguration config = plainConfig();
  expectSearch(kBaseDn, "(uid=a\\2a\\29\\28uid=\\2a)", IsNull(), {});
  EXPECT_FALSE(amLdap.userExist(&config, "a*)(uid=*"));
}

TEST_F(AmLdapTest, DiscardAliasesEscapesTheRole) {
  const LdapConfiguration config = plainConfig(QivAccessManagement::ORBELIN);
  amLdap.roles = {"a*)(role=*"};
  expectSearch(kBaseDn, "(&(objectClass=orbelinRoleAlias)(role=a\\2a\\29\\28role=\\2a))", IsNull(), {});
  amLdap.discardAliases(&config);
  EXPECT_EQ(Lines({"a*)(role=*"}), amLdap.roles);
}

TEST_F(AmLdapTest, ResolveAliasesEscapesTheRoleInTheDn) {
  const LdapConfiguration config = plainConfig(QivAccessManagement::ORBELIN);
  amLdap.prepareFilter(&config, "bob");
  amLdap.roles = {"x,ou=other", " lead#+\"\\<>; ", "#hash"};
  const std::string base = "ou=aliases,dc=example,dc=com";
  {
    InSequence order;
    expectSearch("role=x\\,ou=other," + base, "", IsNull(), {});
    expectSearch("role=\\ lead#\\+\\\"\\\\\\<\\>\\;\\ ," + base, "", IsNull(), {});
    expectSearch("role=\\#hash," + base, "", IsNull(), {});
  }
  amLdap.resolveAliases(base, &config);
  EXPECT_EQ(3u, amLdap.roles.size());
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// A directory that does not answer

namespace {

Ldap::OperationOutcome unanswered(const std::string& server) {
  Ldap::OperationOutcome outcome;
  outcome.kind = Ldap::OperationOutcome::NO_ANSWER;
  outcome.server = server;
  outcome.reason = "Timed out";
  return outcome;
}

}  // namespace

// The level-3 lines of the log so far, as "level text".
class AmLdapSilenceTest : public AmLdapTest {
 protected:
  Strings errors() {
    Strings texts;
    for (const Framework::LogRecord& record : log().records()) {
      if (record.level < kTrace) texts.push_back(std::to_string(record.level) + " " + record.text);
    }
    return texts;
  }

  // A search answered as the wrapper would when the server said nothing.
  void expectUnansweredSearch(const std::string& base, const std::string& filter,
                              const Matcher<const Lines*>& attributeList, const std::string& server) {
    EXPECT_CALL(wrapper, search(base, Ldap::SCOPE_SUBTREE, filter, attributeList))
        .WillOnce(Invoke([this, server](const std::string&, Ldap::ScopeT, const std::string&, const Lines*) {
          wrapper.outcome = unanswered(server);
          return Lines();
        }));
  }

  void expectUnansweredPing(const std::string& server) {
    EXPECT_CALL(wrapper, ping()).WillOnce(InvokeWithoutArgs([this, server]() {
      wrapper.outcome = unanswered(server);
      return false;
    }));
  }

  LdapConfiguration withFallback() {
    LdapConfiguration config = plainConfig();
    config.fallbackLdapIpAddress = "192.0.2.11";
    return config;
  }
};

TEST_F(AmLdapSilenceTest, UnansweredUserSearchIsAFailureNotAnUnknownUser) {
  const LdapConfiguration config = plainConfig();
  {
    InSequence order;
    expectPlainConnection();
    expectUnansweredSearch(kBaseDn, "(uid=bob)", IsNull(), "192.0.2.10:389");
    EXPECT_CALL(wrapper, disconnect());
  }
  std::string roles = "stale";
  EXPECT_EQ(-1, amLdap.authorizationLdap(&config, "bob", roles));
  EXPECT_EQ("", roles);
  EXPECT_EQ(Strings({"3 No answer from LDAP server 192.0.2.10:389: Timed out"}), errors());
}

TEST_F(AmLdapSilenceTest, UnansweredAliasSearchEndsTheLookup) {
  LdapConfiguration config = plainConfig(QivAccessManagement::ORBELIN);
  config.roleAliasesBaseDn = "ou=roleAliases,dc=example,dc=com";
  {
    InSequence order;
    expectLookup("bob", kBobsAccount, kOrbelinRoleAttribute, {},
                 {"orbelinUserAuthorizationScope: admin", "orbelinUserAuthorizationScope: ops"});
    expectUnansweredSearch("role=admin,ou=roleAliases,dc=example,dc=com", "", IsNull(), "192.0.2.10:389");
    EXPECT_CALL(wrapper, disconnect());
  }
  std::string roles;
  EXPECT_EQ(-1, amLdap.authorizationLdap(&config, "bob", roles));
  EXPECT_EQ("", roles);
  EXPECT_EQ(Strings({"3 No answer from LDAP server 192.0.2.10:389: Timed out"}), errors());
  ASSERT_TRUE(amLdap.mutex.tryLock());
  amLdap.mutex.unlock();
}

TEST_F(AmLdapSilenceTest, EmptyAnswerStaysAnUnknownUser) {
  const LdapConfiguration config = plainConfig();
  {
    InSequence order;
    expectPlainConnection();
    expectSearch(kBaseDn, "(uid=bob)", IsNull(), {});
  }
  std::string roles;
  EXPECT_EQ(-2, amLdap.authorizationLdap(&config, "bob", roles));
  EXPECT_EQ(Strings(), errors());
}

TEST_F(AmLdapSilenceTest, PrimaryThatStopsAnsweringGivesWayToTheFallbackAlone) {
  const LdapConfiguration config = withFallback();
  {
    InSequence order;
    expectTimeouts();
    EXPECT_CALL(wrapper, connect(Ldap::TLS_NONE, "192.0.2.10:389", "192.0.2.11:389")).WillOnce(Return(true));
    EXPECT_CALL(wrapper, setLdapOptReferrals(true)).WillOnce(Return(true));
    expectUnansweredPing("192.0.2.10:389");
    expectTimeouts();
    EXPECT_CALL(wrapper, connect(Ldap::TLS_NONE, "192.0.2.11:389", "")).WillOnce(InvokeWithoutArgs([this]() {
      wrapper.outcome = Ldap::OperationOutcome();
      return true;
    }));
    EXPECT_CALL(wrapper, setLdapOptReferrals(true)).WillOnce(Return(true));
    EXPECT_CALL(wrapper, ping()).WillOnce(Return(true));
    expectUserFound("bob");
    expectSearch(kBaseDn, kBobsGroups, attributes(kScopeAttribute), {});
    expectSearch(kBaseDn, kBobsGroups, attributes("cn"), {"cn: ops"});
    EXPECT_CALL(wrapper, disconnect());
  }
  std::string roles;
  EXPECT_EQ(0, amLdap.authorizationLdap(&config, "bob", roles));
  EXPECT_EQ("ops", roles);
  EXPECT_EQ(Strings({"3 No answer from LDAP server 192.0.2.10:389: Timed out",
                     "4 LDAP server 192.0.2.10:389 did not answer, asking 192.0.2.11:389"}),
            errors());
}

TEST_F(AmLdapSilenceTest, SilenceInTheMiddleOfTheLookupAlsoGivesWayToTheFallback) {
  const LdapConfiguration config = withFallback();
  // Both servers answer the connection and the user, then fall silent on the scope search.
  std::vector<std::string> connected;
  EXPECT_CALL(wrapper, setSynchronousTimeout(12)).Times(2).WillRepeatedly(Return(true));
  EXPECT_CALL(wrapper, setNetworkTimeout(11)).Times(2).WillRepeatedly(Return(true));
  EXPECT_CALL(wrapper, connect(Ldap::TLS_NONE, testing::_, testing::_))
      .Times(2)
      .WillRepeatedly(
          Invoke([this, &connected](Ldap::TlsModeConnection, const std::string& host, const std::string& fallback) {
            // A new session starts with nothing unanswered, as the wrapper's does.
            wrapper.outcome = Ldap::OperationOutcome();
            connected.push_back(host + "," + fallback);
            return true;
          }));
  EXPECT_CALL(wrapper, setLdapOptReferrals(true)).Times(2).WillRepeatedly(Return(true));
  EXPECT_CALL(wrapper, ping()).Times(2).WillRepeatedly(Return(true));
  EXPECT_CALL(wrapper, search(kBaseDn, Ldap::SCOPE_SUBTREE, "(uid=bob)", IsNull()))
      .Times(2)
      .WillRepeatedly(Return(Lines{"uid: bob"}));
  EXPECT_CALL(wrapper, search(kBaseDn, Ldap::SCOPE_SUBTREE, kBobsGroups, attributes(kScopeAttribute)))
      .Times(2)
      .WillRepeatedly(Invoke([this, &connected](const std::string&, Ldap::ScopeT, const std::string&, const Lines*) {
        wrapper.outcome = unanswered(connected.back().substr(0, connected.back().find(',')));
        return Lines();
      }));
  EXPECT_CALL(wrapper, disconnect()).Times(2);
  std::string roles;
  // The fallback is tried once; its silence ends the query.
  EXPECT_EQ(-1, amLdap.authorizationLdap(&config, "bob", roles));
  EXPECT_EQ(Strings({"192.0.2.10:389,192.0.2.11:389", "192.0.2.11:389,"}), connected);
  EXPECT_EQ(Strings({"3 No answer from LDAP server 192.0.2.10:389: Timed out",
                     "4 LDAP server 192.0.2.10:389 did not answer, asking 192.0.2.11:389",
                     "3 No answer from LDAP server 192.0.2.11:389: Timed out"}),
            errors());
}

TEST_F(AmLdapSilenceTest, RefusalOnThePrimaryIsNotRetried) {
  LdapConfiguration config = withFallback();
  config.bindDn = "cn=reader,dc=example,dc=com";
  config.bindPassword = "wrong";
  {
    InSequence order;
    expectTimeouts();
    EXPECT_CALL(wrapper, connect(Ldap::TLS_NONE, "192.0.2.10:389", "192.0.2.11:389")).WillOnce(Return(true));
    EXPECT_CALL(wrapper, setLdapOptReferrals(true)).WillOnce(Return(true));
    // The server answered: invalid credentials.
    EXPECT_CALL(wrapper, bind("cn=reader,dc=example,dc=com", "wrong")).WillOnce(Return(false));
  }
  std::string roles;
  EXPECT_EQ(-1, amLdap.authorizationLdap(&config, "bob", roles));
  EXPECT_EQ(Strings(), errors());
}

TEST_F(AmLdapSilenceTest, SilenceOfTheFallbackThatLibldapChoseIsNotRetried) {
  const LdapConfiguration config = withFallback();
  {
    InSequence order;
    expectTimeouts();
    EXPECT_CALL(wrapper, connect(Ldap::TLS_NONE, "192.0.2.10:389", "192.0.2.11:389")).WillOnce(Return(true));
    EXPECT_CALL(wrapper, setLdapOptReferrals(true)).WillOnce(Return(true));
    expectUnansweredPing("192.0.2.11:389");
  }
  std::string roles;
  EXPECT_EQ(-1, amLdap.authorizationLdap(&config, "bob", roles));
  EXPECT_EQ(Strings({"3 No answer from LDAP server 192.0.2.11:389: Timed out"}), errors());
}
