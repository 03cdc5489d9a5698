/* Authorization: the roles of an authenticated user. */
#ifndef PYM_MW_SPI_ACCESS_MANAGEMENT_H
#define PYM_MW_SPI_ACCESS_MANAGEMENT_H

#include "PymSpiTypes.h"

#ifdef __cplusplus
extern "C" {
#endif

/* "PymMwSpiAccessManagement" "1" and "2" (same operations). getRoles hands out a malloc'ed,
 * null-terminated array of malloc'ed strings that the caller gives back through freeRoles. */
typedef struct PymMwSpiAccessManagement_2 {
  PymMgmtSpiInterface_1 base;
  PymReturnT (*getRoles)(const char* method, const char* userName, const char*** roles);
  PymReturnT (*freeRoles)(const char* method, const char** roles);
} PymMwSpiAccessManagement_2;

typedef PymMwSpiAccessManagement_2 PymMwSpiAccessManagement_1;

#ifdef __cplusplus
}
#endif

#endif
