/* ZqSys: the definitions every public header shares.
 *
 * The headers are C11 and C++ at once. Every exported function has C linkage
 * and is marked with ZQ_API; nothing else leaves the shared library. */
#ifndef ZQSYS_ZQDEFS_H
#define ZQSYS_ZQDEFS_H

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>

#define ZQSYS_VERSION_MAJOR 0
#define ZQSYS_VERSION_MINOR 1
#define ZQSYS_VERSION_PATCH 0
/* One number that grows with every release: major * 10000 + minor * 100 + patch. */
#define ZQSYS_VERSION_NUMBER \
  (ZQSYS_VERSION_MAJOR * 10000 + ZQSYS_VERSION_MINOR * 100 + ZQSYS_VERSION_PATCH)

#if defined(ZQSYS_BUILDING)
#define ZQ_API __attribute__((visibility("default")))
#else
#define ZQ_API
#endif

#ifdef __cplusplus
#define ZQ_EXTERN_C_BEGIN extern "C" {
#define ZQ_EXTERN_C_END }
#else
#define ZQ_EXTERN_C_BEGIN
#define ZQ_EXTERN_C_END
#endif

/* Result code of every exported function: 0 is success. */
typedef uint32_t ZQRESULT;

ZQ_EXTERN_C_BEGIN

/* The library's version as "major.minor.patch". Never null; never freed. */
ZQ_API const char* ZqSysGetVersionStr(void);

/* The library's version as ZQSYS_VERSION_NUMBER computes it. */
ZQ_API uint32_t ZqSysGetVersionNumber(void);

ZQ_EXTERN_C_END

#endif /* ZQSYS_ZQDEFS_H */
