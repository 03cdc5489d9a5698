#ifndef FRAMEWORK_DN_H
#define FRAMEWORK_DN_H

#include <string>

namespace Framework {

// Distinguished names ("A=1,B=2") and the comma-form class paths derived from them ("A,B").
class Dn {
 public:
  // The class path of dn; throws std::invalid_argument when an element is not "Class=value"
  // with both parts non-empty.
  static std::string classPath(const std::string& dn);
  // The class path in the slash form object implementers register ("A=1,B=2" gives "/A/B");
  // throws like classPath.
  static std::string implementerPath(const std::string& dn);
  // dn without its last element; "" for a root object.
  static std::string parent(const std::string& dn);
  // The last element of a comma-form path ("A,B" gives "B").
  static std::string lastElement(const std::string& path);
};

}  // namespace Framework

#endif
