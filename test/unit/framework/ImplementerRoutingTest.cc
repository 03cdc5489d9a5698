#include "FakeImplementer.h"
#include "FrameworkTest.h"

#include <Framework/EventRouter.h>
#include <Framework/OperatorError.h>
#include <Framework/OperatorTransaction.h>
#include <PymOamSpiCmEvent.h>
#include <PymOamSpiManagedObject.h>

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <mutex>
#include <ostream>
#include <string>
#include <vector>

using Framework::OperatorError;
using Framework::OperatorTransaction;
using Strings = std::vector<std::string>;

namespace {

const char* const kLdapClass = "/ManagedElement/SystemFunctions/SecM/UserManagement/LdapAuthenticationMethod/Ldap";
const std::string kUserManagement = "ManagedElement=1,SystemFunctions=1,SecM=1,UserManagement=1";
const std::string kOrbelinFilter = std::string(FrameworkTest::LDAP_DN) + ",OrbelinFilter=1";
const std::chrono::seconds kPatience(10);

// "<tx> <dn> <attribute>" for every attribute of every configuration-change event delivered.
std::mutex eventsMutex;
Strings events;

PymReturnT notify(unsigned long, const char*, PymNameValuePair**, void* value) {
  const auto* notification = static_cast<const PymOamSpiCmEvent_Notification_1*>(value);
  std::lock_guard<std::mutex> lock(eventsMutex);
  for (PymOamSpiCmEvent_1** event = notification->events; *event != nullptr; ++event) {
    for (PymMoNamedAttributeValueContainer_3** attribute = (*event)->attributes; *attribute != nullptr; ++attribute) {
      events.push_back(std::to_string(notification->txHandle) + " " + (*event)->dn + " " + (*attribute)->name);
    }
  }
  return PymOk;
}

QivOamSpiEventConsumer_1 consumer = {notify};

Framework::AttributeValue text(const std::string& scalar) {
  Framework::AttributeValue value;
  value.scalar = scalar;
  return value;
}

}  // namespace

// An implementer registered for the Ldap class, reached through operator transactions.
class ImplementerRouting : public FrameworkTest {
 protected:
  void SetUp() override {
    FrameworkTest::SetUp();
    {
      std::lock_guard<std::mutex> lock(eventsMutex);
      events.clear();
    }
    ASSERT_EQ(PymOk, portal3()->registerComponent(implementer.descriptor()));
    ASSERT_EQ(PymOk, framework->objectImplementers().registerClass("LdapComponent", kLdapClass));
    router = lookup<PymOamSpiManagedObject_3>("PymOamSpiCmRouterService", "PymOamSpiManagedObject", "3");
    ASSERT_NE(nullptr, router);
  }

  // Configuration-change events of every object, from now on.
  void subscribe() {
    unsigned long handle = 0;
    ASSERT_EQ(PymOk, framework->eventRouter().registerConsumer(&consumer, &handle));
    static char name[] = "PymOamSpiCmEvent_FilterTypeRegExp_1";
    static char everything[] = ".*";
    PymNameValuePair pair{name, everything};
    PymNameValuePair* filter[] = {&pair, nullptr};
    ASSERT_EQ(PymOk, framework->eventRouter().addSubscription(handle, Framework::EventRouter::CM_NOTIFICATION, filter));
  }

  static Strings delivered() {
    std::lock_guard<std::mutex> lock(eventsMutex);
    return events;
  }

  // The implementer's steps as FakeImplementer::steps gives them: "join" becomes "join <tx>",
  // "setMoAttribute baseDn" becomes "setMoAttribute <tx> baseDn".
  static Strings on(unsigned long txHandle, const Strings& steps) {
    Strings result;
    for (const std::string& step : steps) {
      const std::string::size_type blank = step.find(' ');
      result.push_back(step.substr(0, blank) + " " + std::to_string(txHandle) +
                       (blank == std::string::npos ? "" : step.substr(blank)));
    }
    return result;
  }

  Strings stored(const std::string& attribute) const { return framework->model().stringValues(LDAP_DN, attribute); }

  Framework::AttributeDefinition definition(const std::string& attribute) const {
    return *framework->model().attributeDefinition(LDAP_DN, attribute);
  }

  std::size_t pending(const OperatorTransaction& transaction) const {
    return framework->cmRouter().pendingWriteCount(transaction.handle());
  }

  FakeImplementer implementer{0, "LdapComponent"};
  PymOamSpiManagedObject_3* router = nullptr;
};

TEST_F(ImplementerRouting, TheFirstWriteJoinsAndLaterWritesDoNot) {
  OperatorTransaction transaction(*framework);
  const unsigned long tx = transaction.handle();
  EXPECT_EQ(PymOk, transaction.setText(LDAP_DN, "baseDn", {"dc=new"}));
  EXPECT_EQ(PymOk, transaction.setText(LDAP_DN, "bindDn", {"cn=new"}));
  EXPECT_EQ(on(tx, {"join", "setMoAttribute baseDn", "setMoAttribute bindDn"}), implementer.steps());
  EXPECT_TRUE(framework->transactions().isParticipant(tx, implementer.resource()));
  for (const FakeImplementer::Call& call : implementer.calls()) EXPECT_EQ(tx, call.currentTransaction);
  EXPECT_EQ(LDAP_DN, implementer.calls().at(1).dn);
  EXPECT_EQ(2u, pending(transaction));
  EXPECT_EQ(0u, framework->log().countAtLevel(4));
}

TEST_F(ImplementerRouting, EveryTransactionJoinsOnItsOwn) {
  OperatorTransaction first(*framework);
  OperatorTransaction second(*framework);
  EXPECT_EQ(PymOk, first.setText(LDAP_DN, "baseDn", {"dc=first"}));
  EXPECT_EQ(PymOk, second.setText(LDAP_DN, "baseDn", {"dc=second"}));
  EXPECT_EQ(PymOk, first.setText(LDAP_DN, "bindDn", {"cn=first"}));
  const Strings expected = {"join " + std::to_string(first.handle()),
                            "setMoAttribute " + std::to_string(first.handle()) + " baseDn",
                            "join " + std::to_string(second.handle()),
                            "setMoAttribute " + std::to_string(second.handle()) + " baseDn",
                            "setMoAttribute " + std::to_string(first.handle()) + " bindDn"};
  EXPECT_EQ(expected, implementer.steps());
}

TEST_F(ImplementerRouting, SetMoAttributeReceivesTheOperatorsContainer) {
  OperatorTransaction transaction(*framework);
  PymMoAttributeValue_3 value{};
  value.u16 = 636;
  const PymMoAttributeValueContainer_3 port{PymMoValueType_Uint16, 1, &value};
  ASSERT_EQ(PymOk, transaction.set(LDAP_DN, "serverPort", port));
  const FakeImplementer::Call call = implementer.calls().back();
  EXPECT_EQ(&port, call.container);
  EXPECT_EQ("6:[636]", call.value);
  EXPECT_EQ("serverPort", call.attribute);
}

TEST_F(ImplementerRouting, TextValuesReachTheImplementerEncodedByTheModel) {
  OperatorTransaction transaction(*framework);
  const std::string nodeCredential = "ManagedElement=1,SystemFunctions=1,SecM=1,CertM=1,NodeCredential=1";
  ASSERT_EQ(PymOk, transaction.setText(LDAP_DN, "bindPassword", {"{password=\"c2Vj,cmV0\"}"}));
  ASSERT_EQ(PymOk, transaction.setText(LDAP_DN, "nodeType", {"a", "b"}));
  ASSERT_EQ(PymOk, transaction.setText(LDAP_DN, "fallbackLdapIpAddress", {}));
  ASSERT_EQ(PymOk, transaction.setText(LDAP_DN, "tlsMode", {"LDAPS"}));
  ASSERT_EQ(PymOk, transaction.setText(LDAP_DN, "useTls", {"true"}));
  ASSERT_EQ(PymOk, transaction.setText(LDAP_DN, "nodeCredential", {nodeCredential}));
  Strings values;
  for (const FakeImplementer::Call& call : implementer.calls()) {
    if (call.step == FakeImplementer::SetMoAttribute) values.push_back(call.value);
  }
  EXPECT_EQ((Strings{"13:[{password=9:[c2Vj,cmV0]}]", "9:[a,b]", "9:[]", "12:[1]", "10:[true]",
                     "11:[" + nodeCredential + "]"}),
            values);
}

TEST_F(ImplementerRouting, ARefusedWriteIsNotKept) {
  implementer.answer(FakeImplementer::SetMoAttribute, PymValidationFailed);
  implementer.addMessageAt(FakeImplementer::SetMoAttribute, "tlsMode can not be unset");
  OperatorTransaction transaction(*framework);
  EXPECT_EQ(PymValidationFailed, transaction.setText(LDAP_DN, "tlsMode", {}));
  EXPECT_EQ(0u, pending(transaction));
  EXPECT_EQ(Strings{"STARTTLS"}, transaction.getText(LDAP_DN, "tlsMode"));
  EXPECT_EQ(Strings{"tlsMode can not be unset"}, transaction.operatorMessages());
  const std::string tx = std::to_string(transaction.handle());
  const std::string refused = "transaction " + tx + ": LdapComponent refused " + LDAP_DN + " tlsMode (-9)";
  EXPECT_TRUE(framework->log().contains(6, refused));
  EXPECT_TRUE(transaction.isOpen());
  EXPECT_EQ(PymOk, transaction.commit());
  EXPECT_EQ(Strings{"STARTTLS"}, stored("tlsMode"));
}

TEST_F(ImplementerRouting, ARefusedJoinRefusesTheWriteAndTheNextWriteJoinsAgain) {
  implementer.answer(FakeImplementer::Join, PymFailure);
  OperatorTransaction transaction(*framework);
  const unsigned long tx = transaction.handle();
  EXPECT_EQ(PymFailure, transaction.setText(LDAP_DN, "baseDn", {"dc=new"}));
  EXPECT_EQ(on(tx, {"join"}), implementer.steps());
  EXPECT_FALSE(framework->transactions().isParticipant(tx, implementer.resource()));
  EXPECT_EQ(0u, pending(transaction));
  implementer.answer(FakeImplementer::Join, PymOk);
  EXPECT_EQ(PymOk, transaction.setText(LDAP_DN, "baseDn", {"dc=new"}));
  EXPECT_EQ(on(tx, {"join", "join", "setMoAttribute baseDn"}), implementer.steps());
  EXPECT_EQ(1u, pending(transaction));
}

TEST_F(ImplementerRouting, AJoinWithoutRegisteringIsLogged) {
  implementer.registerOnJoin(false);
  OperatorTransaction transaction(*framework);
  EXPECT_EQ(PymOk, transaction.setText(LDAP_DN, "baseDn", {"dc=new"}));
  EXPECT_TRUE(framework->log().contains(4, "transaction " + std::to_string(transaction.handle()) +
                                               ": LdapComponent joined without registering as a participant"));
  EXPECT_EQ(PymOk, transaction.commit());
  EXPECT_EQ(on(transaction.handle(), {"join", "setMoAttribute baseDn"}), implementer.steps());
}

TEST_F(ImplementerRouting, ACommitRunsEveryStepPersistsAndAnnounces) {
  subscribe();
  implementer.addMessageAt(FakeImplementer::Commit, "LDAP configuration applied");
  OperatorTransaction transaction(*framework);
  const unsigned long tx = transaction.handle();
  ASSERT_EQ(PymOk, transaction.setText(LDAP_DN, "baseDn", {"dc=new"}));
  EXPECT_EQ(PymOk, transaction.commit());
  EXPECT_EQ(on(tx, {"join", "setMoAttribute baseDn", "validate", "prepare", "commit", "finish"}),
            implementer.steps());
  for (const FakeImplementer::Call& call : implementer.calls()) EXPECT_EQ(tx, call.currentTransaction);
  EXPECT_EQ(Strings{"dc=new"}, stored("baseDn"));
  EXPECT_EQ(Strings{std::to_string(tx) + " " + LDAP_DN + " baseDn"}, delivered());
  EXPECT_EQ(Strings{"LDAP configuration applied"}, transaction.operatorMessages());
  EXPECT_FALSE(transaction.isOpen());
  EXPECT_FALSE(framework->transactions().isKnown(tx));
}

TEST_F(ImplementerRouting, OperatorMessagesOfEveryStepComeInOrder) {
  implementer.addMessageAt(FakeImplementer::Join, "joined");
  implementer.addMessageAt(FakeImplementer::SetMoAttribute, "TlsMode is set to LDAPS but UseTls is disabled");
  implementer.addMessageAt(FakeImplementer::Validate, "validated");
  implementer.addMessageAt(FakeImplementer::Finish, "finished");
  OperatorTransaction transaction(*framework);
  ASSERT_EQ(PymOk, transaction.setText(LDAP_DN, "tlsMode", {"LDAPS"}));
  EXPECT_EQ((Strings{"joined", "TlsMode is set to LDAPS but UseTls is disabled"}), transaction.operatorMessages());
  EXPECT_EQ(PymOk, transaction.commit());
  EXPECT_EQ((Strings{"joined", "TlsMode is set to LDAPS but UseTls is disabled", "validated", "finished"}),
            transaction.operatorMessages());
  EXPECT_TRUE(framework->transactions().operatorMessages(0).empty());
}

// A participant refusing one of the three voting steps.
struct Refusal {
  const char* name;
  FakeImplementer::Step step;
  PymReturnT code;  // what the step answers
  bool valid;       // what validate says
  PymReturnT result;
  Strings steps;
};

void PrintTo(const Refusal& refusal, std::ostream* output) { *output << refusal.name; }

class ImplementerRefusal : public ImplementerRouting, public ::testing::WithParamInterface<Refusal> {};

TEST_P(ImplementerRefusal, AbortsAndLeavesTheModelAsItWas) {
  const Refusal& refusal = GetParam();
  subscribe();
  implementer.answer(refusal.step, refusal.code);
  implementer.answerValidation(refusal.valid);
  implementer.addMessageAt(refusal.step, std::string("refused at ") + FakeImplementer::stepName(refusal.step));
  OperatorTransaction transaction(*framework);
  const unsigned long tx = transaction.handle();
  ASSERT_EQ(PymOk, transaction.setText(LDAP_DN, "baseDn", {"dc=refused"}));
  ASSERT_EQ(PymOk, transaction.setText(kOrbelinFilter, "roleAliasesBaseDn", {"ou=refused"}));
  EXPECT_EQ(refusal.result, transaction.commit());
  EXPECT_EQ(on(tx, refusal.steps), implementer.steps());
  EXPECT_EQ(Strings{"dc=example,dc=com"}, stored("baseDn"));
  EXPECT_TRUE(framework->model().stringValues(kOrbelinFilter, "roleAliasesBaseDn").empty());
  EXPECT_TRUE(delivered().empty());
  EXPECT_EQ(Strings{std::string("refused at ") + FakeImplementer::stepName(refusal.step)},
            transaction.operatorMessages());
  EXPECT_FALSE(framework->transactions().isKnown(tx));
}

INSTANTIATE_TEST_SUITE_P(
    Steps, ImplementerRefusal,
    ::testing::Values(
        Refusal{"FalseValidation", FakeImplementer::Validate, PymOk, false, PymValidationFailed,
                {"join", "setMoAttribute baseDn", "validate", "abort", "finish"}},
        Refusal{"ValidateCode", FakeImplementer::Validate, -42, true, -42,
                {"join", "setMoAttribute baseDn", "validate", "abort", "finish"}},
        Refusal{"Prepare", FakeImplementer::Prepare, -17, true, -17,
                {"join", "setMoAttribute baseDn", "validate", "prepare", "abort", "finish"}},
        Refusal{"Commit", FakeImplementer::Commit, -7, true, -7,
                {"join", "setMoAttribute baseDn", "validate", "prepare", "commit", "abort", "finish"}}),
    [](const ::testing::TestParamInfo<Refusal>& info) { return std::string(info.param.name); });

TEST_F(ImplementerRouting, AbortCallsAbortAndFinishAndWritesNothing) {
  OperatorTransaction transaction(*framework);
  const unsigned long tx = transaction.handle();
  ASSERT_EQ(PymOk, transaction.setText(LDAP_DN, "baseDn", {"dc=aborted"}));
  transaction.abort();
  EXPECT_EQ(on(tx, {"join", "setMoAttribute baseDn", "abort", "finish"}), implementer.steps());
  EXPECT_EQ(Strings{"dc=example,dc=com"}, stored("baseDn"));
  EXPECT_FALSE(transaction.isOpen());
}

TEST_F(ImplementerRouting, ATransactionLeftOpenIsAbortedWhenItGoes) {
  unsigned long tx = 0;
  {
    OperatorTransaction transaction(*framework);
    tx = transaction.handle();
    ASSERT_EQ(PymOk, transaction.setText(LDAP_DN, "baseDn", {"dc=forgotten"}));
  }
  EXPECT_EQ(on(tx, {"join", "setMoAttribute baseDn", "abort", "finish"}), implementer.steps());
  EXPECT_FALSE(framework->transactions().isKnown(tx));
  EXPECT_EQ(Strings{"dc=example,dc=com"}, stored("baseDn"));
}

TEST_F(ImplementerRouting, ReadsAreAnsweredByTheImplementer) {
  implementer.answerRead("baseDn", definition("baseDn"), {text("dc=from-implementer")});
  OperatorTransaction transaction(*framework);
  EXPECT_EQ(Strings{"dc=from-implementer"}, transaction.getText(LDAP_DN, "baseDn"));
  EXPECT_EQ(1, implementer.releasedReads());
  ASSERT_EQ(1u, implementer.calls().size());
  const FakeImplementer::Call call = implementer.calls().front();
  EXPECT_EQ(FakeImplementer::GetMoAttribute, call.step);
  EXPECT_EQ(transaction.handle(), call.txHandle);
  EXPECT_EQ(transaction.handle(), call.currentTransaction);
  EXPECT_EQ(LDAP_DN, call.dn);
}

TEST_F(ImplementerRouting, ReadsFallBackToTheModelWhenTheImplementerHasNone) {
  OperatorTransaction transaction(*framework);
  EXPECT_EQ(Strings{"dc=example,dc=com"}, transaction.getText(LDAP_DN, "baseDn"));
  ASSERT_EQ(PymOk, transaction.setText(LDAP_DN, "baseDn", {"dc=pending"}));
  EXPECT_EQ(Strings{"dc=pending"}, transaction.getText(LDAP_DN, "baseDn"));
  const unsigned long tx = transaction.handle();
  EXPECT_EQ(on(tx, {"getMoAttribute baseDn", "join", "setMoAttribute baseDn", "getMoAttribute baseDn"}),
            implementer.steps());
  EXPECT_EQ(0, implementer.releasedReads());
}

TEST_F(ImplementerRouting, ReadFailuresOfTheImplementerAreTheOperatorsErrors) {
  implementer.answer(FakeImplementer::GetMoAttribute, PymFailure);
  OperatorTransaction transaction(*framework);
  try {
    transaction.getText(LDAP_DN, "baseDn");
    FAIL() << "a refused read must throw";
  } catch (const OperatorError& error) {
    EXPECT_EQ(PymFailure, error.code());
    EXPECT_EQ("cannot read \"baseDn\" of \"" + std::string(LDAP_DN) + "\" (-1)", std::string(error.what()));
  }
}

TEST_F(ImplementerRouting, AnImplementersValueThatDoesNotFitTheModelIsRefusedAndReleased) {
  implementer.answerRead("serverPort", definition("baseDn"), {text("not a port")});
  OperatorTransaction transaction(*framework);
  try {
    transaction.getText(LDAP_DN, "serverPort");
    FAIL() << "a value of the wrong type must throw";
  } catch (const OperatorError& error) {
    EXPECT_EQ(PymFailure, error.code());
  }
  EXPECT_EQ(1, implementer.releasedReads());
  const std::string tx = std::to_string(transaction.handle());
  const std::string misfit =
      "transaction " + tx + ": LdapComponent's " + LDAP_DN + " serverPort does not fit the model (-5)";
  EXPECT_TRUE(framework->log().contains(3, misfit));
}

TEST_F(ImplementerRouting, OnlyTheImplementedClassIsRouted) {
  OperatorTransaction transaction(*framework);
  ASSERT_EQ(PymOk, transaction.setText(kOrbelinFilter, "roleAliasesBaseDn", {"ou=aliases"}));
  ASSERT_EQ(PymOk, transaction.setText(kUserManagement, "targetType", {"a", "b"}));
  EXPECT_EQ(Strings{"ou=aliases"}, transaction.getText(kOrbelinFilter, "roleAliasesBaseDn"));
  EXPECT_TRUE(implementer.steps().empty());
  EXPECT_EQ(PymOk, transaction.commit());
  EXPECT_TRUE(implementer.steps().empty());
  EXPECT_EQ(Strings{"ou=aliases"}, framework->model().stringValues(kOrbelinFilter, "roleAliasesBaseDn"));
  EXPECT_EQ((Strings{"a", "b"}), framework->model().stringValues(kUserManagement, "targetType"));
}

TEST_F(ImplementerRouting, WritesThroughTheCTablesGoStraightToTheModel) {
  OperatorTransaction transaction(*framework);
  PymMoAttributeValue_3 value{};
  value.theString = "dc=component";
  const PymMoAttributeValueContainer_3 baseDn{PymMoValueType_String, 1, &value};
  ASSERT_EQ(PymOk, router->setMoAttribute(transaction.handle(), LDAP_DN, "baseDn", &baseDn));
  PymMoAttributeValueResult_3 read{};
  ASSERT_EQ(PymOk, router->getMoAttribute(transaction.handle(), LDAP_DN, "baseDn", &read));
  EXPECT_STREQ("dc=component", read.container->values[0].theString);
  read.release(read.container);
  EXPECT_TRUE(implementer.steps().empty());
  EXPECT_EQ(1u, pending(transaction));
  EXPECT_EQ(PymOk, transaction.commit());
  EXPECT_TRUE(implementer.steps().empty());
  EXPECT_EQ(Strings{"dc=component"}, stored("baseDn"));
}

TEST_F(ImplementerRouting, AnImplementerWritingItsOwnObjectsIsNotCalledBack) {
  PymMoAttributeValue_3 flexible{};
  flexible.theEnum = 2;
  const PymMoAttributeValueContainer_3 profileFilter{PymMoValueType_Enum, 1, &flexible};
  PymReturnT partnerWrite = PymFailure;
  implementer.at(FakeImplementer::SetMoAttribute, [&](unsigned long txHandle) {
    partnerWrite = router->setMoAttribute(txHandle, LDAP_DN, "profileFilter", &profileFilter);
  });
  OperatorTransaction transaction(*framework);
  ASSERT_EQ(PymOk, transaction.setText(LDAP_DN, "filterType", {"FLEXIBLE"}));
  EXPECT_EQ(PymOk, partnerWrite);
  EXPECT_EQ(on(transaction.handle(), {"join", "setMoAttribute filterType"}), implementer.steps());
  EXPECT_EQ(PymOk, transaction.commit());
  EXPECT_EQ(Strings{"FLEXIBLE"}, stored("filterType"));
  EXPECT_EQ(Strings{"FLEXIBLE"}, stored("profileFilter"));
}

TEST_F(ImplementerRouting, TwoTransactionsOnTwoThreadsBothReachTheImplementer) {
  implementer.lockForEditing(true);
  implementer.blockNext(FakeImplementer::SetMoAttribute);
  OperatorTransaction first(*framework);
  OperatorTransaction second(*framework);
  std::future<PymReturnT> firstWrite =
      std::async(std::launch::async, [&] { return first.setText(LDAP_DN, "baseDn", {"dc=first"}); });
  ASSERT_TRUE(implementer.waitUntilBlocked());
  std::future<PymReturnT> secondWrite =
      std::async(std::launch::async, [&] { return second.setText(LDAP_DN, "baseDn", {"dc=second"}); });
  const bool secondAnswered = secondWrite.wait_for(kPatience) == std::future_status::ready;
  implementer.release();
  ASSERT_TRUE(secondAnswered) << "the second write waited for the first";
  EXPECT_EQ(PymFailure, secondWrite.get());
  EXPECT_EQ(PymOk, firstWrite.get());
  EXPECT_EQ(Strings{"locked by transaction " + std::to_string(first.handle())}, second.operatorMessages());
  Strings writers;
  for (const FakeImplementer::Call& call : implementer.calls()) {
    if (call.step == FakeImplementer::SetMoAttribute) writers.push_back(std::to_string(call.txHandle));
  }
  EXPECT_EQ((Strings{std::to_string(first.handle()), std::to_string(second.handle())}), writers);
  EXPECT_EQ(PymOk, first.commit());
  EXPECT_EQ(Strings{"dc=first"}, stored("baseDn"));
  // The lock went with the first transaction's finish.
  EXPECT_EQ(PymOk, second.setText(LDAP_DN, "baseDn", {"dc=second"}));
}

TEST_F(ImplementerRouting, AnImplementerBusyInCommitHoldsNobodyElseUp) {
  OperatorTransaction first(*framework);
  ASSERT_EQ(PymOk, first.setText(LDAP_DN, "baseDn", {"dc=first"}));
  implementer.blockNext(FakeImplementer::Commit);
  std::future<PymReturnT> commit = std::async(std::launch::async, [&] { return first.commit(); });
  ASSERT_TRUE(implementer.waitUntilBlocked());
  std::future<Strings> meanwhile = std::async(std::launch::async, [&] {
    Strings seen;
    OperatorTransaction second(*framework);
    seen.push_back(std::to_string(second.setText(LDAP_DN, "bindDn", {"cn=second"})));
    seen.push_back(std::to_string(second.setText(kOrbelinFilter, "roleAliasesBaseDn", {"ou=second"})));
    seen.push_back(second.getText(LDAP_DN, "baseDn").at(0));
    PymMoAttributeValueResult_3 read{};
    seen.push_back(std::to_string(router->getMoAttribute(0, LDAP_DN, "bindDn", &read)));
    if (read.container != nullptr) read.release(read.container);
    seen.push_back(std::to_string(second.commit()));
    return seen;
  });
  const bool answered = meanwhile.wait_for(kPatience) == std::future_status::ready;
  implementer.release();
  ASSERT_TRUE(answered) << "the router waited for a participant's commit";
  // The first transaction's values are committed before its participants' commit.
  EXPECT_EQ((Strings{"0", "0", "dc=first", "0", "0"}), meanwhile.get());
  EXPECT_EQ(PymOk, commit.get());
  EXPECT_EQ(Strings{"cn=second"}, stored("bindDn"));
  EXPECT_EQ(Strings{"dc=first"}, stored("baseDn"));
}
