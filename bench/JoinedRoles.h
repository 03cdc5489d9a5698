#ifndef BENCH_JOINED_ROLES_H
#define BENCH_JOINED_ROLES_H

#include <string>
#include <vector>

namespace Bench {

// Role names as one text, comma-separated in their order: as the component's roles string and
// the qivea stand-in's users file hold them.
inline std::string joinedRoles(const std::vector<std::string>& roles) {
  std::string text;
  for (const std::string& role : roles) text += (text.empty() ? "" : ",") + role;
  return text;
}

}  // namespace Bench

#endif
