#include "time/decimal.h"

#include <cstring>

namespace zq::time {

void SetDecimalZero(void* value, std::uint32_t precision, std::uint32_t scale) noexcept {
  auto* bytes = static_cast<std::uint8_t*>(value);
  const std::uint32_t size = DecimalSize(precision, scale);
  bytes[0] = static_cast<std::uint8_t>(scale);
  bytes[1] = static_cast<std::uint8_t>(precision);
  std::memset(bytes + 2, 0, size - 2);
}

}  // namespace zq::time
