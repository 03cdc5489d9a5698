#ifndef TEST_DIRECTORY_LOOPBACK_LISTENER_H
#define TEST_DIRECTORY_LOOPBACK_LISTENER_H

#include <string>

namespace TestDirectory {

// A non-blocking TCP listening socket on a loopback address (127.0.0.1 unless told), on a port the
// kernel picks while binding (so no other program can take it in between) or on a given one (so
// that two servers on two loopback addresses share a port, as a primary and its fallback do).
// The destructor closes it. Not thread-safe.
class LoopbackListener {
 public:
  // Throws std::runtime_error when the socket cannot be made.
  LoopbackListener();
  // port 0: the kernel picks one.
  LoopbackListener(const std::string& host, int port);
  ~LoopbackListener();
  LoopbackListener(const LoopbackListener&) = delete;
  LoopbackListener& operator=(const LoopbackListener&) = delete;

  int descriptor() const { return _descriptor; }
  int port() const { return _port; }

  // A waiting connection, non-blocking and close-on-exec; -1 when none waits.
  int acceptConnection() const;

 private:
  int _descriptor;
  int _port;
};

}  // namespace TestDirectory

#endif
