/* ZqSys records.
 *
 * A record (HZQRECORD) holds one row of a table scheme in memory: the values
 * of all fields in one buffer laid out exactly as the plain structure of the
 * same fields, plus per field a set flag, a null flag and the length of the
 * value last written. It holds a reference on its table scheme.
 *
 * Layout: fields in position order, each at the next multiple of its type's
 * alignment (zqtypes.h: 8-byte integers and doubles align to 4, ZQTIME to
 * 2), the size rounded up to the largest alignment. A C structure that
 * mirrors a record must therefore be declared under
 *
 *   #pragma pack(push, 4)
 *   struct Order { int64_t id; char isin[26]; ZQTIME moment; };
 *   #pragma pack(pop)
 *
 * Reading a field copies its value out: a c field as a NUL-terminated text
 * by the buffer rule (needed size to *size, 7 when it does not fit), any
 * other field as the bytes last written (their length to *size; a null
 * buffer gives 15, COMMON:REAL_SIZE_RETURNED, a smaller one 7). A null
 * field reports size 0 and writes the type's empty value (zero bytes, 0.0,
 * the NULL time, a zero decimal). A field never written gives 0x8017
 * (DB:FIELD_NOT_SET); an unknown name or position 0x8002 (DB:NO_SUCH_FIELD).
 *
 * Writing copies `length` bytes (at most the field's size, else 8,
 * COMMON:BUFFER_TOO_LARGE) and zeroes the rest of the field. A failed write
 * leaves the field as it was. Failed reads and writes of a field (any code
 * but 15) are logged as errors under "ZqSysRecord" with the record handle.
 * A record has no lock: one thread uses it at a time. */
#ifndef ZQSYS_ZQRECORD_H
#define ZQSYS_ZQRECORD_H

#include "zqsys/zqdefs.h"
#include "zqsys/zqscheme.h"
#include "zqsys/zqstream.h"
#include "zqsys/zqtime.h"

typedef struct ZqRecord_s* HZQRECORD;

ZQ_EXTERN_C_BEGIN

/* ---- Lifetime and layout ---- */

/* A new record of the table scheme with its own buffer, every field not set.
 * 2 for null arguments, 0x8007 (DB:EMPTY_SHEME) for a scheme without fields,
 * 1 when memory runs out. Free it with ZqRecordFree. */
ZQ_API uint32_t ZqRecordCreateInMemory(HZQRECORD* record, HZQDBTABLE table);
/* As ZqRecordCreateInMemory, and:
 * - `buffer` non-null: the record uses the caller's buffer (never freed by
 *   it), whose size *size must be exactly the record size, else 22
 *   (COMMON:BUFFER_SIZES_MISMATCH); every field starts set and not null;
 * - `fields` non-null: receives per field the address of its value;
 * - `size` non-null: receives the record size.
 * On failure *record is not set. */
ZQ_API uint32_t ZqRecordCreateInMemoryEx(HZQRECORD* record, HZQDBTABLE table, void** fields,
                                         uint32_t* size, void* buffer);
/* Releases one reference; null is accepted. Always 0. */
ZQ_API uint32_t ZqRecordFree(HZQRECORD record);
/* Borrows the record's table scheme. */
ZQ_API uint32_t ZqRecordGetSchemeFromRecord(HZQRECORD record, HZQDBTABLE* table);
ZQ_API uint32_t ZqRecordGetFieldsCount(HZQRECORD record, uint32_t* count);
/* The record size of a table scheme, without making a record. */
ZQ_API uint32_t ZqRecordGetStructSize(HZQDBTABLE table, uint32_t* size);

/* ---- Reading ---- */

ZQ_API uint32_t ZqRecordGetField(HZQRECORD record, const char* name, void* buffer, uint32_t* size);
ZQ_API uint32_t ZqRecordGetFieldByIndex(HZQRECORD record, uint32_t position, void* buffer,
                                        uint32_t* size);
/* The same, with *isNull set to 1 for a null field, else 0. */
ZQ_API uint32_t ZqRecordGetFieldEx(HZQRECORD record, const char* name, void* buffer, uint32_t* size,
                                   uint32_t* isNull);
ZQ_API uint32_t ZqRecordGetFieldByIndexEx(HZQRECORD record, uint32_t position, void* buffer,
                                          uint32_t* size, uint32_t* isNull);
/* Reads with the caller's type (letter, size, precision) instead of the
 * field's own, which decides the text rule and the empty value. Whatever the
 * type, nothing is read beyond the field's own bytes: a c read of a field
 * without a NUL gives all its bytes as the text. */
ZQ_API uint32_t ZqRecordGetFieldByIndexWithoutScheme(HZQRECORD record, uint32_t position,
                                                     char letter, uint32_t typeSize,
                                                     uint32_t precision, void* buffer,
                                                     uint32_t* size);
ZQ_API uint32_t ZqRecordGetFieldByIndexWithoutSchemeEx(HZQRECORD record, uint32_t position,
                                                       char letter, uint32_t typeSize,
                                                       uint32_t precision, void* buffer,
                                                       uint32_t* size, uint32_t* isNull);

/* Typed reads: the plain read into a value of that size (7 when the stored
 * value is longer); 2 for a null value pointer. */
ZQ_API uint32_t ZqRecordGetFieldINT8(HZQRECORD record, const char* name, int8_t* value);
ZQ_API uint32_t ZqRecordGetFieldINT16(HZQRECORD record, const char* name, int16_t* value);
ZQ_API uint32_t ZqRecordGetFieldINT32(HZQRECORD record, const char* name, int32_t* value);
ZQ_API uint32_t ZqRecordGetFieldINT64(HZQRECORD record, const char* name, int64_t* value);
ZQ_API uint32_t ZqRecordGetFieldUINT8(HZQRECORD record, const char* name, uint8_t* value);
ZQ_API uint32_t ZqRecordGetFieldUINT16(HZQRECORD record, const char* name, uint16_t* value);
ZQ_API uint32_t ZqRecordGetFieldUINT32(HZQRECORD record, const char* name, uint32_t* value);
ZQ_API uint32_t ZqRecordGetFieldUINT64(HZQRECORD record, const char* name, uint64_t* value);
ZQ_API uint32_t ZqRecordGetFieldZQTIME(HZQRECORD record, const char* name, ZQTIME* value);
ZQ_API uint32_t ZqRecordGetFieldByIndexINT8(HZQRECORD record, uint32_t position, int8_t* value);
ZQ_API uint32_t ZqRecordGetFieldByIndexINT16(HZQRECORD record, uint32_t position, int16_t* value);
ZQ_API uint32_t ZqRecordGetFieldByIndexINT32(HZQRECORD record, uint32_t position, int32_t* value);
ZQ_API uint32_t ZqRecordGetFieldByIndexINT64(HZQRECORD record, uint32_t position, int64_t* value);
ZQ_API uint32_t ZqRecordGetFieldByIndexUINT8(HZQRECORD record, uint32_t position, uint8_t* value);
ZQ_API uint32_t ZqRecordGetFieldByIndexUINT16(HZQRECORD record, uint32_t position, uint16_t* value);
ZQ_API uint32_t ZqRecordGetFieldByIndexUINT32(HZQRECORD record, uint32_t position, uint32_t* value);
ZQ_API uint32_t ZqRecordGetFieldByIndexUINT64(HZQRECORD record, uint32_t position, uint64_t* value);
ZQ_API uint32_t ZqRecordGetFieldByIndexZQTIME(HZQRECORD record, uint32_t position, ZQTIME* value);
/* The typed reads without scheme take the type from the suffix: i1 ... u8, t. */
ZQ_API uint32_t ZqRecordGetFieldByIndexWithoutSchemeINT8(HZQRECORD record, uint32_t position,
                                                         int8_t* value);
ZQ_API uint32_t ZqRecordGetFieldByIndexWithoutSchemeINT16(HZQRECORD record, uint32_t position,
                                                          int16_t* value);
ZQ_API uint32_t ZqRecordGetFieldByIndexWithoutSchemeINT32(HZQRECORD record, uint32_t position,
                                                          int32_t* value);
ZQ_API uint32_t ZqRecordGetFieldByIndexWithoutSchemeINT64(HZQRECORD record, uint32_t position,
                                                          int64_t* value);
ZQ_API uint32_t ZqRecordGetFieldByIndexWithoutSchemeUINT8(HZQRECORD record, uint32_t position,
                                                          uint8_t* value);
ZQ_API uint32_t ZqRecordGetFieldByIndexWithoutSchemeUINT16(HZQRECORD record, uint32_t position,
                                                           uint16_t* value);
ZQ_API uint32_t ZqRecordGetFieldByIndexWithoutSchemeUINT32(HZQRECORD record, uint32_t position,
                                                           uint32_t* value);
ZQ_API uint32_t ZqRecordGetFieldByIndexWithoutSchemeUINT64(HZQRECORD record, uint32_t position,
                                                           uint64_t* value);
ZQ_API uint32_t ZqRecordGetFieldByIndexWithoutSchemeZQTIME(HZQRECORD record, uint32_t position,
                                                           ZQTIME* value);

/* ---- Writing ---- */

ZQ_API uint32_t ZqRecordSetField(HZQRECORD record, const char* name, const void* data,
                                 uint32_t length);
ZQ_API uint32_t ZqRecordSetFieldByIndex(HZQRECORD record, uint32_t position, const void* data,
                                        uint32_t length);
ZQ_API uint32_t ZqRecordSetFieldNull(HZQRECORD record, const char* name);
ZQ_API uint32_t ZqRecordSetFieldNullByIndex(HZQRECORD record, uint32_t position);
/* Zeroes the buffer; every field back to not set. */
ZQ_API uint32_t ZqRecordClear(HZQRECORD record);

/* ---- Whole buffers and copies ---- */

/* Copy the whole buffer to or from a structure of exactly the record size
 * (else 22). Copying from a structure marks every field set and not null. */
ZQ_API uint32_t ZqRecordCopyToStruct(HZQRECORD record, void* structure, uint32_t size);
ZQ_API uint32_t ZqRecordCopyFromStruct(HZQRECORD record, const void* structure, uint32_t size);
/* Points the record at the caller's buffer of *size bytes, which must be the
 * record size (else 22, with the record size written to *size). Every field
 * is then set and not null, as with an external buffer at creation. */
ZQ_API uint32_t ZqRecordReloadBufferInMemory(HZQRECORD record, uint32_t* size, void* buffer);
/* Copies every field of `source` to the same position of `destination`,
 * bytes as they stand; a null field stays null, and a field not set in
 * `source` leaves the destination's field as it is. The first failure
 * stops the copy (0x8002 when `destination` has fewer fields). */
ZQ_API uint32_t ZqRecordBlindCopyRecord(HZQRECORD destination, HZQRECORD source);
/* Copies every field of `source` to the field of `destination` named by the
 * part after the point of the source field's source text ("table.field"),
 * taken from the source's scheme. Fields not set in `source` are skipped. A
 * name that `destination` lacks is skipped too and the other fields are
 * still copied; the result is then 0x8002 (DB:NO_SUCH_FIELD). Any other
 * failure stops the copy. */
ZQ_API uint32_t ZqRecordCopyRecord(HZQRECORD destination, HZQRECORD source);

/* ---- Streams ----
 *
 * A record in a binary stream (zqstream.h): the field count (u4), then per
 * field in position order a state byte, 0 not set, 1 null, 2 a value, and
 * for a value its stream form by the field's format code, as the struct
 * composer writes it (zqstruct.h). The value is what a read of the field
 * gives: a c field's text, the count last written of a b field; a field of
 * any other type travels whole, so one written with fewer bytes reads back
 * at its full size, the missing bytes zero. */

/* Appends the record to the binary composer's stream. 2 for null
 * arguments or a value its field cannot hold (see ZqSysComposeStruct), 1
 * when memory runs out. On failure nothing is appended. */
ZQ_API uint32_t ZqSysComposeFromRecord(HZQRECORD record, HZQCOMPOSER stream);
/* Reads one record at the binary parser's position into `record`, which is
 * cleared first, and advances past it: each field becomes not set, null or
 * its value as the stream says. 0x8008 (DB:WRONG_DB_SCHEME) when the
 * stream's field count is not the record's; 0x1004 (MSG:BAD_PARSE_BLOCK)
 * for a stream that ends early, an unknown state byte, or a value the field
 * cannot hold; 1 when memory runs out. On failure the parser's position
 * stays where it was; the fields before the failing one are set, the others
 * not. */
ZQ_API uint32_t ZqSysParseToRecord(HZQPARSER stream, HZQRECORD record);

ZQ_EXTERN_C_END

#endif /* ZQSYS_ZQRECORD_H */
