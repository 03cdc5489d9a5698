#include <sec_credu_api.h>

#include "ControlDirectory.h"
#include "CredentialSession.h"

struct sec_credu_session {
  SecCredu::CredentialSession session;
};

namespace {

// No exception may leave a C entry point.
template <class Result, class Function>
Result guarded(Result failure, Function function) {
  try {
    return function();
  } catch (...) {
    return failure;
  }
}

}  // namespace

extern "C" {

int sec_credu_available(void) {
  return guarded(0, [] { return SecCredu::ControlDirectory().isServiceAvailable() ? 1 : 0; });
}

sec_credu_session* sec_credu_open(void) {
  return guarded<sec_credu_session*>(nullptr, [] { return new sec_credu_session(); });
}

void sec_credu_close(sec_credu_session* session) { delete session; }

int sec_credu_subscribe(sec_credu_session* session, const char* node_credential, const char* trust_category) {
  return guarded(-1, [&] { return session->session.subscribe(node_credential, trust_category); });
}

int sec_credu_event_fd(const sec_credu_session* session) { return session->session.eventFd(); }

int sec_credu_dispatch(sec_credu_session* session) {
  return guarded(-1, [&] { return session->session.dispatch(); });
}

const char* sec_credu_file_name(sec_credu_session* session, sec_credu_file which) {
  return guarded<const char*>(nullptr, [&] { return session->session.fileName(which); });
}

}  // extern "C"
