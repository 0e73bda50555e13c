#include <gtest/gtest.h>

#include <cmath>
#include <cstdarg>
#include <cstring>
#include <string>
#include <vector>

#include "os/memory.h"
#include "zqsys/zqbcd.h"
#include "zqsys/zqerr.h"
#include "zqsys/zqprintf.h"
#include "zqsys/zqtime.h"

namespace {

std::string F(const char* format, ...) {
  char* text = nullptr;
  va_list args;
  va_start(args, format);
  const uint32_t length = ZqSysVMPrintf(&text, format, args);
  va_end(args);
  std::string result(text, length);
  ZqSysFreePrintfMemory(text);
  return result;
}

struct Case {
  std::string got;
  const char* want;
};

void ExpectAll(const std::vector<Case>& cases) {
  for (std::size_t i = 0; i < cases.size(); ++i) {
    EXPECT_EQ(cases[i].got, cases[i].want) << "case " << i;
  }
}

TEST(Printf, StandardConversionsFollowTheEngineRules) {
  int w = -6;
  ExpectAll({
      {F("%#x|%#o|%5.3d|%-4d|", 0, 8, 7, 7), "0|010|  007|7   |"},
      {F("%#08x|%#.4X|%#5o|%08.3d", 255, 255, 8, -7), "000000ff|00FF|  010|-0000007"},
      {F("%-05d|%+d|% d|%+ d|%u", 7, 5, 5, 5, -1), "00007|+5| 5|+5|4294967295"},
      {F("%d|%lld|%I64d|%I32d|%ld", INT32_MIN, INT64_MIN, -1LL, -2, -3L),
       "-2147483648|-9223372036854775808|-1|-2|-3"},
      {F("%llx|%lo|%.0d|%p", ~0ULL, 8L, 0, reinterpret_cast<void*>(0xABCDEF)),
       "ffffffffffffffff|10|0|ABCDEF"},
      {F("%*d|%-*d|%.*d|%.*d", w, 1, 3, 2, 3, 4, -2, 5), "1     |2  |004|05"},
      {F("%.3s|%s|%5s|%-5s|", "abcdef", static_cast<char*>(nullptr), "ab", "ab"),
       "abc||   ab|ab   |"},
      {F("%c%.3c%.0c|%5c", 'a', 'b', 'c', 'd'), "abbb|    d"},
      {F("%% %5% %y %d", 1), "%     % ???"},
      {F("100%"), "100%"},
      {F("%hd|", 1), "???"},
      {F("%I8d", 1), "???"},
  });
}

TEST(Printf, FloatsCarrySixteenDigitsAndPrintInfinityAsNaN) {
  ExpectAll({
      {F("%.20f", 0.1), "0.10000000000000000000"},
      {F("%f|%e|%g", INFINITY, -INFINITY, NAN), "NaN|NaN|NaN"},
      {F("%g|%g|%g|%g", 100000.0, 1000000.0, 0.0001, 0.00001), "100000|1e+06|0.0001|1e-05"},
      {F("%g|%#g|%.3g|%G", 0.0, 1.5, 3.14159, 1e-10), "0|1.50000|3.14|1E-10"},
      {F("%f|%.0f|%#.0f|%.2f", 0.0, 2.5, 2.0, 0.125), "0.000000|3|2.|0.13"},
      {F("%e|%.0e|%E|%e", 0.0, 12345.0, 1e300, 1e-300),
       "0.000000e+00|1e+04|1.000000E+300|1.000000e-300"},
      {F("%010.2f|%+08.1f|% .1f|%-8.1f|", -3.14159, 2.0, 2.0, 2.0),
       "-000003.14|+00002.0| 2.0|2.0     |"},
      {F("%.3f|%.3f|%f", 9.9996, 9.9994, 1e15), "10.000|9.999|1000000000000000.000000"},
      {F("%f", 1e300).substr(0, 20), "10000000000000000000"},
      {F("%g", 5e-324), "4.94066e-324"},
  });
}

TEST(Printf, LibraryConversions) {
  ZQTIME t = {2008, 3, 7, 9, 5, 1, 0, 42};
  ZQTIME zero_year = {0, 1, 2, 3, 4, 5, 0, 6};
  const unsigned char bytes[] = {0x01, 0xAB, 0xFF, 'a'};
  unsigned char decimal[ZQBCDII_SIZE(10, 2)];
  ZqBCDIIInit(reinterpret_cast<ZQBCDII*>(decimal), 10, 2);
  ZqBCDIIFromStr(reinterpret_cast<ZQBCDII*>(decimal), "-12.34");
  ExpectAll({
      {F("%R|%R|%R", 0x800Au, 0u, 2u),
       "0x800A-'DB:INVALID_TYPE'|0x0-'OK!'|0x2-'COMMON:WRONG_ARGUMENTS'"},
      {F("%r|%r|%r", 5u, 0x7FFFFFu, 0xFFFFFFFFu), "5-'Input/output error'|8388607|-1"},
      {F("%H|%H|%llH", 0u, 0xABCu, 0x123456789ULL), "0x0|0xABC|0x123456789"},
      {F("%t|%.7t|%#t|%#.4t|%.1t|%.0t|", &t, &t, &t, &t, &t, &t),
       "2008/03/07 09:05:01|2008/03/07 09:05:01.042|09:05:01|09:05:01.042|2008||"},
      {F("%.7t|%22t", &zero_year, &t), "0000/01/02 03:04:05.006|   2008/03/07 09:05:01"},
      {F("%t%d", static_cast<ZQTIME*>(nullptr), 5), "5"},
      {F("%#.3Z|%#.3z|%.4z|%z|%.0Z", bytes, bytes, bytes, nullptr, bytes),
       "01 AB FF|01 ab ff|.\xAB\xFF"
       "a||"},
      {F("%q|%Q|%q|%Q|%.4Q", "it's", "it's", nullptr, nullptr, "it's"),
       "it''s|'it''s'|(NULL)|NULL|'it'"},
      {F("%B|%.1B|%+B|%B", decimal, decimal, decimal, nullptr), "-12.34|-12.3|-12.34|"},
      {F("%b|%b|%b%d", decimal, ZQBCDII_TYPE(10, 2), decimal, ZQBCDII_TYPE(9, 2), nullptr, 7),
       "-12.34||7"},
      {F("%b%d", nullptr, 7), "7"},
  });
}

TEST(Printf, WidthsAndPrecisionsStopAtTheirLimits) {
  EXPECT_EQ(F("%5000d", 1).size(), 990u);
  EXPECT_EQ(F("%.5000d", 1).size(), 960u);
  EXPECT_EQ(F("%.5000f", 1.0).size(), 962u);
  EXPECT_EQ(F("%0999999999999d", 1).size(), 990u);
  std::string long_text(3000, 'q');
  long_text[1500] = '\'';
  EXPECT_EQ(F("%.2000s", long_text.c_str()).size(), 2000u);
  EXPECT_EQ(F("%Q", long_text.c_str()).size(), 3003u);
  EXPECT_EQ(F("%#.2000Z", long_text.data()).size(), 5999u);
  int count = -1;
  EXPECT_EQ(F("%5d%n|%s", 1, &count, "x"), "    1|x");
  EXPECT_EQ(count, 5);
}

TEST(Printf, FixedBufferTruncatesAndAlwaysTerminates) {
  char buffer[32];
  std::memset(buffer, '#', sizeof(buffer));
  EXPECT_EQ(ZqSysSNPrintf(buffer, 10, "%s", "01234567890123456789"), 9);
  EXPECT_STREQ(buffer, "012345678");
  EXPECT_EQ(buffer[10], '#');
  EXPECT_EQ(ZqSysSNPrintf(buffer, 1, "abc"), 0);
  EXPECT_STREQ(buffer, "");
  EXPECT_EQ(ZqSysSNPrintf(buffer, 32, ""), 0);
  EXPECT_STREQ(buffer, "");
  EXPECT_EQ(ZqSysSNPrintf(nullptr, 32, "abc"), 0);
  EXPECT_EQ(ZqSysSNPrintf(buffer, 8, "%20d|", 5), 7);
  EXPECT_STREQ(buffer, "       ");
}

TEST(Printf, GrowingTextNeedsOneAllocationWhenShort) {
  // Arm the second allocation to fail: a short text uses only the first.
  zq::os::FailAllocationAfter(2);
  char* text = nullptr;
  EXPECT_EQ(ZqSysMPrintf(&text, "%150s", "x"), 150u);
  void* second = zq::os::Allocate(1);
  zq::os::FailAllocationAfter(-1);
  EXPECT_EQ(second, nullptr);
  ASSERT_NE(text, nullptr);
  EXPECT_EQ(std::strlen(text), 150u);
  ZqSysFreePrintfMemory(text);

  // Long texts grow piece by piece and keep every piece.
  std::string piece(700, 'p');
  const std::string expected = piece + "|" + piece + "|" + std::string(5, 'z');
  EXPECT_EQ(F("%s|%s|%.5s", piece.c_str(), piece.c_str(), "zzzzzzzzz"), expected);

  for (int failing = 1; failing <= 3; ++failing) {
    zq::os::FailAllocationAfter(failing);
    text = reinterpret_cast<char*>(1);
    const uint32_t length = ZqSysMPrintf(&text, "%s%s%s", piece.c_str(), piece.c_str(), "tail");
    zq::os::FailAllocationAfter(-1);
    if (text != nullptr) {
      EXPECT_EQ(length, 1404u) << failing;  // a failed shrink keeps the larger block
      ZqSysFreePrintfMemory(text);
    } else {
      EXPECT_EQ(length, 0u) << failing;
    }
  }
  EXPECT_EQ(ZqSysFreePrintfMemory(nullptr), 0u);
}

TEST(Printf, PrintWritesToStandardOutput) {
  testing::internal::CaptureStdout();
  EXPECT_EQ(ZqSysPrintf("%s=%d", "answer", 42), 9);
  EXPECT_EQ(ZqSysPrintf("%s", ""), 0);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "answer=42");
}

struct TypeCase {
  const char* type;
  int32_t width;
  uint8_t scale;
  std::vector<unsigned char> value;
  uint8_t flags;
  uint32_t rc;
  uint32_t needed;
  const char* text;
};

template <class T>
std::vector<unsigned char> Bytes(const T& value) {
  std::vector<unsigned char> bytes(sizeof(T));
  std::memcpy(bytes.data(), &value, sizeof(T));
  return bytes;
}

TEST(TypeToStr, EveryTypeLetter) {
  const ZQTIME t = {2008, 3, 7, 9, 5, 1, 0, 42};
  std::vector<unsigned char> decimal(ZQBCDII_SIZE(5, 2));
  ZqBCDIIInit(reinterpret_cast<ZQBCDII*>(decimal.data()), 5, 2);
  ZqBCDIIFromStr(reinterpret_cast<ZQBCDII*>(decimal.data()), "-123.45");
  const std::vector<unsigned char> z = {3, 0, 0, 0, 0x01, 0xAB, 0xFF, 0x99};
  const std::vector<TypeCase> cases = {
      {"a", 1, 0, {'x'}, 0, 0, 2, "x"},
      {"a", 1, 0, {'x', 'y'}, 0, 2, 0, nullptr},
      {"c64", 64, 0, {'a', 'b', 0, 'c'}, 0, 0, 3, "ab"},
      {"c", 3, 0, {'a', 'b', 'c'}, 0, 0, 4, "abc"},
      {"d", 5, 2, decimal, 0, 0, 8, "-123.45"},
      {"s", 5, 2, decimal, 0, 0, 8, "-123.45"},
      {"d", 6, 2, decimal, 0, 2, 0, nullptr},
      {"d", 0, 0, decimal, 0, 0x800A, 0, nullptr},
      {"f", 8, 0, Bytes(-1234.5), 0, 0, 23, "-1.234500000000e+03"},
      {"f", 8, 0, {1, 2, 3, 4}, 0, 2, 23, nullptr},
      {"i1", 1, 0, Bytes(int8_t{-128}), 0, 0, 5, "-128"},
      {"i2", 2, 0, Bytes(int16_t{-32768}), 0, 0, 7, "-32768"},
      {"i4", 4, 0, Bytes(INT32_MIN), 0, 0, 12, "-2147483648"},
      {"i8", 8, 0, Bytes(INT64_MIN), 0, 0, 22, "-9223372036854775808"},
      {"u1", 1, 0, Bytes(uint8_t{255}), 0, 0, 4, "255"},
      {"u8", 8, 0, Bytes(UINT64_MAX), 0, 0, 21, "18446744073709551615"},
      {"i3", 3, 0, Bytes(0), 0, 0x800A, 0, nullptr},
      {"t", 10, 0, Bytes(t), 0, 0, 24, "2008/03/07 09:05:01.042"},
      {"t", 10, 0, {0}, 0, 2, 0, nullptr},
      {"b3", 3, 0, {0x01, 0xAB, 0xFF}, 0, 0, 9, "01 AB FF"},
      {"b3", 3, 0, {0x01, 0xAB, 0xFF}, 1, 0, 7, "01ABFF"},
      {"b0", 0, 0, {}, 0, 0, 1, ""},
      {"z", 8, 0, z, 1, 0, 7, "01ABFF"},
      {"z", 8, 0, {5, 0, 0, 0, 1}, 0, 2, 0, nullptr},
      {"z", 8, 0, {5, 0}, 0, 2, 0, nullptr},
      {"w", 2, 0, {0, 0}, 0, 0x800A, 0, nullptr},
      {"A", 1, 0, {'x'}, 0, 0x800A, 0, nullptr},
  };
  for (const TypeCase& c : cases) {
    SCOPED_TRACE(c.type);
    const void* value = c.value.empty() ? static_cast<const void*>("") : c.value.data();
    const auto value_size = static_cast<uint32_t>(c.value.size());
    char out[64];
    uint32_t size = sizeof(out);
    ASSERT_EQ(ZqTypeToStr(out, &size, c.type, c.width, c.scale, value, value_size, c.flags), c.rc);
    if (c.text == nullptr) {
      if (c.needed != 0) {
        EXPECT_EQ(size, c.needed);
      }
      continue;
    }
    EXPECT_STREQ(out, c.text);
    EXPECT_EQ(size, std::strlen(c.text) + 1);
    // A null buffer asks for the size; a small one is refused with it.
    uint32_t needed = 0;
    EXPECT_EQ(ZqTypeToStr(nullptr, &needed, c.type, c.width, c.scale, value, value_size, c.flags),
              ZQERR_COMMON_REAL_SIZE_RETURNED);
    EXPECT_EQ(needed, c.needed);
    size = needed - 1;
    EXPECT_EQ(ZqTypeToStr(out, &size, c.type, c.width, c.scale, value, value_size, c.flags),
              ZQERR_COMMON_BUFFER_TOO_SMALL);
    EXPECT_EQ(size, c.needed);
  }
  uint32_t size = 0;
  const int64_t v = 1;
  EXPECT_EQ(ZqTypeToStr(nullptr, &size, "i", 8, 0, &v, 8, 0), ZQERR_COMMON_REAL_SIZE_RETURNED);
  EXPECT_EQ(size, 22u);
  EXPECT_EQ(ZqTypeToStr(nullptr, nullptr, "i", 8, 0, &v, 8, 0), ZQERR_COMMON_WRONG_ARGUMENTS);
  EXPECT_EQ(ZqTypeToStr(nullptr, &size, nullptr, 8, 0, &v, 8, 0), ZQERR_COMMON_WRONG_ARGUMENTS);
  EXPECT_EQ(ZqTypeToStr(nullptr, &size, "i", 8, 0, nullptr, 8, 0), ZQERR_COMMON_WRONG_ARGUMENTS);
}

}  // namespace
