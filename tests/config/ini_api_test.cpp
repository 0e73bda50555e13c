#include <unistd.h>

#include <cstring>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "config/ini_test_util.h"
#include "zqsys/zqerr.h"
#include "zqsys/zqini.h"

namespace {

using namespace std::string_literals;

constexpr uint32_t kDefault = ZQINI_DEFAULT_HANDLE;
constexpr uint32_t kNotStarted = ZQERR_INI_NOT_STARTED;
constexpr uint32_t kInvalidHandle = ZQERR_INI_INVALID_INI_HANDLE;

class IniApi : public IniTest {
 protected:
  // A custom handle on a new file of that text.
  uint32_t Open(const std::string& text, const std::string& name = "t.ini") {
    Put(Path(name), text);
    uint32_t handle = 0;
    EXPECT_EQ(ZqIniCustOpen(&handle, Path(name).c_str()), 0u);
    handles_.push_back(handle);
    return handle;
  }
  void TearDown() override {
    for (const uint32_t handle : handles_)
      ZqIniCustClose(handle);
    ZqIniClose();
    ZqIniSetOpt(0);
    IniTest::TearDown();
  }
  std::vector<uint32_t> handles_;
};

TEST_F(IniApi, OpenRules) {
  Put(Path("a.ini"), "");
  EXPECT_EQ(ZqIniOpen(nullptr), 2u);
  EXPECT_EQ(ZqIniOpen(""), 2u);
  EXPECT_EQ(ZqIniOpen(Path("missing.ini").c_str()), uint32_t{ZQERR_INI_FILE_NOT_FOUND});
  EXPECT_EQ(ZqIniOpen(std::string(5000, 'a').c_str()), 3u);
  EXPECT_EQ(ZqIniIsOpened(), 0u);

  // A relative path is made full from the current directory, folded as text.
  const auto cwd = std::filesystem::current_path();
  std::filesystem::current_path(dir_);
  EXPECT_EQ(ZqIniOpen("./no/such/../.././a.ini"), 0u);
  std::filesystem::current_path(cwd);
  EXPECT_EQ(ZqIniIsOpened(), 1u);
  EXPECT_EQ(ZqIniOpen(Path("a.ini").c_str()), uint32_t{ZQERR_INI_ALREADY_STARTED});
  EXPECT_EQ(ZqIniCustClose(kDefault), 0u);
  EXPECT_EQ(ZqIniIsOpened(), 0u);

  uint32_t options = 9;
  EXPECT_EQ(ZqIniGetOpt(nullptr), 2u);
  EXPECT_EQ(ZqIniSetOpt(2), 2u);
  EXPECT_EQ(ZqIniGetOpt(&options), 0u);
  EXPECT_EQ(options, 0u);
  uint32_t handle = 7;
  EXPECT_EQ(ZqIniCustOpen(&handle, Path("x/y/z.ini").c_str()), uint32_t{ZQERR_INI_FILE_NOT_FOUND});
  EXPECT_EQ(handle, 0u);
  EXPECT_EQ(ZqIniSetOpt(ZQINI_OPT_CREATE_MISSING), 0u);
  EXPECT_EQ(ZqIniCustOpen(&handle, Path("x/y/z.ini").c_str()), 0u);
  EXPECT_TRUE(std::filesystem::is_regular_file(Path("x/y/z.ini")));
  EXPECT_EQ(ZqIniCustOpen(nullptr, Path("a.ini").c_str()), 2u);

  // Ids are never 0 and never issued twice.
  uint32_t again = 0;
  EXPECT_EQ(ZqIniCustClose(handle), 0u);
  EXPECT_EQ(ZqIniCustOpen(&again, Path("x/y/z.ini").c_str()), 0u);
  EXPECT_NE(handle, 0u);
  EXPECT_GT(again, handle);
  handles_.push_back(again);
}

TEST_F(IniApi, HandlesThatNameNothing) {
  uint32_t closed = Open("[a]\nk=1\n");
  ZqIniCustClose(closed);
  const auto ignore = [](auto...) -> uint32_t { return 0; };
  for (const uint32_t handle : {0u, closed, 12345u}) {
    EXPECT_EQ(ZqIniCustClose(handle), 0u);
    EXPECT_EQ(ZqIniCustGetInt(handle, "a", "k", -7), -7);
    char buffer[8] = "XXXXXXX";
    uint32_t size = sizeof buffer;
    EXPECT_EQ(ZqIniCustGetStr(handle, buffer, size, "a", "k", "dflt"), 4u);
    EXPECT_STREQ(buffer, "dflt");
    EXPECT_EQ(ZqIniCustGetSection(handle, buffer, &size, "a"), kInvalidHandle);
    EXPECT_EQ(ZqIniCustWriteInt(handle, "a", "k", 1), kInvalidHandle);
    EXPECT_EQ(ZqIniCustWriteStr(handle, "a", "k", "v"), kInvalidHandle);
    EXPECT_EQ(ZqIniCustWriteSection(handle, "a", "k=v\0"), kInvalidHandle);
    EXPECT_EQ(ZqIniCustEnumKeys(handle, "a", ignore, nullptr), kInvalidHandle);
    EXPECT_EQ(ZqIniCustEnumSections(handle, ignore, nullptr), kInvalidHandle);
  }
  // Unknown, the default is copied with one byte past the cut: no terminator
  // when it does not fit. Known but closed, it is cut and terminated.
  char buffer[6] = "XXXXX";
  EXPECT_EQ(ZqIniCustGetStr(0, buffer, 4, "a", "k", "abcdef"), 3u);
  EXPECT_EQ(std::string(buffer, 5), "abcdX");
  EXPECT_EQ(ZqIniCustGetStr(kDefault, buffer, 4, "a", "k", "abcdef"), 3u);
  EXPECT_EQ(std::string(buffer, 5), "abc\0X"s);
  for (const uint32_t handle : {0u, kDefault})
    EXPECT_EQ(ZqIniCustGetStr(handle, nullptr, 4, "a", "k", "abc"), 0u);
}

TEST_F(IniApi, StringsAreCleaned) {
  const uint32_t ini = Open(
      "[v]\nplain=abc // comment\nfour=a////b\nsix=a//////b\nlead= \tx\ntail=x \t // c\n"
      "only=// nothing\nquoted=\" q \"\n");
  const struct {
    const char* key;
    uint32_t size;
    const char* expected;
  } cases[] = {
      {"plain", 64, "abc"},    {"four", 64, "a//b"}, {"six", 64, "a//"},  {"lead", 64, "\tx"},
      {"tail", 64, "x"},       {"only", 64, ""},     {"quoted", 64, "q"}, {"plain", 3, "ab"},
      {"missing", 64, "dflt"}, {"four", 4, "a"},  // cut to "a//" first, then cleaned
  };
  for (const auto& c : cases) {
    char buffer[64];
    const uint32_t length = ZqIniCustGetStr(ini, buffer, c.size, "v", c.key, "  dflt // x ");
    EXPECT_EQ(std::string(buffer, length), c.expected) << c.key << " " << c.size;
    EXPECT_EQ(buffer[length], '\0');
  }
  // An empty name or a closed INI copies the default as it is.
  char buffer[64];
  EXPECT_EQ(ZqIniCustGetStr(ini, buffer, 64, "", "plain", " d // x"), 7u);
  EXPECT_EQ(ZqIniCustGetStr(kDefault, buffer, 64, "v", "plain", nullptr), 0u);
}

TEST_F(IniApi, Integers) {
  const uint32_t ini = Open(
      "[n]\nfive=5 // five\nneg=-12abc\nempty=\nword=abc\nbig=99999999999\nsmall=-99999999999\n"
      "quoted=\"42\"\n");
  const std::tuple<const char*, const char*, int32_t> cases[] = {
      {"n", "five", 5}, {"n", "neg", -12},       {"n", "empty", -1},        {"n", "missing", -1},
      {"n", "word", 0}, {"n", "big", INT32_MAX}, {"n", "small", INT32_MIN}, {"n", "quoted", 42},
      {"", "five", -1}, {"n", nullptr, -1},
  };
  for (const auto& [section, key, expected] : cases)
    EXPECT_EQ(ZqIniCustGetInt(ini, section, key, -1), expected) << (key ? key : "null");
  EXPECT_EQ(ZqIniCustGetInt(kDefault, "n", "five", -1), -1);  // not open
}

TEST_F(IniApi, Sections) {
  const uint32_t ini = Open("[s]\na=1 // one\n; comment\nb=  \n // only a comment\nc=x////y\n");
  const struct {
    uint32_t size;
    std::string bytes;
    uint32_t used;
  } cases[] = {
      {100, "a=1\0b=\0c=x//y\0\0"s, 14},
      {9, "a=1\0\0"s, 3},  // cut by the read, then cleaned
      {0, "", 0},
  };
  for (const auto& c : cases) {
    std::string buffer(100, 'X');
    uint32_t size = c.size;
    EXPECT_EQ(ZqIniCustGetSection(ini, buffer.data(), &size, "S"), 0u);
    EXPECT_EQ(size, c.used) << c.size;
    EXPECT_EQ(buffer.substr(0, c.bytes.size()), c.bytes) << c.size;
  }
  // A closed INI reads the file it had open.
  ASSERT_EQ(ZqIniOpen(Path("t.ini").c_str()), 0u);
  ZqIniClose();
  char buffer[100];
  uint32_t size = sizeof buffer;
  EXPECT_EQ(ZqIniCustGetSection(kDefault, buffer, &size, "s"), 0u);
  EXPECT_EQ(size, 14u);
  EXPECT_EQ(ZqIniCustGetSection(ini, nullptr, &size, "s"), 2u);
  EXPECT_EQ(ZqIniCustGetSection(ini, buffer, nullptr, "s"), 2u);
}

TEST_F(IniApi, Writes) {
  const uint32_t ini = Open("; settings\n[s]\nk = 1 ; old\n\n[t]\nx=1\n");
  EXPECT_EQ(ZqIniCustWriteInt(ini, "s", "K", 42), 0u);
  EXPECT_EQ(ZqIniCustWriteStr(ini, "s", "new", "v // kept"), 0u);
  EXPECT_EQ(ZqIniCustWriteStr(ini, "t", "x", nullptr), 0u);
  EXPECT_EQ(ZqIniCustWriteSection(ini, "u", "a=1\0b=2\0"), 0u);
  EXPECT_EQ(Get(Path("t.ini")), "; settings\n[s]\nk=42\nnew=v // kept\n\n[t]\n[u]\na=1\nb=2\n");
  EXPECT_EQ(ZqIniCustGetInt(ini, "s", "k", 0), 42);

  const uint32_t wrong = ZQERR_COMMON_WRONG_ARGUMENTS;
  EXPECT_EQ(ZqIniCustWriteStr(ini, "", "k", "v"), wrong);
  EXPECT_EQ(ZqIniCustWriteStr(ini, "s", nullptr, "v"), wrong);
  EXPECT_EQ(ZqIniCustWriteInt(ini, nullptr, "k", 1), wrong);
  EXPECT_EQ(ZqIniCustWriteSection(ini, "s", nullptr), wrong);
  EXPECT_EQ(ZqIniCustWriteStr(ini, "s", "k", "a\nb"), uint32_t{ZQERR_INI_WRITE_ERROR});
  EXPECT_EQ(ZqIniCustWriteStr(kDefault, "s", "k", "v"), kNotStarted);
  EXPECT_EQ(ZqIniCustWriteStr(ini, "s", "k", "v"), 0u);
  ZqIniCustClose(ini);
  EXPECT_EQ(Get(Path("t.ini")), "; settings\n[s]\nk=v\nnew=v // kept\n\n[t]\n[u]\na=1\nb=2\n");
}

struct Seen {
  std::vector<std::string> calls;
  uint32_t handle = 0;
  uint32_t stopAt = 0;  // 1-based call that returns 12
};

uint32_t OnKey(const char* section, char* key, char* value, void* context) {
  auto& seen = *static_cast<Seen*>(context);
  seen.calls.push_back(std::string(section) + "|" + key + "|" + value);
  // No lock is held: the callback may use the same handle.
  EXPECT_EQ(ZqIniCustWriteStr(seen.handle, "log", key, "seen"), 0u);
  return seen.calls.size() == seen.stopAt ? 12 : 0;
}

uint32_t OnSection(const char* name, void* context) {
  auto& seen = *static_cast<Seen*>(context);
  seen.calls.emplace_back(name);
  char buffer[8];
  ZqIniCustGetStr(seen.handle, buffer, sizeof buffer, name, "k", "");
  return seen.calls.size() == seen.stopAt ? 12 : 0;
}

TEST_F(IniApi, Enumerations) {
  Seen seen{{}, Open("[e]\n k1 = v1 // c\nnoequals\nk2=a=b\n  // gone\n[f]\n[]\n"), 0};
  EXPECT_EQ(ZqIniCustEnumKeys(seen.handle, "  e", OnKey, &seen), 0u);
  EXPECT_EQ(seen.calls, (std::vector<std::string>{"e|k1 | v1", "e|noequals|", "e|k2|a=b"}));
  seen.calls.clear();
  EXPECT_EQ(ZqIniCustEnumSections(seen.handle, OnSection, &seen), 0u);
  EXPECT_EQ(seen.calls, (std::vector<std::string>{"e", "f", "", "log"}));

  seen.stopAt = 2;
  seen.calls.clear();
  EXPECT_EQ(ZqIniCustEnumKeys(seen.handle, "e", OnKey, &seen), 12u);
  EXPECT_EQ(seen.calls.size(), 2u);
  seen.calls.clear();
  EXPECT_EQ(ZqIniCustEnumSections(seen.handle, OnSection, &seen), 12u);
  EXPECT_EQ(seen.calls.size(), 2u);

  EXPECT_EQ(ZqIniCustEnumKeys(seen.handle, "   ", OnKey, &seen), 2u);
  EXPECT_EQ(ZqIniCustEnumKeys(seen.handle, nullptr, OnKey, &seen), 2u);
  EXPECT_EQ(ZqIniCustEnumKeys(seen.handle, "e", nullptr, &seen), 2u);
  EXPECT_EQ(ZqIniCustEnumSections(seen.handle, nullptr, &seen), 2u);
  EXPECT_EQ(ZqIniCustEnumKeys(kDefault, "e", OnKey, &seen), kNotStarted);
  EXPECT_EQ(ZqIniCustEnumSections(kDefault, OnSection, &seen), kNotStarted);
}

// A section past the enumeration's buffer: every line handed out is whole,
// the cut one is held back, and the caller learns that lines are missing.
TEST_F(IniApi, EnumeratingALongSectionSaysItWasCut) {
  std::string text = "[long]\n";
  for (int i = 0; i < 3000; ++i)
    text += "key" + std::to_string(10000 + i) + "=0123456789\n";
  const uint32_t ini = Open(text);
  std::vector<std::string> lines;
  const auto collect = [](const char*, char* key, char* value, void* context) -> uint32_t {
    static_cast<std::vector<std::string>*>(context)->push_back(std::string(key) + "=" + value);
    return 0;
  };
  EXPECT_EQ(ZqIniCustEnumKeys(ini, "long", collect, &lines), uint32_t{ZQERR_INI_VALUE_TRUNCATED});
  ASSERT_GT(lines.size(), 1000u);
  ASSERT_LT(lines.size(), 3000u);
  for (std::size_t i = 0; i < lines.size(); ++i)
    ASSERT_EQ(lines[i], "key" + std::to_string(10000 + i) + "=0123456789");
  // A callback's own result still wins.
  EXPECT_EQ(
      ZqIniCustEnumKeys(
          ini, "long", [](const char*, char*, char*, void*) -> uint32_t { return 12; }, nullptr),
      12u);
}

// Four threads open, read, write and close handles on two files and share
// the default INI and one custom handle that one of them closes midway.
TEST_F(IniApi, ThreadsShareFilesAndHandles) {
  Put(Path("a.ini"), "[t]\n");
  Put(Path("b.ini"), "[t]\n");
  ASSERT_EQ(ZqIniOpen(Path("a.ini").c_str()), 0u);
  const uint32_t shared = Open("[t]\nk=5\n");
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      const std::string key = "k" + std::to_string(t);
      for (int i = 0; i < 25; ++i) {
        uint32_t handle = 0;
        ASSERT_EQ(ZqIniCustOpen(&handle, Path(i % 2 ? "a.ini" : "b.ini").c_str()), 0u);
        EXPECT_EQ(ZqIniCustWriteInt(handle, "t", key.c_str(), i), 0u);
        EXPECT_EQ(ZqIniCustGetInt(handle, "t", key.c_str(), -1), i);
        const int32_t value = ZqIniCustGetInt(shared, "t", "k", -1);
        EXPECT_TRUE(value == 5 || value == -1);
        char buffer[16];
        uint32_t size = sizeof buffer;
        ZqIniCustGetSection(kDefault, buffer, &size, "t");
        if (t == 0 && i == 12) ZqIniCustClose(shared);
        EXPECT_EQ(ZqIniCustClose(handle), 0u);
      }
    });
  }
  for (auto& thread : threads)
    thread.join();
  for (int t = 0; t < 4; ++t) {
    const std::string key = "k" + std::to_string(t);
    EXPECT_EQ(ZqIniCustGetInt(kDefault, "t", key.c_str(), -1), 23);
  }
}

// Runs after the library object is gone, at the exit of every test
// program: calls must answer, not crash.
__attribute__((destructor(101))) void CallAfterUnload() {
  char buffer[8];
  if (ZqIniOpen("/tmp/x.ini") != kNotStarted || ZqIniCustGetInt(kDefault, "a", "k", 3) != 3 ||
      ZqIniCustGetStr(kDefault, buffer, sizeof buffer, "a", "k", "d") != 1 ||
      ZqIniCustWriteStr(kDefault, "a", "k", "v") != kInvalidHandle || ZqIniIsOpened() != 0) {
    _exit(86);
  }
}

}  // namespace
