#ifndef TEST_SEC_CREDU_STAND_IN_H
#define TEST_SEC_CREDU_STAND_IN_H

#include "ScopedEnvironmentVariable.h"

#include <Poco/File.h>
#include <Poco/TemporaryFile.h>
#include <fcntl.h>
#include <unistd.h>

#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

// A fresh control directory for the stand-in of "libsec_credu_api.so.1", named by SEC_CREDU_HOME
// while the object lives; its files script what the library answers. Loading the library is
// left to the test.
class SecCreduStandIn {
 public:
  SecCreduStandIn() : _variable("SEC_CREDU_HOME", _home.path()) { _home.createDirectories(); }

  std::string home() const { return _home.path(); }

  void setAvailable(bool available) { setPresent("unavailable", !available); }
  void setSubscribeFails(bool fails) { setPresent("subscribe-fails", fails); }
  // A broken channel: the next dispatch closes the session's event descriptor, whose number the
  // library still hands out.
  void setEventChannelBroken(bool broken) { setPresent("event-channel-broken", broken); }
  void setNodeCertFileName(const std::string& name) { write("node-cert-file", name + "\n"); }
  void setNodeKeyFileName(const std::string& name) { write("node-key-file", name + "\n"); }
  void setTrustCatDirName(const std::string& name) { write("trust-category-dir", name + "\n"); }

  // The references the last subscription was asked for, in order; empty before any.
  std::vector<std::string> subscription() const {
    std::vector<std::string> references;
    std::ifstream file(home() + "/subscription");
    for (std::string line; std::getline(file, line);) references.push_back(line);
    return references;
  }

  // Announces one event ("changed", "unchanged" or any other text) to the subscribed session.
  // Throws when nothing has subscribed.
  void sendEvent(const std::string& event) const {
    const std::string line = event + "\n";
    const int fd = ::open((home() + "/events").c_str(), O_WRONLY | O_NONBLOCK);
    if (fd == -1) throw std::runtime_error("no subscriber listens for events in " + home());
    const bool written = ::write(fd, line.data(), line.size()) == static_cast<ssize_t>(line.size());
    ::close(fd);
    if (!written) throw std::runtime_error("cannot send event " + event);
  }

 private:
  void write(const std::string& name, const std::string& text) { std::ofstream(home() + "/" + name) << text; }

  void setPresent(const std::string& name, bool present) {
    if (present) {
      write(name, "");
    } else {
      Poco::File(home() + "/" + name).remove();
    }
  }

  Poco::TemporaryFile _home;
  ScopedEnvironmentVariable _variable;
};

#endif
