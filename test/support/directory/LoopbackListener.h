#ifndef TEST_DIRECTORY_LOOPBACK_LISTENER_H
#define TEST_DIRECTORY_LOOPBACK_LISTENER_H

namespace TestDirectory {

// A non-blocking TCP listening socket on 127.0.0.1, on a port the kernel picks while binding (so
// no other program can take it in between). The destructor closes it. Not thread-safe.
class LoopbackListener {
 public:
  // Throws std::runtime_error when the socket cannot be made.
  LoopbackListener();
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
