#include "BuiltInLookupTest.h"
#include "SlapdInstance.h"
#include "TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <sstream>
#include <string>

namespace {

// What the partner directory holds under the part the main one refers to it: a group that lists
// alice and an alias entry.
const char PARTNER_ENTRIES[] =
    "dn: ou=partner,dc=example,dc=com\n"
    "objectClass: organizationalUnit\n"
    "ou: partner\n"
    "\n"
    "dn: cn=partneradmin,ou=partner,dc=example,dc=com\n"
    "objectClass: posixGroup\n"
    "cn: partneradmin\n"
    "gidNumber: 20100\n"
    "memberUid: alice\n"
    "\n"
    "dn: role=opsadmin,ou=partner,dc=example,dc=com\n"
    "objectClass: orbelinRoleAlias\n"
    "role: opsadmin\n"
    "orbelinUserAuthorizationScope: partnerop\n";

std::string sampleEntries() {
  std::ifstream file(std::string(QIV_FIXTURES_DIR) + "/ldap/sample.ldif");
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

}  // namespace

// A directory that refers ou=partner to a second directory, which only the reader may read: a
// role found there proves the referral was followed and bound as the session's own identity.
// Subtree searches meet the referral object as a continuation reference; a search based under
// it gets a referral result.
class ReferralTest : public BuiltInLookupTest {
 protected:
  ReferralTest() : partner(partnerOptions(files)) {}

  static TestDirectory::SlapdInstance::Options partnerOptions(const TemporaryDirectory& files) {
    TestDirectory::SlapdInstance::Options options;
    options.ldifFile = files.write("partner.ldif", PARTNER_ENTRIES);
    options.readerOnly = true;
    return options;
  }

  // Starts the main directory with the sample users and ou=partner referring to url, signed by
  // the partner's CA, and points the model at it with referrals on.
  void startMainDirectory(const std::string& url) {
    TestDirectory::SlapdInstance::Options options;
    options.ldifFile = files.write("main.ldif", sampleEntries() +
                                                    "\ndn: ou=partner,dc=example,dc=com\n"
                                                    "objectClass: referral\n"
                                                    "objectClass: extensibleObject\n"
                                                    "ou: partner\n"
                                                    "ref: " + url + "\n");
    options.certificatesDirectory = partner.certificatesDirectory();
    main.reset(new TestDirectory::SlapdInstance(options));
    useServer(TestDirectory::SlapdInstance::host(), main->plainPort());
    useFilterType("POSIX_GROUPS");
    model().setStringValues(LDAP_DN, "useReferrals", {"true"});
  }

  std::string plainUrl() const { return "ldap://" + partner.plainAddress() + "/ou=partner,dc=example,dc=com"; }
  std::string ldapsUrl() const { return "ldaps://" + partner.ldapsAddress() + "/ou=partner,dc=example,dc=com"; }

  TemporaryDirectory files;
  TestDirectory::SlapdInstance partner;
  std::unique_ptr<TestDirectory::SlapdInstance> main;
};

TEST_F(ReferralTest, PlainReferralIsFollowedBoundAsTheSession) {
  startMainDirectory(plainUrl());
  start();
  EXPECT_EQ(answer(0, {"admin", "ops", "partneradmin"}), rolesOf("alice"));
  EXPECT_EQ(0u, log().countContaining("not followed"));
}

TEST_F(ReferralTest, ReferralsOffAreNotChased) {
  startMainDirectory(plainUrl());
  model().setStringValues(LDAP_DN, "useReferrals", {"false"});
  start();
  EXPECT_EQ(answer(0, {"admin", "ops"}), rolesOf("alice"));
}

TEST_F(ReferralTest, PlainReferralFromAnLdapsSessionIsNotFollowed) {
  startMainDirectory(plainUrl());
  useTls("LDAPS", main->ldapsPort(), main->caFile());
  start();
  EXPECT_EQ(answer(0, {"admin", "ops"}), rolesOf("alice"));
  const std::string refusal = "Referral to " + plainUrl() + "??sub not followed: it would leave TLS";
  EXPECT_LE(1u, log().count(4, refusal)) << testing::PrintToString(logLines());
}

TEST_F(ReferralTest, LdapsReferralFromAnLdapsSessionIsFollowedWithTheSameCa) {
  startMainDirectory(ldapsUrl());
  useTls("LDAPS", main->ldapsPort(), main->caFile());
  start();
  EXPECT_EQ(answer(0, {"admin", "ops", "partneradmin"}), rolesOf("alice"));
  EXPECT_EQ(0u, log().countContaining("not followed"));
}

TEST_F(ReferralTest, PlainReferralFromAStartTlsSessionIsNotFollowed) {
  startMainDirectory(plainUrl());
  useTls("STARTTLS", main->plainPort(), main->caFile());
  start();
  EXPECT_EQ(answer(0, {"admin", "ops"}), rolesOf("alice"));
  EXPECT_LE(1u, log().countContaining(" not followed: it would leave TLS"));
}

TEST_F(ReferralTest, AliasEntryBehindAReferralObjectIsResolvedThere) {
  startMainDirectory(plainUrl());
  useFilterType("ORBELIN");
  model().setStringValues(LDAP_DN, "roleAliasesBaseDn", {"ou=partner,dc=example,dc=com"});
  start();
  // frank's alias opsadmin lives in the partner directory; his other roles stay as they are.
  EXPECT_EQ(answer(0, {"admin", "partnerop"}), rolesOf("frank"));
}
