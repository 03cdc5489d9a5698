#ifndef AMHOST_FILE_LISTING_H
#define AMHOST_FILE_LISTING_H

#include <ostream>
#include <string>

namespace Amhost {

// What lies below a directory, as a person checks what a program wrote there: one line per file
// or directory, "MODE GROUP PATH", the mode in four octal digits (set-group-id included), the
// group by name (by number when the group database has none), the path relative to the
// directory with a "/" after directories; sorted by path.
class FileListing {
 public:
  explicit FileListing(const std::string& root);

  // False, with the reason on err, when the directory cannot be read.
  bool print(std::ostream& out, std::ostream& err) const;

 private:
  // The group's name, or its number.
  static std::string groupName(unsigned gid);

  const std::string _root;
};

}  // namespace Amhost

#endif
