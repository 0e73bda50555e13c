/* ZqSys formatted output.
 *
 * The library's printf engine. It knows the usual conversions
 * (d i u o x X p c s f e E g G n %) and the library's own:
 *
 *   %R  a result code:        0x800A-'DB:INVALID_TYPE'
 *   %r  a system error:       5-'Input/output error' (the number alone if
 *                             the system has no text for it)
 *   %H  a bare hex number:    0x1F
 *   %q  a text with every single quote doubled; (NULL) for a null pointer
 *   %Q  the same in single quotes; NULL for a null pointer
 *   %z  %Z  a byte dump (pointer; the precision is the byte count, 16 when
 *       absent): bytes below 0x20 as ".", others as they are; with "#", hex
 *       pairs separated by blanks (lower case for z, upper case for Z)
 *   %t  a ZQTIME (pointer): 2008/03/07 09:05:01; the precision counts the
 *       parts (7 adds .042); "#" prints the time of day only (3 parts)
 *   %B  a ZqBCDII value (pointer), %b a value and its u32 type
 *
 * Length modifiers: l (the platform's long), ll and I64 (64 bits), I32 (32
 * bits). Widths stop at 990, precisions at 960 (except for s q Q z Z). An
 * unknown conversion prints "???" and ends the text. Floats carry 16
 * significant digits; an infinity prints "NaN". Integer zero padding comes
 * from the precision, so "#" never adds a prefix in front of a leading zero:
 * %#08x of 255 prints 000000ff. */
#ifndef ZQSYS_ZQPRINTF_H
#define ZQSYS_ZQPRINTF_H

#include "zqsys/zqdefs.h"

ZQ_EXTERN_C_BEGIN

/* Formats into `buffer` of `size` bytes, cutting the text to size - 1
 * characters and always terminating it. Returns the number of characters
 * stored, not the number the whole text would need; a result of exactly
 * size - 1 may mean the text was cut. A null buffer or size 0 stores nothing
 * and returns 0. */
ZQ_API int32_t ZqSysSNPrintf(char* buffer, uint32_t size, const char* format, ...);
ZQ_API uint32_t ZqSysVSNPrintf(char* buffer, uint32_t size, const char* format, va_list args);

/* Formats into a new heap string, stores it in *result and returns its
 * length. Free the string with ZqSysFreePrintfMemory. When memory runs out
 * *result is null and the result is 0. */
ZQ_API uint32_t ZqSysMPrintf(char** result, const char* format, ...);
ZQ_API uint32_t ZqSysVMPrintf(char** result, const char* format, va_list args);

/* Frees a string from ZqSysMPrintf or ZqSysVMPrintf; accepts null. Returns 0. */
ZQ_API uint32_t ZqSysFreePrintfMemory(char* text);

/* Formats and writes the text to standard output (no newline is added).
 * Returns its length. */
ZQ_API int32_t ZqSysPrintf(const char* format, ...);
ZQ_API int32_t ZqSysVPrintf(const char* format, va_list args);

/* Writes the text of one value of a type code: `type` starts with the type
 * letter, `width` is the size in bytes (a i u f t), the digit count of a
 * decimal (d s) or unused (c b z), `scale` is a decimal's scale. `value`
 * points to `valueSize` bytes:
 *
 *   a  one character (valueSize 1)              size 2
 *   c  text of at most valueSize bytes          its length + 1
 *   d s  a ZqBCDII of type width * 256 + scale  width + 3
 *   f  a double (valueSize 8), as %.12e         23
 *   i  a signed integer of width 1, 2, 4, 8     5, 7, 12, 22
 *   u  an unsigned integer of width 1, 2, 4, 8  4, 6, 11, 21
 *   t  a ZQTIME (valueSize 10), as %.7t         24
 *   b  valueSize bytes                          dump
 *   z  a u32 count n <= valueSize - 4, n bytes  dump
 *
 * A dump is %#.*Z (3n bytes), or with `flags` bit 0 two upper-case hex
 * digits a byte without separators (2n + 1 bytes).
 * *size is in/out: the buffer's size in, the size the text needs out. A
 * null `out` returns 15 (COMMON:REAL_SIZE_RETURNED), a buffer smaller than
 * the table's size 7 (COMMON:BUFFER_TOO_SMALL), both with the needed size
 * stored; on success 0 with the text's length + 1 stored. 2 for a null size,
 * type or value or a value of the wrong size (f stores 23 even then), 0x800A
 * (DB:INVALID_TYPE) for another letter or integer width. */
ZQ_API uint32_t ZqTypeToStr(char* out, uint32_t* size, const char* type, int32_t width,
                            uint8_t scale, const void* value, uint32_t valueSize, uint8_t flags);

ZQ_EXTERN_C_END

#endif /* ZQSYS_ZQPRINTF_H */
