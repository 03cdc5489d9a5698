#include "FrameworkTest.h"

#include <Framework/ModelError.h>
#include <Qiv/Portal.h>

#include <gtest/gtest.h>

#include <stdexcept>

using Framework::ManagementFramework;

namespace {

ManagementFramework::Options options(const std::string& model) {
  ManagementFramework::Options result;
  result.modelFile = FrameworkTest::modelPath(model);
  result.echoLevel = -1;
  return result;
}

}  // namespace

TEST(ManagementFramework, IsCurrentWhileItLives) {
  EXPECT_EQ(nullptr, ManagementFramework::current());
  {
    ManagementFramework framework(options("ldap20.xml"));
    EXPECT_EQ(&framework, ManagementFramework::current());
  }
  EXPECT_EQ(nullptr, ManagementFramework::current());
}

TEST(ManagementFramework, ASecondLiveInstanceIsRefused) {
  ManagementFramework framework(options("ldap20.xml"));
  EXPECT_THROW(ManagementFramework second(options("pre20.xml")), std::logic_error);
  EXPECT_EQ(&framework, ManagementFramework::current());
}

TEST(ManagementFramework, ABadModelLeavesNoInstance) {
  EXPECT_THROW(ManagementFramework framework(options("absent.xml")), Framework::ModelError);
  EXPECT_EQ(nullptr, ManagementFramework::current());
  ManagementFramework::Options badKey = options("ldap20.xml");
  badKey.cryptoKey = "123";
  EXPECT_THROW(ManagementFramework framework(badKey), std::invalid_argument);
  EXPECT_EQ(nullptr, ManagementFramework::current());
  ManagementFramework framework(options("ldap20.xml"));
  EXPECT_EQ(&framework, ManagementFramework::current());
}

TEST(ManagementFramework, AttachesToThePlatformPortal) {
  EXPECT_EQ(nullptr, Qiv::Portal::instance().getPortal());
  {
    ManagementFramework framework(options("ldap20.xml"));
    EXPECT_EQ(framework.accessor()->getPortal("3"), Qiv::Portal::instance().getPortal());
    PymMgmtSpiInterface_1* found = nullptr;
    ASSERT_EQ(PymOk, Qiv::Portal::instance().getInterface(Qiv::Portal::COMP_ID, &found));
    EXPECT_STREQ("QivMgmtSpiPortalService", found->componentName);
  }
  EXPECT_EQ(nullptr, Qiv::Portal::instance().getPortal());
}

TEST(ManagementFramework, AppliesTheLogOptions) {
  ManagementFramework::Options traced = options("tls.xml");
  traced.logLevel = 8;
  ManagementFramework framework(traced);
  EXPECT_EQ(8, framework.log().getLevel());
  EXPECT_TRUE(framework.model().exists("ManagedElement=1,SystemFunctions=1,SecM=1,Tls=1"));
}
