// The parse engine: values by format out of a stream, in one of the
// delivery modes. Every length read from the stream is checked against what
// remains before anything is copied or allocated.
#include <cstring>

#include "common/type_codes.h"
#include "msg/stream_engine.h"
#include "os/edge.h"
#include "time/decimal.h"
#include "zqsys/zqerr.h"
#include "zqsys/zqtime.h"

namespace zq::msg {
namespace {

constexpr std::uint32_t kBadBlock = ZQERR_MSG_BAD_PARSE_BLOCK;
constexpr std::uint32_t kNullMarker = 0xFFFFFFFFu;
// A w code without a width accepts up to this many characters.
constexpr std::uint64_t kWideUnlimited = 0x7FFFFFF0u;

bool IsDigit(char c) noexcept {
  return c >= '0' && c <= '9';
}

std::uint32_t ReadFormatWidth(const char*& p) noexcept {
  std::uint32_t digits = 0;
  const std::uint32_t width = common::ReadWidth(p, digits);
  p += digits;
  return width;
}

// One parser per delivery mode, so that the loop over a format never asks
// which mode it is in.
template <ParseMode kMode>
class Parser {
 public:
  // The cursor lives in the parser, not in the caller's context, so that
  // copies into destinations never force it to be reloaded.
  Parser(const ZQPARSECTX& ctx, ZqAllocFunc allocator) noexcept
      : buffer_(ctx.buffer), size_(ctx.size), position_(ctx.position), allocator_(allocator) {}

  std::uint32_t Run(const char* format, va_list args) noexcept;
  std::uint32_t Position() const noexcept { return static_cast<std::uint32_t>(position_); }

  // Single values for the readers that walk a stream value by value.
  [[gnu::always_inline]] inline std::uint32_t Text(const char*& p, void* dest, bool wide) noexcept;
  [[gnu::always_inline]] inline std::uint32_t Binary(const char*& p, void* dest,
                                                     std::uint32_t* count) noexcept;

 private:
  // Bytes left after the position (none when the position was set past the
  // end).
  std::uint64_t Remaining() const noexcept { return position_ <= size_ ? size_ - position_ : 0; }
  const std::uint8_t* Here() const noexcept { return buffer_ + position_; }
  void Advance(std::uint64_t count) noexcept { position_ += count; }

  [[gnu::always_inline]] inline std::uint32_t Fixed(void* dest, std::uint32_t size) noexcept;
  [[gnu::always_inline]] inline std::uint32_t Integer(const char*& p, void* dest) noexcept;
  [[gnu::always_inline]] inline std::uint32_t Time(void* dest) noexcept;
  // The u32 length in front of a text or byte string, not yet passed.
  [[gnu::always_inline]] inline std::uint32_t PeekLength(const void* dest,
                                                         std::uint32_t& length) noexcept;
  [[gnu::always_inline]] inline std::uint32_t Counted(const char*& p, void* dest) noexcept;
  [[gnu::always_inline]] inline std::uint32_t Decimal(const char*& p, void* dest) noexcept;

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
        std::memcpy(*slot, bytes, count);
        return 0;
      }
      if (allocator_ == nullptr) {
        *slot = const_cast<std::uint8_t*>(bytes);
        return 0;
      }
      [[fallthrough]];
    case ParseMode::kAllocatedCopy: {
      void* copy = allocator_(count == 0 ? 1 : count);
      if (copy == nullptr) return kNoMemory;
      std::memcpy(copy, bytes, count);
      *slot = copy;
      return 0;
    }
    case ParseMode::kPointer:
      *slot = const_cast<std::uint8_t*>(bytes);
      return 0;
    case ParseMode::kCopyToPointed:
      if (*slot == nullptr) return kWrongArguments;
      std::memcpy(*slot, bytes, count);
      return 0;
    case ParseMode::kCopyInPlace:
      std::memcpy(dest, bytes, count);
      return 0;
  }
  return kWrongArguments;
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
      if (*slot == nullptr) return kWrongArguments;
      std::memset(*slot, 0, zeroBytes);
      return 0;
    case ParseMode::kCopyInPlace:
      std::memset(dest, 0, zeroBytes);
      return 0;
  }
  return kWrongArguments;
}

template <ParseMode kMode>
inline std::uint32_t Parser<kMode>::PeekLength(const void* dest, std::uint32_t& length) noexcept {
  if (dest == nullptr) return kWrongArguments;
  if (Remaining() < 4) return kBadBlock;
  std::memcpy(&length, Here(), 4);
  return 0;
}

template <ParseMode kMode>
inline std::uint32_t Parser<kMode>::Fixed(void* dest, std::uint32_t size) noexcept {
  if (dest == nullptr) return kWrongArguments;
  if (Remaining() < size) return kBadBlock;
  std::memcpy(dest, Here(), size);
  Advance(size);
  return 0;
}

template <ParseMode kMode>
inline std::uint32_t Parser<kMode>::Integer(const char*& p, void* dest) noexcept {
  switch (*p++) {
    case '1':
      return Fixed(dest, 1);
    case '2':
      return Fixed(dest, 2);
    case '4':
      return Fixed(dest, 4);
    case '8':
      return Fixed(dest, 8);
    default:
      return kWrongArguments;
  }
}

template <ParseMode kMode>
inline std::uint32_t Parser<kMode>::Time(void* dest) noexcept {
  if (dest == nullptr) return kWrongArguments;
  if (Remaining() < 9) return kBadBlock;
  auto* raw = static_cast<std::uint8_t*>(dest);
  std::memcpy(raw, Here(), 7);
  raw[7] = 0;
  std::memcpy(raw + 8, Here() + 7, 2);
  Advance(9);
  return 0;
}

template <ParseMode kMode>
inline std::uint32_t Parser<kMode>::Text(const char*& p, void* dest, bool wide) noexcept {
  const std::uint64_t width = ReadFormatWidth(p);
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
    if (length < 2 || length % 2 != 0 || length > limit) return kBadBlock;
    if (Remaining() - 4 < length) return kBadBlock;
    if (bytes[length - 1] != 0 || bytes[length - 2] != 0) return kBadBlock;
  } else {
    if (length == 0 || (width != 0 && length > width + 1)) return kBadBlock;
    if (Remaining() - 4 < length) return kBadBlock;
    if (bytes[length - 1] != 0) return kBadBlock;
  }
  if (const std::uint32_t rc = Deliver(dest, bytes, length)) return rc;
  Advance(4 + std::uint64_t{length});
  return 0;
}

template <ParseMode kMode>
inline std::uint32_t Parser<kMode>::Binary(const char*& p, void* dest,
                                           std::uint32_t* count) noexcept {
  const std::uint32_t width = ReadFormatWidth(p);
  std::uint32_t length;
  if (const std::uint32_t rc = PeekLength(dest, length)) return rc;
  if (length == kNullMarker) {
    if (const std::uint32_t rc = DeliverNull(dest, 0)) return rc;
    if (count != nullptr) *count = 0;
    Advance(4);
    return 0;
  }
  if (width != 0 && width < length) return kWrongArguments;
  if (Remaining() - 4 < length) return kBadBlock;
  if (const std::uint32_t rc = Deliver(dest, Here() + 4, length)) return rc;
  if (count != nullptr) *count = length;
  Advance(4 + std::uint64_t{length});
  return 0;
}

// A counted block is handed over whole: its u32 length, then its bytes.
template <ParseMode kMode>
inline std::uint32_t Parser<kMode>::Counted(const char*& p, void* dest) noexcept {
  const std::uint32_t width = ReadFormatWidth(p);
  std::uint32_t length;
  if (const std::uint32_t rc = PeekLength(dest, length)) return rc;
  if (length == kNullMarker) {
    if (const std::uint32_t rc = DeliverNull(dest, 4)) return rc;
    Advance(4);
    return 0;
  }
  if (width != 0 && length > width) return kWrongArguments;
  if (Remaining() - 4 < length) return kBadBlock;
  if (const std::uint32_t rc = Deliver(dest, Here(), 4 + length)) return rc;
  Advance(4 + std::uint64_t{length});
  return 0;
}

// Decimals are fixed-size values and are copied in every mode, as they lie:
// whoever uses the value checks its type.
template <ParseMode kMode>
inline std::uint32_t Parser<kMode>::Decimal(const char*& p, void* dest) noexcept {
  common::TypeCode code;
  if (!common::ScanType(p - 1, code)) return kWrongArguments;
  p += code.length - 1;
  if (!time::IsDecimalType(code.width, code.scale)) return kWrongArguments;
  if (dest == nullptr) return kWrongArguments;
  const std::uint32_t size = time::DecimalSize(code.width, code.scale);
  if (Remaining() < size) return kBadBlock;
  std::memcpy(dest, Here(), size);
  Advance(size);
  return 0;
}

template <ParseMode kMode>
std::uint32_t Parser<kMode>::Run(const char* format, va_list args) noexcept {
  std::uint32_t rc = 0;
  const char* p = format;
  while (rc == 0 && *p != '\0') {
    switch (*p++) {
      case 'a':
        while (IsDigit(*p))
          ++p;
        rc = Fixed(va_arg(args, void*), 1);
        break;
      case 'i':
      case 'u':
        rc = Integer(p, va_arg(args, void*));
        break;
      case 'f':
        while (IsDigit(*p))
          ++p;
        rc = Fixed(va_arg(args, void*), 8);
        break;
      case 't':
        while (IsDigit(*p))
          ++p;
        rc = Time(va_arg(args, void*));
        break;
      case 'c':
        rc = Text(p, va_arg(args, void*), false);
        break;
      case 'w':
        rc = Text(p, va_arg(args, void*), true);
        break;
      case 'b': {
        void* dest = va_arg(args, void*);
        rc = Binary(p, dest, va_arg(args, std::uint32_t*));
        break;
      }
      case 'z':
        rc = Counted(p, va_arg(args, void*));
        break;
      case 'd':
      case 's':
        rc = Decimal(p, va_arg(args, void*));
        break;
      default:
        rc = kWrongArguments;
        break;
    }
  }
  return rc;
}

template <ParseMode kMode>
[[gnu::flatten]] std::uint32_t RunParser(ZQPARSECTX& ctx, ZqAllocFunc allocator, const char* format,
                                         va_list args) noexcept {
  Parser<kMode> parser(ctx, allocator);
  const std::uint32_t rc = parser.Run(format, args);
  ctx.position = parser.Position();
  return rc;
}

}  // namespace

std::uint32_t ParseV(ZQPARSECTX& ctx, std::uint32_t mode, ZqAllocFunc allocator, const char* format,
                     va_list args) noexcept {
  if (mode > static_cast<std::uint32_t>(ParseMode::kCopyInPlace)) return kWrongArguments;
  if (static_cast<ParseMode>(mode) == ParseMode::kAllocatedCopy && allocator == nullptr) {
    return kWrongArguments;
  }
  if (ctx.buffer == nullptr && ctx.size != 0) return kWrongArguments;
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
  const char* noWidth = "";
  const std::uint32_t rc = parser.Text(noWidth, &text, false);
  if (rc == 0) {
    length = text != nullptr ? parser.Position() - ctx.position - 5 : 0;
    ctx.position = parser.Position();
  }
  return rc;
}

std::uint32_t ParseBinaryAt(ZQPARSECTX& ctx, const void*& bytes, std::uint32_t& count) noexcept {
  Parser<ParseMode::kPointer> parser(ctx, nullptr);
  const char* noWidth = "";
  const std::uint32_t rc = parser.Binary(noWidth, &bytes, &count);
  if (rc == 0) ctx.position = parser.Position();
  return rc;
}

}  // namespace zq::msg
