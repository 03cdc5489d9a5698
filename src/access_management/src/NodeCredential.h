#ifndef QIV_ACCESS_MANAGEMENT_NODE_CREDENTIAL_H
#define QIV_ACCESS_MANAGEMENT_NODE_CREDENTIAL_H

#include <string>

namespace QivAccessManagement {

// The node's certificate and key files, as the security API reports them for the referenced
// node credential.
struct NodeCredential {
  ~NodeCredential() = default;

  std::string nodeCertFileName;
  std::string nodeKeyFileName;
};

}  // namespace QivAccessManagement

#endif
