// Decimal values through the exported functions.
#include "zqsys/zqbcd.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <set>
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

// A value whose type the text shows: its digits and those after the point.
Value Lit(const std::string& text) {
  const auto digits = static_cast<std::uint32_t>(
      std::count_if(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; }));
  const auto point = text.find('.');
  const auto scale =
      point == std::string::npos
          ? 0u
          : static_cast<std::uint32_t>(digits) - static_cast<std::uint32_t>(std::count_if(
                                                     text.begin(), text.begin() + point,
                                                     [](char c) { return c >= '0' && c <= '9'; }));
  return Make(std::max(digits, 1u), scale, text.c_str());
}

constexpr std::uint32_t kHalfUp = ZQBCDII_ROUND_HALF_UP, kHalfEven = ZQBCDII_ROUND_HALF_EVEN,
                        kDown = ZQBCDII_ROUND_DOWN, kUp = ZQBCDII_ROUND_UP,
                        kCeiling = ZQBCDII_ROUND_CEILING, kFloor = ZQBCDII_ROUND_FLOOR;

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
    Value result = good;
    double real = 0;
    std::uint64_t hash = 0;
    EXPECT_EQ(ZqBCDIIDivide(result.get(), good.get(), v.get(), 0), 2u) << c.what;
    EXPECT_EQ(ZqBCDIIRescale(result.get(), v.get(), 0), 2u) << c.what;
    EXPECT_EQ(ZqBCDIIToDouble(v.get(), &real), 2u) << c.what;
    EXPECT_EQ(ZqBCDIIHash(v.get(), &hash), 2u) << c.what;
    EXPECT_EQ(result.Stored(), good.Stored()) << c.what;
    // Writers read only the type, so a valid header lets them repair the digits.
    EXPECT_EQ(ZqBCDIISetZero(v.get()), c.header_valid ? 0u : 2u) << c.what;
    if (c.header_valid) {
      EXPECT_EQ(Text(v).find_first_not_of("0."), std::string::npos) << c.what;
    }
    EXPECT_EQ(ZqBCDIIAdd(v.get(), good.get(), good.get(), 0), c.header_valid ? 0u : 2u) << c.what;
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

TEST(DecimalTest, ArithmeticRoundsTheExactResultOnce) {
  const std::string n127(127, '9'), n254(254, '9'), n255(255, '9');
  const std::string fraction = "0." + n127, tiny = "0." + std::string(126, '0') + "1";
  struct Case {
    char op;  // + - * /
    std::string a, b;
    std::uint32_t p, s, mode;
    std::string expected;  // "#" and the code on failure, the result unchanged
  } cases[] = {
      {'/', "2", "3", 5, 2, kHalfUp, "0.67"},
      {'/', "2", "3", 5, 2, kDown, "0.66"},
      {'/', "-2", "3", 5, 2, kHalfEven, "-0.67"},
      {'/', "-2", "3", 5, 2, kCeiling, "-0.66"},
      {'/', "-2", "3", 5, 2, kFloor, "-0.67"},
      {'/', "2", "-3", 5, 2, kUp, "-0.67"},
      {'/', "1", "8", 3, 2, kHalfUp, "0.13"},
      {'/', "1", "8", 3, 2, kHalfEven, "0.12"},
      {'/', "3", "8", 3, 2, kHalfEven, "0.38"},
      {'/', "-1", "8", 3, 2, kHalfEven, "-0.12"},
      {'/', "1", "8", 3, 2, kCeiling, "0.13"},
      {'/', "1", "3", 255, 127, kUp, "0." + std::string(126, '3') + "4"},
      {'/', "1.00", "0.0001", 9, 0, kHalfUp, "10000"},
      {'/', "0.5", "2000", 9, 4, kHalfEven, "0.0002"},
      {'/', "0", "0", 5, 2, kHalfUp, "#53257"},
      {'/', "1", "0.00", 5, 2, kHalfUp, "#53257"},
      {'/', n255, tiny, 255, 0, kDown, "#14"},
      // The quotient limb estimate of this pair is one too large.
      {'/', "499999999499999999557888194500000001", "499999999999999999999999999", 20, 0, kDown,
       "999999998"},
      {'+', n254, "1", 255, 0, kHalfUp, "1" + std::string(254, '0')},
      {'+', n255, "1", 255, 0, kHalfUp, "#14"},
      {'+', "0.005", "0.0049", 3, 2, kHalfUp, "0.01"},
      {'+', "-0.005", "0.001", 3, 2, kHalfEven, "0.00"},
      {'+', "-1", "1", 1, 0, kFloor, "0"},
      {'-', "1.5", "1.50", 1, 0, kUp, "0"},
      {'-', "-0.004", "0.001", 3, 2, kHalfUp, "-0.01"},
      {'-', "99.5", "-0.5", 3, 1, kDown, "#14"},
      {'*', "-0.001", "0.001", 3, 2, kDown, "0.00"},
      {'*', "-0.001", "0.001", 3, 2, kCeiling, "0.00"},
      {'*', "-0.001", "0.001", 3, 2, kFloor, "-0.01"},
      {'*', "2.5", "1.0", 1, 0, kHalfEven, "2"},
      {'*', "-3.5", "1", 1, 0, kHalfEven, "-4"},
      {'*', fraction, fraction, 255, 127, kHalfUp, "0." + std::string(126, '9') + "8"},
      {'*', fraction, fraction, 255, 127, kUp, fraction},
      {'*', n255, n255, 255, 0, kHalfUp, "#14"},
      {'*', "1", "1", 1, 0, 6, "#2"},
  };
  for (const auto& c : cases) {
    const Value a = Lit(c.a), b = Lit(c.b);
    Value result = Make(c.p, c.s, "0");
    ZqBCDIIFromInt64(result.get(), 1);
    const Bytes before = result.Stored();
    const auto call = c.op == '+'   ? ZqBCDIIAdd
                      : c.op == '-' ? ZqBCDIISubtract
                      : c.op == '*' ? ZqBCDIIMultiply
                                    : ZqBCDIIDivide;
    const std::uint32_t rc = call(result.get(), a.get(), b.get(), c.mode);
    const std::string what = c.a + " " + c.op + " " + c.b + " mode " + std::to_string(c.mode);
    EXPECT_EQ(rc == 0 ? Text(result) : "#" + std::to_string(rc), c.expected) << what;
    if (rc != 0) {
      EXPECT_EQ(result.Stored(), before) << what;
    }
  }
}

TEST(DecimalTest, ResultMayBeAnOperand) {
  Value v = Make(5, 1, "12.5");
  EXPECT_EQ(ZqBCDIIMultiply(v.get(), v.get(), v.get(), kHalfUp), 0u);
  EXPECT_EQ(Text(v), "156.3");
  EXPECT_EQ(ZqBCDIISubtract(v.get(), v.get(), v.get(), kHalfUp), 0u);
  EXPECT_EQ(Text(v), "0.0");
}

TEST(DecimalTest, RescaleAndRoundInPlace) {
  struct Case {
    std::string value;
    std::int32_t digits;  // -1: rescale into p.s
    std::uint32_t p, s, mode;
    const char* expected;
  } cases[] = {
      {"9.995", 2, 0, 0, kHalfUp, "#14"},
      {"09.995", 2, 0, 0, kHalfUp, "10.000"},
      {"09.985", 2, 0, 0, kHalfEven, "9.980"},
      {"-09.995", 2, 0, 0, kFloor, "-10.000"},
      {"09.995", 2, 0, 0, kDown, "9.990"},
      {"-0.005", 0, 0, 0, kCeiling, "0.000"},
      {"1.25", 5, 0, 0, kUp, "1.25"},
      {"1.25", -1, 2, 1, kHalfEven, "1.2"},
      {"-1.25", -1, 9, 4, kDown, "-1.2500"},
      {"-0.001", -1, 1, 0, kDown, "0"},
      {"99.5", -1, 2, 0, kHalfUp, "#14"},
      {"99.5", -1, 2, 0, kDown, "99"},
      {"1", -1, 1, 0, 9, "#2"},
  };
  for (const auto& c : cases) {
    Value v = Lit(c.value), result = Make(std::max(c.p, 1u), c.s, "0");
    Value& target = c.digits < 0 ? result : v;
    const Bytes before = target.Stored();
    const std::uint32_t rc =
        c.digits < 0 ? ZqBCDIIRescale(result.get(), v.get(), c.mode)
                     : ZqBCDIIRound(v.get(), static_cast<std::uint32_t>(c.digits), c.mode);
    EXPECT_EQ(rc == 0 ? Text(target) : "#" + std::to_string(rc), c.expected)
        << c.value << " to " << c.digits << " mode " << c.mode;
    if (rc != 0) {
      EXPECT_EQ(target.Stored(), before) << c.value;
    }
  }
}

TEST(DecimalTest, Doubles) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const double inf = std::numeric_limits<double>::infinity();
  const std::string tiny = "0." + std::string(126, '0') + "1";
  struct Case {
    double number;
    std::uint32_t p, s, mode;
    std::string expected;  // "=": stored exactly, back to the same double
  } cases[] = {
      {0.1, 22, 20, kHalfUp, "0.10000000000000000555"},
      {0.1, 22, 20, kUp, "0.10000000000000000556"},
      {0.1, 2, 1, kHalfUp, "0.1"},
      {0.1, 2, 1, kUp, "0.2"},
      {-2.5, 3, 0, kHalfEven, "-2"},
      {-0.0, 3, 1, kFloor, "0.0"},
      {-1e-300, 10, 5, kFloor, "-0.00001"},
      {-1e-300, 10, 5, kCeiling, "0.00000"},
      {1e-300, 10, 5, kHalfUp, "0.00000"},
      {9007199254740993.0, 16, 0, kDown, "9007199254740992"},
      {1e300, 255, 0, kDown, "#14"},
      {1e254, 255, 0, kDown, "="},
      {-5e-324, 255, 127, kFloor, "-" + tiny},
      {5e-324, 255, 127, kHalfUp, "0." + std::string(127, '0')},
      {nan, 5, 2, kHalfUp, "#2"},
      {-inf, 5, 2, kHalfUp, "#2"},
      {1, 5, 2, 6, "#2"},
  };
  for (const auto& c : cases) {
    Value v = Make(c.p, c.s, "0");
    const std::uint32_t rc = ZqBCDIIFromDouble(v.get(), c.number, c.mode);
    if (c.expected == "=") {
      double back = 0;
      ASSERT_EQ(rc, 0u);
      EXPECT_EQ(ZqBCDIIToDouble(v.get(), &back), 0u);
      EXPECT_EQ(back, c.number);
      continue;
    }
    EXPECT_EQ(rc == 0 ? Text(v) : "#" + std::to_string(rc), c.expected) << c.number;
  }
  struct Back {
    std::string text;
    double expected;
  } backs[] = {
      {"0.1", 0.1},
      {"-123.456", -123.456},
      {"9007199254740993", 9007199254740992.0},  // a tie goes to the even double
      {"9007199254740995", 9007199254740996.0},
      {tiny, 1e-127},
      {std::string(255, '9'), 1e255},
      {"-0.000", 0.0},
  };
  for (const auto& c : backs) {
    double number = 42;
    EXPECT_EQ(ZqBCDIIToDouble(Lit(c.text).get(), &number), 0u);
    EXPECT_EQ(number, c.expected) << c.text;
    EXPECT_FALSE(std::signbit(number) && number == 0) << c.text;
  }
}

TEST(DecimalTest, EqualNumbersHashEqualWhateverTheirTypes) {
  const std::vector<std::vector<Value>> groups = {
      {Lit("1.5"), Lit("1.50"), Lit("0001.500"), Make(255, 127, "1.5")},
      {Lit("150"), Lit("150.0"), Make(9, 3, "150")},
      {Lit("0"), Lit("-0.00"), Make(255, 127, "0")},
      {Lit("-1.5"), Lit("-1.500")},
      {Lit("15")},
      {Lit("0.15")},
      {Lit("0.000001")},
      {Lit("1000000")},
  };
  std::set<std::uint64_t> distinct;
  for (const auto& group : groups) {
    std::uint64_t first = 0;
    ASSERT_EQ(ZqBCDIIHash(group[0].get(), &first), 0u);
    for (const Value& v : group) {
      std::uint64_t hash = 0;
      ASSERT_EQ(ZqBCDIIHash(v.get(), &hash), 0u);
      EXPECT_EQ(hash, first) << Text(v);
    }
    distinct.insert(first);
  }
  EXPECT_EQ(distinct.size(), groups.size()) << "distinct numbers share a hash";
  EXPECT_EQ(ZqBCDIIHash(Lit("1").get(), nullptr), 2u);
}

}  // namespace
