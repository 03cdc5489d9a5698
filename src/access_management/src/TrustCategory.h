#ifndef QIV_ACCESS_MANAGEMENT_TRUST_CATEGORY_H
#define QIV_ACCESS_MANAGEMENT_TRUST_CATEGORY_H

#include <string>

namespace QivAccessManagement {

// The directory of trusted CA certificates, as the security API reports it for the referenced
// trust category.
struct TrustCategory {
  ~TrustCategory() = default;

  std::string trustCatDirName;
};

}  // namespace QivAccessManagement

#endif
