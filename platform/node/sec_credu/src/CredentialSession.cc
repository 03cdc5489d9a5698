#include "CredentialSession.h"

#include "ControlDirectory.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace SecCredu {

CredentialSession::CredentialSession()
    : _eventReadFd(-1), _eventWriteFd(-1), _eventChannelClosed(false), _subscribed(false) {}

CredentialSession::~CredentialSession() { closeEventChannel(); }

int CredentialSession::subscribe(const char* nodeCredential, const char* trustCategory) {
  if (nodeCredential == nullptr || trustCategory == nullptr) return -1;
  const ControlDirectory control;
  control.recordSubscription(nodeCredential, trustCategory);
  if (*nodeCredential == '\0' || *trustCategory == '\0' || !control.isServiceAvailable() ||
      control.isSubscriptionRefused() || !openEventChannel(control)) {
    return -1;
  }
  _subscribed = true;
  return 0;
}

int CredentialSession::eventFd() const { return _eventReadFd; }

int CredentialSession::dispatch() {
  if (_eventReadFd == -1) return 0;
  if (_eventChannelClosed) return -1;
  if (ControlDirectory().isEventChannelBroken()) {
    closeEventChannel();
    return -1;
  }
  // Byte by byte, so that a second pending event stays in the channel for the next call.
  std::string event;
  char byte;
  while (::read(_eventReadFd, &byte, 1) == 1 && byte != '\n') event += byte;
  if (event == "changed") return 1;
  if (event.empty() || event == "unchanged") return 0;
  return -1;
}

const char* CredentialSession::fileName(sec_credu_file which) {
  if (!_subscribed || !ControlDirectory().fileName(which, _fileName)) return nullptr;
  return _fileName.c_str();
}

void CredentialSession::closeEventChannel() {
  if (_eventReadFd == -1 || _eventChannelClosed) return;
  ::close(_eventReadFd);
  ::close(_eventWriteFd);
  _eventChannelClosed = true;
}

bool CredentialSession::openEventChannel(const ControlDirectory& control) {
  if (_eventReadFd != -1) return true;
  int fds[2];
  if (!control.isSet()) {
    // Nothing can announce an event without a control directory, but the client still gets a
    // descriptor to wait on.
    if (::pipe2(fds, O_NONBLOCK | O_CLOEXEC) != 0) return false;
  } else {
    const std::string path = control.eventsPath();
    if (::mkfifo(path.c_str(), 0600) != 0 && errno != EEXIST) return false;
    // The read end first: opening a FIFO for writing without blocking needs a reader.
    fds[0] = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fds[0] == -1) return false;
    fds[1] = ::open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    if (fds[1] == -1) {
      ::close(fds[0]);
      return false;
    }
  }
  _eventReadFd = fds[0];
  _eventWriteFd = fds[1];
  return true;
}

}  // namespace SecCredu
