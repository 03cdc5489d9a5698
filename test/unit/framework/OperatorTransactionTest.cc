#include "FrameworkTest.h"

#include <Framework/OperatorError.h>
#include <Framework/OperatorTransaction.h>

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

using Framework::OperatorError;
using Framework::OperatorTransaction;
using Strings = std::vector<std::string>;

namespace {

const std::string kLdap = FrameworkTest::LDAP_DN;
const std::string kAuthMethod = "ManagedElement=1,SystemFunctions=1,SecM=1,UserManagement=1,LdapAuthenticationMethod=1";
const std::string kUserManagement = "ManagedElement=1,SystemFunctions=1,SecM=1,UserManagement=1";
const std::string kNodeCredential = "ManagedElement=1,SystemFunctions=1,SecM=1,CertM=1,NodeCredential=1";

// "<code>: <text>" of the OperatorError that request throws, or "none".
std::string errorOf(const std::function<void()>& request) {
  try {
    request();
  } catch (const OperatorError& error) {
    return std::to_string(error.code()) + ": " + error.what();
  }
  return "none";
}

// One attribute written as texts, and what reading it back gives.
struct RoundTrip {
  std::string dn;
  std::string attribute;
  Strings written;
  Strings read;
};

}  // namespace

// Operator transactions on a model without object implementers.
class OperatorTransactions : public FrameworkTest {};

TEST_F(OperatorTransactions, TextValuesRoundTripThroughTheModel) {
  const std::vector<RoundTrip> cases = {
      {kLdap, "baseDn", {"dc=x,dc=y"}, {"dc=x,dc=y"}},
      {kLdap, "bindDn", {""}, {""}},
      {kLdap, "useTls", {"true"}, {"true"}},
      {kLdap, "useReferrals", {"false"}, {"false"}},
      {kLdap, "tlsMode", {"1"}, {"LDAPS"}},
      {kLdap, "profileFilter", {"FLEXIBLE"}, {"FLEXIBLE"}},
      {kLdap, "serverPort", {"65535"}, {"65535"}},
      {kLdap, "nodeCredential", {kNodeCredential}, {kNodeCredential}},
      {kLdap, "bindPassword", {"{password=\"a,b\\\"c\"}"}, {"{password=\"a,b\\\"c\"}"}},
      {kLdap, "nodeType", {"a", "b,c", ""}, {"a", "b,c", ""}},
      {kLdap, "trustCategory", {}, {}},
      {kAuthMethod, "administrativeState", {"UNLOCKED"}, {"UNLOCKED"}},
      {kUserManagement, "targetType", {"x"}, {"x"}},
  };
  OperatorTransaction writer(*framework);
  for (const RoundTrip& roundTrip : cases) {
    ASSERT_EQ(PymOk, writer.setText(roundTrip.dn, roundTrip.attribute, roundTrip.written)) << roundTrip.attribute;
    EXPECT_EQ(roundTrip.read, writer.getText(roundTrip.dn, roundTrip.attribute)) << roundTrip.attribute;
  }
  ASSERT_EQ(PymOk, writer.commit());
  OperatorTransaction reader(*framework);
  for (const RoundTrip& roundTrip : cases) {
    EXPECT_EQ(roundTrip.read, reader.getText(roundTrip.dn, roundTrip.attribute)) << roundTrip.attribute;
  }
  // The model's own text helpers agree.
  EXPECT_EQ(Strings{"LDAPS"}, framework->model().stringValues(kLdap, "tlsMode"));
  EXPECT_EQ(Strings{"65535"}, framework->model().stringValues(kLdap, "serverPort"));
  EXPECT_TRUE(framework->model().stringValues(kLdap, "trustCategory").empty());
  EXPECT_EQ(Strings{"a,b\"c"}, framework->model().memberStringValues(kLdap, "bindPassword", "password"));
}

TEST_F(OperatorTransactions, ValueContainersAreWrittenAsTheyAre) {
  OperatorTransaction transaction(*framework);
  PymMoAttributeValue_3 values[2] = {};
  values[0].theString = "n1";
  values[1].theString = "n2";
  const PymMoAttributeValueContainer_3 nodeTypes{PymMoValueType_String, 2, values};
  ASSERT_EQ(PymOk, transaction.set(kLdap, "nodeType", nodeTypes));
  EXPECT_EQ((Strings{"n1", "n2"}), transaction.getText(kLdap, "nodeType"));
  const PymMoAttributeValueContainer_3 none{PymMoValueType_String, 0, nullptr};
  ASSERT_EQ(PymOk, transaction.set(kLdap, "ldapIpAddress", none));
  EXPECT_TRUE(transaction.getText(kLdap, "ldapIpAddress").empty());
}

TEST_F(OperatorTransactions, RequestsThatCannotBeUnderstoodAreClearErrors) {
  OperatorTransaction transaction(*framework);
  EXPECT_EQ("-5: malformed DN \"ManagedElement\": element \"ManagedElement\" is not Class=value",
            errorOf([&] { (void)transaction.setText("ManagedElement", "userLabel", {"x"}); }));
  EXPECT_EQ("-2: no object \"ManagedElement=9\"",
            errorOf([&] { (void)transaction.setText("ManagedElement=9", "userLabel", {"x"}); }));
  EXPECT_EQ("-2: \"" + kLdap + "\" has no attribute \"noSuch\"",
            errorOf([&] { (void)transaction.setText(kLdap, "noSuch", {"x"}); }));
  EXPECT_EQ("-5: \"x\" is not a valid uint16 value for \"serverPort\"",
            errorOf([&] { (void)transaction.setText(kLdap, "serverPort", {"x"}); }));
  EXPECT_EQ("-5: \"70000\" is not a valid uint16 value for \"serverPort\"",
            errorOf([&] { (void)transaction.setText(kLdap, "serverPort", {"70000"}); }));
  EXPECT_EQ("-5: \"serverPort\" is single-valued but given 2 values",
            errorOf([&] { (void)transaction.setText(kLdap, "serverPort", {"1", "2"}); }));
  EXPECT_EQ("-5: \"yes\" is not true or false for \"useTls\"",
            errorOf([&] { (void)transaction.setText(kLdap, "useTls", {"yes"}); }));
  EXPECT_EQ("-5: \"TLS\" is no literal of \"tlsMode\" (STARTTLS, LDAPS)",
            errorOf([&] { (void)transaction.setText(kLdap, "tlsMode", {"TLS"}); }));
  EXPECT_EQ("-5: bad value \"{pasword=x}\" for \"bindPassword\": \"bindPassword\" has no member \"pasword\"",
            errorOf([&] { (void)transaction.setText(kLdap, "bindPassword", {"{pasword=x}"}); }));
  PymMoAttributeValue_3 port{};
  port.u16 = 636;
  const PymMoAttributeValueContainer_3 wrongType{PymMoValueType_Uint16, 1, &port};
  EXPECT_EQ("-5: \"baseDn\" is a string, not a uint16",
            errorOf([&] { (void)transaction.set(kLdap, "baseDn", wrongType); }));
  EXPECT_EQ("-2: \"" + kLdap + "\" has no attribute \"noSuch\"",
            errorOf([&] { transaction.getText(kLdap, "noSuch"); }));
  EXPECT_EQ("-2: no object \"ManagedElement=9\"", errorOf([&] { transaction.getText("ManagedElement=9", "x"); }));
  EXPECT_EQ(0u, framework->cmRouter().pendingWriteCount(transaction.handle()));
  EXPECT_TRUE(transaction.isOpen());
}

TEST_F(OperatorTransactions, AnEndedTransactionTakesNoMoreRequests) {
  OperatorTransaction transaction(*framework);
  ASSERT_EQ(PymOk, transaction.setText(kLdap, "baseDn", {"dc=new"}));
  EXPECT_EQ(PymOk, transaction.commit());
  EXPECT_FALSE(transaction.isOpen());
  const std::string ended = "-5: transaction " + std::to_string(transaction.handle()) + " has ended";
  EXPECT_EQ(ended, errorOf([&] { (void)transaction.setText(kLdap, "baseDn", {"dc=late"}); }));
  EXPECT_EQ(ended, errorOf([&] { transaction.getText(kLdap, "baseDn"); }));
  EXPECT_EQ(ended, errorOf([&] { transaction.commit(); }));
  EXPECT_EQ(ended, errorOf([&] { transaction.abort(); }));
  EXPECT_EQ(Strings{"dc=new"}, framework->model().stringValues(kLdap, "baseDn"));
}

TEST_F(OperatorTransactions, PendingWritesAreSeenOnlyInside) {
  OperatorTransaction writer(*framework);
  OperatorTransaction other(*framework);
  ASSERT_EQ(PymOk, writer.setText(kLdap, "serverPort", {"636"}));
  EXPECT_EQ(Strings{"636"}, writer.getText(kLdap, "serverPort"));
  EXPECT_EQ(Strings{"389"}, other.getText(kLdap, "serverPort"));
  writer.abort();
  EXPECT_EQ(Strings{"389"}, other.getText(kLdap, "serverPort"));
  EXPECT_EQ(Strings{"389"}, framework->model().stringValues(kLdap, "serverPort"));
}

TEST_F(OperatorTransactions, HandlesAreTheTransactionServicesOwn) {
  OperatorTransaction transaction(*framework);
  EXPECT_TRUE(framework->transactions().isOpen(transaction.handle()));
  OperatorTransaction next(*framework);
  EXPECT_EQ(transaction.handle() + 1, next.handle());
}
