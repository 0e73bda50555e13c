// Guaranteed-delivery posts per second through a real zqrouter, with 1, 8
// and 64 posting applications (one thread and connection each), beside:
//
// - plain posts of the same message through the same router in the same
//   run, to a receiver that reads its socket and throws the bytes away;
// - SQLite's own rate for one insert per committed transaction, with the
//   router's settings (WAL, synchronous=FULL), in the same directory: the
//   floor that grouping the posts of a loop pass into one commit must beat.
//
// The GRNT posts go to an application that never connects, so each figure
// is the post and its commit alone. The router and both databases live in a
// scratch directory under TMPDIR (or /tmp), removed at the end: point
// TMPDIR at the disk to measure.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <sqlite3.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <benchmark/benchmark.h>

#include <atomic>
#include <cstdio>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <thread>

#include "zqsys/zqmq.h"
#include "zqsys/zqmsg.h"

namespace {

void Check(bool ok, const char* what) {
  if (!ok) throw std::runtime_error(what);
}

// The scratch directory, the router process and a sink application that
// reads everything sent to it, for the whole program.
class Platform {
 public:
  Platform() {
    std::string pattern = (std::filesystem::temp_directory_path() / "zqsys-grnt-bench-XXXXXX");
    Check(mkdtemp(pattern.data()) != nullptr, "mkdtemp");
    dir_ = pattern;
    Check(ZqMQStartup() == 0, "ZqMQStartup");
    StartRouter();
    StartSink();
  }
  ~Platform() {
    stop_ = true;
    if (sinkThread_.joinable()) sinkThread_.join();
    if (sink_ >= 0) close(sink_);
    kill(pid_, SIGTERM);
    waitpid(pid_, nullptr, 0);
    ZqMQCleanup();
    std::error_code ignored;
    std::filesystem::remove_all(dir_, ignored);
  }
  static Platform& Get() {
    static Platform platform;
    return platform;
  }
  const std::filesystem::path& Dir() const { return dir_; }
  std::string ConnectionString(const std::string& app) const {
    return "APPNAME=" + app + ";PORT=" + std::to_string(port_);
  }

 private:
  void StartRouter() {
    const std::string ini = (dir_ / "zqrouter.ini").string();
    std::FILE* f = std::fopen(ini.c_str(), "w");
    Check(f != nullptr, "INI file");
    std::fprintf(f,
                 "[zqrouter]\nnode=bench\ntime_sync_period_ms=0\n[zqrouter_log]\nlogfile=%s\n"
                 "logtoconsole=0\nlogtosyslog=0\n",
                 (dir_ / "router.log").c_str());
    std::fclose(f);
    int out[2];
    Check(pipe(out) == 0, "pipe");
    pid_ = fork();
    if (pid_ == 0) {
      dup2(out[1], STDOUT_FILENO);
      close(out[0]);
      execl(ZQROUTER_PATH, ZQROUTER_PATH, "--config", ini.c_str(), "--port", "0", "--data-dir",
            dir_.c_str(), static_cast<char*>(nullptr));
      _exit(127);
    }
    close(out[1]);
    std::string line;
    char c = 0;
    while (read(out[0], &c, 1) == 1 && c != '\n')
      line.push_back(c);
    close(out[0]);
    const std::size_t colon = line.rfind(':');
    Check(line.find("listening on") != std::string::npos && colon != std::string::npos,
          "zqrouter did not start");
    port_ = static_cast<std::uint16_t>(std::stoi(line.substr(colon + 1)));
  }

  // The receiver of plain posts: a raw connection that says its hello and
  // then only reads.
  void StartSink() {
    sink_ = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port_);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    Check(connect(sink_, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0, "sink");
    static const char kHello[] = "Local\0APPNAME=sink\0";
    Check(send(sink_, kHello, sizeof kHello - 1, 0) == sizeof kHello - 1, "sink hello");
    timeval tick{0, 100000};
    setsockopt(sink_, SOL_SOCKET, SO_RCVTIMEO, &tick, sizeof tick);
    sinkThread_ = std::thread([this] {
      static char buffer[1 << 16];
      while (!stop_ && recv(sink_, buffer, sizeof buffer, 0) != 0) {
      }
    });
  }

  std::filesystem::path dir_;
  pid_t pid_ = -1;
  std::uint16_t port_ = 0;
  int sink_ = -1;
  std::atomic<bool> stop_{false};
  std::thread sinkThread_;
};

std::atomic<int> nextApp{0};

// One posting application per benchmark thread, each with its own name.
void Posts(benchmark::State& state, bool guaranteed) {
  Platform& platform = Platform::Get();
  std::uint32_t handle = 0;
  Check(ZqMQCreateConnection(&handle) == 0, "connection");
  const std::string app = "poster" + std::to_string(nextApp++);
  Check(ZqMQConnectEx(handle, platform.ConnectionString(app).c_str(), 5000, nullptr) == 0,
        "connect");
  HZQMSG message = nullptr;
  ZqMsgCreateMessage(&message);
  ZqMsgSetFieldStr(message, ZQMSG_FIELD_TO, guaranteed ? "bench.absent" : "bench.sink");
  ZqMsgSetBodyStr(message, "a message of some sixty-four bytes, as a small event would be..");
  if (guaranteed) ZqMsgSetFieldUINT32(message, ZQMQ_FIELD_FLAGS, ZQMQ_FLAG_GUARANTEED);
  for (auto _ : state) {
    if (ZqMQPostMsg(handle, message) != 0) {
      state.SkipWithError("post failed");
      break;
    }
  }
  state.SetItemsProcessed(state.iterations());
  ZqMsgFreeMessage(message);
  ZqMQFreeConnection(handle);
}

void BM_GrntPost(benchmark::State& state) {
  Posts(state, true);
}
void BM_PlainPost(benchmark::State& state) {
  Posts(state, false);
}

// One insert per committed transaction, with the store's settings.
void BM_SqliteCommit(benchmark::State& state) {
  const std::string path = (Platform::Get().Dir() / "reference.db").string();
  sqlite3* db = nullptr;
  Check(sqlite3_open(path.c_str(), &db) == SQLITE_OK, "sqlite3_open");
  Check(sqlite3_exec(db,
                     "PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL;"
                     "CREATE TABLE IF NOT EXISTS m(id INTEGER PRIMARY KEY, block BLOB NOT NULL);",
                     nullptr, nullptr, nullptr) == SQLITE_OK,
        "schema");
  sqlite3_stmt* insert = nullptr;
  sqlite3_prepare_v2(db, "INSERT INTO m(block) VALUES(?)", -1, &insert, nullptr);
  const std::string block(160, 'b');
  for (auto _ : state) {
    sqlite3_bind_blob(insert, 1, block.data(), static_cast<int>(block.size()), SQLITE_STATIC);
    if (sqlite3_step(insert) != SQLITE_DONE) {
      state.SkipWithError("insert failed");
      break;
    }
    sqlite3_reset(insert);
  }
  state.SetItemsProcessed(state.iterations());
  sqlite3_finalize(insert);
  sqlite3_close(db);
}

BENCHMARK(BM_GrntPost)->UseRealTime()->Threads(1)->Threads(8)->Threads(64);
BENCHMARK(BM_PlainPost)->UseRealTime()->Threads(1)->Threads(8)->Threads(64);
BENCHMARK(BM_SqliteCommit)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
