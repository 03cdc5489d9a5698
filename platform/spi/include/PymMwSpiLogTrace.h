/* The framework's log and trace. */
#ifndef PYM_MW_SPI_LOG_TRACE_H
#define PYM_MW_SPI_LOG_TRACE_H

#include "PymSpiTypes.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Log levels: 3 error, 4 warning, 5 notice, 6 info, 7 debug; traces are level 8 and are
 * enabled only while the configured level is above 7. */
enum PymLogLevel {
  PymLogError = 3,
  PymLogWarning = 4,
  PymLogNotice = 5,
  PymLogInfo = 6,
  PymLogDebug = 7,
  PymLogTrace = 8
};

/* "PymMwSpiLog" "1". getLevel gives the highest level that is written. */
typedef struct PymMwSpiLog_1 {
  PymMgmtSpiInterface_1 base;
  void (*log)(int level, const char* method, const char* text);
  int (*getLevel)(void);
} PymMwSpiLog_1;

/* "PymMwSpiTrace" (any version). */
typedef struct PymMwSpiTrace_1 {
  PymMgmtSpiInterface_1 base;
  void (*trace)(const char* method, const char* text);
  bool (*isEnabled)(void);
} PymMwSpiTrace_1;

#ifdef __cplusplus
}
#endif

#endif
