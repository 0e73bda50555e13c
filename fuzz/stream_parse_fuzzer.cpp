// Arbitrary streams and formats through the parse engine in every delivery
// mode. Input: a mode byte, a flags byte, a format up to a NUL, the stream.
// Every destination is as large as the whole input, which bounds any value
// a stream of that size can hold.
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "common/type_codes.h"
#include "msg/stream_engine.h"

namespace {

constexpr std::size_t kMaxFormat = 24;

std::vector<void*> g_allocations;

void* TrackedAlloc(std::size_t size) {
  if (g_allocations.size() % 7 == 6) {  // exercise the failure path too
    g_allocations.push_back(nullptr);
    return nullptr;
  }
  void* block = std::malloc(size);
  g_allocations.push_back(block);
  return block;
}

std::uint32_t ParseArgs(ZQPARSECTX& ctx, std::uint32_t mode, ZqAllocFunc allocator,
                        const char* format, ...) {
  va_list args;
  va_start(args, format);
  const std::uint32_t rc = zq::msg::ParseV(ctx, mode, allocator, format, args);
  va_end(args);
  return rc;
}

// Slot i is the i-th destination; in the modes that take a pointer to a
// pointer, its first bytes point at a second buffer of the same size.
struct Slots {
  explicit Slots(std::size_t size, bool preset) : size_(size < 160 ? 160 : size) {
    for (auto& slot : slots) {
      slot.first.assign(size_, 0);
      slot.second.assign(size_, 0);
      void* target = preset ? slot.second.data() : nullptr;
      std::memcpy(slot.first.data(), &target, sizeof target);
    }
  }
  void* operator[](std::size_t i) { return slots[i].first.data(); }

  std::size_t size_;
  struct Pair {
    std::vector<std::uint8_t> first, second;
  } slots[2 * kMaxFormat];
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 3) return 0;
  const std::uint32_t mode = data[0] % 6;  // 5 is an unknown mode
  const bool preset = (data[1] & 1) != 0 || mode == 2;
  const bool withAllocator = (data[1] & 2) != 0 || mode == 3;
  const auto* end = static_cast<const std::uint8_t*>(std::memchr(data + 2, 0, size - 2));
  if (end == nullptr) return 0;
  const std::size_t formatLength = static_cast<std::size_t>(end - (data + 2));
  if (formatLength > kMaxFormat) return 0;
  const char* format = reinterpret_cast<const char*>(data + 2);

  // The scanner takes any text.
  zq::common::TypeCode code;
  for (const char* p = format; zq::common::ScanType(p, code) && code.length != 0;
       p += code.length) {
  }

  const std::uint8_t* stream = end + 1;
  const std::size_t streamSize = size - static_cast<std::size_t>(stream - data);
  // A copy of exactly the stream's size, so reads past it are caught.
  std::vector<std::uint8_t> owned(stream, stream + streamSize);
  ZQPARSECTX ctx{owned.data(), static_cast<std::uint32_t>(owned.size()), 0};

  Slots s(size, preset);
  const std::uint32_t rc =
      ParseArgs(ctx, mode, withAllocator ? TrackedAlloc : nullptr, format, s[0], s[1], s[2], s[3],
                s[4], s[5], s[6], s[7], s[8], s[9], s[10], s[11], s[12], s[13], s[14], s[15], s[16],
                s[17], s[18], s[19], s[20], s[21], s[22], s[23], s[24], s[25], s[26], s[27], s[28],
                s[29], s[30], s[31], s[32], s[33], s[34], s[35], s[36], s[37], s[38], s[39], s[40],
                s[41], s[42], s[43], s[44], s[45], s[46], s[47]);
  if (ctx.position > ctx.size) std::abort();  // a parse never reads past its stream
  if (rc == 0 && formatLength == 0 && ctx.position != 0) std::abort();

  for (void* block : g_allocations)
    std::free(block);
  g_allocations.clear();
  return 0;
}
