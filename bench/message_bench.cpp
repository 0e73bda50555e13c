// A typical message saved to its block and loaded back as a new message,
// beside msgpack-c packing and unpacking the same content.
//
// The content: from, to and category texts of 15 characters, a u4 type, two
// u8 ids, a 256-byte body and four user fields with values of 12, 8, 4 and
// 16 bytes. msgpack holds it as an array of eight: three str, three uint, a
// bin, and a map of the four names (str) to their values (bin).
//
// msgpack unpacks with msgpack_unpacked and msgpack_unpack_next, which gives
// each unpack a fresh zone, as a message load gives each message its own
// storage. Its str and bin objects point into the packed buffer, so the
// unpack side reads the sizes out to keep the work observable.
#include <benchmark/benchmark.h>
#include <msgpack.h>

#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "zqsys/zqmsg.h"

namespace {

constexpr const char* kFrom = "desk-07/orders1";
constexpr const char* kTo = "router/matching";
constexpr const char* kCategory = "ORDER_FILL_EVT1";
constexpr std::uint32_t kType = 4003;
constexpr std::uint64_t kSendId = 0x1122334455667788ull;
constexpr std::uint64_t kReplyId = 42;
constexpr std::uint32_t kBodySize = 256;
constexpr int kUserCount = 4;
constexpr const char* kUserNames[kUserCount] = {"Account", "Symbol", "Quantity", "Price"};
constexpr std::uint32_t kUserSizes[kUserCount] = {12, 8, 4, 16};

struct Content {
  std::uint8_t body[kBodySize];
  std::uint8_t values[kUserCount][16];
};

Content MakeContent() {
  Content c;
  for (std::uint32_t i = 0; i < kBodySize; ++i)
    c.body[i] = static_cast<std::uint8_t>(i * 7 + 1);
  for (int f = 0; f < kUserCount; ++f) {
    for (int i = 0; i < 16; ++i)
      c.values[f][i] = static_cast<std::uint8_t>(0x40 + f * 16 + i);
  }
  return c;
}

void Check(bool ok, const char* what) {
  if (!ok) throw std::runtime_error(what);
}

// ---- ZqSys messages ----

class MessageHandle {
 public:
  MessageHandle() = default;
  explicit MessageHandle(HZQMSG m) : m_(m) {}
  MessageHandle(const MessageHandle&) = delete;
  MessageHandle& operator=(const MessageHandle&) = delete;
  ~MessageHandle() { ZqMsgFreeMessage(m_); }
  HZQMSG get() const { return m_; }
  HZQMSG* out() { return &m_; }

 private:
  HZQMSG m_ = nullptr;
};

void BuildMessage(HZQMSG m, const Content& c) {
  Check(ZqMsgSetFieldStr(m, ZQMSG_FIELD_FROM, kFrom) == 0 &&
            ZqMsgSetFieldStr(m, ZQMSG_FIELD_TO, kTo) == 0 &&
            ZqMsgSetFieldStr(m, ZQMSG_FIELD_CATEGORY, kCategory) == 0 &&
            ZqMsgSetFieldUINT32(m, ZQMSG_FIELD_TYPE, kType) == 0 &&
            ZqMsgSetFieldUINT64(m, ZQMSG_FIELD_SENDID, kSendId) == 0 &&
            ZqMsgSetFieldUINT64(m, ZQMSG_FIELD_REPLYID, kReplyId) == 0 &&
            ZqMsgSetBody(m, c.body, kBodySize) == 0,
        "setting the system fields failed");
  for (int f = 0; f < kUserCount; ++f) {
    Check(ZqMsgSetField(m, kUserNames[f], c.values[f], kUserSizes[f]) == 0,
          "setting a user field failed");
  }
}

bool FieldIs(HZQMSG m, const char* name, const void* expected, std::uint32_t size) {
  const void* value = nullptr;
  std::uint32_t valueSize = 0;
  return ZqMsgGetBinaryField(m, name, &value, &valueSize) == 0 && valueSize == size &&
         std::memcmp(value, expected, size) == 0;
}

bool TextIs(HZQMSG m, const char* name, const char* text) {
  return FieldIs(m, name, text, static_cast<std::uint32_t>(std::strlen(text) + 1));
}

void CheckMessage(HZQMSG m, const Content& c) {
  Check(TextIs(m, ZQMSG_FIELD_FROM, kFrom) && TextIs(m, ZQMSG_FIELD_TO, kTo) &&
            TextIs(m, ZQMSG_FIELD_CATEGORY, kCategory) && FieldIs(m, ZQMSG_FIELD_TYPE, &kType, 4) &&
            FieldIs(m, ZQMSG_FIELD_SENDID, &kSendId, 8) &&
            FieldIs(m, ZQMSG_FIELD_REPLYID, &kReplyId, 8),
        "a loaded system field differs");
  const void* body = nullptr;
  std::uint32_t bodySize = 0;
  Check(ZqMsgGetBody(m, &body, &bodySize) == 0 && bodySize == kBodySize &&
            std::memcmp(body, c.body, kBodySize) == 0,
        "the loaded body differs");
  for (int f = 0; f < kUserCount; ++f) {
    Check(FieldIs(m, kUserNames[f], c.values[f], kUserSizes[f]), "a loaded user field differs");
  }
}

// A prepared message and a buffer its block fits in.
struct MessageFixture {
  Content content = MakeContent();
  MessageHandle message;
  std::vector<std::uint8_t> buffer;
  std::uint32_t blockSize = 0;

  MessageFixture() {
    Check(ZqMsgCreateMessage(message.out()) == 0, "ZqMsgCreateMessage failed");
    BuildMessage(message.get(), content);
    Check(ZqMsgGetMessageBlockSize(message.get(), &blockSize) == 0, "measuring failed");
    buffer.resize(blockSize);
    std::uint32_t size = blockSize;
    Check(ZqMsgSaveMessageToBlock(message.get(), buffer.data(), &size) == 0 && size == blockSize,
          "saving failed");
  }
};

void VerifyMessageRoundTrip() {
  MessageFixture fx;
  MessageHandle loaded;
  std::uint32_t used = 0;
  Check(ZqMsgCreateMessageFromBlock(fx.buffer.data(), fx.blockSize, loaded.out(), &used) == 0 &&
            used == fx.blockSize,
        "loading the block failed");
  CheckMessage(loaded.get(), fx.content);
}

void BM_Message_RoundTrip(benchmark::State& state) {
  MessageFixture fx;
  for (auto _ : state) {
    std::uint32_t size = static_cast<std::uint32_t>(fx.buffer.size());
    if (ZqMsgSaveMessageToBlock(fx.message.get(), fx.buffer.data(), &size) != 0) {
      throw std::runtime_error("save failed");
    }
    HZQMSG loaded = nullptr;
    if (ZqMsgCreateMessageFromBlock(fx.buffer.data(), size, &loaded, nullptr) != 0) {
      throw std::runtime_error("load failed");
    }
    benchmark::DoNotOptimize(loaded);
    ZqMsgFreeMessage(loaded);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * fx.blockSize);
}
BENCHMARK(BM_Message_RoundTrip);

void BM_Message_Save(benchmark::State& state) {
  MessageFixture fx;
  for (auto _ : state) {
    std::uint32_t size = static_cast<std::uint32_t>(fx.buffer.size());
    if (ZqMsgSaveMessageToBlock(fx.message.get(), fx.buffer.data(), &size) != 0) {
      throw std::runtime_error("save failed");
    }
    benchmark::DoNotOptimize(fx.buffer.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * fx.blockSize);
}
BENCHMARK(BM_Message_Save);

void BM_Message_LoadFree(benchmark::State& state) {
  MessageFixture fx;
  for (auto _ : state) {
    HZQMSG loaded = nullptr;
    if (ZqMsgCreateMessageFromBlock(fx.buffer.data(), fx.blockSize, &loaded, nullptr) != 0) {
      throw std::runtime_error("load failed");
    }
    benchmark::DoNotOptimize(loaded);
    ZqMsgFreeMessage(loaded);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * fx.blockSize);
}
BENCHMARK(BM_Message_LoadFree);

// ---- msgpack-c ----

void PackContent(msgpack_packer& pk, const Content& c) {
  msgpack_pack_array(&pk, 8);
  for (const char* text : {kFrom, kTo, kCategory}) {
    const std::size_t n = std::strlen(text);
    msgpack_pack_str(&pk, n);
    msgpack_pack_str_body(&pk, text, n);
  }
  msgpack_pack_uint32(&pk, kType);
  msgpack_pack_uint64(&pk, kSendId);
  msgpack_pack_uint64(&pk, kReplyId);
  msgpack_pack_bin(&pk, kBodySize);
  msgpack_pack_bin_body(&pk, c.body, kBodySize);
  msgpack_pack_map(&pk, kUserCount);
  for (int f = 0; f < kUserCount; ++f) {
    const std::size_t n = std::strlen(kUserNames[f]);
    msgpack_pack_str(&pk, n);
    msgpack_pack_str_body(&pk, kUserNames[f], n);
    msgpack_pack_bin(&pk, kUserSizes[f]);
    msgpack_pack_bin_body(&pk, c.values[f], kUserSizes[f]);
  }
}

// The unpacked object's shape, and the sum of the body and value sizes
// (zero when the shape is wrong).
std::size_t ReadSizes(const msgpack_object& root) {
  if (root.type != MSGPACK_OBJECT_ARRAY || root.via.array.size != 8) return 0;
  const msgpack_object* items = root.via.array.ptr;
  if (items[6].type != MSGPACK_OBJECT_BIN || items[7].type != MSGPACK_OBJECT_MAP ||
      items[7].via.map.size != kUserCount) {
    return 0;
  }
  std::size_t total = items[6].via.bin.size;
  const msgpack_object_kv* pairs = items[7].via.map.ptr;
  for (int f = 0; f < kUserCount; ++f) {
    if (pairs[f].val.type != MSGPACK_OBJECT_BIN) return 0;
    total += pairs[f].val.via.bin.size;
  }
  return total;
}

bool StrIs(const msgpack_object& o, const char* text) {
  const std::size_t n = std::strlen(text);
  return o.type == MSGPACK_OBJECT_STR && o.via.str.size == n &&
         std::memcmp(o.via.str.ptr, text, n) == 0;
}

bool BinIs(const msgpack_object& o, const void* bytes, std::uint32_t size) {
  return o.type == MSGPACK_OBJECT_BIN && o.via.bin.size == size &&
         std::memcmp(o.via.bin.ptr, bytes, size) == 0;
}

bool UintIs(const msgpack_object& o, std::uint64_t value) {
  return o.type == MSGPACK_OBJECT_POSITIVE_INTEGER && o.via.u64 == value;
}

void CheckUnpacked(const msgpack_object& root, const Content& c) {
  Check(root.type == MSGPACK_OBJECT_ARRAY && root.via.array.size == 8, "msgpack: not an array");
  const msgpack_object* items = root.via.array.ptr;
  Check(StrIs(items[0], kFrom) && StrIs(items[1], kTo) && StrIs(items[2], kCategory) &&
            UintIs(items[3], kType) && UintIs(items[4], kSendId) && UintIs(items[5], kReplyId) &&
            BinIs(items[6], c.body, kBodySize),
        "msgpack: a header value differs");
  Check(items[7].type == MSGPACK_OBJECT_MAP && items[7].via.map.size == kUserCount,
        "msgpack: not a map of the user fields");
  for (int f = 0; f < kUserCount; ++f) {
    const msgpack_object_kv& kv = items[7].via.map.ptr[f];
    Check(StrIs(kv.key, kUserNames[f]) && BinIs(kv.val, c.values[f], kUserSizes[f]),
          "msgpack: a user field differs");
  }
}

constexpr std::size_t kExpectedSizes = kBodySize + 12 + 8 + 4 + 16;

struct PackFixture {
  Content content = MakeContent();
  msgpack_sbuffer sbuf;
  msgpack_packer pk;

  PackFixture() {
    msgpack_sbuffer_init(&sbuf);
    msgpack_packer_init(&pk, &sbuf, msgpack_sbuffer_write);
    PackContent(pk, content);  // the buffer reaches its size once, here
  }
  PackFixture(const PackFixture&) = delete;
  PackFixture& operator=(const PackFixture&) = delete;
  ~PackFixture() { msgpack_sbuffer_destroy(&sbuf); }
};

void VerifyMsgpackRoundTrip() {
  PackFixture fx;
  msgpack_unpacked unpacked;
  msgpack_unpacked_init(&unpacked);
  std::size_t offset = 0;
  const msgpack_unpack_return rc =
      msgpack_unpack_next(&unpacked, fx.sbuf.data, fx.sbuf.size, &offset);
  const bool ok = rc == MSGPACK_UNPACK_SUCCESS && offset == fx.sbuf.size;
  std::string error;
  if (!ok) {
    error = "msgpack: unpacking failed";
  } else {
    try {
      CheckUnpacked(unpacked.data, fx.content);
    } catch (const std::runtime_error& e) {
      error = e.what();
    }
  }
  msgpack_unpacked_destroy(&unpacked);
  Check(error.empty(), error.c_str());
}

// One unpack and read-out, each from its own zone.
std::size_t UnpackAndRead(const msgpack_sbuffer& sbuf) {
  msgpack_unpacked unpacked;
  msgpack_unpacked_init(&unpacked);
  std::size_t offset = 0;
  std::size_t sizes = 0;
  if (msgpack_unpack_next(&unpacked, sbuf.data, sbuf.size, &offset) == MSGPACK_UNPACK_SUCCESS) {
    sizes = ReadSizes(unpacked.data);
  }
  msgpack_unpacked_destroy(&unpacked);
  return sizes;
}

void BM_Msgpack_RoundTrip(benchmark::State& state) {
  PackFixture fx;
  for (auto _ : state) {
    msgpack_sbuffer_clear(&fx.sbuf);
    PackContent(fx.pk, fx.content);
    const std::size_t sizes = UnpackAndRead(fx.sbuf);
    if (sizes != kExpectedSizes) throw std::runtime_error("msgpack: unpack failed");
    benchmark::DoNotOptimize(sizes);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * fx.sbuf.size));
}
BENCHMARK(BM_Msgpack_RoundTrip);

void BM_Msgpack_Pack(benchmark::State& state) {
  PackFixture fx;
  for (auto _ : state) {
    msgpack_sbuffer_clear(&fx.sbuf);
    PackContent(fx.pk, fx.content);
    benchmark::DoNotOptimize(fx.sbuf.data);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * fx.sbuf.size));
}
BENCHMARK(BM_Msgpack_Pack);

void BM_Msgpack_Unpack(benchmark::State& state) {
  PackFixture fx;
  for (auto _ : state) {
    const std::size_t sizes = UnpackAndRead(fx.sbuf);
    if (sizes != kExpectedSizes) throw std::runtime_error("msgpack: unpack failed");
    benchmark::DoNotOptimize(sizes);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * fx.sbuf.size));
}
BENCHMARK(BM_Msgpack_Unpack);

}  // namespace

int main(int argc, char** argv) {
  VerifyMessageRoundTrip();
  VerifyMsgpackRoundTrip();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
