// Format strings built from fuzz bytes, each conversion with an argument of
// the type it takes from a fixed pool. Input: records of
//   flags, width mode, precision mode, length modifier, conversion, buffer
//   size, 8 value bytes, and literal text up to the next NUL.
// Each record is formatted into a fixed buffer of the given size and into a
// growing text, and the two are checked against each other.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "zqsys/zqbcd.h"
#include "zqsys/zqprintf.h"
#include "zqsys/zqtime.h"

namespace {

constexpr char kConversions[] = "dsBbtqQcouxXfeEgGzZRrHin%pIyh";
constexpr const char* kLengths[] = {"", "", "l", "ll", "I32", "I64", "I", "h"};
constexpr std::size_t kPoolBytes = 4096;

struct Record {
  std::uint8_t flags, width_mode, precision_mode, length, conversion, size;
  std::uint8_t value[8];
  std::string literal;
};

struct Pool {
  unsigned char bytes[kPoolBytes];
  unsigned char decimal[ZQBCDII_MAX_SIZE];
  ZQTIME time;
  int count = 0;
};

bool NextRecord(const std::uint8_t*& data, std::size_t& size, Record& r) {
  if (size < 14) return false;
  r.flags = data[0];
  r.width_mode = data[1];
  r.precision_mode = data[2];
  r.length = data[3];
  r.conversion = data[4];
  r.size = data[5];
  std::memcpy(r.value, data + 6, 8);
  data += 14;
  size -= 14;
  const auto* end = static_cast<const std::uint8_t*>(std::memchr(data, 0, size));
  const std::size_t n = end != nullptr ? static_cast<std::size_t>(end - data) : size;
  r.literal.assign(reinterpret_cast<const char*>(data), n);
  for (char& c : r.literal) {
    if (c == '%') c = '_';  // literal text only; conversions come from the record
  }
  data += n < size ? n + 1 : n;
  size -= n < size ? n + 1 : n;
  return true;
}

// The format of a record: literal, one conversion, literal.
std::string FormatOf(const Record& r, int& width_arg, int& precision_arg) {
  std::string format = r.literal + "%";
  static constexpr char kFlags[] = "-+ #0";
  for (int i = 0; i < 5; ++i) {
    if (r.flags & (1u << i)) format += kFlags[i];
  }
  width_arg = static_cast<int8_t>(r.value[7]) * 9;
  switch (r.width_mode % 4) {
    case 1:
      format += std::to_string(r.width_mode * 5);
      break;
    case 2:
      format += "*";
      break;
    case 3:
      format += "99999999999";
      break;
    default:
      break;
  }
  precision_arg = static_cast<int8_t>(r.value[6]) * 17;
  switch (r.precision_mode % 5) {
    case 1:
      format += "." + std::to_string(r.precision_mode * 7);
      break;
    case 2:
      format += ".*";
      break;
    case 3:
      format += ".";
      break;
    case 4:
      format += ".99999999999";
      break;
    default:
      break;
  }
  format += kLengths[r.length % 8];
  format += kConversions[r.conversion % (sizeof(kConversions) - 1)];
  return format + r.literal;
}

// Calls `print` with the width and precision arguments the format asks
// for, then `value`.
template <class Print, class T>
void WithStars(const Record& r, int width, int precision, Print print, T value) {
  const bool w = r.width_mode % 4 == 2;
  const bool p = r.precision_mode % 5 == 2;
  if (w && p) {
    print(width, precision, value);
  } else if (w) {
    print(width, value);
  } else if (p) {
    print(precision, value);
  } else {
    print(value);
  }
}

void Run(const Record& r, Pool& pool) {
  int width = 0, precision = 0;
  const std::string format = FormatOf(r, width, precision);
  const char conversion = format[format.size() - r.literal.size() - 1];
  const char* length = kLengths[r.length % 8];
  const bool wide = std::strcmp(length, "ll") == 0 || std::strcmp(length, "I64") == 0 ||
                    (std::strcmp(length, "l") == 0 && sizeof(long) == 8);
  std::uint64_t bits;
  std::memcpy(&bits, r.value, 8);
  // A dump reads as many bytes as its precision: keep that inside the pool.
  const bool dump = conversion == 'z' || conversion == 'Z';
  if (dump && r.precision_mode % 5 == 4) return;

  auto print = [&](auto... args) {
    char buffer[256];
    const std::uint32_t size = r.size;
    const std::int32_t stored = ZqSysSNPrintf(buffer, size, format.c_str(), args...);
    char* text = nullptr;
    const std::uint32_t length = ZqSysMPrintf(&text, format.c_str(), args...);
    if (text == nullptr) std::abort();
    if (size > 0) {
      const std::uint32_t kept = length < size - 1 ? length : size - 1;
      if (static_cast<std::uint32_t>(stored) != kept || std::memcmp(buffer, text, kept) != 0) {
        std::abort();  // the two sinks must agree on every kept byte
      }
    }
    ZqSysFreePrintfMemory(text);
  };
  switch (conversion) {
    case 'd':
    case 'i':
    case 'o':
    case 'u':
    case 'x':
    case 'X':
    case 'H':
      if (wide) {
        WithStars(r, width, precision, print, static_cast<unsigned long long>(bits));
      } else {
        WithStars(r, width, precision, print, static_cast<unsigned>(bits));
      }
      break;
    case 'c':
    case 'R':
    case 'r':
      WithStars(r, width, precision, print, static_cast<unsigned>(bits));
      break;
    case 'f':
    case 'e':
    case 'E':
    case 'g':
    case 'G': {
      double value;
      std::memcpy(&value, &bits, sizeof(value));
      WithStars(r, width, precision, print, value);
      break;
    }
    case 's':
    case 'q':
    case 'Q':
      WithStars(r, width, precision, print,
                bits % 5 == 0 ? static_cast<const char*>(nullptr) : r.literal.c_str());
      break;
    case 'z':
    case 'Z':
      WithStars(r, width, precision, print, bits % 7 == 0 ? nullptr : pool.bytes);
      break;
    case 't':
      std::memcpy(&pool.time, r.value, 8);
      pool.time.millisecond = static_cast<std::uint16_t>(bits >> 48);
      WithStars(r, width, precision, print, bits % 9 == 0 ? nullptr : &pool.time);
      break;
    case 'B':
      WithStars(r, width, precision, print, bits % 3 == 0 ? nullptr : pool.decimal);
      break;
    case 'b':
      if (bits % 3 == 0) {
        WithStars(r, width, precision, print, static_cast<void*>(nullptr));
      } else {
        const auto type = static_cast<unsigned>(bits % 2 == 0 ? ZQBCDII_TYPE(20, 4) : bits >> 32);
        auto typed = [&](auto... args) { print(args..., type); };
        WithStars(r, width, precision, typed, static_cast<void*>(pool.decimal));
      }
      break;
    case 'n':
      WithStars(r, width, precision, print, &pool.count);
      break;
    case 'p':
      WithStars(r, width, precision, print, reinterpret_cast<void*>(bits));
      break;
    default:  // unknown conversions and "%%" take no argument
      WithStars(r, width, precision, print, 0);
      break;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Pool pool = [] {
    Pool p;
    for (std::size_t i = 0; i < kPoolBytes; ++i)
      p.bytes[i] = static_cast<unsigned char>(i * 37);
    ZqBCDIIInit(reinterpret_cast<ZQBCDII*>(p.decimal), 20, 4);
    ZqBCDIIFromStr(reinterpret_cast<ZQBCDII*>(p.decimal), "-1234567.8912");
    return p;
  }();
  Record record;
  while (NextRecord(data, size, record))
    Run(record, pool);
  return 0;
}
