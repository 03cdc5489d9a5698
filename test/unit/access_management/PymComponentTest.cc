#include "PymComponent.h"

#include "FrameworkTestBase.h"

#include <gtest/gtest.h>

#include <string>

namespace {

// A component frame around a recording component.
template <const char* Name>
class RecordingComponent : public Qiv::PymComponent<RecordingComponent<Name>> {
 public:
  RecordingComponent() : Qiv::PymComponent<RecordingComponent<Name>>(Name) {}

  PymReturnT initialize(const char* config) {
    lastConfig = config != nullptr ? config : "(null)";
    ++initializeCalls;
    return initializeResult;
  }
  PymReturnT terminate() {
    ++terminateCalls;
    return 0;
  }
  PymReturnT start(PymStateChangeReason reason) {
    lastReason = reason;
    return 11;
  }
  PymReturnT stop(PymStateChangeReason reason) {
    lastReason = reason;
    return 12;
  }
  std::size_t dependencyCount() const { return this->_dependencies.size(); }

  std::string lastConfig;
  int initializeCalls = 0;
  int terminateCalls = 0;
  PymReturnT initializeResult = 0;
  int lastReason = -1;
};

constexpr char PLAIN_NAME[] = "PlainComponent";
constexpr char PORTAL_NAME[] = "QivMgmtSpiPortalService";

using PlainComponent = RecordingComponent<PLAIN_NAME>;
using PortalComponent = RecordingComponent<PORTAL_NAME>;

}  // namespace

class PymComponentTest : public FrameworkTestBase {};

TEST_F(PymComponentTest, PlatformPortalIsTheFirstDependencyOfEveryOtherComponent) {
  const PlainComponent plain;
  EXPECT_EQ(1u, plain.dependencyCount());
  const PortalComponent portal;
  EXPECT_EQ(0u, portal.dependencyCount());
}

TEST_F(PymComponentTest, InstanceIsOneObjectPerComponentClass) {
  EXPECT_EQ(&PlainComponent::instance(), &PlainComponent::instance());
  EXPECT_NE(static_cast<void*>(&PlainComponent::instance()), static_cast<void*>(&PortalComponent::instance()));
}

TEST_F(PymComponentTest, DescriptorTrampolinesReachTheInstance) {
  PlainComponent& component = PlainComponent::instance();
  ASSERT_EQ(0, component.lib_init(framework().accessor(), "<config/>"));
  EXPECT_EQ("<config/>", component.lastConfig);
  const PymMgmtSpiComponent_2& descriptor = component.getDescriptor();
  EXPECT_STREQ("PlainComponent", descriptor.base.componentName);
  EXPECT_EQ(11, descriptor.start(PymStateChangeStartup));
  EXPECT_EQ(PymStateChangeStartup, component.lastReason);
  EXPECT_EQ(12, descriptor.stop(PymStateChangeFailure));
  EXPECT_EQ(PymStateChangeFailure, component.lastReason);
  // With nothing offered and no dependency but the portal, the arrays hold only their ends.
  EXPECT_EQ(nullptr, descriptor.interfaceArray[0]);
  EXPECT_EQ(&Qiv::Portal::COMP_ID, descriptor.dependencyArray[0]);
  EXPECT_EQ(nullptr, descriptor.dependencyArray[1]);
  EXPECT_EQ(nullptr, descriptor.optionalDependencyArray[0]);
  EXPECT_EQ(0, component.lib_term());
  EXPECT_EQ(1, component.terminateCalls);
}

TEST_F(PymComponentTest, InitializeResultIsWhatLibInitReturns) {
  PlainComponent component;
  component.initializeResult = -1;
  EXPECT_EQ(-1, component.lib_init(framework().accessor(), nullptr));
  EXPECT_EQ("(null)", component.lastConfig);
  EXPECT_EQ(1u, framework().portal().components().size());
}

TEST_F(PymComponentTest, MissingVersionOnePortalDoesNotStopRegistration) {
  framework().portal().offerPortal("1", false);
  PlainComponent component;
  EXPECT_EQ(0, component.lib_init(framework().accessor(), nullptr));
  EXPECT_EQ(1, component.initializeCalls);
  EXPECT_EQ(1u, framework().portal().components().size());
}
