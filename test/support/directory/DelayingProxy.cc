#include "DelayingProxy.h"

#include "LoopbackListener.h"

#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <deque>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

namespace TestDirectory {

namespace {

using Clock = std::chrono::steady_clock;

// The longest the relaying thread waits before it looks at the stop flag again.
constexpr std::chrono::milliseconds LONGEST_WAIT{20};
constexpr std::size_t READ_SIZE = 64 * 1024;
// Bytes held for one direction before the relay stops reading the side that sends them.
constexpr std::size_t MOST_HELD = 4 * 1024 * 1024;
constexpr int ACCEPTS_PER_TURN = 16;

struct Chunk {
  Clock::time_point due;
  std::string bytes;
};

// A client connection and its upstream connection; only the relaying thread touches it.
struct Link {
  Link(int client, int upstream) : client(client), upstream(upstream) {}

  bool isOpen() const { return client >= 0; }
  std::size_t heldForClient() const {
    std::size_t held = 0;
    for (const Chunk& chunk : toClient) held += chunk.bytes.size();
    return held;
  }

  int client;
  int upstream;
  bool connecting = true;
  bool upstreamEnded = false;
  std::string toUpstream;
  std::deque<Chunk> toClient;
  // Of toClient.front().
  std::size_t writtenToClient = 0;
};

void closeLink(Link& link) {
  if (!link.isOpen()) return;
  ::close(link.client);
  ::close(link.upstream);
  link.client = -1;
  link.upstream = -1;
}

// Appends what descriptor has to bytes, through buffer; false once it ended or failed.
bool readInto(int descriptor, std::string& buffer, std::string& bytes) {
  for (;;) {
    const ssize_t received = ::recv(descriptor, &buffer[0], buffer.size(), 0);
    if (received > 0) {
      bytes.append(buffer, 0, static_cast<std::size_t>(received));
      return true;
    }
    if (received < 0 && errno == EINTR) continue;
    return received < 0 && (errno == EAGAIN || errno == EWOULDBLOCK);
  }
}

// Sends from bytes[written] on until the socket takes no more; false when it failed.
bool sendFrom(int descriptor, const std::string& bytes, std::size_t& written) {
  while (written < bytes.size()) {
    const ssize_t sent = ::send(descriptor, bytes.data() + written, bytes.size() - written, MSG_NOSIGNAL);
    if (sent > 0) {
      written += static_cast<std::size_t>(sent);
    } else if (sent < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
      return true;
    } else if (sent < 0 && errno != EINTR) {
      return false;
    }
  }
  return true;
}

int millisecondsUntil(Clock::time_point due, Clock::time_point now) {
  const auto wait = std::chrono::ceil<std::chrono::milliseconds>(due - now);
  return static_cast<int>(
      std::clamp<std::chrono::milliseconds>(wait, std::chrono::milliseconds(0), LONGEST_WAIT).count());
}

}  // namespace

class DelayingProxy::Impl {
 public:
  Impl(const std::string& upstreamHost, int upstreamPort, unsigned delayMs);
  ~Impl() { stop(); }

  void start() { _thread = std::thread(&Impl::relay, this); }
  void stop() {
    _stopping = true;
    if (_thread.joinable()) _thread.join();
  }

  const LoopbackListener listener;

  mutable std::mutex mutex;
  // Guarded by mutex.
  unsigned delayMs;
  int connectionsAccepted = 0;

 private:
  void relay();
  void acceptWaiting();
  // An upstream socket connecting (non-blocking) to the upstream address; -1 when it failed at once.
  int connectUpstream() const;
  void serveClient(Link& link, short revents);
  void serveUpstream(Link& link, short revents);

  sockaddr_storage _upstreamAddress{};
  socklen_t _upstreamAddressLength = 0;
  std::atomic<bool> _stopping{false};
  std::thread _thread;
  // Only the relaying thread touches these.
  std::vector<std::unique_ptr<Link>> _links;
  std::string _readBuffer = std::string(READ_SIZE, '\0');
};

DelayingProxy::Impl::Impl(const std::string& upstreamHost, int upstreamPort, unsigned delayMs) : delayMs(delayMs) {
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  const int rc = ::getaddrinfo(upstreamHost.c_str(), std::to_string(upstreamPort).c_str(), &hints, &found);
  if (rc != 0 || found == nullptr) {
    throw std::runtime_error("cannot resolve " + upstreamHost + ": " + ::gai_strerror(rc));
  }
  std::memcpy(&_upstreamAddress, found->ai_addr, found->ai_addrlen);
  _upstreamAddressLength = found->ai_addrlen;
  ::freeaddrinfo(found);
}

int DelayingProxy::Impl::connectUpstream() const {
  const int descriptor = ::socket(_upstreamAddress.ss_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (descriptor < 0) return -1;
  if (::connect(descriptor, reinterpret_cast<const sockaddr*>(&_upstreamAddress), _upstreamAddressLength) == 0 ||
      errno == EINPROGRESS) {
    return descriptor;
  }
  ::close(descriptor);
  return -1;
}

void DelayingProxy::Impl::acceptWaiting() {
  for (int i = 0; i < ACCEPTS_PER_TURN; ++i) {
    const int client = listener.acceptConnection();
    if (client < 0) return;
    {
      std::lock_guard<std::mutex> lock(mutex);
      ++connectionsAccepted;
    }
    const int upstream = connectUpstream();
    if (upstream < 0) {
      ::close(client);
      continue;
    }
    _links.push_back(std::make_unique<Link>(client, upstream));
  }
}

void DelayingProxy::Impl::relay() {
  std::vector<pollfd> descriptors;
  // Per entry of descriptors after the listener: the link and whether it is the upstream side.
  std::vector<std::pair<Link*, bool>> sides;
  while (!_stopping) {
    descriptors.assign(1, pollfd{listener.descriptor(), POLLIN, 0});
    sides.clear();
    const Clock::time_point now = Clock::now();
    int wait = static_cast<int>(LONGEST_WAIT.count());
    for (const std::unique_ptr<Link>& link : _links) {
      short clientEvents = link->toUpstream.size() < MOST_HELD ? POLLIN : 0;
      if (!link->toClient.empty()) {
        const Clock::time_point due = link->toClient.front().due;
        if (due <= now) {
          clientEvents |= POLLOUT;
        } else {
          wait = std::min(wait, millisecondsUntil(due, now));
        }
      }
      if (clientEvents != 0) {
        descriptors.push_back(pollfd{link->client, clientEvents, 0});
        sides.emplace_back(link.get(), false);
      }
      short upstreamEvents = 0;
      if (link->connecting) {
        upstreamEvents = POLLOUT;
      } else if (!link->upstreamEnded) {
        if (link->heldForClient() < MOST_HELD) upstreamEvents |= POLLIN;
        if (!link->toUpstream.empty()) upstreamEvents |= POLLOUT;
      }
      if (upstreamEvents != 0) {
        descriptors.push_back(pollfd{link->upstream, upstreamEvents, 0});
        sides.emplace_back(link.get(), true);
      }
    }
    if (::poll(descriptors.data(), descriptors.size(), wait) < 0) {
      if (errno != EINTR) std::this_thread::sleep_for(LONGEST_WAIT);
      continue;
    }
    if ((descriptors[0].revents & POLLIN) != 0) acceptWaiting();
    for (std::size_t i = 0; i < sides.size(); ++i) {
      Link& link = *sides[i].first;
      const short revents = descriptors[i + 1].revents;
      if (revents == 0 || !link.isOpen()) continue;
      if (sides[i].second) {
        serveUpstream(link, revents);
      } else {
        serveClient(link, revents);
      }
    }
    // Once upstream has ended, the client gets what is held for it, then the end.
    for (const std::unique_ptr<Link>& link : _links) {
      if (link->upstreamEnded && link->toClient.empty()) closeLink(*link);
    }
    _links.erase(
        std::remove_if(_links.begin(), _links.end(), [](const std::unique_ptr<Link>& l) { return !l->isOpen(); }),
        _links.end());
  }
  for (const std::unique_ptr<Link>& link : _links) closeLink(*link);
  _links.clear();
}

void DelayingProxy::Impl::serveClient(Link& link, short revents) {
  if ((revents & (POLLIN | POLLHUP | POLLERR)) != 0 && !readInto(link.client, _readBuffer, link.toUpstream)) {
    // The client is gone: nothing held for it matters any more.
    closeLink(link);
    return;
  }
  if ((revents & POLLOUT) == 0) return;
  const Clock::time_point now = Clock::now();
  while (!link.toClient.empty() && link.toClient.front().due <= now) {
    const std::string& bytes = link.toClient.front().bytes;
    if (!sendFrom(link.client, bytes, link.writtenToClient)) {
      closeLink(link);
      return;
    }
    if (link.writtenToClient < bytes.size()) return;
    link.toClient.pop_front();
    link.writtenToClient = 0;
  }
}

void DelayingProxy::Impl::serveUpstream(Link& link, short revents) {
  if (link.connecting) {
    int error = 0;
    socklen_t length = sizeof error;
    if (::getsockopt(link.upstream, SOL_SOCKET, SO_ERROR, &error, &length) != 0 || error != 0) {
      closeLink(link);
      return;
    }
    link.connecting = false;
    return;
  }
  if ((revents & (POLLIN | POLLHUP | POLLERR)) != 0) {
    std::string bytes;
    const bool open = readInto(link.upstream, _readBuffer, bytes);
    if (!bytes.empty()) {
      unsigned delay = 0;
      {
        std::lock_guard<std::mutex> lock(mutex);
        delay = delayMs;
      }
      link.toClient.push_back(Chunk{Clock::now() + std::chrono::milliseconds(delay), std::move(bytes)});
    }
    if (!open) {
      link.upstreamEnded = true;
      return;
    }
  }
  if ((revents & POLLOUT) != 0) {
    std::size_t written = 0;
    if (!sendFrom(link.upstream, link.toUpstream, written)) {
      link.upstreamEnded = true;
      return;
    }
    link.toUpstream.erase(0, written);
  }
}

DelayingProxy::DelayingProxy(const std::string& upstreamHost, int upstreamPort, unsigned delayMs)
    : _impl(std::make_unique<Impl>(upstreamHost, upstreamPort, delayMs)) {
  _impl->start();
}

DelayingProxy::~DelayingProxy() { _impl->stop(); }

void DelayingProxy::setDelay(unsigned delayMs) {
  std::lock_guard<std::mutex> lock(_impl->mutex);
  _impl->delayMs = delayMs;
}

int DelayingProxy::port() const { return _impl->listener.port(); }

std::string DelayingProxy::address() const { return std::string(host()) + ":" + std::to_string(port()); }

int DelayingProxy::connectionsAccepted() const {
  std::lock_guard<std::mutex> lock(_impl->mutex);
  return _impl->connectionsAccepted;
}

}  // namespace TestDirectory
