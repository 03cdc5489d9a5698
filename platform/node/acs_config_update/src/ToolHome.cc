#include "ToolHome.h"

#include "OpenDescriptors.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>

namespace AcsConfigUpdate {

ToolHome::ToolHome() {
  const char* home = std::getenv("ACS_CONFIG_UPDATE_HOME");
  if (home != nullptr) _home = home;
}

void ToolHome::recordCall(const std::vector<std::string>& args) const {
  if (_home.empty()) return;
  // Asked for by creating the directory; taken before this program opens anything itself.
  const std::string descriptors = exists("descriptors") ? openDescriptors() : std::string();
  std::string record;
  for (const std::string& arg : args) record.append(arg).push_back('\0');
  std::filesystem::create_directories(path("calls"));
  // Written under a hidden name and then linked to the first free number, so that a reader
  // never sees half a call and two calls at once never share a number.
  const std::string written = path("calls/." + std::to_string(::getpid()));
  if (!(std::ofstream(written, std::ios::binary) << record)) throw std::runtime_error("cannot record the call");
  int number = 1;
  while (::link(written.c_str(), path("calls/" + std::to_string(number)).c_str()) != 0) {
    if (errno != EEXIST) throw std::system_error(errno, std::generic_category(), "cannot record the call");
    ++number;
  }
  std::filesystem::remove(written);
  if (!descriptors.empty()) std::ofstream(path("descriptors/" + std::to_string(number))) << descriptors << '\n';
}

std::chrono::milliseconds ToolHome::delay(const std::string& subcommand) const {
  const std::string text = read(subcommand + ".delay");
  return std::chrono::milliseconds(text.empty() ? 0 : std::stol(text));
}

void ToolHome::startGrandchild(const std::string& subcommand) const {
  if (!exists(subcommand + ".grandchild")) return;
  const std::string text = read(subcommand + ".grandchild");
  const unsigned seconds = text.find_first_of("0123456789") == std::string::npos ? 30 : std::stoul(text);
  const pid_t pid = ::fork();
  if (pid < 0) throw std::system_error(errno, std::generic_category(), "cannot start a grandchild");
  if (pid == 0) {
    ::setpgid(0, 0);
    ::sleep(seconds);
    ::_exit(0);
  }
  // Set on both sides, so that the group is the grandchild's own before this process goes on.
  ::setpgid(pid, pid);
  std::ofstream(path("grandchild.pid")) << pid << '\n';
}

bool ToolHome::hangs(const std::string& subcommand) const {
  if (!exists(subcommand + ".hang")) return false;
  std::ofstream(path(subcommand + ".pid")) << ::getpid() << '\n';
  return true;
}

bool ToolHome::answerAsScripted(const std::string& subcommand, std::ostream& out, std::ostream& err,
                                int& status) const {
  if (!exists(subcommand + ".exit")) return false;
  out << read(subcommand + ".stdout") << std::flush;
  err << read(subcommand + ".stderr") << std::flush;
  status = std::stoi(read(subcommand + ".exit"));
  return true;
}

void ToolHome::keepRegistration(const std::string& method, const std::string& configFile) const {
  if (_home.empty()) return;
  std::filesystem::copy_file(configFile, path(method + ".cfg"), std::filesystem::copy_options::overwrite_existing);
  std::ofstream(path("state")) << "registered " << configFile << '\n';
}

void ToolHome::clearRegistration(const std::string& method) const {
  if (_home.empty()) return;
  std::filesystem::remove(path("state"));
  std::filesystem::remove(path(method + ".cfg"));
}

bool ToolHome::exists(const std::string& name) const { return !_home.empty() && std::filesystem::exists(path(name)); }

std::string ToolHome::read(const std::string& name) const {
  if (_home.empty()) return std::string();
  std::ifstream file(path(name), std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

std::string ToolHome::path(const std::string& name) const { return _home + "/" + name; }

}  // namespace AcsConfigUpdate
