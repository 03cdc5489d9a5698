#include "AmQivEaWrapperTimeout.h"

#include <Poco/Exception.h>
#include <Poco/Process.h>
#include <Qiv/LoggingWrapper.h>

namespace QivAccessManagement {

AmQivEaWrapperTimeout::AmQivEaWrapperTimeout() : _processId(0), _expired(false) {}

void AmQivEaWrapperTimeout::setProcessId(int processId) { _processId = processId; }

bool AmQivEaWrapperTimeout::isExpired() const { return _expired; }

void AmQivEaWrapperTimeout::onTimer(Qiv::Timer& timer) {
  const int processId = _processId;
  QIV_LOG(4, "Timer has expired, killing process (pid %d)", processId);
  try {
    // Without a child the negated pid would name the caller's own process group.
    if (processId > 0) Poco::Process::kill(-processId);
  } catch (const Poco::Exception& e) {
    // The group is gone (the child ended just now, or left its group); the time is up all the same.
    QIV_LOG(4, "Could not kill the process group of pid %d: %s", processId, e.displayText().c_str());
  }
  _expired = true;
}

}  // namespace QivAccessManagement
