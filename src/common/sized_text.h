// The library's rule for texts handed back in a caller's buffer: the needed
// size (length + 1) is always written to *size; a null buffer or one smaller
// than that gives 7 (COMMON:BUFFER_TOO_SMALL) and copies nothing; otherwise
// the text and its NUL are copied and 0 is returned.
#pragma once

#include <cstdint>
#include <cstring>
#include <string_view>

#include "zqsys/zqerr.h"

namespace zq::common {

inline std::uint32_t ReturnSizedText(std::string_view text, char* buffer,
                                     std::uint32_t* size) noexcept {
  if (text.size() >= UINT32_MAX) return ZQERR_COMMON_BUFFER_TOO_SMALL;
  const auto needed = static_cast<std::uint32_t>(text.size() + 1);
  const std::uint32_t given = *size;
  *size = needed;
  if (buffer == nullptr || given < needed) return ZQERR_COMMON_BUFFER_TOO_SMALL;
  // An empty view may have no data at all, which memcpy must not be given.
  if (!text.empty()) std::memcpy(buffer, text.data(), text.size());
  buffer[text.size()] = '\0';
  return ZQERR_COMMON_OK;
}

}  // namespace zq::common
