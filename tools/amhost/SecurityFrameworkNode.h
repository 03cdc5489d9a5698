#ifndef AMHOST_SECURITY_FRAMEWORK_NODE_H
#define AMHOST_SECURITY_FRAMEWORK_NODE_H

#include <string>

namespace Amhost {

// Makes the host look like a node with the security framework, before the component is loaded:
// the stand-ins of qivea and "acs-config-update" first on PATH, qivea's PSO clear path the
// directory a person names (QIVEA_PSO_CLEAR), and the stand-in of the user-authorization
// library loaded, so that the component's open by the bare name finds it. Changes the
// process's environment: made once, on the main thread, before any other thread runs.
class SecurityFrameworkNode {
 public:
  // Throws std::runtime_error when the library cannot be loaded.
  explicit SecurityFrameworkNode(const std::string& psoClearPath);
  // Unloads the library; the component must be gone by then.
  ~SecurityFrameworkNode();
  SecurityFrameworkNode(const SecurityFrameworkNode&) = delete;
  SecurityFrameworkNode& operator=(const SecurityFrameworkNode&) = delete;

  const std::string& psoClearPath() const { return _psoClearPath; }

 private:
  const std::string _psoClearPath;
  void* _userAuthorization;
};

}  // namespace Amhost

#endif
