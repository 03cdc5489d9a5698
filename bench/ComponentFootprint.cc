// The resident memory the access-management component adds to a host process: this program is
// the host, the framework stand-in in it, and loads the built library with dlopen as a framework
// does. Prints, as rows of scripts/footprint's table, what the process holds beyond what it held
// before the load: after start, after 1000 role queries through qivea and after 10000, and the
// growth between the last two (none expected: a query keeps nothing).

#include "ProcessResources.h"
#include "QiveaLdapFramework.h"
#include "QiveaStandIn.h"

#include <Framework/ComponentLibrary.h>
#include <PymMwSpiAccessManagement.h>

#include <cstdio>
#include <stdexcept>
#include <string>

namespace {

const char METHOD[] = "LDAP";
const char USER[] = "operator7";
const int FIRST_QUERIES = 1000;
const int ALL_QUERIES = 10000;

// VmRSS of this process, in kB.
long residentKb() { return Bench::ProcessResources::sample().residentKb; }

void printRow(const char* label, long kb) { std::printf("  %-52s %8ld kB\n", label, kb); }

void queryRoles(const PymMwSpiAccessManagement_2& accessManagement, int count) {
  for (int i = 0; i < count; ++i) {
    const char** roles = nullptr;
    const PymReturnT result = accessManagement.getRoles(METHOD, USER, &roles);
    if (result != 0 || roles == nullptr || roles[0] == nullptr)
      throw std::runtime_error("role query failed (" + std::to_string(result) + ")");
    accessManagement.freeRoles(METHOD, roles);
  }
}

int measure(Framework::ManagementFramework& framework) {
  const long before = residentKb();
  const Framework::ComponentLibrary library(QIV_COMPONENT_LIBRARY);
  if (library.init(framework.accessor(), Bench::QiveaLdapFramework::COMPONENT_CONFIG) != 0 ||
      framework.portal().components().empty())
    throw std::runtime_error("pymLCMinit failed");
  PymMgmtSpiComponent_2* descriptor = framework.portal().components().front();
  if (descriptor->start(PymStateChangeStartup) != 0) throw std::runtime_error("start failed");
  const long started = residentKb();
  const auto* accessManagement = reinterpret_cast<PymMwSpiAccessManagement_2*>(descriptor->interfaceArray[0]);
  queryRoles(*accessManagement, FIRST_QUERIES);
  const long afterFirst = residentKb();
  queryRoles(*accessManagement, ALL_QUERIES - FIRST_QUERIES);
  const long afterAll = residentKb();
  descriptor->stop(PymStateChangeShutdown);
  library.terminate();

  printRow("resident memory added after start", started - before);
  printRow("resident memory added after 1000 role queries", afterFirst - before);
  printRow("resident memory added after 10000 role queries", afterAll - before);
  printRow("growth from 1000 to 10000 role queries", afterAll - afterFirst);
  return 0;
}

}  // namespace

int main() {
  return Bench::QiveaLdapFramework::run("component_footprint", [](Bench::QiveaLdapFramework& framework) {
    // A throw-away QIVEA_HOME, and the stand-in first on PATH, with the user the queries ask for.
    const QiveaStandIn standIn(QIVEA_DIR);
    standIn.setUsers(std::string(USER) + ":SystemAdministrator,SystemReadOnly\n");
    return measure(framework.framework());
  });
}
