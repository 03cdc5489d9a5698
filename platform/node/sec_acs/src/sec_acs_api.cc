#include <sec_acs_api.h>

#include "ControlDirectory.h"

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

// Only its address matters: the stand-in keeps nothing per context.
struct Context {};

// The user a session was started for, with the roles listed when it started.
struct Session {
  std::string user;
  std::vector<std::string> roles;
};

std::string userOf(const void* session) {
  return session != nullptr ? static_cast<const Session*>(session)->user : "(null)";
}

// Records the call; true, with the status to return, when the control directory scripts it to fail.
bool scriptedToFail(const SecAcs::ControlDirectory& control, const std::vector<std::string>& call,
                    acs_status_t& status) {
  control.recordCall(call);
  return control.scriptedFailure(call.front(), status);
}

// No exception may leave a C entry point.
template <class Function>
acs_status_t guarded(Function function) {
  try {
    return function();
  } catch (...) {
    return ACS_UAI_FAILURE;
  }
}

}  // namespace

extern "C" {

acs_status_t acs_uai_initialize(void** context) {
  return guarded([&] {
    acs_status_t status;
    if (scriptedToFail(SecAcs::ControlDirectory(), {"acs_uai_initialize"}, status)) return status;
    if (context == nullptr) return ACS_UAI_INVALID_ARGUMENT;
    *context = new Context;
    return ACS_UAI_SUCCESS;
  });
}

acs_status_t acs_uai_finalize(void** context) {
  return guarded([&] {
    acs_status_t status = ACS_UAI_SUCCESS;
    scriptedToFail(SecAcs::ControlDirectory(), {"acs_uai_finalize"}, status);
    if (context == nullptr || *context == nullptr) return ACS_UAI_INVALID_ARGUMENT;
    delete static_cast<Context*>(*context);
    *context = nullptr;
    return status;
  });
}

acs_status_t acs_uai_user_session_start(void* context, const char* user, void** session) {
  return guarded([&] {
    const SecAcs::ControlDirectory control;
    acs_status_t status;
    if (scriptedToFail(control, {"acs_uai_user_session_start", user != nullptr ? user : "(null)"}, status)) {
      return status;
    }
    if (context == nullptr || user == nullptr || session == nullptr) return ACS_UAI_INVALID_ARGUMENT;
    Session* started = new Session{user, {}};
    if (!control.findUser(user, started->roles)) {
      delete started;
      return ACS_UAI_NO_SUCH_USER;
    }
    *session = started;
    return ACS_UAI_SUCCESS;
  });
}

acs_status_t acs_uai_user_session_stop(void** session) {
  return guarded([&] {
    acs_status_t status = ACS_UAI_SUCCESS;
    const void* stopped = session != nullptr ? *session : nullptr;
    scriptedToFail(SecAcs::ControlDirectory(), {"acs_uai_user_session_stop", userOf(stopped)}, status);
    if (session == nullptr || *session == nullptr) return ACS_UAI_INVALID_ARGUMENT;
    delete static_cast<Session*>(*session);
    *session = nullptr;
    return status;
  });
}

// Left out of the build that proves how clients cope with a missing symbol.
#ifndef SEC_ACS_WITHOUT_ROLE_COUNT_GET
acs_status_t acs_uai_user_data_role_count_get(void* session, unsigned int* count) {
  return guarded([&] {
    acs_status_t status;
    if (scriptedToFail(SecAcs::ControlDirectory(), {"acs_uai_user_data_role_count_get", userOf(session)}, status)) {
      return status;
    }
    if (session == nullptr || count == nullptr) return ACS_UAI_INVALID_ARGUMENT;
    *count = static_cast<unsigned int>(static_cast<const Session*>(session)->roles.size());
    return ACS_UAI_SUCCESS;
  });
}
#endif

acs_status_t acs_uai_user_data_role_get(void* session, unsigned int index, char** role) {
  return guarded([&] {
    const SecAcs::ControlDirectory control;
    control.recordCall({"acs_uai_user_data_role_get", userOf(session), std::to_string(index)});
    acs_status_t status;
    if (control.scriptedFailure("acs_uai_user_data_role_get", index, status)) return status;
    if (session == nullptr || role == nullptr) return ACS_UAI_INVALID_ARGUMENT;
    const std::vector<std::string>& roles = static_cast<const Session*>(session)->roles;
    if (index >= roles.size()) return ACS_UAI_NO_SUCH_ROLE;
    *role = ::strdup(roles[index].c_str());
    return *role != nullptr ? ACS_UAI_SUCCESS : ACS_UAI_FAILURE;
  });
}

}  // extern "C"
