#include <malloc.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <set>
#include <string>

#include "config/ini_engine.h"
#include "config/ini_test_util.h"
#include "os/file.h"
#include "zqsys/zqerr.h"
#include "zqsys/zqini.h"

namespace {

class IniFile : public IniTest {
 protected:
  void SetUp() override {
    IniTest::SetUp();
    file_ = Path("f.ini");
    Put(file_, "[s]\nk=old\n");
    ASSERT_EQ(ZqIniCustOpen(&handle_, file_.c_str()), 0u);
  }
  void TearDown() override {
    ZqIniCustClose(handle_);
    IniTest::TearDown();
  }
  std::string Value(const char* key = "k") {
    char buffer[64];
    return std::string(buffer, ZqIniCustGetStr(handle_, buffer, sizeof buffer, "s", key, "-"));
  }
  std::string file_;
  uint32_t handle_ = 0;
};

// Edits by another program are seen by the next read, however little they
// change what stat says.
TEST_F(IniFile, ReadsSeeEditsByOthers) {
  ASSERT_EQ(Value(), "old");
  std::ofstream(file_, std::ios::binary | std::ios::trunc) << "[s]\nk=new\n";  // same size
  EXPECT_EQ(Value(), "new");
  Put(file_, "[s]\nk=abc\n");
  EXPECT_EQ(Value(), "abc");

  // Rewritten in place with its old modification time: only the change
  // time tells.
  struct stat before {};
  stat(file_.c_str(), &before);
  std::ofstream(file_, std::ios::binary | std::ios::in) << "[s]\nk=xyz\n";
  const timespec times[2] = {before.st_atim, before.st_mtim};
  utimensat(AT_FDCWD, file_.c_str(), times, 0);
  EXPECT_EQ(Value(), "xyz");

  Put(Path("other.ini"), "[s]\nk=renamed\n");
  std::filesystem::rename(Path("other.ini"), file_);
  EXPECT_EQ(Value(), "renamed");
  std::filesystem::remove(file_);
  EXPECT_EQ(Value(), "-");
}

TEST_F(IniFile, WritesKeepModeAndLinks) {
  std::filesystem::permissions(file_, std::filesystem::perms(0640));
  ASSERT_EQ(ZqIniCustWriteStr(handle_, "s", "k", "v1"), 0u);
  EXPECT_EQ(std::filesystem::status(file_).permissions(), std::filesystem::perms(0640));

  std::filesystem::create_symlink(file_, Path("link.ini"));
  uint32_t link = 0;
  ASSERT_EQ(ZqIniCustOpen(&link, Path("link.ini").c_str()), 0u);
  EXPECT_EQ(ZqIniCustWriteStr(link, "s", "k", "v2"), 0u);
  ZqIniCustClose(link);
  EXPECT_TRUE(std::filesystem::is_symlink(Path("link.ini")));
  EXPECT_EQ(Value(), "v2");
}

// A write that fails at any step leaves the old file and nothing else.
TEST_F(IniFile, FailedStepsLeaveTheOldFile) {
  using zq::os::FileStep;
  for (const FileStep step :
       {FileStep::kMakeTemp, FileStep::kWrite, FileStep::kSync, FileStep::kRename}) {
    zq::os::FailFileStepForTesting(step);
    EXPECT_EQ(ZqIniCustWriteStr(handle_, "s", "k", "new"), uint32_t{ZQERR_INI_WRITE_ERROR});
    EXPECT_EQ(Get(file_), "[s]\nk=old\n");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir_), {}), 1);
  }
  EXPECT_EQ(ZqIniCustWriteStr(handle_, "s", "k", "new"), 0u);
  EXPECT_EQ(Get(file_), "[s]\nk=new\n");
}

// Only regular files are read or replaced. Opens name what they found; a
// handle whose path turned into something else reads defaults and fails its
// writes, and leaves that thing as it was.
TEST_F(IniFile, OnlyRegularFilesAreUsed) {
  const std::string fifo = Path("fifo.ini"), zero = Path("zero.ini"), loop = Path("loop.ini");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0644), 0);
  // Held open for writing, so that an open for reading does not wait.
  const int fifoWriter = open(fifo.c_str(), O_RDWR | O_CLOEXEC);
  std::filesystem::create_directory(Path("dir.ini"));
  std::filesystem::create_symlink(loop, loop);
  const bool devices = zqtest::MakeCharDevice(zero, 5);
  const struct {
    std::string path;
    uint32_t rc;
  } cases[] = {
      {fifo, ZQERR_COMMON_NOT_SUPPORTED},           {Path("dir.ini"), ZQERR_COMMON_NOT_SUPPORTED},
      {zero, ZQERR_COMMON_NOT_SUPPORTED},           {loop, ZQERR_COMMON_SYSCALL_FAILED},
      {Path("none.ini"), ZQERR_INI_FILE_NOT_FOUND},
  };
  for (const auto& c : cases) {
    if (c.path == zero && !devices) continue;
    SCOPED_TRACE(c.path);
    uint32_t other = 0;
    EXPECT_EQ(ZqIniCustOpen(&other, c.path.c_str()), c.rc);
    ZqIniCustClose(other);
  }
  ZqIniSetOpt(ZQINI_OPT_CREATE_MISSING);
  uint32_t other = 0;
  EXPECT_EQ(ZqIniCustOpen(&other, fifo.c_str()), uint32_t{ZQERR_COMMON_NOT_SUPPORTED});
  ZqIniSetOpt(0);

  // The path of an open handle now names a FIFO, then a device.
  std::filesystem::rename(fifo, file_);
  EXPECT_EQ(Value(), "-");
  EXPECT_EQ(ZqIniCustWriteStr(handle_, "s", "k", "new"), uint32_t{ZQERR_INI_WRITE_ERROR});
  EXPECT_TRUE(std::filesystem::is_fifo(file_));
  close(fifoWriter);
  if (!devices) GTEST_SKIP() << "no private device nodes here";
  std::filesystem::remove(file_);
  ASSERT_TRUE(zqtest::MakeCharDevice(file_, 3));
  EXPECT_EQ(Value(), "-");
  EXPECT_EQ(ZqIniCustWriteStr(handle_, "s", "k", "new"), uint32_t{ZQERR_INI_WRITE_ERROR});
  EXPECT_TRUE(std::filesystem::is_character_file(file_));
}

// Temporary files of writers that died are removed by the next write;
// nothing else beside the file is touched.
TEST_F(IniFile, NextWriteRemovesStaleTemporaryFiles) {
  for (const char* name : {".f.ini.Ab12Cd", ".f.ini.zzzzzz"})
    Put(Path(name), "[s]\nk=half");
  const char* kept[] = {".f.ini.toolong1", ".f.ini.ab-12c", ".g.ini.Ab12Cd", ".f.ini.dir123",
                        ".f.ini.lnk123"};
  for (const char* name : {kept[0], kept[1], kept[2]})
    Put(Path(name), "x");
  std::filesystem::create_directory(Path(kept[3]));
  std::filesystem::create_symlink(file_, Path(kept[4]));

  ASSERT_EQ(ZqIniCustWriteStr(handle_, "s", "k", "new"), 0u);
  std::set<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(dir_))
    names.insert(entry.path().filename().string());
  std::set<std::string> expected(std::begin(kept), std::end(kept));
  expected.insert("f.ini");
  EXPECT_EQ(names, expected);
}

// The bytes malloc has handed out and not had back.
std::size_t HeapInUse() {
  return mallinfo2().uordblks;
}

// A file's parsed form goes with the last handle on it, and so does the
// table's note of a path that no handle uses.
TEST_F(IniFile, ClosedFilesAreReleased) {
  std::string big = "[s]\n";
  for (int k = 0; big.size() < (8u << 20); ++k)
    big += "key" + std::to_string(k) + "=some value of a line\n";
  Put(Path("big.ini"), big);
  const std::size_t before = HeapInUse();
  uint32_t handle = 0;
  ASSERT_EQ(ZqIniCustOpen(&handle, Path("big.ini").c_str()), 0u);
  EXPECT_EQ(ZqIniCustGetInt(handle, "s", "nothing", 7), 7);
  if (HeapInUse() < before + big.size()) {
    ZqIniCustClose(handle);
    GTEST_SKIP() << "this allocator is not seen through mallinfo2";
  }
  ZqIniCustClose(handle);
  EXPECT_LT(HeapInUse(), before + big.size() / 8);

  const std::size_t afterBig = HeapInUse();
  for (int i = 0; i < 5000; ++i) {
    const std::string path = Path("gone" + std::to_string(i) + "-with-a-longer-name.ini");
    EXPECT_EQ(ZqIniCustOpen(&handle, path.c_str()), uint32_t{ZQERR_INI_FILE_NOT_FOUND});
  }
  EXPECT_LT(HeapInUse(), afterBig + 64 * 1024);
}

// Forks `count` writers running `body(index)`; each exits 0 on success.
template <class Body>
std::vector<pid_t> Fork(int count, Body body) {
  std::vector<pid_t> children;
  for (int i = 0; i < count; ++i) {
    const pid_t pid = fork();
    if (pid == 0) _exit(body(i) ? 0 : 1);
    children.push_back(pid);
  }
  return children;
}

// A writer killed in the middle of a long series of writes leaves a whole
// file that holds, for each key, its old or its new value.
TEST_F(IniFile, KilledWriterLeavesAWholeFile) {
  constexpr int kKeys = 20;
  int rounds[2];
  ASSERT_EQ(pipe(rounds), 0);
  const auto children = Fork(1, [&](int) {
    for (int round = 1;; ++round) {
      for (int k = 0; k < kKeys; ++k) {
        if (ZqIniCustWriteInt(handle_, "c", ("k" + std::to_string(k)).c_str(), round) != 0)
          return false;
      }
      if (write(rounds[1], "r", 1) != 1) return false;
    }
  });
  char done;
  for (int round = 0; round < 3; ++round)
    ASSERT_EQ(read(rounds[0], &done, 1), 1);
  kill(children[0], SIGKILL);
  waitpid(children[0], nullptr, 0);
  close(rounds[0]);
  close(rounds[1]);

  // Keys are written in order, so the file holds a run of keys with the
  // newest round, then the rest with the round before it.
  const zq::config::CIniDocument document(Get(file_));
  std::vector<int> values;
  for (int k = 0; k < kKeys; ++k) {
    const auto value = document.Find("c", "k" + std::to_string(k));
    ASSERT_TRUE(value.has_value()) << k;
    values.push_back(std::stoi(std::string(*value)));
  }
  EXPECT_TRUE(std::is_sorted(values.rbegin(), values.rend()));
  EXPECT_LE(values.front() - values.back(), 1);
  EXPECT_GE(values.back(), 3);
}

// Four processes writing 200 keys each to one file at once lose none.
TEST_F(IniFile, ConcurrentWritersLoseNoUpdate) {
  const auto children = Fork(4, [&](int writer) {
    uint32_t handle = 0;
    if (const uint32_t rc = ZqIniCustOpen(&handle, file_.c_str()); rc != 0) {
      std::fprintf(stderr, "writer %d: open gave 0x%X\n", writer, rc);
      return false;
    }
    for (int k = 0; k < 200; ++k) {
      const std::string key = "w" + std::to_string(writer) + "k" + std::to_string(k);
      if (const uint32_t rc = ZqIniCustWriteInt(handle, "s", key.c_str(), k); rc != 0) {
        std::fprintf(stderr, "writer %d: write %d gave 0x%X, errno %d\n", writer, k, rc, errno);
        return false;
      }
    }
    return true;
  });
  for (const pid_t child : children) {
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "status 0x" << std::hex << status;
  }
  std::set<std::string> keys;
  const auto collect = [](const char*, char* key, char*, void* context) -> uint32_t {
    static_cast<std::set<std::string>*>(context)->insert(key);
    return 0;
  };
  EXPECT_EQ(ZqIniCustEnumKeys(handle_, "s", collect, &keys), 0u);
  EXPECT_EQ(keys.size(), 801u);  // with k
  EXPECT_EQ(ZqIniCustGetInt(handle_, "s", "w3k199", -1), 199);
}

}  // namespace
