// Connection strings: parsing never fails on any text, and what it keeps for
// the router is the input with whole pairs taken out.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "mq/conn_string.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  zq::mq::ConnString parsed;
  if (zq::mq::ParseConnString(text, parsed) != 0) return 0;
  if (parsed.appName.empty() || parsed.host.empty() || parsed.port == 0) std::abort();
  // The text for the router is a subsequence of the input.
  std::size_t at = 0;
  for (const char c : parsed.forRouter) {
    at = text.find(c, at);
    if (at == std::string_view::npos) std::abort();
    ++at;
  }
  // Parsing it again finds the same application.
  zq::mq::ConnString again;
  const std::string withPort = parsed.forRouter + ";PORT=1";
  if (zq::mq::ParseConnString(withPort, again) == 0 && again.appName != parsed.appName)
    std::abort();
  std::string hello;
  if (zq::mq::BuildHello(parsed.forRouter, hello) && hello.size() != parsed.forRouter.size() + 7) {
    std::abort();
  }
  return 0;
}
