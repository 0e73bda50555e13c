#include "router_client.h"

#include <unistd.h>

#include <cstdlib>

#include "zqsys/zqerr.h"
#include "zqsys/zqmq.h"

namespace zqctl {

RouterAddress RouterOf(const Args& args) {
  const char* environment = std::getenv("ZQ_ROUTER");
  std::string text = args.Option("router", environment != nullptr ? environment : "");
  RouterAddress address{"127.0.0.1", kDefaultRouterPort};
  if (text.empty()) return address;
  const std::size_t colon = text.rfind(':');
  if (colon != std::string::npos) {
    std::uint32_t port = 0;
    if (!ParseU32(text.substr(colon + 1), port) || port == 0 || port > 65535) {
      Usage("'" + text + "' is no HOST:PORT");
    }
    address.port = static_cast<std::uint16_t>(port);
    text.resize(colon);
  }
  if (!text.empty()) address.host = text;
  return address;
}

std::string AppOf(const Args& args) {
  return args.Option("app", "zqctl-" + std::to_string(getpid()));
}

ClientLibrary::ClientLibrary() {
  Check(ZqMQStartup(), "cannot start the message-queue client");
}

ClientLibrary::~ClientLibrary() {
  ZqMQCleanup();
}

RouterClient::RouterClient(const Args& args, const std::string& app)
    : app_(app.empty() ? AppOf(args) : app) {
  const RouterAddress router = RouterOf(args);
  Check(ZqMQCreateConnection(&handle_), "cannot create a connection");
  std::uint32_t fatal = 0;
  const std::uint32_t rc = ZqMQConnect(handle_, app_.c_str(), router.port, kConnectTimeoutMs,
                                       router.host.c_str(), nullptr, &fatal);
  if (rc != 0) {
    ZqMQFreeConnection(handle_);
    throw Failure("cannot connect to the router at " + router.host + ":" +
                      std::to_string(router.port) + " as " + app_,
                  rc);
  }
}

RouterClient::~RouterClient() {
  ZqMQFreeConnection(handle_);
}

std::string RouterClient::NodeName() const {
  char name[256];
  std::uint32_t size = sizeof name;
  Check(ZqMQGetNodeName(handle_, name, &size), "cannot read the node name");
  return name;
}

}  // namespace zqctl
