#ifndef QIV_REGULAR_EXPRESSION_H
#define QIV_REGULAR_EXPRESSION_H

#include <regex.h>

#include <string>

namespace Qiv {

// A POSIX regular expression; options is the sum of the regcomp flags (REG_EXTENDED 1,
// REG_ICASE 2, REG_NEWLINE 4, REG_NOSUB 8).
class RegularExpression {
 public:
  // Throws QivException with regcomp's error text when the pattern does not compile.
  RegularExpression(const std::string& pattern, int options);
  ~RegularExpression();
  RegularExpression(const RegularExpression&) = delete;
  RegularExpression& operator=(const RegularExpression&) = delete;

  // True when the pattern matches subject from offset on (offset beyond the end: false).
  bool match(const std::string& subject, std::string::size_type offset = 0) const;

 private:
  regex_t _regex;
};

}  // namespace Qiv

#endif
