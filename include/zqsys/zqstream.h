/* ZqSys typed binary streams.
 *
 * A format string of type codes (see zqtypes.h) turns values into a flat
 * byte stream and back. The encoding: values follow one another with no gaps
 * and no tags, integers little-endian; a (1 byte), i/u (their width), f (8
 * bytes IEEE 754), t (9 bytes: year u16, month, day, hour, minute, second u8,
 * millisecond u16); c and w: a u32 byte length L that counts the terminating
 * NUL (w: 2 bytes per character), then the L bytes; b: a u32 count then the
 * bytes; z: the counted block as it is (u32 length, then the bytes); d and s:
 * the decimal value's bytes. A length of FF FF FF FF is the null marker: a
 * null c or w text, or a null b with count 0.
 *
 * Widths in a format are limits, never sizes: "c16" accepts texts of up to 16
 * characters, "b256" up to 256 bytes; no width means no limit.
 *
 * Composer arguments per code: a int; i1..i4, u1..u4 int; i8, u8 64-bit
 * integer; f double; t const ZQTIME* (null composes the NULL time); c const
 * char*; w const char16_t* (uint16_t units); b const void* then uint32_t
 * count; z const void* (a u32 length followed by the bytes); d, s const
 * ZQBCDII* of exactly the format's precision and scale (null composes zero).
 */
#ifndef ZQSYS_ZQSTREAM_H
#define ZQSYS_ZQSTREAM_H

#include "zqsys/zqdefs.h"

/* A compose context owns its buffer; `size` is also the write position.
 * While `measureOnly` is set nothing is written or allocated, but `size`
 * still advances, so a format can be measured first. */
typedef struct ZQCOMPOSECTX {
  uint8_t* buffer;
  uint32_t size;
  uint32_t capacity;
  uint8_t measureOnly;
} ZQCOMPOSECTX;

/* A parse context reads a buffer it does not own. */
typedef struct ZQPARSECTX {
  const uint8_t* buffer;
  uint32_t size;
  uint32_t position;
} ZQPARSECTX;

/* An allocator for parsed copies (malloc fits); the caller frees what it
 * returns. */
typedef void* (*ZqAllocFunc)(size_t size);

typedef struct ZqBinaryComposer_s* HZQCOMPOSER;
typedef struct ZqBinaryParser_s* HZQPARSER;

ZQ_EXTERN_C_BEGIN

/* Creates a composer with an empty buffer and one reference. Returns 2 for a
 * null `composer`, otherwise 0, also when memory runs out: *composer is then
 * null. */
ZQ_API uint32_t ZqSysCreateBinaryComposer(HZQCOMPOSER* composer);

/* Appends the values to the composer's stream. Returns 0; 2 for a null
 * handle or format, a bad type code, a value beyond its width, a null z or a
 * null b with a count, a decimal of another type; 1 when growing fails. A
 * failure stops at the failing code: what was composed before it stays. */
ZQ_API uint32_t ZqSysCompose(HZQCOMPOSER composer, const char* format, ...);

/* As ZqSysCompose, taking an argument list. */
ZQ_API uint32_t ZqSysVCompose(HZQCOMPOSER composer, const char* format, va_list args);

/* Writes the values from byte `index` on, overwriting; the index must be
 * less than the current size (else 2). The size becomes the larger of the
 * old size and the end of what was written. */
ZQ_API uint32_t ZqSysComposeAtIndex(HZQCOMPOSER composer, uint32_t index, const char* format, ...);

/* The composer's buffer (owned by it; valid until the next compose or the
 * free) and the number of bytes composed. 2 for null arguments. */
ZQ_API uint32_t ZqSysComposeGetBuffer(HZQCOMPOSER composer, const uint8_t** buffer);
ZQ_API uint32_t ZqSysComposeGetSize(HZQCOMPOSER composer, uint32_t* size);

/* Adds a reference; each handle so obtained is freed separately. */
ZQ_API uint32_t ZqSysDuplicateComposer(HZQCOMPOSER composer, HZQCOMPOSER* duplicate);

/* Releases one reference; the last frees the buffer. Null is accepted. */
ZQ_API uint32_t ZqSysFreeComposer(HZQCOMPOSER composer);

/* Creates a parser on an empty buffer; as ZqSysCreateBinaryComposer. */
ZQ_API uint32_t ZqSysCreateBinaryParser(HZQPARSER* parser);

/* Sets the buffer to read (not copied: the caller keeps it alive) and
 * rewinds to 0. 2 for a null handle, or a null buffer with a size. */
ZQ_API uint32_t ZqSysInitParser(HZQPARSER parser, const void* buffer, uint32_t size);

/* Rewinds to 0. */
ZQ_API uint32_t ZqSysResetParser(HZQPARSER parser);

/* Reads values at the current position into the caller's storage and
 * advances. Destinations per code: a, i, u, f pointers to storage of that
 * size; t ZQTIME*; c char* storage (a null text stores an empty one); w
 * uint16_t storage; b storage then uint32_t* count; z storage for the length
 * and the bytes; d, s ZQBCDII* storage. The storage must hold the largest
 * value the format allows. Returns 0; 0x1004 (MSG:BAD_PARSE_BLOCK) for a
 * short or malformed stream; 2 for a bad code, a null destination, or a b or
 * z longer than its width. Values before a failure stay delivered. */
ZQ_API uint32_t ZqSysParse(HZQPARSER parser, const char* format, ...);

/* As ZqSysParse, taking an argument list. */
ZQ_API uint32_t ZqSysVParse(HZQPARSER parser, const char* format, va_list args);

/* The current read position. */
ZQ_API uint32_t ZqSysGetIndex(HZQPARSER parser, uint32_t* index);

/* Adds a reference; each handle so obtained is freed separately. */
ZQ_API uint32_t ZqSysDuplicateParser(HZQPARSER parser, HZQPARSER* duplicate);

/* Releases one reference. Null is accepted. */
ZQ_API uint32_t ZqSysFreeParser(HZQPARSER parser);

ZQ_EXTERN_C_END

#endif /* ZQSYS_ZQSTREAM_H */
