// Decimal values through the exported functions.
#include "zqsys/zqbcd.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<std::uint8_t>;
constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kMin = std::numeric_limits<std::int64_t>::min();

struct Value {
  std::array<std::uint8_t, ZQBCDII_MAX_SIZE + 4> bytes{};
  ZQBCDII* get() { return reinterpret_cast<ZQBCDII*>(bytes.data()); }
  const ZQBCDII* get() const { return reinterpret_cast<const ZQBCDII*>(bytes.data()); }
  Bytes Stored() const {
    return Bytes(bytes.begin(), bytes.begin() + ZQBCDII_SIZE(bytes[1], bytes[0] & 0x7F));
  }
};

Value Make(std::uint32_t p, std::uint32_t s, const char* text) {
  Value v;
  EXPECT_EQ(ZqBCDIIInit(v.get(), p, s), 0u);
  EXPECT_EQ(ZqBCDIIFromStr(v.get(), text), 0u) << text;
  return v;
}

// The formatted text, or "#" and the result code.
std::string Text(const Value& v, std::int32_t precision = -1, std::uint32_t sign_mode = 0) {
  char buffer[600];
  std::uint32_t size = sizeof buffer;
  const std::uint32_t rc = ZqBCDIIFormat(v.get(), precision, sign_mode, buffer, &size);
  if (rc != 0) return "#" + std::to_string(rc);
  EXPECT_EQ(size, std::char_traits<char>::length(buffer) + 1);
  return buffer;
}

TEST(DecimalTest, InitWritesExactlyTheSizeOfTheType) {
  struct Case {
    std::uint32_t p, s, size;  // size 0: an invalid type
  } cases[] = {{26, 2, 15}, {9, 2, 7},       {1, 0, 3},     {2, 0, 3}, {2, 1, 4},
               {3, 3, 4},   {255, 127, 130}, {254, 0, 129}, {0, 0, 0}, {256, 0, 0},
               {5, 6, 0},   {200, 128, 0},   {0x101, 0, 0}};
  for (const auto& c : cases) {
    Value v;
    v.bytes.fill(0xEE);
    ASSERT_EQ(ZqBCDIIInit(v.get(), c.p, c.s), c.size ? 0u : 2u) << c.p << "." << c.s;
    if (c.size == 0) continue;
    EXPECT_EQ(ZQBCDII_SIZE(c.p, c.s), c.size);
    Bytes expected(c.size, 0);
    expected[0] = static_cast<std::uint8_t>(c.s);
    expected[1] = static_cast<std::uint8_t>(c.p);
    EXPECT_EQ(v.Stored(), expected);
    EXPECT_EQ(v.bytes[c.size], 0xEE) << "wrote past the value";
    std::uint32_t type = 0;
    EXPECT_EQ(ZqBCDIIGetType(v.get(), &type), 0u);
    EXPECT_EQ(type, ZQBCDII_TYPE(c.p, c.s));
  }
  EXPECT_EQ(ZqBCDIIInit(nullptr, 5, 2), 2u);
}

TEST(DecimalTest, StoredLayout) {
  struct Case {
    std::uint32_t p, s;
    const char* text;
    Bytes bytes;
  } cases[] = {
      {5, 2, "-123.45", {0x82, 0x05, 0x01, 0x23, 0x45}}, {4, 0, "1234", {0x00, 0x04, 0x12, 0x34}},
      {2, 1, "9.9", {0x01, 0x02, 0x00, 0x99}},           {3, 3, "-0.001", {0x83, 0x03, 0x00, 0x01}},
      {6, 2, "-0", {0x02, 0x06, 0x00, 0x00, 0x00}},
  };
  for (const auto& c : cases)
    EXPECT_EQ(Make(c.p, c.s, c.text).Stored(), c.bytes) << c.text;
}

TEST(DecimalTest, EveryTypeRoundTripsThroughText) {
  for (std::uint32_t p = 1; p <= 255; ++p) {
    for (std::uint32_t s = 0; s <= std::min(p, 127u); ++s) {
      std::string digits;
      for (std::uint32_t i = 0; i < p; ++i)
        digits += static_cast<char>('1' + (i + p) % 9);
      std::string text = (p + s) % 2 ? "-" : "";
      text += p > s ? digits.substr(0, p - s) : "0";
      if (s > 0) text += "." + digits.substr(p - s);
      ASSERT_EQ(Text(Make(p, s, text.c_str())), text) << p << "." << s;
    }
  }
}

TEST(DecimalTest, ParsingNormalisesAndRounds) {
  struct Case {
    std::uint32_t p, s;
    const char* text;
    const char* expected;
  } cases[] = {
      {5, 2, " \t+1.5  ", "1.50"}, {5, 2, "007", "7.00"},
      {5, 2, ".5", "0.50"},        {5, 2, "5.", "5.00"},
      {5, 2, "-0.004", "0.00"},    {5, 2, "-0.005", "-0.01"},
      {5, 2, "99.995", "100.00"},  {9, 3, "1.23449", "1.234"},
      {3, 0, "-12.5", "-13"},      {2, 1, "00000000000000000009.94", "9.9"},
      {3, 3, ".9994", "0.999"},
  };
  for (const auto& c : cases)
    EXPECT_EQ(Text(Make(c.p, c.s, c.text)), c.expected) << c.text;
}

TEST(DecimalTest, FailedParsingLeavesTheValueUnchanged) {
  struct Case {
    std::uint32_t p, s;
    const char* text;
    std::uint32_t rc;
  } cases[] = {{5, 2, "", 11},       {5, 2, " ", 11},        {5, 2, "-.", 11},
               {5, 2, "1.2.3", 11},  {5, 2, "1e5", 11},      {5, 2, "- 1", 11},
               {5, 2, "+-1", 11},    {5, 2, "1 2", 11},      {5, 2, "99999x", 11},
               {5, 2, "1000", 14},   {5, 2, "-999.995", 14}, {3, 3, "1", 14},
               {3, 3, "0.9995", 14}, {1, 0, "9.5", 14}};
  for (const auto& c : cases) {
    Value v = Make(c.p, c.s, "-0.5");
    const Bytes before = v.Stored();
    EXPECT_EQ(ZqBCDIIFromStr(v.get(), c.text), c.rc) << '"' << c.text << '"';
    EXPECT_EQ(v.Stored(), before) << c.text;
  }
}

TEST(DecimalTest, FormatRoundsPadsAndSigns) {
  struct Case {
    std::uint32_t p, s;
    const char* text;
    std::int32_t precision;
    std::uint32_t sign_mode;
    const char* expected;
  } cases[] = {
      {5, 2, "123.45", 0, 0, "123"},    {5, 2, "-123.45", 1, 0, "-123.5"},
      {5, 2, "123.44", 1, 0, "123.4"},  {5, 2, "123.45", 4, 0, "123.4500"},
      {5, 2, "999.95", 1, 0, "1000.0"}, {5, 2, "-999.50", 0, 0, "-1000"},
      {5, 2, "-0.04", 1, 0, "0.0"},     {5, 2, "-0.04", 1, 3, "+0.0"},
      {5, 2, "12.3", 3, 3, "+12.300"},  {5, 2, "-12.3", -1, 3, "-12.30"},
      {3, 3, "0.999", 2, 0, "1.00"},    {3, 3, "-0.5", 0, 3, "-1"},
      {1, 0, "0", 5, 0, "0.00000"},     {5, 2, "1", -2, 0, "#2"},
      {5, 2, "1", 256, 0, "#2"},        {5, 2, "1", 0, 1, "#2"},
      {5, 2, "1", 0, 4, "#2"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(Text(Make(c.p, c.s, c.text), c.precision, c.sign_mode), c.expected)
        << c.text << " precision " << c.precision << " mode " << c.sign_mode;
  }
  // The longest texts: 255 digits after the point, and a carry into a new digit.
  const std::string nines = std::string(128, '9') + ".9";
  const Value big = Make(255, 127, ("-" + nines).c_str());
  EXPECT_EQ(Text(big, 255), "-" + nines + std::string(254, '0'));
  EXPECT_EQ(Text(big, 0), "-1" + std::string(128, '0'));
}

TEST(DecimalTest, CopyOutConvention) {
  const Value v = Make(5, 2, "-123.45");  // needs 8 bytes
  struct Case {
    bool null_buffer;
    std::uint32_t size, rc;
  } cases[] = {{true, 100, 15}, {false, 0, 7}, {false, 7, 7}, {false, 8, 0}, {false, 16, 0}};
  for (const auto& c : cases) {
    char buffer[16] = "untouched";
    std::uint32_t size = c.size;
    EXPECT_EQ(ZqBCDIIToStr(v.get(), c.null_buffer ? nullptr : buffer, &size), c.rc) << c.size;
    EXPECT_EQ(size, 8u);
    EXPECT_STREQ(buffer, c.rc == 0 ? "-123.45" : "untouched");
  }
  char buffer[16];
  std::uint32_t size = 5;
  EXPECT_EQ(ZqBCDIIToStr(v.get(), buffer, nullptr), 2u);
  EXPECT_EQ(ZqBCDIIFormat(v.get(), 7, 9, buffer, &size), 2u);
  EXPECT_EQ(size, 5u) << "an argument error leaves the size alone";
  size = sizeof buffer;
  EXPECT_EQ(ZqBCDIIFormatTL(v.get(), ZQBCDII_TYPE(5, 2), 3, 1, 0, buffer, &size), 0u);
  EXPECT_STREQ(buffer, "-123.5");
  EXPECT_EQ(ZqBCDIIFormatTL(v.get(), ZQBCDII_TYPE(5, 2), 3, 1, 1, buffer, &size), 2u);
  EXPECT_EQ(ZqBCDIIFormatTL(v.get(), ZQBCDII_TYPE(5, 3), 3, 1, 0, buffer, &size), 2u);
}

TEST(DecimalTest, InvalidStoredBytesAreRejected) {
  struct Case {
    const char* what;
    Bytes bytes;
    bool header_valid;
  } cases[] = {
      {"precision 0", {0x00, 0x00, 0x00}, false},
      {"scale above precision", {0x05, 0x03, 0x00, 0x00}, false},
      {"digit nibble A", {0x00, 0x02, 0x1A}, true},
      {"high digit nibble F", {0x02, 0x05, 0x00, 0xF0, 0x00}, true},
      {"padding nibble", {0x00, 0x01, 0x10}, true},
      {"padding byte", {0x01, 0x02, 0x01, 0x00}, true},
      {"negative zero", {0x80, 0x02, 0x00}, true},
  };
  const Value good = Make(3, 0, "1");
  for (const auto& c : cases) {
    Value v;
    std::copy(c.bytes.begin(), c.bytes.end(), v.bytes.begin());
    char buffer[64];
    std::uint32_t size = sizeof buffer, type = 0;
    std::int64_t number = 0;
    std::int32_t order = 0;
    EXPECT_EQ(ZqBCDIIGetType(v.get(), &type), 2u) << c.what;
    EXPECT_EQ(ZqBCDIIToStr(v.get(), buffer, &size), 2u) << c.what;
    EXPECT_EQ(ZqBCDIIToInt64(v.get(), &number), 2u) << c.what;
    EXPECT_EQ(ZqBCDIICompare(good.get(), v.get(), &order), 2u) << c.what;
    // Writers read only the type, so a valid header lets them repair the digits.
    EXPECT_EQ(ZqBCDIISetZero(v.get()), c.header_valid ? 0u : 2u) << c.what;
    if (c.header_valid) {
      EXPECT_EQ(Text(v).find_first_not_of("0."), std::string::npos) << c.what;
    }
  }
}

TEST(DecimalTest, CompareAcrossTypes) {
  struct Case {
    std::uint32_t pa, sa;
    const char* a;
    std::uint32_t pb, sb;
    const char* b;
    std::int32_t expected;
  } cases[] = {
      {5, 2, "1.5", 3, 1, "1.5", 0},       {5, 2, "1.50", 9, 4, "1.5001", -1},
      {5, 0, "10", 3, 2, "9.99", 1},       {1, 0, "0", 3, 3, "0", 0},
      {3, 0, "-2", 3, 1, "-1.5", -1},      {5, 2, "-0.01", 1, 0, "0", -1},
      {9, 2, "-100", 5, 4, "-9.9999", -1}, {255, 0, "1", 255, 127, "0.9999999", 1},
  };
  for (const auto& c : cases) {
    const Value a = Make(c.pa, c.sa, c.a), b = Make(c.pb, c.sb, c.b);
    std::int32_t forward = 7, backward = 7;
    ASSERT_EQ(ZqBCDIICompare(a.get(), b.get(), &forward), 0u);
    ASSERT_EQ(ZqBCDIICompare(b.get(), a.get(), &backward), 0u);
    EXPECT_EQ(forward, c.expected) << c.a << " vs " << c.b;
    EXPECT_EQ(backward, -c.expected) << c.b << " vs " << c.a;
  }
}

TEST(DecimalTest, FromInt64AtTheLimits) {
  struct Case {
    std::uint32_t p, s;
    std::int64_t number;
    const char* expected;  // null: 14 and the value unchanged
  } cases[] = {{19, 0, kMax, "9223372036854775807"},
               {19, 0, kMin, "-9223372036854775808"},
               {18, 0, kMax, nullptr},
               {18, 0, kMin, nullptr},
               {21, 2, kMin, "-9223372036854775808.00"},
               {3, 2, -10, nullptr},
               {2, 2, 0, "0.00"},
               {2, 2, 1, nullptr}};
  for (const auto& c : cases) {
    Value v = Make(c.p, c.s, "-0.01");
    const Bytes before = v.Stored();
    EXPECT_EQ(ZqBCDIIFromInt64(v.get(), c.number), c.expected ? 0u : 14u) << c.number;
    if (c.expected != nullptr) {
      EXPECT_EQ(Text(v), c.expected);
    } else {
      EXPECT_EQ(v.Stored(), before) << "a failure changed the value";
    }
  }
}

TEST(DecimalTest, ToInt64TruncatesAndChecksTheRange) {
  const std::string all_nines(255, '9');
  struct Case {
    std::uint32_t p, s;
    const char* text;
    std::uint32_t rc;
    std::int64_t expected;
  } cases[] = {{20, 0, "9223372036854775807", 0, kMax},
               {20, 0, "9223372036854775808", 14, 0},
               {20, 0, "-9223372036854775808", 0, kMin},
               {20, 0, "-9223372036854775809", 14, 0},
               {30, 5, "-9223372036854775808.99999", 0, kMin},
               {30, 0, "18446744073709551616", 14, 0},
               {5, 2, "-123.99", 0, -123},
               {5, 2, "-0.99", 0, 0},
               {255, 0, all_nines.c_str(), 14, 0}};
  for (const auto& c : cases) {
    std::int64_t number = 42;
    EXPECT_EQ(ZqBCDIIToInt64(Make(c.p, c.s, c.text).get(), &number), c.rc) << c.text;
    EXPECT_EQ(number, c.rc == 0 ? c.expected : 42) << c.text;
  }
}

}  // namespace
