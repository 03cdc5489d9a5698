// A soak of the built library in one host process, the framework stand-in in it: role queries
// through the built-in LDAP lookup against a throw-away slapd, role queries through the qivea
// stand-in, then configuration transactions with a stop and start of the component every few
// of them. The process's descriptors, threads, unreaped children and resident memory are sampled
// before and after each workload and after its first tenth (the warm-up); from there to its end
// none may grow (the built-in lookup's memory: not beyond what the same lookups made with bare
// libldap calls grow it in the same run). Prints the table and exits 1 when anything grew or an
// operation failed.

#include "BareLdapLookup.h"
#include "DirectoryModel.h"
#include "JoinedRoles.h"
#include "LoadedComponent.h"
#include "QiveaLdapFramework.h"
#include "QiveaStandIn.h"
#include "ResourceCheckpoints.h"
#include "SlapdInstance.h"

#include <Framework/ManagementFramework.h>
#include <Framework/OperatorTransaction.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using Bench::joinedRoles;

const char PROGRAM[] = "resource_soak";
const long DEFAULT_BUILT_IN_QUERIES = 10000;
const long DEFAULT_QIVEA_QUERIES = 10000;
const long DEFAULT_TRANSACTIONS = 1000;
// Below this a tenth is no warm-up.
const long FEWEST_OPERATIONS = 10;
const long RESTART_EVERY = 5;
// VmRSS moves in 4 kB pages, and glibc keeps freed memory in its arenas (a new configuration
// thread may take another one) rather than return it: a few pages either way are noise (at most
// 8 kB in the runs so far). 256 kB still shows a leak of 30 bytes per query over the full soak's
// 9000 queries, of 146 over the short run's 1800.
const long RESIDENT_TOLERANCE_KB = 256;

const char LDAP_DN[] = "ManagedElement=1,SystemFunctions=1,SecM=1,UserManagement=1,LdapAuthenticationMethod=1,Ldap=1";
// Start waits for the initial configuration, so that the first query is served.
const char BUILT_IN_CONFIG[] =
    "<QivAccessManagementComponent><useBuiltInAuthorization>true</useBuiltInAuthorization>"
    "<ldapInitConfigTimeout>10</ldapInitConfigTimeout></QivAccessManagementComponent>";
// A filter-type-2 user of the sample directory with roles that this node keeps.
const char BUILT_IN_USER[] = "dave";
const char BARE_LOOKUPS[] = "bare libldap lookups over LDAPS";
const char QIVEA_USER[] = "operator7";
const std::vector<std::string> QIVEA_ROLES = {"SystemAdministrator", "SystemReadOnly"};
// What the transactions write in turn, so that each commit changes the configuration.
const char* const BASE_DNS[] = {"ou=people,dc=example,dc=com", "dc=example,dc=com"};

struct Counts {
  long builtInQueries = DEFAULT_BUILT_IN_QUERIES;
  long qiveaQueries = DEFAULT_QIVEA_QUERIES;
  long transactions = DEFAULT_TRANSACTIONS;
};

void printUsage(std::FILE* out) {
  std::fprintf(out,
               "usage: %s [BUILT_IN_QUERIES [QIVEA_QUERIES [TRANSACTIONS]]]\n"
               "  defaults %ld %ld %ld, each at least %ld; a restart comes before every %ldth transaction.\n"
               "  Checkpoints after the first tenth of each workload; from there to its end descriptors,\n"
               "  threads and children may not grow at all, VmRSS not by more than %ld kB (the built-in\n"
               "  lookup's: beyond what as many bare libldap lookups grow it).\n",
               PROGRAM, DEFAULT_BUILT_IN_QUERIES, DEFAULT_QIVEA_QUERIES, DEFAULT_TRANSACTIONS, FEWEST_OPERATIONS,
               RESTART_EVERY, RESIDENT_TOLERANCE_KB);
}

// False for anything but up to three counts of at least FEWEST_OPERATIONS.
bool parseCounts(int argc, char** argv, Counts& counts) {
  if (argc > 4) return false;
  long* const fields[] = {&counts.builtInQueries, &counts.qiveaQueries, &counts.transactions};
  for (int i = 1; i < argc; ++i) {
    char* end = nullptr;
    const long value = std::strtol(argv[i], &end, 10);
    if (end == argv[i] || *end != '\0' || value < FEWEST_OPERATIONS) return false;
    *fields[i - 1] = value;
  }
  return true;
}

// What the framework stand-in keeps of every operation (log lines, operator messages,
// registration calls) is its bookkeeping, not the component's: dropped after each operation so
// that it does not pass for growth, and so that a failure report shows the failing one's lines.
void forgetHistory(Framework::ManagementFramework& framework) {
  framework.log().clear();
  framework.threadContext().clear();
  framework.objectImplementers().clearCalls();
}

// The checkpoints after a workload's warm-up and after its end, and the operations between them.
struct Stretch {
  std::size_t warm;
  std::size_t end;
  long operations;
};

// Runs operation(0 .. count-1), each throwing when it fails, with a checkpoint after the first
// tenth and one after the last.
Stretch soak(Bench::ResourceCheckpoints& checkpoints, Framework::ManagementFramework& framework,
             const std::string& workload, const std::string& unit, long count,
             const std::function<void(long)>& operation) {
  const long warmUp = count / 10;
  std::printf("%s: %ld %s...\n", workload.c_str(), count, unit.c_str());
  std::fflush(stdout);
  const auto began = std::chrono::steady_clock::now();
  std::size_t warm = 0;
  for (long i = 0; i < count; ++i) {
    operation(i);
    forgetHistory(framework);
    if (i + 1 == warmUp) {
      warm = checkpoints.take(workload + ": after " + std::to_string(warmUp) + " of " + std::to_string(count) + " " +
                              unit);
    }
  }
  const std::size_t end = checkpoints.take(workload + ": after " + std::to_string(count) + " " + unit);
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - began;
  std::printf("%s: %ld %s in %.1f s\n", workload.c_str(), count, unit.c_str(), took.count());
  return {warm, end, count - warmUp};
}

void expectNoGrowth(Bench::ResourceCheckpoints& checkpoints, const std::string& workload, const std::string& unit,
                    const Stretch& stretch) {
  checkpoints.expectNoGrowth(workload, stretch.warm, stretch.end, stretch.operations, unit);
}

// The cipher filter the component applied, as its last authentication command told qivea.
std::string appliedCipherFilter(const QiveaStandIn& standIn) {
  const std::string state = standIn.authenticationState();
  const std::string key = "\ncipherFilter=";
  const std::string::size_type start = state.find(key);
  if (start == std::string::npos) throw std::runtime_error("qivea was given no cipher filter");
  const std::string::size_type value = start + key.size();
  return state.substr(value, state.find('\n', value) - value);
}

// Libldap with GnuTLS keeps memory of every TLS context that it builds with a cipher suite, and
// the lookup builds one for each session: the same lookups made with bare libldap calls, in the
// same run, measure what libldap keeps, and only growth beyond it counts as the component's.
void soakBuiltInLookup(Bench::ResourceCheckpoints& checkpoints, Framework::ManagementFramework& framework,
                       Bench::LoadedComponent& component, const QiveaStandIn& standIn,
                       const TestDirectory::SlapdInstance& directory, long count) {
  // LDAPS: every lookup opens a TLS session, the most the lookup holds and must give back.
  Bench::DirectoryModel::configure(framework.model(), directory, true, "LDAPS");
  component.initialize(BUILT_IN_CONFIG);
  component.start();
  const std::vector<std::string> expected = component.roles(BUILT_IN_USER);
  checkpoints.take("built-in lookup: started, answers " + joinedRoles(expected));
  const std::string workload = "built-in lookup over LDAPS";
  const Stretch lookups = soak(checkpoints, framework, workload, "queries", count, [&](long) {
    const std::vector<std::string> roles = component.roles(BUILT_IN_USER);
    if (roles != expected) throw std::runtime_error("the built-in lookup answered " + joinedRoles(roles));
  });
  if (!standIn.callsStartingWith("authorization").empty())
    throw std::runtime_error("a built-in query went to qivea");
  const std::string cipherSuite = Bench::BareLdapLookup::cipherSuiteFor(appliedCipherFilter(standIn));
  component.stop();
  component.terminate();
  checkpoints.take("built-in lookup: stopped and terminated");

  const Bench::BareLdapLookup bare({"ldaps://" + directory.ldapsAddress(), Bench::BareLdapLookup::Security::LDAPS,
                                    directory.caFile(), cipherSuite, TestDirectory::SlapdInstance::baseDn()});
  const Stretch baseline = soak(checkpoints, framework, BARE_LOOKUPS, "lookups", count, [&](long) {
    const std::vector<std::string> roles = bare.roles(BUILT_IN_USER);
    if (roles != expected) throw std::runtime_error("the bare lookup answered " + joinedRoles(roles));
  });
  checkpoints.expectNoGrowthBeyond(workload, lookups.warm, lookups.end, lookups.operations, "queries", BARE_LOOKUPS,
                                   baseline.warm, baseline.end);
}

// Leaves the component started for the transactions.
void soakQiveaQueries(Bench::ResourceCheckpoints& checkpoints, Framework::ManagementFramework& framework,
                      Bench::LoadedComponent& component, const QiveaStandIn& standIn, long count) {
  standIn.setUsers(std::string(QIVEA_USER) + ":" + joinedRoles(QIVEA_ROLES) + "\n");
  component.initialize(Bench::QiveaLdapFramework::COMPONENT_CONFIG);
  component.start();
  checkpoints.take("qivea: started");
  const std::string workload = "queries through qivea";
  const Stretch queries = soak(checkpoints, framework, workload, "queries", count, [&](long) {
    const std::vector<std::string> roles = component.roles(QIVEA_USER);
    if (roles != QIVEA_ROLES) throw std::runtime_error("the query through qivea answered " + joinedRoles(roles));
  });
  expectNoGrowth(checkpoints, workload, "queries", queries);
  const std::size_t searches = standIn.callsStartingWith("authorization").size();
  if (searches != static_cast<std::size_t>(count))
    throw std::runtime_error(std::to_string(searches) + " qivea searches for " + std::to_string(count) + " queries");
}

// A start returns once the configuration thread has signalled, which may still be ending then:
// the restart comes before a transaction, so that no checkpoint follows one directly.
void soakTransactions(Bench::ResourceCheckpoints& checkpoints, Framework::ManagementFramework& framework,
                      Bench::LoadedComponent& component, const QiveaStandIn& standIn, long count) {
  const std::string workload = "transactions, restart before every " + std::to_string(RESTART_EVERY) + "th";
  const Stretch transactions = soak(checkpoints, framework, workload, "transactions", count, [&](long i) {
    if (i > 0 && i % RESTART_EVERY == 0) {
      component.stop();
      component.start();
    }
    const std::string baseDn = BASE_DNS[i % 2];
    Framework::OperatorTransaction transaction(framework);
    const PymReturnT written = transaction.setText(LDAP_DN, "baseDn", {baseDn});
    if (written != 0) throw std::runtime_error("writing baseDn failed (" + std::to_string(written) + ")");
    const PymReturnT committed = transaction.commit();
    if (committed != 0) throw std::runtime_error("commit failed (" + std::to_string(committed) + ")");
    if (standIn.authenticationState().find("\nbase-dn=" + baseDn + "\n") == std::string::npos)
      throw std::runtime_error("the commit of base DN " + baseDn + " did not reach qivea");
  });
  expectNoGrowth(checkpoints, workload, "transactions", transactions);
  component.stop();
  component.terminate();
  checkpoints.take("transactions: stopped and terminated");
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 2 && std::string(argv[1]) == "--help") {
    printUsage(stdout);
    return 0;
  }
  Counts counts;
  if (!parseCounts(argc, argv, counts)) {
    printUsage(stderr);
    return 2;
  }
  Bench::ResourceCheckpoints checkpoints(RESIDENT_TOLERANCE_KB);
  checkpoints.take("process start");
  const auto began = std::chrono::steady_clock::now();
  return Bench::QiveaLdapFramework::run(PROGRAM, [&](Bench::QiveaLdapFramework& host) {
    Framework::ManagementFramework& framework = host.framework();
    const TestDirectory::SlapdInstance directory;
    // A throw-away QIVEA_HOME, and the stand-in first on PATH.
    const QiveaStandIn standIn(QIVEA_DIR);
    Bench::LoadedComponent component(framework, QIV_COMPONENT_LIBRARY);
    checkpoints.take("slapd running, library loaded");
    soakBuiltInLookup(checkpoints, framework, component, standIn, directory, counts.builtInQueries);
    soakQiveaQueries(checkpoints, framework, component, standIn, counts.qiveaQueries);
    soakTransactions(checkpoints, framework, component, standIn, counts.transactions);
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - began;
    std::printf("\n");
    const bool steady = checkpoints.report();
    std::printf("%s: %.1f s in all; %s\n", PROGRAM, took.count(), steady ? "nothing grew" : "something grew");
    return steady ? 0 : 1;
  });
}
