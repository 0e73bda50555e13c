// The exported message-queue functions: check the arguments, look the
// handle up, run one operation of the connection, return its code.
#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>

#include "common/error_site.h"
#include "common/sized_text.h"
#include "mq/conn_string.h"
#include "mq/connection_registry.h"
#include "msg/composed.h"
#include "os/edge.h"
#include "stat/stat_reply.h"
#include "zqsys/zqerr.h"
#include "zqsys/zqmq.h"

using zq::Guarded;
using zq::GuardedOr;
using zq::mq::CConnection;
using zq::mq::CConnectionRegistry;
using zq::mq::CurrentConnectionRegistry;

namespace {

constexpr auto kInvalidHandle = static_cast<uint32_t>(ZQERR_MQ_INVALID_CONN_HANDLE);
constexpr auto kNotStarted = static_cast<uint32_t>(ZQERR_MQ_NOT_INITIALIZED_YET);

zq::common::CRef<CConnection> Lookup(uint32_t handle) noexcept {
  CConnectionRegistry* registry = CurrentConnectionRegistry();
  return registry != nullptr ? registry->Find(handle) : zq::common::CRef<CConnection>();
}

// Runs `call` on the connection a handle names; 0x600A when it names none.
template <class Call>
uint32_t OnConnection(uint32_t handle, Call call) {
  return Guarded([&]() -> uint32_t {
    const auto connection = Lookup(handle);
    return connection ? call(*connection) : kInvalidHandle;
  });
}

uint32_t Receive(uint32_t handle, HZQMSG* message, uint32_t timeout, bool peek) {
  if (message == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  *message = nullptr;
  return OnConnection(handle, [&](CConnection& connection) {
    return connection.Receive(message, timeout, peek, 0);
  });
}

uint32_t ReceiveFromMultiple(uint32_t* count, const uint32_t* handles, HZQMSG* message,
                             uint32_t timeout, bool peek) {
  if (count == nullptr || *count == 0 || *count > ZQMQ_MULTI_GET_MAX || handles == nullptr ||
      message == nullptr) {
    return ZQERR_COMMON_WRONG_ARGUMENTS;
  }
  *message = nullptr;
  return Guarded([&]() -> uint32_t {
    zq::common::CRef<CConnection> connections[ZQMQ_MULTI_GET_MAX];
    const uint32_t n = *count;
    for (uint32_t i = 0; i < n; ++i) {
      connections[i] = Lookup(handles[i]);
      if (!connections[i]) {
        *count = i;
        return kInvalidHandle;
      }
    }
    uint32_t index = 0;
    const uint32_t rc = zq::mq::ReceiveFromMultiple(connections, n, index, message, timeout, peek);
    if (rc != ZQERR_MQ_TIMEOUT) *count = index;
    return rc;
  });
}

bool IsEmpty(const char* text) noexcept {
  return text == nullptr || *text == '\0';
}

}  // namespace

extern "C" {

ZQ_API uint32_t ZqMQStartup(void) {
  CConnectionRegistry* registry = CurrentConnectionRegistry();
  return registry != nullptr ? registry->Startup() : kNotStarted;
}

ZQ_API void ZqMQCleanup(void) {
  if (CConnectionRegistry* registry = CurrentConnectionRegistry()) registry->Cleanup();
}

ZQ_API uint32_t ZqMQCreateConnection(uint32_t* handle) {
  if (handle == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  *handle = 0;
  CConnectionRegistry* registry = CurrentConnectionRegistry();
  if (registry == nullptr) return kNotStarted;
  return ZQ_RETURN_ZQERR(registry->Create(*handle));
}

ZQ_API uint32_t ZqMQFreeConnection(uint32_t handle) {
  if (handle == 0) return ZQERR_COMMON_WRONG_ARGUMENTS;
  CConnectionRegistry* registry = CurrentConnectionRegistry();
  return registry != nullptr ? registry->Free(handle) : kInvalidHandle;
}

ZQ_API uint32_t ZqMQSetOpt(uint32_t handle, int32_t options) {
  if ((static_cast<uint32_t>(options) & ~ZQMQ_OPT_TCP_NODELAY) != 0) {
    return ZQERR_COMMON_WRONG_ARGUMENTS;
  }
  return OnConnection(handle, [&](CConnection& connection) {
    return connection.SetOptions(static_cast<uint32_t>(options));
  });
}

ZQ_API uint32_t ZqMQGetOpt(uint32_t handle, uint32_t* options) {
  if (options == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return OnConnection(handle, [&](CConnection& connection) {
    *options = connection.Options();
    return 0u;
  });
}

ZQ_API uint32_t ZqMQSetLocalTimeout(uint32_t handle, uint32_t milliseconds) {
  return OnConnection(handle, [&](CConnection& connection) {
    connection.SetLocalTimeout(milliseconds);
    return 0u;
  });
}

ZQ_API uint32_t ZqMQGetStatus(uint32_t handle, uint32_t* status) {
  if (status == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return OnConnection(handle, [&](CConnection& connection) {
    *status = connection.Status();
    return 0u;
  });
}

ZQ_API uint32_t ZqMQGetLastLoginId(uint32_t handle, uint32_t* id) {
  if (id == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return OnConnection(handle, [&](CConnection& connection) {
    *id = connection.LastLoginId();
    return 0u;
  });
}

ZQ_API uint32_t ZqMQGetStateLoginId(uint32_t handle, uint32_t* id) {
  if (id == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return OnConnection(handle, [&](CConnection& connection) {
    *id = connection.StateLoginId();
    return 0u;
  });
}

ZQ_API uint32_t ZqMQConnectEx(uint32_t handle, const char* text, uint32_t timeout,
                              uint32_t* fatal) {
  uint32_t ignored = 0;
  uint32_t& retryless = fatal != nullptr ? *fatal : ignored;
  retryless = 1;
  if (text == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return Guarded([&]() -> uint32_t {
    zq::mq::ConnString target;
    if (const uint32_t rc = zq::mq::ParseConnString(text, target); rc != 0) return rc;
    const auto connection = Lookup(handle);
    if (!connection) return kInvalidHandle;
    return ZQ_RETURN_ZQERR(connection->Connect(target, timeout, retryless));
  });
}

ZQ_API uint32_t ZqMQConnect(uint32_t handle, const char* appName, uint16_t port, uint32_t timeout,
                            const char* host, const char* password, uint32_t* fatal) {
  if (fatal != nullptr) *fatal = 1;
  if (appName == nullptr || *appName == '\0') return ZQERR_COMMON_WRONG_ARGUMENTS;
  return Guarded([&]() -> uint32_t {
    std::string text = std::string("APPNAME=") + appName + ";PORT=" + std::to_string(port);
    if (host != nullptr && *host != '\0') text += std::string(";HOST=") + host;
    if (password != nullptr && *password != '\0') text += std::string(";PASSWORD=") + password;
    return ZqMQConnectEx(handle, text.c_str(), timeout, fatal);
  });
}

ZQ_API uint32_t ZqMQDisconnect(uint32_t handle) {
  return OnConnection(handle, [](CConnection& connection) { return connection.Disconnect(); });
}

ZQ_API uint32_t ZqMQLogin(uint32_t handle, const char* login, uint32_t* id) {
  if (login == nullptr || id == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return OnConnection(handle, [&](CConnection& connection) {
    return ZQ_RETURN_ZQERR(connection.Login(login, *id));
  });
}

ZQ_API uint32_t ZqMQLogout(uint32_t handle) {
  return OnConnection(handle,
                      [](CConnection& connection) { return ZQ_RETURN_ZQERR(connection.Logout()); });
}

ZQ_API uint32_t ZqMQGetNodeName(uint32_t handle, char* buffer, uint32_t* size) {
  if (size == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return OnConnection(handle,
                      [&](CConnection& connection) { return connection.NodeName(buffer, size); });
}

ZQ_API uint32_t ZqMQGetAppName(uint32_t handle, char* buffer, uint32_t* size) {
  if (size == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return OnConnection(handle,
                      [&](CConnection& connection) { return connection.AppName(buffer, size); });
}

ZQ_API uint32_t ZqMQIsAdmin(const char* name, uint32_t handle) {
  if (name == nullptr) return 0;
  return GuardedOr<uint32_t>(0, [&]() -> uint32_t {
    const auto connection = Lookup(handle);
    return connection && connection->IsAdmin(name) ? 1u : 0u;
  });
}

ZQ_API uint32_t ZqMQPostMsg(uint32_t handle, HZQMSG message) {
  if (message == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return OnConnection(
      handle, [&](CConnection& connection) { return ZQ_RETURN_ZQERR(connection.Post(message)); });
}

ZQ_API uint32_t ZqMQPostReplyMsg(uint32_t handle, HZQMSG request, HZQMSG reply) {
  if (request == nullptr || reply == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return OnConnection(handle, [&](CConnection& connection) {
    return ZQ_RETURN_ZQERR(connection.PostReply(request, reply));
  });
}

ZQ_API uint32_t ZqMQSendMsg(uint32_t handle, HZQMSG message, HZQMSG* reply, uint32_t timeout) {
  if (reply == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  *reply = nullptr;
  if (message == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return OnConnection(handle, [&](CConnection& connection) {
    return ZQ_RETURN_ZQERR(connection.Send(message, reply, timeout));
  });
}

ZQ_API uint32_t ZqMQAsyncSendMsg(uint32_t handle, HZQMSG message, uint32_t timeout,
                                 ZqMQReplyCallback callback, void* context) {
  if (message == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return OnConnection(handle, [&](CConnection& connection) {
    return ZQ_RETURN_ZQERR(connection.AsyncSend(message, timeout, callback, context));
  });
}

ZQ_API uint32_t ZqMQGetMsg(uint32_t handle, HZQMSG* message, uint32_t timeout) {
  return Receive(handle, message, timeout, false);
}

ZQ_API uint32_t ZqMQPeekMsg(uint32_t handle, HZQMSG* message, uint32_t timeout) {
  return Receive(handle, message, timeout, true);
}

ZQ_API uint32_t ZqMQGetMsgFromMultiple(uint32_t* count, const uint32_t* handles, HZQMSG* message,
                                       uint32_t timeout) {
  return ReceiveFromMultiple(count, handles, message, timeout, false);
}

ZQ_API uint32_t ZqMQPeekMsgFromMultiple(uint32_t* count, const uint32_t* handles, HZQMSG* message,
                                        uint32_t timeout) {
  return ReceiveFromMultiple(count, handles, message, timeout, true);
}

ZQ_API uint32_t ZqMQAddrCompose(const char* node, const char* app, char* buffer, uint32_t* size) {
  if (node == nullptr || app == nullptr || size == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  const size_t nodeLength = std::strlen(node), appLength = std::strlen(app);
  if (nodeLength + appLength + 2 > UINT32_MAX) return ZQERR_COMMON_WRONG_ARGUMENTS;
  const auto needed = static_cast<uint32_t>(nodeLength + appLength + 2);
  const uint32_t given = *size;
  *size = needed;
  if (buffer == nullptr) return ZQERR_COMMON_REAL_SIZE_RETURNED;
  if (given < needed) return ZQERR_COMMON_BUFFER_TOO_SMALL;
  char* at = std::copy_n(node, nodeLength, buffer);
  *at++ = '.';
  std::copy_n(app, appLength + 1, at);  // with its terminator
  return 0;
}

ZQ_API uint32_t ZqMQGetNodeNameFromAddr(const char* address, char* buffer, uint32_t* size) {
  if (address == nullptr || size == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  const std::string_view text(address);
  return zq::common::ReturnSizedText(text.substr(0, text.find('.')), buffer, size);
}

ZQ_API uint32_t ZqMQGetAppNameFromAddr(const char* address, char* buffer, uint32_t* size) {
  if (address == nullptr || size == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  const std::string_view text(address);
  const size_t dot = text.find('.');
  return zq::common::ReturnSizedText(
      dot == std::string_view::npos ? std::string_view() : text.substr(dot + 1), buffer, size);
}

ZQ_API uint32_t ZqMQServiceRegister(uint32_t handle, const char* service, int32_t flag) {
  if (IsEmpty(service)) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return OnConnection(handle, [&](CConnection& connection) -> uint32_t {
    zq::msg::CComposed body;
    if (const uint32_t rc = ZqMsgCompose(body.Context(), "cu1", service, flag & 0xFF); rc != 0) {
      return rc;
    }
    return ZQ_RETURN_ZQERR(
        connection.ServiceOperation(zq::mq::kLLServiceRegister, body.Bytes(), nullptr));
  });
}

ZQ_API uint32_t ZqMQServiceUnregister(uint32_t handle, const char* service) {
  if (IsEmpty(service)) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return OnConnection(handle, [&](CConnection& connection) -> uint32_t {
    zq::msg::CComposed body;
    if (const uint32_t rc = ZqMsgCompose(body.Context(), "c", service); rc != 0) return rc;
    return ZQ_RETURN_ZQERR(
        connection.ServiceOperation(zq::mq::kLLServiceUnregister, body.Bytes(), nullptr));
  });
}

ZQ_API uint32_t ZqMQServiceResolve(uint32_t handle, const char* service, char* address,
                                   uint32_t* size, const char* const* excluded, uint32_t count) {
  if (IsEmpty(service) || address == nullptr || size == nullptr || *size < 2) {
    return ZQERR_COMMON_WRONG_ARGUMENTS;
  }
  return OnConnection(handle, [&](CConnection& connection) -> uint32_t {
    zq::msg::CComposed body;
    uint32_t rc = ZqMsgCompose(body.Context(), "c", service);
    for (uint32_t i = 0; rc == 0 && excluded != nullptr && i < count; ++i) {
      if (!IsEmpty(excluded[i])) rc = ZqMsgCompose(body.Context(), "c", excluded[i]);
    }
    if (rc != 0) return rc;
    std::string found;
    rc = connection.ServiceOperation(zq::mq::kLLServiceResolve, body.Bytes(), &found);
    if (rc != 0) return ZQ_RETURN_ZQERR(rc);
    return zq::common::ReturnSizedText(found, address, size);
  });
}

ZQ_API uint32_t ZqMQRegistryTimeSync(uint32_t handle) {
  return GuardedOr<uint32_t>(0, [&] {
    if (const auto connection = Lookup(handle)) connection->SetTimeSync(true);
    return 0u;
  });
}

ZQ_API uint32_t ZqMQUnRegistryTimeSync(uint32_t handle) {
  return GuardedOr<uint32_t>(0, [&] {
    if (const auto connection = Lookup(handle)) connection->SetTimeSync(false);
    return 0u;
  });
}

ZQ_API uint32_t GetService(uint32_t handle, HZQSTATSERVICE* service) {
  if (service == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return OnConnection(handle, [&](CConnection& connection) -> uint32_t {
    *service = connection.Service().Detach()->Handle();
    return 0;
  });
}

ZQ_API uint32_t FreeService(HZQSTATSERVICE service) {
  if (service != nullptr) zq::stat::CStatService::From(service)->Release();
  return 0;
}

}  // extern "C"
