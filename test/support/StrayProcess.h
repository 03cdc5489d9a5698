#ifndef TEST_STRAY_PROCESS_H
#define TEST_STRAY_PROCESS_H

#include <csignal>
#include <fstream>
#include <functional>
#include <string>
#include <utility>

#include <sys/types.h>

// A process that a stand-in started out of reach of the component's kill (a grandchild in a
// process group of its own, a hung run that a failing test leaves): killed when the object goes,
// so that a test leaves nothing running whether it passed or not. The pid is asked for then,
// and only a process of the stand-in's name is killed, never one that took the number over.
class StrayProcess {
 public:
  // pidOf gives the pid (0: none), programName the stand-in's program name as /proc shows it.
  StrayProcess(std::function<int()> pidOf, std::string programName)
      : _pidOf(std::move(pidOf)), _programName(std::move(programName)) {}
  ~StrayProcess() { kill(); }
  StrayProcess(const StrayProcess&) = delete;
  StrayProcess& operator=(const StrayProcess&) = delete;

  // Whether the process runs now.
  bool isRunning() const { return isStandIn(_pidOf()); }

  void kill() const {
    const int pid = _pidOf();
    if (isStandIn(pid)) ::kill(pid, SIGKILL);
  }

 private:
  // A live (not zombie) process of the stand-in's name; /proc shows at most 15 characters of it.
  bool isStandIn(int pid) const {
    if (pid <= 0) return false;
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string line;
    if (!std::getline(stat, line)) return false;
    const std::string::size_type open = line.find('(');
    const std::string::size_type close = line.rfind(')');
    if (open == std::string::npos || close == std::string::npos || close + 2 >= line.size()) return false;
    return line.substr(open + 1, close - open - 1) == _programName.substr(0, 15) && line[close + 2] != 'Z';
  }

  std::function<int()> _pidOf;
  std::string _programName;
};

#endif
