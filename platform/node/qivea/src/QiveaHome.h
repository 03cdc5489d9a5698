#ifndef QIVEA_QIVEA_HOME_H
#define QIVEA_QIVEA_HOME_H

#include <string>

namespace Qivea {

// The stand-in's directory: $QIVEA_HOME, or /tmp/qivea-<uid> without it. Created with mode
// 0700 when missing, since the recorded calls hold the arguments in clear.
class QiveaHome {
 public:
  // Throws CommandFailure when the directory cannot be created, or when the default one is not
  // a directory of this user's.
  static QiveaHome fromEnvironment();

  const std::string& path() const { return _path; }
  // path()/relative.
  std::string file(const std::string& relative) const { return _path + "/" + relative; }

 private:
  explicit QiveaHome(const std::string& path) : _path(path) {}

  std::string _path;
};

}  // namespace Qivea

#endif
