#include "LoopbackListener.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>

namespace TestDirectory {

namespace {

constexpr int BACKLOG = 64;

}  // namespace

LoopbackListener::LoopbackListener() : LoopbackListener("127.0.0.1", 0) {}

LoopbackListener::LoopbackListener(const std::string& host, int port)
    : _descriptor(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)), _port(0) {
  if (_descriptor < 0) throw std::runtime_error(std::string("cannot make a listening socket: ") + std::strerror(errno));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(port));
  if (::inet_pton(AF_INET, host.c_str(), &address.sin_addr) != 1) {
    ::close(_descriptor);
    throw std::runtime_error("not an IPv4 address: " + host);
  }
  socklen_t length = sizeof address;
  if (::bind(_descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
      ::listen(_descriptor, BACKLOG) != 0 ||
      ::getsockname(_descriptor, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
    const std::string error = std::strerror(errno);
    ::close(_descriptor);
    throw std::runtime_error("cannot listen on " + host + ":" + std::to_string(port) + ": " + error);
  }
  _port = ntohs(address.sin_port);
}

LoopbackListener::~LoopbackListener() { ::close(_descriptor); }

int LoopbackListener::acceptConnection() const {
  for (;;) {
    const int connection = ::accept4(_descriptor, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    // A connection reset while it waited is gone; the next one may still be there.
    if (connection >= 0 || (errno != EINTR && errno != ECONNABORTED)) return connection;
  }
}

}  // namespace TestDirectory
