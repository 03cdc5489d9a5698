#include "SlapdInstance.h"

#include "ChildProcess.h"
#include "LdapProbe.h"
#include "ThrowAwayCertificates.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <vector>

namespace TestDirectory {

namespace {

const char* const SLAPD = "/usr/sbin/slapd";
const char* const SLAPADD = "/usr/sbin/slapadd";
const char* const SYSTEM_SCHEMA_DIRECTORY = "/etc/ldap/schema";
const char* const MODULE_DIRECTORY = "/usr/lib/ldap";
const char* const FIXTURES_DIRECTORY = QIV_LDAP_FIXTURES_DIR;

// Ports are free when chosen but another program may take one before slapd binds it.
constexpr int PORT_ATTEMPTS = 5;
constexpr std::chrono::seconds ANSWER_WITHIN{10};
constexpr std::chrono::milliseconds POLL_INTERVAL{2};
constexpr std::chrono::seconds STOP_GRACE{5};

std::string readFile(const std::string& path) {
  std::ifstream file(path);
  if (!file) throw std::runtime_error("cannot read " + path);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

void writeFile(const std::string& path, const std::string& content) {
  std::ofstream file(path, std::ios::trunc);
  file << content;
  if (!file.flush()) throw std::runtime_error("cannot write " + path);
}

// A value in slapd.conf syntax: double quotes, with backslash and quote escaped.
std::string quoted(const std::string& value) {
  std::string text = "\"";
  for (char c : value) {
    if (c == '"' || c == '\\') text += '\\';
    text += c;
  }
  return text + "\"";
}

std::string makeTemporaryDirectory() {
  const char* temporary = std::getenv("TMPDIR");
  std::string pattern = std::string(temporary != nullptr && *temporary != '\0' ? temporary : "/tmp") +
                        "/qiv-slapd-XXXXXX";
  if (::mkdtemp(&pattern[0]) == nullptr) {
    throw std::runtime_error("cannot create a directory like " + pattern + ": " + std::strerror(errno));
  }
  return pattern;
}

// Ports the kernel hands out for loopback sockets bound at the same time, so they differ; nothing
// listens on them once this returns.
std::vector<int> freeLoopbackPorts(int count) {
  std::vector<int> sockets;
  std::vector<int> ports;
  std::string error;
  for (int i = 0; i < count && error.empty(); ++i) {
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
      error = std::strerror(errno);
      break;
    }
    sockets.push_back(fd);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
      error = std::strerror(errno);
    } else {
      ports.push_back(ntohs(address.sin_port));
    }
  }
  for (int fd : sockets) ::close(fd);
  if (!error.empty()) throw std::runtime_error("cannot pick a free loopback port: " + error);
  return ports;
}

}  // namespace

// The instance's files and its running slapd; the destructor undoes whatever the start got to.
class SlapdInstance::Impl {
 public:
  explicit Impl(const Options& options)
      : directory(makeTemporaryDirectory()),
        ownCertificates(options.certificatesDirectory.empty()),
        certificates(ownCertificates ? directory + "/tls" : options.certificatesDirectory) {}
  ~Impl() {
    slapd.reset();
    std::error_code ignored;
    std::filesystem::remove_all(directory, ignored);
  }

  // Writes the configuration and the entries, then starts slapd until it answers.
  void start(const Options& options);
  std::string configurationFile() const { return directory + "/slapd.conf"; }

  const std::string directory;
  const bool ownCertificates;
  const ThrowAwayCertificates certificates;
  std::unique_ptr<ChildProcess> slapd;
  int plainPort = 0;
  int ldapsPort = 0;
  int pid = 0;

 private:
  std::string configuration(const Options& options, const std::string& fixtures) const;
  // Starts slapadd with the base entries and those of ldifFile (the sample users when empty).
  std::unique_ptr<ChildProcess> startLoadingEntries(const std::string& ldifFile, const std::string& fixtures) const;
  // True once slapd answers on both ports; false when it ended because a port was taken; throws
  // for any other failure.
  bool launchOnFreePorts();
  bool answersOnBothPorts(std::string& error) const;
};

void SlapdInstance::Impl::start(const Options& options) {
  const std::string fixtures = options.fixturesDirectory.empty() ? FIXTURES_DIRECTORY : options.fixturesDirectory;
  writeFile(configurationFile(), configuration(options, fixtures));
  // slapadd reads the configuration but none of the certificates: both are made at the same time.
  const std::unique_ptr<ChildProcess> loading = startLoadingEntries(options.ldifFile, fixtures);
  if (ownCertificates) certificates.create();
  loading->waitForSuccess();
  for (int attempt = 1; attempt <= PORT_ATTEMPTS; ++attempt) {
    if (launchOnFreePorts()) return;
  }
  throw std::runtime_error("slapd found its ports taken " + std::to_string(PORT_ATTEMPTS) + " times:\n" +
                           slapd->output());
}

std::string SlapdInstance::Impl::configuration(const Options& options, const std::string& fixtures) const {
  std::ostringstream text;
  text << "# A throw-away test directory; nothing here is fit for a real server.\n";
  for (const char* schema : {"core", "cosine", "inetorgperson", "nis"}) {
    text << "include " << quoted(std::string(SYSTEM_SCHEMA_DIRECTORY) + "/" + schema + ".schema") << "\n";
  }
  text << "include " << quoted(fixtures + "/orbelin.schema") << "\n"
       << "pidfile " << quoted(directory + "/slapd.pid") << "\n"
       << "argsfile " << quoted(directory + "/slapd.args") << "\n"
       // Only what is logged whatever the level (errors) goes to syslog.
       << "loglevel none\n"
       << "modulepath " << quoted(MODULE_DIRECTORY) << "\n"
       << "moduleload back_mdb\n"
       << "TLSCACertificateFile " << quoted(certificates.caFile()) << "\n"
       << "TLSCertificateFile " << quoted(certificates.serverCertificateFile()) << "\n"
       << "TLSCertificateKeyFile " << quoted(certificates.serverKeyFile()) << "\n";
  if (!options.cipherSuite.empty()) text << "TLSCipherSuite " << quoted(options.cipherSuite) << "\n";
  text << "database mdb\n"
       << "suffix " << quoted(baseDn()) << "\n"
       << "rootdn " << quoted(rootDn()) << "\n"
       << "rootpw " << quoted(rootPassword()) << "\n"
       << "directory " << quoted(directory + "/db") << "\n"
       << "dbnosync\n"
       << "index objectClass,uid,memberUid,role eq\n"
       << "access to attrs=userPassword\n"
       << "  by anonymous auth\n"
       << "  by self read\n"
       << "  by * none\n"
       << "access to *\n"
       << (options.readerOnly ? "  by dn.exact=" + quoted(readerDn()) + " read\n  by * none\n" : "  by * read\n");
  return text.str();
}

std::unique_ptr<ChildProcess> SlapdInstance::Impl::startLoadingEntries(const std::string& ldifFile,
                                                                       const std::string& fixtures) const {
  const std::string entries = directory + "/entries.ldif";
  writeFile(entries, readFile(fixtures + "/base.ldif") + "\n" +
                         readFile(ldifFile.empty() ? fixtures + "/sample.ldif" : ldifFile));
  std::filesystem::create_directory(directory + "/db");
  return std::unique_ptr<ChildProcess>(
      new ChildProcess(SLAPADD, {"-f", configurationFile(), "-q", "-l", entries}, directory + "/slapadd.log"));
}

bool SlapdInstance::Impl::launchOnFreePorts() {
  const std::vector<int> ports = freeLoopbackPorts(2);
  plainPort = ports[0];
  ldapsPort = ports[1];
  const std::string urls = "ldap://" + std::string(host()) + ":" + std::to_string(plainPort) + "/ ldaps://" +
                           host() + ":" + std::to_string(ldapsPort) + "/";
  // "-d none": in the foreground, printing only what is logged whatever the level (errors).
  slapd.reset(new ChildProcess(SLAPD, {"-f", configurationFile(), "-d", "none", "-h", urls},
                               directory + "/slapd.log"));
  pid = slapd->pid();
  const auto deadline = std::chrono::steady_clock::now() + ANSWER_WITHIN;
  std::string error;
  while (!answersOnBothPorts(error)) {
    if (slapd->hasEnded()) {
      const std::string output = slapd->output();
      // errno 98 is EADDRINUSE, in slapd's "daemon: bind(...) failed" line.
      if (output.find("errno=98") != std::string::npos) return false;
      throw std::runtime_error("slapd ended (" + slapd->endDescription() + ") before it answered:\n" + output);
    }
    if (std::chrono::steady_clock::now() > deadline) {
      slapd->stop(STOP_GRACE);
      throw std::runtime_error("slapd did not answer on " + urls + " within " +
                               std::to_string(ANSWER_WITHIN.count()) + " s (" + error + "):\n" + slapd->output());
    }
    std::this_thread::sleep_for(POLL_INTERVAL);
  }
  return true;
}

bool SlapdInstance::Impl::answersOnBothPorts(std::string& error) const {
  LdapProbe::Connection plain;
  plain.host = host();
  plain.port = plainPort;
  LdapProbe::Connection ldaps = plain;
  ldaps.port = ldapsPort;
  ldaps.security = LdapProbe::Security::Ldaps;
  ldaps.caFile = certificates.caFile();
  for (const LdapProbe::Connection& connection : {plain, ldaps}) {
    const LdapProbe::Answer answer = LdapProbe(connection).readRootDse();
    if (!answer.succeeded()) {
      error = answer.error;
      return false;
    }
  }
  return true;
}

SlapdInstance::SlapdInstance() : SlapdInstance(Options()) {}

SlapdInstance::SlapdInstance(const Options& options) : _impl(new Impl(options)) {
  try {
    _impl->start(options);
  } catch (...) {
    delete _impl;
    throw;
  }
}

SlapdInstance::~SlapdInstance() { delete _impl; }

int SlapdInstance::plainPort() const { return _impl->plainPort; }

int SlapdInstance::ldapsPort() const { return _impl->ldapsPort; }

std::string SlapdInstance::plainAddress() const { return std::string(host()) + ":" + std::to_string(plainPort()); }

std::string SlapdInstance::ldapsAddress() const { return std::string(host()) + ":" + std::to_string(ldapsPort()); }

std::string SlapdInstance::caFile() const { return _impl->certificates.caFile(); }

std::string SlapdInstance::otherCaFile() const { return _impl->certificates.otherCaFile(); }

std::string SlapdInstance::directory() const { return _impl->directory; }

std::string SlapdInstance::certificatesDirectory() const { return _impl->certificates.directory(); }

int SlapdInstance::pid() const { return _impl->pid; }

void SlapdInstance::stop() {
  if (_impl->slapd) _impl->slapd->stop(STOP_GRACE);
}

int SlapdInstance::unusedPort() { return freeLoopbackPorts(1)[0]; }

}  // namespace TestDirectory
