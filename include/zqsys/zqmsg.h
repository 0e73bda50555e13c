/* ZqSys messages.
 *
 * A message holds system fields ("Zq_From", "Zq_To", "Zq_Type", "Zq_Body",
 * "Zq_SendId", "Zq_ReplyId", "Zq_Category") and any number of named user
 * fields holding byte strings. It is reference-counted: each handle from
 * ZqMsgCreateMessage, ZqMsgDuplicateMessageHandle or ZqMsgCreateMessageFromBlock
 * is freed once with ZqMsgFreeMessage. A message has no lock: only its
 * reference count may be changed from several threads at once.
 *
 * The message block is the message's byte form (see zqstream.h for the
 * encoding): the header "cu4u4u8u8ccbc" (the text "ZORK", the block version
 * 1, type, send id, reply id, from, to, body, category), one "cb" pair (name,
 * value) per user field in list order, then a null pair: eight bytes FF.
 *
 * The compose and parse functions work on caller-owned contexts
 * (ZQCOMPOSECTX, ZQPARSECTX in zqstream.h) with the stream encoding, and hand
 * parsed texts and byte strings over in one of these ways:
 *   ZqMsgParse            into the buffer *dest already points at; else an
 *                         allocated copy if an allocator is named; else a
 *                         pointer into the stream (a null value leaves *dest)
 *   ZqMsgParseGetPointer  a pointer into the stream (null for a null value)
 *   ZqMsgParseCopy        copied into the buffer *dest points at (a null
 *                         text stores an empty one)
 *   ZqMsgParseAllocCopy   copied into memory from the caller's allocator,
 *                         which the caller frees (null for a null value)
 * Fixed-size values and decimals are always copied into the destination.
 * Texts are delivered with their NUL. Destination buffers must hold the
 * largest value the format allows. */
#ifndef ZQSYS_ZQMSG_H
#define ZQSYS_ZQMSG_H

#include "zqsys/zqdefs.h"
#include "zqsys/zqstream.h"

typedef struct ZqMsg_s* HZQMSG;

#define ZQMSG_FIELD_FROM "Zq_From"
#define ZQMSG_FIELD_TO "Zq_To"
#define ZQMSG_FIELD_BODY "Zq_Body"
#define ZQMSG_FIELD_TYPE "Zq_Type"
#define ZQMSG_FIELD_SENDID "Zq_SendId"
#define ZQMSG_FIELD_REPLYID "Zq_ReplyId"
#define ZQMSG_FIELD_CATEGORY "Zq_Category"

ZQ_EXTERN_C_BEGIN

/* ---- The message object ---- */

/* A new, empty message with one reference. 2 for a null `message`, 1 when
 * memory runs out. */
ZQ_API uint32_t ZqMsgCreateMessage(HZQMSG* message);

/* Adds a reference and returns the same handle in *duplicate. 2 for null
 * arguments. */
ZQ_API uint32_t ZqMsgDuplicateMessageHandle(HZQMSG message, HZQMSG* duplicate);

/* Releases one reference; the last destroys the message. Null gives 0. */
ZQ_API uint32_t ZqMsgFreeMessage(HZQMSG message);

/* Stores a copy of `size` bytes as the field `name`: a system field by its
 * name, else a user field (an existing one is replaced in its place, a new
 * one appended). Text system fields keep a NUL-terminated copy; "Zq_Type"
 * takes exactly 4 bytes and the ids exactly 8 (else 2). A null value with
 * size 0 clears a text field or the body and stores an empty user field.
 * 2 for a null handle, a null or empty name, or a null value with a size;
 * 1 when memory runs out (the field keeps its old value). */
ZQ_API uint32_t ZqMsgSetField(HZQMSG message, const char* name, const void* value, uint32_t size);
/* The field becomes the text with its NUL; a null text as ZqMsgSetField. */
ZQ_API uint32_t ZqMsgSetFieldStr(HZQMSG message, const char* name, const char* text);
ZQ_API uint32_t ZqMsgSetFieldINT8(HZQMSG message, const char* name, int8_t value);
ZQ_API uint32_t ZqMsgSetFieldUINT8(HZQMSG message, const char* name, uint8_t value);
ZQ_API uint32_t ZqMsgSetFieldINT16(HZQMSG message, const char* name, int16_t value);
ZQ_API uint32_t ZqMsgSetFieldUINT16(HZQMSG message, const char* name, uint16_t value);
ZQ_API uint32_t ZqMsgSetFieldINT32(HZQMSG message, const char* name, int32_t value);
ZQ_API uint32_t ZqMsgSetFieldUINT32(HZQMSG message, const char* name, uint32_t value);
ZQ_API uint32_t ZqMsgSetFieldINT64(HZQMSG message, const char* name, int64_t value);
ZQ_API uint32_t ZqMsgSetFieldUINT64(HZQMSG message, const char* name, uint64_t value);

/* The stored value itself, not a copy (valid until the field changes), and
 * its size (texts count their NUL). 0x1000 (MSG:FIELD_NOT_FOUND) for a user
 * field that does not exist or a text field or body that is not set; 2 for
 * null arguments. */
ZQ_API uint32_t ZqMsgGetBinaryField(HZQMSG message, const char* name, const void** value,
                                    uint32_t* size);

/* Copies the field into `buffer`. If *size is smaller than the value,
 * returns 7 (COMMON:BUFFER_TOO_SMALL) and leaves *size as it is; otherwise
 * copies and stores the value's size in *size. Lookups as
 * ZqMsgGetBinaryField. The typed forms copy into a value of 1, 2, 4 or 8
 * bytes. */
ZQ_API uint32_t ZqMsgCopyField(HZQMSG message, const char* name, void* buffer, uint32_t* size);
ZQ_API uint32_t ZqMsgCopyFieldINT8(HZQMSG message, const char* name, int8_t* value);
ZQ_API uint32_t ZqMsgCopyFieldUINT8(HZQMSG message, const char* name, uint8_t* value);
ZQ_API uint32_t ZqMsgCopyFieldINT16(HZQMSG message, const char* name, int16_t* value);
ZQ_API uint32_t ZqMsgCopyFieldUINT16(HZQMSG message, const char* name, uint16_t* value);
ZQ_API uint32_t ZqMsgCopyFieldINT32(HZQMSG message, const char* name, int32_t* value);
ZQ_API uint32_t ZqMsgCopyFieldUINT32(HZQMSG message, const char* name, uint32_t* value);
ZQ_API uint32_t ZqMsgCopyFieldINT64(HZQMSG message, const char* name, int64_t* value);
ZQ_API uint32_t ZqMsgCopyFieldUINT64(HZQMSG message, const char* name, uint64_t* value);

/* Stores a copy of the bytes as the body; null bytes with size 0 remove it. */
ZQ_API uint32_t ZqMsgSetBody(HZQMSG message, const void* bytes, uint32_t size);
/* The body becomes the text with its NUL; a null text removes it. */
ZQ_API uint32_t ZqMsgSetBodyStr(HZQMSG message, const char* text);
/* The stored body itself (null and 0 when there is none), valid until the
 * body changes. 2 for null arguments. */
ZQ_API uint32_t ZqMsgGetBody(HZQMSG message, const void** body, uint32_t* size);
ZQ_API uint32_t ZqMsgGetBodySize(HZQMSG message, uint32_t* size);
/* Copies the body out: 2 for a null handle or size, or no body; otherwise
 * stores the body's size in *size, then returns 15
 * (COMMON:REAL_SIZE_RETURNED) for a null buffer, 7 if the given size was
 * smaller than the body (nothing copied), else copies and returns 0. */
ZQ_API uint32_t ZqMsgCopyBody(HZQMSG message, void* buffer, uint32_t* size);

/* ---- The message block ---- */

/* The size of the message's block. */
ZQ_API uint32_t ZqMsgGetMessageBlockSize(HZQMSG message, uint32_t* size);

/* Writes the block into `buffer` of *size bytes and stores the size used.
 * 7 (COMMON:BUFFER_TOO_SMALL) with nothing written, not even *size, if it
 * does not fit. */
ZQ_API uint32_t ZqMsgSaveMessageToBlock(HZQMSG message, void* buffer, uint32_t* size);

/* A new message from a block; *used (if not null) receives the bytes read.
 * The signature text and the version are not checked; a block that ends
 * right after the header, or after any pair, loads. Returns the stream's
 * codes for a malformed block (0x1004, or 2 for a value beyond its width or
 * a bad field), 1 when memory runs out; *message is set only on success. */
ZQ_API uint32_t ZqMsgCreateMessageFromBlock(const void* block, uint32_t size, HZQMSG* message,
                                            uint32_t* used);

/* Reads one field straight from a block, as ZqMsgGetBinaryField and
 * ZqMsgCopyField do on a message; the value points into the block. */
ZQ_API uint32_t ZqMsgGetBinaryFieldFromBlock(const void* block, uint32_t blockSize,
                                             const char* name, const void** value, uint32_t* size);
ZQ_API uint32_t ZqMsgCopyFieldFromBlock(const void* block, uint32_t blockSize, const char* name,
                                        void* buffer, uint32_t* size);
ZQ_API uint32_t ZqMsgCopyFieldFromBlockINT8(const void* block, uint32_t blockSize, const char* name,
                                            int8_t* value);
ZQ_API uint32_t ZqMsgCopyFieldFromBlockUINT8(const void* block, uint32_t blockSize,
                                             const char* name, uint8_t* value);
ZQ_API uint32_t ZqMsgCopyFieldFromBlockINT16(const void* block, uint32_t blockSize,
                                             const char* name, int16_t* value);
ZQ_API uint32_t ZqMsgCopyFieldFromBlockUINT16(const void* block, uint32_t blockSize,
                                              const char* name, uint16_t* value);
ZQ_API uint32_t ZqMsgCopyFieldFromBlockINT32(const void* block, uint32_t blockSize,
                                             const char* name, int32_t* value);
ZQ_API uint32_t ZqMsgCopyFieldFromBlockUINT32(const void* block, uint32_t blockSize,
                                              const char* name, uint32_t* value);
ZQ_API uint32_t ZqMsgCopyFieldFromBlockINT64(const void* block, uint32_t blockSize,
                                             const char* name, int64_t* value);
ZQ_API uint32_t ZqMsgCopyFieldFromBlockUINT64(const void* block, uint32_t blockSize,
                                              const char* name, uint64_t* value);

/* A deep copy with its own reference count, made through the block. */
ZQ_API uint32_t ZqMsgCopyMessage(HZQMSG* copy, HZQMSG message);

/* ---- Compose and parse contexts ---- */

/* Clears the context: no buffer, size 0, capacity 0, measuring off. */
ZQ_API uint32_t ZqMsgInitCompose(ZQCOMPOSECTX* context);
/* With bytes and a size, starts from a copy of them (exactly `size` bytes)
 * so that composing appends; 1 when memory runs out. Otherwise as
 * ZqMsgInitCompose. */
ZQ_API uint32_t ZqMsgInitComposeForAppend(ZQCOMPOSECTX* context, const void* bytes, uint32_t size);
/* Frees the context's buffer. */
ZQ_API uint32_t ZqMsgFreeCompose(ZQCOMPOSECTX* context);
/* Appends values by format (codes as ZqSysCompose). */
ZQ_API uint32_t ZqMsgCompose(ZQCOMPOSECTX* context, const char* format, ...);
ZQ_API uint32_t ZqMsgVCompose(ZQCOMPOSECTX* context, const char* format, va_list args);
/* Appends the parser's unread rest and moves the parser to its end; nothing
 * left is 0 with no change; 1 when growing fails. */
ZQ_API uint32_t ZqMsgComposeFromParser(ZQCOMPOSECTX* composer, ZQPARSECTX* parser);

/* Sets the buffer (not copied) and rewinds to 0. */
ZQ_API uint32_t ZqMsgInitParse(ZQPARSECTX* context, const void* buffer, uint32_t size);
/* Does nothing: a parse context owns nothing. */
ZQ_API uint32_t ZqMsgFreeParse(ZQPARSECTX* context);
ZQ_API uint32_t ZqMsgResetParse(ZQPARSECTX* context);
ZQ_API uint32_t ZqMsgParseGetCurrentIndex(ZQPARSECTX* context, uint32_t* index);
/* Sets the position without testing it; reads past the end then fail with
 * 0x1004. */
ZQ_API uint32_t ZqMsgParseSetCurrentIndex(ZQPARSECTX* context, uint32_t index);

/* Parsing in the ways the header comment lists. Codes as ZqSysParse, and 1
 * when an allocator returns null. */
ZQ_API uint32_t ZqMsgParse(ZQPARSECTX* context, ZqAllocFunc allocator, const char* format, ...);
ZQ_API uint32_t ZqMsgVParse(ZQPARSECTX* context, ZqAllocFunc allocator, const char* format,
                            va_list args);
ZQ_API uint32_t ZqMsgParseGetPointer(ZQPARSECTX* context, const char* format, ...);
ZQ_API uint32_t ZqMsgParseCopy(ZQPARSECTX* context, const char* format, ...);
ZQ_API uint32_t ZqMsgParseAllocCopy(ZQPARSECTX* context, ZqAllocFunc allocator, const char* format,
                                    ...);

/* Composes values into a new body; on failure the body is unchanged. */
ZQ_API uint32_t ZqMsgComposeBody(HZQMSG message, const char* format, ...);
ZQ_API uint32_t ZqMsgComposeBodyV(HZQMSG message, const char* format, va_list args);
/* Parses the body in place: pointers into it (valid while the body is
 * unchanged), or copies into the destinations' own storage as ZqSysParse. */
ZQ_API uint32_t ZqMsgParseBodyGetPointer(HZQMSG message, const char* format, ...);
ZQ_API uint32_t ZqMsgParseBodyCopy(HZQMSG message, const char* format, ...);
ZQ_API uint32_t ZqMsgParseBodyCopyV(HZQMSG message, const char* format, va_list args);

ZQ_EXTERN_C_END

#endif /* ZQSYS_ZQMSG_H */
