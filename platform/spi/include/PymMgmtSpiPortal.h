/* The interface portal: how components find each other. */
#ifndef PYM_MGMT_SPI_PORTAL_H
#define PYM_MGMT_SPI_PORTAL_H

#include "PymMgmtSpiComponent.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Handed to a component's pymLCMinit. getPortal("3") gives a PymMgmtSpiInterfacePortal_3,
 * getPortal("1") a QivMgmtSpiInterfacePortal_1; null when that version is not offered. */
struct PymMgmtSpiInterfacePortalAccessor {
  PymMgmtSpiInterface_1 base;
  void* (*getPortal)(const char* version);
};

/* Version-3 portal. */
typedef struct PymMgmtSpiInterfacePortal_3 {
  PymMgmtSpiInterface_1 base;
  /* Finds the interface; a null componentName (or version) matches any. */
  PymReturnT (*getInterface)(const char* componentName, const char* interfaceName,
                             const char* interfaceVersion, PymMgmtSpiInterface_1** result);
  /* All implementations of name/version as a malloc'ed null-terminated array that the caller
   * releases with free (the tables themselves stay the implementers'). */
  PymReturnT (*getImplementations)(const char* interfaceName, const char* interfaceVersion,
                                   PymMgmtSpiInterface_1*** result);
  PymReturnT (*registerComponent)(PymMgmtSpiComponent_2* component);
  PymReturnT (*unregisterComponent)(PymMgmtSpiComponent_2* component);
} PymMgmtSpiInterfacePortal_3;

/* Version-1 portal of the platform: interface look-up only. */
typedef struct QivMgmtSpiInterfacePortal_1 {
  PymMgmtSpiInterface_1 base;
  PymReturnT (*getInterface)(const char* componentName, const char* interfaceName,
                             const char* interfaceVersion, PymMgmtSpiInterface_1** result);
} QivMgmtSpiInterfacePortal_1;

#ifdef __cplusplus
}
#endif

#endif
