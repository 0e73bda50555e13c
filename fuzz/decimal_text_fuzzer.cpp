// Arbitrary text through the decimal parser. The first two bytes pick the
// type (precision 1 to 255 and a scale that fits it), the rest is the text.
// A failure leaves the value as it was; a success is a valid value that
// reads back from its own printout to the same bytes, and that keeps its
// number and hash when rescaled exactly into a type of precision 255.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "zqsys/zqbcd.h"

namespace {

struct Value {
  unsigned char bytes[ZQBCDII_MAX_SIZE] = {};
  ZQBCDII* get() { return reinterpret_cast<ZQBCDII*>(bytes); }
};

void Check(bool condition) {
  if (!condition) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2) return 0;
  const std::uint32_t precision = 1 + data[0] % 255;
  const std::uint32_t scale = data[1] % (std::min(precision, 127u) + 1);
  const std::uint32_t stored = ZQBCDII_SIZE(precision, scale);
  const std::string text(reinterpret_cast<const char*>(data + 2), size - 2);

  Value value, before;
  Check(ZqBCDIIInit(value.get(), precision, scale) == 0);
  ZqBCDIIFromStr(value.get(), "-0.5");
  std::memcpy(before.bytes, value.bytes, stored);
  const std::uint32_t rc = ZqBCDIIFromStr(value.get(), text.c_str());
  if (rc != 0) {
    Check((rc == 11 || rc == 14) && std::memcmp(before.bytes, value.bytes, stored) == 0);
    return 0;
  }

  char printed[300];
  std::uint32_t length = sizeof printed;
  Check(ZqBCDIIToStr(value.get(), printed, &length) == 0);
  Value again;
  Check(ZqBCDIIInit(again.get(), precision, scale) == 0);
  Check(ZqBCDIIFromStr(again.get(), printed) == 0);
  Check(std::memcmp(again.bytes, value.bytes, stored) == 0);

  Value widest;
  std::int32_t order = 1;
  std::uint64_t hash = 0, widest_hash = 1;
  double number = 0;
  // As many more fraction digits as the wider type has room for.
  Check(ZqBCDIIInit(widest.get(), 255, std::min(127u, scale + 255 - precision)) == 0);
  Check(ZqBCDIIRescale(widest.get(), value.get(), ZQBCDII_ROUND_UP) == 0);
  Check(ZqBCDIICompare(widest.get(), value.get(), &order) == 0 && order == 0);
  Check(ZqBCDIIHash(value.get(), &hash) == 0 && ZqBCDIIHash(widest.get(), &widest_hash) == 0);
  Check(hash == widest_hash);
  Check(ZqBCDIIToDouble(value.get(), &number) == 0);
  return 0;
}
