// libFuzzer target: keyword expansion of the security framework's LDAP file and the service
// module's file (LdapConfigFileProducer) over records with any bytes in any string field and any
// value in any number, and of templates the input brings. Every keyword must expand to its value
// for the record and the settings, in place, every time it occurs, with nothing rescanned; unknown keywords
// and an unclosed "<!" stay as they are; the templates' own text must not change with the
// record. Files are written only into a private temporary directory, removed afterwards.
#include "AmQivEaWrapper.h"
#include "FuzzScript.h"
#include "LdapConfigFileProducer.h"
#include "LdapConfigurationScript.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

using QivAccessManagement::LdapConfigFileProducer;
using QivAccessManagement::LdapConfiguration;

namespace {

using Keywords = std::map<std::string, std::string>;
// A template line holding a keyword: the text before it and the keyword.
using KeywordLine = std::pair<const char*, const char*>;

// The keyword lines of the framework file, in order, and its number of lines.
const std::vector<KeywordLine> SEC_AA_LINES = {
    {"", "overrideGid"},
    {"ldap_uri = ", "ldapUri"},
    {"ldap_search_base = ", "baseDn"},
    {"ldap_default_bind_dn = ", "bindDn"},
    {"ldap_default_authtok = ", "bindPassword"},
    {"ldap_tls_cipher_suite = ", "cipherFilter"},
    {"", "caCertDir"},
    {"", "tlsCaCertificate"},
    {"ldap_tls_key = ", "tlsKey"},
    {"ldap_tls_cert = ", "tlsCertificate"},
    {"ldap_auth_disable_tls_never_use_in_production = ", "disableTls"},
    {"ldap_id_use_start_tls = ", "useStartTls"},
    {"ldap_referrals = ", "useReferrals"},
    {"ldap_access_filter = ", "ssdFilter"},
    {"", "serviceModulePath"},
};
const std::size_t SEC_AA_LINE_COUNT = 61;

// The same for the service module's file.
const std::vector<KeywordLine> LDAP_SM_LINES = {
    {"ldap_uri = ", "ldapUri"},
    {"ldap_default_bind_dn = ", "bindDn"},
    {"base_dn = ", "baseDn"},
    {"ldap_default_authtok = ", "bindPassword"},
    {"filter_type = ", "filterType"},
    {"user_defined_filter_type = ", "type"},
    {"tls_mode = ", "tlsMode"},
    {"", "caCertDir"},
    {"", "tlsCaCertificate"},
    {"ldap_tls_key = ", "tlsKey"},
    {"ldap_tls_cert = ", "tlsCertificate"},
    {"node_type = ", "nodeType"},
    {"role_aliases_base_dn = ", "roleAliasesBaseDn"},
    {"ldap_referrals = ", "useReferrals"},
    {"ldap_tls_cipher_suite = ", "cipherFilter"},
    {"ldap_access_filter = ", "filter"},
    {"orb_filt_target_based_access_control = ", "orbFiltTargetBasedAccessControl"},
    {"orb_filt_version = ", "orbFiltVersion"},
};
const std::size_t LDAP_SM_LINE_COUNT = 23;

const char POSIX_ACCOUNTS[] = "(&(objectClass=posixAccount)(uidNumber>=1000)";
const char OVERRIDE_GID[] = "override_gid = ";

// The producer's own settings, by the name of their keyword.
struct Settings {
  std::string serviceModulePath;
  std::string caCertDir;
  std::string tlsCaCertificate;
  std::string tlsKey;
  std::string tlsCertificate;
};

[[noreturn]] void finding(const std::string& what) {
  std::fprintf(stderr, "contract violated: %s\n", what.c_str());
  std::abort();
}

const char* boolText(bool value) { return value ? "true" : "false"; }

std::string uri(const std::string& address, bool ldaps, uint16_t port) {
  const std::string host = QivAccessManagement::isIPv6(address) ? "[" + address + "]" : address;
  return (ldaps ? "ldaps://" : "ldap://") + host + ":" + std::to_string(port != 0 ? port : ldaps ? 636 : 389);
}

std::string ldapUri(const LdapConfiguration& config) {
  const bool ldaps = config.useTls && config.tlsMode == QivAccessManagement::LDAPS;
  const bool fallbackLdaps = config.useTlsFallback ? config.tlsMode == QivAccessManagement::LDAPS : ldaps;
  std::string uris;
  if (!config.ldapIpAddress.empty()) uris = uri(config.ldapIpAddress, ldaps, config.serverPort);
  if (!config.fallbackLdapIpAddress.empty())
    uris += (uris.empty() ? "" : ", ") + uri(config.fallbackLdapIpAddress, fallbackLdaps, config.serverPort);
  return uris;
}

std::string ssdFilter(const LdapConfiguration& config) {
  switch (config.filterType) {
    case 0:
    case 1:
    case 3:
      return std::string(POSIX_ACCOUNTS) + ")";
    case 2:
      break;
    default:
      return std::string();
  }
  if (config.targetBasedAccessControl == QivAccessManagement::LOCKED) return std::string(POSIX_ACCOUNTS) + ")";
  std::string terms;
  std::string::size_type start = 0;
  while (start <= config.nodeType.size()) {
    std::string::size_type end = config.nodeType.find(':', start);
    if (end == std::string::npos) end = config.nodeType.size();
    if (end > start) terms += "(orbelinUserAuthenticationScope=" + config.nodeType.substr(start, end - start) + ")";
    start = end + 1;
  }
  const std::string any = "(orbelinUserAuthenticationScope=\\*)";
  return POSIX_ACCOUNTS + (terms.empty() ? any + ")" : "(|" + terms + any + "))");
}

// What each keyword must give for the record and the settings; overrideGid is checked by its
// form alone.
Keywords expectedValues(const LdapConfiguration& config, const Settings& settings) {
  const bool startTls = config.useTls && config.tlsMode == QivAccessManagement::STARTTLS;
  return {
      {"bindDn", config.bindDn},
      {"baseDn", config.baseDn},
      {"bindPassword", config.bindPassword},
      {"filter", config.filter},
      {"nodeType", config.nodeType},
      {"roleAliasesBaseDn", config.roleAliasesBaseDn},
      {"cipherFilter", config.cipherFilter},
      {"type", config.type},
      {"filterType", std::to_string(config.filterType)},
      {"orbFiltVersion", std::to_string(config.orbFiltVersion)},
      {"orbFiltTargetBasedAccessControl", std::to_string(config.targetBasedAccessControl)},
      {"tlsMode", config.useTls ? std::to_string(config.tlsMode) : std::string()},
      {"useReferrals", boolText(config.useReferrals)},
      {"disableTls", boolText(!config.useTls)},
      {"useStartTls", boolText(startTls)},
      {"ldapUri", ldapUri(config)},
      {"ssdFilter", ssdFilter(config)},
      {"serviceModulePath", settings.serviceModulePath},
      {"caCertDir", settings.caCertDir.empty() ? "" : "ldap_tls_cacertdir = " + settings.caCertDir},
      {"tlsCaCertificate", settings.tlsCaCertificate.empty() ? "" : "ldap_tls_cacert = " + settings.tlsCaCertificate},
      {"tlsKey", settings.tlsKey},
      {"tlsCertificate", settings.tlsCertificate},
  };
}

LdapConfigFileProducer producerWith(const Settings& settings) {
  LdapConfigFileProducer producer(settings.serviceModulePath);
  producer.setCaCertDir(settings.caCertDir);
  producer.setTlsCaCertificate(settings.tlsCaCertificate);
  producer.setTlsKey(settings.tlsKey);
  producer.setTlsCertificate(settings.tlsCertificate);
  return producer;
}

std::string expanded(LdapConfigFileProducer& producer, const LdapConfiguration& config, const std::string& text) {
  std::ostringstream out;
  if (producer.writeConfig(out, config, text) != 0) finding("writeConfig into a string stream failed");
  return out.str();
}

// What the producer makes of each keyword on its own, checked against what it must give.
Keywords keywordValues(LdapConfigFileProducer& producer, const LdapConfiguration& config, const Settings& settings) {
  Keywords values = expectedValues(config, settings);
  for (auto& value : values) {
    const std::string made = expanded(producer, config, "<!" + value.first + "!>");
    if (made != value.second) finding("<!" + value.first + "!> gave \"" + made + "\", not \"" + value.second + "\"");
  }
  const std::string gid = expanded(producer, config, "<!overrideGid!>");
  const std::size_t prefix = sizeof OVERRIDE_GID - 1;
  if (!gid.empty() && (gid.compare(0, prefix, OVERRIDE_GID) != 0 || gid.size() == prefix ||
                       gid.find_first_not_of("0123456789", prefix) != std::string::npos))
    finding("override gid line \"" + gid + "\"");
  values["overrideGid"] = gid;
  return values;
}

// The expansion rules written out independently, over the keyword values the producer gave.
std::string expectedExpansion(const std::string& text, const Keywords& values) {
  std::string out;
  std::string::size_type position = 0;
  for (;;) {
    const std::string::size_type open = text.find("<!", position);
    if (open == std::string::npos) return out + text.substr(position);
    out += text.substr(position, open - position);
    const std::string::size_type close = text.find("!>", open + 2);
    if (close == std::string::npos) return out + text.substr(open);
    const auto value = values.find(text.substr(open + 2, close - open - 2));
    out += value != values.end() ? value->second : text.substr(open, close + 2 - open);
    position = close + 2;
  }
}

std::size_t occurrences(const std::string& text, const std::string& part) {
  std::size_t count = 0;
  for (std::string::size_type at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
  return count;
}

// The size of a template's own text: the file less what its keywords expanded to.
std::size_t fixedSize(const std::string& file, const std::vector<KeywordLine>& lines, const Keywords& values) {
  std::size_t size = file.size();
  for (const KeywordLine& line : lines) size -= values.at(line.second).size();
  return size;
}

void checkFile(const char* name, const std::string& file, const std::vector<KeywordLine>& lines, std::size_t lineCount,
               const Keywords& values, std::size_t baselineSize) {
  const std::string what = std::string(name) + ": ";
  // Each keyword line in order, whole; a value never needs the next line's text.
  std::string::size_type position = 0;
  std::size_t lineFeeds = lineCount;
  std::size_t marks = 0;
  for (const KeywordLine& line : lines) {
    const std::string& value = values.at(line.second);
    const std::string whole = std::string(line.first) + value + "\n";
    std::string::size_type at = file.find(whole, position);
    while (at != std::string::npos && at != 0 && file[at - 1] != '\n') at = file.find(whole, at + 1);
    if (at == std::string::npos)
      finding(what + "no line \"" + std::string(line.first) + "<!" + line.second + "!>\" expanded in place");
    position = at + whole.size();
    lineFeeds += occurrences(value, "\n");
    marks += occurrences(value, "<!");
  }
  if (occurrences(file, "\n") != lineFeeds) finding(what + "not " + std::to_string(lineCount) + " template lines");
  // Keywords stand between blanks and line feeds, so a "<!" in the file can only come from a value.
  if (occurrences(file, "<!") != marks) finding(what + "a keyword left unexpanded");
  if (fixedSize(file, lines, values) != baselineSize) finding(what + "the template's own text changed");
}

std::string secAa(LdapConfigFileProducer& producer, const LdapConfiguration& config) {
  std::ostringstream out;
  if (producer.writeSecAaConfig(out, config) != 0) finding("writeSecAaConfig into a string stream failed");
  return out.str();
}

std::string ldapSm(LdapConfigFileProducer& producer, const LdapConfiguration& config) {
  std::ostringstream out;
  if (producer.writeLdapSmConfig(out, config) != 0) finding("writeLdapSmConfig into a string stream failed");
  return out.str();
}

// The sizes of the two templates' own texts, from a default record and producer.
std::pair<std::size_t, std::size_t> baselineSizes() {
  const LdapConfiguration config;
  const Settings settings;
  LdapConfigFileProducer producer = producerWith(settings);
  const Keywords values = keywordValues(producer, config, settings);
  return {fixedSize(secAa(producer, config), SEC_AA_LINES, values),
          fixedSize(ldapSm(producer, config), LDAP_SM_LINES, values)};
}

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Both files written into a private directory: the same text as the streams, mode 0640.
void checkWrittenFiles(LdapConfigFileProducer& producer, const LdapConfiguration& config, const std::string& secAaText,
                       const std::string& ldapSmText) {
  const char* tmp = std::getenv("TMPDIR");
  std::string pattern = std::string(tmp != nullptr && *tmp != '\0' ? tmp : "/tmp") + "/config-file-fuzz.XXXXXX";
  if (::mkdtemp(&pattern[0]) == nullptr) return;
  const std::string secAaPath = pattern + "/LdapSecAa.cfg";
  const std::string ldapSmPath = pattern + "/LdapSm.cfg";
  const int secAaResult = producer.writeSecAaConfig(secAaPath, config);
  const int ldapSmResult = producer.writeLdapSmConfig(ldapSmPath, config);
  const int missingResult = producer.writeLdapSmConfig(pattern + "/missing/LdapSm.cfg", config);
  const std::string secAaWritten = readFile(secAaPath);
  const std::string ldapSmWritten = readFile(ldapSmPath);
  struct stat secAaStat = {};
  struct stat ldapSmStat = {};
  const bool statted = ::stat(secAaPath.c_str(), &secAaStat) == 0 && ::stat(ldapSmPath.c_str(), &ldapSmStat) == 0;
  ::unlink(secAaPath.c_str());
  ::unlink(ldapSmPath.c_str());
  ::rmdir(pattern.c_str());
  if (secAaResult != 0 || ldapSmResult != 0) finding("writing a file into a fresh directory failed");
  if (missingResult != -1) finding("a file in a missing directory did not give -1");
  if (secAaWritten != secAaText || ldapSmWritten != ldapSmText) finding("a file differs from the stream's text");
  if (!statted || (secAaStat.st_mode & 07777) != 0640 || (ldapSmStat.st_mode & 07777) != 0640)
    finding("a written file's mode is not 0640");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  static const std::pair<std::size_t, std::size_t> baseline = baselineSizes();
  LdapConfiguration config;
  Settings settings;
  std::vector<std::string> templates;
  bool writeFiles = false;
  const std::map<std::string, std::string Settings::*> settingFields = {
      {"producer.serviceModulePath", &Settings::serviceModulePath},
      {"producer.caCertDir", &Settings::caCertDir},
      {"producer.tlsCaCertificate", &Settings::tlsCaCertificate},
      {"producer.tlsKey", &Settings::tlsKey},
      {"producer.tlsCertificate", &Settings::tlsCertificate},
  };
  const FuzzScript script(data, size);
  for (const FuzzScript::Record& record : script.records()) {
    if (LdapConfigurationScript::apply(config, record.first, record.second)) continue;
    const auto setting = settingFields.find(record.first);
    if (setting != settingFields.end()) {
      settings.*(setting->second) = record.second;
    } else if (record.first == "template") {
      templates.push_back(record.second);
    } else if (record.first == "files") {
      writeFiles = true;
    }
  }

  LdapConfigFileProducer producer = producerWith(settings);
  const Keywords values = keywordValues(producer, config, settings);
  const std::string secAaText = secAa(producer, config);
  const std::string ldapSmText = ldapSm(producer, config);
  checkFile("LdapSecAa.cfg", secAaText, SEC_AA_LINES, SEC_AA_LINE_COUNT, values, baseline.first);
  checkFile("LdapSm.cfg", ldapSmText, LDAP_SM_LINES, LDAP_SM_LINE_COUNT, values, baseline.second);
  for (const std::string& text : templates) {
    if (expanded(producer, config, text) != expectedExpansion(text, values))
      finding("a template's expansion differs from the expected one");
  }
  if (writeFiles) checkWrittenFiles(producer, config, secAaText, ldapSmText);
  return 0;
}
