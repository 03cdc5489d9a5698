#include <Qiv/LoggingWrapper.h>
#include <Qiv/SecApi.h>
#include <sec_credu_api.h>

#include <dlfcn.h>

namespace Qiv {

// The opened library, its entry points and the session opened through them.
struct SecApi::Library {
  explicit Library(void* library) : handle(library) {}
  ~Library() {
    if (session != nullptr) close(session);
    dlclose(handle);
  }
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;

  void* const handle;
  decltype(&sec_credu_available) available = nullptr;
  decltype(&sec_credu_open) open = nullptr;
  decltype(&sec_credu_close) close = nullptr;
  decltype(&sec_credu_subscribe) subscribe = nullptr;
  decltype(&sec_credu_event_fd) eventFd = nullptr;
  decltype(&sec_credu_dispatch) dispatch = nullptr;
  decltype(&sec_credu_file_name) fileName = nullptr;
  sec_credu_session* session = nullptr;
};

namespace {

template <class Function>
bool resolve(void* handle, const char* name, Function& function) {
  function = reinterpret_cast<Function>(dlsym(handle, name));
  if (function != nullptr) return true;
  QIV_TRACE("Cannot find %s in %s: %s", name, SEC_CREDU_API_LIBRARY, dlerror());
  return false;
}

}  // namespace

SecApi::SecApi() : _library(openLibrary()) {}

SecApi::~SecApi() = default;

std::unique_ptr<SecApi::Library> SecApi::openLibrary() {
  void* handle = dlopen(SEC_CREDU_API_LIBRARY, RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) {
    QIV_TRACE("Cannot open %s: %s", SEC_CREDU_API_LIBRARY, dlerror());
    return nullptr;
  }
  std::unique_ptr<Library> library(new Library(handle));
  if (!resolve(handle, "sec_credu_available", library->available) ||
      !resolve(handle, "sec_credu_open", library->open) || !resolve(handle, "sec_credu_close", library->close) ||
      !resolve(handle, "sec_credu_subscribe", library->subscribe) ||
      !resolve(handle, "sec_credu_event_fd", library->eventFd) ||
      !resolve(handle, "sec_credu_dispatch", library->dispatch) ||
      !resolve(handle, "sec_credu_file_name", library->fileName)) {
    return nullptr;
  }
  library->session = library->open();
  if (library->session == nullptr) {
    QIV_TRACE("Cannot open a session with %s", SEC_CREDU_API_LIBRARY);
    return nullptr;
  }
  return library;
}

bool SecApi::isAvailable() const { return _library != nullptr && _library->available() == 1; }

int SecApi::subscribe(const std::string& nodeCredentialMoRef, const std::string& trustCategoryMoRef) {
  if (_library == nullptr) return -1;
  return _library->subscribe(_library->session, nodeCredentialMoRef.c_str(), trustCategoryMoRef.c_str()) == 0 ? 0 : -1;
}

int SecApi::getEventFd() const { return _library != nullptr ? _library->eventFd(_library->session) : -1; }

bool SecApi::handleEvent() {
  if (_library == nullptr) return false;
  const int result = _library->dispatch(_library->session);
  if (result < 0) QIV_LOG(4, "Could not read the certificate event (%d)", result);
  return result == 1;
}

std::string SecApi::getNodeCertFileName() { return getFileName(SEC_CREDU_NODE_CERT_FILE); }

std::string SecApi::getNodeKeyFileName() { return getFileName(SEC_CREDU_NODE_KEY_FILE); }

std::string SecApi::getTrustCatDirName() { return getFileName(SEC_CREDU_TRUST_CATEGORY_DIR); }

std::string SecApi::getFileName(int which) {
  if (_library == nullptr) return std::string();
  const char* name = _library->fileName(_library->session, static_cast<sec_credu_file>(which));
  return name != nullptr ? name : std::string();
}

}  // namespace Qiv
