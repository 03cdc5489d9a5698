#ifndef TOOLS_BESIDE_PROGRAM_H
#define TOOLS_BESIDE_PROGRAM_H

#include <string>

namespace Tools {

// Resolves a path compiled into a program: an absolute one (the build tree's) is returned as it
// is, a relative one is taken from the directory of the running program, so that an installed
// tree works wherever it is unpacked.
std::string besideProgram(const std::string& path);

}  // namespace Tools

#endif
