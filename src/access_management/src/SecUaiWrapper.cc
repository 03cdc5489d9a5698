#include "SecUaiWrapper.h"

#include <Qiv/LoggingWrapper.h>

#include <sys/types.h>

#include <cstdlib>
#include <memory>

namespace QivAccessManagement {

SecUaiWrapper::SecUaiWrapper(const std::string& fileName) : _symbols(fileName) {}

SecUaiWrapper::~SecUaiWrapper() { _symbols.close(); }

bool SecUaiWrapper::isUaiAvailable() const { return _symbols.libraryHandle != nullptr; }

// Whatever step fails, the session and the context that were obtained are still released, so
// that a long-running node does not pile up library state; the result stays that of the first
// failure.
PymReturnT SecUaiWrapper::getRoles(const std::string& user, std::vector<std::string>& roles) const {
  if (!isUaiAvailable() || !hasAllFunctions()) return -1;

  void* context = nullptr;
  AcsStatus status = _symbols.initialize(&context);
  if (status != ACS_STATUS_SUCCESS) {
    QIV_TRACE("acs_uai_initialize failed: %d", status);
    return -1;
  }

  void* session = nullptr;
  status = _symbols.sessionStart(context, user.c_str(), &session);
  if (status != ACS_STATUS_SUCCESS) {
    QIV_TRACE("acs_uai_user_session_start failed: %d", status);
    finalizeContext(context);
    return status == ACS_STATUS_NO_SUCH_USER ? -2 : -1;
  }

  PymReturnT result = readRoles(session, roles);
  if (!stopSession(session)) result = -1;
  if (!finalizeContext(context)) result = -1;
  return result;
}

bool SecUaiWrapper::hasAllFunctions() const {
  return _symbols.initialize != nullptr && _symbols.finalize != nullptr && _symbols.sessionStart != nullptr &&
         _symbols.roleCount != nullptr && _symbols.roleGet != nullptr && _symbols.sessionStop != nullptr;
}

PymReturnT SecUaiWrapper::readRoles(void* session, std::vector<std::string>& roles) const {
  unsigned int count = 0;
  AcsStatus status = _symbols.roleCount(session, &count);
  if (status != ACS_STATUS_SUCCESS) {
    QIV_TRACE("acs_uai_user_data_role_count_get failed: %d", status);
    return -1;
  }
  QIV_TRACE("roleCount: %zd", static_cast<ssize_t>(count));

  for (unsigned int index = 0; index < count; ++index) {
    char* text = nullptr;
    status = _symbols.roleGet(session, index, &text);
    if (status != ACS_STATUS_SUCCESS) {
      QIV_TRACE("acs_uai_user_data_role_get index %d failed: %d", static_cast<int>(index), status);
      return -1;
    }
    const std::unique_ptr<char, void (*)(void*)> role(text, std::free);
    QIV_TRACE("role: %s", role.get());
    roles.push_back(role.get());
  }
  return 0;
}

bool SecUaiWrapper::stopSession(void* session) const {
  const AcsStatus status = _symbols.sessionStop(&session);
  if (status == ACS_STATUS_SUCCESS) return true;
  QIV_TRACE("acs_uai_user_session_stop failed: %d", status);
  return false;
}

bool SecUaiWrapper::finalizeContext(void* context) const {
  const AcsStatus status = _symbols.finalize(&context);
  if (status == ACS_STATUS_SUCCESS) return true;
  QIV_TRACE("acs_uai_finalize failed: %d", status);
  return false;
}

}  // namespace QivAccessManagement
