#include <Qiv/QivException.h>

#include <cstdarg>

#include "StringFormat.h"

namespace Qiv {

QivException::QivException(const char* format, ...) : _code(-1) {
  va_list args;
  va_start(args, format);
  _message = vformat(format, args);
  va_end(args);
}

QivException::QivException(int code, const char* format, ...) : _code(code) {
  va_list args;
  va_start(args, format);
  _message = vformat(format, args);
  va_end(args);
}

const char* QivException::what() const noexcept { return _message.c_str(); }

int QivException::code() const noexcept { return _code; }

}  // namespace Qiv
