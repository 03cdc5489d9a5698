#ifndef TEST_DIRECTORY_DELAYING_PROXY_H
#define TEST_DIRECTORY_DELAYING_PROXY_H

#include <memory>
#include <string>

namespace TestDirectory {

// A TCP relay on a free loopback port to an upstream server, which holds back everything the
// server sends: each chunk read from upstream reaches the client delayMs after it was read. What
// the client sends goes up at once. It sees nothing of the bytes, so a real LDAPS server answers
// slowly through it, handshake included. Each client connection gets its own upstream connection;
// one that cannot be made closes the client's. A thread of its own relays every connection; the
// destructor closes them all and returns within a fraction of a second. Every member is thread-safe.
class DelayingProxy {
 public:
  // upstreamHost: an address or a name getaddrinfo resolves. Throws std::runtime_error when it
  // does not resolve or the proxy cannot listen.
  DelayingProxy(const std::string& upstreamHost, int upstreamPort, unsigned delayMs);
  ~DelayingProxy();
  DelayingProxy(const DelayingProxy&) = delete;
  DelayingProxy& operator=(const DelayingProxy&) = delete;

  // For chunks read from upstream from now on.
  void setDelay(unsigned delayMs);

  static const char* host() { return "127.0.0.1"; }
  int port() const;
  // "127.0.0.1:<port>".
  std::string address() const;
  int connectionsAccepted() const;

 private:
  class Impl;
  std::unique_ptr<Impl> _impl;
};

}  // namespace TestDirectory

#endif
