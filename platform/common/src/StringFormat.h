#ifndef QIV_STRING_FORMAT_H
#define QIV_STRING_FORMAT_H

#include <cstdarg>
#include <string>

namespace Qiv {

// printf-style formatting into a string of whatever length the result needs.
// Throws std::bad_alloc.
std::string vformat(const char* format, va_list args);

}  // namespace Qiv

#endif
