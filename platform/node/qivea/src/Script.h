#ifndef QIVEA_SCRIPT_H
#define QIVEA_SCRIPT_H

#include "QiveaHome.h"

#include <optional>
#include <string>
#include <vector>

namespace Qivea {

// An answer scripted by a test in the directory <home>/script/<key>, key being the first two
// words of the command line ("pso clear") or else its first word ("spi-revision"). A script
// replaces the command's own answer entirely; its files, all optional, act in this order:
//   leave-group      move into the parent's process group, out of reach of a kill of its own group
//   grandchild       start a silent grandchild in this process group that lives <content>
//                    seconds (default 30); its pid goes to <home>/grandchild.pid. Changed by:
//     grandchild-keeps-output   the grandchild keeps standard output and error open, as a
//                               helper started in the background does
//     grandchild-leaves-group   the grandchild has a process group of its own, out of reach of a
//                               kill of this one
//   delay-ms         sleep that many milliseconds
//   stdout-bytes     print that many bytes ('x') on standard output
//   stdout, stderr   print the file's content as it stands
//   unknown-command  print "unknown command" on standard error and exit with 1
//   hang             sleep until killed
//   signal           end by that signal
//   exit             the exit status (default 0)
class Script {
 public:
  // The script for args, if there is one.
  static std::optional<Script> find(const QiveaHome& home, const std::vector<std::string>& args);

  // Plays the script and returns the exit status; with hang or signal it does not return.
  int play() const;

 private:
  Script(const QiveaHome& home, const std::string& key);

  bool has(const char* name) const;
  std::string content(const char* name) const;
  // The file's content as a whole number (surrounding white space ignored), or defaultValue
  // when the file is missing or blank. Throws CommandFailure for any other content.
  long number(const char* name, long defaultValue) const;

  void startGrandchild() const;

  const QiveaHome& _home;
  std::string _key;
  std::string _directory;
};

}  // namespace Qivea

#endif
