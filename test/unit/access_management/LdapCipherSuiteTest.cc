#include "LdapTlsWrapper.h"

#include <ldap.h>

#include <list>
#include <memory>
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

const char kDefaultFilter[] = "ALL:!aNULL:!eNULL:@STRENGTH";
// The server's certificate has an EC key; its only suite is
// TLS_ECDHE_ECDSA_AES_128_GCM_SHA256 under TLS 1.2.
const char kServerPriority[] = "NORMAL:-VERS-ALL:+VERS-TLS1.2:-KX-ALL:+ECDHE-ECDSA:-CIPHER-ALL:+AES-128-GCM:-MAC-ALL:+AEAD";
const char kServersSuite[] = "ECDHE-ECDSA-AES128-GCM-SHA256";
const char kOtherSuite[] = "ECDHE-ECDSA-AES256-GCM-SHA384";

// The wrapper with the framework's log captured.
class LdapCipherSuiteTest : public FrameworkTestBase {
 protected:
  // Records below trace level, as "level method: text".
  LdapTlsWrapper wrapper;
};

// Against a slapd that accepts one suite only.
class LdapCipherSuiteDirectoryTest : public LdapCipherSuiteTest {
 protected:
  void SetUp() override {
    SlapdInstance::Options options;
    options.cipherSuite = kServerPriority;
    try {
      directory.reset(new SlapdInstance(options));
    } catch (const std::exception& e) {
      FAIL() << e.what();
    }
    log().clear();
  }

  // Our session goes before the server does.
  void TearDown() override { wrapper.freeLdapHandle(false); }

  // Connected in mode with filter as the cipher suite, trusting the server's CA and demanding its
  // certificate; only the TLS handshake is left.
  void connectWith(Ldap::TlsModeConnection mode, const std::string& filter) {
    const std::string address = mode == Ldap::TLS_LDAPS ? directory->ldapsAddress() : directory->plainAddress();
    ASSERT_TRUE(wrapper.connect(mode, address, ""));
    ASSERT_TRUE(wrapper.setCaCertificate(directory->caFile()));
    ASSERT_TRUE(wrapper.setRequireCert(Ldap::REQCERT_DEMAND));
    ASSERT_TRUE(wrapper.setCipherSuite(filter));
    ASSERT_TRUE(wrapper.createNewCtx());
  }

  // What a search finds of the directory's base entry.
  Lines readBase() {
    const Lines attributes{"dc"};
    return wrapper.search(SlapdInstance::baseDn(), Ldap::SCOPE_BASE, "", &attributes);
  }

  std::unique_ptr<SlapdInstance> directory;
};

TEST_F(LdapCipherSuiteDirectoryTest, LdapsWithAFilterOfTheServersSuiteConnects) {
  connectWith(Ldap::TLS_LDAPS, kServersSuite);
  EXPECT_TRUE(wrapper.ping());
  EXPECT_TRUE(wrapper.bind(SlapdInstance::readerDn(), SlapdInstance::readerPassword()));
  EXPECT_EQ(Lines({"dc: example"}), readBase());
  EXPECT_EQ(Strings(), logLines());
}

TEST_F(LdapCipherSuiteDirectoryTest, LdapsWithTheDefaultFilterConnects) {
  connectWith(Ldap::TLS_LDAPS, kDefaultFilter);
  EXPECT_TRUE(wrapper.bind(SlapdInstance::readerDn(), SlapdInstance::readerPassword()));
  EXPECT_EQ(Lines({"dc: example"}), readBase());
}

TEST_F(LdapCipherSuiteDirectoryTest, LdapsWithAFilterWithoutTheServersSuiteCannotConnect) {
  connectWith(Ldap::TLS_LDAPS, kOtherSuite);
  EXPECT_FALSE(wrapper.ping());
  EXPECT_FALSE(wrapper.bind(SlapdInstance::readerDn(), SlapdInstance::readerPassword()));
  EXPECT_TRUE(readBase().empty());
}

TEST_F(LdapCipherSuiteDirectoryTest, StartTlsFollowsTheFilterToo) {
  connectWith(Ldap::TLS_STARTTLS, kServersSuite);
  EXPECT_TRUE(wrapper.startTls());
  EXPECT_TRUE(wrapper.bind(SlapdInstance::readerDn(), SlapdInstance::readerPassword()));
  EXPECT_EQ(Lines({"dc: example"}), readBase());

  connectWith(Ldap::TLS_STARTTLS, kOtherSuite);
  log().clear();
  EXPECT_FALSE(wrapper.startTls());
  EXPECT_EQ(Strings({"3 startTls: Can't start starttls for connection : " + std::string(ldap_err2string(LDAP_CONNECT_ERROR))}),
            logLines());
}

// A filter that setCipherSuite refuses on a handle, and the line it logs.
struct RefusedFilter {
  const char* filter;
  const char* line;
};

std::ostream& operator<<(std::ostream& out, const RefusedFilter& refused) { return out << refused.filter; }

class LdapCipherSuiteRefusalTest : public LdapCipherSuiteTest, public ::testing::WithParamInterface<RefusedFilter> {};

TEST_P(LdapCipherSuiteRefusalTest, FilterIsRefused) {
  ASSERT_TRUE(wrapper.connect(Ldap::TLS_LDAPS, "127.0.0.1:636", ""));
  log().clear();
  EXPECT_FALSE(wrapper.setCipherSuite(GetParam().filter));
  EXPECT_EQ(Strings({GetParam().line}), logLines());
}

INSTANTIATE_TEST_SUITE_P(
    ThatAllowsOnlyNullOrAnonymousSuites, LdapCipherSuiteRefusalTest,
    ::testing::Values(
        RefusedFilter{"eNULL", "3 setCipherSuite: Couldn't set cipher suite (eNULL): no cipher suite usable with GnuTLS"},
        RefusedFilter{"aNULL", "3 setCipherSuite: Couldn't set cipher suite (aNULL): no cipher suite usable with GnuTLS"}));

INSTANTIATE_TEST_SUITE_P(
    OpenSslCannotRead, LdapCipherSuiteRefusalTest,
    ::testing::Values(RefusedFilter{"!ALL", "3 setCipherSuite: Couldn't set cipher suite (!ALL): no cipher match"},
                      RefusedFilter{"garbage", "3 setCipherSuite: Couldn't set cipher suite (garbage): no cipher match"}));

TEST_F(LdapCipherSuiteTest, LibldapIsHandedThePriorityStringOfTheFilter) {
  const LibldapDefaults saved;
  ASSERT_TRUE(wrapper.setCipherSuite("ECDHE-RSA-AES128-GCM-SHA256"));
  EXPECT_EQ("NORMAL:-VERS-ALL:+VERS-TLS1.3:+VERS-TLS1.2:-KX-ALL:+ECDHE-RSA:-CIPHER-ALL:+AES-128-GCM:-MAC-ALL:+AEAD",
            LibldapDefaults::text(LDAP_OPT_X_TLS_CIPHER_SUITE));
}

TEST_F(LdapCipherSuiteTest, EachFilterGivesItsOwnPriorityStringWhenFiltersAlternate) {
  const LibldapDefaults saved;
  const std::string gcm128 = "NORMAL:-VERS-ALL:+VERS-TLS1.3:+VERS-TLS1.2:-KX-ALL:+ECDHE-RSA:-CIPHER-ALL:+AES-128-GCM:-MAC-ALL:+AEAD";
  ASSERT_TRUE(wrapper.setCipherSuite("ECDHE-RSA-AES128-GCM-SHA256"));
  EXPECT_EQ(gcm128, LibldapDefaults::text(LDAP_OPT_X_TLS_CIPHER_SUITE));
  ASSERT_TRUE(wrapper.setCipherSuite("ECDHE-RSA-AES256-GCM-SHA384"));
  const std::string gcm256 = LibldapDefaults::text(LDAP_OPT_X_TLS_CIPHER_SUITE);
  EXPECT_NE(gcm128, gcm256);
  EXPECT_NE(std::string::npos, gcm256.find("+AES-256-GCM"));
  // A refused filter between two good ones is refused each time and hands libldap nothing.
  log().clear();
  EXPECT_FALSE(wrapper.setCipherSuite("eNULL"));
  EXPECT_FALSE(wrapper.setCipherSuite("eNULL"));
  EXPECT_EQ(2u, log().count(3, "Couldn't set cipher suite (eNULL): no cipher suite usable with GnuTLS"));
  EXPECT_EQ(gcm256, LibldapDefaults::text(LDAP_OPT_X_TLS_CIPHER_SUITE));
  ASSERT_TRUE(wrapper.setCipherSuite("ECDHE-RSA-AES128-GCM-SHA256"));
  ASSERT_TRUE(wrapper.setCipherSuite("ECDHE-RSA-AES128-GCM-SHA256"));
  EXPECT_EQ(gcm128, LibldapDefaults::text(LDAP_OPT_X_TLS_CIPHER_SUITE));
}

TEST_F(LdapCipherSuiteTest, TlsContextIsBuiltFromTheTranslatedFilter) {
  ASSERT_TRUE(wrapper.connect(Ldap::TLS_LDAPS, "127.0.0.1:636", ""));
  ASSERT_TRUE(wrapper.setCipherSuite("ECDHE-RSA-AES128-GCM-SHA256"));
  EXPECT_TRUE(wrapper.createNewCtx());
  EXPECT_EQ(Strings(), logLines());
}

// Why the wrapper translates: Debian's libldap cannot build a TLS context from the filter itself.
TEST_F(LdapCipherSuiteTest, LibldapRefusesTheFilterAsItIs) {
  LDAP* ld = nullptr;
  ASSERT_EQ(LDAP_SUCCESS, ldap_initialize(&ld, "ldaps://127.0.0.1:636"));
  const std::unique_ptr<LDAP, void (*)(LDAP*)> handle(ld, [](LDAP* session) { ldap_unbind_ext_s(session, nullptr, nullptr); });
  ASSERT_EQ(LDAP_OPT_SUCCESS, ldap_set_option(ld, LDAP_OPT_X_TLS_CIPHER_SUITE, kServersSuite));
  const int client = 0;
  EXPECT_NE(LDAP_OPT_SUCCESS, ldap_set_option(ld, LDAP_OPT_X_TLS_NEWCTX, &client));
}

}  // namespace
