#include "MoAccessor.h"

#include "FrameworkTestBase.h"
#include "LdapModel.h"

#include <Qiv/QivException.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

using Qiv::MoAccessor;

namespace {

using Values = std::vector<std::string>;

// Ldap=1 holds a value in every attribute (two in nodeType, none in the structure's password
// member); Ldap=2 holds none. Filter has no instance.
const char MODEL[] = R"(<model>
  <class path="Node"/>
  <class path="Node,Ldap">
    <attribute name="ldapIpAddress" type="string"/>
    <attribute name="nodeType" type="string" sequence="true"/>
    <attribute name="useTls" type="bool"/>
    <attribute name="serverPort" type="uint16"/>
    <attribute name="tlsMode" type="enum">
      <literal name="STARTTLS" value="0"/>
      <literal name="LDAPS" value="1"/>
    </attribute>
    <attribute name="nodeCredential" type="reference"/>
    <attribute name="bindPassword" type="struct">
      <member name="password" type="string"/>
      <member name="cleartext" type="bool"/>
    </attribute>
  </class>
  <class path="Node,Ldap,Filter"/>
  <object dn="Node=1"/>
  <object dn="Node=1,Ldap=1">
    <value attribute="ldapIpAddress">10.0.0.1</value>
    <value attribute="nodeType">mme</value>
    <value attribute="nodeType">sgsn</value>
    <value attribute="useTls">true</value>
    <value attribute="serverPort">636</value>
    <value attribute="tlsMode">LDAPS</value>
    <value attribute="nodeCredential">Node=1,Credential=7</value>
    <value attribute="bindPassword"><member name="cleartext">true</member></value>
  </object>
  <object dn="Node=1,Ldap=2"/>
</model>)";

const std::string SET = "Node=1,Ldap=1";
const std::string UNSET = "Node=1,Ldap=2";

// Text and code of a Qiv::QivException.
struct Failure {
  std::string text;
  int code;
};

// What call throws; the test fails when it throws no Qiv::QivException.
template <class Call>
Failure failureOf(Call&& call) {
  try {
    call();
  } catch (const Qiv::QivException& e) {
    return Failure{e.what(), e.code()};
  }
  ADD_FAILURE() << "no Qiv::QivException";
  return Failure{"", 0};
}

std::string trace(const std::string& operation, const std::string& dn, const std::string& attrName) {
  return "MoAccessor::" + operation + "<> dName :" + dn + " attrName :" + attrName;
}

std::string mismatch(PymMoValueType expected, PymMoValueType stored) {
  return "Attribute type mismatch: expected " + std::to_string(expected) + ", stored " + std::to_string(stored);
}

std::string readFailure(const std::string& dn, const std::string& attrName) {
  return "Failed to read attribute :'" + attrName + "' in MO :" + dn + ", reason (-2 )!";
}

}  // namespace

class MoAccessorTest : public FrameworkTestBase {
 protected:
  void SetUp() override {
    framework().model().loadText(MODEL, "accessor model");
    log().clear();
  }

  // getAttr<T> of an attribute without value: error log and exception with the same text.
  template <class T>
  void expectNoValue(const std::string& attrName) {
    const std::string text = "Attribute has no value set: " + UNSET + "::" + attrName;
    EXPECT_EQ(text, failureOf([&] { accessor.getAttr<T>(UNSET, attrName); }).text);
    EXPECT_EQ(1u, log().count(3, text));
  }

  // getOptionalAttrStrict<T> of an attribute without value: empty, and get() throws.
  template <class T>
  void expectEmptyOptional(const std::string& attrName) {
    const MoAccessor::Optional<T> optional = accessor.getOptionalAttrStrict<T>(UNSET, attrName);
    EXPECT_FALSE(optional.hasValue()) << attrName;
    EXPECT_EQ("Attribute is not set", failureOf([&] { optional.get(); }).text) << attrName;
    EXPECT_EQ(1u, log().count(8, trace("getOptionalAttr", UNSET, attrName)));
  }

  // A write the model refuses: error log and exception naming the attribute, the DN and the
  // router's result; nothing reaches the model.
  template <class Write>
  void expectRefusedWrite(const std::string& attrName, int code, Write&& write) {
    const std::string before = framework().model().toXml();
    const Failure failure = failureOf(write);
    EXPECT_EQ("Failed to set attribute :'" + attrName + "' in MO :" + SET + ", reason (" + std::to_string(code) +
                  " )!",
              failure.text);
    EXPECT_EQ(code, failure.code);
    EXPECT_EQ(1u, log().count(3, "Failed to write '" + attrName + "' from MO ( error:" + std::to_string(code) + " )!"));
    accessor.commit();
    EXPECT_EQ(before, framework().model().toXml());
  }

  // Lock policy and time-out as the component uses them.
  MoAccessor accessor{1, 60};
};

TEST_F(MoAccessorTest, GetAttrReadsEachTypeTheComponentUses) {
  EXPECT_EQ("10.0.0.1", accessor.getAttr<std::string>(SET, "ldapIpAddress"));
  EXPECT_TRUE(accessor.getAttr<bool>(SET, "useTls"));
  EXPECT_EQ(1, accessor.getAttr<MoAccessor::Enum>(SET, "tlsMode").value);
  EXPECT_TRUE(accessor.getAttr<MoAccessor::Struct>(SET, "bindPassword").get<bool>("cleartext"));
  EXPECT_EQ(1u, log().count(8, trace("getAttr", SET, "ldapIpAddress")));
  EXPECT_EQ(1u, log().count(8, trace("getAttr", SET, "tlsMode")));
  EXPECT_EQ(0u, log().countAtLevel(3));
}

TEST_F(MoAccessorTest, GetAttrWithoutValueThrows) {
  expectNoValue<std::string>("ldapIpAddress");
  expectNoValue<bool>("useTls");
  expectNoValue<MoAccessor::Enum>("tlsMode");
  expectNoValue<MoAccessor::Struct>("bindPassword");
}

TEST_F(MoAccessorTest, GetAttrOfASequenceThrowsWhileGetSeqAttrReturnsEveryValue) {
  const std::string text = "Attribute is a sequence: " + SET + "::nodeType";
  EXPECT_EQ(text, failureOf([&] { accessor.getAttr<std::string>(SET, "nodeType"); }).text);
  EXPECT_EQ(1u, log().count(3, text));

  EXPECT_EQ((Values{"mme", "sgsn"}), accessor.getSeqAttr<std::string>(SET, "nodeType"));
  // getSeqAttr traces as getAttr does.
  EXPECT_EQ(2u, log().count(8, trace("getAttr", SET, "nodeType")));
}

TEST_F(MoAccessorTest, GetOptionalAttrStrictOfASequenceThrows) {
  const std::string text = "Attribute is a sequence: " + SET + "::nodeType";
  EXPECT_EQ(text, failureOf([&] { accessor.getOptionalAttrStrict<std::string>(SET, "nodeType"); }).text);
  EXPECT_EQ(1u, log().count(3, text));
  EXPECT_EQ(1u, log().count(8, trace("getOptionalAttr", SET, "nodeType")));
}

TEST_F(MoAccessorTest, GetOptionalAttrStrictReadsEachTypeTheComponentUses) {
  EXPECT_EQ("10.0.0.1", accessor.getOptionalAttrStrict<std::string>(SET, "ldapIpAddress").get());
  EXPECT_TRUE(accessor.getOptionalAttrStrict<bool>(SET, "useTls").get());
  EXPECT_EQ(636, accessor.getOptionalAttrStrict<unsigned short>(SET, "serverPort").get());
  EXPECT_EQ(1, accessor.getOptionalAttrStrict<MoAccessor::Enum>(SET, "tlsMode").get().value);
  EXPECT_EQ("Node=1,Credential=7", accessor.getOptionalAttrStrict<MoAccessor::MoRef>(SET, "nodeCredential").get().dn);
  const MoAccessor::Optional<MoAccessor::Struct> password =
      accessor.getOptionalAttrStrict<MoAccessor::Struct>(SET, "bindPassword");
  ASSERT_TRUE(password.hasValue());
  EXPECT_TRUE(password.get().get<bool>("cleartext"));
  EXPECT_EQ(1u, log().count(8, trace("getOptionalAttr", SET, "serverPort")));
}

TEST_F(MoAccessorTest, GetOptionalAttrStrictWithoutValueIsEmpty) {
  expectEmptyOptional<std::string>("ldapIpAddress");
  expectEmptyOptional<bool>("useTls");
  expectEmptyOptional<unsigned short>("serverPort");
  expectEmptyOptional<MoAccessor::Enum>("tlsMode");
  expectEmptyOptional<MoAccessor::MoRef>("nodeCredential");
  expectEmptyOptional<MoAccessor::Struct>("bindPassword");
  EXPECT_EQ(0u, log().countAtLevel(3));
}

TEST_F(MoAccessorTest, GetSeqAttrOfOneValueOrNone) {
  EXPECT_EQ(Values{"10.0.0.1"}, accessor.getSeqAttr<std::string>(SET, "ldapIpAddress"));
  EXPECT_EQ(Values{}, accessor.getSeqAttr<std::string>(UNSET, "nodeType"));
  EXPECT_EQ(0u, log().countAtLevel(3));
}

TEST_F(MoAccessorTest, StructMemberWithoutValueThrowsWithWarning) {
  const MoAccessor::Struct bindPassword = accessor.getAttr<MoAccessor::Struct>(SET, "bindPassword");
  const Failure failure = failureOf([&] { bindPassword.get<std::string>("password"); });
  EXPECT_EQ("Struct member not set: 'password'", failure.text);
  EXPECT_EQ(-1, failure.code);
  EXPECT_EQ(1u, log().count(4, "Struct member not set: 'password'"));
}

TEST_F(MoAccessorTest, WrongTypeThrowsMismatch) {
  EXPECT_EQ(mismatch(PymMoValueType_Bool, PymMoValueType_String),
            failureOf([&] { accessor.getAttr<bool>(SET, "ldapIpAddress"); }).text);
  EXPECT_EQ(mismatch(PymMoValueType_Uint16, PymMoValueType_Enum),
            failureOf([&] { accessor.getOptionalAttrStrict<unsigned short>(SET, "tlsMode"); }).text);
  EXPECT_EQ(mismatch(PymMoValueType_String, PymMoValueType_Uint16),
            failureOf([&] { accessor.getSeqAttr<std::string>(SET, "serverPort"); }).text);
  const MoAccessor::Struct bindPassword = accessor.getAttr<MoAccessor::Struct>(SET, "bindPassword");
  EXPECT_EQ(mismatch(PymMoValueType_String, PymMoValueType_Bool),
            failureOf([&] { bindPassword.get<std::string>("cleartext"); }).text);
}

TEST_F(MoAccessorTest, AttributeTheClassLacksThrowsReadFailure) {
  const std::string text = readFailure(SET, "cipherFilter");
  const Failure failure = failureOf([&] { accessor.getAttr<std::string>(SET, "cipherFilter"); });
  EXPECT_EQ(text, failure.text);
  EXPECT_EQ(-2, failure.code);
  // Strict: a missing attribute is no empty value.
  EXPECT_EQ(text, failureOf([&] { accessor.getOptionalAttrStrict<std::string>(SET, "cipherFilter"); }).text);
  EXPECT_EQ(text, failureOf([&] { accessor.getSeqAttr<std::string>(SET, "cipherFilter"); }).text);
}

TEST_F(MoAccessorTest, FirstInstanceOfAClassWithAndWithoutInstances) {
  EXPECT_EQ(SET, accessor.getFirstMoInstance("Node,Ldap"));
  EXPECT_EQ("", accessor.getFirstMoInstance("Node,Ldap,Filter"));
}

TEST_F(MoAccessorTest, SetAttrIsVisibleOnlyAfterCommit) {
  accessor.setAttr<std::string>(SET, "ldapIpAddress", "10.0.0.2");
  accessor.setAttr(SET, "tlsMode", MoAccessor::Enum(0));
  accessor.setAttr<unsigned short>(SET, "serverPort", 389);
  EXPECT_EQ(1u, log().count(8, trace("setAttr", SET, "ldapIpAddress")));
  EXPECT_EQ(1u, log().count(8, trace("setSeqAttr", SET, "ldapIpAddress")));

  // The writer sees its own transaction; handle 0 and the store still see the committed values.
  EXPECT_EQ("10.0.0.2", accessor.getAttr<std::string>(SET, "ldapIpAddress"));
  MoAccessor reader(1, 60);
  EXPECT_EQ("10.0.0.1", reader.getAttr<std::string>(SET, "ldapIpAddress"));
  EXPECT_EQ(1, reader.getAttr<MoAccessor::Enum>(SET, "tlsMode").value);
  EXPECT_EQ(636, reader.getOptionalAttrStrict<unsigned short>(SET, "serverPort").get());
  EXPECT_EQ(Values{"10.0.0.1"}, framework().model().stringValues(SET, "ldapIpAddress"));

  accessor.commit();
  EXPECT_EQ(Values{"10.0.0.2"}, framework().model().stringValues(SET, "ldapIpAddress"));
  EXPECT_EQ(Values{"STARTTLS"}, framework().model().stringValues(SET, "tlsMode"));
  EXPECT_EQ(Values{"389"}, framework().model().stringValues(SET, "serverPort"));
  EXPECT_EQ("10.0.0.2", reader.getAttr<std::string>(SET, "ldapIpAddress"));
}

TEST_F(MoAccessorTest, SetSeqAttrWritesEveryValueInOrder) {
  accessor.setSeqAttr<std::string>(SET, "nodeType", {"msc", "hlr", "mme"});
  accessor.setSeqAttr(UNSET, "tlsMode", std::vector<MoAccessor::Enum>{MoAccessor::Enum(1)});
  accessor.setSeqAttr<unsigned short>(UNSET, "serverPort", {1812});
  EXPECT_EQ(1u, log().count(8, trace("setSeqAttr", SET, "nodeType")));
  EXPECT_EQ(0u, log().count(8, trace("setAttr", SET, "nodeType")));
  EXPECT_EQ(Values{}, framework().model().stringValues(UNSET, "serverPort"));

  accessor.commit();
  EXPECT_EQ((Values{"msc", "hlr", "mme"}), framework().model().stringValues(SET, "nodeType"));
  EXPECT_EQ(Values{"LDAPS"}, framework().model().stringValues(UNSET, "tlsMode"));
  EXPECT_EQ(Values{"1812"}, framework().model().stringValues(UNSET, "serverPort"));
}

TEST_F(MoAccessorTest, SetSeqAttrWithoutValuesUnsetsTheAttribute) {
  accessor.setSeqAttr<std::string>(SET, "nodeType", {});
  accessor.commit();
  EXPECT_EQ(Values{}, framework().model().stringValues(SET, "nodeType"));
}

TEST_F(MoAccessorTest, UncommittedWritesAreDropped) {
  {
    MoAccessor writer(1, 60);
    writer.setAttr<std::string>(SET, "ldapIpAddress", "10.0.0.2");
  }
  EXPECT_EQ(Values{"10.0.0.1"}, framework().model().stringValues(SET, "ldapIpAddress"));
}

TEST_F(MoAccessorTest, WriteOfAValueTheModelRejectsThrows) {
  expectRefusedWrite("tlsMode", PymInvalidParameter, [&] { accessor.setAttr(SET, "tlsMode", MoAccessor::Enum(7)); });
}

TEST_F(MoAccessorTest, WriteOfTwoValuesToASingleValuedAttributeThrows) {
  expectRefusedWrite("tlsMode", PymInvalidParameter, [&] {
    accessor.setSeqAttr(SET, "tlsMode", std::vector<MoAccessor::Enum>{MoAccessor::Enum(0), MoAccessor::Enum(1)});
  });
}

TEST_F(MoAccessorTest, WriteOfAnAttributeTheClassLacksThrows) {
  expectRefusedWrite("cipherFilter", PymNotExist, [&] { accessor.setAttr<std::string>(SET, "cipherFilter", "ALL"); });
}

// The component's own model, before and after the Ldap 2.0 attributes.
class MoAccessorLdapModelTest : public FrameworkTestBase {
 protected:
  explicit MoAccessorLdapModelTest(const std::string& model = "ldap20.xml") : FrameworkTestBase(model) {}

  MoAccessor accessor{1, 60};
};

class MoAccessorPre20ModelTest : public MoAccessorLdapModelTest {
 protected:
  MoAccessorPre20ModelTest() : MoAccessorLdapModelTest("pre20.xml") {}
};

TEST_F(MoAccessorLdapModelTest, ReadsProfileFilterAndFindsTheLdapInstance) {
  using namespace QivAccessManagement::LdapModel;
  const MoAccessor::Optional<MoAccessor::Enum> profileFilter =
      accessor.getOptionalAttrStrict<MoAccessor::Enum>(LDAP_DN, PROFILE_FILTER);
  ASSERT_TRUE(profileFilter.hasValue());
  EXPECT_EQ(0, profileFilter.get().value);
  EXPECT_EQ(LDAP_DN, accessor.getFirstMoInstance(LDAP_CLASS));
}

TEST_F(MoAccessorPre20ModelTest, ProfileFilterReadFailsWhileFilterTypeIsRead) {
  using namespace QivAccessManagement::LdapModel;
  const Failure failure = failureOf([&] { accessor.getOptionalAttrStrict<MoAccessor::Enum>(LDAP_DN, PROFILE_FILTER); });
  EXPECT_EQ(readFailure(LDAP_DN, PROFILE_FILTER), failure.text);
  EXPECT_EQ(-2, failure.code);
  EXPECT_EQ(1, accessor.getOptionalAttrStrict<MoAccessor::Enum>(LDAP_DN, FILTER_TYPE).get().value);
}
