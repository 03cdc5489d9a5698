#include "CipherPriorityTranslator.h"

#include <gnutls/gnutls.h>
#include <gtest/gtest.h>
#include <openssl/ssl.h>

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

using Ldap::CipherPriorityTranslator;

namespace {

typedef std::vector<std::string> Strings;
typedef std::set<uint16_t> SuiteNumbers;

const char kDefaultFilter[] = "ALL:!aNULL:!eNULL:@STRENGTH";
const char kNoUsableSuite[] = "no cipher suite usable with GnuTLS";

// IANA numbers of the suites used by name below.
const uint16_t kTlsAes128GcmSha256 = 0x1301;
const uint16_t kTlsAes256GcmSha384 = 0x1302;
const uint16_t kEcdheEcdsaAes128Ccm = 0xc0ac;
const uint16_t kEcdheEcdsaAes128Ccm8 = 0xc0ae;
const uint16_t kEcdheRsaAes128CbcSha = 0xc013;
const uint16_t kEcdheRsaAes128GcmSha256 = 0xc02f;
const uint16_t kEcdheEcdsaAes256GcmSha384 = 0xc02c;

// A suite as GnuTLS describes it.
struct GnuTlsSuite {
  std::string name;
  gnutls_kx_algorithm_t keyExchange;
  gnutls_cipher_algorithm_t cipher;
  gnutls_mac_algorithm_t mac;
};
typedef std::map<uint16_t, GnuTlsSuite> GnuTlsSuites;

// GnuTLS's description of its suite at index, keyed by the suite's number; false past the last.
bool gnutlsSuiteAt(size_t index, GnuTlsSuites& suites) {
  unsigned char id[2] = {0, 0};
  GnuTlsSuite suite{};
  gnutls_protocol_t lowestVersion;
  const char* name = gnutls_cipher_suite_info(index, id, &suite.keyExchange, &suite.cipher, &suite.mac, &lowestVersion);
  if (name == nullptr) return false;
  suite.name = name;
  suites[static_cast<uint16_t>(id[0] << 8 | id[1])] = suite;
  return true;
}

// Every suite GnuTLS has.
GnuTlsSuites knownSuites() {
  GnuTlsSuites suites;
  size_t index = 0;
  while (gnutlsSuiteAt(index, suites)) ++index;
  return suites;
}

// GnuTLS's own reading of a priority string.
class GnuTlsPriority {
 public:
  explicit GnuTlsPriority(const std::string& text) {
    const char* errorPosition = nullptr;
    const int rc = gnutls_priority_init(&_priority, text.c_str(), &errorPosition);
    if (rc != GNUTLS_E_SUCCESS) {
      _error = std::string(gnutls_strerror(rc)) + " at " + (errorPosition != nullptr ? errorPosition : "?");
      _priority = nullptr;
    }
  }
  ~GnuTlsPriority() {
    if (_priority != nullptr) gnutls_priority_deinit(_priority);
  }
  GnuTlsPriority(const GnuTlsPriority&) = delete;
  GnuTlsPriority& operator=(const GnuTlsPriority&) = delete;

  // Empty when GnuTLS accepted the string.
  const std::string& error() const { return _error; }

  // The suites a session with this priority may use, under any of its versions.
  GnuTlsSuites suites() const {
    GnuTlsSuites suites;
    for (unsigned index = 0;; ++index) {
      unsigned suiteIndex = 0;
      const int rc = gnutls_priority_get_cipher_suite_index(_priority, index, &suiteIndex);
      if (rc == GNUTLS_E_REQUESTED_DATA_NOT_AVAILABLE) break;
      if (rc == GNUTLS_E_SUCCESS) gnutlsSuiteAt(suiteIndex, suites);
    }
    return suites;
  }

  Strings versions() const {
    const unsigned* list = nullptr;
    const int count = gnutls_priority_protocol_list(_priority, &list);
    Strings names;
    for (int index = 0; index < count; ++index) {
      names.push_back(gnutls_protocol_get_name(static_cast<gnutls_protocol_t>(list[index])));
    }
    return names;
  }

 private:
  gnutls_priority_t _priority = nullptr;
  std::string _error;
};

// OpenSSL's expansion of filter, TLS 1.3 suites included: number to OpenSSL's name.
std::map<uint16_t, std::string> openSslSuites(const std::string& filter) {
  std::map<uint16_t, std::string> suites;
  const std::unique_ptr<SSL_CTX, void (*)(SSL_CTX*)> context(SSL_CTX_new(TLS_client_method()), SSL_CTX_free);
  if (!context || SSL_CTX_set_cipher_list(context.get(), filter.c_str()) != 1) return suites;
  const STACK_OF(SSL_CIPHER)* list = SSL_CTX_get_ciphers(context.get());
  for (int index = 0; index < sk_SSL_CIPHER_num(list); ++index) {
    const SSL_CIPHER* suite = sk_SSL_CIPHER_value(list, index);
    suites[SSL_CIPHER_get_protocol_id(suite)] = SSL_CIPHER_get_name(suite);
  }
  return suites;
}

SuiteNumbers numbers(const GnuTlsSuites& suites) {
  SuiteNumbers result;
  for (const auto& entry : suites) result.insert(entry.first);
  return result;
}

bool isAnonymousOrNull(const GnuTlsSuite& suite) {
  return suite.keyExchange == GNUTLS_KX_ANON_DH || suite.keyExchange == GNUTLS_KX_ANON_ECDH ||
         suite.cipher == GNUTLS_CIPHER_NULL;
}

// PSK and SRP suites need credentials that libldap never gives: no client of it offers them.
bool needsCredentialsLibldapLacks(const GnuTlsSuite& suite) {
  switch (suite.keyExchange) {
    case GNUTLS_KX_PSK:
    case GNUTLS_KX_RSA_PSK:
    case GNUTLS_KX_DHE_PSK:
    case GNUTLS_KX_ECDHE_PSK:
    case GNUTLS_KX_SRP:
    case GNUTLS_KX_SRP_RSA:
    case GNUTLS_KX_SRP_DSS:
      return true;
    default:
      return false;
  }
}

class CipherPriorityTranslatorTest : public ::testing::Test {
 protected:
  // The priority for filter; fails the test when the translation or GnuTLS refuses it.
  std::string translated(const std::string& filter) {
    std::string priority;
    std::string reason;
    EXPECT_TRUE(CipherPriorityTranslator::translate(filter, priority, reason)) << filter << ": " << reason;
    const GnuTlsPriority parsed(priority);
    EXPECT_EQ("", parsed.error()) << priority;
    return priority;
  }

  // The reason the translation of filter gives for failing; the priority stays untouched.
  std::string failure(const std::string& filter) {
    std::string priority = "untouched";
    std::string reason;
    EXPECT_FALSE(CipherPriorityTranslator::translate(filter, priority, reason)) << filter << ": " << priority;
    EXPECT_EQ("untouched", priority);
    return reason;
  }

  // What GnuTLS allows with the translation of filter.
  GnuTlsSuites allowed(const std::string& filter) { return GnuTlsPriority(translated(filter)).suites(); }
};

// In OpenSSL's order of preference; TLS 1.0 and 1.1 because the filter keeps suites as old as
// TLS 1.0 (ECDHE-RSA-AES256-SHA and others).
TEST_F(CipherPriorityTranslatorTest, DefaultFilterGivesAStringGnuTlsAccepts) {
  EXPECT_EQ(
      "NORMAL:-VERS-ALL:+VERS-TLS1.3:+VERS-TLS1.2:+VERS-TLS1.1:+VERS-TLS1.0"
      ":-KX-ALL:+ECDHE-ECDSA:+ECDHE-RSA:+DHE-DSS:+DHE-RSA:+RSA"
      ":-CIPHER-ALL:+AES-256-GCM:+CHACHA20-POLY1305:+AES-256-CCM-8:+AES-256-CCM:+AES-256-CBC:+CAMELLIA-256-CBC"
      ":+AES-128-GCM:+AES-128-CCM-8:+AES-128-CCM:+AES-128-CBC:+CAMELLIA-128-CBC"
      ":-MAC-ALL:+AEAD:+SHA384:+SHA256:+SHA1",
      translated(kDefaultFilter));
}

TEST_F(CipherPriorityTranslatorTest, DefaultFilterAllowsEveryOpenSslSuiteThatGnuTlsHas) {
  const GnuTlsSuites known = knownSuites();
  const GnuTlsSuites allowedSuites = allowed(kDefaultFilter);
  Strings missing;
  size_t shared = 0;
  for (const auto& suite : openSslSuites(kDefaultFilter)) {
    const auto found = known.find(suite.first);
    if (found == known.end() || needsCredentialsLibldapLacks(found->second)) continue;
    ++shared;
    if (allowedSuites.count(suite.first) == 0) missing.push_back(suite.second);
  }
  EXPECT_EQ(Strings(), missing);
  // The 74 suites an OpenSSL client offers with the default filter but the 10 ARIA ones, the
  // three TLS 1.3 ones among them.
  EXPECT_EQ(64u, shared);
}

TEST_F(CipherPriorityTranslatorTest, NothingAnonymousOrNullIsAllowedEvenWhenTheFilterAllowsIt) {
  for (const char* filter : {kDefaultFilter, "ALL", "ALL:eNULL", "COMPLEMENTOFDEFAULT:ALL:aNULL:eNULL"}) {
    for (const auto& suite : allowed(filter)) EXPECT_FALSE(isAnonymousOrNull(suite.second)) << filter << ": " << suite.second.name;
  }
}

// GnuTLS allows every combination of the listed items; what it allows beyond OpenSSL's expansion
// must be made of the key exchanges, ciphers and MACs of suites the filter allows, never of any
// other.
TEST_F(CipherPriorityTranslatorTest, DefaultFilterWidensOnlyToCombinationsOfItsOwnItems) {
  const GnuTlsSuites known = knownSuites();
  std::set<gnutls_kx_algorithm_t> keyExchanges;
  std::set<gnutls_cipher_algorithm_t> ciphers;
  std::set<gnutls_mac_algorithm_t> macs;
  const std::map<uint16_t, std::string> expanded = openSslSuites(kDefaultFilter);
  for (const auto& suite : expanded) {
    const auto found = known.find(suite.first);
    if (found == known.end()) continue;
    keyExchanges.insert(found->second.keyExchange);
    ciphers.insert(found->second.cipher);
    macs.insert(found->second.mac);
  }

  Strings widened;
  for (const auto& suite : allowed(kDefaultFilter)) {
    if (expanded.count(suite.first) != 0) continue;
    widened.push_back(suite.second.name);
    EXPECT_EQ(1u, keyExchanges.count(suite.second.keyExchange)) << suite.second.name;
    EXPECT_EQ(1u, ciphers.count(suite.second.cipher)) << suite.second.name;
    EXPECT_EQ(1u, macs.count(suite.second.mac)) << suite.second.name;
  }
  // GnuTLS takes AES-128-CCM and AES-128-CCM-8, which the filter's TLS 1.2 suites need, for
  // TLS 1.3 as well; OpenSSL's TLS 1.3 list has neither.
  EXPECT_EQ(Strings({"TLS_AES_128_CCM_SHA256", "TLS_AES_128_CCM_8_SHA256"}), widened);
}

TEST_F(CipherPriorityTranslatorTest, OneSuiteGivesExactlyThatSuiteAndTls13WithItsCipher) {
  EXPECT_EQ("NORMAL:-VERS-ALL:+VERS-TLS1.3:+VERS-TLS1.2:-KX-ALL:+ECDHE-RSA:-CIPHER-ALL:+AES-128-GCM:-MAC-ALL:+AEAD",
            translated("ECDHE-RSA-AES128-GCM-SHA256"));
  EXPECT_EQ(SuiteNumbers({kEcdheRsaAes128GcmSha256, kTlsAes128GcmSha256}),
            numbers(allowed("ECDHE-RSA-AES128-GCM-SHA256")));
  EXPECT_EQ(SuiteNumbers({kEcdheEcdsaAes256GcmSha384, kTlsAes256GcmSha384}),
            numbers(allowed("ECDHE-ECDSA-AES256-GCM-SHA384")));
}

// OpenSSL's TLS 1.3 list has no CBC suite, and none with AES-128-CCM, so these stay below TLS 1.3.
TEST_F(CipherPriorityTranslatorTest, SuiteWhoseCipherHasNoTls13SuiteInOpenSslsListKeepsTls13Off) {
  EXPECT_EQ(SuiteNumbers({kEcdheRsaAes128CbcSha}), numbers(allowed("ECDHE-RSA-AES128-SHA")));
  EXPECT_EQ(Strings({"TLS1.2", "TLS1.1", "TLS1.0"}), GnuTlsPriority(translated("ECDHE-RSA-AES128-SHA")).versions());
  EXPECT_EQ(SuiteNumbers({kEcdheEcdsaAes128Ccm}), numbers(allowed("ECDHE-ECDSA-AES128-CCM")));
}

TEST_F(CipherPriorityTranslatorTest, SuitesOfTls12AndLaterKeepTheOlderVersionsOff) {
  EXPECT_EQ(Strings({"TLS1.3", "TLS1.2"}), GnuTlsPriority(translated("ECDHE-RSA-AES128-GCM-SHA256")).versions());
  EXPECT_EQ(Strings({"TLS1.2"}), GnuTlsPriority(translated("ECDHE-RSA-AES128-SHA256")).versions());
}

TEST_F(CipherPriorityTranslatorTest, CcmWithTheShortTagIsToldApartFromCcm) {
  EXPECT_EQ(SuiteNumbers({kEcdheEcdsaAes128Ccm8}), numbers(allowed("ECDHE-ECDSA-AES128-CCM8")));
}

TEST_F(CipherPriorityTranslatorTest, FilterOrderIsThePriorityOrder) {
  EXPECT_EQ(
      "NORMAL:-VERS-ALL:+VERS-TLS1.2:+VERS-TLS1.1:+VERS-TLS1.0:-KX-ALL:+DHE-RSA:+ECDHE-ECDSA"
      ":-CIPHER-ALL:+AES-256-CBC:+CAMELLIA-128-CBC:-MAC-ALL:+SHA256:+SHA1",
      translated("DHE-RSA-AES256-SHA256:ECDHE-ECDSA-CAMELLIA128-SHA256:ECDHE-ECDSA-AES256-SHA"));
}

TEST_F(CipherPriorityTranslatorTest, NullOrAnonymousSuitesOnlyFail) {
  EXPECT_EQ(kNoUsableSuite, failure("eNULL"));
  EXPECT_EQ(kNoUsableSuite, failure("aNULL"));
  EXPECT_EQ(kNoUsableSuite, failure("eNULL:aNULL"));
}

TEST_F(CipherPriorityTranslatorTest, SuitesGnuTlsLacksOnlyFail) {
  EXPECT_EQ(kNoUsableSuite, failure("ECDHE-ARIA128-GCM-SHA256"));
}

TEST_F(CipherPriorityTranslatorTest, PskAndSrpSuitesOnlyFail) {
  EXPECT_EQ(kNoUsableSuite, failure("PSK:SRP"));
}

TEST_F(CipherPriorityTranslatorTest, NoPskOrSrpSuiteIsAllowed) {
  for (const auto& suite : allowed(kDefaultFilter)) EXPECT_FALSE(needsCredentialsLibldapLacks(suite.second)) << suite.second.name;
}

TEST_F(CipherPriorityTranslatorTest, FilterOpenSslRejectsFailsWithOpenSslsReason) {
  EXPECT_EQ("no cipher match", failure("!ALL"));
  EXPECT_EQ("no cipher match", failure("garbage"));
  EXPECT_EQ("no cipher match", failure(""));
}

TEST_F(CipherPriorityTranslatorTest, DebiansLibldapDoesItsTlsWithGnuTls) {
  EXPECT_FALSE(CipherPriorityTranslator::isLibldapTlsOpenSsl());
}

}  // namespace
