#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <tuple>

#include "stream_test_util.h"
#include "zqsys/zqerr.h"
#include "zqsys/zqstream.h"
#include "zqsys/zqtime.h"

namespace {

using zq::msg::ParseMode;
using zqtest::Bytes;

constexpr uint32_t kBadBlock = ZQERR_MSG_BAD_PARSE_BLOCK;

// A parser over `bytes`, freed at the end of the test.
class ParserFixture : public ::testing::Test {
 protected:
  void Load(const Bytes& bytes) {
    bytes_ = bytes;
    ASSERT_EQ(ZqSysInitParser(parser_, bytes_.data(), static_cast<uint32_t>(bytes_.size())), 0u);
  }
  uint32_t Index() {
    uint32_t index = 0;
    EXPECT_EQ(ZqSysGetIndex(parser_, &index), 0u);
    return index;
  }
  void SetUp() override { ASSERT_EQ(ZqSysCreateBinaryParser(&parser_), 0u); }
  void TearDown() override { ZqSysFreeParser(parser_); }

  HZQPARSER parser_ = nullptr;
  Bytes bytes_;
};

TEST_F(ParserFixture, RoundTripsEveryType) {
  // The fixed-size values go through a tuple, the rest one by one.
  using Scalars = std::tuple<char, int8_t, int16_t, int32_t, long long, uint8_t, uint16_t, uint32_t,
                             unsigned long long, double>;
  const Scalars sent{'q', -5, -300, -70000, -(1ll << 40), 200, 60000, 4000000000u, 1ull << 63, 2.5};
  const char* const kScalars = "ai1i2i4i8u1u2u4u8f";
  const ZQTIME when{2026, 11, 21, 10, 0, 59, 0, 123};
  const uint8_t blob[] = {9, 8, 7, 6};
  const uint8_t counted[] = {3, 0, 0, 0, 'x', 'y', 'z'};
  const uint8_t decimal[] = {0x02, 0x05, 0x00, 0x12, 0x34};
  HZQCOMPOSER composer = nullptr;
  ASSERT_EQ(ZqSysCreateBinaryComposer(&composer), 0u);
  ASSERT_EQ(std::apply([&](auto... v) { return ZqSysCompose(composer, kScalars, v...); }, sent),
            0u);
  ASSERT_EQ(ZqSysCompose(composer, "tc16cw4b8zd5.2", &when, "hello", nullptr, u"wide", blob, 4u,
                         counted, decimal),
            0u);
  Load(zqtest::ComposerBytes(composer));
  ZqSysFreeComposer(composer);

  Scalars got{};
  ASSERT_EQ(std::apply([&](auto&... v) { return ZqSysParse(parser_, kScalars, &v...); }, got), 0u);
  EXPECT_EQ(got, sent);
  ZQTIME t{};
  char text[17] = {};
  char none[4] = {'x', 'x', 'x', 0};
  char16_t wide[5] = {};
  uint8_t bytes[8] = {};
  uint32_t count = 0;
  uint8_t block[16] = {};
  uint8_t number[5] = {};
  ASSERT_EQ(
      ZqSysParse(parser_, "tc16cw4b8zd5.2", &t, text, none, wide, bytes, &count, block, number),
      0u);
  EXPECT_EQ(std::memcmp(&t, &when, sizeof t), 0);
  EXPECT_STREQ(text, "hello");
  EXPECT_STREQ(none, "");  // a null text arrives empty
  EXPECT_EQ(std::u16string(wide), u"wide");
  EXPECT_EQ(count, 4u);
  EXPECT_EQ(Bytes(bytes, bytes + 4), Bytes(blob, blob + 4));
  EXPECT_EQ(Bytes(block, block + 7), Bytes(counted, counted + 7));
  EXPECT_EQ(Bytes(number, number + 5), Bytes(decimal, decimal + 5));
  EXPECT_EQ(Index(), bytes_.size());
}

struct BadCase {
  const char* name;
  Bytes stream;
  const char* format;
  uint32_t rc;
  uint32_t index;  // the position after the failure: after the last good value
};

const BadCase kBadStreams[] = {
    {"u4 from three bytes", {1, 2, 3}, "u4", kBadBlock, 0},
    {"u8 after a good u1", {1, 2, 3}, "u1u8", kBadBlock, 1},
    {"f short", {0, 0, 0, 0, 0, 0, 0}, "f", kBadBlock, 0},
    {"t short", Bytes(8, 0), "t", kBadBlock, 0},
    {"text length short", {3, 0, 0}, "c", kBadBlock, 0},
    {"text without its NUL", {2, 0, 0, 0, 'a', 'b'}, "c", kBadBlock, 0},
    {"text longer than the stream", {9, 0, 0, 0, 'a', 0}, "c", kBadBlock, 0},
    {"text of length 0", {0, 0, 0, 0}, "c", kBadBlock, 0},
    {"text over its width", {4, 0, 0, 0, 'a', 'b', 'c', 0}, "c2", kBadBlock, 0},
    {"text at its width", {4, 0, 0, 0, 'a', 'b', 'c', 0}, "c3", 0, 8},
    {"wide text of odd length", {3, 0, 0, 0, 'a', 0, 0}, "w", kBadBlock, 0},
    {"wide text without its NUL", {4, 0, 0, 0, 'a', 0, 'b', 0}, "w", kBadBlock, 0},
    {"wide text over its width", {6, 0, 0, 0, 'a', 0, 'b', 0, 0, 0}, "w1", kBadBlock, 0},
    {"wide text at its width", {6, 0, 0, 0, 'a', 0, 'b', 0, 0, 0}, "w2", 0, 10},
    {"binary over its width is an argument error", {3, 0, 0, 0, 1, 2, 3}, "b2", 2, 0},
    {"binary longer than the stream", {4, 0, 0, 0, 1, 2, 3}, "b", kBadBlock, 0},
    {"counted block over its width", {3, 0, 0, 0, 1, 2, 3}, "z2", 2, 0},
    {"counted block longer than the stream", {4, 0, 0, 0, 1}, "z", kBadBlock, 0},
    {"decimal delivered as it lies", {0x02, 0x06, 0, 0, 0}, "d5.2", 0, 5},
    {"decimal short", {0x02, 0x05, 0, 0}, "d5.2", kBadBlock, 0},
    {"unknown code", {1}, "u1x", 2, 1},
    {"integer of width 3", {1, 2, 3}, "i3", 2, 0},
    {"length near 4 GiB", {0xFE, 0xFF, 0xFF, 0xFF, 0}, "c", kBadBlock, 0},
};

TEST_F(ParserFixture, BadStreamsFailWhereTheyBreak) {
  for (const BadCase& c : kBadStreams) {
    Load(c.stream);
    // Room for any one value, then for a second value or a byte count.
    alignas(8) uint8_t storage[64] = {};
    EXPECT_EQ(ZqSysParse(parser_, c.format, storage, storage + 32), c.rc) << c.name;
    EXPECT_EQ(Index(), c.index) << c.name;
  }
}

TEST_F(ParserFixture, NullMarkersInCopyInPlace) {
  Load(Bytes(16, 0xFF));
  char text[4] = {'x', 'x', 0, 0};
  char16_t wide[2] = {u'x', 0};
  uint8_t bytes[4] = {5, 5, 5, 5};
  uint32_t count = 99;
  uint8_t block[8] = {5, 5, 5, 5};
  // (choose mode leaves a destination alone on a null marker; see ParseModes)
  ASSERT_EQ(ZqSysParse(parser_, "cwb4z", text, wide, bytes, &count, block), 0u);
  EXPECT_STREQ(text, "");
  EXPECT_EQ(wide[0], 0);
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(bytes[0], 5);                                   // nothing to copy
  EXPECT_EQ(Bytes(block, block + 4), (Bytes{0, 0, 0, 0}));  // an empty counted block
}

TEST_F(ParserFixture, ArgumentsResetAndReuse) {
  uint32_t value = 0;
  EXPECT_EQ(ZqSysCreateBinaryParser(nullptr), 2u);
  EXPECT_EQ(ZqSysInitParser(nullptr, &value, 4), 2u);
  EXPECT_EQ(ZqSysInitParser(parser_, nullptr, 4), 2u);
  EXPECT_EQ(ZqSysParse(parser_, "u4", &value), kBadBlock);  // empty buffer
  Load({1, 0, 0, 0, 2, 0, 0, 0});
  EXPECT_EQ(ZqSysParse(nullptr, "u4", &value), 2u);
  EXPECT_EQ(ZqSysParse(parser_, nullptr), 2u);
  EXPECT_EQ(ZqSysParse(parser_, "u4", nullptr), 2u);
  EXPECT_EQ(ZqSysParse(parser_, "t", nullptr), 2u);
  EXPECT_EQ(ZqSysParse(parser_, "d5.2", nullptr), 2u);
  EXPECT_EQ(ZqSysParse(parser_, "", &value), 0u);
  EXPECT_EQ(ZqSysParse(parser_, "u4u4", &value, &value), 0u);
  EXPECT_EQ(value, 2u);
  EXPECT_EQ(ZqSysResetParser(parser_), 0u);
  EXPECT_EQ(ZqSysParse(parser_, "u4", &value), 0u);
  EXPECT_EQ(value, 1u);
  EXPECT_EQ(ZqSysGetIndex(parser_, nullptr), 2u);

  HZQPARSER second = nullptr;
  EXPECT_EQ(ZqSysDuplicateParser(parser_, &second), 0u);
  EXPECT_EQ(ZqSysFreeParser(second), 0u);
  EXPECT_EQ(ZqSysFreeParser(nullptr), 0u);
  EXPECT_EQ(Index(), 4u);  // the fixture's reference still holds the parser
}

// Formats are compiled once and kept per thread: a format buffer rewritten
// in place must be read afresh, and a format too long to keep (here with
// long runs of ignored digits) runs in batches up to a bad code.
TEST_F(ParserFixture, FormatsRewrittenInPlaceAndLongFormats) {
  Load({1, 2, 3, 4, 5, 6, 7, 8});
  char format[8] = "u2";
  uint32_t value = 0;
  ASSERT_EQ(ZqSysParse(parser_, format, &value), 0u);
  EXPECT_EQ(value, 0x0201u);
  std::memcpy(format, "u1", 3);
  ASSERT_EQ(ZqSysParse(parser_, format, &value), 0u);
  EXPECT_EQ(value, 0x0203u);
  EXPECT_EQ(Index(), 3u);

  const std::string longFormat = "a" + std::string(70, '7') + "u2" + std::string(1, 'a');
  char first = 0, last = 0;
  uint16_t middle = 0;
  ASSERT_EQ(ZqSysParse(parser_, longFormat.c_str(), &first, &middle, &last), 0u);
  EXPECT_EQ(first, 4);
  EXPECT_EQ(middle, 0x0605u);
  EXPECT_EQ(last, 7);
  ASSERT_EQ(ZqSysResetParser(parser_), 0u);
  EXPECT_EQ(ZqSysParse(parser_, (longFormat + "q").c_str(), &first, &middle, &last), 2u);
  EXPECT_EQ(Index(), 4u);  // what came before the bad code was read
}

// The delivery modes, on a stream with a text, a null text, a byte string
// and a null byte string.
class ParseModes : public ::testing::Test {
 protected:
  void SetUp() override {
    ZQCOMPOSECTX composer{};
    ASSERT_EQ(zqtest::Compose(composer, "ccbb", "hey", nullptr, "\x01\x02", 2u, nullptr, 0u), 0u);
    stream_.assign(composer.buffer, composer.buffer + composer.size);
    zq::msg::FreeComposeBuffer(composer);
    ctx_ = ZQPARSECTX{stream_.data(), static_cast<uint32_t>(stream_.size()), 0};
  }

  Bytes stream_;
  ZQPARSECTX ctx_{};
};

void* FailingAlloc(size_t) {
  return nullptr;
}

TEST_F(ParseModes, NullBinaryInChooseAndCopyModes) {
  ctx_.position = 4 + 4 + 4 + 4 + 2;  // the null byte string
  uint8_t storage[4] = {7, 7, 7, 7};
  void* dest = storage;
  uint32_t count = 99;
  ASSERT_EQ(zqtest::Parse(ctx_, ParseMode::kChoose, std::malloc, "b", &dest, &count), 0u);
  EXPECT_EQ(dest, storage);
  EXPECT_EQ(count, 0u);
  ctx_.position -= 4;
  count = 99;
  ASSERT_EQ(zqtest::Parse(ctx_, ParseMode::kCopyToPointed, nullptr, "b", &dest, &count), 0u);
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(storage[0], 7);
}

// The modes themselves are checked through the public context functions;
// here the allocator failing, an unknown mode and a position past the end.
TEST_F(ParseModes, FailuresOfTheEngine) {
  char* text = nullptr;
  EXPECT_EQ(zqtest::Parse(ctx_, ParseMode::kAllocatedCopy, FailingAlloc, "c", &text),
            ZQERR_COMMON_NO_MEMORY);
  EXPECT_EQ(ctx_.position, 0u);
  EXPECT_EQ(zqtest::Parse(ctx_, static_cast<ParseMode>(5), nullptr, "c", &text), 2u);
  ctx_.position = ctx_.size + 100;  // set without a check; reads then fail
  EXPECT_EQ(zqtest::Parse(ctx_, ParseMode::kPointer, nullptr, "c", &text), kBadBlock);
  uint8_t byte = 0;
  EXPECT_EQ(zqtest::Parse(ctx_, ParseMode::kPointer, nullptr, "u1", &byte), kBadBlock);
}

}  // namespace
