#ifndef QIV_ACCESS_MANAGEMENT_SEC_UAI_API_SYMBOLS_H
#define QIV_ACCESS_MANAGEMENT_SEC_UAI_API_SYMBOLS_H

#include <Qiv/LoggingWrapper.h>

#include <cstdint>
#include <string>

#include <dlfcn.h>

namespace QivAccessManagement {

// Status of every call into the security framework's user-authorization library.
typedef int32_t AcsStatus;

// Success of every call; any other status is a failure.
const AcsStatus ACS_STATUS_SUCCESS = 1;
// Session start: the framework does not know the user.
const AcsStatus ACS_STATUS_NO_SUCH_USER = 6;

// The library's entry points. Contexts and sessions are opaque handles of the library.
typedef AcsStatus (*AcsInitializeFunction)(void** context);
typedef AcsStatus (*AcsFinalizeFunction)(void** context);
typedef AcsStatus (*AcsSessionStartFunction)(void* context, const char* user, void** session);
typedef AcsStatus (*AcsRoleCountFunction)(void* session, unsigned int* count);
// The role text is allocated by the library; the caller frees it with free.
typedef AcsStatus (*AcsRoleGetFunction)(void* session, unsigned int index, char** role);
typedef AcsStatus (*AcsSessionStopFunction)(void** session);

// The user-authorization library, opened at run time because a node may lack it, and its six
// entry points. A pointer is null while its symbol is not resolved. Set up by the constructor
// only, so once built any thread may call through the pointers.
class SecUaiApiSymbols {
 public:
  // Opens fileName with the loader's search path (lazy binding) and resolves the entry points;
  // the outcome is traced, never thrown.
  explicit SecUaiApiSymbols(const std::string& fileName);
  // Closes the library.
  ~SecUaiApiSymbols();
  SecUaiApiSymbols(const SecUaiApiSymbols&) = delete;
  SecUaiApiSymbols& operator=(const SecUaiApiSymbols&) = delete;

  // Resolves the six entry points in the order of the fields below, stopping at the first one
  // that is missing: it and those after it stay null. True only when all were found.
  bool fetchSymbols();

  // Resolves name in the open library into pointer; true on success. Otherwise the pointer is
  // null, the loader's reason is traced (when the library is open) and the result is false.
  template <class Function>
  bool loadSymbol(Function& pointer, const char* name) {
    pointer = nullptr;
    if (libraryHandle == nullptr) return false;
    dlerror();
    void* symbol = dlsym(libraryHandle, name);
    if (symbol == nullptr) {
      const char* reason = dlerror();
      QIV_TRACE("Cannot load sec uai api symbol '%s': %s", name, reason != nullptr ? reason : "null symbol");
      return false;
    }
    pointer = reinterpret_cast<Function>(symbol);
    return true;
  }

  // Closes the library when it is open; the handle and every entry point become null. Only
  // while no other thread calls through the pointers.
  void close();

  void* libraryHandle;
  AcsInitializeFunction initialize;
  AcsFinalizeFunction finalize;
  AcsSessionStartFunction sessionStart;
  AcsRoleCountFunction roleCount;
  AcsRoleGetFunction roleGet;
  AcsSessionStopFunction sessionStop;

 private:
  void clearFunctions();
};

}  // namespace QivAccessManagement

#endif
