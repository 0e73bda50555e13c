/* A client of the platform: it finds the "quotes" service through the
 * router, logs in, posts, asks for prices synchronously and asynchronously,
 * and tells the service to stop. Argument: the router's port. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "zqsys/zqsys.h"

static int Check(uint32_t rc, const char* what) {
  if (rc != 0)
    fprintf(stderr, "quote_client: %s: 0x%X %s\n", what, (unsigned)rc, ZqErrGetDescrStr(rc));
  return rc == 0;
}

static HZQMSG Message(const char* to, const char* body) {
  HZQMSG message = NULL;
  ZqMsgCreateMessage(&message);
  ZqMsgSetFieldStr(message, ZQMSG_FIELD_TO, to);
  ZqMsgSetBodyStr(message, body);
  return message;
}

static const char* BodyOf(HZQMSG message) {
  const void* body = NULL;
  uint32_t size = 0;
  ZqMsgGetBody(message, &body, &size);
  return size != 0 ? (const char*)body : "";
}

static void OnAsyncReply(HZQMSG reply, void* context) {
  uint64_t replyId = 0;
  ZqMsgCopyFieldUINT64(reply, ZQMSG_FIELD_REPLYID, &replyId);
  ZqSysPrintf("client: async reply to #%llu: \"%s\"\n", (unsigned long long)replyId, BodyOf(reply));
  *(int*)context = 1;
}

int main(int argc, char** argv) {
  if (argc < 2) {
    fprintf(stderr, "usage: quote_client PORT\n");
    return 2;
  }
  setvbuf(stdout, NULL, _IOLBF, 0); /* lines interleave with the other program */
  char connection[128];
  snprintf(connection, sizeof connection, "APPNAME=desk;PORT=%s", argv[1]);
  uint32_t handle = 0;
  if (!Check(ZqMQStartup(), "startup") || !Check(ZqMQCreateConnection(&handle), "create") ||
      !Check(ZqMQConnectEx(handle, connection, 5000, NULL), "connect")) {
    return 1;
  }
  char node[64];
  uint32_t size = sizeof node;
  ZqMQGetNodeName(handle, node, &size);
  ZqSysPrintf("client: connected to node \"%s\" as desk\n", node);

  /* The service may still be starting: ask again for a few seconds. */
  char address[128];
  uint32_t rc = 0;
  for (int tries = 0; tries < 50; ++tries) {
    size = sizeof address;
    rc = ZqMQServiceResolve(handle, "quotes", address, &size, NULL, 0);
    if (rc != ZQERR_SERV_NO_SERVICE) break;
    struct timespec pause = {0, 100 * 1000 * 1000};
    nanosleep(&pause, NULL);
  }
  if (!Check(rc, "resolve")) return 1;
  ZqSysPrintf("client: service \"quotes\" is at %s\n", address);

  uint32_t loginId = 0;
  if (Check(ZqMQLogin(handle, "USER=demo;PASSWORD=demo", &loginId), "login")) {
    ZqSysPrintf("client: logged in as demo, login id %u\n", loginId);
  }

  HZQMSG post = Message(address, "hello from desk");
  ZqSysPrintf("client: post \"hello from desk\" -> %R\n", ZqMQPostMsg(handle, post));
  ZqMsgFreeMessage(post);

  HZQMSG request = Message(address, "XPAR");
  HZQMSG reply = NULL;
  if (Check(ZqMQSendMsg(handle, request, &reply, 5000), "send")) {
    ZqSysPrintf("client: sync request \"XPAR\" -> reply \"%s\"\n", BodyOf(reply));
    ZqMsgFreeMessage(reply);
  }
  ZqMsgFreeMessage(request);

  int answered = 0;
  HZQMSG async = Message(address, "YPAR");
  if (Check(ZqMQAsyncSendMsg(handle, async, 5000, OnAsyncReply, &answered), "async send")) {
    uint64_t sendId = 0;
    ZqMsgCopyFieldUINT64(async, ZQMSG_FIELD_SENDID, &sendId);
    ZqSysPrintf("client: async request #%llu \"YPAR\" sent\n", (unsigned long long)sendId);
    for (int waits = 0; !answered && waits < 50; ++waits) {
      HZQMSG other = NULL;
      ZqMQGetMsg(handle, &other, 100);
      ZqMsgFreeMessage(other); /* router status after the login, or nothing */
    }
  }
  ZqMsgFreeMessage(async);

  HZQMSG stop = Message(address, "stop");
  ZqSysPrintf("client: post \"stop\" -> %R\n", ZqMQPostMsg(handle, stop));
  ZqMsgFreeMessage(stop);
  ZqSysPrintf("client: logout -> %R\n", ZqMQLogout(handle));
  ZqMQFreeConnection(handle);
  ZqMQCleanup();
  return answered ? 0 : 1;
}
