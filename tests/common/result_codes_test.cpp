#include <gtest/gtest.h>

#include <string>

#include "zqsys/zqerr.h"

namespace {

struct TextCase {
  uint32_t code;
  const char* text;
};

// Texts at the edges of the table: first and last codes, historic
// spellings, and the fallbacks past each edge.
constexpr TextCase kTexts[] = {
    {0x0, "OK!"},
    {1, "COMMON:NO MEMORY"},
    {2, "COMMON:WRONG_ARGUMENTS"},
    {7, "COMMON:BUFFER_TOO_SMALL"},
    {15, "COMMON:REAL_SIZE_RETURNED"},
    {21, "NOT_OK!"},
    {27, "COMMON:INVALID_OBJECT_STATE"},
    {0x001C, "<COMMON>"},
    {0x0FFF, "<COMMON>"},
    {0x1000, "MSG:FIELD_NOT_FOUND"},
    {0x1004, "MSG:BAD_PARSE_BLOCK"},
    {0x1005, "<MSG>"},
    {0x201C, "CONN:INI_INVALID_VALUE"},
    {0x7004, "MQCRYPT:ALREADY_LOGED_IN"},
    {0x8007, "DB:EMPTY_SHEME"},
    {0x800A, "DB:INVALID_TYPE"},
    {0x8028, "DB:WRONG_ZQTIME_DATA_FORMAT"},
    {0x802A, "DB:NESTED_TRANSACTION"},
    {0x802B, "<DB>"},
    {0xA002, "REPL:OBJECT_CHANGED__"},
    {0xA005, "REPL:UNUSED_0"},
    {0xD00F, "VM:LAST"},
    {0xD010, "<VM>"},
    {0x10006, "MQSTAT:INVALID_NAME"},
    {0x13000, "PARSE:NULL_NOT_ALLOWED"},
    {0x13001, "<PARSE>"},
    {0x15000, "ISAMSM:CANNOT_CREATE_FILE_TO_MAP"},
    {0x1500E, "ISAMSM:FILE_VERSION_MISMATCH"},
    {0x1500F, "<ISAMSM>"},
    {0x16000, "No description"},
    {0x80000000, "No description"},
    {0xFFFFFFFF, "No description"},
};

TEST(ResultCodes, TextsAtTheEdgesOfTheTable) {
  for (const TextCase& c : kTexts) {
    EXPECT_STREQ(ZqErrGetDescrStr(c.code), c.text) << std::hex << c.code;
  }
}

TEST(ResultCodes, EveryConstantLooksUpItsOwnText) {
  int codes = 0;
#define CHECK_CODE(cat, catno, index, name, text)                                   \
  EXPECT_STREQ(ZqErrGetDescrStr(ZQERR_##cat##_##name), text);                       \
  EXPECT_EQ(static_cast<uint32_t>(ZQERR_##cat##_##name), ZQERR_CODE(catno, index)); \
  ++codes;
  ZQERR_CODE_MAP(CHECK_CODE)
#undef CHECK_CODE
  EXPECT_EQ(codes, 277);
}

TEST(ResultCodes, EachCategoryEndsInItsTag) {
  int categories = 0;
#define CHECK_TAG(name, catno, tag, count)                                  \
  EXPECT_STREQ(ZqErrGetDescrStr(ZQERR_CODE(catno, count)), tag);            \
  EXPECT_STREQ(ZqErrGetDescrStr(ZQERR_CODE(catno, ZQERR_INDEX_MASK)), tag); \
  EXPECT_STRNE(ZqErrGetDescrStr(ZQERR_CODE(catno, (count)-1)), tag);        \
  ++categories;
  ZQERR_CATEGORY_MAP(CHECK_TAG)
#undef CHECK_TAG
  EXPECT_EQ(categories, ZQERR_CATEGORY_COUNT);
}

TEST(ResultCodes, ConstantsKeepTheirNumbers) {
  EXPECT_EQ(ZQ_OK, 0u);
  EXPECT_EQ(ZQERR_COMMON_NO_MEMORY, 1);
  EXPECT_EQ(ZQERR_COMMON_NOT_OK, 21);
  EXPECT_EQ(ZQERR_MSG_BAD_PARSE_BLOCK, 0x1004);
  EXPECT_EQ(ZQERR_DB_INVALID_TYPE, 0x800A);
  EXPECT_EQ(ZQERR_MQSTAT_ALREADY_REGISTERED, 0x10000);
  EXPECT_EQ(ZQERR_ISAMSM_FILE_VERSION_MISMATCH, 0x1500E);
}

}  // namespace
