// Composing and parsing a message-like record by format, beside a
// hand-written memcpy codec of the same bytes.
//
// The record: three texts of 16 bytes, a u4, two u8, a 256-byte binary and
// four name/value pairs (a text name and a binary value).
#include <benchmark/benchmark.h>

#include <cstdarg>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <vector>

#include "msg/stream_engine.h"
#include "zqsys/zqstream.h"

namespace {

constexpr const char* kFormat = "c16c16c16u4u8u8b256cbcbcbcb";

struct Record {
  char from[16] = "desk-07/orders1";
  char to[16] = "router/matching";
  char category[16] = "ORDER_FILL_EVT1";
  std::uint32_t type = 4003;
  std::uint64_t sendId = 0x1122334455667788ull;
  std::uint64_t replyId = 42;
  std::uint8_t payload[256] = {};
  std::uint32_t payloadSize = 256;
  const char* names[4] = {"Account", "Symbol", "Quantity", "Price"};
  std::uint8_t values[4][16] = {};
  std::uint32_t valueSizes[4] = {12, 8, 4, 16};
};

struct Parsed {
  char from[17], to[17], category[17];
  std::uint32_t type;
  std::uint64_t sendId, replyId;
  std::uint8_t payload[256];
  std::uint32_t payloadSize;
  char names[4][32];
  std::uint8_t values[4][16];
  std::uint32_t valueSizes[4];
};

Record MakeRecord() {
  Record r;
  for (int i = 0; i < 256; ++i)
    r.payload[i] = static_cast<std::uint8_t>(i * 7);
  for (auto& value : r.values)
    std::memset(value, 0x5A, sizeof value);
  return r;
}

std::uint32_t Compose(ZQCOMPOSECTX& ctx, const char* format, ...) {
  va_list args;
  va_start(args, format);
  const std::uint32_t rc = zq::msg::ComposeV(ctx, format, args);
  va_end(args);
  return rc;
}

std::uint32_t ComposeRecord(ZQCOMPOSECTX& ctx, const Record& r) {
  return Compose(ctx, kFormat, r.from, r.to, r.category, r.type, r.sendId, r.replyId, r.payload,
                 r.payloadSize, r.names[0], r.values[0], r.valueSizes[0], r.names[1], r.values[1],
                 r.valueSizes[1], r.names[2], r.values[2], r.valueSizes[2], r.names[3], r.values[3],
                 r.valueSizes[3]);
}

// The hand-written codec: the same bytes with memcpy, lengths checked on
// the way back in as any parser of outside bytes must.
class HandCodec {
 public:
  explicit HandCodec(std::vector<std::uint8_t>& out) : out_(out) {}

  void Encode(const Record& r) {
    size_ = 0;
    Text(r.from);
    Text(r.to);
    Text(r.category);
    Fixed(&r.type, 4);
    Fixed(&r.sendId, 8);
    Fixed(&r.replyId, 8);
    Bytes(r.payload, r.payloadSize);
    for (int i = 0; i < 4; ++i) {
      Text(r.names[i]);
      Bytes(r.values[i], r.valueSizes[i]);
    }
  }
  std::size_t Size() const { return size_; }

  static bool Decode(const std::uint8_t* in, std::size_t size, Parsed& p) {
    std::size_t at = 0;
    auto fixed = [&](void* dest, std::size_t n) {
      if (size - at < n) return false;
      std::memcpy(dest, in + at, n);
      at += n;
      return true;
    };
    auto counted = [&](void* dest, std::uint32_t limit, std::uint32_t* count, bool text) {
      std::uint32_t n;
      if (!fixed(&n, 4) || n > limit || size - at < n) return false;
      if (text && (n == 0 || in[at + n - 1] != 0)) return false;
      std::memcpy(dest, in + at, n);
      at += n;
      if (count != nullptr) *count = n;
      return true;
    };
    bool ok = counted(p.from, 17, nullptr, true) && counted(p.to, 17, nullptr, true) &&
              counted(p.category, 17, nullptr, true) && fixed(&p.type, 4) && fixed(&p.sendId, 8) &&
              fixed(&p.replyId, 8) && counted(p.payload, 256, &p.payloadSize, false);
    for (int i = 0; ok && i < 4; ++i) {
      ok = counted(p.names[i], 32, nullptr, true) &&
           counted(p.values[i], 16, &p.valueSizes[i], false);
    }
    return ok;
  }

 private:
  void Reserve(std::size_t n) {
    if (out_.size() < size_ + n) out_.resize(2 * (size_ + n));
  }
  void Fixed(const void* v, std::size_t n) {
    Reserve(n);
    std::memcpy(out_.data() + size_, v, n);
    size_ += n;
  }
  void Counted(const void* v, std::uint32_t n) {
    Reserve(4 + n);
    std::memcpy(out_.data() + size_, &n, 4);
    std::memcpy(out_.data() + size_ + 4, v, n);
    size_ += 4 + n;
  }
  void Text(const char* s) { Counted(s, static_cast<std::uint32_t>(std::strlen(s) + 1)); }
  void Bytes(const void* v, std::uint32_t n) { Counted(v, n); }

  std::vector<std::uint8_t>& out_;
  std::size_t size_ = 0;
};

void BM_Compose_Engine(benchmark::State& state) {
  const Record record = MakeRecord();
  ZQCOMPOSECTX ctx{};
  for (auto _ : state) {
    ctx.size = 0;  // the buffer is kept, as a reused context keeps it
    if (ComposeRecord(ctx, record) != 0) throw std::runtime_error("compose failed");
    benchmark::DoNotOptimize(ctx.buffer);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * ctx.size);
  zq::msg::FreeComposeBuffer(ctx);
}
BENCHMARK(BM_Compose_Engine);

void BM_Compose_HandWritten(benchmark::State& state) {
  const Record record = MakeRecord();
  std::vector<std::uint8_t> out;
  HandCodec codec(out);
  for (auto _ : state) {
    codec.Encode(record);
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * codec.Size()));
}
BENCHMARK(BM_Compose_HandWritten);

std::vector<std::uint8_t> RecordStream() {
  ZQCOMPOSECTX ctx{};
  if (ComposeRecord(ctx, MakeRecord()) != 0) throw std::runtime_error("compose failed");
  std::vector<std::uint8_t> bytes(ctx.buffer, ctx.buffer + ctx.size);
  zq::msg::FreeComposeBuffer(ctx);

  // Both codecs write the same bytes.
  std::vector<std::uint8_t> out;
  HandCodec codec(out);
  codec.Encode(MakeRecord());
  if (codec.Size() != bytes.size() || std::memcmp(out.data(), bytes.data(), bytes.size()) != 0) {
    throw std::runtime_error("the codecs disagree");
  }
  return bytes;
}

void BM_Parse_Engine(benchmark::State& state) {
  const std::vector<std::uint8_t> bytes = RecordStream();
  HZQPARSER parser = nullptr;
  ZqSysCreateBinaryParser(&parser);
  Parsed p{};
  for (auto _ : state) {
    ZqSysInitParser(parser, bytes.data(), static_cast<std::uint32_t>(bytes.size()));
    const std::uint32_t rc =
        ZqSysParse(parser, kFormat, p.from, p.to, p.category, &p.type, &p.sendId, &p.replyId,
                   p.payload, &p.payloadSize, p.names[0], p.values[0], &p.valueSizes[0], p.names[1],
                   p.values[1], &p.valueSizes[1], p.names[2], p.values[2], &p.valueSizes[2],
                   p.names[3], p.values[3], &p.valueSizes[3]);
    if (rc != 0) throw std::runtime_error("parse failed");
    benchmark::DoNotOptimize(p);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes.size()));
  ZqSysFreeParser(parser);
}
BENCHMARK(BM_Parse_Engine);

void BM_Parse_HandWritten(benchmark::State& state) {
  const std::vector<std::uint8_t> bytes = RecordStream();
  Parsed p{};
  for (auto _ : state) {
    if (!HandCodec::Decode(bytes.data(), bytes.size(), p)) throw std::runtime_error("decode");
    benchmark::DoNotOptimize(p);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes.size()));
}
BENCHMARK(BM_Parse_HandWritten);

}  // namespace

BENCHMARK_MAIN();
