#include "Eventually.h"
#include "LifecycleTest.h"

#include <Poco/File.h>

#include <gtest/gtest.h>

#include <chrono>
#include <string>

namespace {

const char JOIN_FAILED_TEXT[] = "QivAccessManagementComponent failed to join its Read and set initial configuration thread!";
// The start-up wait: long enough for a start on a loaded machine.
const char WAIT_SECONDS[] = "3";
// A run of "authentication default" outlasting the start-up wait and the 10 s join of the stop
// that follows it, well within its own 30 s limit.
const char HANGING_RUN_MS[] = "16000";

}  // namespace

// Starts that meet a configuration thread an earlier stop could not end.
class LifecycleRestartTest : public LifecycleTest {
 protected:
  // The scripted answer of "authentication default" goes; later runs answer at once.
  void endTheHang() { Poco::File(qivea.home() + "/script/authentication default").remove(true); }
};

TEST_F(LifecycleRestartTest, StartWhileTheUnjoinedThreadStillRunsFailsAndLeavesNothingLocked) {
  // The model is LOCKED: the dry run of the default method runs without the configuration lock,
  // so the stop below gets through to the join at once.
  qivea.script("authentication default", "delay-ms", HANGING_RUN_MS);
  initialize(componentFile(WAIT_SECONDS));
  EXPECT_EQ(-1, start());
  EXPECT_EQ(1u, log().count(4, JOIN_FAILED_TEXT));
  EXPECT_EQ(0u, log().count(8, "successfully stopped Read and set initial configuration thread"));
  endTheHang();

  // The thread object still runs the earlier body: no second thread can start on it.
  EXPECT_EQ(-1, start());
  EXPECT_EQ(1u, log().count(3, "Caught exception: System exception: thread already running"));
  EXPECT_EQ(0, stop());
  EXPECT_EQ(1u, log().count(4, "QivAccessManagementComponent is already stopped."));

  // Once the earlier body ended, a start runs as usual: the start-up lock was given back.
  ASSERT_TRUE(eventually([&] { return log().count(8, "SEC API is not available") == 1; },
                         std::chrono::milliseconds(20000)));
  EXPECT_EQ(0, start());
  EXPECT_EQ(1u, log().count(8, "Signal received from configuration thread. Initial configuration has been read and set"));
  EXPECT_EQ(0, stop());
}

TEST_F(LifecycleTest, ThreadOfAFailedInitNeverReadsTheModel) {
  // Without the version-1 portal the configuration thread is handed nothing to read through.
  framework().portal().offerPortal("1", false);
  initialize(componentFile("1"));
  EXPECT_EQ(-1, start());
  EXPECT_EQ(1u, log().count(8, "Invalid arguments"));
  EXPECT_EQ(1u, log().count(3, "Not initialized!"));
  EXPECT_EQ(0u, log().count(8, "Reading initial LDAP configuration..."));
  EXPECT_EQ(1u, log().count(3, "Timeout when waiting for reading/setting of initial configuration. Aborting component start-up."));
  EXPECT_TRUE(authenticationCalls().empty());
}
