/* A tour of the library: settings from an INI file, result-code texts, type
 * codes, a message-like record composed into a typed binary stream and
 * parsed back, a message saved to its block, a log with trace switches, and
 * the "trade" database scheme with its SQL and a record. Every line is
 * formatted by the library's own printf engine, with its conversions for
 * times, dumps, decimals and result codes. The settings file is the first
 * argument, else the demo.ini beside this source. */
#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "scheme_demo.h"
#include "zqsys/zqsys.h"

static int Check(uint32_t rc, const char* what) {
  if (rc != 0) fprintf(stderr, "%s failed: 0x%X %s\n", what, (unsigned)rc, ZqErrGetDescrStr(rc));
  /* stderr stays with the C library: a failure report must not depend on
   * the library that failed. */
  return rc == 0;
}

static void ShowResultCodes(void) {
  static const uint32_t codes[] = {0,
                                   ZQERR_COMMON_BUFFER_TOO_SMALL,
                                   ZQERR_MSG_BAD_PARSE_BLOCK,
                                   ZQERR_DB_INVALID_TYPE,
                                   0x13001,
                                   0x16000};
  ZqSysPrintf("Result codes:\n");
  for (size_t i = 0; i < sizeof codes / sizeof codes[0]; ++i)
    ZqSysPrintf("  %R\n", codes[i]);
  ZqSysPrintf("  system error %r\n", 2u);
}

static void ShowLayout(const char* format) {
  uint32_t offset = 0, length = 0, width = 0, scale = 0;
  printf("Native layout of \"%s\":", format);
  while (ZqSysGetNextType(format, &length, &width, &scale) == 0 && length != 0) {
    uint32_t size = 0, align = 1;
    if (!Check(ZqSysTypeGetSizeAndAlign(format[0], width, scale, &size, &align), "measure")) return;
    offset = (offset + align - 1) / align * align;
    printf(" %.*s@%u", (int)length, format, (unsigned)offset);
    offset += size;
    format += length;
  }
  printf(" (%u bytes)\n", (unsigned)offset);
}

/* A hex dump, 24 bytes a line. */
static void DumpBytes(const uint8_t* bytes, uint32_t size) {
  for (uint32_t i = 0; i < size; i += 24) {
    const int n = (int)(size - i < 24 ? size - i : 24);
    ZqSysPrintf("\n    %#.*Z", n, bytes + i);
  }
  ZqSysPrintf("\n");
}

static uint32_t ShowLayoutSetting(const char* section, char* key, char* value, void* context) {
  (void)section;
  (void)context;
  ZqSysPrintf("  %-6s", key);
  ShowLayout(value);
  return 0;
}

/* Opens the settings as the default INI and shows what they say. */
static int ShowSettings(const char* path) {
  if (!Check(ZqIniOpen(path), "ZqIniOpen")) return 0;
  char title[64], greeting[64];
  ZqIniCustGetStr(ZQINI_DEFAULT_HANDLE, title, sizeof title, "Demo", "Title", "untitled");
  ZqIniCustGetStr(ZQINI_DEFAULT_HANDLE, greeting, sizeof greeting, "Demo", "Greeting", "");
  const int32_t repeat = ZqIniCustGetInt(ZQINI_DEFAULT_HANDLE, "Demo", "Repeat", 1);
  ZqSysPrintf("Settings from %s:\n  Title %Q, Repeat %d\n", path, title, repeat);
  for (int32_t i = 0; i < repeat; ++i)
    ZqSysPrintf("  %s\n", greeting);
  ZqSysPrintf("Native layouts of [Layouts]:\n");
  const int ok =
      Check(ZqIniCustEnumKeys(ZQINI_DEFAULT_HANDLE, "Layouts", ShowLayoutSetting, NULL), "layouts");
  ZqIniClose();
  return ok;
}

/* Prints the fields of a message the way an application reads them. */
static void ShowMessage(const char* title, HZQMSG message) {
  const void* value = NULL;
  uint32_t size = 0, type = 0;
  uint64_t sendId = 0;
  printf("%s:", title);
  static const char* const texts[] = {ZQMSG_FIELD_FROM, ZQMSG_FIELD_TO, ZQMSG_FIELD_CATEGORY,
                                      "Account", "Symbol"};
  for (size_t i = 0; i < sizeof texts / sizeof texts[0]; ++i) {
    if (ZqMsgGetBinaryField(message, texts[i], &value, &size) == 0) {
      printf(" %s='%s'", texts[i], (const char*)value);
    }
  }
  ZqMsgCopyFieldUINT32(message, ZQMSG_FIELD_TYPE, &type);
  ZqMsgCopyFieldUINT64(message, ZQMSG_FIELD_SENDID, &sendId);
  ZqMsgGetBodySize(message, &size);
  printf(" %s=%u %s=%" PRIu64 " body=%u bytes\n", ZQMSG_FIELD_TYPE, (unsigned)type,
         ZQMSG_FIELD_SENDID, sendId, (unsigned)size);
}

/* A message built, saved to its block, rebuilt from the block, and the two
 * compared through their blocks. */
static int MessageRoundTrip(void) {
  HZQMSG message = NULL, rebuilt = NULL;
  if (!Check(ZqMsgCreateMessage(&message), "ZqMsgCreateMessage")) return 0;
  int ok = Check(ZqMsgSetFieldStr(message, ZQMSG_FIELD_FROM, "desk-07"), "set from") &&
           Check(ZqMsgSetFieldStr(message, ZQMSG_FIELD_TO, "router/matching"), "set to") &&
           Check(ZqMsgSetFieldStr(message, ZQMSG_FIELD_CATEGORY, "ORDERS"), "set category") &&
           Check(ZqMsgSetFieldUINT32(message, ZQMSG_FIELD_TYPE, 4003), "set type") &&
           Check(ZqMsgSetFieldUINT64(message, ZQMSG_FIELD_SENDID, 77), "set send id") &&
           Check(ZqMsgSetFieldStr(message, "Account", "ACC-1"), "set Account") &&
           Check(ZqMsgSetFieldStr(message, "Symbol", "XPAR-07"), "set Symbol") &&
           Check(ZqMsgComposeBody(message, "c16u4u8", "XPAR-07", 100u, (uint64_t)7), "body");
  uint8_t block[512], again[512];
  uint32_t size = sizeof block, againSize = sizeof again, used = 0;
  ok = ok && Check(ZqMsgSaveMessageToBlock(message, block, &size), "save") &&
       Check(ZqMsgCreateMessageFromBlock(block, size, &rebuilt, &used), "load") &&
       Check(ZqMsgSaveMessageToBlock(rebuilt, again, &againSize), "save again");
  if (ok) {
    printf("Message block of %u bytes:", (unsigned)size);
    DumpBytes(block, size);
    ShowMessage("Built  ", message);
    ShowMessage("Rebuilt", rebuilt);
    const int same = againSize == size && memcmp(block, again, size) == 0 && used == size;
    printf("The rebuilt message %s the original.\n", same ? "agrees with" : "DIFFERS FROM");
    ok = same;
  }
  ZqMsgFreeMessage(rebuilt);
  ZqMsgFreeMessage(message);
  return ok;
}

/* One logging statement as applications write it: the site's switch starts
 * undecided, the first call asks the trace INI (and writes the format's
 * switch there), later calls follow the stored answer. */
static void LogOrder(uint32_t order, const char* symbol) {
  static uint32_t site = 0xFFFFFFFFu;
  if (site == 0xFFFFFFFFu)
    site = trcheck_ZqLogErrorEx_("orders", "order %u filled at %s", order, symbol);
  else if (site != 0)
    ZqLogErrorEx("orders", "order %u filled at %s", order, symbol);
}

void PrintFile(const char* path) {
  char line[512];
  FILE* file = fopen(path, "r");
  if (file == NULL) return;
  while (fgets(line, sizeof line, file) != NULL)
    printf("    %s", line);
  fclose(file);
}

/* Where the demo writes its files: ZQSYS_DEMO_LOGS (make demo sets
 * build/default/demo-logs), else $TMPDIR/zqsys-demo-logs. */
static void OutputDir(char* base, uint32_t size) {
  const char* dir = getenv("ZQSYS_DEMO_LOGS");
  if (dir != NULL && dir[0] != '\0') {
    ZqSysSNPrintf(base, size, "%s", dir);
  } else {
    dir = getenv("TMPDIR");
    ZqSysSNPrintf(base, size, "%s/zqsys-demo-logs", dir != NULL ? dir : "/tmp");
  }
}

/* Writes a log file and its trace switches under `base`. */
static int ShowLogging(const char* base) {
  char ini[460], logFile[460], traceIni[460];
  ZqSysSNPrintf(ini, sizeof ini, "%s/demo.ini", base);
  ZqSysSNPrintf(logFile, sizeof logFile, "%s/demo.log", base);
  ZqSysSNPrintf(traceIni, sizeof traceIni, "%s/trace.ini", base);
  ZqIniSetOpt(ZQINI_OPT_CREATE_MISSING);
  uint32_t settings = 0;
  if (!Check(ZqIniCustOpen(&settings, ini), "open the settings INI")) return 0;
  ZqIniCustWriteStr(settings, "demo", "logfile", logFile);
  ZqIniCustWriteInt(settings, "demo", "logtoconsole", 0);
  ZqIniCustWriteInt(settings, "demo", "logfiledepth", 1);
  ZqIniCustWriteStr(settings, "demo", "traceini", traceIni);
  if (!Check(ZqLogOpenEx("demo", settings), "ZqLogOpenEx")) return 0;
  ZqLogInfoEx("orders", "session opened by %s", "demo");
  for (uint32_t order = 7; order < 10; ++order)
    LogOrder(order, "XPAR-07");
  ZqLogErrorWithCodeEx(ZQERR_MSG_BAD_PARSE_BLOCK, "orders", "order %u rejected", 10u);
  ZqLogClose();
  ZqIniCustClose(settings);
  printf("Log file %s:\n", logFile);
  PrintFile(logFile);
  printf("Trace switches in %s:\n", traceIni);
  PrintFile(traceIni);
  return 1;
}

int main(int argc, char** argv) {
  ZQTIME now;
  ZqTimeGetCurrent(&now);
  ZqSysPrintf("ZqSys %s, started %.7t (a %s)\n\n", ZqSysGetVersionStr(), &now,
              (const char* const[]){"Sunday", "Monday", "Tuesday", "Wednesday", "Thursday",
                                    "Friday", "Saturday"}[ZqTimeGetWDay(&now)]);
  if (!ShowSettings(argc > 1 ? argv[1] : ZQSYS_DEMO_INI)) return 1;
  printf("\n");
  ShowResultCodes();
  printf("\n");

  /* An order fill: texts, integers, a time, a price and a binary payload. */
  const ZQTIME when = {2026, 11, 21, 10, 0, 0, 0, 123};
  uint8_t price[ZQBCDII_MAX_SIZE];
  ZQBCDII* value = (ZQBCDII*)price;
  if (!Check(ZqBCDIIInit(value, 12, 4), "ZqBCDIIInit") ||
      !Check(ZqBCDIIFromStr(value, "101.2575"), "ZqBCDIIFromStr")) {
    return 1;
  }
  const uint8_t payload[] = {0xDE, 0xAD, 0xBE, 0xEF};
  const char* format = "c16c16u4u8tb64d12.4";

  HZQCOMPOSER composer = NULL;
  if (!Check(ZqSysCreateBinaryComposer(&composer), "create composer") || composer == NULL) {
    return 1;
  }
  if (!Check(ZqSysCompose(composer, format, "desk-07", "XPAR-07", 100u, (uint64_t)7, &when, payload,
                          (uint32_t)sizeof payload, value),
             "compose")) {
    return 1;
  }
  const uint8_t* stream = NULL;
  uint32_t size = 0;
  ZqSysComposeGetBuffer(composer, &stream);
  ZqSysComposeGetSize(composer, &size);
  printf("Composed \"%s\" into %u bytes:", format, (unsigned)size);
  DumpBytes(stream, size);

  char from[17], symbol[17], text[64];
  uint32_t quantity = 0, bytes = 0, textSize = sizeof text;
  uint64_t order = 0;
  ZQTIME at;
  uint8_t data[64], parsedPrice[ZQBCDII_MAX_SIZE];
  HZQPARSER parser = NULL;
  if (!Check(ZqSysCreateBinaryParser(&parser), "create parser") || parser == NULL) return 1;
  ZqSysInitParser(parser, stream, size);
  if (!Check(ZqSysParse(parser, format, from, symbol, &quantity, &order, &at, data, &bytes,
                        parsedPrice),
             "parse") ||
      !Check(ZqBCDIIToStr((const ZQBCDII*)parsedPrice, text, &textSize), "ZqBCDIIToStr")) {
    return 1;
  }
  ZqSysPrintf("Parsed back: from %Q, symbol %Q, order %I64u, qty %u, price %B (%s),\n", from,
              symbol, order, quantity, parsedPrice, text);
  ZqSysPrintf("  at %.7t, %u payload bytes: %#.*z\n", &at, bytes, (int)bytes, data);

  /* A stream cut short is reported, never read past. */
  ZqSysInitParser(parser, stream, 10);
  const uint32_t rc =
      ZqSysParse(parser, format, from, symbol, &quantity, &order, &at, data, &bytes, parsedPrice);
  ZqSysPrintf("Parsing the first 10 bytes only: %R\n", rc);

  ZqSysFreeParser(parser);
  ZqSysFreeComposer(composer);
  printf("\n");
  if (!MessageRoundTrip()) return 1;
  printf("\n");
  char base[400];
  OutputDir(base, sizeof base);
  if (!ShowLogging(base)) return 1;
  printf("\n");
  return ShowSchemes(base, ZQSYS_DEMO_TRADE_INI) ? 0 : 1;
}
