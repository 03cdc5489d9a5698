#include "LoopbackListener.h"

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

LoopbackListener::LoopbackListener()
    : _descriptor(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)), _port(0) {
  if (_descriptor < 0) throw std::runtime_error(std::string("cannot make a listening socket: ") + std::strerror(errno));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  if (::bind(_descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
      ::listen(_descriptor, BACKLOG) != 0 ||
      ::getsockname(_descriptor, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
    const std::string error = std::strerror(errno);
    ::close(_descriptor);
    throw std::runtime_error("cannot listen on the loopback address: " + error);
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
