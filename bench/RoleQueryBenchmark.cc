// What a role query through the external-command back end costs over the least a caller must
// do to run the same command: am_getRoles_2 (then freeRoles) on the started component against
// posix_spawn + read + waitpid of "qivea authorization ldap search <the component's argument
// string>", in the same run, at a descriptor limit of 1024 and at the hard limit. Prints the
// ratio of the median real times (role query / baseline) at each limit.

#include "AmEntryPoints.h"
#include "AmQivEaWrapper.h"
#include "BenchmarkRunner.h"
#include "ChildProcess.h"
#include "JoinedRoles.h"
#include "QiveaLdapFramework.h"
#include "QiveaStandIn.h"
#include "StartedComponent.h"

#include <Framework/ManagementFramework.h>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using Bench::joinedRoles;

const char METHOD[] = "LDAP";
const char USER[] = "operator7";
const std::vector<std::string> ROLES = {"SystemAdministrator", "SystemReadOnly", "SecurityAdministrator"};

// The roles the component answers for USER; throws with the code when the query fails.
std::vector<std::string> queryRoles() {
  const char** roles = nullptr;
  const PymReturnT result = am_getRoles_2(METHOD, USER, &roles);
  if (result != 0 || roles == nullptr)
    throw std::runtime_error("am_getRoles_2 failed (" + std::to_string(result) + ")");
  std::vector<std::string> names;
  for (const char** role = roles; *role != nullptr; ++role) names.emplace_back(*role);
  am_freeRoles_2(METHOD, roles);
  return names;
}

// The one argument the component put after "authorization ldap search" in its only such call.
std::string recordedSearchArguments(const QiveaStandIn& standIn) {
  const std::vector<std::vector<std::string>> calls = standIn.callsStartingWith("authorization");
  if (calls.size() != 1)
    throw std::runtime_error(std::to_string(calls.size()) + " authorization calls recorded, not 1");
  const std::vector<std::string>& call = calls.front();
  if (call.size() != 4 || call[1] != "ldap" || call[2] != "search")
    throw std::runtime_error("unexpected authorization call of " + std::to_string(call.size()) + " arguments");
  if (call[3].find(std::string(" --userId=") + USER + " ") != 0)
    throw std::runtime_error("search arguments without the user first: '" + call[3] + "'");
  return call[3];
}

// What the baseline printed, without its line end.
std::string firstLine(const std::string& output) { return output.substr(0, output.find('\n')); }

void BM_RoleQuery(benchmark::State& state) {
  for (auto _ : state) {
    const char** roles = nullptr;
    const bool answered = am_getRoles_2(METHOD, USER, &roles) == 0 && roles != nullptr && roles[0] != nullptr;
    if (roles != nullptr) am_freeRoles_2(METHOD, roles);
    if (!answered) {
      state.SkipWithError("role query failed");
      break;
    }
  }
}

void BM_PosixSpawnBaseline(benchmark::State& state, Bench::ChildProcess* search) {
  std::string output;
  for (auto _ : state) {
    if (!search->run(output) || output.empty()) {
      state.SkipWithError("posix_spawn of qivea failed");
      break;
    }
  }
}

// Starts the component on framework, checks that both sides do the same work, and runs the two
// benchmarks. Throws std::exception for anything that keeps them from being measured.
int measure(int argc, char** argv, Framework::ManagementFramework& framework, const QiveaStandIn& standIn) {
  const Bench::StartedComponent component(framework, Bench::QiveaLdapFramework::COMPONENT_CONFIG);

  // Both sides must do the same work, or the ratio says nothing.
  const std::vector<std::string> roles = queryRoles();
  if (roles != ROLES)
    throw std::runtime_error("the query answered '" + joinedRoles(roles) + "', not the scripted roles");
  const std::string arguments = recordedSearchArguments(standIn);
  std::string shown = arguments;
  QivAccessManagement::AmQivEaWrapper().hidePassword(shown);
  std::printf("baseline: qivea authorization ldap search '%s'\n", shown.c_str());
  Bench::ChildProcess search({"qivea", "authorization", "ldap", "search", arguments});
  std::string output;
  if (!search.run(output) || firstLine(output) != joinedRoles(ROLES))
    throw std::runtime_error("the baseline printed '" + output + "', not the scripted roles");

  return Bench::BenchmarkRunner::runAtDescriptorLimits(
      argc, argv, "BM_RoleQuery", BM_RoleQuery, "BM_PosixSpawnBaseline",
      [&search](benchmark::State& state) { BM_PosixSpawnBaseline(state, &search); }, "role query");
}

}  // namespace

int main(int argc, char** argv) {
  return Bench::QiveaLdapFramework::run("role_query_benchmark", [&](Bench::QiveaLdapFramework& framework) {
    // A throw-away QIVEA_HOME, and the stand-in first on PATH, for the component and the baseline.
    const QiveaStandIn standIn(QIVEA_DIR);
    standIn.setUsers(std::string(USER) + ":" + joinedRoles(ROLES) + "\n");
    return measure(argc, argv, framework.framework(), standIn);
  });
}
