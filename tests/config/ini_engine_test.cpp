#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "config/ini_engine.h"
#include "zqsys/zqerr.h"

namespace {

using zq::config::CIniDocument;
using namespace std::string_literals;

std::string Read(const char* text, const char* section, const char* key,
                 const char* fallback = "(default)") {
  char buffer[64];
  const uint32_t length = CIniDocument(text).GetString(section, key, fallback, buffer, 64);
  return std::string(buffer, length);
}

TEST(IniEngine, Reads) {
  const struct {
    const char* text;
    const char* section;
    const char* key;
    const char* expected;
  } cases[] = {
      {"[a]\nk=v\n", "a", "k", "v"},
      {"[a]b]c\nk=1", "a", "k", "1"},   // the name ends at the first ']'
      {"[ab\nk=1", "ab", "k", "1"},     // a missing ']' is accepted
      {"  [ x ]\nk=1", "x", "k", "1"},  // blanks inside the brackets go
      {"[]\nk=1", "", "k", "1"},        // a section named ""
      {"[a]\n;k=1\n", "a", ";k", "(default)"},
      {"[a]\n  ;k=1\n", "a", ";k", "(default)"},
      {"[a]\n#k=1\n", "a", "#k", "1"},               // '#' is an ordinary character
      {"[a]\nk=v ;x\n", "a", "k", "v ;x"},           // no end-of-line comments
      {"[a]\nk=1\n[a]\nk=2\nj=3\n", "a", "k", "1"},  // only the first section counts
      {"[a]\nk=1\n[a]\nk=2\nj=3\n", "a", "j", "(default)"},
      {"[a]\nk=1\nk=2\n", "a", "k", "1"},  // the first key wins
      {"[Sec]\nKey=V\n", "sEC", "kEY", "V"},
      {"[a]\nk=1\n", "  a ", " k  ", "1"},      // the caller's names lose spaces
      {"[a]\nk=1\n", "\ta", "k", "(default)"},  // ... and only spaces
      {"[a]\nk=\"q\"\n", "a", "k", "q"},
      {"[a]\nk='q'\n", "a", "k", "q"},
      {"[a]\nk=\"q'\n", "a", "k", "\"q'"},
      {"[a]\nk=\"\n", "a", "k", "\""},
      {"[a]\nk= \" x \" \n", "a", "k", " x "},
      {"[a]\n k =  v \t\v\n", "a", "k", "v"},
      {"[a]\nk= \tx\n", "a", "k", "\tx"},  // a leading tab stays
      {"[a]\nk=\n", "a", "k", ""},
      {"[a]\nplain\n", "a", "plain", "(default)"},
      {"k=1\n[a]\n", "", "k", "(default)"},  // lines before the first section
      {"[a]\rj=0\rk=1", "a", "k", "1"},
      {"[a]\r\nk=1\r\n", "a", "k", "1"},
      {"\xEF\xBB\xBF[a]\nk=1", "a", "k", "1"},
      {"[a]\nk=1\n", "b", "k", "(default)"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(Read(c.text, c.section, c.key), c.expected) << c.text;
  }
  EXPECT_EQ(Read("", "a", "k", "  d \t "), "  d \t");  // the default loses trailing spaces
  EXPECT_EQ(Read("", "a", "k", nullptr), "");
}

TEST(IniEngine, ValueCutToBuffer) {
  const CIniDocument document("[a]\nk=abcdef\n");
  for (const uint32_t size : {0u, 1u, 4u, 6u, 7u, 20u}) {
    char buffer[20];
    std::fill(std::begin(buffer), std::end(buffer), 'X');
    const uint32_t length = document.GetString("a", "k", "", buffer, size);
    const uint32_t expected = size == 0 ? 0 : std::min(6u, size - 1);
    EXPECT_EQ(length, expected) << size;
    EXPECT_EQ(std::string(buffer, length), std::string("abcdef", expected));
    EXPECT_EQ(buffer[length], size == 0 ? 'X' : '\0');
  }
}

TEST(IniEngine, Lists) {
  const char* file = "[a]\n k1 = \"v\" \n;c\n\nplain\n[b]\n[a]\nk3=3\n";
  enum Which { kNames, kSection, kKeys };
  const struct {
    const char* text;
    Which which;
    const char* section;
    uint32_t size;
    std::string bytes;  // the buffer from its start to the final NUL
    uint32_t result;
  } cases[] = {
      {file, kNames, "", 100, "a\0b\0a\0\0"s, 6},
      {file, kSection, "a", 100, "k1 = \"v\"\0plain\0\0"s, 15},
      {file, kKeys, "A", 100, "k1\0\0"s, 3},
      {file, kNames, "", 8, "a\0b\0a\0\0"s, 6},
      {file, kNames, "", 7, "a\0b\0a\0\0"s, 5},  // an exact fit counts as cut
      {file, kNames, "", 4, "a\0\0\0"s, 2},
      {file, kNames, "", 3, "a\0\0"s, 1},
      {file, kNames, "", 2, "\0\0"s, 0},
      {file, kNames, "", 1, "\0"s, 0},
      {file, kSection, "a", 9, "k1 = \"v\0\0"s, 7},
      {file, kSection, "zz", 100, "\0"s, 0},
      {"", kNames, "", 100, "\0"s, 0},
      {"[abcdef]\n", kNames, "", 5, "abc\0\0"s, 3},
  };
  for (const auto& c : cases) {
    const CIniDocument document(c.text);
    std::string buffer(c.size + 1, 'X');
    const uint32_t result = c.which == kNames ? document.GetSectionNames(buffer.data(), c.size)
                            : c.which == kSection
                                ? document.GetSection(c.section, buffer.data(), c.size)
                                : document.GetKeyNames(c.section, buffer.data(), c.size);
    EXPECT_EQ(result, c.result) << c.which << " " << c.size;
    EXPECT_EQ(buffer.substr(0, c.bytes.size()), c.bytes) << c.which << " " << c.size;
    EXPECT_EQ(buffer[c.size], 'X') << "wrote past the buffer";
  }
}

TEST(IniEngine, WriteString) {
  const struct {
    const char* before;
    const char* section;
    const char* key;    // null deletes the section
    const char* value;  // null deletes the key
    const char* after;  // null: the file stays as it is
  } cases[] = {
      {"; top\n[A]\n  Key = old ; c\nx=1\n", "a", "KEY", "new", "; top\n[A]\nKey=new\nx=1\n"},
      {"[a]\nx=1\n\n; about b\n[b]\n", "a", "y", "2", "[a]\nx=1\ny=2\n\n; about b\n[b]\n"},
      {"[a]\n; c\n[b]\n", "a", "k", "v", "[a]\nk=v\n; c\n[b]\n"},
      {"[a]\nx=1", "b", "k", "v", "[a]\nx=1\n[b]\nk=v\n"},
      {"[a]\nx=1", "a", "y", "2", "[a]\nx=1\ny=2\n"},
      {"[a]\r\nx=1\r\n", "a", "y", "2", "[a]\r\nx=1\r\ny=2\r\n"},
      {"[a]\rx=1\r", "b", "k", "v", "[a]\rx=1\r[b]\rk=v\r"},
      {"", " s ", " k ", " v ", "[s]\nk= v \n"},
      {"\xEF\xBB\xBF[a]\nk=1\n", "a", "k", "2", "\xEF\xBB\xBF[a]\nk=2\n"},
      {"[a]\nk=1\n[a]\nk=2\n", "a", "k", "9", "[a]\nk=9\n[a]\nk=2\n"},
      {"[a]\n k = v\n", "a", "k", "v", nullptr},  // the value it has
      {"[a]\nx=1\nk=2\n;c\n", "a", "k", nullptr, "[a]\nx=1\n;c\n"},
      {"[a]\nx=1\n", "a", "k", nullptr, nullptr},
      {"[a]\nx=1\n", "b", "k", nullptr, nullptr},
      {"[a]\nx=1\n; about a\n\ny=2\n[b]\nz=3", "A", nullptr, nullptr, "; about a\n\n[b]\nz=3"},
      {"[a]\nx=1\n", "b", nullptr, nullptr, nullptr},
  };
  for (const auto& c : cases) {
    const auto change = zq::config::WriteString(CIniDocument(c.before), c.section, c.key, c.value);
    EXPECT_EQ(change.code, 0u);
    EXPECT_EQ(change.text, c.after ? std::optional<std::string>(c.after) : std::nullopt)
        << c.before;
  }
}

TEST(IniEngine, WriteSection) {
  const char* file = "[a]\n;c\nx=1\n\nother\n[b]\n";
  const auto replace = [](const char* text, const char* section, const std::string& data) {
    return zq::config::WriteSection(CIniDocument(text), section, data.c_str());
  };
  EXPECT_EQ(replace(file, "a", "k=1\0j=2\0"s).text, "[a]\nk=1\nj=2\n;c\n\n[b]\n");
  EXPECT_EQ(replace(file, "s", "k=1\0"s).text, "[a]\n;c\nx=1\n\nother\n[b]\n[s]\nk=1\n");
  EXPECT_EQ(zq::config::WriteSection(CIniDocument(file), "a", nullptr).text, ";c\n\n[b]\n");

  // A line break in anything written would break the file's lines.
  const uint32_t refused = ZQERR_INI_WRITE_ERROR;
  EXPECT_EQ(replace(file, "a", "k=1\nx=2\0"s).code, refused);
  EXPECT_EQ(replace(file, "a\r", "k=1\0"s).code, refused);
  EXPECT_EQ(zq::config::WriteString(CIniDocument(file), "a", "k", "1\r\n").code, refused);
  EXPECT_EQ(zq::config::WriteString(CIniDocument(file), "a", "k\n", "1").code, refused);
}

// Names a read would not find again are refused; those it finds are written
// and read back.
TEST(IniEngine, WritesOnlyWhatReadsBack) {
  const char* file = "[a]\nx=1\n";
  struct Case {
    const char* section;
    const char* key;
    bool written;
  };
  const Case cases[] = {
      {"a", "k=v", false},  {"a", ";k", false},  {"a", "  ;k", false}, {"a", "[k]", false},
      {"a", "\t[k", false}, {"a", "k\t", false}, {"a", "\vk", false},  {"a]b", "k", false},
      {"a\t", "k", false},  {"\fa", "k", false}, {"a", "k;[", true},   {"a", " k ", true},
      {"[a", "k", true},    {"a[b", "x]", true}, {"a", "k#", true},
  };
  for (const Case& c : cases) {
    const CIniDocument document(file);
    const auto change = zq::config::WriteString(document, c.section, c.key, "v");
    if (!c.written) {
      EXPECT_EQ(change.code, uint32_t{ZQERR_INI_WRITE_ERROR}) << c.section << "|" << c.key;
      EXPECT_EQ(zq::config::WriteString(document, c.section, c.key, nullptr).code,
                uint32_t{ZQERR_INI_WRITE_ERROR});
      continue;
    }
    ASSERT_EQ(change.code, 0u) << c.section << "|" << c.key;
    EXPECT_EQ(CIniDocument(*change.text).Find(c.section, c.key), "v") << c.section << "|" << c.key;
  }

  const auto replace = [&](const std::string& data) {
    return zq::config::WriteSection(CIniDocument(file), "a", data.c_str()).code;
  };
  EXPECT_EQ(replace("k=1\0;c=2\0"s), uint32_t{ZQERR_INI_WRITE_ERROR});
  EXPECT_EQ(replace("k=1\0 [b]\0"s), uint32_t{ZQERR_INI_WRITE_ERROR});
  EXPECT_EQ(replace("k=1\0; comment\0"s), uint32_t{ZQERR_INI_WRITE_ERROR});
  EXPECT_EQ(replace("k=[1]\0other;\0"s), 0u);
  EXPECT_EQ(zq::config::WriteSection(CIniDocument(file), "a]", "k=1\0").code,
            uint32_t{ZQERR_INI_WRITE_ERROR});
}

}  // namespace
