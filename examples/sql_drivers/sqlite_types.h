/* A database driver's type names for SQLite, as ZqDBGetTableCreationSQL
 * asks for them. Copy it into your database layer and adjust to taste.
 *
 * SQLite keeps the declared type as written and derives the column's
 * affinity from it, so each name below is chosen for the affinity it gives:
 *
 *   a          CHAR(1)              text
 *   b<n>, z<n> BLOB                 blob
 *   c<n>       VARCHAR(n), c0 TEXT  text
 *   w<n>       NVARCHAR(n), w0 TEXT text
 *   d/s p.s    DECIMAL(p,s)         numeric, for p <= 15
 *              TEXT                 for p > 15 (see below)
 *   f          REAL                 real
 *   i1 i2 i4 i8  TINYINT SMALLINT INTEGER BIGINT                 integer
 *   u1 u2 u4 u8  UNSIGNED TINYINT / SMALLINT / INT / BIG INT     integer
 *   t          DATETIME             numeric; "YYYY-MM-DD HH:MM:SS.mmm"
 *                                   text stays text
 *
 * Numeric affinity turns a decimal into a double, which keeps 15
 * significant digits; wider decimals are therefore declared TEXT so that
 * their digits survive. SQLite integers are signed 64-bit: bind a u8 above
 * INT64_MAX as its two's-complement int64 to keep it exact. */
#ifndef ZQ_EXAMPLE_SQLITE_TYPES_H
#define ZQ_EXAMPLE_SQLITE_TYPES_H

#include "zqsys/zqscheme.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The driver's type-name operation: 0 and the name in `buffer`; 0x800A
 * (DB:INVALID_TYPE) for a letter, integer width or decimal SQLite cannot
 * hold; 7 (COMMON:BUFFER_TOO_SMALL) when the name does not fit. */
uint32_t SqliteTypeName(void* context, char letter, uint32_t size, uint32_t precision, char* buffer,
                        uint32_t capacity);

/* Fills *driver with SqliteTypeName and no context. */
void SqliteTypesDriver(ZQDBDRIVER* driver);

#ifdef __cplusplus
}
#endif

#endif /* ZQ_EXAMPLE_SQLITE_TYPES_H */
