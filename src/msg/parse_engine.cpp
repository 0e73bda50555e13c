// The parse engine: values by format out of a stream, in one of the
// delivery modes. Every length read from the stream is checked against what
// remains before anything is copied or allocated.
#include <cstring>

#include "msg/copy_bytes.h"
#include "msg/format_plan.h"
#include "msg/stream_engine.h"
#include "msg/wire_format.h"
#include "zqsys/zqerr.h"
#include "zqsys/zqtime.h"

namespace zq::msg {
namespace {

constexpr std::uint32_t kNullMarker = wire::kNullLength;
// A w code without a width accepts up to this many characters.
constexpr std::uint64_t kWideUnlimited = 0x7FFFFFF0u;

// One parser per delivery mode, so that the loop over a format never asks
// which mode it is in.
template <ParseMode kMode>
class Parser {
 public:
  // The cursor lives in the parser, not in the caller's context, so that
  // copies into destinations never force it to be reloaded.
  Parser(const ZQPARSECTX& ctx, ZqAllocFunc allocator) noexcept
      : buffer_(ctx.buffer), size_(ctx.size), position_(ctx.position), allocator_(allocator) {}

  std::uint32_t Run(const FormatStep* steps, std::uint32_t count, va_list args) noexcept;
  std::uint32_t Position() const noexcept { return static_cast<std::uint32_t>(position_); }

  // Single values for the readers that walk a stream value by value.
  [[gnu::always_inline]] inline std::uint32_t Text(std::uint64_t width, void* dest,
                                                   bool wide) noexcept;
  [[gnu::always_inline]] inline std::uint32_t Binary(std::uint32_t width, void* dest,
                                                     std::uint32_t* count) noexcept;

 private:
  // Bytes left after the position (none when the position was set past the
  // end).
  std::uint64_t Remaining() const noexcept { return position_ <= size_ ? size_ - position_ : 0; }
  const std::uint8_t* Here() const noexcept { return buffer_ + position_; }
  void Advance(std::uint64_t count) noexcept { position_ += count; }

  template <std::uint32_t kSize>
  [[gnu::always_inline]] inline std::uint32_t Fixed(void* dest) noexcept;
  [[gnu::always_inline]] inline std::uint32_t Time(void* dest) noexcept;
  // The u32 length in front of a text or byte string, not yet passed.
  [[gnu::always_inline]] inline std::uint32_t PeekLength(const void* dest,
                                                         std::uint32_t& length) noexcept;
  [[gnu::always_inline]] inline std::uint32_t Counted(std::uint32_t width, void* dest) noexcept;
  [[gnu::always_inline]] inline std::uint32_t Decimal(std::uint32_t size, void* dest) noexcept;

  [[gnu::always_inline]] inline std::uint32_t Deliver(void* dest, const std::uint8_t* bytes,
                                                      std::uint32_t count) noexcept;
  [[gnu::always_inline]] inline std::uint32_t DeliverNull(void* dest,
                                                          std::uint32_t zeroBytes) noexcept;

  const std::uint8_t* buffer_;
  std::uint64_t size_;
  std::uint64_t position_;
  ZqAllocFunc allocator_;
};

template <ParseMode kMode>
inline std::uint32_t Parser<kMode>::Deliver(void* dest, const std::uint8_t* bytes,
                                            std::uint32_t count) noexcept {
  void** slot = static_cast<void**>(dest);
  switch (kMode) {
    case ParseMode::kChoose:
      if (*slot != nullptr) {
        CopyBytes(*slot, bytes, count);
        return 0;
      }
      if (allocator_ == nullptr) {
        *slot = const_cast<std::uint8_t*>(bytes);
        return 0;
      }
      [[fallthrough]];
    case ParseMode::kAllocatedCopy: {
      void* copy = allocator_(count == 0 ? 1 : count);
      if (copy == nullptr) return ZQERR_COMMON_NO_MEMORY;
      CopyBytes(copy, bytes, count);
      *slot = copy;
      return 0;
    }
    case ParseMode::kPointer:
      *slot = const_cast<std::uint8_t*>(bytes);
      return 0;
    case ParseMode::kCopyToPointed:
      if (*slot == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
      CopyBytes(*slot, bytes, count);
      return 0;
    case ParseMode::kCopyInPlace:
      CopyBytes(dest, bytes, count);
      return 0;
  }
  return ZQERR_COMMON_WRONG_ARGUMENTS;
}

// A null marker: pointer modes store a null pointer, copy modes store
// `zeroBytes` zero bytes (an empty text, a zero length), choose leaves the
// destination as it is.
template <ParseMode kMode>
inline std::uint32_t Parser<kMode>::DeliverNull(void* dest, std::uint32_t zeroBytes) noexcept {
  void** slot = static_cast<void**>(dest);
  switch (kMode) {
    case ParseMode::kChoose:
      return 0;
    case ParseMode::kPointer:
    case ParseMode::kAllocatedCopy:
      *slot = nullptr;
      return 0;
    case ParseMode::kCopyToPointed:
      if (*slot == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
      std::memset(*slot, 0, zeroBytes);
      return 0;
    case ParseMode::kCopyInPlace:
      std::memset(dest, 0, zeroBytes);
      return 0;
  }
  return ZQERR_COMMON_WRONG_ARGUMENTS;
}

template <ParseMode kMode>
inline std::uint32_t Parser<kMode>::PeekLength(const void* dest, std::uint32_t& length) noexcept {
  if (dest == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  if (Remaining() < 4) return ZQERR_MSG_BAD_PARSE_BLOCK;
  std::memcpy(&length, Here(), 4);
  return 0;
}

template <ParseMode kMode>
template <std::uint32_t kSize>
inline std::uint32_t Parser<kMode>::Fixed(void* dest) noexcept {
  if (dest == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  if (Remaining() < kSize) return ZQERR_MSG_BAD_PARSE_BLOCK;
  std::memcpy(dest, Here(), kSize);
  Advance(kSize);
  return 0;
}

template <ParseMode kMode>
inline std::uint32_t Parser<kMode>::Time(void* dest) noexcept {
  if (dest == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  if (Remaining() < wire::kTimeBytes) return ZQERR_MSG_BAD_PARSE_BLOCK;
  auto* raw = static_cast<std::uint8_t*>(dest);
  std::memcpy(raw, Here(), 7);
  raw[7] = 0;
  std::memcpy(raw + 8, Here() + 7, 2);
  Advance(wire::kTimeBytes);
  return 0;
}

template <ParseMode kMode>
inline std::uint32_t Parser<kMode>::Text(std::uint64_t width, void* dest, bool wide) noexcept {
  std::uint32_t length;
  if (const std::uint32_t rc = PeekLength(dest, length)) return rc;
  if (length == kNullMarker) {
    if (const std::uint32_t rc = DeliverNull(dest, wide ? 2 : 1)) return rc;
    Advance(4);
    return 0;
  }
  const std::uint8_t* bytes = Here() + 4;
  if (wide) {
    const std::uint64_t limit = 2 * (width == 0 ? kWideUnlimited : width) + 2;
    if (length < 2 || length % 2 != 0 || length > limit) return ZQERR_MSG_BAD_PARSE_BLOCK;
    if (Remaining() - 4 < length) return ZQERR_MSG_BAD_PARSE_BLOCK;
    if (bytes[length - 1] != 0 || bytes[length - 2] != 0) return ZQERR_MSG_BAD_PARSE_BLOCK;
  } else {
    if (length == 0 || (width != 0 && length > width + 1)) return ZQERR_MSG_BAD_PARSE_BLOCK;
    if (Remaining() - 4 < length) return ZQERR_MSG_BAD_PARSE_BLOCK;
    if (bytes[length - 1] != 0) return ZQERR_MSG_BAD_PARSE_BLOCK;
  }
  if (const std::uint32_t rc = Deliver(dest, bytes, length)) return rc;
  Advance(4 + std::uint64_t{length});
  return 0;
}

template <ParseMode kMode>
inline std::uint32_t Parser<kMode>::Binary(std::uint32_t width, void* dest,
                                           std::uint32_t* count) noexcept {
  std::uint32_t length;
  if (const std::uint32_t rc = PeekLength(dest, length)) return rc;
  if (length == kNullMarker) {
    if (const std::uint32_t rc = DeliverNull(dest, 0)) return rc;
    if (count != nullptr) *count = 0;
    Advance(4);
    return 0;
  }
  if (width != 0 && width < length) return ZQERR_COMMON_WRONG_ARGUMENTS;
  if (Remaining() - 4 < length) return ZQERR_MSG_BAD_PARSE_BLOCK;
  if (const std::uint32_t rc = Deliver(dest, Here() + 4, length)) return rc;
  if (count != nullptr) *count = length;
  Advance(4 + std::uint64_t{length});
  return 0;
}

// A counted block is handed over whole: its u32 length, then its bytes.
template <ParseMode kMode>
inline std::uint32_t Parser<kMode>::Counted(std::uint32_t width, void* dest) noexcept {
  std::uint32_t length;
  if (const std::uint32_t rc = PeekLength(dest, length)) return rc;
  if (length == kNullMarker) {
    if (const std::uint32_t rc = DeliverNull(dest, 4)) return rc;
    Advance(4);
    return 0;
  }
  if (width != 0 && length > width) return ZQERR_COMMON_WRONG_ARGUMENTS;
  if (Remaining() - 4 < length) return ZQERR_MSG_BAD_PARSE_BLOCK;
  if (const std::uint32_t rc = Deliver(dest, Here(), 4 + length)) return rc;
  Advance(4 + std::uint64_t{length});
  return 0;
}

// Decimals are fixed-size values and are copied in every mode, as they lie:
// whoever uses the value checks its type.
template <ParseMode kMode>
inline std::uint32_t Parser<kMode>::Decimal(std::uint32_t size, void* dest) noexcept {
  if (dest == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  if (Remaining() < size) return ZQERR_MSG_BAD_PARSE_BLOCK;
  CopyBytes(dest, Here(), size);
  Advance(size);
  return 0;
}

#define ZQ_NEXT_STEP()                                 \
  do {                                                 \
    if (rc != 0 || ++step == end) goto done;           \
    goto* kSteps[static_cast<std::uint8_t>(step->op)]; \
  } while (0)

template <ParseMode kMode>
std::uint32_t Parser<kMode>::Run(const FormatStep* steps, std::uint32_t count,
                                 va_list args) noexcept {
  static const void* const kSteps[] = {&&bad,    &&int1,    &&int1,   &&int2, &&int4,
                                       &&int8,   &&int8,    &&time,   &&text, &&wide,
                                       &&binary, &&counted, &&decimal};
  // A function that takes label addresses is never inlined: the cursor is
  // copied into a local, so that it lives in a register across the copies.
  Parser self = *this;
  std::uint32_t rc = 0;
  const FormatStep* step = steps;
  const FormatStep* const end = steps + count;
  if (step == end) return 0;
  goto* kSteps[static_cast<std::uint8_t>(step->op)];
int1:
  rc = self.template Fixed<1>(va_arg(args, void*));
  ZQ_NEXT_STEP();
int2:
  rc = self.template Fixed<2>(va_arg(args, void*));
  ZQ_NEXT_STEP();
int4:
  rc = self.template Fixed<4>(va_arg(args, void*));
  ZQ_NEXT_STEP();
int8:
  rc = self.template Fixed<8>(va_arg(args, void*));
  ZQ_NEXT_STEP();
time:
  rc = self.Time(va_arg(args, void*));
  ZQ_NEXT_STEP();
text:
  rc = self.Text(step->width, va_arg(args, void*), false);
  ZQ_NEXT_STEP();
wide:
  rc = self.Text(step->width, va_arg(args, void*), true);
  ZQ_NEXT_STEP();
binary : {
  void* dest = va_arg(args, void*);
  rc = self.Binary(step->width, dest, va_arg(args, std::uint32_t*));
  ZQ_NEXT_STEP();
}
counted:
  rc = self.Counted(step->width, va_arg(args, void*));
  ZQ_NEXT_STEP();
decimal:
  rc = self.Decimal(step->size, va_arg(args, void*));
  ZQ_NEXT_STEP();
bad:
  rc = ZQERR_COMMON_WRONG_ARGUMENTS;
done:
  position_ = self.position_;
  return rc;
}

#undef ZQ_NEXT_STEP

template <ParseMode kMode>
[[gnu::flatten]] std::uint32_t RunParser(ZQPARSECTX& ctx, ZqAllocFunc allocator, const char* format,
                                         va_list args) noexcept {
  Parser<kMode> parser(ctx, allocator);
  const std::uint32_t rc = RunFormat(format, [&](const FormatStep* steps, std::uint32_t count) {
    return parser.Run(steps, count, args);
  });
  ctx.position = parser.Position();
  return rc;
}

}  // namespace

std::uint32_t ParseV(ZQPARSECTX& ctx, std::uint32_t mode, ZqAllocFunc allocator, const char* format,
                     va_list args) noexcept {
  if (mode > static_cast<std::uint32_t>(ParseMode::kCopyInPlace))
    return ZQERR_COMMON_WRONG_ARGUMENTS;
  if (static_cast<ParseMode>(mode) == ParseMode::kAllocatedCopy && allocator == nullptr) {
    return ZQERR_COMMON_WRONG_ARGUMENTS;
  }
  if (ctx.buffer == nullptr && ctx.size != 0) return ZQERR_COMMON_WRONG_ARGUMENTS;
  if (static_cast<ParseMode>(mode) == ParseMode::kCopyInPlace) [[likely]] {
    // The binary parser's own mode: a direct call, no runner table.
    return RunParser<ParseMode::kCopyInPlace>(ctx, allocator, format, args);
  }
  // The argument list goes straight to the parser, which alone takes values
  // from it: a copy would cost a stall on a list its caller has just built.
  using Runner = std::uint32_t (*)(ZQPARSECTX&, ZqAllocFunc, const char*, va_list) noexcept;
  static constexpr Runner kRunners[] = {
      RunParser<ParseMode::kChoose>,        RunParser<ParseMode::kPointer>,
      RunParser<ParseMode::kCopyToPointed>, RunParser<ParseMode::kAllocatedCopy>,
      RunParser<ParseMode::kCopyInPlace>,
  };
  return kRunners[mode](ctx, allocator, format, args);
}

std::uint32_t Parse(ZQPARSECTX& ctx, ParseMode mode, ZqAllocFunc allocator, const char* format,
                    ...) noexcept {
  va_list args;
  va_start(args, format);
  const std::uint32_t rc = ParseV(ctx, static_cast<std::uint32_t>(mode), allocator, format, args);
  va_end(args);
  return rc;
}

std::uint32_t ParseTextAt(ZQPARSECTX& ctx, const char*& text, std::uint32_t& length) noexcept {
  Parser<ParseMode::kPointer> parser(ctx, nullptr);
  const std::uint32_t rc = parser.Text(0, &text, false);
  if (rc == 0) {
    length = text != nullptr ? parser.Position() - ctx.position - 5 : 0;
    ctx.position = parser.Position();
  }
  return rc;
}

std::uint32_t ParseBinaryAt(ZQPARSECTX& ctx, const void*& bytes, std::uint32_t& count) noexcept {
  Parser<ParseMode::kPointer> parser(ctx, nullptr);
  const std::uint32_t rc = parser.Binary(0, &bytes, &count);
  if (rc == 0) ctx.position = parser.Position();
  return rc;
}

}  // namespace zq::msg
