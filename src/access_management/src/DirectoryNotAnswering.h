#ifndef QIV_ACCESS_MANAGEMENT_DIRECTORY_NOT_ANSWERING_H
#define QIV_ACCESS_MANAGEMENT_DIRECTORY_NOT_ANSWERING_H

#include <stdexcept>
#include <string>

namespace QivAccessManagement {

// A search of the built-in lookup that got no answer: it ends the lookup wherever it happened,
// alias searches included. Never leaves the lookup.
class DirectoryNotAnswering : public std::runtime_error {
 public:
  explicit DirectoryNotAnswering(const std::string& server) : std::runtime_error(server) {}
};

}  // namespace QivAccessManagement

#endif
