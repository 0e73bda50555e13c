/* The "trade" database end to end: its scheme loaded from an INI
 * description and dumped, its SQL text run in a real SQLite database, and an
 * order filled in a record, stored as a row and read back. */
#include "scheme_demo.h"

#include <sqlite3.h>
#include <stdio.h>
#include <string.h>

#include "sqlite_types.h"
#include "zqsys/zqsys.h"

static int Ok(uint32_t rc, const char* what) {
  if (rc != 0) fprintf(stderr, "%s failed: 0x%X %s\n", what, (unsigned)rc, ZqErrGetDescrStr(rc));
  return rc == 0;
}

static int SqlOk(sqlite3* db, int rc, const char* what) {
  if (rc != SQLITE_OK && rc != SQLITE_DONE && rc != SQLITE_ROW)
    fprintf(stderr, "%s failed: %s\n", what, sqlite3_errmsg(db));
  return rc == SQLITE_OK || rc == SQLITE_DONE || rc == SQLITE_ROW;
}

/* The scheme's dump goes to the log: written to a file, then shown. */
static int DumpToFile(HZQDBSCHEME scheme, const char* dir) {
  char ini[460], logFile[460];
  ZqSysSNPrintf(ini, sizeof ini, "%s/scheme-log.ini", dir);
  ZqSysSNPrintf(logFile, sizeof logFile, "%s/scheme.log", dir);
  remove(logFile);
  uint32_t settings = 0;
  if (!Ok(ZqIniCustOpen(&settings, ini), "open the log settings")) return 0;
  ZqIniCustWriteStr(settings, "scheme", "logfile", logFile);
  ZqIniCustWriteInt(settings, "scheme", "logtoconsole", 0);
  ZqIniCustWriteInt(settings, "scheme", "logtime", 0);
  const int opened = Ok(ZqLogOpenEx("scheme", settings), "ZqLogOpenEx");
  if (opened) {
    DumpScheme(scheme);
    ZqLogClose();
  }
  ZqIniCustClose(settings);
  if (!opened) return 0;
  printf("Dump of the scheme:\n");
  PrintFile(logFile);
  return 1;
}

/* CREATE TABLE and its indexes for each table, then CREATE VIEW over each
 * view's recordset select; each statement printed, then run. */
static int CreateItems(HZQDBSCHEME scheme, uint32_t kind, sqlite3* db) {
  ZQDBDRIVER driver;
  SqliteTypesDriver(&driver);
  uint32_t count = 0;
  ZqSchemeGetItemCount(scheme, &count, kind);
  for (uint32_t i = 0; i < count; ++i) {
    HZQDBTABLE item = NULL;
    char name[ZQDB_NAME_SIZE], sql[4096], select[4096];
    uint32_t size = sizeof name;
    ZqSchemeGetItemByIndex(scheme, i, &item, kind);
    ZqSchemeGetTableName(item, name, &size);
    size = sizeof sql;
    if (kind == ZQDB_ITEM_TABLE) {
      if (!Ok(ZqDBGetTableCreationSQL(item, sql, &size, &driver), "ZqDBGetTableCreationSQL"))
        return 0;
    } else {
      size = sizeof select;
      if (!Ok(ZqDBGetRecordsetCreationSQL(item, 1, select, &size), "ZqDBGetRecordsetCreationSQL"))
        return 0;
      ZqSysSNPrintf(sql, sizeof sql, "CREATE VIEW \"%s\" AS %s;", name, select);
    }
    printf("  %s\n", sql);
    if (!SqlOk(db, sqlite3_exec(db, sql, NULL, NULL, NULL), name)) return 0;
  }
  return 1;
}

static HZQRECORD FillOrder(HZQDBTABLE orders) {
  HZQRECORD record = NULL;
  if (!Ok(ZqRecordCreateInMemory(&record, orders), "ZqRecordCreateInMemory")) return NULL;
  const int64_t id = 7;
  const char isin[] = "XS0000000007";
  uint8_t price[ZQBCDII_MAX_SIZE];
  ZqBCDIIInit((ZQBCDII*)price, 16, 5);
  ZqBCDIIFromStr((ZQBCDII*)price, "101.25750");
  const ZQTIME moment = {2026, 11, 21, 10, 30, 5, 0, 250};
  if (!Ok(ZqRecordSetField(record, "id", &id, sizeof id), "set id") ||
      !Ok(ZqRecordSetField(record, "isin", isin, sizeof isin), "set isin") ||
      !Ok(ZqRecordSetField(record, "price", price, ZQBCDII_SIZE(16, 5)), "set price") ||
      !Ok(ZqRecordSetField(record, "moment", &moment, sizeof moment), "set moment") ||
      !Ok(ZqRecordSetFieldNull(record, "comment"), "set comment null")) {
    ZqRecordFree(record);
    return NULL;
  }
  return record;
}

/* The record's fields bound one by one: the id as an integer, the isin as
 * text, the price and the moment as their texts, the null comment as NULL. */
static int InsertOrder(sqlite3* db, HZQRECORD record) {
  int64_t id = 0;
  char isin[26], price[64], moment[32];
  uint8_t decimal[ZQBCDII_MAX_SIZE];
  uint32_t size = sizeof isin, priceSize = sizeof decimal, isNull = 0, textSize = sizeof price;
  ZQTIME at;
  if (!Ok(ZqRecordGetFieldINT64(record, "id", &id), "get id") ||
      !Ok(ZqRecordGetField(record, "isin", isin, &size), "get isin") ||
      !Ok(ZqRecordGetField(record, "price", decimal, &priceSize), "get price") ||
      !Ok(ZqBCDIIToStr((const ZQBCDII*)decimal, price, &textSize), "price text") ||
      !Ok(ZqRecordGetFieldZQTIME(record, "moment", &at), "get moment")) {
    return 0;
  }
  ZqSysSNPrintf(moment, sizeof moment, "%04u-%02u-%02u %02u:%02u:%02u.%03u", at.year, at.month,
                at.day, at.hour, at.minute, at.second, at.millisecond);
  char comment[8];
  size = sizeof comment;
  ZqRecordGetFieldEx(record, "comment", comment, &size, &isNull);

  sqlite3_stmt* insert = NULL;
  const char* sql = "INSERT INTO \"orders\" VALUES (?, ?, ?, ?, ?)";
  if (!SqlOk(db, sqlite3_prepare_v2(db, sql, -1, &insert, NULL), "prepare insert")) return 0;
  sqlite3_bind_int64(insert, 1, id);
  sqlite3_bind_text(insert, 2, isin, -1, SQLITE_TRANSIENT);
  sqlite3_bind_text(insert, 3, price, -1, SQLITE_TRANSIENT);
  sqlite3_bind_text(insert, 4, moment, -1, SQLITE_TRANSIENT);
  if (isNull)
    sqlite3_bind_null(insert, 5);
  else
    sqlite3_bind_text(insert, 5, comment, -1, SQLITE_TRANSIENT);
  const int ok = SqlOk(db, sqlite3_step(insert), "insert");
  sqlite3_finalize(insert);
  ZqSysPrintf("Inserted order %I64d: isin %s, price %s, moment %s, comment %s\n", id, isin, price,
              moment, isNull ? "NULL" : comment);
  return ok;
}

static int PrintRow(void* title, int columns, char** values, char** names) {
  printf("  %s:", (const char*)title);
  for (int i = 0; i < columns; ++i)
    printf(" %s=%s", names[i], values[i] != NULL ? values[i] : "NULL");
  printf("\n");
  return 0;
}

int ShowSchemes(const char* dir, const char* tradeIni) {
  HZQDBSCHEME scheme = NULL;
  const uint32_t rc = ZqSchemeCreateSchemeFromIni2(&scheme, tradeIni, "trade");
  if (!Ok(rc, "ZqSchemeCreateSchemeFromIni2")) {
    ZqSchemeFreeScheme(scheme);
    return 0;
  }
  uint32_t life = 0, tables = 0, views = 0;
  ZqSchemeGetLifeNum(scheme, &life);
  ZqSchemeGetItemCount(scheme, &tables, ZQDB_ITEM_TABLE);
  ZqSchemeGetItemCount(scheme, &views, ZQDB_ITEM_VIEW);
  printf("Scheme \"trade\" from %s: life number %u, %u tables, %u view\n", tradeIni, (unsigned)life,
         (unsigned)tables, (unsigned)views);
  int ok = DumpToFile(scheme, dir);

  char dbPath[460];
  ZqSysSNPrintf(dbPath, sizeof dbPath, "%s/trade.db", dir);
  remove(dbPath);
  sqlite3* db = NULL;
  if (ok && sqlite3_open(dbPath, &db) == SQLITE_OK) {
    printf("SQL run in the SQLite database %s:\n", dbPath);
    ok = CreateItems(scheme, ZQDB_ITEM_TABLE, db) && CreateItems(scheme, ZQDB_ITEM_VIEW, db);
    HZQDBTABLE orders = NULL;
    HZQRECORD record = NULL;
    if (ok && Ok(ZqSchemeGetTableByName(scheme, "orders", &orders), "find orders")) {
      uint32_t recordSize = 0;
      ZqRecordGetStructSize(orders, &recordSize);
      printf("A record of \"orders\" takes %u bytes.\n", (unsigned)recordSize);
      record = FillOrder(orders);
    }
    ok = record != NULL && InsertOrder(db, record);
    ZqRecordFree(record);
    if (ok) {
      printf("Read back:\n");
      ok = SqlOk(db, sqlite3_exec(db, "SELECT * FROM \"orders\"", PrintRow, "orders", NULL),
                 "select orders") &&
           SqlOk(db, sqlite3_exec(db, "SELECT * FROM \"v_orders\"", PrintRow, "v_orders", NULL),
                 "select v_orders");
    }
  } else if (ok) {
    fprintf(stderr, "cannot open %s\n", dbPath);
    ok = 0;
  }
  sqlite3_close(db);
  ZqSchemeFreeScheme(scheme);
  CheckOpenedSchemeHandles();
  return ok;
}
