// Time values from text: "year/month/day" and an optional
// "hour:minute[:second][.millisecond]", blanks and tabs around every part.
#include <cstdint>

#include "time/time_value.h"
#include "zqsys/zqerr.h"

namespace zq::time {
namespace {

class TimeText {
 public:
  explicit TimeText(const char* text) noexcept : at_(text) {}

  // Blanks, a run of digits worth at most `max`, blanks. Long runs stop
  // growing once past the limit, so no digit count can overflow.
  bool Number(std::uint32_t max, std::uint32_t& out) noexcept {
    SkipBlanks();
    if (!IsDigit(*at_)) return false;
    std::uint32_t value = 0;
    for (; IsDigit(*at_); ++at_) {
      if (value <= max) value = value * 10 + static_cast<std::uint32_t>(*at_ - '0');
    }
    SkipBlanks();
    out = value;
    return value <= max;
  }

  // Blanks, then the separator and the blanks after it.
  bool Separator(char separator) noexcept {
    SkipBlanks();
    if (*at_ != separator) return false;
    ++at_;
    SkipBlanks();
    return true;
  }

  bool AtEnd() noexcept {
    SkipBlanks();
    return *at_ == '\0';
  }

 private:
  static bool IsDigit(char c) noexcept { return c >= '0' && c <= '9'; }
  void SkipBlanks() noexcept {
    while (*at_ == ' ' || *at_ == '\t')
      ++at_;
  }

  const char* at_;
};

constexpr std::uint32_t kByteField = 0xFF;
constexpr std::uint32_t kWordField = 0xFFFF;
constexpr std::uint32_t kFirstYear = 1000;

}  // namespace

std::uint32_t ParseTime(const char* text, ZQTIME& out) noexcept {
  TimeText in(text);
  std::uint32_t year = 0, month = 0, day = 0;
  if (!in.Number(kWordField, year) || year < kFirstYear || !in.Separator('/') ||
      !in.Number(kByteField, month) || !in.Separator('/') || !in.Number(kByteField, day))
    return ZQERR_COMMON_WRONG_ARGUMENTS;
  ZQTIME value = kNullTime;
  value.year = static_cast<std::uint16_t>(year);
  value.month = static_cast<std::uint8_t>(month);
  value.day = static_cast<std::uint8_t>(day);
  if (!in.AtEnd()) {
    std::uint32_t hour = 0, minute = 0, second = 0, millisecond = 0;
    if (!in.Number(kByteField, hour) || !in.Separator(':') || !in.Number(kByteField, minute))
      return ZQERR_COMMON_WRONG_ARGUMENTS;
    if (in.Separator(':') && !in.Number(kByteField, second)) return ZQERR_COMMON_WRONG_ARGUMENTS;
    if (in.Separator('.') && !in.Number(kWordField, millisecond))
      return ZQERR_COMMON_WRONG_ARGUMENTS;
    if (!in.AtEnd()) return ZQERR_COMMON_WRONG_ARGUMENTS;
    value.hour = static_cast<std::uint8_t>(hour);
    value.minute = static_cast<std::uint8_t>(minute);
    value.second = static_cast<std::uint8_t>(second);
    value.millisecond = static_cast<std::uint16_t>(millisecond);
    // A date alone is taken as it stands; a full value must be a valid one.
    if (!IsValidTime(value)) return ZQERR_COMMON_WRONG_ARGUMENTS;
  }
  out = value;
  return ZQERR_COMMON_OK;
}

}  // namespace zq::time
