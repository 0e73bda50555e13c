// Commands that talk to a router: status, post, send, listen, echo,
// resolve and stat.
#include <csignal>
#include <cstdio>
#include <map>
#include <string>

#include "cli.h"
#include "message_text.h"
#include "router_client.h"
#include "zqsys/zqerr.h"
#include "zqsys/zqmq.h"
#include "zqsys/zqstat.h"

namespace zqctl {
namespace {

constexpr std::uint32_t kDefaultTimeoutMs = 5000;
// A wait for messages is cut into slices so that an interrupt ends it soon.
constexpr std::uint32_t kSliceMs = 250;
// The router answers statistics requests to this application name on its
// node (docs/PROTOCOL.md).
constexpr const char* kRouterApp = "zqrouter";

volatile std::sig_atomic_t g_interrupted = 0;

void OnInterrupt(int) {
  g_interrupted = 1;
}

// SIGINT and SIGTERM end a wait cleanly: the connection is freed and the
// count so far stands.
void CatchInterrupts() {
  struct sigaction action {};
  action.sa_handler = OnInterrupt;
  sigemptyset(&action.sa_mask);
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
}

void PrintMessage(const Args& args, HZQMSG message) {
  const std::string format = args.Option("format");
  if (args.Json()) {
    Json json;
    JsonOf(json, message, format);
    PrintLine(json.Text());
  } else {
    PrintLine(LineOf(WordsOf(message, format)));
  }
}

// The message of a command's words: fields, then "--" and the body.
void BuildMessage(const Args& args, std::size_t firstWord, Message& message) {
  const std::vector<std::string>& operands = args.Operands();
  const std::vector<std::string> words(operands.begin() + static_cast<long>(firstWord),
                                       operands.end());
  FillMessage(message.Get(), words, args.HasTail() ? &args.Tail() : nullptr);
}

int RunStatus(const Args& args) {
  const ClientLibrary library;
  const RouterClient client(args);
  std::uint32_t status = 0, loginId = 0, stateLoginId = 0;
  Check(ZqMQGetStatus(client.Handle(), &status), "cannot read the status");
  if (args.Has("login")) {
    Check(ZqMQLogin(client.Handle(), args.Option("login").c_str(), &loginId), "login refused");
  }
  ZqMQGetStateLoginId(client.Handle(), &stateLoginId);
  std::vector<std::string> names = args.Operands();
  if (names.empty()) names.push_back(client.App());
  const std::uint32_t state = status & ~0xFu;
  Json json;
  json.Open('{')
      .Member("node", client.NodeName())
      .Member("app", client.App())
      .Member("address", client.Address())
      .Member("status", status)
      .Member("routerState", state)
      .Member("loginId", stateLoginId);
  if (args.Has("login")) json.Member("lastLoginId", loginId);
  json.Key("admins").Open('{');
  std::string admins;
  for (const std::string& name : names) {
    const bool admin = ZqMQIsAdmin(name.c_str(), client.Handle()) != 0;
    json.Member(name, admin);
    admins += " " + name + (admin ? "=yes" : "=no");
  }
  json.Close('}').Close('}');
  if (args.Json()) {
    PrintLine(json.Text());
    return 0;
  }
  char line[256];
  std::snprintf(line, sizeof line,
                "node %s\naddress %s\nstatus 0x%X\nrouter state 0x%X\nlogin id %u",
                client.NodeName().c_str(), client.Address().c_str(), status, state, stateLoginId);
  PrintLine(line);
  if (args.Has("login")) PrintLine("last login id " + std::to_string(loginId));
  PrintLine("admin" + admins);
  return 0;
}

int RunPost(const Args& args) {
  const ClientLibrary library;
  Message message;
  BuildMessage(args, 0, message);
  if (TextField(message.Get(), ZQMSG_FIELD_TO).empty()) Usage("a post needs Zq_To=ADDRESS");
  if (args.Has("guaranteed"))
    ZqMsgSetFieldUINT32(message.Get(), ZQMQ_FIELD_FLAGS, ZQMQ_FLAG_GUARANTEED);
  const RouterClient client(args);
  Check(ZqMQPostMsg(client.Handle(), message.Get()), "the post failed");
  if (args.Has("guaranteed")) {
    std::uint64_t id = 0;
    ZqMsgCopyFieldUINT64(message.Get(), ZQMQ_FIELD_GRNTID, &id);
    if (args.Json()) {
      Json json;
      PrintLine(json.Open('{').Member("grntId", id).Close('}').Text());
    } else {
      PrintLine("grnt id " + std::to_string(id));
    }
  }
  return 0;
}

// A reply the router made because none came: a system message of type 4.
bool IsReplyFailed(HZQMSG reply) {
  std::uint32_t type = 0;
  return TextField(reply, ZQMSG_FIELD_CATEGORY) == "Zq_System" &&
         ZqMsgCopyFieldUINT32(reply, ZQMSG_FIELD_TYPE, &type) == 0 && type == 4;
}

// Sends `request` and returns its reply; no reply in time is MQ:TIMEOUT.
HZQMSG SendRequest(const RouterClient& client, HZQMSG request, std::uint32_t timeout) {
  Message reply(nullptr);
  Check(ZqMQSendMsg(client.Handle(), request, reply.Out(), timeout), "the send failed");
  if (IsReplyFailed(reply.Get())) {
    throw Failure("no reply from " + TextField(request, ZQMSG_FIELD_TO), ZQERR_MQ_TIMEOUT);
  }
  return reply.Detach();
}

int RunSend(const Args& args) {
  const ClientLibrary library;
  Message request;
  BuildMessage(args, 0, request);
  if (TextField(request.Get(), ZQMSG_FIELD_TO).empty()) Usage("a send needs Zq_To=ADDRESS");
  const std::uint32_t timeout = args.Number("timeout", kDefaultTimeoutMs);
  const RouterClient client(args);
  const Message reply(SendRequest(client, request.Get(), timeout));
  PrintMessage(args, reply.Get());
  return 0;
}

// Takes messages until `count` (0: no limit) have come, the timeout passes
// or an interrupt; `each` sees every message.
template <class Each>
std::uint32_t Receive(const RouterClient& client, std::uint32_t count, std::uint32_t timeout,
                      Each each) {
  CatchInterrupts();
  std::uint32_t seen = 0, waited = 0;
  while (!g_interrupted && (count == 0 || seen < count) && waited < timeout) {
    Message message(nullptr);
    const std::uint32_t slice = timeout - waited < kSliceMs ? timeout - waited : kSliceMs;
    const std::uint32_t rc = ZqMQGetMsg(client.Handle(), message.Out(), slice);
    if (rc == ZQERR_MQ_TIMEOUT) {
      if (timeout != ZQMQ_INFINITE) waited += slice;
      continue;
    }
    Check(rc, "the receive failed");
    if (message.Get() == nullptr) continue;  // the library's own
    each(message.Get());
    ++seen;
  }
  if (count != 0 && seen < count && !g_interrupted) {
    throw Failure(std::to_string(seen) + " of " + std::to_string(count) + " messages came",
                  ZQERR_MQ_TIMEOUT);
  }
  return seen;
}

int RunListen(const Args& args) {
  args.Expect(0, 0);
  const std::uint32_t count = args.Number("count", 0);
  const std::uint32_t timeout = args.Number("timeout", ZQMQ_INFINITE);
  const ClientLibrary library;
  const RouterClient client(args);
  std::fprintf(stderr, "zqctl listen: listening as %s\n", client.Address().c_str());
  Receive(client, count, timeout, [&](HZQMSG message) { PrintMessage(args, message); });
  return 0;
}

int RunEcho(const Args& args) {
  args.Expect(0, 0);
  const std::uint32_t count = args.Number("count", 0);
  const std::uint32_t timeout = args.Number("timeout", ZQMQ_INFINITE);
  const ClientLibrary library;
  const RouterClient client(args);
  const std::vector<std::string> services = args.Options("service");
  for (const std::string& service : services) {
    Check(ZqMQServiceRegister(client.Handle(), service.c_str(), 0),
          "cannot register service " + service);
  }
  std::fprintf(stderr, "zqctl echo: answering as %s\n", client.Address().c_str());
  Receive(client, count, timeout, [&](HZQMSG request) {
    std::uint64_t sendId = 0;
    if (ZqMsgCopyFieldUINT64(request, ZQMSG_FIELD_SENDID, &sendId) != 0 || sendId == 0) {
      return;  // a post: nothing to answer
    }
    Message reply;
    Check(ZqMsgCopyMessage(reply.Out(), request), "cannot copy the request");
    ZqMsgSetFieldUINT64(reply.Get(), ZQMSG_FIELD_SENDID, 0);
    Check(ZqMQPostReplyMsg(client.Handle(), request, reply.Get()), "cannot reply");
  });
  return 0;
}

int RunResolve(const Args& args) {
  args.Expect(1, 1);
  const ClientLibrary library;
  const RouterClient client(args);
  const std::vector<std::string> excluded = args.Options("exclude");
  std::vector<const char*> pointers;
  pointers.reserve(excluded.size());
  for (const std::string& address : excluded)
    pointers.push_back(address.c_str());
  char address[512];
  std::uint32_t size = sizeof address;
  const std::string& service = args.Operand(0, "SERVICE");
  Check(ZqMQServiceResolve(client.Handle(), service.c_str(), address, &size, pointers.data(),
                           static_cast<std::uint32_t>(pointers.size())),
        "cannot resolve " + service);
  if (args.Json()) {
    Json json;
    PrintLine(
        json.Open('{').Member("service", service).Member("address", address).Close('}').Text());
  } else {
    PrintLine(address);
  }
  return 0;
}

struct StatRow {
  std::uint32_t moduleId;
  std::string moduleClass, name;
  std::uint32_t kind;
  std::int64_t number;
  std::string text;
};

std::uint32_t KeepRow(const ZQSTATROW* row, void* context) {
  static_cast<std::vector<StatRow>*>(context)->push_back(
      StatRow{row->moduleId, row->moduleClass, row->name, row->kind, row->number, row->text});
  return 0;
}

int RunStat(const Args& args) {
  args.Expect(1, 1);
  const std::uint32_t timeout = args.Number("timeout", kDefaultTimeoutMs);
  const ClientLibrary library;
  const RouterClient client(args);
  std::string address = args.Operand(0, "ADDRESS");
  if (address == "router") address = client.NodeName() + "." + kRouterApp;
  Message request;
  Check(ZqMsgSetFieldStr(request.Get(), ZQMSG_FIELD_TO, address.c_str()), "cannot address");
  ZqMsgSetFieldStr(request.Get(), ZQMSG_FIELD_CATEGORY, ZQSTAT_CATEGORY);
  ZqMsgSetFieldUINT32(request.Get(), ZQMSG_FIELD_TYPE, ZQSTAT_QUERY_ALL);
  if (args.Has("class"))
    ZqMsgSetFieldStr(request.Get(), ZQSTAT_FIELD_CLASS, args.Option("class").c_str());
  const Message reply(SendRequest(client, request.Get(), timeout));
  std::vector<StatRow> rows;
  Check(ZqMQStatReadReply(reply.Get(), KeepRow, &rows), address + " sent no statistics");
  std::uint32_t pid = 0;
  ZqMsgCopyFieldUINT32(reply.Get(), ZQSTAT_FIELD_PID, &pid);
  if (args.Json()) {
    Json json;
    json.Open('{').Member("address", address).Member("pid", pid).Key("modules").Open('[');
    for (std::size_t i = 0; i < rows.size(); ++i) {
      if (i == 0 || rows[i].moduleId != rows[i - 1].moduleId) {
        if (i != 0) json.Close('}').Close('}');
        json.Open('{').Member("id", rows[i].moduleId).Member("class", rows[i].moduleClass);
        json.Key("values").Open('{');
      }
      if (rows[i].kind == ZQSTAT_TEXT) {
        json.Member(rows[i].name, rows[i].text);
      } else {
        json.Member(rows[i].name, rows[i].number);
      }
    }
    if (!rows.empty()) json.Close('}').Close('}');
    PrintLine(json.Close(']').Close('}').Text());
    return 0;
  }
  PrintLine(address + " (pid " + std::to_string(pid) + ")");
  for (std::size_t i = 0; i < rows.size(); ++i) {
    if (i == 0 || rows[i].moduleId != rows[i - 1].moduleId) {
      PrintLine(rows[i].moduleClass + " #" + std::to_string(rows[i].moduleId));
    }
    char line[512];
    std::snprintf(line, sizeof line, "  %-20s %s", rows[i].name.c_str(),
                  rows[i].kind == ZQSTAT_TEXT ? rows[i].text.c_str()
                                              : std::to_string(rows[i].number).c_str());
    PrintLine(line);
  }
  return 0;
}

}  // namespace

int RunBench(const Args& args);  // cmd_bench.cpp

std::vector<Verb> RouterVerbs() {
  return {
      {"status",
       "the router's node name and state, the login id, who is an administrator",
       "zqctl status [NAME...] [--login TEXT] [--json]\n"
       "  NAME: names to check for administrator rights (default: the --app name)",
       {{"login", true}},
       RunStatus},
      {"post",
       "post a message",
       "zqctl post Zq_To=ADDRESS [NAME[:TYPE]=VALUE...] [-- FORMAT VALUE...] [--guaranteed]\n"
       "  TYPE: c text (default), b hex bytes, f, i1..i8, u1..u8; FORMAT and its values\n"
       "  compose the body (the library's type codes, e.g. -- cu4 hello 42)",
       {{"guaranteed", false}},
       RunPost},
      {"send",
       "send a request and print its reply",
       "zqctl send Zq_To=ADDRESS [NAME[:TYPE]=VALUE...] [-- FORMAT VALUE...] [--timeout MS]\n"
       "  [--format FORMAT] reads the reply's body by that format",
       {{"timeout", true}, {"format", true}},
       RunSend},
      {"listen",
       "print each message as it arrives, in the form post takes",
       "zqctl listen [--count N] [--timeout MS] [--format FORMAT] [--json]\n"
       "  ends after N messages, after MS milliseconds, or on an interrupt",
       {{"count", true}, {"timeout", true}, {"format", true}},
       RunListen},
      {"echo",
       "answer every request with a copy of itself",
       "zqctl echo [--service NAME...] [--count N] [--timeout MS]\n"
       "  registers each service NAME; ends like listen",
       {{"service", true}, {"count", true}, {"timeout", true}},
       RunEcho},
      {"resolve",
       "the address that offers a service",
       "zqctl resolve SERVICE [--exclude ADDRESS...] [--json]",
       {{"exclude", true}},
       RunResolve},
      {"stat",
       "the statistics of an application, or of the router",
       "zqctl stat ADDRESS|router [--class CLASS] [--timeout MS] [--json]",
       {{"class", true}, {"timeout", true}},
       RunStat},
      {"bench",
       "request/reply latency percentiles and post rate through the router",
       "zqctl bench [--count N] [--size BYTES] [--to ADDRESS] [--json]\n"
       "  without --to, an echo connection of this process answers",
       {{"count", true}, {"size", true}, {"to", true}},
       RunBench},
  };
}

}  // namespace zqctl
