/* Registration of object implementers for classes of the model. */
#ifndef PYM_OAM_SPI_REGISTER_OBJECT_IMPLEMENTER_H
#define PYM_OAM_SPI_REGISTER_OBJECT_IMPLEMENTER_H

#include "PymSpiTypes.h"

#ifdef __cplusplus
extern "C" {
#endif

/* "PymOamSpiRegisterObjectImplementer" "2": the implementer names its two tables itself. */
typedef struct PymOamSpiRegisterObjectImplementer_2 {
  PymMgmtSpiInterface_1 base;
  PymReturnT (*registerClass)(const PymMgmtSpiInterface_1* managedObjectInterface,
                              const PymMgmtSpiInterface_1* transactionalResourceInterface,
                              const char* classPath);
  PymReturnT (*unregisterClass)(const char* componentName, const char* classPath);
} PymOamSpiRegisterObjectImplementer_2;

/* "PymOamSpiRegisterObjectImplementer" "3": the framework finds the tables among those the
 * named component registered. */
typedef struct PymOamSpiRegisterObjectImplementer_3 {
  PymMgmtSpiInterface_1 base;
  PymReturnT (*registerClass)(const char* componentName, const char* classPath);
  PymReturnT (*unregisterClass)(const char* componentName, const char* classPath);
} PymOamSpiRegisterObjectImplementer_3;

#ifdef __cplusplus
}
#endif

#endif
