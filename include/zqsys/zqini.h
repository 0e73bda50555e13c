/* ZqSys INI files.
 *
 * The library keeps one process-wide default INI file, opened once with
 * ZqIniOpen, and any number of others opened by handle with ZqIniCustOpen.
 * Every reader and writer takes a handle; ZQINI_DEFAULT_HANDLE names the
 * default INI. A custom handle is an id from the library's handle table:
 * never 0, never reused while the process lives.
 *
 * The files: sections in brackets, "key=value" lines, ';' comment lines.
 * Section and key names compare without regard to ASCII case; the first
 * section of a name, and in it the first key of a name, count. Writes edit
 * the file as text, keep every line they do not change, and replace the file
 * whole, so a crash leaves the old or the new file and writers in several
 * processes lose no update. Reads see an edit by any process, or by hand, at
 * once.
 *
 * Values read as strings, section lines and enumerated keys are cleaned: the
 * text ends at the first "//" ("////" stands for a literal "//"), then loses
 * trailing blanks and tabs and leading blanks (a leading tab stays).
 *
 * Result codes: 0 success, 2 COMMON:WRONG_ARGUMENTS (a null pointer or an
 * empty name), 0x4000 INI:ALREADY_STARTED, 0x4001 INI:NOT_STARTED (the INI
 * is not open), 0x4002 INI:WRITE_ERROR (the file could not be written, or a
 * name or value holds a line break), 0x4004 INI:FILE_NOT_FOUND, 0x4005
 * INI:INVALID_INI_HANDLE. Reads never fail: they fall back to the default.
 * Any thread may call; no lock is held while a callback runs, so a callback
 * may call these functions itself. */
#ifndef ZQSYS_ZQINI_H
#define ZQSYS_ZQINI_H

#include "zqsys/zqdefs.h"

/* The handle of the default INI. */
#define ZQINI_DEFAULT_HANDLE 0xFFFFFFFFu

/* Option bit 0: an open creates a missing file and its directories. */
#define ZQINI_OPT_CREATE_MISSING 0x1u

/* Called for each key of a section, in file order, with the section name as
 * given (leading blanks skipped). A non-zero result stops the enumeration
 * and is returned. */
typedef uint32_t (*ZqIniEnumKeysCallback)(const char* section, char* key, char* value,
                                          void* context);

/* Called for each section name, in file order. A non-zero result stops the
 * enumeration and is returned. */
typedef uint32_t (*ZqIniEnumSectionsCallback)(const char* sectionName, void* context);

ZQ_EXTERN_C_BEGIN

/* Opens the default INI with the current options: 2 for a null or empty
 * path, 0x4000 if it is open, 0x4004 for a missing file (option bit 0:
 * created, or 0x4002), 16 COMMON:NOT_SUPPORTED when the path names anything
 * but a regular file (a directory, a FIFO, a device), 4 when the file exists
 * but cannot be opened or the full path cannot be made, 3 when it is
 * PATH_MAX or longer. Writes never replace anything but a regular file. */
ZQ_API uint32_t ZqIniOpen(const char* path);

/* Closes the default INI; it keeps its path. Always 0. */
ZQ_API uint32_t ZqIniClose(void);

/* 1 if the default INI is open, else 0. */
ZQ_API uint32_t ZqIniIsOpened(void);

/* Sets the options for later opens (ZQINI_OPT_CREATE_MISSING); any other
 * bit gives 2 and changes nothing. */
ZQ_API uint32_t ZqIniSetOpt(uint32_t options);

/* Stores the options in *options; 2 if it is null. */
ZQ_API uint32_t ZqIniGetOpt(uint32_t* options);

/* Opens an INI file and stores its new handle in *handle (0 on failure).
 * 2 for a null handle pointer; otherwise the codes of ZqIniOpen, or 1. */
ZQ_API uint32_t ZqIniCustOpen(uint32_t* handle, const char* path);

/* Closes a handle; the default handle closes the default INI; 0 and unknown
 * handles are ignored. Always 0. A call still using the handle in another
 * thread keeps its object alive until it returns. */
ZQ_API uint32_t ZqIniCustClose(uint32_t handle);

/* The value's leading decimal number (optional sign, digits; clamped to the
 * 32-bit range). The default for a missing or empty value, a null or empty
 * name, a closed INI or an unknown handle. No comment is stripped: "5 // x"
 * reads as 5. */
ZQ_API int32_t ZqIniCustGetInt(uint32_t handle, const char* section, const char* key,
                               int32_t defaultValue);

/* Stores the cleaned value, or else the default (null means ""), cut to
 * size - 1 characters and a NUL, and returns its length. A null buffer (or
 * size 0) returns 0. On an unknown handle the default is copied cut to
 * size - 1 characters with one more byte after them, so a default of size
 * characters or more is left without a terminator. */
ZQ_API uint32_t ZqIniCustGetStr(uint32_t handle, char* buffer, uint32_t size, const char* section,
                                const char* key, const char* defaultValue);

/* Stores the section's lines as "key=value\0...\0\0", each line cleaned and
 * the empty ones left out, in the buffer of *size bytes, and sets *size to
 * the characters stored before the final NUL. A list that does not fit is
 * cut (*size is then at most the buffer size - 2). A closed INI reads the
 * file it had open; a null section reads as an empty one. 2 for a null
 * buffer or size; 0x4005. */
ZQ_API uint32_t ZqIniCustGetSection(uint32_t handle, char* buffer, uint32_t* size,
                                    const char* section);

/* Writes the value as decimal text. 2, 0x4001, 0x4002, 0x4005. */
ZQ_API uint32_t ZqIniCustWriteInt(uint32_t handle, const char* section, const char* key,
                                  int32_t value);

/* Writes the value as given; a null value deletes the key. An existing key is
 * rewritten in place, a new one follows the section's last key, a new section
 * goes at the end of the file. Writing the value a key has changes nothing.
 * Names a read could not find again are refused with 0x4002, as is a line
 * break anywhere: a key holding '=' or starting with ';' or '[', a section
 * holding ']', outer whitespace other than spaces. 2, 0x4001, 0x4002,
 * 0x4005. */
ZQ_API uint32_t ZqIniCustWriteStr(uint32_t handle, const char* section, const char* key,
                                  const char* value);

/* Replaces the section's "key=value" lines (its comments stay) with `data`:
 * NUL-terminated lines ended by an empty one. Names are refused as by
 * ZqIniCustWriteStr, and so is a line the file would read as a comment or a
 * header. 2, 0x4001, 0x4002, 0x4005. */
ZQ_API uint32_t ZqIniCustWriteSection(uint32_t handle, const char* section, const char* data);

/* Calls `callback` for each non-empty cleaned line of the section (up to
 * 32767 bytes of them), split at its first '=' (no '=': an empty value).
 * 2 for a null callback or a section that is null or only blanks; 0x4001,
 * 0x4005; else the callback's non-zero result; else 0x4003
 * (INI:VALUE_TRUNCATED) for a section longer than that, whose whole lines
 * were handed out and whose cut line was not; or 0. */
ZQ_API uint32_t ZqIniCustEnumKeys(uint32_t handle, const char* section,
                                  ZqIniEnumKeysCallback callback, void* context);

/* Calls `callback` for each section name (up to 65535 bytes of them). 2 for
 * a null callback; 0x4001, 0x4005; else the callback's non-zero result, or
 * 0. */
ZQ_API uint32_t ZqIniCustEnumSections(uint32_t handle, ZqIniEnumSectionsCallback callback,
                                      void* context);

ZQ_EXTERN_C_END

#endif /* ZQSYS_ZQINI_H */
