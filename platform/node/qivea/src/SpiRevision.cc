#include "SpiRevision.h"

#include "CommandFailure.h"

#include <cstdio>
#include <cstdlib>

namespace Qivea {

namespace {

const char DEFAULT_REVISION[] = "1.4.0";

}  // namespace

SpiRevision SpiRevision::fromEnvironment() {
  const char* configured = std::getenv("QIVEA_SPI_REVISION");
  const std::string text = configured != nullptr && *configured != '\0' ? configured : DEFAULT_REVISION;
  int major = 0;
  int minor = 0;
  int patch = 0;
  int consumed = 0;
  if (std::sscanf(text.c_str(), "%d.%d.%d%n", &major, &minor, &patch, &consumed) != 3 ||
      static_cast<std::string::size_type>(consumed) != text.size()) {
    throw CommandFailure(CommandFailure::GENERAL, "QIVEA_SPI_REVISION is not major.minor.patch: " + text);
  }
  return SpiRevision(text, major, minor);
}

}  // namespace Qivea
