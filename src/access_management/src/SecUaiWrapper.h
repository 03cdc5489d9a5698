#ifndef QIV_ACCESS_MANAGEMENT_SEC_UAI_WRAPPER_H
#define QIV_ACCESS_MANAGEMENT_SEC_UAI_WRAPPER_H

#include "SecUaiApiSymbols.h"

#include <PymSpiTypes.h>

#include <string>
#include <vector>

namespace QivAccessManagement {

// Asks the security framework's user-authorization library for the roles of a user that its
// service module has authenticated. The library stays open for the wrapper's life; each query
// keeps its state on the stack, so any number of threads may query at once.
class SecUaiWrapper {
 public:
  // The library's name; the loader's search path decides where it comes from.
  static constexpr const char* LIBRARY_FILE_NAME = "libsec_acs_api.so.1";

  // Opens fileName; a library that cannot be opened leaves the wrapper unavailable.
  explicit SecUaiWrapper(const std::string& fileName);
  // Closes the library.
  virtual ~SecUaiWrapper();
  SecUaiWrapper(const SecUaiWrapper&) = delete;
  SecUaiWrapper& operator=(const SecUaiWrapper&) = delete;

  // True while the library is open, even when some of its entry points are missing.
  bool isUaiAvailable() const;

  // Appends the roles of user to roles, in the library's order. 0 on success (a user without
  // roles appends nothing); -2 when the library does not know the user; -1 for any other
  // failure, which only a trace reports, with the roles read before it left in roles. Also -1,
  // without calling the library, when it is unavailable or an entry point is missing.
  PymReturnT getRoles(const std::string& user, std::vector<std::string>& roles) const;

 private:
  bool hasAllFunctions() const;
  // Steps of getRoles on a started session: the count, then each role in turn. 0 or -1.
  PymReturnT readRoles(void* session, std::vector<std::string>& roles) const;
  // Release the session and the context; false (after the trace) when the library refused.
  bool stopSession(void* session) const;
  bool finalizeContext(void* context) const;

  SecUaiApiSymbols _symbols;
};

}  // namespace QivAccessManagement

#endif
