#include <Framework/ComponentLibrary.h>

#include <dlfcn.h>

#include <stdexcept>

namespace Framework {

namespace {

std::string loaderError() {
  const char* error = dlerror();
  return error != nullptr ? error : "unknown loader error";
}

}  // namespace

ComponentLibrary::ComponentLibrary(const std::string& path) : _handle(nullptr), _init(nullptr), _terminate(nullptr) {
  _handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (_handle == nullptr) throw std::runtime_error("cannot load " + path + ": " + loaderError());
  _init = reinterpret_cast<PymLCMinitFunction>(dlsym(_handle, "pymLCMinit"));
  _terminate = reinterpret_cast<PymLCMterminateFunction>(dlsym(_handle, "pymLCMterminate"));
  if (_init == nullptr || _terminate == nullptr) {
    const std::string error = loaderError();
    dlclose(_handle);
    throw std::runtime_error(path + " is not a component library: " + error);
  }
}

ComponentLibrary::~ComponentLibrary() { dlclose(_handle); }

PymReturnT ComponentLibrary::init(PymMgmtSpiInterfacePortalAccessor* accessor, const char* config) const {
  return _init(accessor, config);
}

PymReturnT ComponentLibrary::terminate() const { return _terminate(); }

void* ComponentLibrary::symbol(const std::string& name) const { return dlsym(_handle, name.c_str()); }

}  // namespace Framework
