/* ZqSys message-queue client.
 *
 * An application talks to its local router over TCP through connections.
 * The client is started once per process with ZqMQStartup and stopped with
 * ZqMQCleanup. A connection handle is a u32 id from the library's handle
 * table: never 0, never reused, only ever looked up, so a stale or invented
 * handle gives MQ:INVALID_CONN_HANDLE (0x600A) and never touches memory.
 *
 * Each connection has one lock, held for the whole of each call on it
 * (socket waits included): calls on one connection are serialised, calls on
 * different connections run in parallel. A handle may be freed by one thread
 * while another is inside a call on it; the object lives until that call
 * ends. Callbacks of asynchronous sends run on the thread that calls
 * ZqMQGetMsg or ZqMQPeekMsg, with the connection's lock held: a callback must
 * not call into the same connection.
 *
 * docs/PROTOCOL.md describes the wire protocol. */
#ifndef ZQSYS_ZQMQ_H
#define ZQSYS_ZQMQ_H

#include "zqsys/zqdefs.h"
#include "zqsys/zqmsg.h"
#include "zqsys/zqstat.h"

/* Options word bits (ZqMQSetOpt). */
#define ZQMQ_OPT_TCP_NODELAY 0x1u

/* Status word bits (ZqMQGetStatus). The router's own state bits are OR-ed
 * into a connected status. */
#define ZQMQ_STATUS_NOT_CONNECTED 0x1u
#define ZQMQ_STATUS_CONNECTED 0x2u
#define ZQMQ_STATUS_INVALID 0x4u
#define ZQMQ_STATUS_MULTI_GET 0x8u

/* The default local timeout of a new connection, in milliseconds. */
#define ZQMQ_DEFAULT_LOCAL_TIMEOUT 30000u
/* A timeout that means "no practical limit". */
#define ZQMQ_INFINITE 0xFFFFFFFFu
/* The most handles one multi-connection receive takes. */
#define ZQMQ_MULTI_GET_MAX 64u

/* Fields the client reads and writes besides the system fields of zqmsg.h. */
#define ZQMQ_FIELD_FLAGS "Zq_Flags"   /* u32; bit 0 asks for guaranteed delivery */
#define ZQMQ_FIELD_GRNTID "Zq_GrntId" /* u64; the router's id of such a post */
#define ZQMQ_FLAG_GUARANTEED 0x1u

/* The reply of an asynchronous send: the message is lent for the call and
 * freed after it (ZqMsgDuplicateMessageHandle keeps it). */
typedef void (*ZqMQReplyCallback)(HZQMSG reply, void* context);

ZQ_EXTERN_C_BEGIN

/* ---- The client and its connections ---- */

/* Starts the client once per process: 0, or MQ:ALREADY_INITIALIZED (0x6000)
 * when it is started already (startup does not nest). */
ZQ_API uint32_t ZqMQStartup(void);

/* Disconnects and frees every connection and stops the client. It runs, and
 * logs "MQ library stopped", even when ZqMQStartup never succeeded. */
ZQ_API void ZqMQCleanup(void);

/* A new, unconnected connection: *handle gets its id (0 first, so it is 0 on
 * failure). 2 for a null `handle`, MQ:NOT_INITIALIZED_YET (0x6001) before
 * ZqMQStartup, 1 when memory runs out. */
ZQ_API uint32_t ZqMQCreateConnection(uint32_t* handle);

/* Disconnects the connection and frees the handle. 2 for handle 0,
 * MQ:INVALID_CONN_HANDLE for an unknown or freed one. */
ZQ_API uint32_t ZqMQFreeConnection(uint32_t handle);

/* Sets the options word (ZQMQ_OPT_*): 2 for any other bit,
 * MQ:INVALID_CONNECTION (0x6009) unless the connection is connected and
 * valid, MQ:SOCK_ERROR when the socket refuses. The word survives
 * disconnects. */
ZQ_API uint32_t ZqMQSetOpt(uint32_t handle, int32_t options);
ZQ_API uint32_t ZqMQGetOpt(uint32_t handle, uint32_t* options);

/* How long the calls that wait for the router's answer wait, in
 * milliseconds (default 30000); stored as given, kept across disconnects. */
ZQ_API uint32_t ZqMQSetLocalTimeout(uint32_t handle, uint32_t milliseconds);

/* The status word: exactly ZQMQ_STATUS_NOT_CONNECTED, or
 * ZQMQ_STATUS_CONNECTED with ZQMQ_STATUS_INVALID after a protocol error,
 * ZQMQ_STATUS_MULTI_GET while enrolled in a multi-connection receive, and
 * the router's state bits. 2 for a null `status`. */
ZQ_API uint32_t ZqMQGetStatus(uint32_t handle, uint32_t* status);

/* The id of the last successful login, and the login id of the last router
 * status. 2 for a null output. */
ZQ_API uint32_t ZqMQGetLastLoginId(uint32_t handle, uint32_t* id);
ZQ_API uint32_t ZqMQGetStateLoginId(uint32_t handle, uint32_t* id);

/* ---- Connecting and login ---- */

/* Connects to the router and introduces the application. `text` is a
 * connection string of KEY=value pairs separated by ";" or ",", keys without
 * case, blanks around keys and values skipped: APPNAME (required), PORT
 * (required), HOST (default 127.0.0.1), PASSWORD and any others, which reach
 * the router unchanged (PORT and HOST do not). The whole connect, router
 * status included, shares `timeout` milliseconds. *fatal (may be null) is 1
 * when retrying the same call cannot succeed. 0, 2, MQ:ALREADY_CONNECTED
 * (0x6002), a socket code (MQ:SOCK_*, MQ:TIMEOUT), the router's refusal, or
 * MQ:PROTOCOL_ERROR. */
ZQ_API uint32_t ZqMQConnectEx(uint32_t handle, const char* text, uint32_t timeout, uint32_t* fatal);

/* The same with the pairs given one by one; `host` and `password` may be
 * null or empty. */
ZQ_API uint32_t ZqMQConnect(uint32_t handle, const char* appName, uint16_t port, uint32_t timeout,
                            const char* host, const char* password, uint32_t* fatal);

/* Ends the link to the router and forgets what came over it (frames not
 * yet taken, the router status, pending asynchronous sends); the handle,
 * its options and its local timeout stay for a later connect. Always 0 for
 * a valid handle. */
ZQ_API uint32_t ZqMQDisconnect(uint32_t handle);

/* A user login with `login` as its text: *id gets the router's login id. 2,
 * MQ:NOT_CONNECTED_YET (0x6003), MQ:INVALID_CONNECTION, MQ:CONNECTION_BUSY
 * (0x6016), the router's result, or MQ:PROTOCOL_ERROR. */
ZQ_API uint32_t ZqMQLogin(uint32_t handle, const char* login, uint32_t* id);
ZQ_API uint32_t ZqMQLogout(uint32_t handle);

/* The router's node name and this connection's application name, by the
 * sized-buffer rule: *size is the buffer's size in and the needed size
 * (length + 1) out; 7 when the buffer is null or short. */
ZQ_API uint32_t ZqMQGetNodeName(uint32_t handle, char* buffer, uint32_t* size);
ZQ_API uint32_t ZqMQGetAppName(uint32_t handle, char* buffer, uint32_t* size);

/* 1 when `name` is one of the administrators the router named in its last
 * status ("Zq_ListAdmins": names separated by ";" or ",", blanks around
 * them skipped), or that list holds "*"; 0 otherwise, also for an unknown
 * handle. Not a result code. */
ZQ_API uint32_t ZqMQIsAdmin(const char* name, uint32_t handle);

/* ---- Sending and receiving ---- */

/* Posts a message (no reply expected) and waits up to the local timeout for
 * the router's answer, which is the result. A message whose "Zq_Flags" has
 * bit 0 set asks for guaranteed delivery: the router's id is then written
 * into its "Zq_GrntId". */
ZQ_API uint32_t ZqMQPostMsg(uint32_t handle, HZQMSG message);

/* Answers the received `request` with `reply`: "Zq_ReplyId" and "Zq_To" are
 * taken from the request's "Zq_SendId" and "Zq_From".
 * MQ:ORIGMSG_NOT_SEND (0x6007) or MQ:ORIGMSG_BAD_ADDR_FROM (0x6008) when the
 * request has none. */
ZQ_API uint32_t ZqMQPostReplyMsg(uint32_t handle, HZQMSG request, HZQMSG reply);

/* Sends a request and waits for its reply (the router enforces `timeout`;
 * MQ:TIMEOUT if nothing comes within `timeout` plus the local timeout);
 * *reply is the reply, or a system message ("Zq_Category" "Zq_System" and
 * the send id as "Zq_ReplyId") when the router says no reply came. The send
 * id is written into the message's "Zq_SendId". */
ZQ_API uint32_t ZqMQSendMsg(uint32_t handle, HZQMSG message, HZQMSG* reply, uint32_t timeout);

/* Sends a request whose reply (or reply-failed notice) is handed to
 * callback(reply, context) by a later ZqMQGetMsg or ZqMQPeekMsg on this
 * connection instead of being returned. */
ZQ_API uint32_t ZqMQAsyncSendMsg(uint32_t handle, HZQMSG message, uint32_t timeout,
                                 ZqMQReplyCallback callback, void* context);

/* Takes the next incoming message within `timeout` milliseconds (0: only
 * what is already there): *message is a new handle the caller frees, or
 * null with result 0 when the call consumed a message meant for the library
 * (a system ping, which a Get answers, or an asynchronous reply, which goes
 * to its callback). A later router status is applied and handed out too
 * ("Zq_Category" "Zq_System", "Zq_Type" 1). MQ:TIMEOUT (0x6004) when
 * nothing came; the connection stays usable and a frame cut by the timeout
 * is completed by the next call. Peek leaves the message in place, so the
 * next Get or Peek returns it again; it neither answers pings nor confirms
 * guaranteed deliveries (the Get that takes the message does). */
ZQ_API uint32_t ZqMQGetMsg(uint32_t handle, HZQMSG* message, uint32_t timeout);
ZQ_API uint32_t ZqMQPeekMsg(uint32_t handle, HZQMSG* message, uint32_t timeout);

/* The same over up to ZQMQ_MULTI_GET_MAX connections with one wait: *count
 * is the number of handles in, and the index of the connection the result
 * comes from out (unchanged on MQ:TIMEOUT). What a connection has already
 * is taken first, in array order; then all are enrolled (status bit
 * ZQMQ_STATUS_MULTI_GET, and other calls on them get MQ:CONNECTION_BUSY)
 * and one poll waits on all their sockets without holding their locks. 2
 * for a null or zero count, a null array or more than 64 handles;
 * MQ:INVALID_CONN_HANDLE with *count set to the unknown handle's index. */
ZQ_API uint32_t ZqMQGetMsgFromMultiple(uint32_t* count, const uint32_t* handles, HZQMSG* message,
                                       uint32_t timeout);
ZQ_API uint32_t ZqMQPeekMsgFromMultiple(uint32_t* count, const uint32_t* handles, HZQMSG* message,
                                        uint32_t timeout);

/* ---- Addresses, services and time sync ---- */

/* "node.app" into `buffer`: *size gets the needed size (both lengths + 2)
 * whenever both names are given; 15 for a null buffer, 7 for a short one. */
ZQ_API uint32_t ZqMQAddrCompose(const char* node, const char* app, char* buffer, uint32_t* size);

/* The node part of an address (up to the first ".") and the application
 * part (all after it, further dots included; empty without a dot), by the
 * sized-buffer rule. */
ZQ_API uint32_t ZqMQGetNodeNameFromAddr(const char* address, char* buffer, uint32_t* size);
ZQ_API uint32_t ZqMQGetAppNameFromAddr(const char* address, char* buffer, uint32_t* size);

/* Registers and withdraws a service name at the router; the result is the
 * router's. The meaning of `flag` (its low byte travels) is the router's. */
ZQ_API uint32_t ZqMQServiceRegister(uint32_t handle, const char* service, int32_t flag);
ZQ_API uint32_t ZqMQServiceUnregister(uint32_t handle, const char* service);

/* Asks the router which address offers `service`, skipping the `count`
 * addresses of `excluded` (null or empty entries are ignored). Waits without
 * a practical limit. *size is the buffer's size in (at least 2) and the
 * needed size out; 7 when the address does not fit. */
ZQ_API uint32_t ZqMQServiceResolve(uint32_t handle, const char* service, char* address,
                                   uint32_t* size, const char* const* excluded, uint32_t count);

/* Switches delivery of the router's time-sync messages on and off for a
 * connection. Always 0. */
ZQ_API uint32_t ZqMQRegistryTimeSync(uint32_t handle);
ZQ_API uint32_t ZqMQUnRegistryTimeSync(uint32_t handle);

/* ---- Statistics ---- */

/* The statistics service of a connection (zqstat.h): its module of class
 * "MQConnection" with the connection's figures, and the switch that decides
 * who answers the statistics requests its Gets take. *service gets a
 * reference the caller releases with FreeService; it stays usable after the
 * connection is freed, whose module then leaves the process's statistics.
 * 2 for a null `service`, MQ:INVALID_CONN_HANDLE for an unknown handle. */
ZQ_API uint32_t GetService(uint32_t handle, HZQSTATSERVICE* service);

/* Releases a reference GetService gave. Null is accepted. Always 0. */
ZQ_API uint32_t FreeService(HZQSTATSERVICE service);

ZQ_EXTERN_C_END

#endif /* ZQSYS_ZQMQ_H */
