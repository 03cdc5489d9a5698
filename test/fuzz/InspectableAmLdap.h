#ifndef QIV_FUZZ_INSPECTABLE_AM_LDAP_H
#define QIV_FUZZ_INSPECTABLE_AM_LDAP_H

#include "AmLdap.h"

// The built-in lookup with its working fields and its lock in reach of the fuzz target.
class InspectableAmLdap : public QivAccessManagement::AmLdap {
 public:
  using AmLdap::AmLdap;
  using AmLdap::mutex;
  using AmLdap::nodeTypes;
  using AmLdap::roles;
  using AmLdap::targetTypes;
};

#endif
