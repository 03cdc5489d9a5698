// What a role query through the component's built-in LDAP lookup costs over the least a client
// must do with libldap to get the same answer from the same directory: am_getRoles_2 (then
// freeRoles) through the started component's offered table against the same session options,
// TLS set-up and directory operations made with bare libldap calls, in the same run. One throw-away
// slapd serves three variants, each measured in a phase of its own with the component started on
// that configuration: plain, LDAPS and StartTLS. Prints the ratio of the median real times
// (role query / baseline) of each.

#include "AccessManagementComponent.h"
#include "BareLdapLookup.h"
#include "BenchmarkRunner.h"
#include "DirectoryModel.h"
#include "JoinedRoles.h"
#include "QiveaStandIn.h"
#include "RatioReporter.h"
#include "SlapdInstance.h"
#include "StartedComponent.h"

#include <Framework/ManagementFramework.h>
#include <PymMwSpiAccessManagement.h>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <exception>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using Bench::joinedRoles;

using Security = Bench::BareLdapLookup::Security;
using TestDirectory::SlapdInstance;

// Every lookup waits on slapd several times, so single repetitions scatter more than in the other
// programs: more of them keep the medians steady.
const int REPETITIONS = 30;
const char METHOD[] = "LDAP";
// A filter-type-2 user with an authentication scope and two role values that this node keeps.
const char USER[] = "dave";
// Start waits for the initial configuration, so that the first query is served.
const char COMPONENT_CONFIG[] =
    "<QivAccessManagementComponent><useBuiltInAuthorization>true</useBuiltInAuthorization>"
    "<ldapInitConfigTimeout>10</ldapInitConfigTimeout></QivAccessManagementComponent>";

struct Variant {
  const char* name;
  bool useTls;
  const char* tlsMode;
  Security security;
};

// Plain keeps the model's STARTTLS, which without useTls is not used (LDAPS would be warned about).
const Variant VARIANTS[] = {
    {"plain", false, "STARTTLS", Security::NONE},
    {"LDAPS", true, "LDAPS", Security::LDAPS},
    {"StartTLS", true, "STARTTLS", Security::STARTTLS},
};

std::string measuredName(const Variant& variant) { return std::string("BM_BuiltInRoleQuery_") + variant.name; }
std::string baselineName(const Variant& variant) { return std::string("BM_BareLdapBaseline_") + variant.name; }

std::vector<Bench::RatioReporter::Comparison> comparisons() {
  std::vector<Bench::RatioReporter::Comparison> all;
  for (const Variant& variant : VARIANTS)
    all.push_back({measuredName(variant), baselineName(variant), std::string("built-in role query ") + variant.name});
  return all;
}

// Warnings and errors are kept for a failure report; traces are neither kept nor formatted.
Framework::ManagementFramework::Options frameworkOptions() {
  Framework::ManagementFramework::Options options;
  options.modelFile = std::string(QIV_FIXTURES_DIR) + "/models/ldap20.xml";
  options.logLevel = 4;
  options.echoLevel = -1;
  return options;
}

std::string address(const SlapdInstance& directory, const Variant& variant) {
  return variant.security == Security::LDAPS ? directory.ldapsAddress() : directory.plainAddress();
}

// The cipher-suite option as the started component hands it to libldap: its cipher filter, as a
// GnuTLS priority string when libldap does TLS with GnuTLS. Worked out once: only the handshake it
// leads to belongs to the baseline, not the work of getting it.
std::string componentCipherSuite() {
  return Bench::BareLdapLookup::cipherSuiteFor(QivAccessManagement::AccessManagementComponent::instance()
                                                  .getConfigurationRunnable()
                                                  .getLdapConfiguration()
                                                  .cipherFilter);
}

Bench::BareLdapLookup::Settings baselineSettings(const SlapdInstance& directory, const Variant& variant) {
  const char* scheme = variant.security == Security::LDAPS ? "ldaps://" : "ldap://";
  return {scheme + address(directory, variant), variant.security, directory.caFile(), componentCipherSuite(),
          SlapdInstance::baseDn()};
}

// The table a framework finds for role queries.
PymMwSpiAccessManagement_2* offeredTable(Framework::ManagementFramework& framework) {
  PymMgmtSpiInterface_1* table = nullptr;
  if (framework.portal().getInterface(nullptr, "PymMwSpiAccessManagement", "2", &table) != PymOk || table == nullptr)
    throw std::runtime_error("the component offers no \"PymMwSpiAccessManagement\" \"2\"");
  return reinterpret_cast<PymMwSpiAccessManagement_2*>(table);
}

// The roles the component answers for USER; throws with the code when the query fails.
std::vector<std::string> queryRoles(const PymMwSpiAccessManagement_2& table) {
  const char** roles = nullptr;
  const PymReturnT result = table.getRoles(METHOD, USER, &roles);
  if (result != 0 || roles == nullptr) throw std::runtime_error("getRoles failed (" + std::to_string(result) + ")");
  std::vector<std::string> names;
  for (const char** role = roles; *role != nullptr; ++role) names.emplace_back(*role);
  table.freeRoles(METHOD, roles);
  return names;
}

void BM_BuiltInRoleQuery(benchmark::State& state, const PymMwSpiAccessManagement_2* table) {
  for (auto _ : state) {
    const char** roles = nullptr;
    const bool answered = table->getRoles(METHOD, USER, &roles) == 0 && roles != nullptr && roles[0] != nullptr;
    if (roles != nullptr) table->freeRoles(METHOD, roles);
    if (!answered) {
      state.SkipWithError("role query failed");
      break;
    }
  }
}

void BM_BareLdapBaseline(benchmark::State& state, const Bench::BareLdapLookup* lookup) {
  for (auto _ : state) {
    try {
      if (lookup->roles(USER).empty()) {
        state.SkipWithError("the bare lookup found no roles");
        break;
      }
    } catch (const std::exception& e) {
      state.SkipWithError(e.what());
      break;
    }
  }
}

// What the framework kept, for a failure report.
void printLog(Framework::ManagementFramework& framework) {
  for (const Framework::LogRecord& record : framework.log().records())
    std::fprintf(stderr, "  log %d %s: %s\n", record.level, record.method.c_str(), record.text.c_str());
}

// Starts the component on the variant's configuration, checks that it answers what the bare
// lookup answers and through the built-in lookup, and runs the two benchmarks. Throws
// std::exception for anything that keeps them from being measured.
void measure(Bench::BenchmarkRunner& runner, Framework::ManagementFramework& framework, const QiveaStandIn& standIn,
             const SlapdInstance& directory, const Variant& variant) {
  Bench::DirectoryModel::configure(framework.model(), directory, variant.useTls, variant.tlsMode);
  const Bench::StartedComponent component(framework, COMPONENT_CONFIG);
  const PymMwSpiAccessManagement_2* table = offeredTable(framework);
  const Bench::BareLdapLookup baseline(baselineSettings(directory, variant));

  // Both sides must do the same work, or the ratio says nothing.
  const std::vector<std::string> roles = queryRoles(*table);
  const std::vector<std::string> expected = baseline.roles(USER);
  if (roles != expected)
    throw std::runtime_error("the component answered '" + joinedRoles(roles) + "', the bare lookup '" +
                             joinedRoles(expected) + "'");
  if (!standIn.callsStartingWith("authorization").empty())
    throw std::runtime_error("the query went to qivea, not to the built-in lookup");
  std::printf("%s: both answer '%s' for %s from %s\n", variant.name, joinedRoles(roles).c_str(), USER,
              address(directory, variant).c_str());
  std::fflush(stdout);

  benchmark::RegisterBenchmark(baselineName(variant).c_str(), BM_BareLdapBaseline, &baseline)
      ->UseRealTime()
      ->Unit(benchmark::kMicrosecond)
      ->Repetitions(REPETITIONS);
  benchmark::RegisterBenchmark(measuredName(variant).c_str(), BM_BuiltInRoleQuery, table)
      ->UseRealTime()
      ->Unit(benchmark::kMicrosecond)
      ->Repetitions(REPETITIONS);
  runner.runRegistered();
}

}  // namespace

int main(int argc, char** argv) {
  Bench::BenchmarkRunner runner(argc, argv, comparisons());
  if (!runner.argumentsAccepted()) return 1;
  try {
    const SlapdInstance directory;
    // A throw-away QIVEA_HOME, and the stand-in first on PATH, for what the component runs at start.
    const QiveaStandIn standIn(QIVEA_DIR);
    Framework::ManagementFramework framework(frameworkOptions());
    // A variant that cannot be measured leaves its ratio unmeasured; the others still run.
    for (const Variant& variant : VARIANTS) {
      try {
        measure(runner, framework, standIn, directory, variant);
      } catch (const std::exception& e) {
        std::fprintf(stderr, "built_in_role_query_benchmark: %s: %s\n", variant.name, e.what());
        printLog(framework);
      }
      framework.log().clear();
    }
  } catch (const std::exception& e) {
    std::fprintf(stderr, "built_in_role_query_benchmark: %s\n", e.what());
  }
  return runner.printRatios() ? 0 : 1;
}
