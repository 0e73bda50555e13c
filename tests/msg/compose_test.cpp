#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "os/memory.h"
#include "stream_test_util.h"
#include "zqsys/zqerr.h"
#include "zqsys/zqstream.h"
#include "zqsys/zqtime.h"

namespace {

using zqtest::Bytes;

constexpr uint8_t kFF = 0xFF;

// A call of ZqSysCompose with these arguments, on the composer it is given.
template <class... Args>
std::function<uint32_t(HZQCOMPOSER)> Call(const char* format, Args... args) {
  return [=](HZQCOMPOSER h) { return ZqSysCompose(h, format, args...); };
}

struct GoldenCase {
  const char* name;
  std::function<uint32_t(HZQCOMPOSER)> compose;
  uint32_t rc;
  Bytes bytes;  // what the stream holds afterwards, also after a failure
};

const ZQTIME kMarch7{2008, 3, 7, 9, 5, 1, 0xAA, 42};
const uint8_t kCounted[] = {2, 0, 0, 0, 0xAA, 0xBB};
const uint8_t kThree[] = {1, 2, 3};
// d5.2 holding -123.45: scale 2 with the sign bit, precision 5, then the
// digits 12345 right-aligned in three bytes.
const uint8_t kDecimal52[] = {0x82, 0x05, 0x01, 0x23, 0x45};
const Bytes kNull = {kFF, kFF, kFF, kFF};

const GoldenCase kGolden[] = {
    {"text", Call("c", "ab"), 0, {3, 0, 0, 0, 'a', 'b', 0}},
    {"empty text", Call("c", ""), 0, {1, 0, 0, 0, 0}},
    {"null text", Call("c", nullptr), 0, kNull},
    {"text over its width", Call("c2", "abc"), 2, {}},
    {"text at its width", Call("c3", "abc"), 0, {4, 0, 0, 0, 'a', 'b', 'c', 0}},
    {"u8 low half first", Call("u8", 0x0102030405060708ull), 0, {8, 7, 6, 5, 4, 3, 2, 1}},
    {"i8 negative", Call("i8", -2ll), 0, {0xFE, kFF, kFF, kFF, kFF, kFF, kFF, kFF}},
    {"small integers", Call("i1u2i4", -1, 0x1234, -2), 0, {kFF, 0x34, 0x12, 0xFE, kFF, kFF, kFF}},
    {"integer truncated to its width", Call("u1", 0x1FF), 0, {kFF}},
    {"character, digits skipped", Call("a5a", 'x', 'y'), 0, {'x', 'y'}},
    {"double", Call("f", 1.0), 0, {0, 0, 0, 0, 0, 0, 0xF0, 0x3F}},
    {"time without its reserved byte", Call("t", &kMarch7), 0, {0xD8, 0x07, 3, 7, 9, 5, 1, 42, 0}},
    {"null time", Call("t12", nullptr), 0, Bytes(9, 0)},
    {"wide text", Call("w", u"hi"), 0, {6, 0, 0, 0, 'h', 0, 'i', 0, 0, 0}},
    {"wide text over its width", Call("w1", u"hi"), 2, {}},
    {"null wide text", Call("w", nullptr), 0, kNull},
    {"binary", Call("b", kThree, 3u), 0, {3, 0, 0, 0, 1, 2, 3}},
    {"binary over its width", Call("b2", kThree, 3u), 2, {}},
    {"empty binary", Call("b", kThree, 0u), 0, {0, 0, 0, 0}},
    {"null binary", Call("b", nullptr, 0u), 0, kNull},
    {"null binary with a count", Call("b", nullptr, 1u), 2, {}},
    // The null marker does not consume the width: its digits fail next.
    {"null binary with a width", Call("b4", nullptr, 0u), 2, kNull},
    {"null binary then a code", Call("bu1", nullptr, 0u, 7), 0, {kFF, kFF, kFF, kFF, 7}},
    {"counted block", Call("z2", kCounted), 0, {2, 0, 0, 0, 0xAA, 0xBB}},
    {"counted block over its width", Call("z1", kCounted), 2, {}},
    {"null counted block", Call("z", nullptr), 2, {}},
    {"decimal", Call("d5.2", kDecimal52), 0, Bytes(std::begin(kDecimal52), std::end(kDecimal52))},
    {"decimal of another type", Call("d6.2", kDecimal52), 2, {}},
    {"null decimal is zero", Call("s5.2", nullptr), 0, {0x02, 0x05, 0, 0, 0}},
    {"decimal without precision", Call("d", nullptr), 2, {}},
    {"empty format", Call(""), 0, {}},
    {"unknown letter", Call("x", 1), 2, {}},
    {"upper-case letter", Call("U4", 1), 2, {}},
    {"integer of width 3", Call("i3", 1), 2, {}},
    {"a failure keeps what came before", Call("u1c2u1", 1, "abc", 2), 2, {1}},
};

TEST(Compose, GoldenBytes) {
  for (const GoldenCase& c : kGolden) {
    HZQCOMPOSER composer = nullptr;
    ASSERT_EQ(ZqSysCreateBinaryComposer(&composer), 0u);
    ASSERT_NE(composer, nullptr);
    EXPECT_EQ(c.compose(composer), c.rc) << c.name;
    EXPECT_EQ(zqtest::ComposerBytes(composer), c.bytes) << c.name;
    ZqSysFreeComposer(composer);
  }
}

TEST(Compose, AtIndexOverwritesAndKeepsTheEnd) {
  HZQCOMPOSER composer = nullptr;
  ASSERT_EQ(ZqSysCreateBinaryComposer(&composer), 0u);
  ASSERT_EQ(ZqSysCompose(composer, "u4u4u4", 1, 2, 3), 0u);

  EXPECT_EQ(ZqSysComposeAtIndex(composer, 0, "u4", 9), 0u);
  EXPECT_EQ(zqtest::ComposerBytes(composer), (Bytes{9, 0, 0, 0, 2, 0, 0, 0, 3, 0, 0, 0}));

  EXPECT_EQ(ZqSysComposeAtIndex(composer, 12, "u1", 1), 2u);
  EXPECT_EQ(zqtest::ComposerBytes(composer).size(), 12u);

  // Writing past the end moves it.
  EXPECT_EQ(ZqSysComposeAtIndex(composer, 10, "u2u2", 0xAAAA, 0xBBBB), 0u);
  EXPECT_EQ(zqtest::ComposerBytes(composer),
            (Bytes{9, 0, 0, 0, 2, 0, 0, 0, 3, 0, 0xAA, 0xAA, 0xBB, 0xBB}));

  // A failure keeps what it wrote before failing, and the old end.
  EXPECT_EQ(ZqSysComposeAtIndex(composer, 0, "u1x", 5), 2u);
  EXPECT_EQ(zqtest::ComposerBytes(composer).size(), 14u);
  EXPECT_EQ(zqtest::ComposerBytes(composer)[0], 5);

  // Appending goes on from the end.
  EXPECT_EQ(ZqSysCompose(composer, "u1", 0x77), 0u);
  EXPECT_EQ(zqtest::ComposerBytes(composer).back(), 0x77);
  ZqSysFreeComposer(composer);
}

TEST(Compose, ArgumentsAndHandles) {
  HZQCOMPOSER composer = nullptr;
  const uint8_t* buffer = nullptr;
  uint32_t size = 0;
  EXPECT_EQ(ZqSysCreateBinaryComposer(nullptr), 2u);
  ASSERT_EQ(ZqSysCreateBinaryComposer(&composer), 0u);
  EXPECT_EQ(ZqSysCompose(nullptr, "u1", 1), 2u);
  EXPECT_EQ(ZqSysCompose(composer, nullptr), 2u);
  EXPECT_EQ(ZqSysComposeAtIndex(nullptr, 0, "u1", 1), 2u);
  EXPECT_EQ(ZqSysComposeAtIndex(composer, 0, "u1", 1), 2u);  // nothing composed yet
  EXPECT_EQ(ZqSysComposeGetBuffer(composer, nullptr), 2u);
  EXPECT_EQ(ZqSysComposeGetSize(nullptr, &size), 2u);
  EXPECT_EQ(ZqSysComposeGetBuffer(composer, &buffer), 0u);
  EXPECT_EQ(buffer, nullptr);

  HZQCOMPOSER second = nullptr;
  EXPECT_EQ(ZqSysDuplicateComposer(composer, &second), 0u);
  EXPECT_EQ(second, composer);
  EXPECT_EQ(ZqSysFreeComposer(composer), 0u);
  EXPECT_EQ(ZqSysCompose(second, "u1", 1), 0u);  // still alive
  EXPECT_EQ(ZqSysFreeComposer(second), 0u);
  EXPECT_EQ(ZqSysFreeComposer(nullptr), 0u);
}

// The first allocation is the value plus 512 bytes; later ones add twice
// the capacity, or the value plus 512 when that is more.
TEST(Compose, GrowthRule) {
  const std::string big(5000, 'x');
  ZQCOMPOSECTX ctx{};
  ASSERT_EQ(zqtest::Compose(ctx, "u1", 1), 0u);
  EXPECT_EQ(ctx.capacity, 513u);
  const std::string fill(508, 'y');  // 4 + 509 bytes: one more than is left
  ASSERT_EQ(zqtest::Compose(ctx, "c", fill.c_str()), 0u);
  EXPECT_EQ(ctx.size, 514u);
  EXPECT_EQ(ctx.capacity, 1539u);  // 513 + 2 * 513
  ASSERT_EQ(zqtest::Compose(ctx, "c", big.c_str()), 0u);
  EXPECT_EQ(ctx.capacity, 1539u + 5005 + 512);  // the value exceeds twice the capacity
  zq::msg::FreeComposeBuffer(ctx);
  EXPECT_EQ(ctx.buffer, nullptr);
}

// A format buffer rewritten in place is read afresh, and a long format
// stops at a bad code far into it, keeping what it wrote before.
TEST(Compose, FormatsRewrittenInPlaceAndLongFormats) {
  ZQCOMPOSECTX ctx{};
  char format[8] = "u4";
  ASSERT_EQ(zqtest::Compose(ctx, format, 0x01020304), 0u);
  std::memcpy(format, "u1", 3);
  ASSERT_EQ(zqtest::Compose(ctx, format, 0x05), 0u);
  std::memcpy(format, "u1x", 4);
  EXPECT_EQ(zqtest::Compose(ctx, format, 0x06), 2u);
  EXPECT_EQ(Bytes(ctx.buffer, ctx.buffer + ctx.size), (Bytes{4, 3, 2, 1, 5, 6}));

  std::string longFormat;
  for (int i = 0; i < 40; ++i)
    longFormat += "a";
  longFormat += "u2";
  ctx.size = 0;
  ASSERT_EQ(zqtest::Compose(ctx, longFormat.c_str(), 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14,
                            15, 16, 17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28, 29, 30, 31, 32,
                            33, 34, 35, 36, 37, 38, 39, 40, 0x4241),
            0u);
  ASSERT_EQ(ctx.size, 42u);
  EXPECT_EQ(ctx.buffer[39], 40);
  EXPECT_EQ(ctx.buffer[40], 0x41);
  longFormat += std::string(30, 'a') + "q";
  ctx.size = 0;
  EXPECT_EQ(
      zqtest::Compose(ctx, longFormat.c_str(), 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15,
                      16, 17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28, 29, 30, 31, 32, 33, 34,
                      35, 36, 37, 38, 39, 40, 0x4241, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14,
                      15, 16, 17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28, 29, 30),
      2u);
  EXPECT_EQ(ctx.size, 72u);
  zq::msg::FreeComposeBuffer(ctx);
}

TEST(Compose, OutOfMemory) {
  // Creating a composer without memory still succeeds, with a null handle.
  HZQCOMPOSER composer = reinterpret_cast<HZQCOMPOSER>(1);
  zq::os::FailAllocationAfter(1);
  EXPECT_EQ(ZqSysCreateBinaryComposer(&composer), 0u);
  EXPECT_EQ(composer, nullptr);

  ASSERT_EQ(ZqSysCreateBinaryComposer(&composer), 0u);
  ASSERT_EQ(ZqSysCompose(composer, "u4", 7), 0u);
  const std::string big(4000, 'x');
  zq::os::FailAllocationAfter(1);
  EXPECT_EQ(ZqSysCompose(composer, "u1c", 1, big.c_str()), ZQERR_COMMON_NO_MEMORY);
  EXPECT_EQ(zqtest::ComposerBytes(composer), (Bytes{7, 0, 0, 0, 1}));
  zq::os::FailAllocationAfter(-1);
  EXPECT_EQ(ZqSysCompose(composer, "c", big.c_str()), 0u);
  ZqSysFreeComposer(composer);
}

}  // namespace
