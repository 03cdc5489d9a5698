#ifndef QIV_ACCESS_MANAGEMENT_AM_LDAP_H
#define QIV_ACCESS_MANAGEMENT_AM_LDAP_H

#include "IAmLdap.h"
#include "ILdapTlsWrapper.h"
#include "LdapConfiguration.h"

#include <Poco/Mutex.h>

#include <list>
#include <string>

namespace QivAccessManagement {

// The built-in role lookup: asks the directory itself, through an LDAP client wrapper, which
// roles a user holds. No user name or role can widen a search: each is escaped on its way into a
// filter or a DN.
class AmLdap : public IAmLdap {
 public:
  // wrapper is not owned: the creator keeps it alive for the object's life and deletes it.
  explicit AmLdap(Ldap::ILdapTlsWrapper* wrapper);
  // Without a wrapper; not usable for lookups.
  AmLdap();
  ~AmLdap() override;
  AmLdap(const AmLdap&) = delete;
  AmLdap& operator=(const AmLdap&) = delete;

  // roles gets the user's sorted, de-duplicated roles, comma-separated. 0 success (roles may be
  // empty); -1 the connection could not be opened, secured, bound or checked (the wrapper is
  // left connected or not as the failure left it), or a search got no answer (logged at level 3,
  // the session closed); -2 the directory answered and does not hold the user (the wrapper stays
  // connected). When the primary server connected but did not answer, the lookup is made once
  // more against the fallback alone. A scope line shorter than its attribute name throws
  // std::out_of_range after the session was closed. Holds mutex for the whole lookup, so
  // concurrent callers wait; takes the wrapper's lock after it. The wrapper bounds each attempt.
  int authorizationLdap(const LdapConfiguration* config, const std::string& user, std::string& roles) override;

  // The steps of a lookup, which calls them with mutex held; they use the working fields below.

  // Connects, secures, binds and pings as config says. 0, or -1 after tracing the failed step.
  int openLdapConnection(const LdapConfiguration* config);
  // True when a search for the uid user under the base DN answers anything. A search that got no
  // answer throws DirectoryNotAnswering, as every search of the lookup does.
  bool userExist(const LdapConfiguration* config, const std::string& user);
  // Appends to roles what parseRoleLine keeps of each roleAttribute line. False only for no lines.
  bool fetchRoles(const LdapConfiguration* config, const std::list<std::string>& lines);
  // The role that value (one trimmed role value) stands for on this node, or empty when the
  // node type and target type rules drop it. Reads nodeTypes and targetTypes.
  std::string parseRoleLine(const std::string& value, const LdapConfiguration* config);
  // Sets filter and roleAttribute for user by config's filter type; other types leave both.
  void prepareFilter(const LdapConfiguration* config, const std::string& user);
  // out = config's node types when they matter (filter type 2, target-based access UNLOCKED), else empty.
  void getNodeType(std::string& out, const LdapConfiguration* config);
  // Appends the non-empty ":"-separated pieces of nodeTypeText to nodeTypes.
  void createNodeTypeList(const std::string& nodeTypeText, const LdapConfiguration* config);
  // Replaces each role that has an alias entry under roleAliasesBaseDn by the roles it holds.
  void resolveAliases(const std::string& roleAliasesBaseDn, const LdapConfiguration* config);
  // Removes each role that is a role alias entry under the base DN.
  void discardAliases(const LdapConfiguration* config);
  // text without leading and trailing blanks, tabs and line feeds.
  std::string trim(const std::string& text);

 protected:
  // The working fields of the running lookup (protected for tests). The lists are emptied when a
  // lookup starts; filter, which selects the user's entry for the scope and role searches, and
  // roleAttribute keep their last values.
  std::list<std::string> roles;
  std::list<std::string>::iterator rolesCursor;
  std::list<std::string> nodeTypes;
  std::list<std::string>::const_iterator nodeTypesCursor;
  std::list<std::string> targetTypes;
  std::list<std::string>::const_iterator targetTypesCursor;
  std::string filter;
  std::string roleAttribute;
  Ldap::ILdapTlsWrapper* ldapWrapper;
  // One lookup at a time.
  Poco::FastMutex mutex;

 private:
  // One attempt against the servers config names: connects, then searches. 0, -1 or -2.
  int lookUp(const LdapConfiguration* config, const std::string& user, std::string& result);
  // A subtree search under base; throws DirectoryNotAnswering, after the level-3 line, when the
  // directory did not answer.
  std::list<std::string> searchDirectory(const std::string& base, const std::string& searchFilter,
                                         const std::list<std::string>* attributes);
  // The level-3 line for an operation that got no answer.
  void reportUnanswered(const Ldap::OperationOutcome& outcome);
  // Appends the user's authentication scope values (searched with filter) to targetTypes.
  void readTargetTypes(const LdapConfiguration* config);
  // The steps of openLdapConnection that secure a TLS connection after connect; false after the trace.
  bool secureConnection(const LdapConfiguration* config);
  // The kept part of a "prefix:role" value under filter type 2 with node types, or empty.
  std::string matchTargetType(const std::string& value, std::string::size_type colon);
};

}  // namespace QivAccessManagement

#endif
