/* A service of the platform: it connects to the router of its node,
 * registers the service "quotes", answers each request with a price for the
 * symbol in its body, prints the posts it gets, and stops on a post that
 * says "stop". Argument: the router's port. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "zqsys/zqsys.h"

static const char* Text(HZQMSG message, const char* name, char* buffer, uint32_t size) {
  const void* value = NULL;
  uint32_t length = 0;
  if (ZqMsgGetBinaryField(message, name, &value, &length) != 0 || length == 0) return "";
  if (length > size) length = size;
  memcpy(buffer, value, length);
  buffer[length - 1] = '\0';
  return buffer;
}

static const char* Body(HZQMSG message, char* buffer, uint32_t size) {
  const void* body = NULL;
  uint32_t length = 0;
  ZqMsgGetBody(message, &body, &length);
  if (length == 0 || length > size) return "";
  memcpy(buffer, body, length);
  buffer[length - 1] = '\0';
  return buffer;
}

int main(int argc, char** argv) {
  if (argc < 2) {
    fprintf(stderr, "usage: quote_service PORT\n");
    return 2;
  }
  setvbuf(stdout, NULL, _IOLBF, 0); /* lines interleave with the other program */
  char connection[128];
  snprintf(connection, sizeof connection, "APPNAME=quotes-1;PORT=%s", argv[1]);
  uint32_t handle = 0;
  uint32_t rc = ZqMQStartup();
  if (rc == 0) rc = ZqMQCreateConnection(&handle);
  if (rc == 0) rc = ZqMQConnectEx(handle, connection, 5000, NULL);
  if (rc == 0) rc = ZqMQServiceRegister(handle, "quotes", 0);
  if (rc != 0) {
    fprintf(stderr, "quote_service: 0x%X %s\n", (unsigned)rc, ZqErrGetDescrStr(rc));
    return 1;
  }
  ZqSysPrintf("service: registered \"quotes\" as quotes-1\n");
  for (int running = 1; running;) {
    HZQMSG message = NULL;
    if (ZqMQGetMsg(handle, &message, 500) != 0 || message == NULL) continue;
    char from[128], body[256], category[64];
    uint64_t sendId = 0;
    ZqMsgCopyFieldUINT64(message, ZQMSG_FIELD_SENDID, &sendId);
    Text(message, ZQMSG_FIELD_FROM, from, sizeof from);
    Body(message, body, sizeof body);
    if (strcmp(Text(message, ZQMSG_FIELD_CATEGORY, category, sizeof category), "Zq_System") == 0) {
      ZqMsgFreeMessage(message);
      continue;
    }
    if (sendId != 0) {
      char price[300];
      snprintf(price, sizeof price, "%s 101.25", body);
      HZQMSG reply = NULL;
      ZqMsgCreateMessage(&reply);
      ZqMsgSetBodyStr(reply, price);
      rc = ZqMQPostReplyMsg(handle, message, reply);
      ZqSysPrintf("service: request #%llu \"%s\" from %s -> reply \"%s\" (%R)\n",
                  (unsigned long long)sendId, body, from, price, rc);
      ZqMsgFreeMessage(reply);
    } else {
      ZqSysPrintf("service: post \"%s\" from %s\n", body, from);
      running = strcmp(body, "stop") != 0;
    }
    ZqMsgFreeMessage(message);
  }
  ZqMQServiceUnregister(handle, "quotes");
  ZqMQFreeConnection(handle);
  ZqMQCleanup();
  ZqSysPrintf("service: stopped\n");
  return 0;
}
