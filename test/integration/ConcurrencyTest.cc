#include "AttributeValue.h"
#include "LoadedComponentTest.h"

#include <Framework/CurrentTransaction.h>
#include <Framework/OperatorTransaction.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace {

const char METHOD_DN[] = "ManagedElement=1,SystemFunctions=1,SecM=1,UserManagement=1,LdapAuthenticationMethod=1";
const char LDAP_DN[] = "ManagedElement=1,SystemFunctions=1,SecM=1,UserManagement=1,LdapAuthenticationMethod=1,Ldap=1";
const char USER_MANAGEMENT_DN[] = "ManagedElement=1,SystemFunctions=1,SecM=1,UserManagement=1";
const char COMPONENT_FILE[] =
    "<QivAccessManagementComponent><ldapInitConfigTimeout>10</ldapInitConfigTimeout></QivAccessManagementComponent>";
const std::chrono::seconds RUN_TIME(3);
// Far beyond what any step may take: a thread still busy then is stuck.
const std::chrono::seconds DEADLOCK_LIMIT(60);

// Every code a role query may answer: success, busy, not started, the refusals, the answer that
// could not be built, and the codes of the external command.
const std::set<PymReturnT> ROLE_CODES = {0, 1, 2, -1, -2, -4, -6, -8, -9, -10, -11};
// An operator's write that reaches the component: accepted, refused while another transaction
// holds the MO lock, or refused while the component is stopped.
const std::set<PymReturnT> WRITE_CODES = {0, -1, 2};

}  // namespace

// Role queries on several threads while another thread commits configuration transactions, a
// third writes as an operator through the component's interceptors and a fourth stops and
// starts the component, for a bounded time, against the built library.
class ConcurrencyTest : public LoadedComponentTest {
 protected:
  void SetUp() override {
    framework().model().setStringValues(METHOD_DN, "administrativeState", {"UNLOCKED"});
    qivea.setUsers("alice:admin,operator\nbob:viewer\n");
    initialize(COMPONENT_FILE);
    ASSERT_EQ(0, descriptor->start(PymStateChangeStartup));
  }

  // Until the deadline: asks for roles and gives back every answer, counting the codes.
  void askForRoles(const char* user) {
    while (running()) {
      const char** roles = nullptr;
      const PymReturnT result = accessManagement->getRoles("LDAP", user, &roles);
      if (result == 0) {
        const bool complete = roles != nullptr && roles[0] != nullptr;
        if (!complete) record("answer 0 without roles");
        // A stop in between refuses the return with 2: the array is then the caller's to free.
        if (accessManagement->freeRoles("LDAP", roles) != 0) freeLocally(roles);
      } else if (roles != nullptr) {
        record("roles handed out with code " + std::to_string(result));
      }
      record(result);
      // Often enough to meet every state, seldom enough to keep the captured log small.
      std::this_thread::sleep_for(std::chrono::microseconds(500));
    }
  }

  // Until the deadline: one transaction after the other, each changing the base DN.
  void commitTransactions() {
    for (int round = 0; running(); ++round) {
      const unsigned long tx = framework().transactions().begin();
      PymReturnT written = 0;
      {
        const Framework::CurrentTransaction current(tx);
        written = resource->join(tx);
        const AttributeValue baseDn = AttributeValue::text("dc=round" + std::to_string(round));
        if (written == 0) written = managedObject->setMoAttribute(tx, LDAP_DN, "baseDn", baseDn.get());
      }
      if (written != 0) {
        // Refused while the component was stopped: the framework gives up the transaction.
        framework().transactions().abort(tx);
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        continue;
      }
      const PymReturnT result = framework().transactions().commit(tx);
      std::lock_guard<std::mutex> lock(_mutex);
      ++_transactionResults[result];
    }
  }

  // Until the deadline: an operator's write that the UserManagement interceptor mirrors to the
  // component's nodeType, given up again. An accepted write leaves two pending writes when it was
  // mirrored and one when it came while the component was stopped, without its interceptors.
  void writeThroughInterceptors() {
    for (int round = 0; running(); ++round) {
      Framework::OperatorTransaction transaction(framework());
      const PymReturnT result = transaction.setText(USER_MANAGEMENT_DN, "targetType", {"type" + std::to_string(round)});
      const std::size_t pending = framework().cmRouter().pendingWriteCount(transaction.handle());
      transaction.abort();
      {
        std::lock_guard<std::mutex> lock(_mutex);
        ++_writeResults[result];
        if (result == 0 && pending == 2) ++_mirroredWrites;
        if (result == 0 && pending != 1 && pending != 2)
          _problems.push_back("an accepted write left " + std::to_string(pending) + " pending writes");
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  }

  // Until the deadline: stop, then start again.
  void restart() {
    while (running()) {
      std::this_thread::sleep_for(std::chrono::milliseconds(150));
      const PymReturnT stopped = descriptor->stop(PymStateChangeShutdown);
      const PymReturnT started = descriptor->start(PymStateChangeStartup);
      std::lock_guard<std::mutex> lock(_mutex);
      if (stopped != 0 || started != 0)
        _problems.push_back("restart gave " + std::to_string(stopped) + "/" + std::to_string(started));
      ++_restarts;
    }
  }

  static void freeLocally(const char** roles) {
    for (const char** role = roles; role != nullptr && *role != nullptr; ++role) std::free(const_cast<char*>(*role));
    std::free(roles);
  }

  bool running() const { return std::chrono::steady_clock::now() < _deadline; }

  void record(PymReturnT code) {
    std::lock_guard<std::mutex> lock(_mutex);
    ++_roleResults[code];
  }

  void record(const std::string& problem) {
    std::lock_guard<std::mutex> lock(_mutex);
    _problems.push_back(problem);
  }

  std::chrono::steady_clock::time_point _deadline = std::chrono::steady_clock::now() + RUN_TIME;
  std::mutex _mutex;
  std::map<PymReturnT, int> _roleResults;
  std::map<PymReturnT, int> _transactionResults;
  std::map<PymReturnT, int> _writeResults;
  int _mirroredWrites = 0;
  std::vector<std::string> _problems;
  int _restarts = 0;
};

TEST_F(ConcurrencyTest, RoleQueriesTransactionsInterceptedWritesAndRestartsRunTogetherWithoutDeadlockOrUndocumentedCode) {
  _deadline = std::chrono::steady_clock::now() + RUN_TIME;
  std::vector<std::future<void>> workers;
  for (const char* user : {"alice", "bob", "alice", "nobody"})
    workers.push_back(std::async(std::launch::async, [this, user] { askForRoles(user); }));
  workers.push_back(std::async(std::launch::async, [this] { commitTransactions(); }));
  workers.push_back(std::async(std::launch::async, [this] { writeThroughInterceptors(); }));
  workers.push_back(std::async(std::launch::async, [this] { restart(); }));
  for (std::future<void>& worker : workers) {
    if (worker.wait_for(RUN_TIME + DEADLOCK_LIMIT) != std::future_status::ready) {
      // Joining a stuck thread would hang the whole suite.
      std::fprintf(stderr, "a worker is still busy long after the deadline: deadlock\n");
      std::abort();
    }
    worker.get();
  }

  std::lock_guard<std::mutex> lock(_mutex);
  EXPECT_TRUE(_problems.empty()) << _problems.front();
  for (const auto& result : _roleResults) EXPECT_EQ(1u, ROLE_CODES.count(result.first)) << "role query code " << result.first;
  // Every party made progress.
  EXPECT_GT(_roleResults[0], 0);
  EXPECT_GT(_restarts, 0);
  int transactions = 0;
  for (const auto& result : _transactionResults) transactions += result.second;
  EXPECT_GT(transactions, 0);
  EXPECT_GT(_transactionResults[0], 0);
  for (const auto& result : _writeResults) EXPECT_EQ(1u, WRITE_CODES.count(result.first)) << "operator write code " << result.first;
  EXPECT_GT(_mirroredWrites, 0);
  // Every refusal is the component's refusal of the mirrored write, which the interceptor logs:
  // -1 is also what an interceptor answers when it fails by itself.
  std::size_t refusedWrites = 0;
  for (const auto& result : _writeResults) refusedWrites += result.first == 0 ? 0 : result.second;
  EXPECT_EQ(refusedWrites, log().count(3, "Could not set attribute value for attribute nodeType in Ldap MOC"));
  for (const auto& result : _roleResults) std::printf("role query code %d: %d times\n", result.first, result.second);
  for (const auto& result : _transactionResults)
    std::printf("transaction result %d: %d times\n", result.first, result.second);
  for (const auto& result : _writeResults) std::printf("operator write result %d: %d times\n", result.first, result.second);
  std::printf("mirrored operator writes: %d\n", _mirroredWrites);
  std::printf("restarts: %d\n", _restarts);
}
