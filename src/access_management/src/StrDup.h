#ifndef QIV_ACCESS_MANAGEMENT_STR_DUP_H
#define QIV_ACCESS_MANAGEMENT_STR_DUP_H

namespace Ldap {

// A copy of text with its terminator in a new array, which the caller releases with delete[].
// A null text gives null.
char* StrDup(const char* text);

}  // namespace Ldap

#endif
