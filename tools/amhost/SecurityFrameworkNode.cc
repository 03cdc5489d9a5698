#include "SecurityFrameworkNode.h"

#include <dlfcn.h>

#include <cstdlib>
#include <stdexcept>

namespace Amhost {

SecurityFrameworkNode::SecurityFrameworkNode(const std::string& psoClearPath)
    : _psoClearPath(psoClearPath), _userAuthorization(nullptr) {
  const char* path = std::getenv("PATH");
  const std::string programs = std::string(QIV_NODE_PROGRAM_DIRECTORIES) + (path != nullptr ? std::string(":") + path : "");
  ::setenv("PATH", programs.c_str(), 1);
  ::setenv("QIVEA_PSO_CLEAR", psoClearPath.c_str(), 1);
  _userAuthorization = ::dlopen(SEC_ACS_LIBRARY, RTLD_NOW | RTLD_LOCAL);
  if (_userAuthorization == nullptr) throw std::runtime_error(std::string("cannot load ") + SEC_ACS_LIBRARY + ": " + ::dlerror());
}

SecurityFrameworkNode::~SecurityFrameworkNode() { ::dlclose(_userAuthorization); }

}  // namespace Amhost
