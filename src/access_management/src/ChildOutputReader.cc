#include "ChildOutputReader.h"

#include "AmQivEaWrapperTimeout.h"

#include <Poco/Exception.h>

#include <algorithm>
#include <cerrno>

#include <poll.h>
#include <unistd.h>

namespace QivAccessManagement {

namespace {

typedef std::chrono::steady_clock Clock;

const std::size_t READ_BUFFER_SIZE = 8192;
// After the watchdog's kill, for the killed processes' pipes to reach their end.
const std::chrono::milliseconds GRACE_AFTER_EXPIRY(1000);
// Between the due time and the watchdog's thread getting round to firing.
const int EXPIRY_CHECK_MS = 10;

// Whole milliseconds until then, at least 0 and at most what poll takes (int, 32 bits).
int millisecondsUntil(Clock::time_point then, Clock::time_point now) {
  if (then <= now) return 0;
  const auto rounded = std::chrono::ceil<std::chrono::milliseconds>(then - now).count();
  return static_cast<int>(std::min<decltype(rounded)>(rounded, 0x7fffffff));
}

}  // namespace

ChildOutputReader::ChildOutputReader(const AmQivEaWrapperTimeout& watchdog, Clock::time_point due)
    : _watchdog(watchdog), _due(due) {}

bool ChildOutputReader::read(const std::vector<Stream>& streams) const {
  std::vector<pollfd> fds;
  for (const Stream& stream : streams) fds.push_back({stream.fd, POLLIN, 0});
  std::size_t open = fds.size();
  Clock::time_point giveUpAt;
  bool givingUp = false;
  char buffer[READ_BUFFER_SIZE];
  while (open > 0) {
    const int waitMs = nextWait(giveUpAt, givingUp);
    if (waitMs < 0) return false;
    const int ready = ::poll(fds.data(), static_cast<nfds_t>(fds.size()), waitMs);
    if (ready == -1) {
      if (errno == EINTR) continue;
      throw Poco::SystemException("cannot wait for the output of a child process");
    }
    for (std::size_t i = 0; i < fds.size(); ++i) {
      if (fds[i].fd < 0 || fds[i].revents == 0) continue;
      const ssize_t count = ::read(fds[i].fd, buffer, sizeof buffer);
      if (count < 0 && (errno == EINTR || errno == EAGAIN)) continue;
      if (count <= 0) {
        fds[i].fd = -1;  // poll skips negative descriptors
        --open;
        continue;
      }
      std::string& text = *streams[i].text;
      const std::size_t room = streams[i].limit > text.size() ? streams[i].limit - text.size() : 0;
      text.append(buffer, std::min(static_cast<std::size_t>(count), room));
    }
  }
  return true;
}

int ChildOutputReader::nextWait(Clock::time_point& giveUpAt, bool& givingUp) const {
  const Clock::time_point now = Clock::now();
  if (!givingUp && _watchdog.isExpired()) {
    givingUp = true;
    giveUpAt = now + GRACE_AFTER_EXPIRY;
  }
  if (givingUp) return now >= giveUpAt ? -1 : millisecondsUntil(giveUpAt, now);
  // Past the due time the watchdog fires any moment: look again shortly.
  return now < _due ? millisecondsUntil(_due, now) : EXPIRY_CHECK_MS;
}

}  // namespace QivAccessManagement
