/* Context of the request a framework thread is serving. */
#ifndef PYM_MGMT_SPI_THREAD_CONTEXT_H
#define PYM_MGMT_SPI_THREAD_CONTEXT_H

#include "PymSpiTypes.h"

#ifdef __cplusplus
extern "C" {
#endif

enum PymThreadContextMessageKind {
  PymThreadContextMessageOperator = 1  /* shown to the operator whose request is served */
};

/* "PymMgmtSpiThreadContext" "2". */
typedef struct PymMgmtSpiThreadContext_2 {
  PymMgmtSpiInterface_1 base;
  PymReturnT (*addMessage)(int messageKind, const char* message);
} PymMgmtSpiThreadContext_2;

#ifdef __cplusplus
}
#endif

#endif
