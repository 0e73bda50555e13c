/* A user of the installed library: built against the installed headers and
 * package files only, then run against the installed shared object. */
#include <stdio.h>
#include <string.h>

#include "zqsys/zqsys.h"

int main(void) {
  const char* text = ZqErrGetDescrStr(0x8028);
  const char* version = ZqSysGetVersionStr();
  if (ZQERR_DB_WRONG_ZQTIME_DATA_FORMAT != 0x8028) {
    fprintf(stderr, "consumer: installed header gives 0x%x\n", ZQERR_DB_WRONG_ZQTIME_DATA_FORMAT);
    return 1;
  }
  if (text == NULL || strcmp(text, "DB:WRONG_ZQTIME_DATA_FORMAT") != 0) {
    fprintf(stderr, "consumer: ZqErrGetDescrStr(0x8028) gave \"%s\"\n", text ? text : "(null)");
    return 1;
  }
  if (version == NULL || version[0] == '\0') {
    fprintf(stderr, "consumer: empty version\n");
    return 1;
  }
  printf("consumer: ZqSys %s, 0x8028 is %s\n", version, text);
  return 0;
}
