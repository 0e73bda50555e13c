/* ZqSys structures in streams.
 *
 * A struct composer or struct parser is made once for a table scheme and
 * holds the native layout of its fields: the plain structure a record of
 * the table keeps in its buffer (zqrecord.h: fields in position order, each
 * at the next multiple of its alignment, so a mirroring C structure is
 * declared under #pragma pack(push, 4)). ZqRecordGetStructSize gives its
 * size.
 *
 * A structure goes into a binary stream (zqstream.h) as its fields in
 * position order, each by its field's format code: exactly the bytes that
 * ZqSysCompose writes for the format made of the fields' type texts in
 * order ("i8c25d16.5t"), so the other side may read them with ZqSysParse.
 * In the structure, per type letter:
 *
 *   a, i, u, f  the value's bytes
 *   t           a ZQTIME (10 bytes; the stream leaves out the reserved byte)
 *   c<n>        a NUL-terminated text in n + 1 bytes (a null text in the
 *               stream reads as the empty one)
 *   w<n>        a text of 16-bit units with its 16-bit NUL in 2n + 2 bytes
 *   b<n>        n bytes, composed as a b value of count n
 *   z<n>        a u32 length then up to n bytes
 *   d, s        the decimal value (zqbcd.h) of the field's precision and
 *               scale; a field of precision 0 takes no bytes
 *
 * A parsed value fills its whole field: bytes the value leaves unused are
 * zeroed, and a text ends at its first NUL even where the stream's text
 * goes on behind it. Bytes between fields are neither read nor written.
 *
 * Both handles are reference-counted, hold a reference on the table scheme
 * and never change once made, so a handle may be used from several threads
 * at once (each with its own binary composer or parser). */
#ifndef ZQSYS_ZQSTRUCT_H
#define ZQSYS_ZQSTRUCT_H

#include "zqsys/zqdefs.h"
#include "zqsys/zqscheme.h"
#include "zqsys/zqstream.h"

typedef struct ZqStructComposer_s* HZQSTRUCTCOMPOSER;
typedef struct ZqStructParser_s* HZQSTRUCTPARSER;

ZQ_EXTERN_C_BEGIN

/* Lays the table scheme out and makes a composer with one reference.
 * 2 for null arguments, 0x8007 (DB:EMPTY_SHEME) for a table without fields,
 * 0x800A (DB:INVALID_TYPE) for a field type without a native layout, 1 when
 * memory runs out; *composer is set only on success. */
ZQ_API uint32_t ZqSysCreateStructComposer(HZQDBTABLE table, HZQSTRUCTCOMPOSER* composer);

/* Appends the structure of `size` bytes to the binary composer's stream.
 * 22 (COMMON:BUFFER_SIZES_MISMATCH) when `size` is not the structure's
 * size; 2 for null arguments or a value its field cannot hold (a c or w text
 * without its NUL, a z length past the field, a decimal of another
 * precision or scale); 1 when the stream cannot grow. On failure nothing is
 * appended. */
ZQ_API uint32_t ZqSysComposeStruct(HZQSTRUCTCOMPOSER composer, HZQCOMPOSER stream,
                                   const void* structure, uint32_t size);

/* Adds a reference; each handle so obtained is freed separately. */
ZQ_API uint32_t ZqSysDuplicateStructComposer(HZQSTRUCTCOMPOSER composer,
                                             HZQSTRUCTCOMPOSER* duplicate);
/* Releases one reference. Null is accepted. Always 0. */
ZQ_API uint32_t ZqSysFreeStructComposer(HZQSTRUCTCOMPOSER composer);

/* Makes a parser for the table scheme; codes as ZqSysCreateStructComposer. */
ZQ_API uint32_t ZqSysCreateStructParser(HZQDBTABLE table, HZQSTRUCTPARSER* parser);

/* Reads one structure of `size` bytes at the binary parser's position and
 * advances past it. 22 when `size` is not the structure's size; 2 for null
 * arguments; 0x1004 (MSG:BAD_PARSE_BLOCK) for a stream that ends early or
 * holds a value its field cannot hold (a longer text or byte string, a text
 * without its NUL, a decimal of another precision or scale). On failure the
 * parser's position stays where it was and the fields before the failing
 * one have been written. */
ZQ_API uint32_t ZqSysParseStruct(HZQSTRUCTPARSER parser, HZQPARSER stream, void* structure,
                                 uint32_t size);

ZQ_API uint32_t ZqSysDuplicateStructParser(HZQSTRUCTPARSER parser, HZQSTRUCTPARSER* duplicate);
ZQ_API uint32_t ZqSysFreeStructParser(HZQSTRUCTPARSER parser);

ZQ_EXTERN_C_END

#endif /* ZQSYS_ZQSTRUCT_H */
