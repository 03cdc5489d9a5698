#ifndef TEST_UMASK_CALLS_H
#define TEST_UMASK_CALLS_H

// Counts the umask calls of the test binary's own objects (the component's among them), which is
// linked with --wrap=umask; the calls still reach the C library. Libraries it loads are not
// counted.
class UmaskCalls {
 public:
  static unsigned count();
};

#endif
