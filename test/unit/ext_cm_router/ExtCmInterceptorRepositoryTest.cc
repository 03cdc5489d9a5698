#include <QivExtCmRouterService/ExtCmInterceptorRepository.h>
#include <QivExtCmRouterService/MoInterceptorBase.h>

#include "FakeExtCmRouter.h"
#include "FrameworkTestBase.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

using QivExtCmRouterService::ExtCmInterceptorRepository;
using QivExtCmRouterService::MoInterceptorBase;

namespace {

const char CLASS_NAME[] = "ManagedElement,SystemFunctions,SecM,UserManagement";
const char DN[] = "ManagedElement=1,SystemFunctions=1,SecM=1,UserManagement=1";

// Sees the writes, throws when told to, and leaves the rest to the base.
class RecordingInterceptor : public MoInterceptorBase {
 public:
  PymReturnT setMoAttribute(unsigned long txHandle, const char* dn, const char* attributeName,
                            const QivMoAttributeValueContainer_3* value) override {
    seen.push_back(std::to_string(txHandle) + "|" + dn + "|" + attributeName + "|" +
                   std::to_string(value != nullptr ? value->nrOfValues : 99));
    if (throwStd) throw std::runtime_error("boom");
    if (throwOther) throw 42;
    return result;
  }

  std::vector<std::string> seen;
  PymReturnT result = -9;
  bool throwStd = false;
  bool throwOther = false;
};

}  // namespace

class ExtCmInterceptorRepositoryTest : public FrameworkTestBase {
 protected:
  ExtCmInterceptorRepositoryTest() : router(framework().portal()) {}

  // Registers interceptor and gives what the framework was handed.
  FakeExtCmRouter::Registration registerInterceptor() {
    EXPECT_EQ(PymOk, interceptor.initialize());
    EXPECT_EQ(PymOk, ExtCmInterceptorRepository::registerClass(router.repositoryTable(), &interceptor, CLASS_NAME));
    const auto found = router.registered.find(CLASS_NAME);
    return found != router.registered.end() ? found->second : FakeExtCmRouter::Registration{nullptr, nullptr};
  }

  FakeExtCmRouter router;
  RecordingInterceptor interceptor;
};

TEST(ExtCmInterceptorRepositoryIdentityTest, RepositoryIsOfferedByTheExtendedRouter) {
  EXPECT_STREQ("QivOamSpiExtCmRouterService", ExtCmInterceptorRepository::INTERFACE_ID.componentName);
  EXPECT_STREQ("QivOamSpiInterceptorRepository", ExtCmInterceptorRepository::INTERFACE_ID.interfaceName);
  EXPECT_STREQ("1", ExtCmInterceptorRepository::INTERFACE_ID.interfaceVersion);
}

TEST_F(ExtCmInterceptorRepositoryTest, RegisterHandsTheClassATableWithTheInterceptorAsContext) {
  const FakeExtCmRouter::Registration registration = registerInterceptor();
  EXPECT_EQ(std::vector<std::string>{std::string("register|") + CLASS_NAME}, router.repositoryCalls);
  ASSERT_NE(nullptr, registration.interceptor);
  EXPECT_EQ(static_cast<MoInterceptorBase*>(&interceptor), registration.context);
}

TEST_F(ExtCmInterceptorRepositoryTest, TheRegisteredTableReachesTheInterceptorsOverride) {
  const FakeExtCmRouter::Registration registration = registerInterceptor();
  ASSERT_NE(nullptr, registration.interceptor);
  const PymMoAttributeValueContainer_3 unset = {PymMoValueType_String, 0, nullptr};

  EXPECT_EQ(-9, registration.interceptor->setMoAttribute(registration.context, 31, DN, "targetType", &unset));

  EXPECT_EQ(std::vector<std::string>{std::string("31|") + DN + "|targetType|0"}, interceptor.seen);
  EXPECT_TRUE(router.writes.empty());
}

TEST_F(ExtCmInterceptorRepositoryTest, EveryOtherSlotOfTheTableReachesItsOwnOperation) {
  const FakeExtCmRouter::Registration registration = registerInterceptor();
  ASSERT_NE(nullptr, registration.interceptor);
  const QivOamSpiInterceptor_1& table = *registration.interceptor;
  void* context = registration.context;
  PymMoAttributeValueResult_3 result{};
  PymMoAttributeValuesResult_3 results{};
  const char* names[] = {"targetType", nullptr};
  PymMoNamedAttributeValueContainer_3* none[] = {nullptr};
  PymMoNamedAttributeValueContainer_3 targetType = {"targetType", {PymMoValueType_String, 0, nullptr}};
  PymMoNamedAttributeValueContainer_3* list[] = {&targetType, nullptr};
  unsigned long long number = 0;
  char* nextDn = nullptr;
  bool exists = false;

  EXPECT_EQ(PymOk, table.getMoAttribute(context, 1, DN, "targetType", &result));
  EXPECT_EQ(PymOk, table.getMoAttributes(context, 2, DN, names, &results));
  EXPECT_EQ(PymOk, table.setMoAttributes(context, 3, DN, list));
  EXPECT_EQ(PymOk, table.newMoIterator(context, 4, DN, "Ldap", &number));
  EXPECT_EQ(PymOk, table.nextMo(context, 5, &nextDn));
  EXPECT_EQ(PymOk, table.createMo(context, 6, DN, "Ldap", "ldapId", "1", none));
  EXPECT_EQ(PymOk, table.deleteMo(context, 7, DN));
  EXPECT_EQ(PymOk, table.action(context, 8, DN, "probe", none, &result));
  EXPECT_EQ(PymOk, table.finalizeMoIterator(context, 9));
  EXPECT_EQ(PymOk, table.existsMo(context, 10, DN, &exists));
  EXPECT_EQ(PymOk, table.countMoChildren(context, 11, DN, "Ldap", &number));

  const std::string dn = DN;
  EXPECT_EQ((std::vector<std::string>{
                "getMoAttribute|1|" + dn + "|targetType|result", "getMoAttributes|2|" + dn + "|targetType|result",
                "newMoIterator|4|" + dn + "|Ldap", "nextMo|5", "createMo|6|" + dn + "|Ldap|ldapId|1|attributes",
                "deleteMo|7|" + dn, "action|8|" + dn + "|probe|parameters|result", "finalizeMoIterator|9",
                "existsMo|10|" + dn, "countMoChildren|11|" + dn + "|Ldap"}),
            router.calls);
  ASSERT_EQ(1u, router.writes.size());
  EXPECT_EQ("setMoAttributes", router.writes[0].operation);
  EXPECT_EQ(3u, router.writes[0].txHandle);
  EXPECT_EQ("targetType", router.writes[0].name);
  EXPECT_TRUE(interceptor.seen.empty());
}

TEST_F(ExtCmInterceptorRepositoryTest, AnExceptionOfTheInterceptorBecomesAFailureAndAnErrorLine) {
  const FakeExtCmRouter::Registration registration = registerInterceptor();
  ASSERT_NE(nullptr, registration.interceptor);
  const PymMoAttributeValueContainer_3 unset = {PymMoValueType_String, 0, nullptr};

  interceptor.throwStd = true;
  EXPECT_EQ(PymFailure, registration.interceptor->setMoAttribute(registration.context, 1, DN, "targetType", &unset));
  interceptor.throwStd = false;
  interceptor.throwOther = true;
  EXPECT_EQ(PymFailure, registration.interceptor->setMoAttribute(registration.context, 1, DN, "targetType", &unset));

  EXPECT_EQ(1u, log().count(3, "Interceptor failed: boom"));
  EXPECT_EQ(1u, log().count(3, "Interceptor failed: unknown exception"));
}

TEST_F(ExtCmInterceptorRepositoryTest, ATableCalledWithoutContextIsRefused) {
  const FakeExtCmRouter::Registration registration = registerInterceptor();
  ASSERT_NE(nullptr, registration.interceptor);
  bool exists = false;
  EXPECT_EQ(PymInvalidParameter, registration.interceptor->existsMo(nullptr, 1, DN, &exists));
  EXPECT_TRUE(router.calls.empty());
}

TEST_F(ExtCmInterceptorRepositoryTest, TheRepositorysRefusalIsPassedOn) {
  router.registerResult = PymAlreadyExist;
  EXPECT_EQ(PymAlreadyExist,
            ExtCmInterceptorRepository::registerClass(router.repositoryTable(), &interceptor, CLASS_NAME));
  EXPECT_TRUE(router.registered.empty());
}

TEST_F(ExtCmInterceptorRepositoryTest, MissingArgumentsAreRefusedWithoutAskingTheRepository) {
  EXPECT_EQ(PymInvalidParameter, ExtCmInterceptorRepository::registerClass(nullptr, &interceptor, CLASS_NAME));
  EXPECT_EQ(PymInvalidParameter,
            ExtCmInterceptorRepository::registerClass(router.repositoryTable(), nullptr, CLASS_NAME));
  EXPECT_EQ(PymInvalidParameter,
            ExtCmInterceptorRepository::registerClass(router.repositoryTable(), &interceptor, nullptr));
  EXPECT_EQ(PymInvalidParameter, ExtCmInterceptorRepository::deregisterClass(nullptr, CLASS_NAME));
  EXPECT_EQ(PymInvalidParameter, ExtCmInterceptorRepository::deregisterClass(router.repositoryTable(), nullptr));
  EXPECT_TRUE(router.repositoryCalls.empty());
}

TEST_F(ExtCmInterceptorRepositoryTest, DeregisterWithdrawsTheClassAndPassesTheResultOn) {
  registerInterceptor();
  EXPECT_EQ(PymOk, ExtCmInterceptorRepository::deregisterClass(router.repositoryTable(), CLASS_NAME));
  EXPECT_TRUE(router.registered.empty());
  EXPECT_EQ(PymNotExist, ExtCmInterceptorRepository::deregisterClass(router.repositoryTable(), CLASS_NAME));
  EXPECT_EQ((std::vector<std::string>{std::string("register|") + CLASS_NAME, std::string("deregister|") + CLASS_NAME,
                                      std::string("deregister|") + CLASS_NAME}),
            router.repositoryCalls);
}
