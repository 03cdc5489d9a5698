#include "FrameworkTest.h"

#include <Framework/CurrentTransaction.h>
#include <PymMgmtSpiThreadContext.h>
#include <PymOamSpiManagedObject.h>
#include <PymOamSpiTransaction.h>

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

namespace {

// Participants as a component writes them: C functions without context, so each of the three
// fakes has its own instantiation. Every call appends "P<n> <step> <tx>" to calls and the
// calling thread's current transaction to currents; steps answer as scripted.
struct Script {
  bool valid = true;
  PymReturnT validateCode = PymOk;
  PymReturnT prepareCode = PymOk;
  PymReturnT commitCode = PymOk;
  std::string operatorMessage;  // added through the thread context during validate
};

std::vector<std::string> calls;
std::vector<unsigned long> currents;
std::array<Script, 3> scripts;

void note(int participant, const char* step, unsigned long txHandle) {
  calls.push_back("P" + std::to_string(participant) + " " + step + " " + std::to_string(txHandle));
  currents.push_back(Framework::CurrentTransaction::get());
}

PymMgmtSpiThreadContext_2* threadContext() {
  auto* portal = static_cast<PymMgmtSpiInterfacePortal_3*>(
      Framework::ManagementFramework::current()->accessor()->getPortal("3"));
  PymMgmtSpiInterface_1* found = nullptr;
  portal->getInterface(nullptr, "PymMgmtSpiThreadContext", "2", &found);
  return reinterpret_cast<PymMgmtSpiThreadContext_2*>(found);
}

enum Step { Join, Prepare, Commit, Abort, Finish };

template <int participant, Step step>
PymReturnT stepOf(unsigned long txHandle) {
  static const char* const names[] = {"join", "prepare", "commit", "abort", "finish"};
  note(participant, names[step], txHandle);
  if (step == Prepare) return scripts[participant].prepareCode;
  return step == Commit ? scripts[participant].commitCode : PymOk;
}

template <int participant>
PymReturnT validate(unsigned long txHandle, bool* result) {
  note(participant, "validate", txHandle);
  const Script& script = scripts[participant];
  if (!script.operatorMessage.empty()) {
    threadContext()->addMessage(PymThreadContextMessageOperator, script.operatorMessage.c_str());
  }
  *result = script.valid;
  return script.validateCode;
}

template <int participant>
PymOamSpiTransactionalResource_2 makeParticipant(const char* componentName) {
  return {{componentName, "PymOamSpiTransactionalResource", "2"},
          stepOf<participant, Join>,
          stepOf<participant, Prepare>,
          stepOf<participant, Commit>,
          stepOf<participant, Abort>,
          stepOf<participant, Finish>,
          validate<participant>};
}

PymOamSpiTransactionalResource_2 participant0 = makeParticipant<0>("P0");
PymOamSpiTransactionalResource_2 participant1 = makeParticipant<1>("P1");
PymOamSpiTransactionalResource_2 participant2 = makeParticipant<2>("P2");

}  // namespace

class TransactionTables : public FrameworkTest {
 protected:
  void SetUp() override {
    FrameworkTest::SetUp();
    calls.clear();
    currents.clear();
    scripts = {};
    transaction = lookup<PymOamSpiTransaction_2>("PymOamSpiTransactionService", "PymOamSpiTransaction", "2");
    master = lookup<PymOamSpiTransactionMaster_2>("PymOamSpiTransactionService", "PymOamSpiTransactionMaster", "2");
    router = lookup<PymOamSpiManagedObject_3>("PymOamSpiCmRouterService", "PymOamSpiManagedObject", "3");
    ASSERT_NE(nullptr, transaction);
    ASSERT_NE(nullptr, master);
    ASSERT_NE(nullptr, router);
  }

  unsigned long begin() {
    unsigned long handle = 0;
    EXPECT_EQ(PymOk, transaction->newTransaction(PymLockPolicyExclusive, 30, &handle));
    return handle;
  }

  // A transaction with all three participants enrolled in order.
  unsigned long beginWithParticipants() {
    const unsigned long handle = begin();
    for (const auto* participant : {&participant0, &participant1, &participant2}) {
      EXPECT_EQ(PymOk, master->registerParticipant(handle, participant));
    }
    return handle;
  }

 public:
  // Public so that a participant's C function can read through the fixture.
  std::string baseDn(unsigned long txHandle) {
    PymMoAttributeValueResult_3 result{};
    if (router->getMoAttribute(txHandle, LDAP_DN, "baseDn", &result) != PymOk) return "<error>";
    const std::string value = result.container->nrOfValues == 0 ? "<none>" : result.container->values[0].theString;
    result.release(result.container);
    return value;
  }

 protected:
  PymReturnT setBaseDn(unsigned long txHandle, const char* value) {
    PymMoAttributeValue_3 text{};
    text.theString = value;
    PymMoAttributeValueContainer_3 container{PymMoValueType_String, 1, &text};
    return router->setMoAttribute(txHandle, LDAP_DN, "baseDn", &container);
  }

  static std::vector<std::string> expected(const std::vector<std::string>& steps, unsigned long txHandle) {
    std::vector<std::string> result;
    for (const std::string& step : steps) result.push_back(step + " " + std::to_string(txHandle));
    return result;
  }

  PymOamSpiTransaction_2* transaction = nullptr;
  PymOamSpiTransactionMaster_2* master = nullptr;
  PymOamSpiManagedObject_3* router = nullptr;
};

TEST_F(TransactionTables, HandlesCountFromOne) {
  EXPECT_EQ(1u, begin());
  EXPECT_EQ(2u, begin());
  EXPECT_EQ(3u, begin());
  EXPECT_EQ(PymInvalidParameter, transaction->newTransaction(PymLockPolicyNone, 0, nullptr));
}

TEST_F(TransactionTables, CommitRunsBothPhasesInEnrolmentOrder) {
  const unsigned long handle = beginWithParticipants();
  EXPECT_EQ(PymOk, transaction->commit(handle));
  EXPECT_EQ(expected({"P0 validate", "P1 validate", "P2 validate", "P0 prepare", "P1 prepare", "P2 prepare",
                      "P0 commit", "P1 commit", "P2 commit", "P0 finish", "P1 finish", "P2 finish"},
                     handle),
            calls);
  EXPECT_EQ(std::vector<unsigned long>(calls.size(), handle), currents);
  EXPECT_FALSE(framework->transactions().isKnown(handle));
}

TEST_F(TransactionTables, AParticipantIsEnrolledOnce) {
  const unsigned long handle = begin();
  EXPECT_EQ(PymOk, master->registerParticipant(handle, &participant1));
  EXPECT_EQ(PymOk, master->registerParticipant(handle, &participant1));
  EXPECT_EQ(PymOk, transaction->commit(handle));
  EXPECT_EQ(expected({"P1 validate", "P1 prepare", "P1 commit", "P1 finish"}, handle), calls);
}

TEST_F(TransactionTables, FalseValidationRefusesAndAbortsEveryParticipant) {
  scripts[1].valid = false;
  const unsigned long handle = beginWithParticipants();
  EXPECT_EQ(PymValidationFailed, transaction->commit(handle));
  EXPECT_EQ(expected({"P0 validate", "P1 validate", "P0 abort", "P1 abort", "P2 abort", "P0 finish", "P1 finish",
                      "P2 finish"},
                     handle),
            calls);
  EXPECT_EQ(1u, framework->log().countContaining("P1 refused validate (-9)"));
}

TEST_F(TransactionTables, ValidationCodeIsReturned) {
  scripts[0].validateCode = -42;
  const unsigned long handle = beginWithParticipants();
  EXPECT_EQ(-42, transaction->commit(handle));
  EXPECT_EQ("P0 validate " + std::to_string(handle), calls.front());
  EXPECT_EQ(7u, calls.size());
}

TEST_F(TransactionTables, PrepareRefusalAbortsEveryParticipant) {
  scripts[2].prepareCode = -17;
  const unsigned long handle = beginWithParticipants();
  EXPECT_EQ(-17, transaction->commit(handle));
  EXPECT_EQ(expected({"P0 validate", "P1 validate", "P2 validate", "P0 prepare", "P1 prepare", "P2 prepare",
                      "P0 abort", "P1 abort", "P2 abort", "P0 finish", "P1 finish", "P2 finish"},
                     handle),
            calls);
}

TEST_F(TransactionTables, CommitRefusalAbortsEveryParticipantAndTakesTheValuesBack) {
  scripts[1].commitCode = -7;
  const unsigned long handle = begin();
  ASSERT_EQ(PymOk, setBaseDn(handle, "dc=refused"));
  static std::string seenWhileCommitting;
  static TransactionTables* test;
  test = this;
  // Enrolled first, and recorded as P2 except for its commit.
  PymOamSpiTransactionalResource_2 reader = makeParticipant<2>("Reader");
  reader.commit = [](unsigned long) -> PymReturnT {
    seenWhileCommitting = test->baseDn(0);
    return PymOk;
  };
  for (const auto* participant : {&reader, &participant0, &participant1}) {
    ASSERT_EQ(PymOk, master->registerParticipant(handle, participant));
  }
  EXPECT_EQ(-7, transaction->commit(handle));
  EXPECT_EQ("dc=refused", seenWhileCommitting);
  EXPECT_EQ(expected({"P2 validate", "P0 validate", "P1 validate", "P2 prepare", "P0 prepare", "P1 prepare",
                      "P0 commit", "P1 commit", "P2 abort", "P0 abort", "P1 abort", "P2 finish", "P0 finish",
                      "P1 finish"},
                     handle),
            calls);
  EXPECT_EQ(1u, framework->log().countContaining("P1 refused commit (-7)"));
  EXPECT_EQ("dc=example,dc=com", baseDn(0));
  EXPECT_EQ(std::vector<std::string>{"dc=example,dc=com"}, framework->model().stringValues(LDAP_DN, "baseDn"));
}

TEST_F(TransactionTables, AbortCallsAbortAndFinish) {
  const unsigned long handle = beginWithParticipants();
  EXPECT_EQ(PymOk, transaction->abort(handle));
  EXPECT_EQ(expected({"P0 abort", "P1 abort", "P2 abort", "P0 finish", "P1 finish", "P2 finish"}, handle), calls);
  EXPECT_EQ(std::vector<unsigned long>(calls.size(), handle), currents);
}

TEST_F(TransactionTables, UnknownHandles) {
  EXPECT_EQ(PymNotExist, transaction->commit(77));
  EXPECT_EQ(PymNotExist, transaction->abort(77));
  EXPECT_EQ(PymNotExist, master->registerParticipant(77, &participant0));
  const unsigned long handle = begin();
  EXPECT_EQ(PymInvalidParameter, master->registerParticipant(handle, nullptr));
  EXPECT_EQ(PymOk, transaction->commit(handle));
  EXPECT_EQ(PymNotExist, transaction->commit(handle));
  EXPECT_EQ(PymNotExist, master->registerParticipant(handle, &participant0));
}

TEST_F(TransactionTables, OperatorMessagesBelongToTheTransaction) {
  scripts[0].operatorMessage = "Cannot reach the LDAP server";
  scripts[0].valid = false;
  const unsigned long handle = beginWithParticipants();
  EXPECT_EQ(PymValidationFailed, transaction->commit(handle));
  EXPECT_EQ(std::vector<std::string>{"Cannot reach the LDAP server"}, framework->transactions().operatorMessages(handle));
  EXPECT_TRUE(framework->transactions().operatorMessages(0).empty());
}

TEST_F(TransactionTables, PendingWritesAreSeenOnlyInsideAndPersistedAtCommit) {
  const unsigned long writer = beginWithParticipants();
  const unsigned long other = begin();
  ASSERT_EQ(PymOk, setBaseDn(writer, "dc=new"));
  EXPECT_EQ("dc=new", baseDn(writer));
  EXPECT_EQ("dc=example,dc=com", baseDn(0));
  EXPECT_EQ("dc=example,dc=com", baseDn(other));
  EXPECT_EQ(std::vector<std::string>{"dc=example,dc=com"}, framework->model().stringValues(LDAP_DN, "baseDn"));
  EXPECT_EQ(PymOk, transaction->commit(writer));
  EXPECT_EQ("dc=new", baseDn(0));
  EXPECT_EQ("dc=new", baseDn(other));
  EXPECT_EQ(std::vector<std::string>{"dc=new"}, framework->model().stringValues(LDAP_DN, "baseDn"));
}

TEST_F(TransactionTables, RefusedOrAbortedWritesAreDropped) {
  scripts[1].prepareCode = -1;
  unsigned long handle = beginWithParticipants();
  ASSERT_EQ(PymOk, setBaseDn(handle, "dc=refused"));
  EXPECT_EQ(PymFailure, transaction->commit(handle));
  EXPECT_EQ("dc=example,dc=com", baseDn(0));

  handle = begin();
  ASSERT_EQ(PymOk, setBaseDn(handle, "dc=aborted"));
  EXPECT_EQ(PymOk, transaction->abort(handle));
  EXPECT_EQ("dc=example,dc=com", baseDn(0));
  EXPECT_EQ(PymNotExist, setBaseDn(handle, "dc=late"));
  EXPECT_EQ(0u, framework->cmRouter().pendingWriteCount(handle));
}

TEST_F(TransactionTables, ParticipantsSeeTheNewValuesWhileCommitting) {
  const unsigned long handle = begin();
  ASSERT_EQ(PymOk, setBaseDn(handle, "dc=committed"));
  static std::string seenWithHandle;
  static std::string seenCommitted;
  static TransactionTables* test;
  test = this;
  PymOamSpiTransactionalResource_2 reader = makeParticipant<0>("Reader");
  reader.commit = [](unsigned long txHandle) -> PymReturnT {
    seenWithHandle = test->baseDn(txHandle);
    seenCommitted = test->baseDn(0);
    return PymOk;
  };
  ASSERT_EQ(PymOk, master->registerParticipant(handle, &reader));
  EXPECT_EQ(PymOk, transaction->commit(handle));
  EXPECT_EQ("dc=committed", seenWithHandle);
  EXPECT_EQ("dc=committed", seenCommitted);
}

TEST_F(TransactionTables, TheCppInterfaceDrivesTheSameTransactions) {
  const unsigned long handle = framework->transactions().begin();
  EXPECT_TRUE(framework->transactions().isOpen(handle));
  EXPECT_EQ(PymOk, framework->transactions().registerParticipant(handle, &participant2));
  EXPECT_EQ(PymOk, framework->transactions().commit(handle));
  EXPECT_EQ(expected({"P2 validate", "P2 prepare", "P2 commit", "P2 finish"}, handle), calls);
  EXPECT_FALSE(framework->transactions().isOpen(handle));
}

TEST_F(TransactionTables, WithoutFrameworkEverythingFails) {
  framework.reset();
  unsigned long handle = 0;
  EXPECT_EQ(PymFailure, transaction->newTransaction(PymLockPolicyNone, 0, &handle));
  EXPECT_EQ(PymFailure, transaction->commit(1));
  EXPECT_EQ(PymFailure, transaction->abort(1));
  EXPECT_EQ(PymFailure, master->registerParticipant(1, &participant0));
}
