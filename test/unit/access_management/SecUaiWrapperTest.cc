#include "SecUaiWrapper.h"

#include <dlfcn.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "FrameworkTestBase.h"
#include "ScopedEnvironmentVariable.h"
#include "SecAcsStandIn.h"

using QivAccessManagement::SecUaiApiSymbols;
using QivAccessManagement::SecUaiWrapper;

namespace {

typedef std::vector<std::string> Strings;
typedef std::vector<SecAcsStandIn::Call> Calls;

const int kTrace = 8;
const char kLibrary[] = "libsec_acs_api.so.1";
const char kRoleGet[] = "acs_uai_user_data_role_get";

// Keeps one build of the stand-in loaded from its path while the object lives. The wrapper's
// open by the bare name then finds it by its soname among the loaded objects; closing it again
// unloads it, so no test sees what another one loaded.
class PreloadedLibrary {
 public:
  explicit PreloadedLibrary(const char* path) : _handle(dlopen(path, RTLD_NOW | RTLD_LOCAL)) {}
  ~PreloadedLibrary() { release(); }
  PreloadedLibrary(const PreloadedLibrary&) = delete;
  PreloadedLibrary& operator=(const PreloadedLibrary&) = delete;

  void* handle() const { return _handle; }

  void release() {
    if (_handle != nullptr) dlclose(_handle);
    _handle = nullptr;
  }

 private:
  void* _handle;
};

// True while some object with the library's soname is loaded in this process.
bool isLibraryLoaded() {
  void* handle = dlopen(kLibrary, RTLD_LAZY | RTLD_NOLOAD);
  if (handle == nullptr) return false;
  dlclose(handle);
  return true;
}

// The loader's reason for a failed look-up of name in handle.
std::string symbolError(void* handle, const char* name) {
  dlerror();
  if (dlsym(handle, name) != nullptr) return "found";
  const char* reason = dlerror();
  return reason != nullptr ? reason : "";
}

// What the stand-in records for one complete query of user, who has roleCount roles.
Calls queryCalls(const std::string& user, unsigned roleCount) {
  Calls calls = {
      {"acs_uai_initialize"}, {"acs_uai_user_session_start", user}, {"acs_uai_user_data_role_count_get", user}};
  for (unsigned index = 0; index < roleCount; ++index) calls.push_back({kRoleGet, user, std::to_string(index)});
  calls.push_back({"acs_uai_user_session_stop", user});
  calls.push_back({"acs_uai_finalize"});
  return calls;
}

class SecUaiTest : public FrameworkTestBase {
 protected:
  // Every trace line since the last log().clear(), in order.
  Strings traces() {
    Strings texts;
    for (const Framework::LogRecord& record : log().records()) {
      if (record.level == kTrace) texts.push_back(record.text);
    }
    return texts;
  }

  SecAcsStandIn standIn;
};

// The complete stand-in, loaded, with three users.
class SecUaiWrapperTest : public SecUaiTest {
 protected:
  void SetUp() override {
    ASSERT_NE(nullptr, library.handle()) << dlerror();
    ASSERT_TRUE(wrapper.isUaiAvailable());
    standIn.setUsers({{"alice", {"admin", "operator", "viewer"}}, {"bob", {}}, {"carol", {"SystemAdministrator"}}});
    log().clear();
  }

  PreloadedLibrary library{SEC_ACS_LIBRARY};
  SecUaiWrapper wrapper{kLibrary};
  Strings roles;
};

// The stand-in built without "acs_uai_user_data_role_count_get".
class SecUaiMissingSymbolTest : public SecUaiTest {
 protected:
  void SetUp() override { ASSERT_NE(nullptr, library.handle()) << dlerror(); }

  PreloadedLibrary library{SEC_ACS_LIBRARY_WITHOUT_ROLE_COUNT};
};

// Nothing with the library's soname loaded and nothing on the search path that the loader read
// when the process started.
class SecUaiMissingLibraryTest : public SecUaiTest {
 protected:
  void SetUp() override { ASSERT_FALSE(isLibraryLoaded()) << "an earlier test left the stand-in loaded"; }

  // The loader's reason for not finding the library.
  static std::string openError() {
    void* handle = dlopen(kLibrary, RTLD_LAZY);
    if (handle != nullptr) {
      dlclose(handle);
      return "opened";
    }
    return dlerror();
  }
};

TEST_F(SecUaiWrapperTest, OpeningResolvesAllSixEntryPointsOfTheLoadedLibrary) {
  SecUaiApiSymbols symbols(kLibrary);
  ASSERT_NE(nullptr, symbols.libraryHandle);
  EXPECT_EQ(dlsym(library.handle(), "acs_uai_initialize"), reinterpret_cast<void*>(symbols.initialize));
  EXPECT_EQ(dlsym(library.handle(), "acs_uai_finalize"), reinterpret_cast<void*>(symbols.finalize));
  EXPECT_EQ(dlsym(library.handle(), "acs_uai_user_session_start"), reinterpret_cast<void*>(symbols.sessionStart));
  EXPECT_EQ(dlsym(library.handle(), "acs_uai_user_data_role_count_get"), reinterpret_cast<void*>(symbols.roleCount));
  EXPECT_EQ(dlsym(library.handle(), kRoleGet), reinterpret_cast<void*>(symbols.roleGet));
  EXPECT_EQ(dlsym(library.handle(), "acs_uai_user_session_stop"), reinterpret_cast<void*>(symbols.sessionStop));
  EXPECT_NE(nullptr, symbols.initialize);
  EXPECT_EQ(Strings({"Sucessfully opened sec uai api so file: 'libsec_acs_api.so.1', sec uai api will be used"}),
            traces());
  EXPECT_TRUE(symbols.fetchSymbols());
}

TEST_F(SecUaiWrapperTest, LoadSymbolResolvesOneNameOrTracesTheLoadersReason) {
  SecUaiApiSymbols symbols(kLibrary);
  QivAccessManagement::AcsInitializeFunction function = nullptr;
  EXPECT_TRUE(symbols.loadSymbol(function, "acs_uai_initialize"));
  EXPECT_EQ(dlsym(library.handle(), "acs_uai_initialize"), reinterpret_cast<void*>(function));

  log().clear();
  EXPECT_FALSE(symbols.loadSymbol(function, "acs_uai_no_such_function"));
  EXPECT_EQ(nullptr, function);
  const std::string reason = symbolError(library.handle(), "acs_uai_no_such_function");
  EXPECT_EQ(Strings({"Cannot load sec uai api symbol 'acs_uai_no_such_function': " + reason}), traces());
}

TEST_F(SecUaiWrapperTest, CloseReleasesTheLibraryAndEveryEntryPoint) {
  SecUaiApiSymbols symbols(kLibrary);
  symbols.close();
  EXPECT_EQ(nullptr, symbols.libraryHandle);
  EXPECT_EQ(nullptr, symbols.initialize);
  EXPECT_EQ(nullptr, symbols.finalize);
  EXPECT_EQ(nullptr, symbols.sessionStart);
  EXPECT_EQ(nullptr, symbols.roleCount);
  EXPECT_EQ(nullptr, symbols.roleGet);
  EXPECT_EQ(nullptr, symbols.sessionStop);
  symbols.close();
  EXPECT_EQ(nullptr, symbols.libraryHandle);
}

TEST_F(SecUaiWrapperTest, RolesComeInTheLibrarysOrderAndEveryStepIsCalledOnce) {
  EXPECT_EQ(0, wrapper.getRoles("alice", roles));
  EXPECT_EQ(Strings({"admin", "operator", "viewer"}), roles);
  EXPECT_EQ(queryCalls("alice", 3), standIn.calls());
  EXPECT_EQ(Strings({"roleCount: 3", "role: admin", "role: operator", "role: viewer"}), traces());
}

TEST_F(SecUaiWrapperTest, RolesAreAppendedToWhatTheListHeld) {
  roles = {"earlier"};
  EXPECT_EQ(0, wrapper.getRoles("carol", roles));
  EXPECT_EQ(Strings({"earlier", "SystemAdministrator"}), roles);
}

TEST_F(SecUaiWrapperTest, UserWithoutRolesMakesNoRoleGetCallAndStillReleasesEverything) {
  roles = {"earlier"};
  EXPECT_EQ(0, wrapper.getRoles("bob", roles));
  EXPECT_EQ(Strings({"earlier"}), roles);
  EXPECT_EQ(0u, standIn.callCount(kRoleGet));
  EXPECT_EQ(queryCalls("bob", 0), standIn.calls());
  EXPECT_EQ(Strings({"roleCount: 0"}), traces());
}

TEST_F(SecUaiWrapperTest, UnknownUserGivesMinusTwo) {
  EXPECT_EQ(-2, wrapper.getRoles("mallory", roles));
  EXPECT_TRUE(roles.empty());
  EXPECT_EQ(Strings({"acs_uai_user_session_start failed: 6"}), traces());
  EXPECT_EQ(Calls({{"acs_uai_initialize"}, {"acs_uai_user_session_start", "mallory"}, {"acs_uai_finalize"}}),
            standIn.calls());
}

TEST_F(SecUaiWrapperTest, SessionStartStatusSixGivesMinusTwoEvenForAListedUser) {
  standIn.fail("acs_uai_user_session_start", 6);
  EXPECT_EQ(-2, wrapper.getRoles("alice", roles));
  EXPECT_TRUE(roles.empty());
  EXPECT_EQ(Strings({"acs_uai_user_session_start failed: 6"}), traces());
}

TEST_F(SecUaiWrapperTest, OtherSessionStartFailureGivesMinusOneAndReleasesTheContext) {
  standIn.fail("acs_uai_user_session_start", 3);
  EXPECT_EQ(-1, wrapper.getRoles("alice", roles));
  EXPECT_TRUE(roles.empty());
  EXPECT_EQ(Strings({"acs_uai_user_session_start failed: 3"}), traces());
  EXPECT_EQ(Calls({{"acs_uai_initialize"}, {"acs_uai_user_session_start", "alice"}, {"acs_uai_finalize"}}),
            standIn.calls());
}

TEST_F(SecUaiWrapperTest, InitializeFailureGivesMinusOneAndCallsNothingElse) {
  standIn.fail("acs_uai_initialize", 5);
  EXPECT_EQ(-1, wrapper.getRoles("alice", roles));
  EXPECT_TRUE(roles.empty());
  EXPECT_EQ(Strings({"acs_uai_initialize failed: 5"}), traces());
  EXPECT_EQ(Calls({{"acs_uai_initialize"}}), standIn.calls());
}

TEST_F(SecUaiWrapperTest, RoleCountFailureGivesMinusOneAndReleasesSessionAndContext) {
  standIn.fail("acs_uai_user_data_role_count_get", 7);
  EXPECT_EQ(-1, wrapper.getRoles("alice", roles));
  EXPECT_TRUE(roles.empty());
  EXPECT_EQ(Strings({"acs_uai_user_data_role_count_get failed: 7"}), traces());
  EXPECT_EQ(queryCalls("alice", 0), standIn.calls());
}

TEST_F(SecUaiWrapperTest, RoleGetFailureAtIndexTwoOfThreeKeepsTheFirstTwoRoles) {
  standIn.failRoleGet(2, 9);
  EXPECT_EQ(-1, wrapper.getRoles("alice", roles));
  EXPECT_EQ(Strings({"admin", "operator"}), roles);
  EXPECT_EQ(Strings({"roleCount: 3", "role: admin", "role: operator", "acs_uai_user_data_role_get index 2 failed: 9"}),
            traces());
  EXPECT_EQ(queryCalls("alice", 3), standIn.calls());
}

TEST_F(SecUaiWrapperTest, RoleGetFailureAtTheFirstIndexStopsAtOnce) {
  standIn.failRoleGet(0, 3);
  EXPECT_EQ(-1, wrapper.getRoles("alice", roles));
  EXPECT_TRUE(roles.empty());
  EXPECT_EQ(1u, standIn.callCount(kRoleGet));
  EXPECT_EQ(Strings({"roleCount: 3", "acs_uai_user_data_role_get index 0 failed: 3"}), traces());
}

TEST_F(SecUaiWrapperTest, SessionStopFailureGivesMinusOneAfterAllRolesWereRead) {
  standIn.fail("acs_uai_user_session_stop", 4);
  EXPECT_EQ(-1, wrapper.getRoles("alice", roles));
  EXPECT_EQ(Strings({"admin", "operator", "viewer"}), roles);
  EXPECT_EQ(Strings({"roleCount: 3", "role: admin", "role: operator", "role: viewer",
                     "acs_uai_user_session_stop failed: 4"}),
            traces());
  EXPECT_EQ(queryCalls("alice", 3), standIn.calls());
}

TEST_F(SecUaiWrapperTest, FinalizeFailureGivesMinusOne) {
  standIn.fail("acs_uai_finalize", 8);
  EXPECT_EQ(-1, wrapper.getRoles("carol", roles));
  EXPECT_EQ(Strings({"SystemAdministrator"}), roles);
  EXPECT_EQ(Strings({"roleCount: 1", "role: SystemAdministrator", "acs_uai_finalize failed: 8"}), traces());
  EXPECT_EQ(queryCalls("carol", 1), standIn.calls());
}

TEST_F(SecUaiWrapperTest, LibraryFailuresReachOnlyTheTrace) {
  standIn.fail("acs_uai_user_data_role_count_get", 3);
  EXPECT_EQ(-1, wrapper.getRoles("alice", roles));
  standIn.fail("acs_uai_initialize", 3);
  EXPECT_EQ(-1, wrapper.getRoles("alice", roles));
  ASSERT_EQ(2u, log().records().size());
  EXPECT_EQ(2u, log().countAtLevel(kTrace));
  EXPECT_TRUE(operatorMessages().empty());
}

TEST_F(SecUaiWrapperTest, NothingOfAQueryIsKept) {
  standIn.fail("acs_uai_initialize", 3);
  EXPECT_EQ(-1, wrapper.getRoles("alice", roles));
  standIn.heal("acs_uai_initialize");
  standIn.setUsers({{"alice", {"guest"}}});
  roles.clear();
  EXPECT_EQ(0, wrapper.getRoles("alice", roles));
  EXPECT_EQ(Strings({"guest"}), roles);
  EXPECT_EQ(2u, standIn.callCount("acs_uai_initialize"));
  EXPECT_EQ(1u, standIn.callCount("acs_uai_finalize"));
}

TEST_F(SecUaiWrapperTest, ConcurrentQueriesEachGetTheirOwnUsersAnswer) {
  const int kThreads = 6;
  const int kQueries = 40;
  std::vector<std::pair<std::string, Strings>> users;
  for (int user = 0; user < kThreads - 1; ++user) {
    Strings userRoles;
    for (int role = 0; role < user; ++role) {
      userRoles.push_back("role" + std::to_string(user) + "." + std::to_string(role));
    }
    users.push_back({"user" + std::to_string(user), userRoles});
  }
  standIn.setUsers(users);

  std::atomic<int> wrongAnswers(0);
  std::vector<std::thread> threads;
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([&, thread] {
      // The last thread asks for a user the library does not know.
      const bool known = thread < kThreads - 1;
      const std::string user = known ? users[thread].first : "nobody";
      for (int query = 0; query < kQueries; ++query) {
        Strings answer;
        const int result = wrapper.getRoles(user, answer);
        if (known ? result != 0 || answer != users[thread].second : result != -2 || !answer.empty()) ++wrongAnswers;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();

  EXPECT_EQ(0, wrongAnswers.load());
  const std::size_t queries = kThreads * kQueries;
  EXPECT_EQ(queries, standIn.callCount("acs_uai_initialize"));
  EXPECT_EQ(queries, standIn.callCount("acs_uai_finalize"));
  EXPECT_EQ(queries - kQueries, standIn.callCount("acs_uai_user_session_stop"));
  // 0 + 1 + ... + (kThreads - 2) roles per round of queries.
  EXPECT_EQ(static_cast<std::size_t>(kQueries * (kThreads - 1) * (kThreads - 2) / 2), standIn.callCount(kRoleGet));
}

TEST_F(SecUaiTest, DestructorClosesTheLibrary) {
  PreloadedLibrary library(SEC_ACS_LIBRARY);
  ASSERT_NE(nullptr, library.handle()) << dlerror();
  std::unique_ptr<SecUaiWrapper> wrapper(new SecUaiWrapper(kLibrary));
  ASSERT_TRUE(wrapper->isUaiAvailable());
  library.release();
  EXPECT_TRUE(isLibraryLoaded()) << "the wrapper holds the library open";
  wrapper.reset();
  EXPECT_FALSE(isLibraryLoaded());
}

TEST_F(SecUaiMissingSymbolTest, LookUpStopsAtTheFirstMissingSymbolAndLeavesTheLaterOnesNull) {
  SecUaiApiSymbols symbols(kLibrary);
  ASSERT_NE(nullptr, symbols.libraryHandle);
  EXPECT_NE(nullptr, symbols.initialize);
  EXPECT_NE(nullptr, symbols.finalize);
  EXPECT_NE(nullptr, symbols.sessionStart);
  EXPECT_EQ(nullptr, symbols.roleCount);
  EXPECT_EQ(nullptr, symbols.roleGet);
  EXPECT_EQ(nullptr, symbols.sessionStop);
  // Present in this build too: only the stop at the first failure leaves it null.
  EXPECT_NE(nullptr, dlsym(library.handle(), kRoleGet));

  const std::string reason = symbolError(library.handle(), "acs_uai_user_data_role_count_get");
  EXPECT_EQ(Strings({"Cannot load sec uai api symbol 'acs_uai_user_data_role_count_get': " + reason,
                     "Sucessfully opened sec uai api so file: 'libsec_acs_api.so.1', sec uai api will be used"}),
            traces());
  EXPECT_FALSE(symbols.fetchSymbols());
}

TEST_F(SecUaiMissingSymbolTest, WrapperStaysAvailableButQueriesNothing) {
  SecUaiWrapper wrapper(kLibrary);
  standIn.setUsers({{"alice", {"admin"}}});
  EXPECT_TRUE(wrapper.isUaiAvailable());
  Strings roles;
  EXPECT_EQ(-1, wrapper.getRoles("alice", roles));
  EXPECT_TRUE(roles.empty());
  EXPECT_TRUE(standIn.calls().empty());
}

TEST_F(SecUaiMissingLibraryTest, WrapperIsUnavailableAndTheTraceSaysWhyAndWhereTheLoaderLooked) {
  ScopedEnvironmentVariable searchPath("LD_LIBRARY_PATH", "/opt/sec/lib:/usr/local/lib");
  SecUaiWrapper wrapper(kLibrary);
  const std::string reason = openError();
  EXPECT_FALSE(wrapper.isUaiAvailable());
  EXPECT_EQ(Strings({"Failed to open sec uai api so file: 'libsec_acs_api.so.1', sec uai api will not be used: " +
                         reason,
                     "LD_LIBRARY_PATH: '/opt/sec/lib:/usr/local/lib'"}),
            traces());
  EXPECT_NE(std::string::npos, reason.find(kLibrary)) << reason;
}

TEST_F(SecUaiMissingLibraryTest, UnsetSearchPathIsTracedEmpty) {
  ScopedEnvironmentVariable searchPath("LD_LIBRARY_PATH");
  SecUaiApiSymbols symbols(kLibrary);
  EXPECT_EQ(nullptr, symbols.libraryHandle);
  EXPECT_EQ(1u, log().count(kTrace, "LD_LIBRARY_PATH: ''"));
}

TEST_F(SecUaiMissingLibraryTest, EveryQueryGivesMinusOne) {
  standIn.setUsers({{"alice", {"admin"}}});
  SecUaiWrapper wrapper(kLibrary);
  Strings roles;
  EXPECT_EQ(-1, wrapper.getRoles("alice", roles));
  EXPECT_EQ(-1, wrapper.getRoles("mallory", roles));
  EXPECT_TRUE(roles.empty());
}

TEST_F(SecUaiMissingLibraryTest, LoadSymbolWithoutALibraryIsFalse) {
  SecUaiApiSymbols symbols(kLibrary);
  log().clear();
  QivAccessManagement::AcsInitializeFunction function = nullptr;
  EXPECT_FALSE(symbols.loadSymbol(function, "acs_uai_initialize"));
  EXPECT_EQ(nullptr, function);
  EXPECT_TRUE(traces().empty());
  EXPECT_FALSE(symbols.fetchSymbols());
}

}  // namespace
