#include <Qiv/MoAccessorCore.h>
#include <Qiv/QivException.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "FakeFramework.h"

namespace {

using ::testing::ElementsAre;
using Qiv::MoAccessor;

const std::string ME1 = "ManagedElement=1";
const std::string ME2 = "ManagedElement=2";
const std::string SF2 = "ManagedElement=2,SystemFunctions=1";
const std::string SECM = "ManagedElement=2,SystemFunctions=1,SecM=1";

std::unique_ptr<FakeContainer> stringValue(const std::string& text) {
  std::unique_ptr<FakeContainer> container(new FakeContainer(PymMoValueType_String));
  container->addString(text);
  return container;
}

std::shared_ptr<FakeContainer> shared(std::unique_ptr<FakeContainer> container) { return container; }

// {name: "primary", port: 636, roles: ["a", "b"], server: {host: "ldap", ref: MoRef}, unset: no value}
std::unique_ptr<FakeContainer> structValue() {
  std::shared_ptr<FakeContainer> port = std::make_shared<FakeContainer>(PymMoValueType_Uint16);
  port->addU16(636);
  std::shared_ptr<FakeContainer> roles = std::make_shared<FakeContainer>(PymMoValueType_String);
  roles->addString("a").addString("b");
  std::shared_ptr<FakeContainer> ref = std::make_shared<FakeContainer>(PymMoValueType_Reference);
  ref->addString(SECM);
  std::shared_ptr<FakeContainer> server = std::make_shared<FakeContainer>(PymMoValueType_Struct);
  server->addStruct({{"host", shared(stringValue("ldap"))}, {"ref", ref}});
  std::unique_ptr<FakeContainer> top(new FakeContainer(PymMoValueType_Struct));
  top->addStruct({{"name", shared(stringValue("primary"))},
                  {"port", port},
                  {"roles", roles},
                  {"server", server},
                  {"unset", nullptr}});
  return top;
}

class MoAccessorTest : public FakeFrameworkTest {
 protected:
  void SetUp() override {
    FakeFrameworkTest::SetUp();
    children[{"", "ManagedElement"}] = {ME1, ME2};
    children[{ME2, "SystemFunctions"}] = {SF2};
    children[{SF2, "SecM"}] = {SECM, "ManagedElement=2,SystemFunctions=1,SecM=2"};
    attributes[{ME1, "userLabel"}].make = [] { return stringValue("node one"); };
  }

  static void expectReadFailure(MoAccessor& accessor, const std::string& dn, const std::string& attr,
                                const std::string& text, int code) {
    MoAccessor::MoAttributeValueResult result;
    try {
      accessor.getAttrContainer(dn, attr, result);
      FAIL() << "no exception";
    } catch (const Qiv::QivException& e) {
      EXPECT_EQ(text, e.what());
      EXPECT_EQ(code, e.code());
    }
    EXPECT_EQ(nullptr, result.container());
  }
};

TEST_F(MoAccessorTest, FirstInstanceWalksDepthFirst) {
  MoAccessor accessor(PymLockPolicyNone, 10);
  EXPECT_EQ(SECM, accessor.getFirstMoInstance("ManagedElement,SystemFunctions,SecM"));
  EXPECT_THAT(iteratorCalls, ElementsAre("0||ManagedElement", "0|" + ME1 + "|SystemFunctions",
                                         "0|" + ME2 + "|SystemFunctions", "0|" + SF2 + "|SecM"));
  EXPECT_EQ(0, openIterators);
}

TEST_F(MoAccessorTest, FirstInstanceOfARootClass) {
  MoAccessor accessor(PymLockPolicyNone, 10);
  EXPECT_EQ(ME1, accessor.getFirstMoInstance("ManagedElement"));
  EXPECT_EQ(0, openIterators);
}

TEST_F(MoAccessorTest, FirstInstanceFollowsIteratorOrder) {
  children[{"", "ManagedElement"}] = {ME2, ME1};
  children[{ME1, "SystemFunctions"}] = {"ManagedElement=1,SystemFunctions=1"};
  MoAccessor accessor(PymLockPolicyNone, 10);
  EXPECT_EQ(SF2, accessor.getFirstMoInstance("ManagedElement,SystemFunctions"));
}

TEST_F(MoAccessorTest, ClassWithoutInstanceGivesEmpty) {
  MoAccessor accessor(PymLockPolicyNone, 10);
  EXPECT_EQ("", accessor.getFirstMoInstance("ManagedElement,SystemFunctions,Ldap"));
  EXPECT_EQ("", accessor.getFirstMoInstance("Equipment"));
  EXPECT_EQ(0, openIterators);
}

TEST_F(MoAccessorTest, FirstInstanceWithoutRouterGivesEmpty) {
  offered.erase("PymOamSpiManagedObject");
  MoAccessor accessor(PymLockPolicyNone, 10);
  EXPECT_EQ("", accessor.getFirstMoInstance("ManagedElement"));
  EXPECT_TRUE(iteratorCalls.empty());
}

TEST_F(MoAccessorTest, FindsTheRouter) {
  MoAccessor accessor(PymLockPolicyNone, 10);
  lookups.clear();
  accessor.getFirstMoInstance("ManagedElement");
  EXPECT_THAT(lookups, ElementsAre("PymOamSpiCmRouterService|PymOamSpiManagedObject|3"));
}

TEST_F(MoAccessorTest, ReadsCommittedValuesOutsideAWrite) {
  MoAccessor accessor(PymLockPolicyNone, 10);
  {
    MoAccessor::MoAttributeValueResult result;
    accessor.getAttrContainer(ME1, "userLabel", result);
    ASSERT_EQ(1u, result.count());
    EXPECT_EQ(PymMoValueType_String, result.container()->type);
    EXPECT_STREQ("node one", result.container()->values[0].theString);
    EXPECT_EQ(0, releases);
  }
  EXPECT_EQ(1, releases);
  EXPECT_EQ(0, unknownReleases);
  EXPECT_EQ(0u, outstandingContainers());
  EXPECT_THAT(readHandles, ElementsAre(0u));
  EXPECT_TRUE(transactionCalls.empty());
}

TEST_F(MoAccessorTest, ReusedResultReleasesThePreviousValue) {
  MoAccessor accessor(PymLockPolicyNone, 10);
  {
    MoAccessor::MoAttributeValueResult result;
    accessor.getAttrContainer(ME1, "userLabel", result);
    accessor.getAttrContainer(ME1, "userLabel", result);
    EXPECT_EQ(1, releases);
    EXPECT_STREQ("node one", result.container()->values[0].theString);
  }
  EXPECT_EQ(2, releases);
  EXPECT_EQ(0, unknownReleases);
}

TEST_F(MoAccessorTest, MissingAttributeThrowsWithoutErrorLog) {
  logLevel = PymLogDebug;
  MoAccessor accessor(PymLockPolicyNone, 10);
  expectReadFailure(accessor, ME1, "userRole", "Failed to read attribute :'userRole' in MO :ManagedElement=1, reason (-2 )!",
                    PymNotExist);
  for (const LogLine& line : lines) EXPECT_GT(line.level, PymLogWarning) << line.text;
}

TEST_F(MoAccessorTest, FailedReadReleasesWhatTheRouterHandedOut) {
  attributes[{ME1, "broken"}] = Attribute{PymFailure, [] { return stringValue("half"); }};
  MoAccessor accessor(PymLockPolicyNone, 10);
  expectReadFailure(accessor, ME1, "broken", "Failed to read attribute :'broken' in MO :ManagedElement=1, reason (-1 )!",
                    PymFailure);
  EXPECT_EQ(1, releases);
  EXPECT_EQ(0, unknownReleases);
  EXPECT_EQ(0u, outstandingContainers());
}

TEST_F(MoAccessorTest, FailedReadKeepsThePreviousValue) {
  MoAccessor accessor(PymLockPolicyNone, 10);
  MoAccessor::MoAttributeValueResult result;
  accessor.getAttrContainer(ME1, "userLabel", result);
  EXPECT_THROW(accessor.getAttrContainer(ME1, "missing", result), Qiv::QivException);
  ASSERT_EQ(1u, result.count());
  EXPECT_STREQ("node one", result.container()->values[0].theString);
  EXPECT_EQ(0, releases);
}

TEST_F(MoAccessorTest, ReadWithoutRouterThrows) {
  offered.erase("PymOamSpiManagedObject");
  MoAccessor accessor(PymLockPolicyNone, 10);
  expectReadFailure(accessor, ME1, "userLabel", "Failed to read attribute :'userLabel' in MO :ManagedElement=1, reason (-2 )!",
                    PymNotExist);
}

TEST_F(MoAccessorTest, AttributeWithoutValuesCountsZero) {
  attributes[{ME1, "empty"}].make = [] { return std::unique_ptr<FakeContainer>(new FakeContainer(PymMoValueType_String)); };
  MoAccessor accessor(PymLockPolicyNone, 10);
  MoAccessor::MoAttributeValueResult result;
  accessor.getAttrContainer(ME1, "empty", result);
  ASSERT_NE(nullptr, result.container());
  EXPECT_EQ(0u, result.count());
}

TEST(MoAttributeValueResultTest, EmptyResult) {
  MoAccessor::MoAttributeValueResult result;
  EXPECT_EQ(nullptr, result.container());
  EXPECT_EQ(0u, result.count());
  EXPECT_EQ(nullptr, result.raw()->container);
  EXPECT_EQ(nullptr, result.raw()->release);
}

TEST(MoAttributeValueResultTest, CountNeedsAValueArray) {
  PymMoAttributeValueContainer_3 container = {PymMoValueType_Bool, 3, nullptr};
  MoAccessor::MoAttributeValueResult result;
  result.raw()->container = &container;
  EXPECT_EQ(0u, result.count());
  PymMoAttributeValue_3 values[3] = {};
  container.values = values;
  EXPECT_EQ(3u, result.count());
}

TEST_F(MoAccessorTest, WriteGoesIntoTheAccessorsTransaction) {
  MoAccessor accessor(PymLockPolicyExclusive, 30);
  PymMoAttributeValue_3 value = {};
  PymMoAttributeValueContainer_3 container = {PymMoValueType_String, 1, &value};
  const std::string label = "renamed";
  MoAccessor::setValue(container, 0, label);
  accessor.setSeqAttr(ME1, "userLabel", container);
  ASSERT_EQ(1u, writes.size());
  EXPECT_EQ(100u, writes[0].txHandle);
  EXPECT_EQ(ME1, writes[0].dn);
  EXPECT_EQ("userLabel", writes[0].name);
  EXPECT_EQ(PymMoValueType_String, writes[0].type);
  EXPECT_EQ(1u, writes[0].nrOfValues);

  // The accessor reads its own writes until it commits.
  MoAccessor::MoAttributeValueResult before;
  accessor.getAttrContainer(ME1, "userLabel", before);
  accessor.commit();
  MoAccessor::MoAttributeValueResult after;
  accessor.getAttrContainer(ME1, "userLabel", after);
  EXPECT_THAT(readHandles, ElementsAre(100u, 0u));
  EXPECT_THAT(transactionCalls, ElementsAre("new 1 30 100", "commit 100"));
}

TEST_F(MoAccessorTest, CommitWithoutWritesDoesNothing) {
  MoAccessor accessor(PymLockPolicyNone, 10);
  accessor.commit();
  EXPECT_TRUE(transactionCalls.empty());
}

TEST_F(MoAccessorTest, UncommittedWriteIsAborted) {
  {
    MoAccessor accessor(PymLockPolicyNone, 10);
    PymMoAttributeValue_3 value = {};
    PymMoAttributeValueContainer_3 container = {PymMoValueType_Uint16, 1, &value};
    MoAccessor::setValue(container, 0, static_cast<unsigned short>(389));
    accessor.setSeqAttr(ME1, "port", container);
  }
  EXPECT_THAT(transactionCalls, ElementsAre("new 0 10 100", "abort 100"));
}

TEST_F(MoAccessorTest, RefusedWriteIsLoggedAndThrown) {
  setResult = PymValidationFailed;
  MoAccessor accessor(PymLockPolicyNone, 10);
  PymMoAttributeValueContainer_3 container = {PymMoValueType_String, 0, nullptr};
  try {
    accessor.setSeqAttr(ME1, "userLabel", container);
    FAIL() << "no exception";
  } catch (const Qiv::QivException& e) {
    EXPECT_STREQ("Failed to set attribute :'userLabel' in MO :ManagedElement=1, reason (-9 )!", e.what());
    EXPECT_EQ(PymValidationFailed, e.code());
  }
  ASSERT_EQ(1u, lines.size());
  EXPECT_EQ(PymLogError, lines[0].level);
  EXPECT_EQ("Failed to write 'userLabel' from MO ( error:-9 )!", lines[0].text);
  EXPECT_EQ("setSeqAttr", lines[0].method);
}

TEST_F(MoAccessorTest, WriteWithoutRouterIsRefused) {
  offered.erase("PymOamSpiManagedObject");
  MoAccessor accessor(PymLockPolicyNone, 10);
  PymMoAttributeValueContainer_3 container = {PymMoValueType_String, 0, nullptr};
  EXPECT_THROW(accessor.setSeqAttr(ME1, "userLabel", container), Qiv::QivException);
  EXPECT_EQ(1u, countLines(PymLogError, "Failed to write 'userLabel' from MO ( error:-2 )!"));
}

TEST(MoAccessorTypeTest, SpiTypes) {
  EXPECT_EQ(9, MoAccessor::getSpiType<std::string>());
  EXPECT_EQ(10, MoAccessor::getSpiType<bool>());
  EXPECT_EQ(6, MoAccessor::getSpiType<unsigned short>());
  EXPECT_EQ(12, MoAccessor::getSpiType<MoAccessor::Enum>());
  EXPECT_EQ(11, MoAccessor::getSpiType<MoAccessor::MoRef>());
  EXPECT_EQ(13, MoAccessor::getSpiType<MoAccessor::Struct>());
}

TEST(MoAccessorTypeTest, ValidateType) {
  const PymMoAttributeValueContainer_3 container = {PymMoValueType_Uint16, 0, nullptr};
  EXPECT_NO_THROW(MoAccessor::validateType(&container, PymMoValueType_Uint16));
  try {
    MoAccessor::validateType(&container, PymMoValueType_String);
    FAIL() << "no exception";
  } catch (const Qiv::QivException& e) {
    EXPECT_STREQ("Attribute type mismatch: expected 9, stored 6", e.what());
  }
}

TEST(MoAccessorTypeTest, ExtractScalars) {
  PymMoAttributeValue_3 value = {};
  value.theString = "text";
  EXPECT_EQ("text", MoAccessor::extractAttr<std::string>(value));
  value.theString = nullptr;
  EXPECT_EQ("", MoAccessor::extractAttr<std::string>(value));
  value.moRef = "ManagedElement=1";
  EXPECT_EQ("ManagedElement=1", MoAccessor::extractAttr<MoAccessor::MoRef>(value).dn);
  value.moRef = nullptr;
  EXPECT_EQ("", MoAccessor::extractAttr<MoAccessor::MoRef>(value).dn);
  value = PymMoAttributeValue_3{};
  value.theBool = true;
  EXPECT_TRUE(MoAccessor::extractAttr<bool>(value));
  value.u16 = 65535;
  EXPECT_EQ(65535, MoAccessor::extractAttr<unsigned short>(value));
  value.theEnum = 3;
  EXPECT_EQ(3, MoAccessor::extractAttr<MoAccessor::Enum>(value).value);
  value.theEnum = -4;
  EXPECT_EQ(-4, MoAccessor::extractAttr<MoAccessor::Enum>(value).value);
}

TEST(MoAccessorTypeTest, SetValues) {
  PymMoAttributeValue_3 values[2] = {};
  PymMoAttributeValueContainer_3 container = {PymMoValueType_Bool, 2, values};
  const std::string text = "value";
  MoAccessor::setValue(container, 1, text);
  EXPECT_EQ(PymMoValueType_String, container.type);
  EXPECT_EQ(text.c_str(), values[1].theString);

  MoAccessor::setValue(container, 0, MoAccessor::Enum(7));
  EXPECT_EQ(PymMoValueType_Enum, container.type);
  EXPECT_EQ(7, values[0].theEnum);

  MoAccessor::setValue(container, 1, static_cast<unsigned short>(4242));
  EXPECT_EQ(PymMoValueType_Uint16, container.type);
  EXPECT_EQ(4242, values[1].u16);
  EXPECT_EQ(2u, container.nrOfValues);
}

void expectStructContent(const MoAccessor::Struct& value) {
  const PymMoAttributeValueContainer_3* name = value.getMemberValueContainer("name");
  ASSERT_NE(nullptr, name);
  ASSERT_EQ(1u, name->nrOfValues);
  EXPECT_STREQ("primary", name->values[0].theString);

  const PymMoAttributeValueContainer_3* port = value.getMemberValueContainer("port");
  ASSERT_NE(nullptr, port);
  EXPECT_EQ(PymMoValueType_Uint16, port->type);
  EXPECT_EQ(636, port->values[0].u16);

  const PymMoAttributeValueContainer_3* roles = value.getMemberValueContainer("roles");
  ASSERT_NE(nullptr, roles);
  ASSERT_EQ(2u, roles->nrOfValues);
  EXPECT_STREQ("a", roles->values[0].theString);
  EXPECT_STREQ("b", roles->values[1].theString);

  const PymMoAttributeValueContainer_3* server = value.getMemberValueContainer("server");
  ASSERT_NE(nullptr, server);
  ASSERT_EQ(PymMoValueType_Struct, server->type);
  const MoAccessor::Struct nested = MoAccessor::extractAttr<MoAccessor::Struct>(server->values[0]);
  const PymMoAttributeValueContainer_3* host = nested.getMemberValueContainer("host");
  ASSERT_NE(nullptr, host);
  EXPECT_STREQ("ldap", host->values[0].theString);
  const PymMoAttributeValueContainer_3* ref = nested.getMemberValueContainer("ref");
  ASSERT_NE(nullptr, ref);
  EXPECT_EQ(PymMoValueType_Reference, ref->type);
  EXPECT_STREQ(SECM.c_str(), ref->values[0].moRef);

  EXPECT_EQ(nullptr, value.getMemberValueContainer("unset"));
  EXPECT_EQ(nullptr, value.getMemberValueContainer("absent"));
}

TEST_F(MoAccessorTest, StructSurvivesRelease) {
  attributes[{SECM, "ldapServer"}].make = &structValue;
  MoAccessor accessor(PymLockPolicyNone, 10);
  MoAccessor::Struct copy;
  {
    MoAccessor::MoAttributeValueResult result;
    accessor.getAttrContainer(SECM, "ldapServer", result);
    ASSERT_EQ(1u, result.count());
    MoAccessor::validateType(result.container(), MoAccessor::getSpiType<MoAccessor::Struct>());
    copy = MoAccessor::extractAttr<MoAccessor::Struct>(result.container()->values[0]);
  }
  ASSERT_EQ(1, releases);
  expectStructContent(copy);
}

TEST(MoAccessorStructTest, CopyDoesNotShareMemoryWithItsSource) {
  std::unique_ptr<FakeContainer> source = structValue();
  const MoAccessor::Struct copy(source->get()->values[0].structMember);
  expectStructContent(copy);
  source->scribble();
  expectStructContent(copy);
}

TEST(MoAccessorStructTest, CopiesShareOneSnapshot) {
  std::unique_ptr<FakeContainer> source = structValue();
  MoAccessor::Struct first(source->get()->values[0].structMember);
  const MoAccessor::Struct second = first;
  first = MoAccessor::Struct();
  EXPECT_EQ(nullptr, first.getMemberValueContainer("name"));
  expectStructContent(second);
}

TEST(MoAccessorStructTest, EmptyStruct) {
  const MoAccessor::Struct empty;
  EXPECT_EQ(nullptr, empty.getMemberValueContainer("name"));
  const MoAccessor::Struct fromNull(nullptr);
  EXPECT_EQ(nullptr, fromNull.getMemberValueContainer(""));
}

}  // namespace
