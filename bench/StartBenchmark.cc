// What the component's start costs over the qivea runs it waits for: start from call to return
// (lib_init before it and stop and lib_term after it are not timed) against running the command
// lines that one start gave qivea, one after the other, each with posix_spawn + read + waitpid,
// in the same run, at a descriptor limit of 1024 and at the hard limit. Prints the ratio and the
// difference of the median real times at each limit.

#include "AccessManagementComponent.h"
#include "AmQivEaWrapper.h"
#include "BenchmarkRunner.h"
#include "ChildProcess.h"
#include "QiveaLdapFramework.h"
#include "QiveaStandIn.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <deque>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

typedef std::vector<std::string> Args;

QivAccessManagement::AccessManagementComponent& component() {
  return QivAccessManagement::AccessManagementComponent::instance();
}

// One start between an untimed lib_init and an untimed stop and lib_term: false when it failed.
bool timedStart(benchmark::State& state, Framework::ManagementFramework& framework) {
  state.PauseTiming();
  const bool initialised = component().lib_init(framework.accessor(), Bench::QiveaLdapFramework::COMPONENT_CONFIG) == 0;
  state.ResumeTiming();
  const bool started = initialised && component().start(PymStateChangeStartup) == 0 && component().isStarted();
  state.PauseTiming();
  component().stop(PymStateChangeShutdown);
  component().lib_term();
  state.ResumeTiming();
  return started;
}

void BM_Start(benchmark::State& state, Framework::ManagementFramework* framework) {
  for (auto _ : state) {
    if (!timedStart(state, *framework)) {
      state.SkipWithError("start failed");
      break;
    }
  }
}

void BM_QiveaRunsOfStart(benchmark::State& state, std::deque<Bench::ChildProcess>* runs) {
  std::string output;
  for (auto _ : state) {
    for (Bench::ChildProcess& run : *runs) {
      if (!run.run(output)) {
        state.SkipWithError("a qivea run of start failed");
        return;
      }
    }
  }
}

// The command lines one start gave qivea, each printed (passwords masked); throws when start failed or a later
// call showed that start returned before its qivea runs ended.
std::vector<Args> qiveaRunsOfOneStart(Framework::ManagementFramework& framework, const QiveaStandIn& standIn) {
  const std::size_t before = standIn.calls().size();
  if (component().lib_init(framework.accessor(), Bench::QiveaLdapFramework::COMPONENT_CONFIG) != 0)
    throw std::runtime_error("lib_init failed");
  const bool started = component().start(PymStateChangeStartup) == 0 && component().isStarted();
  std::vector<Args> runs = standIn.calls();
  runs.erase(runs.begin(), runs.begin() + static_cast<std::ptrdiff_t>(before));
  component().stop(PymStateChangeShutdown);
  component().lib_term();
  if (!started) throw std::runtime_error("start failed");
  if (standIn.calls().size() != before + runs.size()) throw std::runtime_error("qivea ran after start returned");
  if (runs.empty()) throw std::runtime_error("start ran no qivea");
  const QivAccessManagement::AmQivEaWrapper wrapper;
  for (const Args& run : runs) std::printf("baseline: qivea %s\n", wrapper.serialize(run).c_str());
  return runs;
}

int measure(int argc, char** argv, Framework::ManagementFramework& framework, const QiveaStandIn& standIn) {
  std::deque<Bench::ChildProcess> runs;
  for (Args& run : qiveaRunsOfOneStart(framework, standIn)) {
    run.insert(run.begin(), "qivea");
    runs.emplace_back(run);
  }
  return Bench::BenchmarkRunner::runAtDescriptorLimits(
      argc, argv, "BM_Start", [&framework](benchmark::State& state) { BM_Start(state, &framework); },
      "BM_QiveaRunsOfStart", [&runs](benchmark::State& state) { BM_QiveaRunsOfStart(state, &runs); }, "start");
}

}  // namespace

int main(int argc, char** argv) {
  return Bench::QiveaLdapFramework::run("start_benchmark", [&](Bench::QiveaLdapFramework& framework) {
    // A throw-away QIVEA_HOME, and the stand-in first on PATH, for the component and the baseline.
    const QiveaStandIn standIn(QIVEA_DIR);
    return measure(argc, argv, framework.framework(), standIn);
  });
}
