#include "SecAcsDirectory.h"

#include "FileProbe.h"
#include "ForkedCheck.h"
#include "FrameworkTestBase.h"
#include "NssWrapperGroups.h"

#include <Poco/File.h>
#include <Poco/TemporaryFile.h>

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

using namespace QivAccessManagement;

namespace {

const int kTrace = 8;
const gid_t kServiceGroup = 4242;
const uid_t kNobody = 65534;

void writeFile(const std::string& path, const std::string& text, mode_t mode) {
  std::ofstream(path, std::ios::binary) << text;
  ASSERT_EQ(0, ::chmod(path.c_str(), mode));
}

// What the producer writes for the certificate lines of the framework file, in order.
std::string certificateLines(LdapConfigFileProducer& producer) {
  std::ostringstream text;
  EXPECT_EQ(0, producer.writeSecAaConfig(text, LdapConfiguration()));
  const std::string all = text.str();
  const std::string start = "#Certificate information\n";
  const std::string::size_type from = all.find(start) + start.size();
  return all.substr(from, all.find("\n\n# simple authentication") - from + 1);
}

}  // namespace

// The directory and certificate-store work in a directory of the test's own, with umask 022.
class SecAcsDirectoryTest : public FrameworkTestBase {
 protected:
  SecAcsDirectoryTest() : _umask(::umask(022)) {
    Poco::File(_root.path()).createDirectories();
    // Writable for the unprivileged children of some tests.
    ::chmod(_root.path().c_str(), 0777);
  }

  ~SecAcsDirectoryTest() override { ::umask(_umask); }

  std::string path(const std::string& name) const { return _root.path() + "/" + name; }

  // A directory name beside the others, as qivea's PSO clear path would hold it.
  std::string acsPath() const { return path("sec-acs"); }

  // Certificate files to copy: node.pem, node.key and the trust category trusted/ with two CAs.
  std::string sources() {
    const std::string directory = path("sources");
    Poco::File(directory + "/trusted").createDirectories();
    writeFile(directory + "/node.pem", "node certificate\n", 0644);
    writeFile(directory + "/node.key", "node key\n", 0600);
    writeFile(directory + "/trusted/ca1.pem", "first CA\n", 0644);
    writeFile(directory + "/trusted/ca2.pem", "second CA\n", 0600);
    writeFile(directory + "/ca.pem", "deprecated CA\n", 0644);
    writeFile(directory + "/client.pem", "deprecated certificate\n", 0644);
    writeFile(directory + "/client.key", "deprecated key\n", 0600);
    return directory;
  }

  LdapConfiguration nodeCredentialConfiguration() {
    const std::string source = sources();
    LdapConfiguration config;
    config.nodeCredential.nodeCertFileName = source + "/node.pem";
    config.nodeCredential.nodeKeyFileName = source + "/node.key";
    config.trustCategory.trustCatDirName = source + "/trusted";
    return config;
  }

  // The sec-acs directory, made, for copies and the store to go into.
  std::string storeDirectory() {
    Poco::File(acsPath()).createDirectories();
    return acsPath();
  }

  // copyCert of the source name into the directory; its result.
  int copyFromSources(const std::string& name, std::string& copied) {
    const std::string source = sources() + "/" + name;
    return directory.copyCert(source, storeDirectory(), copied);
  }

  SecAcsDirectory directory;
  LdapConfigFileProducer producer;

 private:
  Poco::TemporaryFile _root;
  const mode_t _umask;
};

// Tests that need the group "sec-uai-users" present or absent: they run again where
// libnss-wrapper shows a group database of their own.
class SecAcsDirectoryGroupTest : public SecAcsDirectoryTest {
 protected:
  NssWrapperGroups groups;
};

TEST_F(SecAcsDirectoryGroupTest, WithoutTheGroupTheDirectoryKeepsMode0750FromMkdir) {
  if (groups.rerunWithDatabases()) return;
  EXPECT_EQ(0, directory.createAcsDirectory(acsPath()));
  EXPECT_EQ(0750u, FileProbe::mode(acsPath()));
  EXPECT_EQ(::getgid(), FileProbe::status(acsPath()).st_gid);
  EXPECT_EQ(0u, log().countContaining("trying to change group"));
}

TEST_F(SecAcsDirectoryGroupTest, WithTheGroupTheDirectoryGetsItAndTheSetGroupIdBit) {
  groups.addGroup(SecAcsDirectory::GROUP, kServiceGroup);
  if (groups.rerunWithDatabases()) return;
  EXPECT_EQ(0, directory.createAcsDirectory(acsPath()));
  EXPECT_EQ(02750u, FileProbe::mode(acsPath()));
  EXPECT_EQ(kServiceGroup, FileProbe::status(acsPath()).st_gid);
  EXPECT_EQ(1u, log().count(6, acsPath() + " is owned by 0:0 (mode 40750), trying to change group to 4242"));
  // What is written below belongs to the group too.
  std::ofstream(acsPath() + "/file") << "x";
  EXPECT_EQ(kServiceGroup, FileProbe::status(acsPath() + "/file").st_gid);
}

TEST_F(SecAcsDirectoryGroupTest, GroupThatAlreadyOwnsTheDirectoryOnlyGetsTheMode) {
  groups.addGroup(SecAcsDirectory::GROUP, ::getgid());
  if (groups.rerunWithDatabases()) return;
  EXPECT_EQ(0, directory.createAcsDirectory(acsPath()));
  EXPECT_EQ(02750u, FileProbe::mode(acsPath()));
  EXPECT_EQ(0u, log().countContaining("trying to change group"));
}

TEST_F(SecAcsDirectoryGroupTest, UserOutsideTheGroupCannotHandItOverButGoesOn) {
  groups.addGroup(SecAcsDirectory::GROUP, kServiceGroup);
  if (groups.rerunWithDatabases()) return;
  EXPECT_TRUE(ForkedCheck::runAs(kNobody, kNobody, {}, [&] {
    EXPECT_EQ(0, directory.createAcsDirectory(acsPath()));
    EXPECT_EQ(1u, log().count(3, "Failed to set group owner: " + acsPath() + " (1)"));
    // The directory keeps the user's own group, so the mode is still set.
    EXPECT_EQ(kNobody, FileProbe::status(acsPath()).st_gid);
    EXPECT_EQ(02750u, FileProbe::mode(acsPath()));
  }));
}

TEST_F(SecAcsDirectoryGroupTest, MemberOfTheGroupHandsTheDirectoryOver) {
  groups.addGroup(SecAcsDirectory::GROUP, kServiceGroup, "nobody");
  if (groups.rerunWithDatabases()) return;
  EXPECT_TRUE(ForkedCheck::runAs(kNobody, kNobody, {kServiceGroup}, [&] {
    EXPECT_EQ(0, directory.createAcsDirectory(acsPath()));
    EXPECT_EQ(kServiceGroup, FileProbe::status(acsPath()).st_gid);
    EXPECT_EQ(02750u, FileProbe::mode(acsPath()));
    EXPECT_EQ(0u, log().countAtLevel(3));
  }));
}

TEST_F(SecAcsDirectoryTest, ExistingDirectoryIsReplacedByAnEmptyOne) {
  Poco::File(acsPath() + "/cert/trusted").createDirectories();
  std::ofstream(acsPath() + "/LdapSm.cfg") << "old";
  ASSERT_EQ(0, ::chmod(acsPath().c_str(), 0700));
  EXPECT_EQ(0, directory.createAcsDirectory(acsPath()));
  std::vector<std::string> entries;
  Poco::File(acsPath()).list(entries);
  EXPECT_TRUE(entries.empty());
}

TEST_F(SecAcsDirectoryTest, DirectoryThatCannotBeRemovedIsLoggedAndUsedAsItIs) {
  Poco::File(acsPath()).createDirectories();
  std::ofstream(acsPath() + "/kept") << "root's";
  EXPECT_TRUE(ForkedCheck::runAs(kNobody, kNobody, {}, [&] {
    EXPECT_EQ(0, directory.createAcsDirectory(acsPath()));
    EXPECT_EQ(1u, log().count(3, "Could not delete directory: " + acsPath() + " for sec-acs (Access to file denied: " +
                                     acsPath() + "/kept)"));
  }));
  EXPECT_TRUE(Poco::File(acsPath() + "/kept").exists());
}

TEST_F(SecAcsDirectoryTest, PathThatStaysAFileIsNoDirectory) {
  Poco::File(path("clear")).createDirectories();
  const std::string file = path("clear/sec-acs");
  std::ofstream(file) << "not a directory";
  EXPECT_TRUE(ForkedCheck::runAs(kNobody, kNobody, {}, [&] {
    EXPECT_EQ(-1, directory.createAcsDirectory(file));
    EXPECT_EQ(1u, log().count(3, "Could not delete directory: " + file + " for sec-acs (Access to file denied: " + file + ")"));
  }));
}

TEST_F(SecAcsDirectoryTest, DirectoryWithoutItsParentCannotBeCreated) {
  const std::string orphan = path("missing/sec-acs");
  EXPECT_EQ(-1, directory.createAcsDirectory(orphan));
  EXPECT_EQ(1u, log().count(3, "Failed to create directory: " + orphan + " (2)"));
}

TEST_F(SecAcsDirectoryTest, CopiedFileGetsMode0640) {
  std::string copied;
  EXPECT_EQ(0, copyFromSources("node.key", copied));
  EXPECT_EQ(acsPath() + "/node.key", copied);
  EXPECT_EQ("node key\n", FileProbe::text(copied));
  EXPECT_EQ(0640u, FileProbe::mode(copied));
  EXPECT_EQ(1u, log().count(kTrace, "Changing permission for file: " + copied + " "));
  EXPECT_EQ(1u, log().count(kTrace, "Permission successfully changed on file: " + copied));
}

TEST_F(SecAcsDirectoryTest, TrustCategoryDirectoryIsCopiedWithItsContentsEachEntry0640) {
  std::string copied;
  // The trailing slash does not change the copy's name.
  EXPECT_EQ(0, copyFromSources("trusted/", copied));
  EXPECT_EQ(acsPath() + "/trusted", copied);
  EXPECT_EQ("first CA\n", FileProbe::text(copied + "/ca1.pem"));
  EXPECT_EQ("second CA\n", FileProbe::text(copied + "/ca2.pem"));
  EXPECT_EQ(0640u, FileProbe::mode(copied + "/ca1.pem"));
  EXPECT_EQ(0640u, FileProbe::mode(copied + "/ca2.pem"));
  EXPECT_EQ(1u, log().count(kTrace, "Changing permission for files in folder: " + copied));
  EXPECT_EQ(1u, log().count(kTrace, "Permission successfully changed on file: " + copied + "/ca2.pem"));
}

TEST_F(SecAcsDirectoryTest, MissingSourceIsACopyFailure) {
  const std::string store = storeDirectory();
  std::string copied = "untouched";
  EXPECT_EQ(-1, directory.copyCert(path("missing.pem"), store, copied));
  EXPECT_EQ(1u, log().count(3, "Failed to copy certificate (File not found: " + path("missing.pem") + ")"));
}

TEST_F(SecAcsDirectoryTest, NodeCredentialAndTrustCategoryGoToTheStoreAndToTheProducer) {
  const LdapConfiguration config = nodeCredentialConfiguration();
  const std::string dir = storeDirectory();
  EXPECT_EQ(0, directory.createCertificateStorage(dir, config, producer));
  const std::string store = dir + "/cert";
  EXPECT_EQ("node certificate\n", FileProbe::text(store + "/node.pem"));
  EXPECT_EQ("node key\n", FileProbe::text(store + "/node.key"));
  EXPECT_EQ("second CA\n", FileProbe::text(store + "/trusted/ca2.pem"));
  for (const char* copied : {"/node.pem", "/node.key", "/trusted/ca1.pem", "/trusted/ca2.pem"})
    EXPECT_EQ(0640u, FileProbe::mode(store + copied)) << copied;
  EXPECT_EQ("ldap_tls_cacertdir = " + store + "/trusted\n\nldap_tls_key = " + store +
                "/node.key\nldap_tls_cert = " + store + "/node.pem\n",
            certificateLines(producer));
  EXPECT_EQ(0u, log().countAtLevel(3));
  EXPECT_EQ(0u, log().countContaining("is empty"));
}

TEST_F(SecAcsDirectoryTest, DeprecatedAttributesAreCopiedLastAndWin) {
  LdapConfiguration config = nodeCredentialConfiguration();
  const std::string source = path("sources");
  config.tlsCaCertificate = source + "/ca.pem";
  config.tlsClientKey = source + "/client.key";
  config.tlsClientCertificate = source + "/client.pem";
  const std::string dir = storeDirectory();
  EXPECT_EQ(0, directory.createCertificateStorage(dir, config, producer));
  const std::string store = dir + "/cert";
  EXPECT_EQ("ldap_tls_cacertdir = " + store + "/trusted\nldap_tls_cacert = " + store + "/ca.pem\nldap_tls_key = " +
                store + "/client.key\nldap_tls_cert = " + store + "/client.pem\n",
            certificateLines(producer));
  EXPECT_EQ("deprecated key\n", FileProbe::text(store + "/client.key"));
  EXPECT_EQ(0640u, FileProbe::mode(store + "/client.pem"));
}

TEST_F(SecAcsDirectoryTest, MissingClientKeyLeavesTheClientCertificateUncopied) {
  LdapConfiguration config = nodeCredentialConfiguration();
  config.tlsClientKey = path("missing.key");
  config.tlsClientCertificate = path("sources/client.pem");
  const std::string dir = storeDirectory();
  EXPECT_EQ(-1, directory.createCertificateStorage(dir, config, producer));
  EXPECT_FALSE(Poco::File(dir + "/cert/client.pem").exists());
  EXPECT_EQ("ldap_tls_cacertdir = " + dir + "/cert/trusted\n\nldap_tls_key = " + dir +
                "/cert/node.key\nldap_tls_cert = " + dir + "/cert/node.pem\n",
            certificateLines(producer));
}

TEST_F(SecAcsDirectoryTest, WithoutNodeCredentialAndTrustCategoryOnlyWarningsAreLogged) {
  const std::string dir = storeDirectory();
  EXPECT_EQ(0, directory.createCertificateStorage(dir, LdapConfiguration(), producer));
  EXPECT_EQ(1u, log().count(4, "nodeCredential.clientCertificate path is empty."));
  EXPECT_EQ(1u, log().count(4, "nodeCredential.clientKey is empty"));
  EXPECT_EQ(1u, log().count(4, "caCertDirectory path is empty"));
  EXPECT_TRUE(Poco::File(dir + "/cert").isDirectory());
  EXPECT_EQ("\n\nldap_tls_key = \nldap_tls_cert = \n", certificateLines(producer));
}

TEST_F(SecAcsDirectoryTest, ExistingStoreIsReplaced) {
  const std::string dir = storeDirectory();
  Poco::File(dir + "/cert/old").createDirectories();
  std::ofstream(dir + "/cert/old/revoked.pem") << "old";
  EXPECT_EQ(0, directory.createCertificateStorage(dir, LdapConfiguration(), producer));
  EXPECT_FALSE(Poco::File(dir + "/cert/old").exists());
  EXPECT_EQ(0u, log().count(4, "Could not create certificate storage: " + dir + "/cert, directory already exists"));
}

TEST_F(SecAcsDirectoryTest, TheLastCopyDecidesTheResult) {
  LdapConfiguration config = nodeCredentialConfiguration();
  config.nodeCredential.nodeCertFileName = path("missing.pem");
  const std::string dir = storeDirectory();
  // The certificate is missing, but the copies after it succeeded.
  EXPECT_EQ(0, directory.createCertificateStorage(dir, config, producer));
  EXPECT_EQ(1u, log().count(3, "Failed to copy certificate (File not found: " + path("missing.pem") + ")"));
  config.trustCategory.trustCatDirName = path("missing");
  EXPECT_EQ(-1, directory.createCertificateStorage(dir, config, producer));
}

TEST_F(SecAcsDirectoryTest, StoreThatCannotBeRemovedIsLogged) {
  const std::string dir = storeDirectory();
  ASSERT_EQ(0, ::chmod(dir.c_str(), 0777));
  Poco::File(dir + "/cert").createDirectories();
  std::ofstream(dir + "/cert/root.pem") << "root's";
  EXPECT_TRUE(ForkedCheck::runAs(kNobody, kNobody, {}, [&] {
    EXPECT_EQ(0, directory.createCertificateStorage(dir, LdapConfiguration(), producer));
    EXPECT_EQ(1u, log().count(3, "Could not delete/create directory: " + dir +
                                     "/cert for certificate storage (Access to file denied: " + dir + "/cert/root.pem)"));
  }));
}
