#include <QivExtCmRouterService/MoInterceptorBase.h>

#include "FakeExtCmRouter.h"
#include "FrameworkTestBase.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using QivExtCmRouterService::MoInterceptorBase;

namespace {

const char DN[] = "ManagedElement=1,SystemFunctions=1";

}  // namespace

class MoInterceptorBaseTest : public FrameworkTestBase {
 protected:
  MoInterceptorBaseTest() : router(framework().portal()) {}

  FakeExtCmRouter router;
  MoInterceptorBase interceptor;
};

TEST(MoInterceptorBaseIdentityTest, NextIsTheExtendedRoutersManagedObjectVersion3) {
  EXPECT_STREQ("QivOamSpiExtCmRouterService", MoInterceptorBase::NEXT_INTERFACE_ID.componentName);
  EXPECT_STREQ("QivOamSpiManagedObject", MoInterceptorBase::NEXT_INTERFACE_ID.interfaceName);
  EXPECT_STREQ("3", MoInterceptorBase::NEXT_INTERFACE_ID.interfaceVersion);
}

TEST_F(MoInterceptorBaseTest, InitializeFindsRepositoryAndNextThroughThePortal) {
  EXPECT_EQ(nullptr, interceptor.getRepository());
  EXPECT_EQ(nullptr, interceptor.getNextInterface());
  ASSERT_EQ(PymOk, interceptor.initialize());
  EXPECT_EQ(router.repositoryTable(), interceptor.getRepository());
  EXPECT_EQ(router.nextTable(), interceptor.getNextInterface());
}

TEST_F(MoInterceptorBaseTest, InitializeWithoutRepositoryKeepsNeither) {
  router.withdrawRepository();
  EXPECT_EQ(PymNotExist, interceptor.initialize());
  EXPECT_EQ(nullptr, interceptor.getRepository());
  EXPECT_EQ(nullptr, interceptor.getNextInterface());
}

TEST_F(MoInterceptorBaseTest, InitializeWithoutNextKeepsNeither) {
  router.withdrawNext();
  EXPECT_EQ(PymNotExist, interceptor.initialize());
  EXPECT_EQ(nullptr, interceptor.getRepository());
  EXPECT_EQ(nullptr, interceptor.getNextInterface());
}

TEST_F(MoInterceptorBaseTest, InitializeAgainAfterTheNextWentAwayForgetsTheOldOne) {
  ASSERT_EQ(PymOk, interceptor.initialize());
  router.withdrawNext();
  EXPECT_EQ(PymNotExist, interceptor.initialize());
  EXPECT_EQ(nullptr, interceptor.getNextInterface());
  EXPECT_EQ(PymFailure, interceptor.deleteMo(1, DN));
  EXPECT_TRUE(router.calls.empty());
}

TEST_F(MoInterceptorBaseTest, EveryReadAndNavigationOperationForwardsItsArguments) {
  ASSERT_EQ(PymOk, interceptor.initialize());
  PymMoAttributeValueResult_3 result{};
  PymMoAttributeValuesResult_3 results{};
  const char* names[] = {"userLabel", nullptr};
  unsigned long long iterator = 0;
  char* nextDn = reinterpret_cast<char*>(&iterator);
  PymMoNamedAttributeValueContainer_3* none[] = {nullptr};
  bool exists = false;
  unsigned long long count = 0;

  EXPECT_EQ(PymOk, interceptor.getMoAttribute(11, DN, "userLabel", &result));
  EXPECT_EQ(PymOk, interceptor.getMoAttributes(12, DN, names, &results));
  EXPECT_EQ(PymOk, interceptor.newMoIterator(13, DN, "SecM", &iterator));
  EXPECT_EQ(77u, iterator);
  EXPECT_EQ(PymOk, interceptor.nextMo(iterator, &nextDn));
  EXPECT_EQ(nullptr, nextDn);
  EXPECT_EQ(PymOk, interceptor.createMo(14, DN, "SecM", "secMId", "2", none));
  EXPECT_EQ(PymOk, interceptor.deleteMo(15, DN));
  EXPECT_EQ(PymOk, interceptor.action(16, DN, "restart", none, &result));
  EXPECT_EQ(PymOk, interceptor.finalizeMoIterator(iterator));
  EXPECT_EQ(PymOk, interceptor.existsMo(17, DN, &exists));
  EXPECT_TRUE(exists);
  EXPECT_EQ(PymOk, interceptor.countMoChildren(18, DN, "SecM", &count));
  EXPECT_EQ(5u, count);

  const std::string dn = DN;
  EXPECT_EQ((std::vector<std::string>{
                "getMoAttribute|11|" + dn + "|userLabel|result", "getMoAttributes|12|" + dn + "|userLabel|result",
                "newMoIterator|13|" + dn + "|SecM", "nextMo|77", "createMo|14|" + dn + "|SecM|secMId|2|attributes",
                "deleteMo|15|" + dn, "action|16|" + dn + "|restart|parameters|result", "finalizeMoIterator|77",
                "existsMo|17|" + dn, "countMoChildren|18|" + dn + "|SecM"}),
            router.calls);
  EXPECT_TRUE(router.writes.empty());
}

TEST_F(MoInterceptorBaseTest, BothWriteOperationsForwardTheirValuesUnchanged) {
  ASSERT_EQ(PymOk, interceptor.initialize());
  PymMoAttributeValue_3 value{};
  value.theString = "label";
  PymMoNamedAttributeValueContainer_3 named = {"userLabel", {PymMoValueType_String, 1, &value}};
  PymMoNamedAttributeValueContainer_3* list[] = {&named, nullptr};

  EXPECT_EQ(PymOk, interceptor.setMoAttribute(21, DN, "userLabel", &named.value));
  EXPECT_EQ(PymOk, interceptor.setMoAttributes(22, DN, list));

  ASSERT_EQ(2u, router.writes.size());
  EXPECT_EQ("setMoAttribute", router.writes[0].operation);
  EXPECT_EQ(21u, router.writes[0].txHandle);
  EXPECT_EQ(DN, router.writes[0].dn);
  EXPECT_EQ("userLabel", router.writes[0].name);
  EXPECT_EQ(PymMoValueType_String, router.writes[0].type);
  EXPECT_EQ(std::vector<std::string>{"label"}, router.writes[0].values);
  EXPECT_EQ("setMoAttributes", router.writes[1].operation);
  EXPECT_EQ(22u, router.writes[1].txHandle);
  EXPECT_EQ(std::vector<std::string>{"label"}, router.writes[1].values);
  EXPECT_TRUE(router.calls.empty());
}

TEST_F(MoInterceptorBaseTest, ResultsOfTheNextInterfaceComeBackUnchanged) {
  ASSERT_EQ(PymOk, interceptor.initialize());
  router.otherResult = PymNotExist;
  router.setMoAttributesResult = -9;
  router.refusedWrites[{DN, "userLabel"}] = -7;
  const PymMoAttributeValueContainer_3 unset = {PymMoValueType_String, 0, nullptr};
  PymMoNamedAttributeValueContainer_3* none[] = {nullptr};
  bool exists = false;

  EXPECT_EQ(PymNotExist, interceptor.existsMo(1, DN, &exists));
  EXPECT_EQ(-7, interceptor.setMoAttribute(1, DN, "userLabel", &unset));
  EXPECT_EQ(-9, interceptor.setMoAttributes(1, DN, none));
}

TEST_F(MoInterceptorBaseTest, WithoutInitializeEveryOperationFailsAndReachesNobody) {
  PymMoAttributeValueResult_3 result{};
  const PymMoAttributeValueContainer_3 unset = {PymMoValueType_String, 0, nullptr};
  PymMoNamedAttributeValueContainer_3* none[] = {nullptr};
  char* nextDn = nullptr;
  bool exists = false;
  unsigned long long number = 0;

  EXPECT_EQ(PymFailure, interceptor.getMoAttribute(1, DN, "userLabel", &result));
  EXPECT_EQ(PymFailure, interceptor.setMoAttribute(1, DN, "userLabel", &unset));
  EXPECT_EQ(PymFailure, interceptor.setMoAttributes(1, DN, none));
  EXPECT_EQ(PymFailure, interceptor.nextMo(1, &nextDn));
  EXPECT_EQ(PymFailure, interceptor.existsMo(1, DN, &exists));
  EXPECT_EQ(PymFailure, interceptor.countMoChildren(1, DN, "SecM", &number));
  EXPECT_TRUE(router.calls.empty());
  EXPECT_TRUE(router.writes.empty());
}
