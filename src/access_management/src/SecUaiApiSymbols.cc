#include "SecUaiApiSymbols.h"

#include <cstdlib>

namespace QivAccessManagement {

SecUaiApiSymbols::SecUaiApiSymbols(const std::string& fileName)
    : libraryHandle(dlopen(fileName.c_str(), RTLD_LAZY)),
      initialize(nullptr),
      finalize(nullptr),
      sessionStart(nullptr),
      roleCount(nullptr),
      roleGet(nullptr),
      sessionStop(nullptr) {
  if (libraryHandle != nullptr) {
    fetchSymbols();
    QIV_TRACE("Sucessfully opened sec uai api so file: '%s', sec uai api will be used", fileName.c_str());
    return;
  }
  const char* reason = dlerror();
  QIV_TRACE("Failed to open sec uai api so file: '%s', sec uai api will not be used: %s", fileName.c_str(),
            reason != nullptr ? reason : "");
  const char* searchPath = std::getenv("LD_LIBRARY_PATH");
  QIV_TRACE("LD_LIBRARY_PATH: '%s'", searchPath != nullptr ? searchPath : "");
}

SecUaiApiSymbols::~SecUaiApiSymbols() { close(); }

bool SecUaiApiSymbols::fetchSymbols() {
  clearFunctions();
  return loadSymbol(initialize, "acs_uai_initialize") && loadSymbol(finalize, "acs_uai_finalize") &&
         loadSymbol(sessionStart, "acs_uai_user_session_start") &&
         loadSymbol(roleCount, "acs_uai_user_data_role_count_get") &&
         loadSymbol(roleGet, "acs_uai_user_data_role_get") && loadSymbol(sessionStop, "acs_uai_user_session_stop");
}

void SecUaiApiSymbols::close() {
  if (libraryHandle == nullptr) return;
  dlclose(libraryHandle);
  libraryHandle = nullptr;
  clearFunctions();
}

void SecUaiApiSymbols::clearFunctions() {
  initialize = nullptr;
  finalize = nullptr;
  sessionStart = nullptr;
  roleCount = nullptr;
  roleGet = nullptr;
  sessionStop = nullptr;
}

}  // namespace QivAccessManagement
