#include <Qiv/QivException.h>
#include <Qiv/RegularExpression.h>

#include <vector>

namespace Qiv {

RegularExpression::RegularExpression(const std::string& pattern, int options) {
  const int rc = regcomp(&_regex, pattern.c_str(), options);
  if (rc != 0) {
    // regcomp leaves nothing to free when it fails.
    std::vector<char> message(regerror(rc, &_regex, nullptr, 0));
    regerror(rc, &_regex, message.data(), message.size());
    throw QivException("Invalid regular expression '%s': %s", pattern.c_str(), message.data());
  }
}

RegularExpression::~RegularExpression() { regfree(&_regex); }

bool RegularExpression::match(const std::string& subject, std::string::size_type offset) const {
  if (offset > subject.size()) return false;
  // No match positions are asked for, so patterns compiled with REG_NOSUB work as well.
  return regexec(&_regex, subject.c_str() + offset, 0, nullptr, 0) == 0;
}

}  // namespace Qiv
