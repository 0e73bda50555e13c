/* A database driver's type names for PostgreSQL, as ZqDBGetTableCreationSQL
 * asks for them. Copy it into your database layer and adjust to taste.
 *
 *   a          char(1)
 *   b<n>, z<n> bytea
 *   c<n>, w<n> varchar(n); c0 and w0 text
 *   d/s p.s    numeric(p,s)
 *   f          double precision
 *   i1 i2 i4 i8  smallint smallint integer bigint
 *   u1 u2 u4 u8  smallint integer bigint numeric(20)
 *   t          timestamp(3)   (the time value keeps milliseconds)
 *
 * PostgreSQL has no one-byte or unsigned integers, so each unsigned width
 * takes the next signed one and u8 a 20-digit numeric, which holds
 * 18446744073709551615. A w text counts 16-bit units; varchar counts
 * characters, of which there are never more than units. */
#ifndef ZQ_EXAMPLE_POSTGRES_TYPES_H
#define ZQ_EXAMPLE_POSTGRES_TYPES_H

#include "zqsys/zqscheme.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The driver's type-name operation: 0 and the name in `buffer`; 0x800A
 * (DB:INVALID_TYPE) for a letter, integer width or decimal PostgreSQL
 * cannot hold; 7 (COMMON:BUFFER_TOO_SMALL) when the name does not fit. */
uint32_t PostgresTypeName(void* context, char letter, uint32_t size, uint32_t precision,
                          char* buffer, uint32_t capacity);

/* Fills *driver with PostgresTypeName and no context. */
void PostgresTypesDriver(ZQDBDRIVER* driver);

#ifdef __cplusplus
}
#endif

#endif /* ZQ_EXAMPLE_POSTGRES_TYPES_H */
