// A connection to the router for one command: the client started, one
// connection made and connected to --router (else $ZQ_ROUTER, else
// 127.0.0.1:7420) as --app (else zqctl-PID), all undone at the end.
#pragma once

#include <cstdint>
#include <string>

#include "cli.h"

namespace zqctl {

inline constexpr std::uint16_t kDefaultRouterPort = 7420;
inline constexpr std::uint32_t kConnectTimeoutMs = 5000;

struct RouterAddress {
  std::string host;
  std::uint16_t port;
};
RouterAddress RouterOf(const Args& args);
std::string AppOf(const Args& args);

class RouterClient {
 public:
  // Connects as `app`; an empty `app` takes the command's.
  explicit RouterClient(const Args& args, const std::string& app = {});
  ~RouterClient();
  RouterClient(const RouterClient&) = delete;
  RouterClient& operator=(const RouterClient&) = delete;

  std::uint32_t Handle() const { return handle_; }
  std::string NodeName() const;
  const std::string& App() const { return app_; }
  // "node.app" of this connection.
  std::string Address() const { return NodeName() + "." + app_; }

 private:
  std::uint32_t handle_ = 0;
  std::string app_;
};

// The client library is started once per process, for every connection.
class ClientLibrary {
 public:
  ClientLibrary();
  ~ClientLibrary();
  ClientLibrary(const ClientLibrary&) = delete;
  ClientLibrary& operator=(const ClientLibrary&) = delete;
};

}  // namespace zqctl
