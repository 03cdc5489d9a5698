#include <Qiv/LoggingWrapper.h>
#include <Qiv/SecApi.h>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "FakeFramework.h"
#include "ScopedEnvironmentVariable.h"
#include "SecCreduStandIn.h"

namespace {

const char kLibrary[] = "libsec_credu_api.so.1";
const char kNodeCredential[] = "ManagedElement=1,SystemFunctions=1,SecM=1,CertM=1,NodeCredential=ldap";
const char kTrustCategory[] = "ManagedElement=1,SystemFunctions=1,SecM=1,CertM=1,TrustCategory=ldap";

bool isReadable(int fd, int timeoutMs) {
  pollfd entry = {fd, POLLIN, 0};
  return ::poll(&entry, 1, timeoutMs) == 1 && (entry.revents & POLLIN) != 0;
}

// Keeps the stand-in loaded from its build path. A later dlopen of the bare name finds it by
// its soname among the loaded objects, so these tests need no search path; closing it again
// unloads it for the tests that want it missing.
class LoadedStandIn {
 public:
  LoadedStandIn() : _handle(dlopen(SEC_CREDU_LIBRARY, RTLD_NOW | RTLD_LOCAL)) {}
  ~LoadedStandIn() {
    if (_handle != nullptr) dlclose(_handle);
  }
  LoadedStandIn(const LoadedStandIn&) = delete;
  LoadedStandIn& operator=(const LoadedStandIn&) = delete;

  bool isLoaded() const { return _handle != nullptr; }

 private:
  void* _handle;
};

class SecApiTest : public FakeFrameworkTest {
 protected:
  void SetUp() override {
    FakeFrameworkTest::SetUp();
    logLevel = 9;
    traceEnabled = true;
  }
};

class SecApiWithStandInTest : public SecApiTest {
 protected:
  void SetUp() override {
    SecApiTest::SetUp();
    ASSERT_TRUE(library.isLoaded()) << dlerror();
  }

  LoadedStandIn library;
  SecCreduStandIn standIn;
};

TEST_F(SecApiTest, WithoutTheLibraryNothingIsAvailableAndTheTraceSaysWhy) {
  ASSERT_EQ(nullptr, dlopen(kLibrary, RTLD_NOW | RTLD_NOLOAD)) << "the stand-in is still loaded";
  Qiv::SecApi api;

  ASSERT_EQ(nullptr, dlopen(kLibrary, RTLD_NOW));
  const std::string reason = dlerror();
  EXPECT_EQ(1u, countLines(Qiv::LoggingWrapper::TRACE, std::string("Cannot open ") + kLibrary + ": " + reason));
  EXPECT_FALSE(api.isAvailable());
  EXPECT_EQ(-1, api.subscribe(kNodeCredential, kTrustCategory));
  EXPECT_EQ(-1, api.getEventFd());
  EXPECT_FALSE(api.handleEvent());
  EXPECT_EQ("", api.getNodeCertFileName());
  EXPECT_EQ("", api.getNodeKeyFileName());
  EXPECT_EQ("", api.getTrustCatDirName());
}

TEST_F(SecApiTest, TheLoaderSearchPathDecidesWhereTheLibraryComesFrom) {
  // The loader reads LD_LIBRARY_PATH when a process starts, so each answer comes from a fresh
  // process that runs this test again up to the statement.
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(std::_Exit(Qiv::SecApi().isAvailable() ? 0 : 1), ::testing::ExitedWithCode(1), "");
  ScopedEnvironmentVariable searchPath("LD_LIBRARY_PATH", SEC_CREDU_LIBRARY_DIR);
  EXPECT_EXIT(std::_Exit(Qiv::SecApi().isAvailable() ? 0 : 1), ::testing::ExitedWithCode(0), "");
}

TEST_F(SecApiWithStandInTest, AvailableWhileTheServiceAnswers) {
  Qiv::SecApi api;
  EXPECT_TRUE(api.isAvailable());
  standIn.setAvailable(false);
  EXPECT_FALSE(api.isAvailable());
  standIn.setAvailable(true);
  EXPECT_TRUE(api.isAvailable());
  EXPECT_TRUE(lines.empty());
}

TEST_F(SecApiWithStandInTest, SubscribeHandsBothReferencesToTheService) {
  Qiv::SecApi api;
  EXPECT_EQ(-1, api.getEventFd());
  EXPECT_EQ(0, api.subscribe(kNodeCredential, kTrustCategory));
  EXPECT_EQ(std::vector<std::string>({kNodeCredential, kTrustCategory}), standIn.subscription());
  EXPECT_GE(api.getEventFd(), 0);
}

TEST_F(SecApiWithStandInTest, RefusedSubscriptionGivesMinusOne) {
  standIn.setSubscribeFails(true);
  standIn.setNodeCertFileName("/credentials/node.pem");
  Qiv::SecApi api;
  EXPECT_EQ(-1, api.subscribe(kNodeCredential, kTrustCategory));
  EXPECT_EQ(std::vector<std::string>({kNodeCredential, kTrustCategory}), standIn.subscription());
  EXPECT_EQ(-1, api.getEventFd());
  EXPECT_EQ("", api.getNodeCertFileName());
}

TEST_F(SecApiWithStandInTest, SubscriptionFailsWhileTheServiceIsUnavailable) {
  standIn.setAvailable(false);
  Qiv::SecApi api;
  EXPECT_EQ(-1, api.subscribe(kNodeCredential, kTrustCategory));
}

TEST_F(SecApiWithStandInTest, DescriptorIsReadableOnlyWhileAChangeIsPending) {
  Qiv::SecApi api;
  ASSERT_EQ(0, api.subscribe(kNodeCredential, kTrustCategory));
  EXPECT_FALSE(isReadable(api.getEventFd(), 0));

  standIn.sendEvent("changed");
  EXPECT_TRUE(isReadable(api.getEventFd(), 5000));
  EXPECT_TRUE(api.handleEvent());
  EXPECT_FALSE(isReadable(api.getEventFd(), 0));
}

TEST_F(SecApiWithStandInTest, UnchangedEventReportsNoChange) {
  Qiv::SecApi api;
  ASSERT_EQ(0, api.subscribe(kNodeCredential, kTrustCategory));
  standIn.sendEvent("unchanged");
  EXPECT_TRUE(isReadable(api.getEventFd(), 5000));
  EXPECT_FALSE(api.handleEvent());
  EXPECT_FALSE(isReadable(api.getEventFd(), 0));
}

TEST_F(SecApiWithStandInTest, EachCallHandlesOneEvent) {
  Qiv::SecApi api;
  ASSERT_EQ(0, api.subscribe(kNodeCredential, kTrustCategory));
  standIn.sendEvent("unchanged");
  standIn.sendEvent("changed");
  EXPECT_FALSE(api.handleEvent());
  EXPECT_TRUE(isReadable(api.getEventFd(), 0));
  EXPECT_TRUE(api.handleEvent());
  EXPECT_FALSE(isReadable(api.getEventFd(), 0));
}

TEST_F(SecApiWithStandInTest, UnreadableEventIsAWarningAndNoChange) {
  Qiv::SecApi api;
  ASSERT_EQ(0, api.subscribe(kNodeCredential, kTrustCategory));
  standIn.sendEvent("garbled");
  EXPECT_FALSE(api.handleEvent());
  EXPECT_EQ(1u, countLines(4, "Could not read the certificate event (-1)"));
}

TEST_F(SecApiWithStandInTest, BrokenEventChannelClosesTheDescriptorButKeepsItsNumber) {
  Qiv::SecApi api;
  ASSERT_EQ(0, api.subscribe(kNodeCredential, kTrustCategory));
  const int fd = api.getEventFd();
  standIn.setEventChannelBroken(true);
  standIn.sendEvent("changed");
  ASSERT_TRUE(isReadable(fd, 5000));

  EXPECT_FALSE(api.handleEvent());
  EXPECT_EQ(1u, countLines(4, "Could not read the certificate event (-1)"));
  EXPECT_EQ(fd, api.getEventFd());
  const int flags = ::fcntl(fd, F_GETFD);
  const int error = errno;
  EXPECT_EQ(-1, flags);
  EXPECT_EQ(EBADF, error);
  EXPECT_FALSE(api.handleEvent());
  EXPECT_EQ(2u, countLines(4, "Could not read the certificate event (-1)"));
}

TEST_F(SecApiWithStandInTest, BrokenEventChannelIsNotClosedAgainWithTheSession) {
  std::unique_ptr<Qiv::SecApi> api(new Qiv::SecApi);
  ASSERT_EQ(0, api->subscribe(kNodeCredential, kTrustCategory));
  const int reused = api->getEventFd();
  // Opened while the channel still is, so that it gets a number of its own.
  const int devNull = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
  ASSERT_NE(-1, devNull);
  standIn.setEventChannelBroken(true);
  EXPECT_FALSE(api->handleEvent());
  // The closed number now names another file, which the end of the session must leave open.
  const int duplicate = ::dup2(devNull, reused);
  ::close(devNull);
  ASSERT_EQ(reused, duplicate);
  api.reset();
  EXPECT_NE(-1, ::fcntl(reused, F_GETFD));
  ::close(reused);
}

TEST_F(SecApiWithStandInTest, FileNamesAreThoseOfTheCurrentSubscription) {
  standIn.setNodeCertFileName("/credentials/ldap/node-cert.pem");
  standIn.setNodeKeyFileName("/credentials/ldap/node-key.pem");
  standIn.setTrustCatDirName("/credentials/ldap/trusted");
  Qiv::SecApi api;
  EXPECT_EQ("", api.getNodeCertFileName());

  ASSERT_EQ(0, api.subscribe(kNodeCredential, kTrustCategory));
  EXPECT_EQ("/credentials/ldap/node-cert.pem", api.getNodeCertFileName());
  EXPECT_EQ("/credentials/ldap/node-key.pem", api.getNodeKeyFileName());
  EXPECT_EQ("/credentials/ldap/trusted", api.getTrustCatDirName());

  standIn.setNodeCertFileName("/credentials/ldap/renewed-cert.pem");
  EXPECT_EQ("/credentials/ldap/renewed-cert.pem", api.getNodeCertFileName());
}

TEST_F(SecApiTest, WithoutAControlDirectoryTheStandInAnswersAsAHealthyNode) {
  ASSERT_EQ(nullptr, std::getenv("SEC_CREDU_HOME"));
  LoadedStandIn library;
  ASSERT_TRUE(library.isLoaded()) << dlerror();
  Qiv::SecApi api;
  EXPECT_TRUE(api.isAvailable());
  EXPECT_EQ(0, api.subscribe(kNodeCredential, kTrustCategory));
  EXPECT_GE(api.getEventFd(), 0);
  EXPECT_FALSE(isReadable(api.getEventFd(), 0));
  EXPECT_EQ("", api.getNodeCertFileName());
}

}  // namespace
