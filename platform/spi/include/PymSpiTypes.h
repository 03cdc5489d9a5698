/* Basic types shared by every interface of the management framework. */
#ifndef PYM_SPI_TYPES_H
#define PYM_SPI_TYPES_H

#include <stdbool.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Result of every framework call. */
typedef int32_t PymReturnT;

/* Result codes the framework itself gives. Components add codes of their own. */
enum PymReturnCode {
  PymOk = 0,
  PymFailure = -1,
  PymNotExist = -2,      /* no such object, attribute or implementer */
  PymAlreadyExist = -3,
  PymInvalidParameter = -5,
  PymValidationFailed = -9
};

/* Why a component is started or stopped. */
typedef enum PymStateChangeReason {
  PymStateChangeStartup = 0,
  PymStateChangeShutdown = 1,
  PymStateChangeFailure = 2   /* the component gave up on its own start */
} PymStateChangeReason;

/* Identity of an interface: implementing component (null in a dependency = any implementer),
 * interface name and version. Every interface table begins with one. */
typedef struct PymMgmtSpiInterface_1 {
  const char* componentName;
  const char* interfaceName;
  const char* interfaceVersion;
} PymMgmtSpiInterface_1;

/* A name and a value, both C strings. */
typedef struct PymNameValuePair {
  char* name;
  char* value;
} PymNameValuePair;

#ifdef __cplusplus
}
#endif

#endif
