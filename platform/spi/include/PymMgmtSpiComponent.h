/* The descriptor a component registers with the portal. */
#ifndef PYM_MGMT_SPI_COMPONENT_H
#define PYM_MGMT_SPI_COMPONENT_H

#include "PymSpiTypes.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Component descriptor, interface "PymMgmtSpiComponent" version "2". The three arrays are
 * null-terminated; the component owns them for as long as it is registered. */
typedef struct PymMgmtSpiComponent_2 {
  PymMgmtSpiInterface_1 base;
  PymMgmtSpiInterface_1** interfaceArray;
  PymMgmtSpiInterface_1** dependencyArray;
  PymReturnT (*start)(PymStateChangeReason reason);
  PymReturnT (*stop)(PymStateChangeReason reason);
  PymMgmtSpiInterface_1** optionalDependencyArray;
} PymMgmtSpiComponent_2;

/* Entry points a component library exports. */
typedef struct PymMgmtSpiInterfacePortalAccessor PymMgmtSpiInterfacePortalAccessor;
typedef PymReturnT (*PymLCMinitFunction)(PymMgmtSpiInterfacePortalAccessor* accessor, const char* config);
typedef PymReturnT (*PymLCMterminateFunction)(void);

#ifdef __cplusplus
}
#endif

#endif
