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

std::vector<GoldenCase> GoldenCases() {
  return {
      {"text",
       [](HZQCOMPOSER h) { return ZqSysCompose(h, "c", "ab"); },
       0,
       {3, 0, 0, 0, 'a', 'b', 0}},
      {"empty text", [](HZQCOMPOSER h) { return ZqSysCompose(h, "c", ""); }, 0, {1, 0, 0, 0, 0}},
      {"null text",
       [](HZQCOMPOSER h) { return ZqSysCompose(h, "c", nullptr); },
       0,
       {kFF, kFF, kFF, kFF}},
      {"text over its width", [](HZQCOMPOSER h) { return ZqSysCompose(h, "c2", "abc"); }, 2, {}},
      {"text at its width",
       [](HZQCOMPOSER h) { return ZqSysCompose(h, "c3", "abc"); },
       0,
       {4, 0, 0, 0, 'a', 'b', 'c', 0}},
      {"u8 low half first",
       [](HZQCOMPOSER h) { return ZqSysCompose(h, "u8", 0x0102030405060708ull); },
       0,
       {8, 7, 6, 5, 4, 3, 2, 1}},
      {"i8 negative",
       [](HZQCOMPOSER h) { return ZqSysCompose(h, "i8", -2ll); },
       0,
       {0xFE, kFF, kFF, kFF, kFF, kFF, kFF, kFF}},
      {"small integers",
       [](HZQCOMPOSER h) { return ZqSysCompose(h, "i1u2i4", -1, 0x1234, -2); },
       0,
       {kFF, 0x34, 0x12, 0xFE, kFF, kFF, kFF}},
      {"integer truncated to its width",
       [](HZQCOMPOSER h) { return ZqSysCompose(h, "u1", 0x1FF); },
       0,
       {kFF}},
      {"character, digits skipped",
       [](HZQCOMPOSER h) { return ZqSysCompose(h, "a5a", 'x', 'y'); },
       0,
       {'x', 'y'}},
      {"double",
       [](HZQCOMPOSER h) { return ZqSysCompose(h, "f", 1.0); },
       0,
       {0, 0, 0, 0, 0, 0, 0xF0, 0x3F}},
      {"time without its reserved byte",
       [](HZQCOMPOSER h) { return ZqSysCompose(h, "t", &kMarch7); },
       0,
       {0xD8, 0x07, 3, 7, 9, 5, 1, 42, 0}},
      {"null time", [](HZQCOMPOSER h) { return ZqSysCompose(h, "t12", nullptr); }, 0, Bytes(9, 0)},
      {"wide text",
       [](HZQCOMPOSER h) { return ZqSysCompose(h, "w", u"hi"); },
       0,
       {6, 0, 0, 0, 'h', 0, 'i', 0, 0, 0}},
      {"wide text over its width",
       [](HZQCOMPOSER h) { return ZqSysCompose(h, "w1", u"hi"); },
       2,
       {}},
      {"null wide text",
       [](HZQCOMPOSER h) { return ZqSysCompose(h, "w", nullptr); },
       0,
       {kFF, kFF, kFF, kFF}},
      {"binary",
       [](HZQCOMPOSER h) { return ZqSysCompose(h, "b", kThree, 3u); },
       0,
       {3, 0, 0, 0, 1, 2, 3}},
      {"binary over its width",
       [](HZQCOMPOSER h) { return ZqSysCompose(h, "b2", kThree, 3u); },
       2,
       {}},
      {"empty binary",
       [](HZQCOMPOSER h) { return ZqSysCompose(h, "b", kThree, 0u); },
       0,
       {0, 0, 0, 0}},
      {"null binary",
       [](HZQCOMPOSER h) { return ZqSysCompose(h, "b", nullptr, 0u); },
       0,
       {kFF, kFF, kFF, kFF}},
      {"null binary with a count",
       [](HZQCOMPOSER h) { return ZqSysCompose(h, "b", nullptr, 1u); },
       2,
       {}},
      // The null marker does not consume the width: its digits fail next.
      {"null binary with a width",
       [](HZQCOMPOSER h) { return ZqSysCompose(h, "b4", nullptr, 0u); },
       2,
       {kFF, kFF, kFF, kFF}},
      {"null binary then a code",
       [](HZQCOMPOSER h) { return ZqSysCompose(h, "bu1", nullptr, 0u, 7); },
       0,
       {kFF, kFF, kFF, kFF, 7}},
      {"counted block",
       [](HZQCOMPOSER h) { return ZqSysCompose(h, "z2", kCounted); },
       0,
       {2, 0, 0, 0, 0xAA, 0xBB}},
      {"counted block over its width",
       [](HZQCOMPOSER h) { return ZqSysCompose(h, "z1", kCounted); },
       2,
       {}},
      {"null counted block", [](HZQCOMPOSER h) { return ZqSysCompose(h, "z", nullptr); }, 2, {}},
      {"decimal", [](HZQCOMPOSER h) { return ZqSysCompose(h, "d5.2", kDecimal52); }, 0,
       Bytes(std::begin(kDecimal52), std::end(kDecimal52))},
      {"decimal of another type",
       [](HZQCOMPOSER h) { return ZqSysCompose(h, "d6.2", kDecimal52); },
       2,
       {}},
      {"null decimal is zero",
       [](HZQCOMPOSER h) { return ZqSysCompose(h, "s5.2", nullptr); },
       0,
       {0x02, 0x05, 0, 0, 0}},
      {"decimal without precision",
       [](HZQCOMPOSER h) { return ZqSysCompose(h, "d", nullptr); },
       2,
       {}},
      {"empty format", [](HZQCOMPOSER h) { return ZqSysCompose(h, ""); }, 0, {}},
      {"unknown letter", [](HZQCOMPOSER h) { return ZqSysCompose(h, "x", 1); }, 2, {}},
      {"upper-case letter", [](HZQCOMPOSER h) { return ZqSysCompose(h, "U4", 1); }, 2, {}},
      {"integer of width 3", [](HZQCOMPOSER h) { return ZqSysCompose(h, "i3", 1); }, 2, {}},
      {"a failure keeps what came before",
       [](HZQCOMPOSER h) { return ZqSysCompose(h, "u1c2u1", 1, "abc", 2); },
       2,
       {1}},
  };
}

TEST(Compose, GoldenBytes) {
  for (const GoldenCase& c : GoldenCases()) {
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
  struct Step {
    const char* format;
    uint32_t capacity;
  };
  const std::string big(5000, 'x');
  const struct {
    std::function<uint32_t(ZQCOMPOSECTX&)> first;
    uint32_t capacity;
  } firsts[] = {
      {[](ZQCOMPOSECTX& c) { return zqtest::Compose(c, "u1", 1); }, 513},
      {[](ZQCOMPOSECTX& c) { return zqtest::Compose(c, "u2", 1); }, 514},
      {[](ZQCOMPOSECTX& c) { return zqtest::Compose(c, "u4", 1); }, 516},
      {[](ZQCOMPOSECTX& c) { return zqtest::Compose(c, "u8", 1ull); }, 520},
      {[](ZQCOMPOSECTX& c) { return zqtest::Compose(c, "c", "ab"); }, 519},
      {[&](ZQCOMPOSECTX& c) { return zqtest::Compose(c, "c", big.c_str()); }, 5005 + 512},
  };
  for (const auto& f : firsts) {
    ZQCOMPOSECTX ctx{};
    ASSERT_EQ(f.first(ctx), 0u);
    EXPECT_EQ(ctx.capacity, f.capacity);
    zq::msg::FreeComposeBuffer(ctx);
  }

  ZQCOMPOSECTX ctx{};
  ASSERT_EQ(zqtest::Compose(ctx, "u1", 1), 0u);  // 513
  const std::string fill(508, 'y');              // 4 + 509 bytes: exactly full
  ASSERT_EQ(zqtest::Compose(ctx, "c", fill.c_str()), 0u);
  EXPECT_EQ(ctx.size, 514u);
  EXPECT_EQ(ctx.capacity, 1539u);  // 513 + 2 * 513
  ASSERT_EQ(zqtest::Compose(ctx, "c", big.c_str()), 0u);
  EXPECT_EQ(ctx.capacity, 1539u + 5005 + 512);  // the value exceeds twice the capacity
  zq::msg::FreeComposeBuffer(ctx);
  EXPECT_EQ(ctx.buffer, nullptr);
}

TEST(Compose, MeasureOnlyNeitherWritesNorAllocates) {
  ZQCOMPOSECTX ctx{};
  ctx.measureOnly = 1;
  const std::string big(100000, 'x');
  EXPECT_EQ(zqtest::Compose(ctx, "cu8b", big.c_str(), 1ull, nullptr, 0u), 0u);
  EXPECT_EQ(ctx.size, 4 + 100001 + 8 + 4u);
  EXPECT_EQ(ctx.buffer, nullptr);
  EXPECT_EQ(ctx.capacity, 0u);
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
