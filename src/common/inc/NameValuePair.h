#ifndef QIV_NAME_VALUE_PAIR_H
#define QIV_NAME_VALUE_PAIR_H

#include <string>

namespace Qiv {

// One filter entry of an event subscription.
struct NameValuePair {
  NameValuePair(const std::string& n, const std::string& v) : name(n), value(v) {}

  std::string name;
  std::string value;
};

}  // namespace Qiv

#endif
