#include "ControlDirectory.h"

#include <unistd.h>

#include <cstdlib>
#include <fstream>

namespace SecCredu {

namespace {

const char* const kFileNameControls[] = {"node-cert-file", "node-key-file", "trust-category-dir"};

}  // namespace

ControlDirectory::ControlDirectory() {
  const char* home = std::getenv("SEC_CREDU_HOME");
  if (home != nullptr) _home = home;
}

bool ControlDirectory::isSet() const { return !_home.empty(); }

bool ControlDirectory::isServiceAvailable() const { return !has("unavailable"); }

bool ControlDirectory::isSubscriptionRefused() const { return has("subscribe-fails"); }

bool ControlDirectory::isEventChannelBroken() const { return has("event-channel-broken"); }

void ControlDirectory::recordSubscription(const std::string& nodeCredential, const std::string& trustCategory) const {
  if (!isSet()) return;
  std::ofstream(path("subscription")) << nodeCredential << '\n' << trustCategory << '\n';
}

bool ControlDirectory::fileName(sec_credu_file which, std::string& name) const {
  if (!isSet() || which < SEC_CREDU_NODE_CERT_FILE || which > SEC_CREDU_TRUST_CATEGORY_DIR) return false;
  std::ifstream control(path(kFileNameControls[which]));
  return static_cast<bool>(std::getline(control, name));
}

std::string ControlDirectory::eventsPath() const { return path("events"); }

bool ControlDirectory::has(const char* name) const { return isSet() && ::access(path(name).c_str(), F_OK) == 0; }

std::string ControlDirectory::path(const char* name) const { return _home + "/" + name; }

}  // namespace SecCredu
