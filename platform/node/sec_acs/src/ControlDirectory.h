#ifndef SEC_ACS_CONTROL_DIRECTORY_H
#define SEC_ACS_CONTROL_DIRECTORY_H

#include <sec_acs_api.h>

#include <string>
#include <vector>

namespace SecAcs {

// The stand-in's script: the directory that SEC_ACS_HOME names when the object is made, with the
// files described in sec_acs_api.h. Nothing is cached, so any number of threads may each use
// objects of their own.
class ControlDirectory {
 public:
  ControlDirectory();

  // True with the user's roles when "users" lists name.
  bool findUser(const std::string& name, std::vector<std::string>& roles) const;

  // True with the status to return when "fail/<function>" scripts a failure; an index in the
  // file is ignored.
  bool scriptedFailure(const std::string& function, acs_status_t& status) const;
  // As scriptedFailure, for a call that has a role index: an index in the file must match.
  bool scriptedFailure(const std::string& function, unsigned index, acs_status_t& status) const;

  // Appends one line to "calls": the fields joined by tabs. Best effort: a directory that cannot
  // be written only loses the record.
  void recordCall(const std::vector<std::string>& fields) const;

 private:
  // The status of "fail/<function>", and whether the file restricts it to one index.
  bool readFailure(const std::string& function, acs_status_t& status, bool& hasIndex, unsigned& index) const;
  std::string path(const std::string& name) const;

  std::string _home;
};

}  // namespace SecAcs

#endif
