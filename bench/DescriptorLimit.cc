#include "DescriptorLimit.h"

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>

namespace Bench {

namespace {

const rlim_t USUAL_DEFAULT = 1024;

rlimit current() {
  rlimit limit;
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0)
    throw std::runtime_error("cannot read the descriptor limit: " + std::string(std::strerror(errno)));
  return limit;
}

void setSoft(rlim_t soft) {
  rlimit limit = current();
  limit.rlim_cur = soft;
  if (::setrlimit(RLIMIT_NOFILE, &limit) != 0)
    throw std::runtime_error("cannot set the descriptor limit to " + std::to_string(soft) + ": " +
                             std::strerror(errno));
}

}  // namespace

DescriptorLimit::DescriptorLimit(rlim_t soft) : _previous(current()) { setSoft(soft); }

DescriptorLimit::~DescriptorLimit() { ::setrlimit(RLIMIT_NOFILE, &_previous); }

std::vector<rlim_t> DescriptorLimit::compared() {
  const rlim_t hard = current().rlim_max;
  if (hard <= USUAL_DEFAULT) return {hard};
  return {USUAL_DEFAULT, hard};
}

}  // namespace Bench
