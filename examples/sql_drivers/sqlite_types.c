#include "sqlite_types.h"

#include <stdarg.h>
#include <stdio.h>

#include "zqsys/zqerr.h"

/* Widest decimal that survives SQLite's numeric affinity digit for digit. */
#define SQLITE_EXACT_DIGITS 15u

static uint32_t Put(char* buffer, uint32_t capacity, const char* format, ...) {
  va_list args;
  va_start(args, format);
  const int length = vsnprintf(buffer, capacity, format, args);
  va_end(args);
  if (length < 0) return ZQERR_DB_INVALID_TYPE;
  return (uint32_t)length < capacity ? 0 : ZQERR_COMMON_BUFFER_TOO_SMALL;
}

/* Integer names by width 1, 2, 4, 8; all of them give integer affinity. */
static const char* const kSignedNames[4] = {"TINYINT", "SMALLINT", "INTEGER", "BIGINT"};
static const char* const kUnsignedNames[4] = {"UNSIGNED TINYINT", "UNSIGNED SMALLINT",
                                              "UNSIGNED INT", "UNSIGNED BIG INT"};

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

uint32_t SqliteTypeName(void* context, char letter, uint32_t size, uint32_t precision, char* buffer,
                        uint32_t capacity) {
  (void)context;
  if (buffer == NULL || capacity == 0) return ZQERR_COMMON_WRONG_ARGUMENTS;
  switch (letter) {
    case 'a':
      return Put(buffer, capacity, "CHAR(1)");
    case 'b':
    case 'z':
      return Put(buffer, capacity, "BLOB");
    case 'c':
      return size == 0 ? Put(buffer, capacity, "TEXT") : Put(buffer, capacity, "VARCHAR(%u)", size);
    case 'w':
      return size == 0 ? Put(buffer, capacity, "TEXT")
                       : Put(buffer, capacity, "NVARCHAR(%u)", size);
    case 'd':
    case 's':
      if (size == 0 || precision > size) return ZQERR_DB_INVALID_TYPE;
      if (size > SQLITE_EXACT_DIGITS) return Put(buffer, capacity, "TEXT");
      return Put(buffer, capacity, "DECIMAL(%u,%u)", size, precision);
    case 'f':
      return Put(buffer, capacity, "REAL");
    case 'i':
      return IntegerName(kSignedNames, size, buffer, capacity);
    case 'u':
      return IntegerName(kUnsignedNames, size, buffer, capacity);
    case 't':
      return Put(buffer, capacity, "DATETIME");
    default:
      return ZQERR_DB_INVALID_TYPE;
  }
}

void SqliteTypesDriver(ZQDBDRIVER* driver) {
  driver->context = NULL;
  driver->typeName = SqliteTypeName;
}
