#include <stdio.h>

#include "zqsys/zqsys.h"

int main(void) {
  printf("ZqSys %s\n", ZqSysGetVersionStr());
  return 0;
}
