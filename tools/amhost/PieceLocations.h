#ifndef AMHOST_PIECE_LOCATIONS_H
#define AMHOST_PIECE_LOCATIONS_H

#include <string>

namespace Amhost {

// Where amhost finds the component library and the node's stand-ins: compiled in, as absolute
// paths into the build tree, or for the installed amhost relative to its own directory.
class PieceLocations {
 public:
  static std::string componentLibrary();
  // The directories of qivea and acs-config-update, colon-separated for the front of PATH.
  static std::string nodeProgramDirectories();
  // The stand-in of the security framework's user-authorization library.
  static std::string secAcsLibrary();
};

}  // namespace Amhost

#endif
