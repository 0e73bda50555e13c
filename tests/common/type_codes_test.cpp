#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "zqsys/zqerr.h"
#include "zqsys/zqtypes.h"

namespace {

constexpr uint32_t kUntouched = 0xDEADBEEF;

struct ScanCase {
  const char* format;
  uint32_t rc;
  uint32_t length, width, scale;
};

constexpr ScanCase kScans[] = {
    {"", 0, 0, 0, 0},     {"a", 0, 1, 1, 0},       {"a12", 0, 1, 1, 0},
    {"c", 0, 1, 0, 0},    {"c64u4", 0, 3, 64, 0},  {"b256", 0, 4, 256, 0},
    {"w10", 0, 3, 10, 0}, {"z", 0, 1, 0, 0},       {"z99999999999", 0, 12, 0xFFFFFFFF, 0},
    {"d5.2", 0, 4, 5, 2}, {"d26.2x", 0, 5, 26, 2}, {"s9", 0, 2, 9, 0},
    {"d5.", 0, 3, 5, 0},  {"d", 2, 0, 0, 0},       {"d0", 2, 0, 0, 0},
    {"d.2", 2, 0, 0, 0},  {"f", 0, 1, 8, 0},       {"i1", 0, 2, 1, 0},
    {"u8", 0, 2, 8, 0},   {"i3", 2, 0, 0, 0},      {"u", 2, 0, 0, 0},
    {"i0", 2, 0, 0, 0},   {"t", 0, 1, 0, 0},       {"t12", 0, 3, 0, 0},
    {"x", 2, 0, 0, 0},    {"A", 2, 0, 0, 0},       {"{", 2, 0, 0, 0},
    {"\x80", 2, 0, 0, 0}, {"1", 2, 0, 0, 0},
};

TEST(TypeCodes, ScanOneCode) {
  for (const ScanCase& c : kScans) {
    uint32_t length = kUntouched, width = kUntouched, scale = kUntouched;
    ASSERT_EQ(ZqSysGetNextType(c.format, &length, &width, &scale), c.rc) << c.format;
    const bool ok = c.rc == 0;  // a failure writes nothing
    EXPECT_EQ(length, ok ? c.length : kUntouched) << c.format;
    EXPECT_EQ(width, ok ? c.width : kUntouched) << c.format;
    EXPECT_EQ(scale, ok ? c.scale : kUntouched) << c.format;
  }
}

TEST(TypeCodes, ScanArguments) {
  uint32_t length = 0;
  EXPECT_EQ(ZqSysGetNextType(nullptr, &length, nullptr, nullptr), 2u);
  EXPECT_EQ(ZqSysGetNextType("u4", nullptr, nullptr, nullptr), 2u);
  EXPECT_EQ(ZqSysGetNextType("d7.3", &length, nullptr, nullptr), 0u);
  EXPECT_EQ(length, 4u);
}

struct SizeCase {
  char letter;
  uint32_t width, scale;
  uint32_t rc, size, alignment;
};

constexpr SizeCase kSizes[] = {
    {'a', 0, 0, 0, 1, 1},
    {'b', 0, 0, 0, 0, 1},
    {'b', 16, 0, 0, 16, 1},
    {'c', 0, 0, 0, 1, 1},
    {'c', 64, 0, 0, 65, 1},
    {'d', 26, 2, 0, 15, 1},
    {'d', 9, 2, 0, 7, 1},
    {'s', 9, 2, 0, 7, 1},
    {'d', 1, 0, 0, 3, 1},
    {'d', 2, 1, 0, 4, 1},
    {'d', 256, 0, 0, 0, 1},
    {'f', 0, 0, 0, 8, 4},
    {'i', 1, 0, 0, 1, 1},
    {'i', 2, 0, 0, 2, 2},
    {'i', 4, 0, 0, 4, 4},
    {'i', 8, 0, 0, 8, 4},
    {'u', 8, 0, 0, 8, 4},
    {'t', 0, 0, 0, 10, 2},
    {'w', 0, 0, 0, 2, 2},
    {'w', 10, 0, 0, 22, 2},
    {'z', 10, 0, 0, 14, 4},
    {'e', 0, 0, ZQERR_DB_INVALID_TYPE, kUntouched, kUntouched},
    {'x', 0, 0, ZQERR_DB_INVALID_TYPE, kUntouched, kUntouched},
    {'A', 0, 0, ZQERR_DB_INVALID_TYPE, kUntouched, kUntouched},
    {'{', 0, 0, ZQERR_DB_INVALID_TYPE, kUntouched, kUntouched},
    {static_cast<char>(0xE1), 0, 0, ZQERR_DB_INVALID_TYPE, kUntouched, kUntouched},
    // A bad integer width still reports the width as the size.
    {'i', 3, 0, ZQERR_DB_INVALID_TYPE, 3, kUntouched},
    {'u', 16, 0, ZQERR_DB_INVALID_TYPE, 16, kUntouched},
};

TEST(TypeCodes, SizeAndAlignment) {
  for (const SizeCase& c : kSizes) {
    uint32_t size = kUntouched, alignment = kUntouched;
    EXPECT_EQ(ZqSysTypeGetSizeAndAlign(c.letter, c.width, c.scale, &size, &alignment), c.rc)
        << c.letter << c.width;
    EXPECT_EQ(size, c.size) << c.letter << c.width;
    EXPECT_EQ(alignment, c.alignment) << c.letter << c.width;

    uint32_t alone = kUntouched;
    EXPECT_EQ(ZqSysTypeGetAlign(c.letter, c.width, &alone), c.rc) << c.letter << c.width;
    EXPECT_EQ(alone, c.alignment) << c.letter << c.width;
  }
  // Any width has an alignment; a size past 4 GiB has no size.
  uint32_t value = kUntouched, alignment = kUntouched;
  EXPECT_EQ(ZqSysTypeGetSizeAndAlign('c', 0xFFFFFFFF, 0, &value, &alignment),
            static_cast<uint32_t>(ZQERR_DB_INVALID_TYPE));
  EXPECT_EQ(value, kUntouched);
  EXPECT_EQ(ZqSysTypeGetAlign('z', 0xFFFFFFFF, &alignment), 0u);
  EXPECT_EQ(alignment, 4u);
  EXPECT_EQ(ZqSysTypeGetSizeAndAlign('u', 4, 0, nullptr, &value), 2u);
  EXPECT_EQ(ZqSysTypeGetSizeAndAlign('u', 4, 0, &value, nullptr), 2u);
  EXPECT_EQ(ZqSysTypeGetAlign('u', 4, nullptr), 2u);
}

// Offsets of each field of a native structure laid out by a format, the
// way records do it: walking the format until a code of length 0.
std::vector<uint32_t> NativeOffsets(const char* format, uint32_t& total) {
  std::vector<uint32_t> offsets;
  uint32_t offset = 0, length = 0, width = 0, scale = 0;
  while (ZqSysGetNextType(format, &length, &width, &scale) == 0 && length != 0) {
    uint32_t size = 0, alignment = 1;
    EXPECT_EQ(ZqSysTypeGetSizeAndAlign(format[0], width, scale, &size, &alignment), 0u);
    offset = (offset + alignment - 1) / alignment * alignment;
    offsets.push_back(offset);
    offset += size;
    format += length;
  }
  total = offset;
  return offsets;
}

TEST(TypeCodes, NativeLayoutOfFormats) {
  uint32_t total = 0;
  EXPECT_EQ(NativeOffsets("i1ci4i4", total), (std::vector<uint32_t>{0, 1, 4, 8}));
  EXPECT_EQ(total, 12u);
  // The time value's own layout: one byte of gap before the milliseconds.
  EXPECT_EQ(NativeOffsets("u2u1u1u1u1u1u2", total), (std::vector<uint32_t>{0, 2, 3, 4, 5, 6, 8}));
  EXPECT_EQ(total, 10u);
  EXPECT_EQ(NativeOffsets("u1u8fu1t", total), (std::vector<uint32_t>{0, 4, 12, 20, 22}));
  EXPECT_EQ(total, 32u);
}

}  // namespace
