// What a misbehaving directory costs a role query through the loaded component's built-in
// lookup: each fault runs once, in a process of its own, and one row is printed per fault: the
// query's code, its wall time, the CPU time of the thread that asked, how much the process's
// peak resident memory grew during the query, and whether the next query (the directory
// behaving again) was answered. Usage: directory_faults [FAULT...] (default: every fault).

#include "FakeDirectory.h"
#include "LoadedComponent.h"
#include "QiveaStandIn.h"
#include "SlapdInstance.h"
#include "TemporaryDirectory.h"
#include "ThrowAwayCertificates.h"

#include <Framework/ManagementFramework.h>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <exception>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace {

using TestDirectory::FakeDirectory;
using Behaviour = TestDirectory::FakeDirectory::Behaviour;

const char METHOD_DN[] = "ManagedElement=1,SystemFunctions=1,SecM=1,UserManagement=1,LdapAuthenticationMethod=1";
const char LDAP_DN[] = "ManagedElement=1,SystemFunctions=1,SecM=1,UserManagement=1,LdapAuthenticationMethod=1,Ldap=1";
const char COMPONENT_CONFIG[] =
    "<QivAccessManagementComponent><useBuiltInAuthorization>true</useBuiltInAuthorization>"
    "<ldapInitConfigTimeout>10</ldapInitConfigTimeout></QivAccessManagementComponent>";
const char USER[] = "alice";
const char GROUP_FILTER[] = "(&(objectClass=posixGroup)(memberUid=alice))";
const char ACCOUNT_FILTER[] = "(&(objectClass=posixAccount)(uid=alice))";

// A directory in which alice exists; her groups (filter type 1) or her account's role values
// (filter type 2) are what roles() gives.
FakeDirectory::SearchScript directoryOf(std::function<std::vector<FakeDirectory::Entry>()> groups,
                                        std::vector<std::string> roleValues = {}, unsigned delayMs = 0) {
  return [groups, roleValues, delayMs](const FakeDirectory::SearchRequest& request) {
    FakeDirectory::SearchAnswer answer = FakeDirectory::defaultAnswer(request);
    if (request.filter == "(uid=alice)" || request.filter == ACCOUNT_FILTER) {
      answer.entries.push_back({"uid=alice,ou=people,dc=example,dc=com",
                                {{"uid", {"alice"}}, {"orbelinUserAuthorizationScope", roleValues}}});
    } else if (request.filter == GROUP_FILTER) {
      answer.entries = groups();
    } else if (request.base.rfind("role=", 0) == 0) {
      answer.resultCode = 32;
    }
    answer.delayMs = delayMs;
    return answer;
  };
}

std::vector<FakeDirectory::Entry> adminGroup() { return {{"cn=admin,ou=groups,dc=example,dc=com", {{"cn", {"admin"}}}}}; }

std::vector<std::string> numbered(const std::string& prefix, int count) {
  std::vector<std::string> names;
  for (int index = 0; index < count; ++index) names.push_back(prefix + std::to_string(100000 + index));
  return names;
}

// What one fault needs: the fake directory, certificates, and a real directory for a fallback.
struct Scene {
  Scene() : certificates(files.path() + "/tls") {}

  void point(Framework::ModelStore& model, const std::string& host, int port) const {
    model.setStringValues(METHOD_DN, "administrativeState", {"UNLOCKED"});
    model.setStringValues(LDAP_DN, "ldapIpAddress", {host});
    model.setStringValues(LDAP_DN, "serverPort", {std::to_string(port)});
    model.setStringValues(LDAP_DN, "baseDn", {"dc=example,dc=com"});
    model.setStringValues(LDAP_DN, "filterType", {"POSIX_GROUPS"});
    model.setStringValues(LDAP_DN, "profileFilter", {"POSIX_GROUPS"});
    model.setStringValues(LDAP_DN, "useReferrals", {"false"});
    for (const char* attribute : {"bindDn", "nodeCredential", "trustCategory"}) model.setStringValues(LDAP_DN, attribute, {});
  }

  void useTls(Framework::ModelStore& model, const char* mode) {
    tls = true;
    certificates.create();
    model.setStringValues(LDAP_DN, "useTls", {"true"});
    model.setStringValues(LDAP_DN, "tlsMode", {mode});
    model.setStringValues(LDAP_DN, "tlsCaCertificate", {certificates.caFile()});
  }

  TemporaryDirectory files;
  TestDirectory::ThrowAwayCertificates certificates;
  std::unique_ptr<TestDirectory::SlapdInstance> fallback;
  std::unique_ptr<FakeDirectory> fake;
  bool tls = false;
};

struct Fault {
  const char* name;
  std::function<void(Scene&, Framework::ModelStore&)> setUp;
};

void plainFake(Scene& scene, Framework::ModelStore& model, Behaviour behaviour, int nth = 1) {
  scene.fake.reset(new FakeDirectory(behaviour, nth));
  scene.fake->setSearchScript(directoryOf(adminGroup));
  scene.point(model, scene.fake->host(), scene.fake->port());
}

const Fault FAULTS[] = {
    {"silent after accept", [](Scene& s, Framework::ModelStore& m) { plainFake(s, m, Behaviour::SILENT_AFTER_ACCEPT); }},
    {"LDAPS handshake stalls",
     [](Scene& s, Framework::ModelStore& m) {
       plainFake(s, m, Behaviour::SILENT_AFTER_FIRST_READ);
       s.useTls(m, "LDAPS");
     }},
    {"StartTLS handshake stalls",
     [](Scene& s, Framework::ModelStore& m) {
       plainFake(s, m, Behaviour::SILENT_AFTER_START_TLS);
       s.fake->setExtendedResultCode(0);
       s.useTls(m, "STARTTLS");
     }},
    {"each answer 5 s late",
     [](Scene& s, Framework::ModelStore& m) {
       plainFake(s, m, Behaviour::ANSWER);
       s.fake->setSearchScript(directoryOf(adminGroup, {}, 5000));
     }},
    {"closed mid-answer", [](Scene& s, Framework::ModelStore& m) { plainFake(s, m, Behaviour::CLOSE_MID_ANSWER, 4); }},
    {"reset instead of an answer",
     [](Scene& s, Framework::ModelStore& m) { plainFake(s, m, Behaviour::RESET_ON_REQUEST, 3); }},
    {"1e5 values of the role attribute",
     [](Scene& s, Framework::ModelStore& m) {
       plainFake(s, m, Behaviour::ANSWER);
       const std::vector<std::string> values = numbered("role", 100000);
       s.fake->setSearchScript(directoryOf([values] {
         return std::vector<FakeDirectory::Entry>{{"cn=big,ou=groups,dc=example,dc=com", {{"cn", values}}}};
       }));
     }},
    {"one 1 MiB role value",
     [](Scene& s, Framework::ModelStore& m) {
       plainFake(s, m, Behaviour::ANSWER);
       const std::string value(1 << 20, 'r');
       s.fake->setSearchScript(directoryOf([value] {
         return std::vector<FakeDirectory::Entry>{{"cn=big,ou=groups,dc=example,dc=com", {{"cn", {value}}}}};
       }));
     }},
    {"1e4 entries for the user's filter",
     [](Scene& s, Framework::ModelStore& m) {
       plainFake(s, m, Behaviour::ANSWER);
       std::vector<FakeDirectory::Entry> groups;
       for (const std::string& name : numbered("group", 10000))
         groups.push_back({"cn=" + name + ",ou=groups,dc=example,dc=com", {{"cn", {name}}}});
       s.fake->setSearchScript(directoryOf([groups] { return groups; }));
     }},
    {"1e4 roles, an alias search each",
     [](Scene& s, Framework::ModelStore& m) {
       plainFake(s, m, Behaviour::ANSWER);
       m.setStringValues(LDAP_DN, "filterType", {"ORBELIN"});
       m.setStringValues(LDAP_DN, "profileFilter", {"ORBELIN"});
       m.setStringValues(LDAP_DN, "roleAliasesBaseDn", {"ou=roleAliases,dc=example,dc=com"});
       s.fake->setSearchScript(directoryOf(adminGroup, numbered("role", 10000)));
     }},
    {"hung primary, real fallback",
     [](Scene& s, Framework::ModelStore& m) {
       s.fallback.reset(new TestDirectory::SlapdInstance());
       s.fake.reset(new FakeDirectory(Behaviour::SILENT_AFTER_ACCEPT, 1, "127.0.0.2", s.fallback->plainPort()));
       s.point(m, "127.0.0.2", s.fallback->plainPort());
       m.setStringValues(LDAP_DN, "fallbackLdapIpAddress", {TestDirectory::SlapdInstance::host()});
     }},
};

double threadCpuSeconds() {
  rusage usage;
  getrusage(RUSAGE_THREAD, &usage);
  return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
         static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

long peakResidentKb() {
  rusage usage;
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;
}

// The row of one fault; runs in a child of its own, so that the peak memory is this fault's.
int runFault(const Fault& fault) {
  Framework::ManagementFramework::Options options;
  options.modelFile = std::string(QIV_FIXTURES_DIR) + "/models/ldap20.xml";
  options.logLevel = 4;
  options.echoLevel = -1;
  Framework::ManagementFramework framework(options);
  // Start applies the configuration through qivea before the first query is served.
  const QiveaStandIn qivea(QIVEA_DIR);
  Scene scene;
  fault.setUp(scene, framework.model());
  Bench::LoadedComponent component(framework, QIV_COMPONENT_LIBRARY);
  component.initialize(COMPONENT_CONFIG);
  component.start();

  std::vector<std::string> roles;
  const long peakBefore = peakResidentKb();
  const double cpuBefore = threadCpuSeconds();
  const auto start = std::chrono::steady_clock::now();
  const int code = component.answer(USER, roles);
  const double wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  const double cpu = threadCpuSeconds() - cpuBefore;
  const long peakGrowth = peakResidentKb() - peakBefore;

  // The directory behaves again (the fallback case keeps its real one); the fake speaks no TLS,
  // so a TLS case is restarted on plain LDAP, through the same lookup and its lock.
  if (scene.fallback == nullptr) {
    scene.fake->setBehaviour(Behaviour::ANSWER);
    scene.fake->setExtendedResultCode(2);
    scene.fake->setSearchScript(directoryOf(adminGroup, {"admin"}));
  }
  if (scene.tls) {
    component.stop();
    framework.model().setStringValues(LDAP_DN, "useTls", {"false"});
    component.start();
  }
  std::vector<std::string> next;
  const int nextCode = component.answer(USER, next);
  std::printf("| %-34s | %4d | %6zu | %7.2f | %6.2f | %9.1f | %-26s |\n", fault.name, code, roles.size(), wall, cpu,
              peakGrowth / 1024.0, nextCode == 0 && !next.empty() ? "yes" : ("no (" + std::to_string(nextCode) + ")").c_str());
  std::fflush(stdout);
  component.stop();
  component.terminate();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  std::printf("| %-34s | %4s | %6s | %7s | %6s | %9s | %-26s |\n", "fault", "code", "roles", "wall s", "CPU s",
              "peak MiB+", "next query answered");
  std::printf("|%s|------|--------|---------|--------|-----------|%s|\n", std::string(36, '-').c_str(),
              std::string(28, '-').c_str());
  std::fflush(stdout);
  int status = 0;
  for (const Fault& fault : FAULTS) {
    bool wanted = argc < 2;
    for (int index = 1; index < argc; ++index) wanted = wanted || std::strcmp(argv[index], fault.name) == 0;
    if (!wanted) continue;
    const pid_t child = fork();
    if (child == 0) {
      try {
        _exit(runFault(fault));
      } catch (const std::exception& e) {
        std::fprintf(stderr, "%s: %s\n", fault.name, e.what());
        _exit(1);
      }
    }
    int childStatus = 0;
    waitpid(child, &childStatus, 0);
    if (!WIFEXITED(childStatus) || WEXITSTATUS(childStatus) != 0) status = 1;
  }
  return status;
}
