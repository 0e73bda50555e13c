// Log lines to a file, beside spdlog's synchronous basic file logger with
// the same line shape:
//   2026-11-21 10:00:00.123;orders;error;order 7 filled at XPAR-07 qty 100
#include <benchmark/benchmark.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "zqsys/zqini.h"
#include "zqsys/zqlog.h"

namespace {

std::filesystem::path Scratch(const char* name) {
  const auto dir =
      std::filesystem::temp_directory_path() / ("zqsys-log-bench-" + std::to_string(getpid()));
  std::filesystem::create_directories(dir);
  return dir / name;
}

uint32_t g_log = 0;
std::shared_ptr<spdlog::logger> g_spdlog;

void OpenOurs(const benchmark::State&) {
  const auto ini = Scratch("bench.ini");
  std::ofstream(ini) << "[zqsyslog]\nlogtoconsole=0\nlogfiledepth=1\nlogfile="
                     << Scratch("ours.log").string() << "\n";
  uint32_t handle = 0;
  ZqIniCustOpen(&handle, ini.c_str());
  ZqLogCustOpenEx(&g_log, nullptr, handle);
  ZqIniCustClose(handle);
}
void CloseOurs(const benchmark::State&) {
  ZqLogCustClose(g_log);
}

template <bool kShared>
void OpenSpdlog(const benchmark::State&) {
  const std::string path = Scratch("spdlog.log").string();
  g_spdlog = kShared ? spdlog::basic_logger_mt("orders", path, true)
                     : spdlog::basic_logger_st("orders", path, true);
  g_spdlog->set_pattern("%Y-%m-%d %H:%M:%S.%e;%n;%l;%v");
}
void CloseSpdlog(const benchmark::State&) {
  g_spdlog->flush();
  g_spdlog.reset();
  spdlog::drop_all();
}

void Ours(benchmark::State& state) {
  for (auto _ : state) {
    ZqLogCustErrorEx(g_log, "orders", "order %d filled at %s qty %d", 7, "XPAR-07", 100);
  }
  state.SetItemsProcessed(state.iterations());
}

void Spdlog(benchmark::State& state) {
  for (auto _ : state)
    g_spdlog->error("order {} filled at {} qty {}", 7, "XPAR-07", 100);
  state.SetItemsProcessed(state.iterations());
}

}  // namespace

BENCHMARK(Ours)->Setup(OpenOurs)->Teardown(CloseOurs)->Threads(1)->Threads(2)->UseRealTime();
BENCHMARK(Spdlog)
    ->Name("Spdlog_st")
    ->Setup(OpenSpdlog<false>)
    ->Teardown(CloseSpdlog)
    ->Threads(1)
    ->UseRealTime();
BENCHMARK(Spdlog)
    ->Name("Spdlog_mt")
    ->Setup(OpenSpdlog<true>)
    ->Teardown(CloseSpdlog)
    ->Threads(1)
    ->Threads(2)
    ->UseRealTime();

BENCHMARK_MAIN();
