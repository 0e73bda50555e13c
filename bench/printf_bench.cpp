// The printf engine beside glibc snprintf and {fmt} format_to_n, each
// writing the same text into a 256-byte buffer: a log line, three integers,
// a fixed-point float and a general float. Values vary from one iteration to
// the next so that no side formats a constant.
#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <cstdio>
#include <cstring>

#include "zqsys/zqprintf.h"

namespace {

constexpr const char* kLogFormat =
    "%04u-%02u-%02u %02u:%02u:%02u.%03u;%s;%s;order %d filled at %s qty %u";
constexpr double kFloats[] = {3.14159265358979,  -1234.5678,   0.000123456, 98765.4321, 1e-5, 42.0,
                              2.718281828459045, 6.02214076e23};
constexpr int kFloatCount = sizeof(kFloats) / sizeof(kFloats[0]);

struct Line {
  unsigned year = 2026, month = 11, day = 21, hour = 14, minute = 3, second = 59, ms = 0;
  const char* severity = "INFO";
  const char* category = "matching";
  int order = 0;
  const char* price = "101.25";
  unsigned quantity = 0;
};

Line LineFor(unsigned i) {
  Line line;
  line.ms = i % 1000;
  line.order = 100000 + static_cast<int>(i % 900000);
  line.quantity = 1 + i % 5000;
  return line;
}

void LogLineOurs(benchmark::State& state) {
  char buffer[256];
  unsigned i = 0;
  for (auto _ : state) {
    const Line l = LineFor(i++);
    benchmark::DoNotOptimize(ZqSysSNPrintf(buffer, sizeof(buffer), kLogFormat, l.year, l.month,
                                           l.day, l.hour, l.minute, l.second, l.ms, l.severity,
                                           l.category, l.order, l.price, l.quantity));
    benchmark::ClobberMemory();
  }
}

void LogLineSnprintf(benchmark::State& state) {
  char buffer[256];
  unsigned i = 0;
  for (auto _ : state) {
    const Line l = LineFor(i++);
    benchmark::DoNotOptimize(std::snprintf(buffer, sizeof(buffer), kLogFormat, l.year, l.month,
                                           l.day, l.hour, l.minute, l.second, l.ms, l.severity,
                                           l.category, l.order, l.price, l.quantity));
    benchmark::ClobberMemory();
  }
}

void LogLineFmt(benchmark::State& state) {
  char buffer[256];
  unsigned i = 0;
  for (auto _ : state) {
    const Line l = LineFor(i++);
    benchmark::DoNotOptimize(fmt::format_to_n(
        buffer, sizeof(buffer) - 1,
        "{:04}-{:02}-{:02} {:02}:{:02}:{:02}.{:03};{};{};order {} filled at {} qty {}", l.year,
        l.month, l.day, l.hour, l.minute, l.second, l.ms, l.severity, l.category, l.order, l.price,
        l.quantity));
    benchmark::ClobberMemory();
  }
}

void IntegersOurs(benchmark::State& state) {
  char buffer[256];
  unsigned i = 0;
  for (auto _ : state) {
    ++i;
    benchmark::DoNotOptimize(ZqSysSNPrintf(buffer, sizeof(buffer), "%d %u %x",
                                           static_cast<int>(i * 2654435761u), i * 40503u, i));
    benchmark::ClobberMemory();
  }
}

void IntegersSnprintf(benchmark::State& state) {
  char buffer[256];
  unsigned i = 0;
  for (auto _ : state) {
    ++i;
    benchmark::DoNotOptimize(std::snprintf(buffer, sizeof(buffer), "%d %u %x",
                                           static_cast<int>(i * 2654435761u), i * 40503u, i));
    benchmark::ClobberMemory();
  }
}

void IntegersFmt(benchmark::State& state) {
  char buffer[256];
  unsigned i = 0;
  for (auto _ : state) {
    ++i;
    benchmark::DoNotOptimize(fmt::format_to_n(buffer, sizeof(buffer) - 1, "{} {} {:x}",
                                              static_cast<int>(i * 2654435761u), i * 40503u, i));
    benchmark::ClobberMemory();
  }
}

int Ours(char* buffer, std::size_t size, const char* format, double value) {
  return ZqSysSNPrintf(buffer, static_cast<uint32_t>(size), format, value);
}

int Snprintf(char* buffer, std::size_t size, const char* format, double value) {
  return std::snprintf(buffer, size, format, value);
}

int Fmt(char* buffer, std::size_t size, const char* format, double value) {
  const auto spec = std::strcmp(format, "%.6f") == 0
                        ? fmt::format_to_n(buffer, size - 1, "{:.6f}", value)
                        : fmt::format_to_n(buffer, size - 1, "{:g}", value);
  return static_cast<int>(spec.size);
}

using FloatFormatter = int (*)(char*, std::size_t, const char*, double);

void Floats(benchmark::State& state, FloatFormatter format_one, const char* format) {
  char buffer[256];
  unsigned i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(
        format_one(buffer, sizeof(buffer), format, kFloats[i++ % kFloatCount]));
    benchmark::ClobberMemory();
  }
}

BENCHMARK(LogLineOurs);
BENCHMARK(LogLineSnprintf);
BENCHMARK(LogLineFmt);
BENCHMARK(IntegersOurs);
BENCHMARK(IntegersSnprintf);
BENCHMARK(IntegersFmt);
BENCHMARK_CAPTURE(Floats, FixedOurs, Ours, "%.6f");
BENCHMARK_CAPTURE(Floats, FixedSnprintf, Snprintf, "%.6f");
BENCHMARK_CAPTURE(Floats, FixedFmt, Fmt, "%.6f");
BENCHMARK_CAPTURE(Floats, GeneralOurs, Ours, "%g");
BENCHMARK_CAPTURE(Floats, GeneralSnprintf, Snprintf, "%g");
BENCHMARK_CAPTURE(Floats, GeneralFmt, Fmt, "%g");

}  // namespace

BENCHMARK_MAIN();
