#ifndef FRAMEWORK_COMPONENT_LIBRARY_H
#define FRAMEWORK_COMPONENT_LIBRARY_H

#include <PymMgmtSpiComponent.h>

#include <string>

namespace Framework {

// A component library loaded with dlopen, with its two entry points. Unloaded on destruction.
class ComponentLibrary {
 public:
  // Throws std::runtime_error with the loader's message when the file cannot be loaded or lacks
  // pymLCMinit or pymLCMterminate.
  explicit ComponentLibrary(const std::string& path);
  ~ComponentLibrary();
  ComponentLibrary(const ComponentLibrary&) = delete;
  ComponentLibrary& operator=(const ComponentLibrary&) = delete;

  PymReturnT init(PymMgmtSpiInterfacePortalAccessor* accessor, const char* config) const;
  PymReturnT terminate() const;

  // Another exported symbol, or null.
  void* symbol(const std::string& name) const;

 private:
  void* _handle;
  PymLCMinitFunction _init;
  PymLCMterminateFunction _terminate;
};

}  // namespace Framework

#endif
