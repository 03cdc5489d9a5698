#ifndef QIVEA_SPI_REVISION_H
#define QIVEA_SPI_REVISION_H

#include <string>

namespace Qivea {

// The SPI revision the stand-in claims, "major.minor.patch": $QIVEA_SPI_REVISION, or 1.4.0. It
// also decides which authentication options are accepted.
class SpiRevision {
 public:
  // Throws CommandFailure when $QIVEA_SPI_REVISION is not "major.minor.patch".
  static SpiRevision fromEnvironment();

  const std::string& text() const { return _text; }
  bool isAtLeast(int major, int minor) const { return _major > major || (_major == major && _minor >= minor); }

 private:
  SpiRevision(const std::string& text, int major, int minor) : _text(text), _major(major), _minor(minor) {}

  std::string _text;
  int _major;
  int _minor;
};

}  // namespace Qivea

#endif
