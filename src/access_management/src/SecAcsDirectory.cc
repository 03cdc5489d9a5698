#include "SecAcsDirectory.h"

#include <Poco/DirectoryIterator.h>
#include <Poco/Exception.h>
#include <Poco/File.h>
#include <Poco/Path.h>
#include <Qiv/LoggingWrapper.h>

#include <grp.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

namespace QivAccessManagement {

namespace {

const mode_t DIRECTORY_MODE = 0750;
// Set-group-id: files and directories made below inherit the directory's group.
const mode_t SHARED_DIRECTORY_MODE = 02750;
const char CERTIFICATE_STORE[] = "/cert";

// The id of group name; false when the group database has no such group (or cannot be read).
bool findGroup(const char* name, gid_t& gid) {
  std::vector<char> buffer(1024);
  group entry;
  group* found = nullptr;
  int error = 0;
  // A group with many members needs a bigger buffer than the first guess.
  while ((error = ::getgrnam_r(name, &entry, buffer.data(), buffer.size(), &found)) == ERANGE)
    buffer.resize(buffer.size() * 2);
  if (error != 0 || found == nullptr) return false;
  gid = found->gr_gid;
  return true;
}

}  // namespace

int SecAcsDirectory::createAcsDirectory(const std::string& path) const {
  try {
    Poco::File directory(path);
    if (directory.exists()) directory.remove(true);
  } catch (const Poco::Exception& e) {
    // What is left is overwritten below, or the creation fails.
    QIV_LOG(3, "Could not delete directory: %s for sec-acs (%s)", path.c_str(), e.displayText().c_str());
  }
  if (::mkdir(path.c_str(), DIRECTORY_MODE) != 0 && errno != EEXIST) {
    QIV_LOG(3, "Failed to create directory: %s (%d)", path.c_str(), errno);
    return -1;
  }
  struct stat status;
  if (::stat(path.c_str(), &status) != 0) {
    QIV_LOG(3, "Failed to read directory status: %s (%d)", path.c_str(), errno);
    return -1;
  }
  if (!S_ISDIR(status.st_mode)) return -1;
  return shareWithGroup(path, status);
}

int SecAcsDirectory::shareWithGroup(const std::string& path, const struct stat& status) {
  gid_t gid = 0;
  if (!findGroup(GROUP, gid)) return 0;
  if (gid != status.st_gid) {
    QIV_LOG(6, "%s is owned by %d:%d (mode %o), trying to change group to %d", path.c_str(),
            static_cast<int>(status.st_uid), static_cast<int>(status.st_gid), static_cast<unsigned>(status.st_mode),
            static_cast<int>(gid));
    // Without the group the service module cannot read the files; the mode is still set.
    if (::chown(path.c_str(), static_cast<uid_t>(-1), gid) != 0)
      QIV_LOG(3, "Failed to set group owner: %s (%d)", path.c_str(), errno);
  }
  if (::chmod(path.c_str(), SHARED_DIRECTORY_MODE) != 0) {
    QIV_LOG(3, "Failed to set group sticky bit: %s (%d)", path.c_str(), errno);
    return -1;
  }
  return 0;
}

int SecAcsDirectory::createCertificateStorage(const std::string& dir, const LdapConfiguration& config,
                                              LdapConfigFileProducer& producer) const {
  const std::string store = dir + CERTIFICATE_STORE;
  try {
    Poco::File directory(store);
    if (directory.exists()) directory.remove(true);
    if (!directory.createDirectory())
      QIV_LOG(4, "Could not create certificate storage: %s, directory already exists", store.c_str());
  } catch (const Poco::Exception& e) {
    QIV_LOG(3, "Could not delete/create directory: %s for certificate storage (%s)", store.c_str(),
            e.displayText().c_str());
  }
  int result = 0;
  if (config.nodeCredential.nodeCertFileName.empty()) {
    QIV_LOG(4, "nodeCredential.clientCertificate path is empty.");
  } else {
    result = copyInto(config.nodeCredential.nodeCertFileName, store, producer, &LdapConfigFileProducer::setTlsCertificate);
  }
  if (config.nodeCredential.nodeKeyFileName.empty()) {
    QIV_LOG(4, "nodeCredential.clientKey is empty");
  } else {
    result = copyInto(config.nodeCredential.nodeKeyFileName, store, producer, &LdapConfigFileProducer::setTlsKey);
  }
  if (config.trustCategory.trustCatDirName.empty()) {
    QIV_LOG(4, "caCertDirectory path is empty");
  } else {
    result = copyInto(config.trustCategory.trustCatDirName, store, producer, &LdapConfigFileProducer::setCaCertDir);
  }
  // The deprecated attributes come last, so that they override the node credential.
  if (!config.tlsCaCertificate.empty())
    result = copyInto(config.tlsCaCertificate, store, producer, &LdapConfigFileProducer::setTlsCaCertificate);
  if (!config.tlsClientKey.empty()) {
    result = copyInto(config.tlsClientKey, store, producer, &LdapConfigFileProducer::setTlsKey);
    if (result == 0)
      result = copyInto(config.tlsClientCertificate, store, producer, &LdapConfigFileProducer::setTlsCertificate);
  }
  return result;
}

int SecAcsDirectory::copyInto(const std::string& source, const std::string& store, LdapConfigFileProducer& producer,
                              void (LdapConfigFileProducer::*set)(const std::string&)) const {
  std::string copied;
  const int result = copyCert(source, store, copied);
  if (result == 0) (producer.*set)(copied);
  return result;
}

int SecAcsDirectory::copyCert(const std::string& source, const std::string& targetDir, std::string& copiedPath) const {
  try {
    const Poco::File original(source);
    original.copyTo(targetDir);
    // Poco::File drops a trailing slash, so a directory's name is its last component too.
    copiedPath = targetDir + "/" + Poco::Path(original.path()).getFileName();
    if (!original.isDirectory()) return restrictPermission(copiedPath);
    QIV_TRACE("Changing permission for files in folder: %s", copiedPath.c_str());
    int result = 0;
    for (Poco::DirectoryIterator entry(copiedPath), end; entry != end; ++entry) {
      if (restrictPermission(entry->path()) != 0) result = -1;
    }
    return result;
  } catch (const Poco::Exception& e) {
    QIV_LOG(3, "Failed to copy certificate (%s)", e.displayText().c_str());
    return -1;
  }
}

int SecAcsDirectory::restrictPermission(const std::string& path) {
  QIV_TRACE("Changing permission for file: %s ", path.c_str());
  if (LdapConfigFileProducer::setPermission(path) != 0) return -1;
  QIV_TRACE("Permission successfully changed on file: %s", path.c_str());
  return 0;
}

}  // namespace QivAccessManagement
