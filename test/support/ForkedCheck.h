#ifndef TEST_FORKED_CHECK_H
#define TEST_FORKED_CHECK_H

#include <gtest/gtest.h>

#include <grp.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <functional>
#include <vector>

// Checks run in a forked copy of the test process, for what must not touch the test process
// itself: a dropped user id, a resource limit. The child's failures are printed as they happen
// (GoogleTest prints each one at once) and give it a non-zero exit status.
class ForkedCheck {
 public:
  // Runs body in a forked child; true when the child recorded no failure and ended normally.
  static bool run(const std::function<void()>& body) {
    std::fflush(stdout);
    const pid_t child = ::fork();
    if (child == -1) return false;
    if (child == 0) {
      body();
      std::fflush(stdout);
      ::_exit(::testing::Test::HasFailure() ? 1 : 0);
    }
    int status = 0;
    return ::waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
  }

  // As run, with the child running as user uid of group gid with exactly the supplementary
  // groups given. The test process runs as root; body never does.
  static bool runAs(uid_t uid, gid_t gid, const std::vector<gid_t>& groups, const std::function<void()>& body) {
    return run([&] {
      const bool dropped = ::setgroups(groups.size(), groups.data()) == 0 && ::setgid(gid) == 0 && ::setuid(uid) == 0;
      ASSERT_TRUE(dropped) << "cannot run as " << uid << ":" << gid;
      ASSERT_NE(0u, ::geteuid());
      body();
    });
  }
};

#endif
