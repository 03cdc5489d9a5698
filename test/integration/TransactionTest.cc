#include "AttributeValue.h"
#include "Eventually.h"
#include "LoadedComponentTest.h"
#include "WithSecurityApi.h"

#include <Framework/CurrentTransaction.h>
#include <Framework/OperatorTransaction.h>

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

using Args = std::vector<std::string>;

const char METHOD_DN[] = "ManagedElement=1,SystemFunctions=1,SecM=1,UserManagement=1,LdapAuthenticationMethod=1";
const char LDAP_DN[] = "ManagedElement=1,SystemFunctions=1,SecM=1,UserManagement=1,LdapAuthenticationMethod=1,Ldap=1";
const char FILTER_DN[] =
    "ManagedElement=1,SystemFunctions=1,SecM=1,UserManagement=1,LdapAuthenticationMethod=1,Ldap=1,Filter=1";
const char LOCKED_TEXT[] = "MO locked for editing by an other user";

// The component file: start waits up to 10 s for the initial configuration.
const char COMPONENT_FILE[] =
    "<QivAccessManagementComponent><ldapInitConfigTimeout>10</ldapInitConfigTimeout></QivAccessManagementComponent>";

}  // namespace

// The built library, started on the ldap20 model, driven as the framework drives an object
// implementer: its own tables, called inside transactions of the framework's transaction
// service, with the qivea stand-in applying what is committed.
class TransactionTest : public LoadedComponentTest {
 protected:
  void SetUp() override { initialize(COMPONENT_FILE); }

  void start() {
    ASSERT_EQ(0, descriptor->start(PymStateChangeStartup));
    // The initial LOCKED configuration has been applied; what follows is the transactions'.
    initialCalls = qivea.callsStartingWith("authentication").size();
    ASSERT_EQ(2u, initialCalls);
  }

  unsigned long begin() { return framework().transactions().begin(); }

  // One write as the framework routes it: join on the transaction's first write, then the
  // component's setMoAttribute, under the transaction.
  PymReturnT write(unsigned long tx, const std::string& dn, const std::string& name, const AttributeValue& value) {
    const Framework::CurrentTransaction current(tx);
    if (joined.insert(tx).second) {
      const PymReturnT joinResult = resource->join(tx);
      if (joinResult != 0) return joinResult;
    }
    return managedObject->setMoAttribute(tx, dn.c_str(), name.c_str(), value.get());
  }

  // A complete, valid configuration that unlocks LDAP.
  void writeValidUnlock(unsigned long tx) {
    ASSERT_EQ(0, write(tx, METHOD_DN, "administrativeState", AttributeValue::enumeration(1)));
    ASSERT_EQ(0, write(tx, LDAP_DN, "ldapIpAddress", AttributeValue::text("192.0.2.10")));
    ASSERT_EQ(0, write(tx, LDAP_DN, "fallbackLdapIpAddress", AttributeValue::text("2001:db8::7")));
    ASSERT_EQ(0, write(tx, LDAP_DN, "serverPort", AttributeValue::uint16(636)));
    ASSERT_EQ(0, write(tx, LDAP_DN, "baseDn", AttributeValue::text("dc=operator,dc=example")));
    ASSERT_EQ(0, write(tx, LDAP_DN, "useReferrals", AttributeValue::boolean(true)));
  }

  PymReturnT commit(unsigned long tx) { return framework().transactions().commit(tx); }

  std::vector<std::string> messages(unsigned long tx) { return framework().transactions().operatorMessages(tx); }

  // The authentication commands after start.
  std::vector<Args> authenticationCalls() {
    std::vector<Args> calls = qivea.callsStartingWith("authentication");
    calls.erase(calls.begin(), calls.begin() + static_cast<long>(std::min(initialCalls, calls.size())));
    return calls;
  }

  std::size_t initialCalls = 0;
  std::set<unsigned long> joined;
};

TEST_F(TransactionTest, ValidUnlockIsPreparedThenAppliedWordForWord) {
  start();
  const unsigned long tx = begin();
  writeValidUnlock(tx);
  EXPECT_EQ(0, commit(tx));
  const Args prepared = {"authentication",
                         "ldap",
                         "--prepare",
                         "--uri=ldap://192.0.2.10:636",
                         "--uri=ldap://[2001:db8::7]:636",
                         "--useReferrals",
                         "--base-dn=dc=operator,dc=example",
                         "--login-attribute=uid",
                         "--bind-dn=cn=admin,dc=example,dc=com"};
  Args committed = prepared;
  committed.erase(committed.begin() + 2);
  EXPECT_EQ((std::vector<Args>{prepared, committed}), authenticationCalls());
  EXPECT_TRUE(messages(tx).empty());
  EXPECT_EQ(1u, log().count(8, "Configuration updated - calling QIV EA (with --prepare flag)"));
  EXPECT_EQ(1u, log().count(8, "Configuration updated - calling QIV EA"));
}

TEST_F(TransactionTest, CommittedRecordBecomesTheCurrentOneForTheNextTransaction) {
  start();
  const unsigned long first = begin();
  writeValidUnlock(first);
  ASSERT_EQ(0, commit(first));
  // Only the base DN changes: the rest comes from what the first transaction applied.
  const unsigned long second = begin();
  ASSERT_EQ(0, write(second, LDAP_DN, "baseDn", AttributeValue::text("dc=second")));
  ASSERT_EQ(0, commit(second));
  const std::vector<Args> calls = authenticationCalls();
  ASSERT_EQ(4u, calls.size());
  EXPECT_EQ("--uri=ldap://192.0.2.10:636", calls[3][2]);
  EXPECT_EQ("--base-dn=dc=second", calls[3][5]);
}

TEST_F(TransactionTest, InvalidConfigurationIsRefusedWithTheOperatorTextsInRuleOrderAndNothingApplied) {
  start();
  const unsigned long tx = begin();
  ASSERT_EQ(0, write(tx, METHOD_DN, "administrativeState", AttributeValue::enumeration(1)));
  ASSERT_EQ(0, write(tx, LDAP_DN, "ldapIpAddress", AttributeValue::unset(PymMoValueType_String)));
  ASSERT_EQ(0, write(tx, LDAP_DN, "tlsClientCertificate", AttributeValue::text("/cert.pem")));
  ASSERT_EQ(0, write(tx, FILTER_DN, "filter", AttributeValue::text("(uid=*)")));
  ASSERT_EQ(0, write(tx, LDAP_DN, "filterType", AttributeValue::enumeration(3)));
  EXPECT_EQ(PymValidationFailed, commit(tx));
  EXPECT_EQ((std::vector<std::string>{
                "@qivnbi@Validation failed - either both tls-client-certificate and tls-client-key should be set or none",
                "@qivnbi@Validation failed - Mandatory Attributes ldapIpAddress, useTls and baseDn must be set",
                "@qivnbi@Validation failed - both filter and type attributes should be set if filterType=FLEXIBLE"}),
            messages(tx));
  EXPECT_TRUE(authenticationCalls().empty());
  // The lock went with the refused transaction.
  const unsigned long next = begin();
  EXPECT_EQ(0, write(next, LDAP_DN, "baseDn", AttributeValue::text("dc=next")));
}

TEST_F(TransactionTest, LineFeedInBaseDnIsRefusedAndNeitherTheModelNorQiveaGetsIt) {
  start();
  {
    Framework::OperatorTransaction unlock(framework());
    ASSERT_EQ(PymOk, unlock.setText(METHOD_DN, "administrativeState", {"UNLOCKED"}));
    ASSERT_EQ(PymOk, unlock.setText(LDAP_DN, "ldapIpAddress", {"192.0.2.10"}));
    ASSERT_EQ(PymOk, unlock.setText(LDAP_DN, "baseDn", {"dc=operator,dc=example"}));
    ASSERT_EQ(PymOk, unlock.commit());
  }
  const std::vector<Args> before = qivea.calls();
  ASSERT_EQ(2u, authenticationCalls().size());

  Framework::OperatorTransaction injection(framework());
  ASSERT_EQ(PymOk, injection.setText(LDAP_DN, "baseDn", {"dc=operator,dc=example\nldap_tls_reqcert = never"}));
  EXPECT_EQ(PymValidationFailed, injection.commit());
  const std::string text = "Validation failed - baseDn must not contain a control character";
  EXPECT_EQ(std::vector<std::string>{"@qivnbi@" + text}, injection.operatorMessages());
  EXPECT_EQ(1u, log().count(4, text));
  EXPECT_EQ(std::vector<std::string>{"dc=operator,dc=example"}, framework().model().stringValues(LDAP_DN, "baseDn"));
  EXPECT_EQ(before, qivea.calls());
  EXPECT_EQ(0u, log().countContaining("reqcert"));

  // The component's record kept the old value too: the next change applies it.
  Framework::OperatorTransaction next(framework());
  ASSERT_EQ(PymOk, next.setText(LDAP_DN, "bindDn", {"cn=reader,dc=operator,dc=example"}));
  ASSERT_EQ(PymOk, next.commit());
  const std::vector<Args> calls = authenticationCalls();
  ASSERT_EQ(4u, calls.size());
  for (const Args& call : {calls[2], calls[3]}) {
    EXPECT_NE(call.end(), std::find(call.begin(), call.end(), "--base-dn=dc=operator,dc=example"));
    for (const std::string& argument : call) EXPECT_EQ(std::string::npos, argument.find("reqcert")) << argument;
  }
}

TEST_F(TransactionTest, SecondTransactionIsRefusedWhileTheFirstHoldsTheLock) {
  start();
  const unsigned long first = begin();
  const unsigned long second = begin();
  ASSERT_EQ(0, write(first, LDAP_DN, "baseDn", AttributeValue::text("dc=first")));
  EXPECT_EQ(PymFailure, write(second, LDAP_DN, "baseDn", AttributeValue::text("dc=second")));
  EXPECT_EQ(std::vector<std::string>{std::string("@qivnbi@") + LOCKED_TEXT}, messages(second));
  EXPECT_EQ(1u, log().count(4, LOCKED_TEXT));
  EXPECT_TRUE(messages(first).empty());
  // The refused one's phases leave the holder's edit alone.
  EXPECT_EQ(0, framework().transactions().abort(second));
  EXPECT_EQ(0, commit(first));
  const std::vector<Args> calls = authenticationCalls();
  // LOCKED as before: the default method, prepared then applied.
  EXPECT_EQ((std::vector<Args>{{"authentication", "default", "--prepare"}, {"authentication", "default"}}), calls);
  // Finished: the lock is free again.
  const unsigned long third = begin();
  EXPECT_EQ(0, write(third, LDAP_DN, "baseDn", AttributeValue::text("dc=third")));
}

TEST_F(TransactionTest, AbortFreesTheLockAndAppliesNothing) {
  start();
  const unsigned long first = begin();
  writeValidUnlock(first);
  EXPECT_EQ(0, framework().transactions().abort(first));
  EXPECT_TRUE(authenticationCalls().empty());
  const unsigned long second = begin();
  EXPECT_EQ(0, write(second, LDAP_DN, "baseDn", AttributeValue::text("dc=after-abort")));
  EXPECT_EQ(0, commit(second));
  // The aborted values did not stay in the record: still LOCKED.
  EXPECT_EQ((std::vector<Args>{{"authentication", "default", "--prepare"}, {"authentication", "default"}}),
            authenticationCalls());
}

TEST_F(TransactionTest, UnsettingTlsModeIsRefusedForTheOperator) {
  start();
  const unsigned long tx = begin();
  EXPECT_EQ(PymFailure, write(tx, LDAP_DN, "tlsMode", AttributeValue::unset(PymMoValueType_Enum)));
  const std::string text =
      "Validation failed - tlsMode can not be unset. LDAPS or STARTTLS has to be chosen as a valid value for tlsMode";
  EXPECT_EQ(std::vector<std::string>{"@qivnbi@" + text}, messages(tx));
  EXPECT_EQ(1u, log().count(4, text));
}

TEST_F(TransactionTest, LdapsWithoutTlsIsAcceptedWithAWarning) {
  start();
  const unsigned long tx = begin();
  EXPECT_EQ(0, write(tx, LDAP_DN, "tlsMode", AttributeValue::enumeration(1)));
  EXPECT_EQ(1u, log().count(4, "TlsMode is set to LDAPS but UseTls is disabled, TLS will not be used"));
  EXPECT_EQ(0, write(tx, LDAP_DN, "useTls", AttributeValue::boolean(true)));
  EXPECT_EQ(0, write(tx, LDAP_DN, "tlsMode", AttributeValue::enumeration(1)));
  EXPECT_EQ(1u, log().count(4, "TlsMode is set to LDAPS but UseTls is disabled, TLS will not be used"));
}

TEST_F(TransactionTest, ValueOfTheWrongTypeCannotBeRead) {
  start();
  const unsigned long tx = begin();
  EXPECT_EQ(PymFailure, write(tx, LDAP_DN, "useTls", AttributeValue::text("yes")));
  EXPECT_EQ(1u, log().count(4, "Can not read attribute value for attribute: useTls"));
}

TEST_F(TransactionTest, WrittenBindPasswordIsDecryptedIntoThePasswordFileAndNeverLogged) {
  start();
  const std::string secret = "S3cret pass";
  const unsigned long tx = begin();
  writeValidUnlock(tx);
  ASSERT_EQ(0, write(tx, LDAP_DN, "bindPassword",
                     AttributeValue::structure({{"cleartext", "false"}, {"password", framework().crypto().encrypt(secret)}})));
  ASSERT_EQ(0, commit(tx));
  const std::vector<Args> calls = authenticationCalls();
  ASSERT_EQ(2u, calls.size());
  const char* temporaryDirectory = std::getenv("TMPDIR");
  const std::string passwordFile =
      (temporaryDirectory != nullptr ? std::string(temporaryDirectory) : std::string("/tmp")) + "/.ldap.secret.tmp";
  EXPECT_EQ("--password-file=" + passwordFile, calls[1].back());
  std::ifstream file(passwordFile);
  std::string line;
  std::getline(file, line);
  EXPECT_EQ(secret, line);
  struct stat status {};
  ASSERT_EQ(0, ::stat(passwordFile.c_str(), &status));
  EXPECT_EQ(0600u, status.st_mode & 0777u);
  EXPECT_EQ(0u, log().countContaining("S3cret"));
}

TEST_F(TransactionTest, ReadsAnswerWhatTheTransactionWroteAndNothingElse) {
  start();
  const unsigned long tx = begin();
  ASSERT_EQ(0, write(tx, LDAP_DN, "nodeType", AttributeValue::text(std::vector<std::string>{"bsc", "rnc"})));
  ASSERT_EQ(0, write(tx, LDAP_DN, "userLabel", AttributeValue::text("not held by the record")));

  PymMoAttributeValueResult_3 result = {nullptr, nullptr};
  ASSERT_EQ(0, managedObject->getMoAttribute(tx, LDAP_DN, "nodeType", &result));
  ASSERT_NE(nullptr, result.container);
  ASSERT_NE(nullptr, result.release);
  ASSERT_EQ(2u, result.container->nrOfValues);
  EXPECT_STREQ("bsc", result.container->values[0].theString);
  EXPECT_STREQ("rnc", result.container->values[1].theString);
  result.release(result.container);

  const char* names[] = {"userLabel", "nodeType", nullptr};
  PymMoAttributeValuesResult_3 values = {nullptr, nullptr};
  ASSERT_EQ(0, managedObject->getMoAttributes(tx, LDAP_DN, names, &values));
  ASSERT_NE(nullptr, values.containers);
  EXPECT_STREQ("not held by the record", values.containers[0]->values[0].theString);
  EXPECT_EQ(2u, values.containers[1]->nrOfValues);
  EXPECT_EQ(nullptr, values.containers[2]);
  values.release(values.containers);

  PymMoAttributeValueResult_3 untouched = {nullptr, nullptr};
  EXPECT_EQ(PymNotExist, managedObject->getMoAttribute(tx, LDAP_DN, "baseDn", &untouched));
  EXPECT_EQ(PymNotExist, managedObject->getMoAttribute(begin(), LDAP_DN, "nodeType", &untouched));
  const char* partly[] = {"nodeType", "baseDn", nullptr};
  PymMoAttributeValuesResult_3 none = {nullptr, nullptr};
  EXPECT_EQ(PymNotExist, managedObject->getMoAttributes(tx, LDAP_DN, partly, &none));
  EXPECT_EQ(nullptr, none.containers);
  EXPECT_EQ(nullptr, untouched.container);
}

TEST_F(TransactionTest, ResultHandedOutBeforeStopCanBeReleasedAfterIt) {
  start();
  const unsigned long tx = begin();
  ASSERT_EQ(0, write(tx, LDAP_DN, "bindPassword",
                     AttributeValue::structure({{"cleartext", "false"}, {"password", framework().crypto().encrypt("x")}})));
  PymMoAttributeValueResult_3 result = {nullptr, nullptr};
  ASSERT_EQ(0, managedObject->getMoAttribute(tx, LDAP_DN, "bindPassword", &result));
  ASSERT_EQ(0, descriptor->stop(PymStateChangeShutdown));
  // Under the address sanitizer a wrong free or a leak of the structure fails the run.
  result.release(result.container);
}

TEST_F(TransactionTest, JoinThatCannotRegisterIsLogged) {
  start();
  const unsigned long unknown = 4242;
  EXPECT_EQ(PymNotExist, resource->join(unknown));
  EXPECT_EQ(1u, log().count(3, "Failed to registerParticipant"));
}

TEST_F(TransactionTest, EveryCallIsAnsweredTwoUntilStartedAndAfterStop) {
  bool exists = true;
  const char** roles = reinterpret_cast<const char**>(0x1);
  const unsigned long tx = begin();
  auto answersTwo = [&] {
    EXPECT_EQ(2, accessManagement->getRoles("LDAP", "user", &roles));
    EXPECT_EQ(2, accessManagement->freeRoles("LDAP", nullptr));
    EXPECT_EQ(2, managedObject->existsMo(tx, LDAP_DN, &exists));
    EXPECT_EQ(2, managedObject->setMoAttribute(tx, LDAP_DN, "baseDn", AttributeValue::text("dc=x").get()));
    EXPECT_EQ(2, managedObject1->deleteMo(tx, LDAP_DN));
    EXPECT_EQ(2, resource->join(tx));
    EXPECT_EQ(2, resource->validate(tx, &exists));
    EXPECT_EQ(2, resource->prepare(tx));
    EXPECT_EQ(2, resource->commit(tx));
    EXPECT_EQ(2, resource->abort(tx));
    EXPECT_EQ(2, resource->finish(tx));
  };
  answersTwo();
  start();
  descriptor->stop(PymStateChangeShutdown);
  answersTwo();
  EXPECT_EQ(reinterpret_cast<const char**>(0x1), roles);
  EXPECT_TRUE(exists);
}

TEST_F(TransactionTest, NoOpOperationsTraceTheirEntryAndTouchNoOutput) {
  start();
  bool exists = true;
  unsigned long long count = 77;
  unsigned long long iterator = 5;
  char* next = reinterpret_cast<char*>(0x2);
  void* iterator1 = reinterpret_cast<void*>(0x3);
  PymMoAttributeValueContainer* value1 = reinterpret_cast<PymMoAttributeValueContainer*>(0x4);
  EXPECT_EQ(0, managedObject->existsMo(12, LDAP_DN, &exists));
  EXPECT_EQ(0, managedObject->countMoChildren(12, LDAP_DN, "Filter", &count));
  EXPECT_EQ(0, managedObject->finalizeMoIterator(12));
  EXPECT_EQ(0, managedObject->newMoIterator(12, LDAP_DN, "Filter", &iterator));
  EXPECT_EQ(0, managedObject->nextMo(iterator, &next));
  EXPECT_EQ(0, managedObject->createMo(12, LDAP_DN, "Filter", "filterId", "2", nullptr));
  EXPECT_EQ(0, managedObject->deleteMo(12, LDAP_DN));
  EXPECT_EQ(0, managedObject->action(12, LDAP_DN, "reset", nullptr, nullptr));
  EXPECT_EQ(0, managedObject1->getMoAttribute(12, LDAP_DN, "baseDn", &value1));
  EXPECT_EQ(0, managedObject1->newMoIterator(12, LDAP_DN, "Filter", &iterator1));
  EXPECT_EQ(0, managedObject1->nextMo(iterator1, &next));
  EXPECT_TRUE(exists);
  EXPECT_EQ(77u, count);
  EXPECT_EQ(5u, iterator);
  EXPECT_EQ(reinterpret_cast<char*>(0x2), next);
  EXPECT_EQ(reinterpret_cast<void*>(0x3), iterator1);
  EXPECT_EQ(reinterpret_cast<PymMoAttributeValueContainer*>(0x4), value1);
  const std::string dn = LDAP_DN;
  // existsMo and countMoChildren ("%d") and deleteMo ("%lu") print the same here.
  EXPECT_EQ(3u, log().count(8, " >> txHandle: 12, dn: " + dn));
  EXPECT_EQ(2u, log().count(8, " >> txHandle: 12, dn: " + dn + ", class: Filter"));
  EXPECT_EQ(1u, log().count(8, " >> txHandle: 12, dn: " + dn + ", class: Filter, attrname: filterId, attrvalue: 2"));
  EXPECT_EQ(1u, log().count(8, " >> txHandle: 12, dn: " + dn + ", name: reset"));
  EXPECT_EQ(1u, log().count(8, " >> txHandle: 12, dn: " + dn + ", attr: baseDn"));
  EXPECT_EQ(1u, log().count(8, " >> txHandle: 12"));
}

TEST_F(TransactionTest, ChangedReferenceWithoutSecurityApiIsKeptForTheNextSubscription) {
  start();
  // The thread finds no security API once it has signalled start-up, and then ends.
  ASSERT_TRUE(eventually([&] { return log().count(8, "SEC API is not available") == 1; }));
  const std::size_t unavailable = 1;
  const unsigned long tx = begin();
  ASSERT_EQ(0, write(tx, LDAP_DN, "nodeCredential",
                     AttributeValue::reference("ManagedElement=1,SystemFunctions=1,SecM=1,CertM=1,NodeCredential=2")));
  EXPECT_EQ(0, commit(tx));
  EXPECT_EQ(1u, log().count(8, "NodeCred MoRef or TrustCat MoRef updated"));
  EXPECT_EQ(unavailable + 1, log().count(8, "SEC API is not available"));
  // The node credential names the client certificate: the configuration is applied again.
  EXPECT_EQ(1u, log().count(8, "Configuration updated - calling QIV EA (with --prepare flag)"));
}

// With the security API's library loaded, the configuration thread serves re-subscriptions.
using TransactionWithSecurityApiTest = WithSecurityApi<TransactionTest>;

TEST_F(TransactionWithSecurityApiTest, ChangedReferenceIsSubscribedAgainDuringPrepare) {
  start();
  // The thread enters its loop right after the start-up signal; nothing outside shows when.
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  ASSERT_EQ(2u, security.subscription().size());
  const std::string trustCategory = "ManagedElement=1,SystemFunctions=1,SecM=1,CertM=1,TrustCategory=9";
  const unsigned long tx = begin();
  ASSERT_EQ(0, write(tx, LDAP_DN, "trustCategory", AttributeValue::reference(trustCategory)));
  EXPECT_EQ(0, commit(tx));
  EXPECT_EQ(1u, log().count(8, "NodeCred MoRef or TrustCat MoRef updated"));
  EXPECT_EQ(1u, log().count(8, "Subscribe to SecApi with new nodeCredential or trustCategory"));
  EXPECT_EQ(1u, log().count(8, "Notification received from _subscribeCompleteNotification for SecApi subscription completed"));
  EXPECT_EQ((std::vector<std::string>{"ManagedElement=1,SystemFunctions=1,SecM=1,CertM=1,NodeCredential=1", trustCategory}),
            security.subscription());
}

TEST_F(TransactionWithSecurityApiTest, AbortAfterASubscriptionSubscribesTheOldReferencesAgain) {
  start();
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  const std::vector<std::string> before = security.subscription();
  ASSERT_EQ(2u, before.size());
  const unsigned long tx = begin();
  ASSERT_EQ(0, write(tx, LDAP_DN, "trustCategory",
                     AttributeValue::reference("ManagedElement=1,SystemFunctions=1,SecM=1,CertM=1,TrustCategory=9")));
  // The framework aborts after the component prepared, as when another participant refuses.
  {
    const Framework::CurrentTransaction current(tx);
    ASSERT_EQ(0, resource->prepare(tx));
    ASSERT_EQ(0, resource->abort(tx));
  }
  EXPECT_EQ(2u, log().count(8, "Subscribe to SecApi with new nodeCredential or trustCategory"));
  EXPECT_EQ(before, security.subscription());
}
