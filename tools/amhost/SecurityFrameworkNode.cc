#include "SecurityFrameworkNode.h"

#include "PieceLocations.h"

#include <dlfcn.h>

#include <cstdlib>
#include <stdexcept>

namespace Amhost {

SecurityFrameworkNode::SecurityFrameworkNode(const std::string& psoClearPath)
    : _psoClearPath(psoClearPath), _userAuthorization(nullptr) {
  const char* path = std::getenv("PATH");
  const std::string programs = PieceLocations::nodeProgramDirectories() + (path != nullptr ? std::string(":") + path : "");
  ::setenv("PATH", programs.c_str(), 1);
  ::setenv("QIVEA_PSO_CLEAR", psoClearPath.c_str(), 1);
  const std::string library = PieceLocations::secAcsLibrary();
  _userAuthorization = ::dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (_userAuthorization == nullptr) throw std::runtime_error("cannot load " + library + ": " + ::dlerror());
}

SecurityFrameworkNode::~SecurityFrameworkNode() { ::dlclose(_userAuthorization); }

}  // namespace Amhost
