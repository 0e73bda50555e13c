// Arbitrary text through the time parser. A failure leaves the NULL value;
// a success is a value the parser reads back the same from its own printout,
// and one with a time of day is a valid value.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "zqsys/zqtime.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  ZQTIME value;
  std::memset(&value, 0xA5, sizeof value);
  const std::uint32_t rc = ZqTimeGetFromStr(&value, text.c_str());
  if (rc != 0) {
    if (rc != 2 || ZqTimeIsNULL(&value) != 1) std::abort();
    return 0;
  }
  const bool has_time = std::strchr(text.c_str(), ':') != nullptr;
  if (has_time ? ZqTimeCheck(&value) != 0 : value.year < 1000) std::abort();

  char printed[64];
  if (has_time) {
    std::snprintf(printed, sizeof printed, "%u/%u/%u %u:%u:%u.%u", value.year, value.month,
                  value.day, value.hour, value.minute, value.second, value.millisecond);
  } else {
    std::snprintf(printed, sizeof printed, "%u/%u/%u", value.year, value.month, value.day);
  }
  ZQTIME again;
  if (ZqTimeGetFromStr(&again, printed) != 0 || std::memcmp(&again, &value, sizeof value) != 0)
    std::abort();
  return 0;
}
