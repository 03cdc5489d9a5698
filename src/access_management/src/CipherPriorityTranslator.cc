#include "CipherPriorityTranslator.h"

#include <ldap.h>
#include <openssl/err.h>
#include <openssl/objects.h>
#include <openssl/ssl.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <set>
#include <vector>

namespace Ldap {

namespace {

// GnuTLS names a key exchange together with the authentication it carries. Anonymous suites
// have no entry, so they are never allowed. Nor have PSK and SRP suites: they need credentials
// that libldap never gives, so neither library offers them to a server, and GnuTLS switches
// TLS 1.3 off when SRP or RSA-PSK is listed.
struct KeyExchangeItem {
  int keyExchangeNid;
  int authenticationNid;
  const char* item;
};
const KeyExchangeItem kKeyExchangeItems[] = {
    {NID_kx_ecdhe, NID_auth_ecdsa, "ECDHE-ECDSA"}, {NID_kx_ecdhe, NID_auth_rsa, "ECDHE-RSA"},
    {NID_kx_rsa, NID_auth_rsa, "RSA"},             {NID_kx_dhe, NID_auth_rsa, "DHE-RSA"},
    {NID_kx_dhe, NID_auth_dss, "DHE-DSS"},
};

// OpenSSL gives CCM with the short tag the same NID as CCM; only the suite's name tells them
// apart. The null cipher has no entry, so it is never allowed.
struct CipherItem {
  int nid;
  bool shortTag;
  const char* item;
};
const CipherItem kCipherItems[] = {
    {NID_aes_128_gcm, false, "AES-128-GCM"},
    {NID_aes_256_gcm, false, "AES-256-GCM"},
    {NID_aes_128_ccm, false, "AES-128-CCM"},
    {NID_aes_256_ccm, false, "AES-256-CCM"},
    {NID_aes_128_ccm, true, "AES-128-CCM-8"},
    {NID_aes_256_ccm, true, "AES-256-CCM-8"},
    {NID_chacha20_poly1305, false, "CHACHA20-POLY1305"},
    {NID_aes_128_cbc, false, "AES-128-CBC"},
    {NID_aes_256_cbc, false, "AES-256-CBC"},
    {NID_camellia_128_cbc, false, "CAMELLIA-128-CBC"},
    {NID_camellia_256_cbc, false, "CAMELLIA-256-CBC"},
    {NID_des_ede3_cbc, false, "3DES-CBC"},
    {NID_rc4, false, "ARCFOUR-128"},
};

struct MacItem {
  int nid;
  const char* item;
};
const MacItem kMacItems[] = {{NID_sha1, "SHA1"}, {NID_sha256, "SHA256"}, {NID_sha384, "SHA384"}, {NID_md5, "MD5"}};

// The lowest version a suite runs under, by the name OpenSSL gives it.
struct VersionName {
  const char* openSslName;
  int version;
};
const VersionName kVersionNames[] = {{"SSLv3", SSL3_VERSION},     {"TLSv1.0", TLS1_VERSION}, {"TLSv1.1", TLS1_1_VERSION},
                                     {"TLSv1.2", TLS1_2_VERSION}, {"TLSv1.3", TLS1_3_VERSION}};

struct VersionItem {
  int version;
  const char* item;
};
// Highest first: the order GnuTLS tries them in.
const VersionItem kVersionItems[] = {{TLS1_3_VERSION, "VERS-TLS1.3"},
                                     {TLS1_2_VERSION, "VERS-TLS1.2"},
                                     {TLS1_1_VERSION, "VERS-TLS1.1"},
                                     {TLS1_VERSION, "VERS-TLS1.0"}};

// One suite in GnuTLS's terms; keyExchange is null for a TLS 1.3 suite, which leaves the key
// exchange to the groups.
struct SuiteItems {
  const char* keyExchange = nullptr;
  const char* cipher = nullptr;
  const char* mac = nullptr;
  int lowestVersion = 0;
};

const char* keyExchangeItem(const SSL_CIPHER* suite) {
  const int keyExchange = SSL_CIPHER_get_kx_nid(suite);
  const int authentication = SSL_CIPHER_get_auth_nid(suite);
  for (const KeyExchangeItem& entry : kKeyExchangeItems) {
    if (entry.keyExchangeNid == keyExchange && entry.authenticationNid == authentication) return entry.item;
  }
  return nullptr;
}

const char* cipherItem(const SSL_CIPHER* suite) {
  const int nid = SSL_CIPHER_get_cipher_nid(suite);
  const bool shortTag = std::strstr(SSL_CIPHER_standard_name(suite), "CCM_8") != nullptr;
  for (const CipherItem& entry : kCipherItems) {
    if (entry.nid == nid && entry.shortTag == shortTag) return entry.item;
  }
  return nullptr;
}

const char* macItem(const SSL_CIPHER* suite) {
  if (SSL_CIPHER_is_aead(suite)) return "AEAD";
  const int nid = SSL_CIPHER_get_digest_nid(suite);
  for (const MacItem& entry : kMacItems) {
    if (entry.nid == nid) return entry.item;
  }
  return nullptr;
}

int lowestVersion(const SSL_CIPHER* suite) {
  const char* name = SSL_CIPHER_get_version(suite);
  for (const VersionName& entry : kVersionNames) {
    if (std::strcmp(entry.openSslName, name) == 0) return entry.version;
  }
  return 0;
}

// False when the suite must not be allowed or GnuTLS lacks one of its parts.
bool suiteItems(const SSL_CIPHER* suite, SuiteItems& items) {
  items.lowestVersion = lowestVersion(suite);
  items.cipher = cipherItem(suite);
  items.mac = macItem(suite);
  if (items.lowestVersion == 0 || items.cipher == nullptr || items.mac == nullptr) return false;
  if (items.lowestVersion == TLS1_3_VERSION) return true;
  items.keyExchange = keyExchangeItem(suite);
  return items.keyExchange != nullptr;
}

void appendOnce(std::vector<std::string>& items, const char* item) {
  if (std::find(items.begin(), items.end(), item) == items.end()) items.push_back(item);
}

void appendItems(std::string& priority, const char* all, const std::vector<std::string>& items) {
  priority += ":-";
  priority += all;
  for (const std::string& item : items) priority += ":+" + item;
}

// The reason OpenSSL gave for its last failure, which is then cleared so that it is not taken
// for a later caller's.
std::string takeOpenSslError() {
  const char* text = ERR_reason_error_string(ERR_peek_last_error());
  const std::string reason = text != nullptr ? text : "OpenSSL refused the filter";
  ERR_clear_error();
  return reason;
}

}  // namespace

bool CipherPriorityTranslator::translate(const std::string& filter, std::string& priority, std::string& reason) {
  const std::unique_ptr<SSL_CTX, void (*)(SSL_CTX*)> context(SSL_CTX_new(TLS_client_method()), SSL_CTX_free);
  if (!context || SSL_CTX_set_cipher_list(context.get(), filter.c_str()) != 1) {
    reason = takeOpenSslError();
    return false;
  }

  std::vector<std::string> keyExchanges;
  std::vector<std::string> ciphers;
  std::vector<std::string> macs;
  std::set<int> versions;
  std::vector<const char*> tls13Ciphers;
  const STACK_OF(SSL_CIPHER)* suites = SSL_CTX_get_ciphers(context.get());
  for (int index = 0; index < sk_SSL_CIPHER_num(suites); ++index) {
    SuiteItems items;
    if (!suiteItems(sk_SSL_CIPHER_value(suites, index), items)) continue;
    if (items.lowestVersion == TLS1_3_VERSION) {
      tls13Ciphers.push_back(items.cipher);
      continue;
    }
    appendOnce(keyExchanges, items.keyExchange);
    appendOnce(ciphers, items.cipher);
    appendOnce(macs, items.mac);
    for (int version = std::max(items.lowestVersion, TLS1_VERSION); version <= TLS1_2_VERSION; ++version) {
      versions.insert(version);
    }
  }
  if (keyExchanges.empty()) {
    reason = "no cipher suite usable with GnuTLS";
    return false;
  }
  for (const char* cipher : tls13Ciphers) {
    if (std::find(ciphers.begin(), ciphers.end(), cipher) != ciphers.end()) versions.insert(TLS1_3_VERSION);
  }

  // NORMAL keeps GnuTLS's own choice of what the filter does not govern: groups, signature
  // algorithms, certificate types.
  std::vector<std::string> versionItems;
  for (const VersionItem& entry : kVersionItems) {
    if (versions.count(entry.version) != 0) versionItems.push_back(entry.item);
  }
  priority = "NORMAL";
  appendItems(priority, "VERS-ALL", versionItems);
  appendItems(priority, "KX-ALL", keyExchanges);
  appendItems(priority, "CIPHER-ALL", ciphers);
  appendItems(priority, "MAC-ALL", macs);
  return true;
}

bool CipherPriorityTranslator::isLibldapTlsOpenSsl() {
  // The TLS package is fixed when libldap is built: asked once per process.
  static const bool openSsl = [] {
    char* package = nullptr;
    if (ldap_get_option(nullptr, LDAP_OPT_X_TLS_PACKAGE, &package) != LDAP_OPT_SUCCESS || package == nullptr) {
      return true;
    }
    const bool isOpenSsl = std::strcmp(package, "OpenSSL") == 0;
    ldap_memfree(package);
    return isOpenSsl;
  }();
  return openSsl;
}

}  // namespace Ldap
