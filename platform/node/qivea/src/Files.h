#ifndef QIVEA_FILES_H
#define QIVEA_FILES_H

#include <string>

// File operations of the stand-in; failures throw CommandFailure naming the path.
namespace Qivea {

// False when path cannot be opened; text then stays empty.
bool readFile(const std::string& path, std::string& text);
bool exists(const std::string& path);
// Replaces path as a whole: written under a hidden name next to it, then renamed.
void writeFileAtomically(const std::string& path, const std::string& content, unsigned mode);
// Creates path and any missing parent with mode; an existing directory is fine.
void makeDirectories(const std::string& path, unsigned mode);
// Writes all of data to descriptor fd, blocking while a pipe is full.
void writeAll(int fd, const std::string& data);

}  // namespace Qivea

#endif
