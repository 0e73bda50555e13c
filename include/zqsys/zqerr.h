/* ZqSys result codes.
 *
 * A result code is a u32: the category in bits 12 and up, the index within
 * the category in bits 0 to 11; 0 is success. Each code has a constant
 * ZQERR_<CATEGORY>_<NAME> and a fixed text that ZqErrGetDescrStr returns.
 * The one table below is the source of both. */
#ifndef ZQSYS_ZQERR_H
#define ZQSYS_ZQERR_H

#include "zqsys/zqdefs.h"

#define ZQERR_CATEGORY_SHIFT 12
#define ZQERR_INDEX_MASK 0xFFFu
#define ZQERR_CATEGORY_COUNT 22
#define ZQERR_CODE(category, index) \
  (((uint32_t)(category) << ZQERR_CATEGORY_SHIFT) | (uint32_t)(index))

/* The categories: C(name, number, tag, number of codes). The tag is the text
 * of a code whose index lies beyond the category's codes. */
#define ZQERR_CATEGORY_MAP(C)    \
  C(COMMON, 0, "<COMMON>", 28)   \
  C(MSG, 1, "<MSG>", 5)          \
  C(CONN, 2, "<CONN>", 29)       \
  C(ROUTE, 3, "<ROUTE>", 6)      \
  C(INI, 4, "<INI>", 6)          \
  C(LOG, 5, "<LOG>", 4)          \
  C(MQ, 6, "<MQ>", 29)           \
  C(MQCRYPT, 7, "<MQCRYPT>", 13) \
  C(DB, 8, "<DB>", 43)           \
  C(SERV, 9, "<SERV>", 3)        \
  C(REPL, 10, "<REPL>", 15)      \
  C(CRYPT, 11, "<CRYPT>", 10)    \
  C(ASNS, 12, "<ASNS>", 13)      \
  C(VM, 13, "<VM>", 16)          \
  C(MQASNS, 14, "<MQASNS>", 13)  \
  C(ACL, 15, "<ACL>", 10)        \
  C(MQSTAT, 16, "<MQSTAT>", 7)   \
  C(BL, 17, "<BL>", 7)           \
  C(ZQSVC, 18, "<ZQSVC>", 2)     \
  C(PARSE, 19, "<PARSE>", 1)     \
  C(TEST, 20, "<TEST>", 2)       \
  C(ISAMSM, 21, "<ISAMSM>", 15)

/* The codes: X(category name, category number, index, name, text). Names
 * and texts keep their historic spellings ("NO MEMORY", "EMPTY_SHEME", ...);
 * an index is never reused for another meaning. */
#define ZQERR_CODE_MAP(X)                                                                     \
  X(COMMON, 0, 0, OK, "OK!")                                                                  \
  X(COMMON, 0, 1, NO_MEMORY, "COMMON:NO MEMORY")                                              \
  X(COMMON, 0, 2, WRONG_ARGUMENTS, "COMMON:WRONG_ARGUMENTS")                                  \
  X(COMMON, 0, 3, INTERNAL_ERROR, "COMMON:INTERNAL_ERROR")                                    \
  X(COMMON, 0, 4, SYSCALL_FAILED, "COMMON:SYSCALL_FAILED")                                    \
  X(COMMON, 0, 5, NOT_IMPLEMENTED, "COMMON:NOT_IMPLEMENTED")                                  \
  X(COMMON, 0, 6, OBJECT_NOT_INITED, "COMMON:OBJECT_NOT_INITED")                              \
  X(COMMON, 0, 7, BUFFER_TOO_SMALL, "COMMON:BUFFER_TOO_SMALL")                                \
  X(COMMON, 0, 8, BUFFER_TOO_LARGE, "COMMON:BUFFER_TOO_LARGE")                                \
  X(COMMON, 0, 9, MESSAGE_WAS_INTERCEPTED, "COMMON:MESSAGE_WAS_INTERCEPTED")                  \
  X(COMMON, 0, 10, INVALID_INTERFACE_VERSION, "COMMON:INVALID_INTERFACE_VERSION")             \
  X(COMMON, 0, 11, BAD_STRING, "COMMON:BAD_STRING")                                           \
  X(COMMON, 0, 12, CANCEL_ENUM, "COMMON:CANCEL_ENUM")                                         \
  X(COMMON, 0, 13, EXITCODE_FATAL, "COMMON:EXITCODE_FATAL")                                   \
  X(COMMON, 0, 14, OVERFLOW, "COMMON:OVERFLOW")                                               \
  X(COMMON, 0, 15, REAL_SIZE_RETURNED, "COMMON:REAL_SIZE_RETURNED")                           \
  X(COMMON, 0, 16, NOT_SUPPORTED, "COMMON:NOT_SUPPORTED")                                     \
  X(COMMON, 0, 17, ALREADY_INITIALIZED, "COMMON:ALREADY_INITIALIZED")                         \
  X(COMMON, 0, 18, WRONG_BUILD, "COMMON:WRONG_BUILD")                                         \
  X(COMMON, 0, 19, ALREADY_DEFINED, "COMMON:ALREADY_DEFINED")                                 \
  X(COMMON, 0, 20, EXITCODE_TERMINATED, "COMMON:EXITCODE_TERMINATED")                         \
  X(COMMON, 0, 21, NOT_OK, "NOT_OK!")                                                         \
  X(COMMON, 0, 22, BUFFER_SIZES_MISMATCH, "COMMON:BUFFER_SIZES_MISMATCH")                     \
  X(COMMON, 0, 23, WRONG_INI_PARAMETER, "COMMON:WRONG_INI_PARAMETER")                         \
  X(COMMON, 0, 24, NOT_INITIALIZED, "COMMON:NOT_INITIALIZED")                                 \
  X(COMMON, 0, 25, TIMEOUT, "COMMON:TIMEOUT")                                                 \
  X(COMMON, 0, 26, OPEN_FILE_MAPPING_FAILED, "COMMON:OPEN_FILE_MAPPING_FAILED")               \
  X(COMMON, 0, 27, INVALID_OBJECT_STATE, "COMMON:INVALID_OBJECT_STATE")                       \
  X(MSG, 1, 0, FIELD_NOT_FOUND, "MSG:FIELD_NOT_FOUND")                                        \
  X(MSG, 1, 1, BAD_MESSAGE_SIGNATURE, "MSG:BAD_MESSAGE_SIGNATURE")                            \
  X(MSG, 1, 2, WRONG_OFFSETS_IN_MESSAGE, "MSG:WRONG_OFFSETS_IN_MESSAGE")                      \
  X(MSG, 1, 3, SHIT_HAPPENS, "MSG:SHIT_HAPPENS")                                              \
  X(MSG, 1, 4, BAD_PARSE_BLOCK, "MSG:BAD_PARSE_BLOCK")                                        \
  X(CONN, 2, 0, SOCK_CREATE, "CONN:SOCK_CREATE")                                              \
  X(CONN, 2, 1, SOCK_BIND, "CONN:SOCK_BIND")                                                  \
  X(CONN, 2, 2, SOCK_MAKEADDR, "CONN:SOCK_MAKEADDR")                                          \
  X(CONN, 2, 3, SOCK_CONNECT, "CONN:SOCK_CONNECT")                                            \
  X(CONN, 2, 4, SOCK_EVTSELECT, "CONN:SOCK_EVTSELECT")                                        \
  X(CONN, 2, 5, SOCK_LISTEN, "CONN:SOCK_LISTEN")                                              \
  X(CONN, 2, 6, SOCK_ERROR, "CONN:SOCK_ERROR")                                                \
  X(CONN, 2, 7, WINSOCK_INIT, "CONN:WINSOCK_INIT")                                            \
  X(CONN, 2, 8, SOCK_CLOSED, "CONN:SOCK_CLOSED")                                              \
  X(CONN, 2, 9, SOCK_TIMEOUT, "CONN:SOCK_TIMEOUT")                                            \
  X(CONN, 2, 10, THREAD_START, "CONN:THREAD_START")                                           \
  X(CONN, 2, 11, IOCP_CREATE, "CONN:IOCP_CREATE")                                             \
  X(CONN, 2, 12, IOCP_ASSOCDEV, "CONN:IOCP_ASSOCDEV")                                         \
  X(CONN, 2, 13, IOCP_STATPOST, "CONN:IOCP_STATPOST")                                         \
  X(CONN, 2, 14, IOCP_STATGET, "CONN:IOCP_STATGET")                                           \
  X(CONN, 2, 15, OBJ_IS_DEAD, "CONN:OBJ_IS_DEAD")                                             \
  X(CONN, 2, 16, INVSTATE_LISTENER, "CONN:INVSTATE_LISTENER")                                 \
  X(CONN, 2, 17, INVSTATE_CONNECTION, "CONN:INVSTATE_CONNECTION")                             \
  X(CONN, 2, 18, INVSTATE_ENCRYPTOR, "CONN:INVSTATE_ENCRYPTOR")                               \
  X(CONN, 2, 19, INVSTATE_MSGCONNECTION, "CONN:INVSTATE_MSGCONNECTION")                       \
  X(CONN, 2, 20, NO_FREE_KEYS, "CONN:NO_FREE_KEYS")                                           \
  X(CONN, 2, 21, INVALID_KEY, "CONN:INVALID_KEY")                                             \
  X(CONN, 2, 22, THSTART_LISTENER, "CONN:THSTART_LISTENER")                                   \
  X(CONN, 2, 23, LL_INVALID_SYS_TYPE, "CONN:LL_INVALID_SYS_TYPE")                             \
  X(CONN, 2, 24, LL_SIZE_TOOBIG, "CONN:LL_SIZE_TOOBIG")                                       \
  X(CONN, 2, 25, LL_BAD_SIGNATURE, "CONN:LL_BAD_SIGNATURE")                                   \
  X(CONN, 2, 26, LL_WITHOUT_BODY, "CONN:LL_WITHOUT_BODY")                                     \
  X(CONN, 2, 27, INI_NO_REQ_VALUE, "CONN:INI_NO_REQ_VALUE")                                   \
  X(CONN, 2, 28, INI_INVALID_VALUE, "CONN:INI_INVALID_VALUE")                                 \
  X(ROUTE, 3, 0, NO_ROUTE, "ROUTE:NO_ROUTE")                                                  \
  X(ROUTE, 3, 1, INVALID_ADDRESS, "ROUTE:INVALID_ADDRESS")                                    \
  X(ROUTE, 3, 2, POSTED_TO_FOREIGN_ADDRESS, "ROUTE:POSTED_TO_FOREIGN_ADDRESS")                \
  X(ROUTE, 3, 3, ME_ITSELF, "ROUTE:ME_ITSELF")                                                \
  X(ROUTE, 3, 4, NODE_NAME_YET_ASSIGNED, "ROUTE:NODE_NAME_YET_ASSIGNED")                      \
  X(ROUTE, 3, 5, NO_FLAG_TO_ROUTE, "ROUTE:NO_FLAG_TO_ROUTE")                                  \
  X(INI, 4, 0, ALREADY_STARTED, "INI:ALREADY_STARTED")                                        \
  X(INI, 4, 1, NOT_STARTED, "INI:NOT_STARTED")                                                \
  X(INI, 4, 2, WRITE_ERROR, "INI:WRITE_ERROR")                                                \
  X(INI, 4, 3, VALUE_TRUNCATED, "INI:VALUE_TRUNCATED")                                        \
  X(INI, 4, 4, FILE_NOT_FOUND, "INI:FILE_NOT_FOUND")                                          \
  X(INI, 4, 5, INVALID_INI_HANDLE, "INI:INVALID_INI_HANDLE")                                  \
  X(LOG, 5, 0, ALREADY_OPENED, "LOG:ALREADY_OPENED")                                          \
  X(LOG, 5, 1, NOT_OPENED_YET, "LOG:NOT_OPENED_YET")                                          \
  X(LOG, 5, 2, INVALID_INI_VALUE, "LOG:INVALID_INI_VALUE")                                    \
  X(LOG, 5, 3, INVALID_LOG_HANDLE, "LOG:INVALID_LOG_HANDLE")                                  \
  X(MQ, 6, 0, ALREADY_INITIALIZED, "MQ:ALREADY_INITIALIZED")                                  \
  X(MQ, 6, 1, NOT_INITIALIZED_YET, "MQ:NOT_INITIALIZED_YET")                                  \
  X(MQ, 6, 2, ALREADY_CONNECTED, "MQ:ALREADY_CONNECTED")                                      \
  X(MQ, 6, 3, NOT_CONNECTED_YET, "MQ:NOT_CONNECTED_YET")                                      \
  X(MQ, 6, 4, TIMEOUT, "MQ:TIMEOUT")                                                          \
  X(MQ, 6, 5, INCORRECT_LLMSG, "MQ:INCORRECT_LLMSG")                                          \
  X(MQ, 6, 6, PROTOCOL_ERROR, "MQ:PROTOCOL_ERROR")                                            \
  X(MQ, 6, 7, ORIGMSG_NOT_SEND, "MQ:ORIGMSG_NOT_SEND")                                        \
  X(MQ, 6, 8, ORIGMSG_BAD_ADDR_FROM, "MQ:ORIGMSG_BAD_ADDR_FROM")                              \
  X(MQ, 6, 9, INVALID_CONNECTION, "MQ:INVALID_CONNECTION")                                    \
  X(MQ, 6, 10, INVALID_CONN_HANDLE, "MQ:INVALID_CONN_HANDLE")                                 \
  X(MQ, 6, 11, SOCK_CREATE, "MQ:SOCK_CREATE")                                                 \
  X(MQ, 6, 12, SOCK_BIND, "MQ:SOCK_BIND")                                                     \
  X(MQ, 6, 13, SOCK_MAKEADDR, "MQ:SOCK_MAKEADDR")                                             \
  X(MQ, 6, 14, SOCK_CONNECT, "MQ:SOCK_CONNECT")                                               \
  X(MQ, 6, 15, SOCK_ERROR, "MQ:SOCK_ERROR")                                                   \
  X(MQ, 6, 16, WINSOCK_INIT, "MQ:WINSOCK_INIT")                                               \
  X(MQ, 6, 17, SOCK_CLOSED, "MQ:SOCK_CLOSED")                                                 \
  X(MQ, 6, 18, LL_INVALID_SYS_TYPE, "MQ:LL_INVALID_SYS_TYPE")                                 \
  X(MQ, 6, 19, LL_SIZE_TOOBIG, "MQ:LL_SIZE_TOOBIG")                                           \
  X(MQ, 6, 20, LL_BAD_SIGNATURE, "MQ:LL_BAD_SIGNATURE")                                       \
  X(MQ, 6, 21, INVALID_DESTINATION, "MQ:INVALID_DESTINATION")                                 \
  X(MQ, 6, 22, CONNECTION_BUSY, "MQ:CONNECTION_BUSY")                                         \
  X(MQ, 6, 23, MULTGET_ABORTED, "MQ:MULTGET_ABORTED")                                         \
  X(MQ, 6, 24, ORIG_MSG_NOT_FOUND, "MQ:ORIG_MSG_NOT_FOUND")                                   \
  X(MQ, 6, 25, NODE_NAME_CHANGED, "MQ:NODE_NAME_CHANGED")                                     \
  X(MQ, 6, 26, UNEXPECTED_GRNT_CONF, "MQ:UNEXPECTED_GRNT_CONF")                               \
  X(MQ, 6, 27, GRNT_NOT_EXISTS, "MQ:GRNT_NOT_EXISTS")                                         \
  X(MQ, 6, 28, ACCESS_DENY, "MQ:ACCESS_DENY")                                                 \
  X(MQCRYPT, 7, 0, ALREADY_CONNECTED, "MQCRYPT:ALREADY_CONNECTED")                            \
  X(MQCRYPT, 7, 1, CONN_NOT_READY, "MQCRYPT:CONN_NOT_READY")                                  \
  X(MQCRYPT, 7, 2, BAD_AUTH_INFO, "MQCRYPT:BAD_AUTH_INFO")                                    \
  X(MQCRYPT, 7, 3, NO_AUTH_INFO, "MQCRYPT:NO_AUTH_INFO")                                      \
  X(MQCRYPT, 7, 4, ALREADY_LOGED_IN, "MQCRYPT:ALREADY_LOGED_IN")                              \
  X(MQCRYPT, 7, 5, LOGIN_ABORTED, "MQCRYPT:LOGIN_ABORTED")                                    \
  X(MQCRYPT, 7, 6, AS_NAME_NOT_SET, "MQCRYPT:AS_NAME_NOT_SET")                                \
  X(MQCRYPT, 7, 7, ASDLL_NAME_NOT_SET, "MQCRYPT:ASDLL_NAME_NOT_SET")                          \
  X(MQCRYPT, 7, 8, LOAD_ASDLL, "MQCRYPT:LOAD_ASDLL")                                          \
  X(MQCRYPT, 7, 9, NOT_ENCRYPTED_OR_BAD, "MQCRYPT:NOT_ENCRYPTED_OR_BAD")                      \
  X(MQCRYPT, 7, 10, NOT_HEX_STRING, "MQCRYPT:NOT_HEX_STRING")                                 \
  X(MQCRYPT, 7, 11, LOGOUT_NOT_BY_OWNER, "MQCRYPT:LOGOUT_NOT_BY_OWNER")                       \
  X(MQCRYPT, 7, 12, LOGIN_NOT_PERMITTED, "MQCRYPT:LOGIN_NOT_PERMITTED")                       \
  X(DB, 8, 0, OPEN_ERROR, "DB:OPEN_ERROR")                                                    \
  X(DB, 8, 1, DRIVER_ERROR, "DB:DRIVER_ERROR")                                                \
  X(DB, 8, 2, NO_SUCH_FIELD, "DB:NO_SUCH_FIELD")                                              \
  X(DB, 8, 3, NO_SUCH_TABLE, "DB:NO_SUCH_TABLE")                                              \
  X(DB, 8, 4, NOT_SUPPORTED_BY_DRIVER, "DB:NOT_SUPPORTED_BY_DRIVER")                          \
  X(DB, 8, 5, BAD_RECORDSET, "DB:BAD_RECORDSET")                                              \
  X(DB, 8, 6, EOF, "DB:EOF")                                                                  \
  X(DB, 8, 7, EMPTY_SHEME, "DB:EMPTY_SHEME")                                                  \
  X(DB, 8, 8, WRONG_DB_SCHEME, "DB:WRONG_DB_SCHEME")                                          \
  X(DB, 8, 9, CANT_BE_DONE_WITHOUT_SCHEME, "DB:CANT_BE_DONE_WITHOUT_SCHEME")                  \
  X(DB, 8, 10, INVALID_TYPE, "DB:INVALID_TYPE")                                               \
  X(DB, 8, 11, NO_RECORDSET_RETURNED, "DB:NO_RECORDSET_RETURNED")                             \
  X(DB, 8, 12, CANT_INSERT_EMPTY_RECORD, "DB:CANT_INSERT_EMPTY_RECORD")                       \
  X(DB, 8, 13, CANT_CLOSE_WITH_ACTIVE_OBJECTS, "DB:CANT_CLOSE_WITH_ACTIVE_OBJECTS")           \
  X(DB, 8, 14, RECORD_NOT_FETCHED, "DB:RECORD_NOT_FETCHED")                                   \
  X(DB, 8, 15, CANT_BE_DONE_WITH_SCHEME, "DB:CANT_BE_DONE_WITH_SCHEME")                       \
  X(DB, 8, 16, NO_RECORD, "DB:NO_RECORD")                                                     \
  X(DB, 8, 17, COMMIT_WITHOUT_TRANSACTION, "DB:COMMIT_WITHOUT_TRANSACTION")                   \
  X(DB, 8, 18, COMMIT_AFTER_ROLLBACK, "DB:COMMIT_AFTER_ROLLBACK")                             \
  X(DB, 8, 19, ROLLBACK_WITHOUT_TRANSACTION, "DB:ROLLBACK_WITHOUT_TRANSACTION")               \
  X(DB, 8, 20, NESTED_TRANSACTION_AFTER_ROLLBACK, "DB:NESTED_TRANSACTION_AFTER_ROLLBACK")     \
  X(DB, 8, 21, READONLY_RECORD, "DB:READONLY_RECORD")                                         \
  X(DB, 8, 22, KEY_FIELD_NOT_SET, "DB:KEY_FIELD_NOT_SET")                                     \
  X(DB, 8, 23, FIELD_NOT_SET, "DB:FIELD_NOT_SET")                                             \
  X(DB, 8, 24, DUPLICATE_KEYS, "DB:DUPLICATE_KEYS")                                           \
  X(DB, 8, 25, FIELD_IS_NULL, "DB:FIELD_IS_NULL")                                             \
  X(DB, 8, 26, BUSY, "DB:BUSY")                                                               \
  X(DB, 8, 27, NOT_CONNECTED, "DB:NOT_CONNECTED")                                             \
  X(DB, 8, 28, ALREADY_CONNECTED, "DB:ALREADY_CONNECTED")                                     \
  X(DB, 8, 29, NO_SUCH_ITEM, "DB:NO_SUCH_ITEM")                                               \
  X(DB, 8, 30, WRONG_ITEM_TYPE, "DB:WRONG_ITEM_TYPE")                                         \
  X(DB, 8, 31, NO_SUCH_VIEW, "DB:NO_SUCH_VIEW")                                               \
  X(DB, 8, 32, NO_SUCH_INDEX, "DB:NO_SUCH_INDEX")                                             \
  X(DB, 8, 33, DATABASE_IS_CORRUPTED, "DB:DATABASE_IS_CORRUPTED")                             \
  X(DB, 8, 34, NON_UNIQUE_INDEX_VALUE, "DB:NON_UNIQUE_INDEX_VALUE")                           \
  X(DB, 8, 35, UNIQUE_INDEX_REQUIRED, "DB:UNIQUE_INDEX_REQUIRED")                             \
  X(DB, 8, 36, CANT_TRUNCATE_IN_TRANSACTION, "DB:CANT_TRUNCATE_IN_TRANSACTION")               \
  X(DB, 8, 37, CANT_CHANGE_UNDER_ENUM, "DB:CANT_CHANGE_UNDER_ENUM")                           \
  X(DB, 8, 38, CANT_BE_DONE_WITHOUT_INDEX, "DB:CANT_BE_DONE_WITHOUT_INDEX")                   \
  X(DB, 8, 39, CANT_SAVE_IN_TRANSACTION, "DB:CANT_SAVE_IN_TRANSACTION")                       \
  X(DB, 8, 40, WRONG_ZQTIME_DATA_FORMAT, "DB:WRONG_ZQTIME_DATA_FORMAT")                       \
  X(DB, 8, 41, CANT_LOAD_IN_TRANSACTION, "DB:CANT_LOAD_IN_TRANSACTION")                       \
  X(DB, 8, 42, NESTED_TRANSACTION, "DB:NESTED_TRANSACTION")                                   \
  X(SERV, 9, 0, ALREADY_REGISTERED, "SERV:ALREADY_REGISTERED")                                \
  X(SERV, 9, 1, INCORRECT_EXCLUDE_ADDR, "SERV:INCORRECT_EXCLUDE_ADDR")                        \
  X(SERV, 9, 2, NO_SERVICE, "SERV:NO_SERVICE")                                                \
  X(REPL, 10, 0, WRONG_STATE, "REPL:WRONG_STATE")                                             \
  X(REPL, 10, 1, SCHEME_ALREADY_SET, "REPL:SCHEME_ALREADY_SET")                               \
  X(REPL, 10, 2, OBJECT_CHANGED, "REPL:OBJECT_CHANGED__")                                     \
  X(REPL, 10, 3, SERVICE_WAS_UNREGISTERED, "REPL:SERVICE_WAS_UNREGISTERED")                   \
  X(REPL, 10, 4, PROTOCOL_ERROR, "REPL:PROTOCOL_ERROR")                                       \
  X(REPL, 10, 5, UNUSED_0, "REPL:UNUSED_0")                                                   \
  X(REPL, 10, 6, CHANNEL_DISCONNECT_ON_TIMEOUT, "REPL:CHANNEL_DISCONNECT_ON_TIMEOUT")         \
  X(REPL, 10, 7, PROTOCOL_VERSION_MISMATCH, "REPL:PROTOCOL_VERSION_MISMATCH")                 \
  X(REPL, 10, 8, SERVER_SHUTDOWN, "REPL:SERVER_SHUTDOWN")                                     \
  X(REPL, 10, 9, ACCESS_DENIED, "REPL:ACCESS_DENIED")                                         \
  X(REPL, 10, 10, LIFE_NUMBER_MISMATCH, "REPL:LIFE_NUMBER_MISMATCH")                          \
  X(REPL, 10, 11, RECONNECT, "REPL:RECONNECT")                                                \
  X(REPL, 10, 12, WRONG_SCHEME, "REPL:WRONG_SCHEME")                                          \
  X(REPL, 10, 13, NO_SERVICE, "REPL:NO_SERVICE")                                              \
  X(REPL, 10, 14, TIMEOUT, "REPL:TIMEOUT")                                                    \
  X(CRYPT, 11, 0, NOTAVAIL, "CRYPT:NOTAVAIL")                                                 \
  X(CRYPT, 11, 1, NOT_INITED, "CRYPT:NOT_INITED")                                             \
  X(CRYPT, 11, 2, NOT_EXITING, "CRYPT:NOT_EXITING")                                           \
  X(CRYPT, 11, 3, POINTER, "CRYPT:POINTER")                                                   \
  X(CRYPT, 11, 4, ERROR, "CRYPT:ERROR")                                                       \
  X(CRYPT, 11, 5, RANDOM, "CRYPT:RANDOM")                                                     \
  X(CRYPT, 11, 6, UNKNOWN_CTX_TYPE, "CRYPT:UNKNOWN_CTX_TYPE")                                 \
  X(CRYPT, 11, 7, UNSUPPORTED_CTX_VERSION, "CRYPT:UNSUPPORTED_CTX_VERSION")                   \
  X(CRYPT, 11, 8, INVALID_CTX, "CRYPT:INVALID_CTX")                                           \
  X(CRYPT, 11, 9, OKSPECIAL, "CRYPT:OKSPECIAL")                                               \
  X(ASNS, 12, 0, INTERNAL, "ASNS:INTERNAL")                                                   \
  X(ASNS, 12, 1, PROTOCOL_VERSION_MISMATCH, "ASNS:PROTOCOL_VERSION_MISMATCH")                 \
  X(ASNS, 12, 2, CRYPT_ALGO, "ASNS:CRYPT_ALGO")                                               \
  X(ASNS, 12, 3, CRYPT_MODE, "ASNS:CRYPT_MODE")                                               \
  X(ASNS, 12, 4, BAD_AUTHREQUEST, "ASNS:BAD_AUTHREQUEST")                                     \
  X(ASNS, 12, 5, INITIATOR_UNKNOWN, "ASNS:INITIATOR_UNKNOWN")                                 \
  X(ASNS, 12, 6, INITIATOR_BAD, "ASNS:INITIATOR_BAD")                                         \
  X(ASNS, 12, 7, ACCEPTOR_UNKNOWN, "ASNS:ACCEPTOR_UNKNOWN")                                   \
  X(ASNS, 12, 8, ACCEPTOR_BAD, "ASNS:ACCEPTOR_BAD")                                           \
  X(ASNS, 12, 9, IP_BLOCKED, "ASNS:IP_BLOCKED")                                               \
  X(ASNS, 12, 10, TOO_LONG_KEY, "ASNS:TOO_LONG_KEY")                                          \
  X(ASNS, 12, 11, TOO_SHORT_KEY, "ASNS:TOO_SHORT_KEY")                                        \
  X(ASNS, 12, 12, CORRUPTED_KEY, "ASNS:CORRUPTED_KEY")                                        \
  X(VM, 13, 0, WRONG_LEXEME, "VM:WRONG_LEXEME")                                               \
  X(VM, 13, 1, SYNTAX_ERROR, "VM:SYNTAX_ERROR")                                               \
  X(VM, 13, 2, NUMERIC_OVERFLOW, "VM:NUMERIC_OVERFLOW")                                       \
  X(VM, 13, 3, ILLEGAL_OPCODE, "VM:ILLEGAL_OPCODE")                                           \
  X(VM, 13, 4, VARIABLE_NOT_SET, "VM:VARIABLE_NOT_SET")                                       \
  X(VM, 13, 5, STACK_UNDERFLOW, "VM:STACK_UNDERFLOW")                                         \
  X(VM, 13, 6, WRONG_VARIABLE_TYPE, "VM:WRONG_VARIABLE_TYPE")                                 \
  X(VM, 13, 7, WRONG_BLOCK_FORMAT, "VM:WRONG_BLOCK_FORMAT")                                   \
  X(VM, 13, 8, OPERATION_NOT_ALLOWED, "VM:OPERATION_NOT_ALLOWED")                             \
  X(VM, 13, 9, VAR_ZERO, "VM:VAR_ZERO")                                                       \
  X(VM, 13, 10, DLL_NOT_FOUND, "VM:DLL_NOT_FOUND")                                            \
  X(VM, 13, 11, FUNCTION_NOT_FOUND, "VM:FUNCTION_NOT_FOUND")                                  \
  X(VM, 13, 12, DUPLICATED_EXT_FUNC, "VM:DUPLICATED_EXT_FUNC")                                \
  X(VM, 13, 13, STACK_BOUNDS_EXCEEDED, "VM:STACK_BOUNDS_EXCEEDED")                            \
  X(VM, 13, 14, FUNCTION_EXEC_ERROR, "VM:FUNCTION_EXEC_ERROR")                                \
  X(VM, 13, 15, LAST, "VM:LAST")                                                              \
  X(MQASNS, 14, 0, PROTOCOL_VERSION_MISMATCH, "MQASNS:PROTOCOL_VERSION_MISMATCH")             \
  X(MQASNS, 14, 1, CRYPT_POLITICS, "MQASNS:CRYPT_POLITICS")                                   \
  X(MQASNS, 14, 2, CRYPT_ALGO, "MQASNS:CRYPT_ALGO")                                           \
  X(MQASNS, 14, 3, CRYPT_MODE, "MQASNS:CRYPT_MODE")                                           \
  X(MQASNS, 14, 4, RANDOM_NUMBER, "MQASNS:RANDOM_NUMBER")                                     \
  X(MQASNS, 14, 5, TIME_MARK, "MQASNS:TIME_MARK")                                             \
  X(MQASNS, 14, 6, TOKEN, "MQASNS:TOKEN")                                                     \
  X(MQASNS, 14, 7, CRYPTO_PACKET, "MQASNS:CRYPTO_PACKET")                                     \
  X(MQASNS, 14, 8, STATE_CHANGED, "MQASNS:STATE_CHANGED")                                     \
  X(MQASNS, 14, 9, STATE_INVALID, "MQASNS:STATE_INVALID")                                     \
  X(MQASNS, 14, 10, CRC, "MQASNS:CRC")                                                        \
  X(MQASNS, 14, 11, TOKEN_EXPIRED, "MQASNS:TOKEN_EXPIRED")                                    \
  X(MQASNS, 14, 12, INVALID_IP, "MQASNS:INVALID_IP")                                          \
  X(ACL, 15, 0, ROLE_ALREADY_EXISTS, "ACL:ROLE_ALREADY_EXISTS")                               \
  X(ACL, 15, 1, USER_ALREADY_EXISTS, "ACL:USER_ALREADY_EXISTS")                               \
  X(ACL, 15, 2, UNKNOWN_ROLE, "ACL:UNKNOWN_ROLE")                                             \
  X(ACL, 15, 3, UNKNOWN_RIGHT, "ACL:UNKNOWN_RIGHT")                                           \
  X(ACL, 15, 4, UNKNOWN_USER, "ACL:UNKNOWN_USER")                                             \
  X(ACL, 15, 5, BAD_BLOCK, "ACL:BAD_BLOCK")                                                   \
  X(ACL, 15, 6, LZO_INIT, "ACL:LZO_INIT")                                                     \
  X(ACL, 15, 7, LZO_COMPRESS, "ACL:LZO_COMPRESS")                                             \
  X(ACL, 15, 8, VERSION_MISMATCH, "ACL:VERSION_MISMATCH")                                     \
  X(ACL, 15, 9, BAD_SIGNATURE, "ACL:BAD_SIGNATURE")                                           \
  X(MQSTAT, 16, 0, ALREADY_REGISTERED, "MQSTAT:ALREADY_REGISTERED")                           \
  X(MQSTAT, 16, 1, NOT_REGISTERED, "MQSTAT:NOT_REGISTERED")                                   \
  X(MQSTAT, 16, 2, ALREADY_ANNOUNCED, "MQSTAT:ALREADY_ANNOUNCED")                             \
  X(MQSTAT, 16, 3, NOT_ANNOUNCED, "MQSTAT:NOT_ANNOUNCED")                                     \
  X(MQSTAT, 16, 4, LAME_STATISTIC, "MQSTAT:LAME_STATISTIC")                                   \
  X(MQSTAT, 16, 5, INVALID_QUERY, "MQSTAT:INVALID_QUERY")                                     \
  X(MQSTAT, 16, 6, INVALID_NAME, "MQSTAT:INVALID_NAME")                                       \
  X(BL, 17, 0, UNKNOWN_MESSAGE, "BL:UNKNOWN_MESSAGE")                                         \
  X(BL, 17, 1, CAN_NOT_ADD_GROUP_AREA, "BL:CAN_NOT_ADD_GROUP_AREA")                           \
  X(BL, 17, 2, UNKNOWN_GROUP_AREA, "BL:UNKNOWN_GROUP_AREA")                                   \
  X(BL, 17, 3, INDEX_DOES_NOT_EXIST, "BL:INDEX_DOES_NOT_EXIST")                               \
  X(BL, 17, 4, REPLICATION_SCHEME_IS_NOT_SPECIFIED, "BL:REPLICATION_SCHEME_IS_NOT_SPECIFIED") \
  X(BL, 17, 5, CAN_NOT_CREATE_TIMER, "BL:CAN_NOT_CREATE_TIMER")                               \
  X(BL, 17, 6, ARRAY_OUT_OF_BOUNDS, "BL:ARRAY_OUT_OF_BOUNDS")                                 \
  X(ZQSVC, 18, 0, LOGIN_FAILED, "ZQSVC:LOGIN_FAILED")                                         \
  X(ZQSVC, 18, 1, LOGIN_TIMEOUT, "ZQSVC:LOGIN_TIMEOUT")                                       \
  X(PARSE, 19, 0, NULL_NOT_ALLOWED, "PARSE:NULL_NOT_ALLOWED")                                 \
  X(TEST, 20, 0, TIMEOUT, "TEST:TIMEOUT")                                                     \
  X(TEST, 20, 1, ERROR, "TEST:ERROR")                                                         \
  X(ISAMSM, 21, 0, CANNOT_CREATE_FILE_TO_MAP, "ISAMSM:CANNOT_CREATE_FILE_TO_MAP")             \
  X(ISAMSM, 21, 1, FILE_MAPPING_FAILED, "ISAMSM:FILE_MAPPING_FAILED")                         \
  X(ISAMSM, 21, 2, CANNOT_MAP_VIEW, "ISAMSM:CANNOT_MAP_VIEW")                                 \
  X(ISAMSM, 21, 3, NESTED_TRANSACTIONS, "ISAMSM:NESTED_TRANSACTIONS")                         \
  X(ISAMSM, 21, 4, FREE_MEM_TIMEOUT, "ISAMSM:FREE_MEM_TIMEOUT")                               \
  X(ISAMSM, 21, 5, CREATE_EVENT_FAILED, "ISAMSM:CREATE_EVENT_FAILED")                         \
  X(ISAMSM, 21, 6, OPEN_EVENT_FAILED, "ISAMSM:OPEN_EVENT_FAILED")                             \
  X(ISAMSM, 21, 7, CANNOT_START_THREAD, "ISAMSM:CANNOT_START_THREAD")                         \
  X(ISAMSM, 21, 8, REPL_PROCESS_FAILED, "ISAMSM:REPL_PROCESS_FAILED")                         \
  X(ISAMSM, 21, 9, EOF, "ISAMSM:EOF")                                                         \
  X(ISAMSM, 21, 10, ROLLBACK_REQUIRED, "ISAMSM:ROLLBACK_REQUIRED")                            \
  X(ISAMSM, 21, 11, TRANSACTION_REQUIRED, "ISAMSM:TRANSACTION_REQUIRED")                      \
  X(ISAMSM, 21, 12, OPERATION_NOT_ALLOWED, "ISAMSM:OPERATION_NOT_ALLOWED")                    \
  X(ISAMSM, 21, 13, LOAD_TRUNCATE_REQUIRED, "ISAMSM:LOAD_TRUNCATE_REQUIRED")                  \
  X(ISAMSM, 21, 14, FILE_VERSION_MISMATCH, "ISAMSM:FILE_VERSION_MISMATCH")

enum {
#define ZQERR_ENUM_ENTRY(cat, catno, index, name, text) \
  ZQERR_##cat##_##name = (int)((catno)*4096 + (index)),
  ZQERR_CODE_MAP(ZQERR_ENUM_ENTRY)
#undef ZQERR_ENUM_ENTRY
      ZQERR_CODE_MAP_END_ = 0
};

/* Success, spelt briefly. */
#define ZQ_OK 0u

ZQ_EXTERN_C_BEGIN

/* The text of a result code: a static NUL-terminated string, never null,
 * never to be freed. An unknown category gives "No description"; an index
 * beyond its category's codes gives the category's tag ("<MSG>"). */
ZQ_API const char* ZqErrGetDescrStr(uint32_t code);

ZQ_EXTERN_C_END

#endif /* ZQSYS_ZQERR_H */
