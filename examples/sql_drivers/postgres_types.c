#include "postgres_types.h"

#include <stdarg.h>
#include <stdio.h>

#include "zqsys/zqerr.h"

/* The widest numeric PostgreSQL declares. */
#define POSTGRES_MAX_DIGITS 1000u

static uint32_t Put(char* buffer, uint32_t capacity, const char* format, ...) {
  va_list args;
  va_start(args, format);
  const int length = vsnprintf(buffer, capacity, format, args);
  va_end(args);
  if (length < 0) return ZQERR_DB_INVALID_TYPE;
  return (uint32_t)length < capacity ? 0 : ZQERR_COMMON_BUFFER_TOO_SMALL;
}

/* Integer names by width 1, 2, 4, 8. */
static const char* const kSignedNames[4] = {"smallint", "smallint", "integer", "bigint"};
static const char* const kUnsignedNames[4] = {"smallint", "integer", "bigint", "numeric(20)"};

static uint32_t IntegerName(const char* const names[4], uint32_t size, char* buffer,
                            uint32_t capacity) {
  switch (size) {
    case 1:
      return Put(buffer, capacity, "%s", names[0]);
    case 2:
      return Put(buffer, capacity, "%s", names[1]);
    case 4:
      return Put(buffer, capacity, "%s", names[2]);
    case 8:
      return Put(buffer, capacity, "%s", names[3]);
    default:
      return ZQERR_DB_INVALID_TYPE;
  }
}

uint32_t PostgresTypeName(void* context, char letter, uint32_t size, uint32_t precision,
                          char* buffer, uint32_t capacity) {
  (void)context;
  if (buffer == NULL || capacity == 0) return ZQERR_COMMON_WRONG_ARGUMENTS;
  switch (letter) {
    case 'a':
      return Put(buffer, capacity, "char(1)");
    case 'b':
    case 'z':
      return Put(buffer, capacity, "bytea");
    case 'c':
    case 'w':
      return size == 0 ? Put(buffer, capacity, "text") : Put(buffer, capacity, "varchar(%u)", size);
    case 'd':
    case 's':
      if (size == 0 || size > POSTGRES_MAX_DIGITS || precision > size) {
        return ZQERR_DB_INVALID_TYPE;
      }
      return Put(buffer, capacity, "numeric(%u,%u)", size, precision);
    case 'f':
      return Put(buffer, capacity, "double precision");
    case 'i':
      return IntegerName(kSignedNames, size, buffer, capacity);
    case 'u':
      return IntegerName(kUnsignedNames, size, buffer, capacity);
    case 't':
      return Put(buffer, capacity, "timestamp(3)");
    default:
      return ZQERR_DB_INVALID_TYPE;
  }
}

void PostgresTypesDriver(ZQDBDRIVER* driver) {
  driver->context = NULL;
  driver->typeName = PostgresTypeName;
}
