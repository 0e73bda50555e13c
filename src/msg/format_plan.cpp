#include "msg/format_plan.h"

#include <cstring>

namespace zq::msg {
namespace {

// The formats a thread used last, one per slot by the format's address.
constexpr std::uint32_t kSlots = 8;
constexpr std::uint32_t kLongestCached = 63;

// Zero-initialised, so that the thread-local cache needs no constructor
// (and no guard on every access).
struct CacheEntry {
  const char* key;
  std::uint32_t count;
  char text[kLongestCached + 1];
  FormatStep steps[kLongestCached];
};

thread_local constinit CacheEntry tCache[kSlots] = {};

}  // namespace

std::uint32_t CompileFormat(const char* format, FormatStep* steps, std::uint32_t capacity,
                            const char*& rest) noexcept {
  std::uint32_t count = 0;
  const char* p = format;
  while (count < capacity && *p != '\0') {
    FormatStep& step = steps[count++];
    step = FormatStep{};
    if (!DecodeCode(p, step)) {
      step.op = StepOp::kBad;
      p = "";
      break;
    }
  }
  rest = p;
  return count;
}

FormatSteps CachedFormat(const char* format) noexcept {
  const auto address = reinterpret_cast<std::uintptr_t>(format);
  CacheEntry& entry = tCache[(address >> 3 ^ address >> 11) % kSlots];
  if (entry.key == format && std::strcmp(entry.text, format) == 0) {
    return {entry.steps, entry.count};
  }
  const std::size_t length = std::strlen(format);
  if (length > kLongestCached) return {nullptr, 0};
  // One step per character at most, so the whole format compiles at once.
  const char* rest = nullptr;
  entry.count = CompileFormat(format, entry.steps, kLongestCached, rest);
  std::memcpy(entry.text, format, length + 1);
  entry.key = format;
  return {entry.steps, entry.count};
}

}  // namespace zq::msg
