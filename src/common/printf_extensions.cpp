// The library's own conversions, beyond those of C's printf: %t times, %B and
// %b decimal values, %q and %Q quoting, %z and %Z dumps, %R result codes, %r
// system errors and %H hex values.
#include <cstring>

#include "common/printf_conversion.h"
#include "common/result_codes.h"
#include "os/error_text.h"
#include "os/memory.h"
#include "time/decimal.h"
#include "zqsys/zqerr.h"

namespace zq::common::printf_detail {
namespace {

// A buffer for `needed` bytes: the scratch when it is big enough, else the
// heap (recorded in the piece so that it is freed).
char* TextBuffer(std::size_t needed, char* scratch, Piece& piece) noexcept {
  if (needed <= kScratchSize) return scratch;
  piece.heap = os::Allocate(needed);
  if (piece.heap == nullptr) piece.stop = true;
  return static_cast<char*>(piece.heap);
}

// `value` in decimal, zero-padded to `width` digits, at `p`; returns the end.
char* PutPaddedNumber(unsigned value, int width, char* p) noexcept {
  char digits[12];
  char* const end = digits + sizeof(digits);
  char* start = PutDigits(value, 10, kUpper, end);
  while (end - start < width)
    *--start = '0';
  std::memcpy(p, start, static_cast<std::size_t>(end - start));
  return p + (end - start);
}

// `parts` parts of the date and time, or of the time of day alone, at `out`;
// returns the length.
std::size_t PutTimeText(const ZQTIME& t, int parts, bool time_only, char* out) noexcept {
  char* p = out;
  const auto part = [&](char separator, unsigned value, int width) {
    if (separator != 0) *p++ = separator;
    p = PutPaddedNumber(value, width, p);
  };
  int n = 0;
  if (!time_only) {
    part(0, t.year, t.year == 0 ? 4 : 1);  // a year as it is; 0 as 0000
    if (++n < parts) part('/', t.month, 2);
    if (++n < parts) part('/', t.day, 2);
    if (++n < parts) part(' ', t.hour, 2);
  } else {
    part(0, t.hour, 2);
  }
  if (++n < parts) part(':', t.minute, 2);
  if (++n < parts) part(':', t.second, 2);
  if (++n < parts) part('.', t.millisecond, 3);
  return static_cast<std::size_t>(p - out);
}

// The text of `s` with its quotes doubled, in quotes when asked.
void QuoteText(const char* s, std::size_t length, std::size_t quotes, bool in_quotes, char* scratch,
               Piece& piece) noexcept {
  char* buffer = TextBuffer(length + quotes + (in_quotes ? 2 : 0) + 3, scratch, piece);
  if (buffer == nullptr) return;
  char* p = buffer;
  if (in_quotes) *p++ = '\'';
  for (std::size_t i = 0; i < length; ++i) {
    *p++ = s[i];
    if (s[i] == '\'') *p++ = '\'';
  }
  if (in_quotes) *p++ = '\'';
  piece.text = buffer;
  piece.length = static_cast<std::size_t>(p - buffer);
}

}  // namespace

void FormatTime(const ZQTIME* t, const Spec& spec, char* scratch, Piece& piece) noexcept {
  // The precision counts the parts shown: the full date and time by default.
  const int parts = spec.precision >= 0 ? spec.precision : (spec.alternate ? 3 : 6);
  if (t == nullptr || parts <= 0) return;
  piece.text = scratch;
  piece.length = PutTimeText(*t, parts, spec.alternate, scratch);
}

void FormatDecimalArgument(const void* value, const Spec& spec, char* scratch,
                           Piece& piece) noexcept {
  if (value == nullptr) return;
  std::uint32_t size = kScratchSize;
  const std::uint32_t sign = spec.plus ? time::kDecimalSignAlways : time::kDecimalSignNegativeOnly;
  piece.text = scratch;
  if (time::FormatDecimal(value, spec.precision, sign, scratch, &size) == ZQERR_COMMON_OK) {
    piece.length = size - 1;
  }
}

void FormatTypedDecimalArgument(const void* value, std::uint32_t type, const Spec& spec,
                                char* scratch, Piece& piece) noexcept {
  // A value of another type than the one named shows as nothing.
  if (time::DecimalTypeOf(value) == type) FormatDecimalArgument(value, spec, scratch, piece);
}

void FormatQuoted(const char* s, bool in_quotes, const Spec& spec, char* scratch,
                  Piece& piece) noexcept {
  if (s == nullptr) {
    piece.text = in_quotes ? "NULL" : "(NULL)";
    piece.length = std::strlen(piece.text);
  } else {
    std::size_t length = 0;
    std::size_t quotes = 0;
    for (; s[length] != '\0'; ++length)
      quotes += s[length] == '\'';
    if (quotes == 0 && !in_quotes) {
      piece.text = s;
      piece.length = length;
    } else {
      QuoteText(s, length, quotes, in_quotes, scratch, piece);
    }
  }
  // The precision cuts the quoted text, quotes included.
  if (spec.precision >= 0 && piece.length > static_cast<std::size_t>(spec.precision)) {
    piece.length = static_cast<std::size_t>(spec.precision);
  }
}

void FormatDump(const unsigned char* bytes, const Spec& spec, const Conversion& c, char* scratch,
                Piece& piece) noexcept {
  // The precision is the byte count; the alternate form shows hex pairs.
  const std::size_t count = spec.precision < 0 ? 16 : static_cast<std::size_t>(spec.precision);
  if (bytes == nullptr || count == 0) return;
  const std::size_t needed = spec.alternate ? 3 * count - 1 : count;
  char* buffer = TextBuffer(needed, scratch, piece);
  if (buffer == nullptr) return;
  if (spec.alternate) {
    const char* digits = kDigitSet + c.digits;
    char* p = buffer;
    for (std::size_t i = 0; i < count; ++i) {
      *p++ = digits[bytes[i] >> 4];
      *p++ = digits[bytes[i] & 0xF];
      if (i + 1 < count) *p++ = ' ';
    }
  } else {
    for (std::size_t i = 0; i < count; ++i) {
      buffer[i] = bytes[i] < 0x20 ? '.' : static_cast<char>(bytes[i]);
    }
  }
  piece.text = buffer;
  piece.length = needed;
}

void FormatResult(std::uint32_t code, char* scratch, Piece& piece) noexcept {
  // "0x<hex>-'<text>'"
  char* p = scratch;
  *p++ = '0';
  *p++ = 'x';
  char digits[16];
  char* end = digits + sizeof(digits);
  char* start = PutDigits(code, 16, kUpper, end);
  std::memcpy(p, start, static_cast<std::size_t>(end - start));
  p += end - start;
  *p++ = '-';
  *p++ = '\'';
  const char* text = DescribeResult(code);
  const std::size_t room = kScratchSize - static_cast<std::size_t>(p - scratch) - 1;
  const std::size_t length = strnlen(text, room);
  std::memcpy(p, text, length);
  p += length;
  *p++ = '\'';
  piece.text = scratch;
  piece.length = static_cast<std::size_t>(p - scratch);
}

void FormatSystemError(std::uint32_t code, char* scratch, Piece& piece) noexcept {
  // "<number>-'<message on one line>'", or the number alone without a message.
  const auto number = static_cast<std::int32_t>(code);
  char* end = scratch + 16;
  char* start =
      PutDigits(number < 0 ? 0 - static_cast<std::uint64_t>(number) : code, 10, kUpper, end);
  if (number < 0) *--start = '-';
  std::size_t length = static_cast<std::size_t>(end - start);
  std::memmove(scratch, start, length);
  piece.text = scratch;
  piece.length = length;
  // The message goes after "-'" and leaves room for the closing quote.
  char* message = scratch + length + 2;
  std::size_t size = os::SystemErrorText(number, message, kScratchSize - length - 3);
  while (size > 0 && (message[size - 1] == '\r' || message[size - 1] == '\n'))
    --size;
  if (size == 0) return;
  for (std::size_t i = 0; i < size; ++i) {
    if (message[i] == '\r' || message[i] == '\n') message[i] = ' ';
  }
  scratch[length] = '-';
  scratch[length + 1] = '\'';
  message[size] = '\'';
  piece.length = length + 2 + size + 1;
}

void FormatHex(std::uint64_t value, char* scratch, Piece& piece) noexcept {
  char* const end = scratch + kScratchSize;
  char* start = PutDigits(value, 16, kUpper, end);
  *--start = 'x';
  *--start = '0';
  piece.text = start;
  piece.length = static_cast<std::size_t>(end - start);
}

}  // namespace zq::common::printf_detail
