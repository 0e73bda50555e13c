// The exported functions of formatted output.
#include <cstdio>
#include <cstring>

#include "common/printf_engine.h"
#include "common/type_table.h"
#include "os/memory.h"
#include "time/decimal.h"
#include "zqsys/zqerr.h"
#include "zqsys/zqprintf.h"
#include "zqsys/zqtime.h"

namespace {

using zq::common::FormatToBuffer;
using zq::common::FormatToBufferF;
using zq::common::FormatToHeap;
using zq::common::ValueText;

// A value's text in a caller's buffer, as ZqTypeToStr describes it.
class TypeText {
 public:
  TypeText(const char* type, std::int32_t width, std::uint8_t scale, const void* value,
           std::uint32_t value_size, std::uint8_t flags) noexcept
      : letter_(type[0]),
        form_(FormOf(type[0])),
        width_(width),
        scale_(scale),
        bytes_(static_cast<const unsigned char*>(value)),
        value_size_(value_size),
        hex_pairs_((flags & 1u) != 0) {}

  // The size the text needs, or a result code.
  std::uint32_t Measure(std::uint64_t& required) noexcept {
    switch (form_) {
      case ValueText::kCharacter:
        if (value_size_ != 1) return ZQERR_COMMON_WRONG_ARGUMENTS;
        required = TextSize();
        return 0;
      case ValueText::kText:
        required = strnlen(reinterpret_cast<const char*>(bytes_), value_size_) + 1;
        return 0;
      case ValueText::kDecimal:
        if (width_ < 0 || !zq::time::IsDecimalType(static_cast<std::uint32_t>(width_), scale_)) {
          return ZQERR_DB_INVALID_TYPE;
        }
        if (zq::time::DecimalTypeOf(bytes_) != static_cast<std::uint32_t>(width_) * 256 + scale_) {
          return ZQERR_COMMON_WRONG_ARGUMENTS;
        }
        required = static_cast<std::uint64_t>(width_) + 3;
        return 0;
      case ValueText::kDouble:
        required = TextSize();
        return value_size_ == 8 ? 0 : ZQERR_COMMON_WRONG_ARGUMENTS;
      case ValueText::kSigned:
      case ValueText::kUnsigned:
        return MeasureInteger(required);
      case ValueText::kTime:
        if (value_size_ != sizeof(ZQTIME)) return ZQERR_COMMON_WRONG_ARGUMENTS;
        required = TextSize();
        return 0;
      case ValueText::kDump:
        dump_count_ = value_size_;
        dump_ = bytes_;
        return MeasureDump(required);
      case ValueText::kCountedDump: {
        std::uint32_t count = 0;
        if (value_size_ < sizeof(count)) return ZQERR_COMMON_WRONG_ARGUMENTS;
        std::memcpy(&count, bytes_, sizeof(count));
        if (count > value_size_ - sizeof(count)) return ZQERR_COMMON_WRONG_ARGUMENTS;
        dump_count_ = count;
        dump_ = bytes_ + sizeof(count);
        return MeasureDump(required);
      }
      case ValueText::kNone:
        break;
    }
    return ZQERR_DB_INVALID_TYPE;
  }

  // A double's measured size is reported even when its value size is wrong.
  bool ReportsSizeOnFailure() const noexcept { return form_ == ValueText::kDouble; }

  // Writes the text into a buffer of at least the measured size; returns
  // its length.
  std::uint32_t Write(char* out, std::uint32_t size) noexcept {
    switch (form_) {
      case ValueText::kCharacter:
        out[0] = static_cast<char>(bytes_[0]);
        out[1] = '\0';
        return 1;
      case ValueText::kText: {
        const std::size_t length = strnlen(reinterpret_cast<const char*>(bytes_), value_size_);
        std::memcpy(out, bytes_, length);
        out[length] = '\0';
        return static_cast<std::uint32_t>(length);
      }
      case ValueText::kDecimal: {
        std::uint32_t needed = size;
        zq::time::FormatDecimal(bytes_, -1, zq::time::kDecimalSignNegativeOnly, out, &needed);
        return needed - 1;
      }
      case ValueText::kDouble: {
        double value;
        std::memcpy(&value, bytes_, sizeof(value));
        return FormatToBufferF(out, size, "%.12e", value);
      }
      case ValueText::kSigned:
        return FormatToBufferF(out, size, "%I64d", static_cast<long long>(ReadSigned()));
      case ValueText::kUnsigned:
        return FormatToBufferF(out, size, "%I64u", static_cast<unsigned long long>(ReadUnsigned()));
      case ValueText::kTime: {
        ZQTIME time;
        std::memcpy(&time, bytes_, sizeof(time));
        return FormatToBufferF(out, size, "%.7t", &time);
      }
      default:
        return WriteDump(out, size);
    }
  }

 private:
  std::uint32_t MeasureInteger(std::uint64_t& required) const noexcept {
    // Sizes of the longest text of each width, terminator included.
    static constexpr std::uint8_t kSigned[] = {5, 7, 12, 22};
    static constexpr std::uint8_t kUnsigned[] = {4, 6, 11, 21};
    int index;
    switch (width_) {
      case 1:
        index = 0;
        break;
      case 2:
        index = 1;
        break;
      case 4:
        index = 2;
        break;
      case 8:
        index = 3;
        break;
      default:
        return ZQERR_DB_INVALID_TYPE;
    }
    required = form_ == ValueText::kSigned ? kSigned[index] : kUnsigned[index];
    return 0;
  }

  std::uint32_t MeasureDump(std::uint64_t& required) const noexcept {
    required = hex_pairs_ ? 2ull * dump_count_ + 1 : 3ull * dump_count_;
    if (required == 0) required = 1;  // the empty text still needs its terminator
    // The dump's byte count travels as a printf precision.
    if (required > INT32_MAX) return ZQERR_COMMON_WRONG_ARGUMENTS;
    return 0;
  }

  std::uint32_t WriteDump(char* out, std::uint32_t size) const noexcept {
    if (!hex_pairs_)
      return FormatToBufferF(out, size, "%#.*Z", static_cast<int>(dump_count_), dump_);
    static constexpr char kHex[] = "0123456789ABCDEF";
    for (std::size_t i = 0; i < dump_count_; ++i) {
      out[2 * i] = kHex[dump_[i] >> 4];
      out[2 * i + 1] = kHex[dump_[i] & 0xF];
    }
    out[2 * std::size_t{dump_count_}] = '\0';
    return 2 * dump_count_;
  }

  std::int64_t ReadSigned() const noexcept {
    switch (width_) {
      case 1:
        return static_cast<std::int8_t>(bytes_[0]);
      case 2:
        return Read<std::int16_t>();
      case 4:
        return Read<std::int32_t>();
      default:
        return Read<std::int64_t>();
    }
  }

  std::uint64_t ReadUnsigned() const noexcept {
    switch (width_) {
      case 1:
        return bytes_[0];
      case 2:
        return Read<std::uint16_t>();
      case 4:
        return Read<std::uint32_t>();
      default:
        return Read<std::uint64_t>();
    }
  }

  template <class T>
  T Read() const noexcept {
    T value;
    std::memcpy(&value, bytes_, sizeof(value));
    return value;
  }

  // The letter's row, or none for a letter without a text form.
  static ValueText FormOf(char letter) noexcept {
    const zq::common::TypeInfo* type = zq::common::FindType(letter);
    return type != nullptr ? type->valueText : ValueText::kNone;
  }
  std::uint32_t TextSize() const noexcept { return zq::common::FindType(letter_)->textSize; }

  char letter_;
  ValueText form_;
  std::int32_t width_;
  std::uint8_t scale_;
  const unsigned char* bytes_;
  std::uint32_t value_size_;
  bool hex_pairs_;
  const unsigned char* dump_ = nullptr;
  std::uint32_t dump_count_ = 0;
};

}  // namespace

extern "C" {

ZQ_API int32_t ZqSysSNPrintf(char* buffer, uint32_t size, const char* format, ...) {
  if (buffer == nullptr || size == 0) return 0;
  va_list args;
  va_start(args, format);
  const uint32_t length = FormatToBuffer(buffer, size, format, args);
  va_end(args);
  return static_cast<int32_t>(length);
}

ZQ_API uint32_t ZqSysVSNPrintf(char* buffer, uint32_t size, const char* format, va_list args) {
  if (buffer == nullptr || size == 0) return 0;
  return FormatToBuffer(buffer, size, format, args);
}

ZQ_API uint32_t ZqSysMPrintf(char** result, const char* format, ...) {
  if (result == nullptr) return 0;
  va_list args;
  va_start(args, format);
  const uint32_t length = FormatToHeap(result, format, args);
  va_end(args);
  return length;
}

ZQ_API uint32_t ZqSysVMPrintf(char** result, const char* format, va_list args) {
  if (result == nullptr) return 0;
  return FormatToHeap(result, format, args);
}

ZQ_API uint32_t ZqSysFreePrintfMemory(char* text) {
  zq::os::Release(text);
  return ZQERR_COMMON_OK;
}

ZQ_API int32_t ZqSysVPrintf(const char* format, va_list args) {
  char* text = nullptr;
  const uint32_t length = FormatToHeap(&text, format, args);
  if (length >= 1 && text != nullptr) std::fwrite(text, 1, length, stdout);
  zq::os::Release(text);
  return static_cast<int32_t>(length);
}

ZQ_API int32_t ZqSysPrintf(const char* format, ...) {
  va_list args;
  va_start(args, format);
  const int32_t length = ZqSysVPrintf(format, args);
  va_end(args);
  return length;
}

ZQ_API uint32_t ZqTypeToStr(char* out, uint32_t* size, const char* type, int32_t width,
                            uint8_t scale, const void* value, uint32_t valueSize, uint8_t flags) {
  if (size == nullptr || type == nullptr || value == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  if (type[0] < 'a' || type[0] > 'z') return ZQERR_DB_INVALID_TYPE;
  TypeText text(type, width, scale, value, valueSize, flags);
  std::uint64_t required = 0;
  const uint32_t rc = text.Measure(required);
  if (rc != 0 && text.ReportsSizeOnFailure()) *size = static_cast<uint32_t>(required);
  if (rc != 0) return rc;
  if (out == nullptr || *size < required) {
    *size = static_cast<uint32_t>(required);
    return out == nullptr ? ZQERR_COMMON_REAL_SIZE_RETURNED : ZQERR_COMMON_BUFFER_TOO_SMALL;
  }
  *size = text.Write(out, *size) + 1;
  return 0;
}

}  // extern "C"
