#include "AmQivEaWrapperTimeout.h"

#include <Poco/Exception.h>
#include <Poco/Process.h>
#include <Qiv/LoggingWrapper.h>

#include <csignal>

namespace QivAccessManagement {

AmQivEaWrapperTimeout::AmQivEaWrapperTimeout()
    : AmQivEaWrapperTimeout(4, "Timer has expired, killing process (pid %d)") {}

AmQivEaWrapperTimeout::AmQivEaWrapperTimeout(int level, const char* expiredFormat)
    : _level(level), _expiredFormat(expiredFormat), _processId(0), _expired(false) {}

void AmQivEaWrapperTimeout::setProcessId(int processId) { _processId = processId; }

bool AmQivEaWrapperTimeout::isExpired() const { return _expired; }

void AmQivEaWrapperTimeout::onTimer(Qiv::Timer& timer) {
  const int processId = _processId;
  QIV_LOG(_level, _expiredFormat, processId);
  // Without a child the negated pid would name the caller's own process group.
  if (processId > 0) {
    try {
      Poco::Process::kill(-processId);
    } catch (const Poco::Exception& e) {
      // The group is gone (the child ended just now, or left its group); the time is up all the same.
      QIV_LOG(4, "Could not kill the process group of pid %d: %s", processId, e.displayText().c_str());
    }
    // A child that left its group would otherwise keep its caller waiting for as long as it runs.
    ::kill(processId, SIGKILL);
  }
  _expired = true;
}

}  // namespace QivAccessManagement
