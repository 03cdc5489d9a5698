#include <Qiv/Portal.h>
#include <gtest/gtest.h>

#include <string>

#include "FakeFramework.h"

namespace {

class PortalTest : public FakeFrameworkTest {};

TEST(PortalIdentityTest, ComponentId) {
  EXPECT_STREQ("QivMgmtSpiPortalService", Qiv::Portal::COMP_ID.componentName);
  EXPECT_STREQ("QivMgmtSpiInterfacePortal", Qiv::Portal::COMP_ID.interfaceName);
  EXPECT_STREQ("1", Qiv::Portal::COMP_ID.interfaceVersion);
}

TEST(PortalIdentityTest, InstanceIsOneObject) { EXPECT_EQ(&Qiv::Portal::instance(), &Qiv::Portal::instance()); }

TEST_F(PortalTest, AsksAccessorForVersion3) {
  ASSERT_EQ(1u, portalVersionsAsked.size());
  EXPECT_EQ("3", portalVersionsAsked[0]);
  EXPECT_NE(nullptr, Qiv::Portal::instance().getPortal());
}

TEST_F(PortalTest, ForwardsTheThreeStrings) {
  const PymMgmtSpiInterface_1 id = {"PymOamSpiTransactionService", "PymOamSpiTransaction", "2"};
  PymMgmtSpiInterface_1* found = nullptr;
  lookups.clear();
  ASSERT_EQ(PymOk, Qiv::Portal::instance().getInterface(id, &found));
  ASSERT_NE(nullptr, found);
  EXPECT_STREQ("PymOamSpiTransaction", found->interfaceName);
  ASSERT_EQ(1u, lookups.size());
  EXPECT_EQ("PymOamSpiTransactionService|PymOamSpiTransaction|2", lookups[0]);
}

TEST_F(PortalTest, ForwardsNullComponentAndVersion) {
  const PymMgmtSpiInterface_1 id = {nullptr, "PymMwSpiTrace", nullptr};
  lookups.clear();
  EXPECT_NE(nullptr, Qiv::Portal::instance().getInterface<PymMwSpiTrace_1>(id));
  ASSERT_EQ(1u, lookups.size());
  EXPECT_EQ("-|PymMwSpiTrace|-", lookups[0]);
}

TEST_F(PortalTest, PassesFrameworkRefusalOn) {
  offered.erase("PymOamSpiTransaction");
  const PymMgmtSpiInterface_1 id = {"PymOamSpiTransactionService", "PymOamSpiTransaction", "2"};
  PymMgmtSpiInterface_1* found = nullptr;
  EXPECT_EQ(PymNotExist, Qiv::Portal::instance().getInterface(id, &found));
  EXPECT_EQ(nullptr, Qiv::Portal::instance().getInterface<PymOamSpiTransaction_2>(id));
}

TEST_F(PortalTest, DetachedGivesNotExistWithoutAskingAnyone) {
  detach();
  lookups.clear();
  EXPECT_EQ(nullptr, Qiv::Portal::instance().getPortal());
  PymMgmtSpiInterface_1* found = nullptr;
  EXPECT_EQ(PymNotExist, Qiv::Portal::instance().getInterface(Qiv::Portal::COMP_ID, &found));
  EXPECT_EQ(nullptr, found);
  EXPECT_TRUE(lookups.empty());
}

TEST_F(PortalTest, AccessorWithoutVersion3IsDetached) {
  offerPortal3 = false;
  attach();
  EXPECT_EQ(nullptr, Qiv::Portal::instance().getPortal());
  PymMgmtSpiInterface_1* found = nullptr;
  EXPECT_EQ(PymNotExist, Qiv::Portal::instance().getInterface(Qiv::Portal::COMP_ID, &found));
}

}  // namespace
