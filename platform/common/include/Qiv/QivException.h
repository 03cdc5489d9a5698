#ifndef QIV_QIV_EXCEPTION_H
#define QIV_QIV_EXCEPTION_H

#include <exception>
#include <string>

namespace Qiv {

// Failure of a platform or component operation, with a printf-style message and a code.
class QivException : public std::exception {
 public:
  // Code -1.
  explicit QivException(const char* format, ...) __attribute__((format(printf, 2, 3)));
  QivException(int code, const char* format, ...) __attribute__((format(printf, 3, 4)));

  const char* what() const noexcept override;
  int code() const noexcept;

 private:
  int _code;
  std::string _message;
};

}  // namespace Qiv

#endif
