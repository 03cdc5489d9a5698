#include "PieceLocations.h"

#include "BesideProgram.h"

namespace Amhost {

std::string PieceLocations::componentLibrary() { return Tools::besideProgram(QIV_COMPONENT_LIBRARY); }

std::string PieceLocations::nodeProgramDirectories() {
  const std::string directories = QIV_NODE_PROGRAM_DIRECTORIES;
  std::string resolved;
  for (std::string::size_type start = 0; start <= directories.size();) {
    std::string::size_type end = directories.find(':', start);
    if (end == std::string::npos) end = directories.size();
    if (!resolved.empty()) resolved += ':';
    resolved += Tools::besideProgram(directories.substr(start, end - start));
    start = end + 1;
  }
  return resolved;
}

std::string PieceLocations::secAcsLibrary() { return Tools::besideProgram(SEC_ACS_LIBRARY); }

}  // namespace Amhost
