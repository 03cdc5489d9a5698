#include "FrameworkTest.h"

#include <PymOamSpiManagedObject.h>
#include <PymOamSpiTransaction.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

namespace {

const std::string kAuthMethod = "ManagedElement=1,SystemFunctions=1,SecM=1,UserManagement=1,LdapAuthenticationMethod=1";

// A version-3 read, released on destruction with the function it came with.
class Read {
 public:
  Read() : result() {}
  ~Read() {
    if (result.container != nullptr) result.release(result.container);
  }
  Read(const Read&) = delete;
  Read& operator=(const Read&) = delete;

  PymMoAttributeValueResult_3 result;
};

PymMoAttributeValueContainer_3 container(PymMoValueType type, uint32_t count, PymMoAttributeValue_3* values) {
  return PymMoAttributeValueContainer_3{type, count, values};
}

}  // namespace

class CmRouterTables : public FrameworkTest {
 protected:
  void SetUp() override {
    FrameworkTest::SetUp();
    lookUp();
  }

  void lookUp() {
    v1 = lookup<PymOamSpiManagedObject_1>("PymOamSpiCmRouterService", "PymOamSpiManagedObject", "1");
    v3 = lookup<PymOamSpiManagedObject_3>("PymOamSpiCmRouterService", "PymOamSpiManagedObject", "3");
    v31 = lookup<PymOamSpiManagedObject_3_1>("PymOamSpiCmRouterService", "PymOamSpiManagedObject", "3_1");
    extended = lookup<QivOamSpiManagedObject_3>("QivOamSpiExtCmRouterService", "QivOamSpiManagedObject", "3");
    transaction = lookup<PymOamSpiTransaction_2>(nullptr, "PymOamSpiTransaction", "2");
    ASSERT_NE(nullptr, v1);
    ASSERT_NE(nullptr, v3);
    ASSERT_NE(nullptr, v31);
    ASSERT_NE(nullptr, extended);
    ASSERT_NE(nullptr, transaction);
  }

  unsigned long begin() {
    unsigned long handle = 0;
    EXPECT_EQ(PymOk, transaction->newTransaction(PymLockPolicyNone, 0, &handle));
    return handle;
  }

  std::string text(unsigned long txHandle, const char* attribute) {
    Read read;
    if (v3->getMoAttribute(txHandle, LDAP_DN, attribute, &read.result) != PymOk) return "<error>";
    const PymMoAttributeValueContainer_3& values = *read.result.container;
    return values.nrOfValues == 0 ? "<none>" : values.values[0].theString;
  }

  // The DNs an iterator gives until null; the iterator is finalized.
  std::vector<std::string> iterate(unsigned long txHandle, const char* dn, const char* className) {
    unsigned long long iterator = 0;
    std::vector<std::string> dns;
    if (v3->newMoIterator(txHandle, dn, className, &iterator) != PymOk) return {"<error>"};
    char* next = nullptr;
    while (v3->nextMo(iterator, &next) == PymOk && next != nullptr) {
      dns.push_back(next);
      std::free(next);
    }
    EXPECT_EQ(PymOk, v3->finalizeMoIterator(iterator));
    return dns;
  }

  PymOamSpiManagedObject_1* v1 = nullptr;
  PymOamSpiManagedObject_3* v3 = nullptr;
  PymOamSpiManagedObject_3_1* v31 = nullptr;
  QivOamSpiManagedObject_3* extended = nullptr;
  PymOamSpiTransaction_2* transaction = nullptr;
};

TEST_F(CmRouterTables, ReadsCommittedValuesWithHandleZero) {
  Read read;
  ASSERT_EQ(PymOk, v3->getMoAttribute(0, kAuthMethod.c_str(), "administrativeState", &read.result));
  EXPECT_EQ(PymMoValueType_Enum, read.result.container->type);
  ASSERT_EQ(1u, read.result.container->nrOfValues);
  EXPECT_EQ(0, read.result.container->values[0].theEnum);
  EXPECT_EQ("127.0.0.1", text(0, "ldapIpAddress"));
  EXPECT_EQ("<none>", text(0, "fallbackLdapIpAddress"));
}

TEST_F(CmRouterTables, AllTablesReadTheSameModel) {
  Read extendedRead;
  ASSERT_EQ(PymOk, extended->getMoAttribute(0, LDAP_DN, "serverPort", &extendedRead.result));
  EXPECT_EQ(389, extendedRead.result.container->values[0].u16);
  Read v31Read;
  ASSERT_EQ(PymOk, v31->v3.getMoAttribute(0, LDAP_DN, "serverPort", &v31Read.result));
  EXPECT_EQ(389, v31Read.result.container->values[0].u16);
  PymMoAttributeValueContainer* kept = nullptr;
  ASSERT_EQ(PymOk, v1->getMoAttribute(0, LDAP_DN, "serverPort", &kept));
  EXPECT_EQ(389, kept->values[0].u16);
}

TEST_F(CmRouterTables, MissingObjectsAndAttributesDoNotExist) {
  Read read;
  EXPECT_EQ(PymNotExist, v3->getMoAttribute(0, LDAP_DN, "noSuchAttribute", &read.result));
  EXPECT_EQ(PymNotExist, v3->getMoAttribute(0, "ManagedElement=2", "userLabel", &read.result));
  EXPECT_EQ(PymNotExist, v3->getMoAttribute(99, LDAP_DN, "baseDn", &read.result));
  EXPECT_EQ(PymInvalidParameter, v3->getMoAttribute(0, nullptr, "baseDn", &read.result));
  EXPECT_EQ(PymInvalidParameter, v3->getMoAttribute(0, LDAP_DN, "baseDn", nullptr));
  EXPECT_EQ(nullptr, read.result.container);
}

TEST_F(CmRouterTables, OlderModelLacksProfileFilter) {
  restart("pre20.xml");
  lookUp();
  Read read;
  EXPECT_EQ(PymNotExist, v3->getMoAttribute(0, LDAP_DN, "profileFilter", &read.result));
  EXPECT_EQ("127.0.0.1", text(0, "ldapIpAddress"));
}

TEST_F(CmRouterTables, WritesNeedAnOpenTransaction) {
  PymMoAttributeValue_3 value{};
  value.theString = "dc=x";
  const PymMoAttributeValueContainer_3 baseDn = container(PymMoValueType_String, 1, &value);
  EXPECT_EQ(PymInvalidParameter, v3->setMoAttribute(0, LDAP_DN, "baseDn", &baseDn));
  EXPECT_EQ(PymNotExist, v3->setMoAttribute(42, LDAP_DN, "baseDn", &baseDn));
  const unsigned long handle = begin();
  EXPECT_EQ(PymOk, v3->setMoAttribute(handle, LDAP_DN, "baseDn", &baseDn));
  EXPECT_EQ(PymOk, transaction->commit(handle));
  EXPECT_EQ(PymNotExist, v3->setMoAttribute(handle, LDAP_DN, "baseDn", &baseDn));
  EXPECT_EQ("dc=x", text(0, "baseDn"));
}

TEST_F(CmRouterTables, WritesAreCheckedAgainstTheModel) {
  const unsigned long handle = begin();
  PymMoAttributeValue_3 values[2] = {};
  values[0].theString = "a";
  values[1].theString = "b";
  const PymMoAttributeValueContainer_3 twoStrings = container(PymMoValueType_String, 2, values);
  EXPECT_EQ(PymInvalidParameter, v3->setMoAttribute(handle, LDAP_DN, "baseDn", &twoStrings));
  EXPECT_EQ(PymOk, v3->setMoAttribute(handle, LDAP_DN, "nodeType", &twoStrings));
  const PymMoAttributeValueContainer_3 wrongType = container(PymMoValueType_Uint16, 1, values);
  EXPECT_EQ(PymInvalidParameter, v3->setMoAttribute(handle, LDAP_DN, "baseDn", &wrongType));
  EXPECT_EQ(PymNotExist, v3->setMoAttribute(handle, LDAP_DN, "noSuchAttribute", &twoStrings));
  EXPECT_EQ(PymNotExist, v3->setMoAttribute(handle, "ManagedElement=9", "baseDn", &twoStrings));
  EXPECT_EQ(PymInvalidParameter, v3->setMoAttribute(handle, LDAP_DN, "baseDn", nullptr));
  EXPECT_EQ(1u, framework->cmRouter().pendingWriteCount(handle));
  EXPECT_EQ(PymOk, transaction->abort(handle));
}

TEST_F(CmRouterTables, PendingWritesAreSeenOnlyThroughTheirTransaction) {
  const unsigned long handle = begin();
  PymMoAttributeValue_3 value{};
  value.u16 = 636;
  const PymMoAttributeValueContainer_3 port = container(PymMoValueType_Uint16, 1, &value);
  ASSERT_EQ(PymOk, extended->setMoAttribute(handle, LDAP_DN, "serverPort", &port));
  Read inside;
  ASSERT_EQ(PymOk, v3->getMoAttribute(handle, LDAP_DN, "serverPort", &inside.result));
  EXPECT_EQ(636, inside.result.container->values[0].u16);
  Read outside;
  ASSERT_EQ(PymOk, v3->getMoAttribute(0, LDAP_DN, "serverPort", &outside.result));
  EXPECT_EQ(389, outside.result.container->values[0].u16);
  EXPECT_EQ(std::vector<std::string>{"389"}, framework->model().stringValues(LDAP_DN, "serverPort"));
  EXPECT_EQ(PymOk, transaction->commit(handle));
  EXPECT_EQ(std::vector<std::string>{"636"}, framework->model().stringValues(LDAP_DN, "serverPort"));
}

TEST_F(CmRouterTables, SetMoAttributesWritesAllOrNothing) {
  const unsigned long handle = begin();
  PymMoNamedAttributeValueContainer_3 ip{"ldapIpAddress", {PymMoValueType_String, 1, nullptr}};
  PymMoAttributeValue_3 ipValue{};
  ipValue.theString = "10.1.1.1";
  ip.value.values = &ipValue;
  PymMoAttributeValue_3 tlsValue{};
  tlsValue.theBool = true;
  PymMoNamedAttributeValueContainer_3 useTls{"useTls", {PymMoValueType_Bool, 1, &tlsValue}};
  PymMoNamedAttributeValueContainer_3 wrong{"useTlsFallback", {PymMoValueType_String, 1, &ipValue}};
  PymMoNamedAttributeValueContainer_3* refused[] = {&ip, &wrong, nullptr};
  EXPECT_EQ(PymInvalidParameter, v31->setMoAttributes(handle, LDAP_DN, refused));
  EXPECT_EQ(0u, framework->cmRouter().pendingWriteCount(handle));
  PymMoNamedAttributeValueContainer_3* accepted[] = {&ip, &useTls, nullptr};
  EXPECT_EQ(PymOk, extended->setMoAttributes(handle, LDAP_DN, accepted));
  EXPECT_EQ("10.1.1.1", text(handle, "ldapIpAddress"));
  EXPECT_EQ(PymOk, transaction->commit(handle));
  EXPECT_EQ(std::vector<std::string>{"10.1.1.1"}, framework->model().stringValues(LDAP_DN, "ldapIpAddress"));
  EXPECT_EQ(std::vector<std::string>{"true"}, framework->model().stringValues(LDAP_DN, "useTls"));
}

TEST_F(CmRouterTables, StructuresAreWrittenAndReadBack) {
  const unsigned long handle = begin();
  PymMoAttributeValue_3 passwordText{};
  passwordText.theString = "ZW5jcnlwdGVk";
  PymMoAttributeValueContainer_3 passwordValue{PymMoValueType_String, 1, &passwordText};
  PymMoAttrStructMember_3 member{"password", &passwordValue, nullptr};
  PymMoAttributeValue_3 structure{};
  structure.structMember = &member;
  const PymMoAttributeValueContainer_3 bindPassword = container(PymMoValueType_Struct, 1, &structure);
  ASSERT_EQ(PymOk, v3->setMoAttribute(handle, LDAP_DN, "bindPassword", &bindPassword));
  ASSERT_EQ(PymOk, transaction->commit(handle));
  Read read;
  ASSERT_EQ(PymOk, v3->getMoAttribute(0, LDAP_DN, "bindPassword", &read.result));
  ASSERT_EQ(1u, read.result.container->nrOfValues);
  const PymMoAttrStructMember_3* readMember = read.result.container->values[0].structMember;
  ASSERT_NE(nullptr, readMember);
  EXPECT_STREQ("password", readMember->memberName);
  EXPECT_STREQ("ZW5jcnlwdGVk", readMember->memberValue->values[0].theString);
}

TEST_F(CmRouterTables, GetMoAttributesGivesOneContainerPerName) {
  const char* names[] = {"ldapIpAddress", "serverPort", "nodeType", nullptr};
  PymMoAttributeValuesResult_3 result{};
  ASSERT_EQ(PymOk, v3->getMoAttributes(0, LDAP_DN, names, &result));
  ASSERT_NE(nullptr, result.containers);
  EXPECT_STREQ("127.0.0.1", result.containers[0]->values[0].theString);
  EXPECT_EQ(389, result.containers[1]->values[0].u16);
  EXPECT_EQ(0u, result.containers[2]->nrOfValues);
  EXPECT_EQ(nullptr, result.containers[3]);
  result.release(result.containers);
  const char* withUnknown[] = {"ldapIpAddress", "noSuch", nullptr};
  PymMoAttributeValuesResult_3 refused{};
  EXPECT_EQ(PymNotExist, extended->getMoAttributes(0, LDAP_DN, withUnknown, &refused));
  EXPECT_EQ(nullptr, refused.containers);
}

TEST_F(CmRouterTables, IteratorsGiveChildrenOfOneClass) {
  EXPECT_EQ(std::vector<std::string>{"ManagedElement=1"}, iterate(0, "", "ManagedElement"));
  EXPECT_EQ(std::vector<std::string>{"ManagedElement=1,SystemFunctions=1,SecM=1"},
            iterate(0, "ManagedElement=1,SystemFunctions=1", "SecM"));
  EXPECT_EQ(std::vector<std::string>{std::string(LDAP_DN) + ",Filter=1"}, iterate(0, LDAP_DN, "Filter"));
  EXPECT_EQ(std::vector<std::string>{"<error>"}, iterate(0, LDAP_DN, "NoSuchClass"));
  EXPECT_EQ(std::vector<std::string>{"<error>"}, iterate(0, "ManagedElement=7", "SystemFunctions"));
  EXPECT_EQ(std::vector<std::string>{"<error>"}, iterate(99, "", "ManagedElement"));
}

TEST_F(CmRouterTables, NextMoAfterTheLastGivesNull) {
  unsigned long long iterator = 0;
  ASSERT_EQ(PymOk, extended->newMoIterator(0, "", "ManagedElement", &iterator));
  char* dn = nullptr;
  ASSERT_EQ(PymOk, extended->nextMo(iterator, &dn));
  std::unique_ptr<char, decltype(&std::free)> first(dn, &std::free);
  EXPECT_STREQ("ManagedElement=1", dn);
  ASSERT_EQ(PymOk, extended->nextMo(iterator, &dn));
  EXPECT_EQ(nullptr, dn);
  ASSERT_EQ(PymOk, extended->nextMo(iterator, &dn));
  EXPECT_EQ(nullptr, dn);
  EXPECT_EQ(PymOk, extended->finalizeMoIterator(iterator));
  EXPECT_EQ(PymNotExist, extended->finalizeMoIterator(iterator));
  EXPECT_EQ(PymNotExist, extended->nextMo(iterator, &dn));
}

TEST_F(CmRouterTables, IteratorsEndWithTheirTransaction) {
  const unsigned long handle = begin();
  unsigned long long iterator = 0;
  ASSERT_EQ(PymOk, v3->newMoIterator(handle, "", "ManagedElement", &iterator));
  EXPECT_EQ(PymOk, transaction->abort(handle));
  char* dn = nullptr;
  EXPECT_EQ(PymNotExist, v3->nextMo(iterator, &dn));
}

TEST_F(CmRouterTables, VersionOneIteratorsReleaseThemselvesAtTheEnd) {
  void* iterator = nullptr;
  ASSERT_EQ(PymOk, v1->newMoIterator(0, "ManagedElement=1,SystemFunctions=1,SecM=1", "CertM", &iterator));
  ASSERT_NE(nullptr, iterator);
  char* dn = nullptr;
  ASSERT_EQ(PymOk, v1->nextMo(iterator, &dn));
  std::unique_ptr<char, decltype(&std::free)> first(dn, &std::free);
  EXPECT_STREQ("ManagedElement=1,SystemFunctions=1,SecM=1,CertM=1", dn);
  ASSERT_EQ(PymOk, v1->nextMo(iterator, &dn));
  EXPECT_EQ(nullptr, dn);
  EXPECT_EQ(PymNotExist, v1->nextMo(iterator, &dn));
  EXPECT_EQ(PymNotExist, v3->finalizeMoIterator(reinterpret_cast<std::uintptr_t>(iterator)));
}

TEST_F(CmRouterTables, VersionOneContainersStayUntilTheTransactionEnds) {
  const unsigned long handle = begin();
  PymMoAttributeValueContainer* ip = nullptr;
  PymMoAttributeValueContainer* dn = nullptr;
  ASSERT_EQ(PymOk, v1->getMoAttribute(handle, LDAP_DN, "ldapIpAddress", &ip));
  ASSERT_EQ(PymOk, v1->getMoAttribute(handle, LDAP_DN, "baseDn", &dn));
  EXPECT_STREQ("127.0.0.1", ip->values[0].theString);
  EXPECT_STREQ("dc=example,dc=com", dn->values[0].theString);
  PymMoAttributeValue_3 value{};
  value.theString = "10.0.0.9";
  const PymMoAttributeValueContainer ipWrite = container(PymMoValueType_String, 1, &value);
  ASSERT_EQ(PymOk, v1->setMoAttribute(handle, LDAP_DN, "ldapIpAddress", &ipWrite));
  PymMoAttributeValueContainer* pending = nullptr;
  ASSERT_EQ(PymOk, v1->getMoAttribute(handle, LDAP_DN, "ldapIpAddress", &pending));
  EXPECT_STREQ("10.0.0.9", pending->values[0].theString);
  EXPECT_STREQ("127.0.0.1", ip->values[0].theString);
  EXPECT_EQ(PymOk, transaction->abort(handle));
  EXPECT_EQ(PymNotExist, v1->getMoAttribute(handle, LDAP_DN, "ldapIpAddress", &pending));
}

TEST_F(CmRouterTables, ExistsAndCount) {
  bool exists = false;
  ASSERT_EQ(PymOk, v3->existsMo(0, LDAP_DN, &exists));
  EXPECT_TRUE(exists);
  ASSERT_EQ(PymOk, extended->existsMo(0, "ManagedElement=1,SystemFunctions=2", &exists));
  EXPECT_FALSE(exists);
  EXPECT_EQ(PymInvalidParameter, v3->existsMo(0, LDAP_DN, nullptr));
  EXPECT_EQ(PymNotExist, v3->existsMo(5, LDAP_DN, &exists));
  unsigned long long count = 7;
  ASSERT_EQ(PymOk, v3->countMoChildren(0, LDAP_DN, "OrbelinFilter", &count));
  EXPECT_EQ(1u, count);
  ASSERT_EQ(PymOk, v3->countMoChildren(0, "ManagedElement=1,SystemFunctions=1,SecM=1", "CertM", &count));
  EXPECT_EQ(1u, count);
  EXPECT_EQ(PymNotExist, v3->countMoChildren(0, LDAP_DN, "Tls", &count));
  restart("no-ldap-auth-method.xml");
  lookUp();
  ASSERT_EQ(PymOk, v3->countMoChildren(0, "ManagedElement=1,SystemFunctions=1,SecM=1,UserManagement=1",
                                       "LdapAuthenticationMethod", &count));
  EXPECT_EQ(0u, count);
}

TEST_F(CmRouterTables, CreatingDeletingAndActionsAreNotOffered) {
  EXPECT_EQ(PymFailure, v3->createMo(1, LDAP_DN, "Filter", "id", "2", nullptr));
  EXPECT_EQ(PymFailure, v1->createMo(1, LDAP_DN, "Filter", "id", "2"));
  EXPECT_EQ(PymFailure, extended->deleteMo(1, LDAP_DN));
  EXPECT_EQ(PymFailure, v1->action(1, LDAP_DN, "reset", nullptr, nullptr));
  EXPECT_EQ(PymFailure, v3->action(1, LDAP_DN, "reset", nullptr, nullptr));
  EXPECT_TRUE(framework->log().contains(3, "createMo is not supported by this framework"));
  EXPECT_TRUE(framework->log().contains(3, "deleteMo is not supported by this framework"));
  EXPECT_EQ(2u, framework->log().countContaining("action is not supported"));
}

TEST_F(CmRouterTables, WithoutFrameworkEverythingFails) {
  framework.reset();
  Read read;
  EXPECT_EQ(PymFailure, v3->getMoAttribute(0, LDAP_DN, "baseDn", &read.result));
  bool exists = true;
  EXPECT_EQ(PymFailure, extended->existsMo(0, LDAP_DN, &exists));
}
