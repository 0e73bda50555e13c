/* ZqSys database schemes.
 *
 * A db scheme (HZQDBSCHEME) describes the tables and views of one database:
 * a name, a life number and an ordered list of items. Each item is a table
 * scheme (HZQDBTABLE), either a table (ZQDB_ITEM_TABLE) or a view
 * (ZQDB_ITEM_VIEW), with ordered typed fields, ordered indexes (HZQDBINDEX),
 * a primary table, a primary key and free-form custom attributes. Names are
 * at most 63 characters (ZQDB_NAME_SIZE bytes with the NUL).
 *
 * Every object is reference-counted and built once, then shared read-only;
 * only the life number may be read and set from any thread. A handle that a
 * function "borrows" stays valid while its owner lives; take your own
 * reference with ZqDBMakeNewPtrScheme / ZqDBMakeNewPtrTableScheme to keep it.
 *
 * A field has a type code (zqtypes.h): its type text is the letter alone for
 * a, f, t; letter and size ("c25") for b, c, i, u, w, z; letter, size and
 * precision ("d16.5") for d and s. Its max size is the most bytes a value of
 * it takes: 1 for a, 8 for f, 10 for t, size for b, i, u, size + 1 for c,
 * 2 * size + 2 for w, size + 4 for z, the decimal size for d and s.
 *
 * Texts come back by the buffer rule: the needed size (length + 1) is always
 * written to *size; a null or smaller buffer gives 7 (COMMON:BUFFER_TOO_SMALL)
 * and copies nothing; otherwise the text and its NUL are copied and 0 is
 * returned. A null handle or size pointer gives 2 (COMMON:WRONG_ARGUMENTS).
 *
 * Schemes are described in INI files:
 *
 *   [dbscheme:trade]             lifenumber=7, then table=... and view=...
 *                                lines in item order
 *   [table:trade:orders]         field=name,type[,srctable.srcfield]
 *   [view:trade:v_orders]        index=name[,unique],field[,asc|desc]...
 *                                primary_key=..., primary_table=...,
 *                                any other key: a custom attribute
 *
 * Field descriptions are not trimmed; index pieces are. Failures are logged
 * under the category "Scheme". */
#ifndef ZQSYS_ZQSCHEME_H
#define ZQSYS_ZQSCHEME_H

#include "zqsys/zqdefs.h"
#include "zqsys/zqstream.h"

typedef struct ZqDBScheme_s* HZQDBSCHEME;
typedef struct ZqDBRecord_s* HZQDBTABLE; /* a table or view scheme */
typedef struct ZqDBIndex_s* HZQDBINDEX;

/* Bytes of every name array, NUL included. */
#define ZQDB_NAME_SIZE 64u

/* Item kinds. */
#define ZQDB_ITEM_ALL 0u /* only where a function walks or counts items */
#define ZQDB_ITEM_TABLE 1u
#define ZQDB_ITEM_VIEW 2u

/* Sort orders of index fields. */
#define ZQDB_ORDER_ASC 0u
#define ZQDB_ORDER_DESC 1u

/* One field, as ZqSchemeGetFieldInfoByIndex / ByName describe it. */
typedef struct ZqDBFieldInfo {
  uint32_t index; /* position in the table, from 0 */
  char name[ZQDB_NAME_SIZE];
  char type[ZQDB_NAME_SIZE]; /* type text: "i8", "c25", "d16.5", "t" */
  uint32_t size;
  uint32_t precision;
} ZQDBFIELDINFO;

/* One field of an index. */
typedef struct ZqDBIndexFieldInfo {
  char name[ZQDB_NAME_SIZE];
  uint32_t order; /* ZQDB_ORDER_ASC or ZQDB_ORDER_DESC */
} ZQDBINDEXFIELDINFO;

/* Called once per item by the enumerations; a non-zero result stops the walk
 * and is returned (12, COMMON:CANCEL_ENUM, is the usual "found it"). */
typedef uint32_t (*ZQSCHEME_ENUM_CBK)(HZQDBTABLE table, void* context);

/* Called once per INI line by CbkSaveToDb with a counter that starts at 0 and
 * rises by 10 after every accepted line; a non-zero result ends the writing
 * and is returned. */
typedef uint32_t (*ZQSCHEME_SAVE_CBK)(void* context, uint32_t counter, const char* section,
                                      const char* key, const char* value);

/* The database driver's side of SQL text: writes the engine's SQL type of a
 * field (type letter, size, precision) as a NUL-terminated text of at most
 * `capacity` bytes into `buffer`, and returns 0, or a non-zero code for a
 * type the engine cannot hold. */
typedef struct ZqDBDriver {
  void* context;
  uint32_t (*typeName)(void* context, char letter, uint32_t size, uint32_t precision, char* buffer,
                       uint32_t capacity);
} ZQDBDRIVER;

ZQ_EXTERN_C_BEGIN

/* ---- Handles and lifetime ---- */

/* Stores `scheme` in *out and, if it is not null, adds a reference to it.
 * 2 for a null `out`. */
ZQ_API uint32_t ZqDBMakeNewPtrScheme(HZQDBSCHEME scheme, HZQDBSCHEME* out);
/* The same for a table scheme. */
ZQ_API uint32_t ZqDBMakeNewPtrTableScheme(HZQDBTABLE table, HZQDBTABLE* out);

/* Release one reference; the last one frees the object and what it holds.
 * Null is accepted. Always 0. */
ZQ_API uint32_t ZqSchemeFreeScheme(HZQDBSCHEME scheme);
ZQ_API uint32_t ZqSchemeFreeTableScheme(HZQDBTABLE table);
ZQ_API uint32_t ZqSchemeFreeIndex(HZQDBINDEX index);

/* A new scheme with the same name, life number and items (the items are
 * shared, each with one more reference). 2 for null arguments, 1 when memory
 * runs out. Free *out with ZqSchemeFreeScheme. */
ZQ_API uint32_t ZqSchemeCopyScheme(HZQDBSCHEME scheme, HZQDBSCHEME* out);
/* A new table scheme copied member by member: name, primary table, primary
 * key, kind, fields, indexes and custom attributes. Codes as above. */
ZQ_API uint32_t ZqSchemeCopyTableScheme(HZQDBTABLE table, HZQDBTABLE* out);

/* Logs, as information under "Scheme", how many db schemes, table schemes
 * and fields are alive. Call it at shutdown to find leaks. */
ZQ_API void CheckOpenedSchemeHandles(void);

/* ---- Scheme queries ---- */

ZQ_API uint32_t ZqSchemeGetSchemeName(HZQDBSCHEME scheme, char* buffer, uint32_t* size);
/* Atomic read and write of the life number; 2 for a null handle or output. */
ZQ_API uint32_t ZqSchemeGetLifeNum(HZQDBSCHEME scheme, uint32_t* lifeNum);
ZQ_API uint32_t ZqSchemeSetLifeNum(HZQDBSCHEME scheme, uint32_t lifeNum);

/* Items of a kind (ZQDB_ITEM_ALL, _TABLE, _VIEW); another kind gives 0x801D
 * (DB:NO_SUCH_ITEM). */
ZQ_API uint32_t ZqSchemeGetItemCount(HZQDBSCHEME scheme, uint32_t* count, uint32_t kind);
ZQ_API uint32_t ZqSchemeGetTableCount(HZQDBSCHEME scheme, uint32_t* count);

/* Borrows the table (kind 1) or view (kind 2) of that exact name. 2 for
 * another kind or an empty name; 0x8003 (DB:NO_SUCH_TABLE) or 0x801F
 * (DB:NO_SUCH_VIEW) when there is none. */
ZQ_API uint32_t ZqSchemeGetItemByName(HZQDBSCHEME scheme, const char* name, HZQDBTABLE* table,
                                      uint32_t kind);
ZQ_API uint32_t ZqSchemeGetTableByName(HZQDBSCHEME scheme, const char* name, HZQDBTABLE* table);

/* Borrows the item at `position` of the list of a kind (0 all, 1 tables,
 * 2 views). 0x801D for another kind or a position past the end. */
ZQ_API uint32_t ZqSchemeGetItemByIndex(HZQDBSCHEME scheme, uint32_t position, HZQDBTABLE* table,
                                       uint32_t kind);
ZQ_API uint32_t ZqSchemeGetTableByIndex(HZQDBSCHEME scheme, uint32_t position, HZQDBTABLE* table);

/* Calls `callback` for each item of a kind in order (0x801D for another
 * kind); a non-zero callback result stops the walk and is returned. */
ZQ_API uint32_t ZqSchemeEnumItemsFromScheme(HZQDBSCHEME scheme, ZQSCHEME_ENUM_CBK callback,
                                            void* context, uint32_t kind);
ZQ_API uint32_t ZqSchemeEnumTablesFromScheme(HZQDBSCHEME scheme, ZQSCHEME_ENUM_CBK callback,
                                             void* context);

/* ---- Table scheme queries ---- */

ZQ_API uint32_t ZqSchemeGetTableName(HZQDBTABLE table, char* buffer, uint32_t* size);
ZQ_API uint32_t ZqSchemeGetPrimaryTableName(HZQDBTABLE table, char* buffer, uint32_t* size);
/* Points *key at the primary key's name (empty when there is none), which
 * lives as long as the table scheme. */
ZQ_API uint32_t ZqSchemeGetPrimaryKey(HZQDBTABLE table, const char** key);
ZQ_API uint32_t ZqSchemeGetFieldCount(HZQDBTABLE table, uint32_t* count);
/* The field's position; 0x8002 (DB:NO_SUCH_FIELD) for an unknown name. */
ZQ_API uint32_t ZqSchemeGetFieldIndexByName(HZQDBTABLE table, const char* name, uint32_t* position);
/* Fill *info; 2 for a position past the end, 0x8002 for an unknown name. */
ZQ_API uint32_t ZqSchemeGetFieldInfoByIndex(HZQDBTABLE table, uint32_t position,
                                            ZQDBFIELDINFO* info);
ZQ_API uint32_t ZqSchemeGetFieldInfoByName(HZQDBTABLE table, const char* name, ZQDBFIELDINFO* info);
/* The field's max size (see above); 0x8002 for a position past the end. */
ZQ_API uint32_t ZqSchemeGetFieldMaxSizeByIndex(HZQDBTABLE table, uint32_t position,
                                               uint32_t* maxSize);
/* The field's size, precision and type letter; 0x8002 for a position past
 * the end. */
ZQ_API uint32_t ZqSchemeGetTypeSizeInfo(HZQDBTABLE table, uint32_t position, uint32_t* size,
                                        uint32_t* precision, char* letter);
/* The field's source as "table.field", or "\"table\".\"field\"" when `quoted`
 * is non-zero; 0x8002 for a position past the end. */
ZQ_API uint32_t ZqSchemeGetFieldSource(HZQDBTABLE table, uint32_t position, char* buffer,
                                       uint32_t* size, uint32_t quoted);
/* The value of a custom attribute; 0x8002 for an unknown name. */
ZQ_API uint32_t ZqSchemeGetCustomField(HZQDBTABLE table, const char* name, char* buffer,
                                       uint32_t* size);
ZQ_API uint32_t ZqSchemeGetIndexCount(HZQDBTABLE table, uint32_t* count);
/* A new reference to the index at `position`, freed with ZqSchemeFreeIndex;
 * 0x8020 (DB:NO_SUCH_INDEX) for a position past the end. */
ZQ_API uint32_t ZqSchemeGetIndexByIndex(HZQDBTABLE table, uint32_t position, HZQDBINDEX* index);

/* ---- Index queries ---- */

ZQ_API uint32_t ZqSchemeGetIndexName(HZQDBINDEX index, char* buffer, uint32_t* size);
ZQ_API uint32_t ZqSchemeGetIndexTableName(HZQDBINDEX index, char* buffer, uint32_t* size);
/* *unique is 1 for a unique index, else 0. */
ZQ_API uint32_t ZqSchemeGetIndexInfo(HZQDBINDEX index, uint32_t* unique);
ZQ_API uint32_t ZqSchemeGetIndexFieldCount(HZQDBINDEX index, uint32_t* count);
/* 0x8020 (DB:NO_SUCH_INDEX) for a position past the end. */
ZQ_API uint32_t ZqSchemeGetIndexFieldInfo(HZQDBINDEX index, uint32_t position,
                                          ZQDBINDEXFIELDINFO* info);

/* ---- Construction, checking and dumps (for loaders and database services) ---- */

/* A new, empty scheme or table scheme of that kind with one reference; null
 * for a null name, a name of 64 or more characters, or no memory. */
ZQ_API HZQDBSCHEME IntCreateScheme(const char* name);
ZQ_API HZQDBTABLE IntCreateTableScheme(const char* name, uint32_t kind);
/* Appends a table (kind 1) or view (kind 2) to the scheme, which takes its
 * own reference; 0x801E (DB:WRONG_ITEM_TYPE) for another kind. Names are not
 * checked for duplicates. */
ZQ_API uint32_t IntAddTable(HZQDBSCHEME scheme, HZQDBTABLE table);
/* Feeds one key/value line of a table section: "field", "index",
 * "primary_key", "primary_table", or any other key as a custom attribute.
 * A null key does nothing. On failure the table is unchanged. */
ZQ_API uint32_t IntAddTextCbk(HZQDBTABLE table, const char* key, const char* value);
/* The consistency check: 0x8007 (DB:EMPTY_SHEME) for a scheme without
 * items; 0x800A (DB:INVALID_TYPE) for a field type records cannot lay out
 * (an integer of other than 1, 2, 4 or 8 bytes, a decimal of precision
 * above 255 or scale above its precision); 0x8008 (DB:WRONG_DB_SCHEME) for
 * two items of one name, two fields of one name in a table, an index
 * naming a field its table does not have, or a primary key naming no index
 * of its table. */
ZQ_API uint32_t IntCheckScheme(HZQDBSCHEME scheme);
/* Write the scheme, or one table scheme at an indent, to the default log as
 * information lines under "Scheme". */
ZQ_API uint32_t DumpScheme(HZQDBSCHEME scheme);
ZQ_API uint32_t DumpTableScheme(HZQDBTABLE table, uint32_t indent);

/* ---- Blocks and comparisons ----
 *
 * A scheme's block carries all of it (name, life number, and per item its
 * kind, names, primary table and key, fields with their types and sources,
 * indexes, custom attributes), so that a scheme loaded from it is equal to
 * the one saved. It is a version byte (1) and then a binary stream
 * (zqstream.h); docs/ARCHITECTURE.md gives its layout. Blocks travel
 * between processes: the loader checks every length and count against the
 * bytes that remain before using it. */

/* Writes the scheme's block by the buffer rule: the block's size is always
 * written to *size; a null or smaller buffer gives 7 and nothing is written.
 * 2 for a null scheme or size. */
ZQ_API uint32_t ZqSchemeSaveSchemeToBlock(HZQDBSCHEME scheme, void* buffer, uint32_t* size);
/* Appends the scheme's block to a binary composer's stream; 1 when the
 * stream cannot grow, and then nothing is appended. */
ZQ_API uint32_t ZqSchemeSaveSchemeToBlock2(HZQDBSCHEME scheme, HZQCOMPOSER composer);
/* A new scheme from a block of `size` bytes; *used (if not null) receives the
 * bytes read, and bytes after the block are left alone. 16
 * (COMMON:NOT_SUPPORTED) for a block of another version; 0x1004
 * (MSG:BAD_PARSE_BLOCK) for a block that ends early, a count larger than the
 * bytes left could hold, a null text, a name of 64 or more characters or
 * with a NUL in it, a field without a name, a flag or sort order other
 * than 0 or 1; 0x800A (DB:INVALID_TYPE) for an unknown type letter; 0x801E
 * (DB:WRONG_ITEM_TYPE) for an item kind other than 1 or 2; 1 when memory
 * runs out. *scheme is set only on success; free it with
 * ZqSchemeFreeScheme. The consistency check is not run: call
 * IntCheckScheme for it. */
ZQ_API uint32_t ZqSchemeCreateSchemeFromBlock(const void* block, uint32_t size, HZQDBSCHEME* scheme,
                                              uint32_t* used);
/* *equal is 1 when the two schemes have the same name, life number and
 * items in the same order, each with the same kind, name, primary table,
 * primary key, fields (name, type, size, precision, source), indexes (name,
 * table, unique, fields and orders) and custom attributes; else 0. */
ZQ_API uint32_t ZqSchemeEqualSchemes(HZQDBSCHEME first, HZQDBSCHEME second, uint32_t* equal);
/* *subset is 1 when every item of `part` has an item of its kind and name
 * in `whole` holding each of its fields, by name, with the same type, size
 * and precision (indexes, sources, custom attributes, names and life numbers
 * of the schemes are not compared); else 0. */
ZQ_API uint32_t ZqDBIsSchemeSubset(HZQDBSCHEME part, HZQDBSCHEME whole, uint32_t* subset);

/* ---- INI descriptions ---- */

/* Loads scheme "dbscheme:<name>" from the default INI. The new scheme is
 * stored in *scheme before loading starts and stays there on failure too:
 * free it with ZqSchemeFreeScheme in both cases (a null *scheme means it
 * could not be created). The first failing line ends the load; a section
 * longer than the INI enumeration reads (32767 bytes) fails with 0x4003
 * (INI:VALUE_TRUNCATED) rather than load in part. */
ZQ_API uint32_t ZqSchemeCreateSchemeFromIni(HZQDBSCHEME* scheme, const char* name);
/* The same from the INI file `iniFile`. */
ZQ_API uint32_t ZqSchemeCreateSchemeFromIni2(HZQDBSCHEME* scheme, const char* iniFile,
                                             const char* name);
/* Loads one table scheme, named after the section, from section `section`
 * of the default INI. *table is set only on success. 0x8008 when the
 * section has no field; the table's part of IntCheckScheme; 0x4003 for a
 * section too long to read whole. */
ZQ_API uint32_t ZqSchemeCreateRecordsetSchemeFromIni(const char* section, HZQDBTABLE* table);
ZQ_API uint32_t ZqSchemeCreateRecordsetSchemeFromIni2(const char* iniFile, const char* section,
                                                      HZQDBTABLE* table);
/* Writes "lifenumber" in the scheme's section of the default INI or of
 * `iniFile`; returns the INI write's code. */
ZQ_API uint32_t ZqSchemeSetLifeNumToIni(HZQDBSCHEME scheme, uint32_t lifeNum);
ZQ_API uint32_t ZqSchemeSetLifeNumToIni2(const char* iniFile, HZQDBSCHEME scheme, uint32_t lifeNum);

/* Writes the scheme as INI lines through `callback`. A unique index is
 * written as "name,UNIQUE,field,asc, ..." and, since the loader knows only
 * "unique", reads back as a non-unique index whose first field is "UNIQUE". */
ZQ_API uint32_t CbkSaveToDb(HZQDBSCHEME scheme, ZQSCHEME_SAVE_CBK callback, void* context);

/* ---- SQL text ---- */

/* Every quoted name is written in double quotes with a double quote inside
 * it doubled, so that a name never ends its identifier early. */

/* CREATE TABLE for the table scheme, then one CREATE [UNIQUE] INDEX per
 * index, field types from the driver. Buffer rule as above; 2 for a null
 * size or driver, or when the driver refuses a type. */
ZQ_API uint32_t ZqDBGetTableCreationSQL(HZQDBTABLE table, char* buffer, uint32_t* size,
                                        const ZQDBDRIVER* driver);
/* DROP TABLE "name" (no semicolon). The driver may be null. */
ZQ_API uint32_t ZqDBGetTableDeleteSQL(HZQDBTABLE table, char* buffer, uint32_t* size,
                                      const ZQDBDRIVER* driver);
/* SELECT of every field's source FROM the distinct source tables in byte
 * order, quoted ("t"."f") when `quoted` is non-zero, ending in a blank.
 * Unquoted, a name holding anything but letters, digits, '_', '$', '#',
 * '@' and bytes of 0x80 and above cannot be written: 2. */
ZQ_API uint32_t ZqDBGetRecordsetCreationSQL(HZQDBTABLE table, uint32_t quoted, char* buffer,
                                            uint32_t* size);

ZQ_EXTERN_C_END

#endif /* ZQSYS_ZQSCHEME_H */
