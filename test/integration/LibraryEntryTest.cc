#include "DescriptorIdentities.h"
#include "FrameworkTestBase.h"

#include <Framework/ComponentLibrary.h>
#include <Qiv/Portal.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

using namespace DescriptorIdentities;

// The built library, loaded with dlopen into the framework stand-in and driven through its C
// entry points as the framework drives it. Each test loads it afresh.
class LibraryEntryTest : public FrameworkTestBase {
 protected:
  LibraryEntryTest() : library(new Framework::ComponentLibrary(QIV_COMPONENT_LIBRARY)) {}

  Framework::InterfacePortal& portal() { return framework().portal(); }

  std::unique_ptr<Framework::ComponentLibrary> library;
};

TEST_F(LibraryEntryTest, InitRegistersTheDescriptorFieldByField) {
  ASSERT_EQ(0, library->init(framework().accessor(), "<QivAccessManagementComponent/>"));
  ASSERT_EQ(1u, portal().components().size());
  const PymMgmtSpiComponent_2& descriptor = *portal().components().front();

  EXPECT_STREQ("QivAccessManagementComponent", descriptor.base.componentName);
  EXPECT_STREQ("PymMgmtSpiComponent", descriptor.base.interfaceName);
  EXPECT_STREQ("2", descriptor.base.interfaceVersion);
  EXPECT_EQ(offeredInterfaces(), identities(descriptor.interfaceArray));
  EXPECT_EQ(requiredDependencies(), identities(descriptor.dependencyArray));
  // The platform portal's identity itself, not a copy.
  EXPECT_EQ(&Qiv::Portal::COMP_ID, descriptor.dependencyArray[0]);
  EXPECT_EQ(optionalDependencies(), identities(descriptor.optionalDependencyArray));
  EXPECT_NE(nullptr, descriptor.start);
  EXPECT_NE(nullptr, descriptor.stop);
  // The offered tables are reachable through the portal under the component's name.
  EXPECT_EQ(descriptor.interfaceArray[0],
            portal().componentInterface("QivAccessManagementComponent", "PymMwSpiAccessManagement", "2"));
}

TEST_F(LibraryEntryTest, EveryRequiredDependencyIsOfferedByTheFramework) {
  ASSERT_EQ(0, library->init(framework().accessor(), nullptr));
  const PymMgmtSpiComponent_2& descriptor = *portal().components().front();
  PymMgmtSpiInterfacePortal_3* portal3 = static_cast<PymMgmtSpiInterfacePortal_3*>(framework().accessor()->getPortal("3"));
  for (PymMgmtSpiInterface_1** dependency = descriptor.dependencyArray; *dependency != nullptr; ++dependency) {
    PymMgmtSpiInterface_1* found = nullptr;
    EXPECT_EQ(PymOk, portal3->getInterface((*dependency)->componentName, (*dependency)->interfaceName,
                                           (*dependency)->interfaceVersion, &found))
        << text((*dependency)->interfaceName);
  }
}

TEST_F(LibraryEntryTest, WithoutVersion3PortalInitFailsAndRegistersNothing) {
  portal().offerPortal("3", false);
  EXPECT_EQ(-1, library->init(framework().accessor(), nullptr));
  EXPECT_EQ(0u, portal().registerComponentCalls());
  EXPECT_TRUE(portal().components().empty());
}

TEST_F(LibraryEntryTest, NullAccessorFailsWithoutCrashing) { EXPECT_EQ(-1, library->init(nullptr, nullptr)); }

TEST_F(LibraryEntryTest, RefusedDescriptorGivesThePortalsCodeAndSkipsInitialize) {
  portal().answerNextRegisterComponent(-3);
  EXPECT_EQ(-3, library->init(framework().accessor(), nullptr));
  EXPECT_TRUE(portal().components().empty());
  // initialize did not run: the next init initializes without complaint.
  EXPECT_EQ(0, library->init(framework().accessor(), nullptr));
  EXPECT_EQ(0u, log().count(3, "Component already initialized!"));
}

TEST_F(LibraryEntryTest, SecondInitializeFailsAndTheDescriptorStaysRegistered) {
  ASSERT_EQ(0, library->init(framework().accessor(), "<a/>"));
  EXPECT_EQ(-1, library->init(framework().accessor(), "<b/>"));
  EXPECT_EQ(1u, log().count(3, "Component already initialized!"));
  EXPECT_EQ(1u, portal().components().size());
}

TEST_F(LibraryEntryTest, TerminateUnregistersTheComponent) {
  ASSERT_EQ(0, library->init(framework().accessor(), nullptr));
  EXPECT_EQ(0, library->terminate());
  EXPECT_TRUE(portal().components().empty());
  EXPECT_EQ(1u, portal().unregisterComponentCalls());
  // Terminated, it may be initialized again.
  EXPECT_EQ(0, library->init(framework().accessor(), nullptr));
  EXPECT_EQ(1u, portal().components().size());
}

TEST_F(LibraryEntryTest, TerminateBeforeInitDoesNotTouchThePortal) {
  EXPECT_EQ(0, library->terminate());
  EXPECT_EQ(0u, portal().unregisterComponentCalls());
}

TEST_F(LibraryEntryTest, ReloadedLibraryStartsFresh) {
  ASSERT_EQ(0, library->init(framework().accessor(), nullptr));
  // Unloaded while initialized: the component object goes with the library.
  library.reset();
  library.reset(new Framework::ComponentLibrary(QIV_COMPONENT_LIBRARY));
  // The framework still holds the first descriptor; let the new one in without a clash.
  portal().answerNextRegisterComponent(0);
  EXPECT_EQ(0, library->init(framework().accessor(), nullptr));
  EXPECT_EQ(0u, log().count(3, "Component already initialized!"));
}
