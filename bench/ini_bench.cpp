// Reading values from a 500-key INI file through a handle, whose parsed
// form is kept and checked with one stat per read, beside reading the file
// and parsing it from scratch for every value.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "config/ini_engine.h"
#include "config/ini_text.h"
#include "os/file.h"
#include "zqsys/zqini.h"

namespace {

constexpr int kKeys = 500;

std::string g_path;
std::vector<std::string> g_keys;
std::uint32_t g_handle = 0;

// "[bench]" with key000=0 // note ... key499=499 // note, dated an hour back
// so that the file counts as settled.
void MakeFile() {
  std::string dir = std::filesystem::temp_directory_path() / "zqsys-ini-bench-XXXXXX";
  if (mkdtemp(dir.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
  g_path = dir + "/bench.ini";
  std::ofstream out(g_path, std::ios::binary);
  out << "; benchmark settings\n[bench]\n";
  for (int i = 0; i < kKeys; ++i) {
    char key[8];
    std::snprintf(key, sizeof key, "key%03d", i);
    g_keys.emplace_back(key);
    out << key << " = " << i << " // note " << i << "\n";
  }
  out.close();
  const timespec times[2] = {{0, UTIME_OMIT}, {time(nullptr) - 3600, 0}};
  utimensat(AT_FDCWD, g_path.c_str(), times, 0);
  if (ZqIniCustOpen(&g_handle, g_path.c_str()) != 0) throw std::runtime_error("open failed");
}

// What an INI read costs without the kept parsed form.
std::uint32_t ReparseGetStr(const char* key, char* buffer, std::uint32_t size) {
  const zq::os::CFileDescriptor file = zq::os::OpenFile(g_path, O_RDONLY);
  std::string text;
  if (!file || !zq::os::ReadAll(file.Get(), text)) return 0;
  const zq::config::CIniDocument document(std::move(text));
  return static_cast<std::uint32_t>(
      zq::config::CleanValue(buffer, document.GetString("bench", key, "", buffer, size)));
}

void BM_GetStr_Cached(benchmark::State& state) {
  char buffer[64];
  std::size_t i = 0;
  for (auto _ : state) {
    const auto& key = g_keys[i++ % kKeys];
    benchmark::DoNotOptimize(
        ZqIniCustGetStr(g_handle, buffer, sizeof buffer, "bench", key.c_str(), ""));
  }
}
BENCHMARK(BM_GetStr_Cached);

void BM_GetStr_Reparse(benchmark::State& state) {
  char buffer[64];
  std::size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(ReparseGetStr(g_keys[i++ % kKeys].c_str(), buffer, sizeof buffer));
  }
}
BENCHMARK(BM_GetStr_Reparse);

void BM_GetInt_Cached(benchmark::State& state) {
  std::size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(ZqIniCustGetInt(g_handle, "bench", g_keys[i++ % kKeys].c_str(), -1));
  }
}
BENCHMARK(BM_GetInt_Cached);

void BM_GetInt_Reparse(benchmark::State& state) {
  char buffer[40];
  std::size_t i = 0;
  for (auto _ : state) {
    ReparseGetStr(g_keys[i++ % kKeys].c_str(), buffer, sizeof buffer);
    benchmark::DoNotOptimize(std::strtol(buffer, nullptr, 10));
  }
}
BENCHMARK(BM_GetInt_Reparse);

// Both ways read the same values.
void Verify() {
  for (int i = 0; i < kKeys; i += 97) {
    char cached[64], reparsed[64];
    ZqIniCustGetStr(g_handle, cached, sizeof cached, "bench", g_keys[i].c_str(), "");
    ReparseGetStr(g_keys[i].c_str(), reparsed, sizeof reparsed);
    if (std::string(cached) != reparsed || std::to_string(i) != cached ||
        ZqIniCustGetInt(g_handle, "bench", g_keys[i].c_str(), -1) != i) {
      throw std::runtime_error("the two reads differ at " + g_keys[i]);
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  MakeFile();
  Verify();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  ZqIniCustClose(g_handle);
  std::filesystem::remove_all(std::filesystem::path(g_path).parent_path());
  return 0;
}
