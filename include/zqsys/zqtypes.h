/* ZqSys type codes.
 *
 * A type code is one lower-case letter, for some letters followed by a
 * decimal width: a (character), b<n> (binary of n bytes), c<n> (text of at
 * most n characters), d<p>[.<s>] and s<p>[.<s>] (decimal of precision p and
 * scale s), f (double), i1 i2 i4 i8 and u1 u2 u4 u8 (integers), t (ZQTIME),
 * w<n> (text of at most n 16-bit characters), z<n> (u32 length, then at most
 * n bytes). A format string is type codes written one after another. */
#ifndef ZQSYS_ZQTYPES_H
#define ZQSYS_ZQTYPES_H

#include "zqsys/zqdefs.h"

ZQ_EXTERN_C_BEGIN

/* Scans the type code at the start of the NUL-terminated `format`. On
 * success writes the characters it occupies to *length (0 at the end of the
 * format, so a caller loops until length is 0), its width to *width and its
 * scale to *scale (each only if that pointer is not null). Returns 0, or 2
 * (COMMON:WRONG_ARGUMENTS) for a null format or length, or a bad type code;
 * on failure nothing is written. */
ZQ_API uint32_t ZqSysGetNextType(const char* format, uint32_t* length, uint32_t* width,
                                 uint32_t* scale);

/* The in-memory size and alignment of a type, as records and native
 * structures lay it out (8-byte integers and doubles align to 4, ZQTIME to 2).
 * Returns 0, 2 for a null output, or 0x800A (DB:INVALID_TYPE) for an unknown
 * letter or an integer width other than 1, 2, 4, 8; for such an integer
 * width *size has already been set to the width. */
ZQ_API uint32_t ZqSysTypeGetSizeAndAlign(char letter, uint32_t width, uint32_t scale,
                                         uint32_t* size, uint32_t* alignment);

/* The alignment alone; same codes as ZqSysTypeGetSizeAndAlign. */
ZQ_API uint32_t ZqSysTypeGetAlign(char letter, uint32_t width, uint32_t* alignment);

ZQ_EXTERN_C_END

#endif /* ZQSYS_ZQTYPES_H */
