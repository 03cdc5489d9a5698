#ifndef QIV_ACCESS_MANAGEMENT_SEC_ACS_DIRECTORY_H
#define QIV_ACCESS_MANAGEMENT_SEC_ACS_DIRECTORY_H

#include "LdapConfigFileProducer.h"
#include "LdapConfiguration.h"

#include <sys/stat.h>

#include <string>

namespace QivAccessManagement {

// Lays out the security framework's directory "sec-acs" below the PSO clear path: the directory
// itself, readable by the group of the service module's users, and its certificate store with
// copies of the files a configuration names. Holds nothing; the caller serialises the calls
// (the configuration mutex), since each one rebuilds what it finds.
class SecAcsDirectory {
 public:
  // The group that may read the directory, when the node has it.
  static constexpr const char* GROUP = "sec-uai-users";

  // Removes path with everything in it (a failure there is only logged) and creates it anew
  // with mode 0750; when the group GROUP exists, the directory gets it and mode 02750, so that
  // what is written below inherits the group. 0, or -1 (logged) when the directory could not be
  // made or read, is no directory, or its mode could not be set.
  int createAcsDirectory(const std::string& path) const;

  // Re-creates dir + "/cert" and copies into it config's node certificate, node key and trust
  // category directory, then its deprecated CA certificate, client key and client certificate,
  // handing each copied path to producer as it goes (so the deprecated ones win). A missing
  // node credential or trust category is a warning. The result of the last copy: 0 or -1.
  int createCertificateStorage(const std::string& dir, const LdapConfiguration& config,
                               LdapConfigFileProducer& producer) const;

  // Copies the file or directory source into targetDir; copiedPath becomes targetDir + "/" +
  // source's last component. The copied file, or every entry of the copied directory, gets mode
  // 0640. 0, or -1 (logged) when the copy or a mode change failed.
  int copyCert(const std::string& source, const std::string& targetDir, std::string& copiedPath) const;

 private:
  // copyCert of source into store and, when it succeeded, (producer.*set)(copied path).
  int copyInto(const std::string& source, const std::string& store, LdapConfigFileProducer& producer,
               void (LdapConfigFileProducer::*set)(const std::string&)) const;
  // Mode 0640 for a copied file, with its traces; 0 or -1.
  static int restrictPermission(const std::string& path);
  // Gives path the group GROUP and mode 02750 when that group exists; 0 or -1.
  static int shareWithGroup(const std::string& path, const struct stat& status);
};

}  // namespace QivAccessManagement

#endif
