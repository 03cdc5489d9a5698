#include "SpawnedProcess.h"

#include "Eventually.h"
#include "InheritableDescriptors.h"

#include <Poco/DirectoryIterator.h>
#include <Poco/Exception.h>
#include <Poco/Pipe.h>
#include <Poco/PipeStream.h>
#include <Poco/StreamCopier.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <set>
#include <string>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

using QivAccessManagement::SpawnedProcess;

namespace {

std::string readAll(const Poco::Pipe& pipe) {
  Poco::PipeInputStream stream(pipe);
  std::string text;
  Poco::StreamCopier::copyToString(stream, text);
  return text;
}

// True when this process has no child at all, running or zombie; reaps nothing.
bool hasNoChild() {
  siginfo_t info;
  return ::waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == -1 && errno == ECHILD;
}

std::set<std::string> openDescriptors(int pid) {
  std::set<std::string> names;
  const std::string directory = "/proc/" + std::to_string(pid) + "/fd";
  for (Poco::DirectoryIterator it(directory), end; it != end; ++it) names.insert(it.name());
  return names;
}

std::string linkTarget(const std::string& path) {
  char target[4096];
  const ssize_t length = ::readlink(path.c_str(), target, sizeof target);
  return length < 0 ? std::string() : std::string(target, static_cast<std::size_t>(length));
}

class SpawnedProcessTest : public ::testing::Test {
 protected:
  Poco::Pipe outPipe;
  Poco::Pipe errPipe;
};

TEST_F(SpawnedProcessTest, OutputAndErrorsGoToTheirPipesAndTheExitStatusIsReturned) {
  SpawnedProcess child("sh", {"-c", "printf 'to out'; printf 'to err' >&2; exit 3"}, outPipe, errPipe);
  // Our write ends gone, so that reading ends with the child's.
  ASSERT_EQ(-1, outPipe.writeHandle());
  ASSERT_EQ(-1, errPipe.writeHandle());
  EXPECT_EQ(3, child.wait());
  EXPECT_EQ("to out", readAll(outPipe));
  EXPECT_EQ("to err", readAll(errPipe));
}

TEST_F(SpawnedProcessTest, ArgumentsReachTheProgramWordForWord) {
  SpawnedProcess child("printf", {"[%s]", "two words", "", "$HOME"}, outPipe, errPipe);
  EXPECT_EQ(0, child.wait());
  EXPECT_EQ("[two words][][$HOME]", readAll(outPipe));
}

TEST_F(SpawnedProcessTest, ChildEndedBySignalGivesTheBasePlusTheSignal) {
  SpawnedProcess child("sh", {"-c", "kill -TERM $$"}, outPipe, errPipe);
  EXPECT_EQ(SpawnedProcess::SIGNAL_STATUS_BASE + SIGTERM, child.wait());
}

TEST_F(SpawnedProcessTest, ChildLeadsAGroupOfItsOwnWithOnlyTheStandardDescriptors) {
  const InheritableDescriptors inheritable;
  ASSERT_TRUE(inheritable.areInheritable());
  SpawnedProcess child("sleep", {"30"}, outPipe, errPipe);
  const int pid = child.id();
  EXPECT_EQ(pid, ::getpgid(pid));
  // The program's loader opens files of its own for a moment after the exec.
  const std::set<std::string> standard = {"0", "1", "2"};
  EXPECT_TRUE(eventually([&] { return openDescriptors(pid) == standard; }))
      << openDescriptors(pid).size() << " descriptors open in the child";
  EXPECT_EQ(linkTarget("/proc/self/fd/0"), linkTarget("/proc/" + std::to_string(pid) + "/fd/0"));
  EXPECT_EQ(linkTarget("/proc/self/fd/" + std::to_string(outPipe.readHandle())),
            linkTarget("/proc/" + std::to_string(pid) + "/fd/1"));
  EXPECT_EQ(linkTarget("/proc/self/fd/" + std::to_string(errPipe.readHandle())),
            linkTarget("/proc/" + std::to_string(pid) + "/fd/2"));
}

TEST_F(SpawnedProcessTest, ObjectLeftBeforeTheWaitKillsAndReapsTheChild) {
  int pid = 0;
  {
    SpawnedProcess child("sleep", {"30"}, outPipe, errPipe);
    pid = child.id();
  }
  EXPECT_EQ(-1, ::kill(pid, 0));
  EXPECT_TRUE(hasNoChild());
}

TEST_F(SpawnedProcessTest, ProgramMissingFromThePathIsFileNotFound) {
  try {
    SpawnedProcess child("no-such-program-on-the-path", {}, outPipe, errPipe);
    FAIL() << "started pid " << child.id();
  } catch (const Poco::FileNotFoundException& e) {
    EXPECT_EQ("File not found: no-such-program-on-the-path", e.displayText());
  }
  EXPECT_TRUE(hasNoChild());
}

TEST_F(SpawnedProcessTest, WaitForExitLeavesTheEndedChildForWaitToReap) {
  SpawnedProcess child("sh", {"-c", "exit 5"}, outPipe, errPipe);
  EXPECT_EQ(5, child.waitForExit());
  // Still this process's child, its pid taken, until reaped.
  siginfo_t info = {};
  ASSERT_EQ(0, ::waitid(P_PID, static_cast<id_t>(child.id()), &info, WEXITED | WNOHANG | WNOWAIT));
  EXPECT_EQ(child.id(), info.si_pid);
  EXPECT_EQ(5, child.waitForExit());
  EXPECT_EQ(5, child.wait());
  EXPECT_TRUE(hasNoChild());
}

TEST_F(SpawnedProcessTest, WaitForExitReportsTheSignalAsWaitDoes) {
  SpawnedProcess child("sh", {"-c", "kill -TERM $$"}, outPipe, errPipe);
  EXPECT_EQ(SpawnedProcess::SIGNAL_STATUS_BASE + SIGTERM, child.waitForExit());
  EXPECT_EQ(SpawnedProcess::SIGNAL_STATUS_BASE + SIGTERM, child.wait());
}

TEST_F(SpawnedProcessTest, ObjectLeftAfterWaitForExitReapsTheChild) {
  {
    SpawnedProcess child("true", {}, outPipe, errPipe);
    EXPECT_EQ(0, child.waitForExit());
  }
  EXPECT_TRUE(hasNoChild());
}

TEST_F(SpawnedProcessTest, SecondWaitFindsNoChild) {
  SpawnedProcess child("true", {}, outPipe, errPipe);
  EXPECT_EQ(0, child.wait());
  EXPECT_THROW(child.wait(), Poco::SystemException);
}

}  // namespace
