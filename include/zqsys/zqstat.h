/* ZqSys module statistics.
 *
 * A process-wide registry of modules and their statistic values, which an
 * operator reads from outside the process with a statistics request (a
 * request of category "ZQ_MQ_STAT", answered by the message-queue client;
 * docs/PROTOCOL.md gives the request and the reply).
 *
 * A module is a part of the process that reports figures: each binary module
 * (the library registers itself at load as class "BinaryModule" with the
 * text values "Name" and "Version"), each message-queue connection (class
 * "MQConnection"), or anything an application registers. A module has a
 * class, an optional key (two modules of one class may not share a non-null
 * key), an id that is never reused while the process lives, and values.
 *
 * A value has a name unique in its module and a kind: a counter (a u64 that
 * only grows), a gauge (an i64 that is set or moved either way) or a text.
 * Numbers are set and changed from any thread at the cost of one relaxed
 * atomic operation, without a lock; a text takes a short lock of its own.
 * A value handle stays valid until its module is unregistered.
 *
 * Modules are listed in the order of their ids and values in the order they
 * were added, so two readings of one process list the same rows in the same
 * order. */
#ifndef ZQSYS_ZQSTAT_H
#define ZQSYS_ZQSTAT_H

#include "zqsys/zqdefs.h"
#include "zqsys/zqmsg.h"

/* Kinds of values. */
#define ZQSTAT_COUNTER 1u
#define ZQSTAT_GAUGE 2u
#define ZQSTAT_TEXT 3u

/* The category of statistics requests and replies, and the one query type. */
#define ZQSTAT_CATEGORY "ZQ_MQ_STAT"
#define ZQSTAT_QUERY_ALL 1u

/* Fields of a statistics request and reply (docs/PROTOCOL.md). */
#define ZQSTAT_FIELD_CLASS "ZqStat_Class"     /* text: only modules of this class */
#define ZQSTAT_FIELD_RESULT "ZqStat_Result"   /* u32: 0 or why there are no rows */
#define ZQSTAT_FIELD_VERSION "ZqStat_Version" /* u32: the row layout, 1 */
#define ZQSTAT_FIELD_PID "ZqStat_Pid"         /* u32: the answering process */
/* The stream format of one row of a reply's body. */
#define ZQSTAT_ROW_FORMAT "u4ccu1i8c"

typedef struct ZqStatValue_s* HZQSTATVALUE;
typedef struct ZqStatService_s* HZQSTATSERVICE;

/* One row of a reading: a value of a module. The texts belong to the call
 * that hands the row out. */
typedef struct ZQSTATROW {
  uint32_t moduleId;
  const char* moduleClass;
  const char* name;
  uint32_t kind;    /* ZQSTAT_COUNTER, ZQSTAT_GAUGE or ZQSTAT_TEXT */
  int64_t number;   /* a counter's or gauge's value; 0 for a text */
  const char* text; /* a text's value; "" for a number */
} ZQSTATROW;

/* Called once per row; a nonzero return stops the reading, which then
 * returns that value. */
typedef uint32_t (*ZqMQStatRowCallback)(const ZQSTATROW* row, void* context);

ZQ_EXTERN_C_BEGIN

/* Registers a module of class `moduleClass` under `key` (may be null):
 * *moduleId gets its id. 2 for a null argument, MQSTAT:INVALID_NAME (0x10006)
 * for an empty class, MQSTAT:ALREADY_REGISTERED (0x10000) when a module of
 * that class has that non-null key, COMMON:INTERNAL_ERROR after unload. */
ZQ_API uint32_t ZqMQStatRegisterModule(const char* moduleClass, const void* key,
                                       uint32_t* moduleId);

/* Registers the binary module (program or shared object) that holds
 * `address` (null: the running program) as class "BinaryModule" keyed by its
 * load address, with the texts "Name" (its file) and "Version" (`version`,
 * which may be null or empty). Codes as ZqMQStatRegisterModule. */
ZQ_API uint32_t ZqMQStatSetBinaryModuleVersion(const void* address, const char* version,
                                               uint32_t* moduleId);

/* Removes a module and its values; their handles die with it. 0 or
 * MQSTAT:NOT_REGISTERED (0x10001). */
ZQ_API uint32_t ZqMQStatUnregisterModule(uint32_t moduleId);

/* Adds a value of `kind` to a module: *value gets its handle. 2 for a null
 * argument or an unknown kind, MQSTAT:NOT_REGISTERED, MQSTAT:INVALID_NAME for
 * an empty name, MQSTAT:ALREADY_ANNOUNCED (0x10002) when the module has a
 * value of that name. */
ZQ_API uint32_t ZqMQStatAddValue(uint32_t moduleId, const char* name, uint32_t kind,
                                 HZQSTATVALUE* value);

/* The handle of a module's value by name: MQSTAT:NOT_ANNOUNCED (0x10003) when
 * it has none. */
ZQ_API uint32_t ZqMQStatFindValue(uint32_t moduleId, const char* name, HZQSTATVALUE* value);

/* Moves a number: a counter by a delta of 0 or more, a gauge either way. 2
 * for a null handle or a negative counter delta, MQSTAT:LAME_STATISTIC
 * (0x10004) for a text. */
ZQ_API uint32_t ZqMQStatAdd(HZQSTATVALUE value, int64_t delta);

/* Sets a gauge or a counter (a counter only to 0 or more). Codes as
 * ZqMQStatAdd. */
ZQ_API uint32_t ZqMQStatSet(HZQSTATVALUE value, int64_t number);

/* Sets a text value (null stores ""). MQSTAT:LAME_STATISTIC for a number. */
ZQ_API uint32_t ZqMQStatSetText(HZQSTATVALUE value, const char* text);

/* Reads a number: 2 for a null argument, MQSTAT:LAME_STATISTIC for a text. */
ZQ_API uint32_t ZqMQStatGet(HZQSTATVALUE value, int64_t* number);

/* Reads every value of the process (of the modules of `moduleClass` only,
 * when it is neither null nor empty) in the stable order, calling `callback`
 * once per row with no lock held. Values changed meanwhile are read as they
 * are at that moment. 0, 2 for a null callback, or the callback's stop
 * value. */
ZQ_API uint32_t ZqMQStatEnumValues(const char* moduleClass, ZqMQStatRowCallback callback,
                                   void* context);

/* Builds, without sending it, the reply to a statistics request: the rows of
 * this process in the reply's body, as the message-queue client answers a
 * request a Get takes. A program that reads requests on its own (a router
 * answering for itself) sends it as its reply. *reply is a new message the
 * caller frees. 2 for a null argument, 1 without memory. */
ZQ_API uint32_t ZqMQStatBuildReply(HZQMSG request, HZQMSG* reply);

/* Reads the rows of a statistics reply, calling `callback` once per row. 2
 * for a null argument, MQSTAT:INVALID_QUERY (0x10005) for a message that is
 * not a statistics reply of a known version or whose body is cut short, the
 * reply's own "ZqStat_Result" when it is not 0, or the callback's stop
 * value. */
ZQ_API uint32_t ZqMQStatReadReply(HZQMSG reply, ZqMQStatRowCallback callback, void* context);

/* ---- The statistics service of a connection (GetService in zqmq.h) ----
 *
 * Each message-queue connection has a statistics service: its module of
 * class "MQConnection" (the connection's figures, to which the application
 * may add values of its own) and the switch that decides whether the
 * statistics requests a Get takes on that connection are answered by the
 * library (the default) or handed to the application like any request. */

/* The id of the connection's module. 2 for a null argument. */
ZQ_API uint32_t ZqMQStatServiceGetModuleId(HZQSTATSERVICE service, uint32_t* moduleId);

/* 1: the library answers statistics requests (the default); 0: they are
 * delivered to the application. 2 for a null service. */
ZQ_API uint32_t ZqMQStatServiceSetAnswering(HZQSTATSERVICE service, uint32_t on);

ZQ_EXTERN_C_END

#endif /* ZQSYS_ZQSTAT_H */
