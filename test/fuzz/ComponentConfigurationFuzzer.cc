// libFuzzer target: ConfigurationRunnable::readComponentConfiguration on any document. A crash,
// a sanitizer report, an exception outside the contract or a result outside it is a finding.
#include "ConfigurationRunnable.h"

#include <Qiv/QivException.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

// The two failures of the time-out conversion, the only exceptions the contract lets out.
const std::string TIMEOUT_FAILURES[] = {
    "Failed to parse string to integer: '",
    "Provided value for configuration parameter 'ldapInitConfigTimeout' is negative. Value: ",
};

bool isTimeoutFailure(const std::string& text) {
  for (const std::string& prefix : TIMEOUT_FAILURES) {
    if (text.compare(0, prefix.size(), prefix) == 0) return true;
  }
  return false;
}

[[noreturn]] void finding(const std::string& what) {
  std::fprintf(stderr, "contract violated: %s\n", what.c_str());
  std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  // The configuration arrives as a C string, so it ends at the first NUL.
  const std::string document(reinterpret_cast<const char*>(data), size);
  QivAccessManagement::ConfigurationRunnable runnable;
  int result = 0;
  try {
    result = runnable.readComponentConfiguration(document.c_str());
  } catch (const Qiv::QivException& e) {
    if (!isTimeoutFailure(e.what())) finding(std::string("unexpected Qiv::QivException: ") + e.what());
    return 0;
  }
  if (result != 0 && result != -1 && result != -9) finding("result " + std::to_string(result));
  if (result == -9 && !runnable.getLdapConfiguration().configFileInvalid) finding("-9 without configFileInvalid");
  return 0;
}
