#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "os/memory.h"
#include "zqsys/zqerr.h"
#include "zqsys/zqmsg.h"

namespace {

using Bytes = std::vector<uint8_t>;
constexpr uint32_t kNotFound = ZQERR_MSG_FIELD_NOT_FOUND;
constexpr uint8_t kFF = 0xFF;

Bytes SaveBlock(HZQMSG message) {
  uint32_t size = 0;
  EXPECT_EQ(ZqMsgGetMessageBlockSize(message, &size), 0u);
  Bytes block(size);
  EXPECT_EQ(ZqMsgSaveMessageToBlock(message, block.data(), &size), 0u);
  EXPECT_EQ(size, block.size());
  return block;
}

// A message freed when the test ends.
struct Message {
  Message() { EXPECT_EQ(ZqMsgCreateMessage(&handle), 0u); }
  explicit Message(HZQMSG adopted) : handle(adopted) {}
  ~Message() { ZqMsgFreeMessage(handle); }
  HZQMSG handle = nullptr;
};

const Bytes kHeaderStart = {5, 0, 0, 0, 'Z', 'O', 'R', 'K', 0, 1, 0, 0, 0};

Bytes Concat(std::initializer_list<Bytes> parts) {
  Bytes all;
  for (const Bytes& part : parts)
    all.insert(all.end(), part.begin(), part.end());
  return all;
}

// A new message: zero numbers, four null texts and the terminator.
const Bytes kEmptyBlock =
    Concat({kHeaderStart, Bytes(4 + 8 + 8, 0), Bytes(4 * 4, kFF), Bytes(8, kFF)});
constexpr size_t kHeaderSize = 57;

// Every system field, a body and three user fields, the last one empty.
void FillFull(HZQMSG m) {
  ASSERT_EQ(ZqMsgSetFieldStr(m, "Zq_From", "A"), 0u);
  ASSERT_EQ(ZqMsgSetFieldStr(m, "Zq_To", "B"), 0u);
  ASSERT_EQ(ZqMsgSetFieldUINT32(m, "Zq_Type", 0x4003), 0u);
  ASSERT_EQ(ZqMsgSetFieldUINT64(m, "Zq_SendId", 0x0102030405060708ull), 0u);
  ASSERT_EQ(ZqMsgSetFieldUINT64(m, "Zq_ReplyId", 9), 0u);
  ASSERT_EQ(ZqMsgSetFieldStr(m, "Zq_Category", "C"), 0u);
  const uint8_t body[] = {0xAA, 0xBB};
  ASSERT_EQ(ZqMsgSetBody(m, body, 2), 0u);
  ASSERT_EQ(ZqMsgSetFieldUINT8(m, "x", 1), 0u);
  const uint8_t yy[] = {2, 3};
  ASSERT_EQ(ZqMsgSetField(m, "yy", yy, 2), 0u);
  ASSERT_EQ(ZqMsgSetField(m, "z", nullptr, 0), 0u);
}

const Bytes kFullBlock = Concat({
    kHeaderStart,
    {0x03, 0x40, 0, 0},        // type
    {8, 7, 6, 5, 4, 3, 2, 1},  // send id
    {9, 0, 0, 0, 0, 0, 0, 0},  // reply id
    {2, 0, 0, 0, 'A', 0},      // from
    {2, 0, 0, 0, 'B', 0},      // to
    {2, 0, 0, 0, 0xAA, 0xBB},  // body
    {2, 0, 0, 0, 'C', 0},      // category
    {2, 0, 0, 0, 'x', 0, 1, 0, 0, 0, 1},
    {3, 0, 0, 0, 'y', 'y', 0, 2, 0, 0, 0, 2, 3},
    {2, 0, 0, 0, 'z', 0, kFF, kFF, kFF, kFF},
    Bytes(8, kFF),  // the terminator
});

// Loads a block that must load.
HZQMSG Load(const Bytes& block, uint32_t* used = nullptr) {
  HZQMSG loaded = nullptr;
  EXPECT_EQ(ZqMsgCreateMessageFromBlock(block.data(), block.size(), &loaded, used), 0u);
  return loaded;
}

TEST(MessageBlock, SaveWritesTheGoldenBytes) {
  Message empty, full;
  FillFull(full.handle);
  ASSERT_EQ(kEmptyBlock.size(), kHeaderSize);
  EXPECT_EQ(SaveBlock(empty.handle), kEmptyBlock);
  EXPECT_EQ(SaveBlock(full.handle), kFullBlock);

  // A buffer one byte short is refused and left as it was.
  Bytes buffer(kFullBlock.size() - 1, 0x11);
  uint32_t size = buffer.size();
  EXPECT_EQ(ZqMsgSaveMessageToBlock(full.handle, buffer.data(), &size),
            ZQERR_COMMON_BUFFER_TOO_SMALL);
  EXPECT_EQ(size, buffer.size());
  EXPECT_EQ(buffer, Bytes(buffer.size(), 0x11));
}

TEST(MessageBlock, LoadRebuildsTheSameMessage) {
  uint32_t used = 0;
  Message m(Load(kFullBlock, &used));
  EXPECT_EQ(used, kFullBlock.size());
  EXPECT_EQ(SaveBlock(m.handle), kFullBlock);

  char text[8] = {};
  uint32_t size = sizeof text;
  EXPECT_EQ(ZqMsgCopyField(m.handle, "Zq_From", text, &size), 0u);
  EXPECT_STREQ(text, "A");
  EXPECT_EQ(size, 2u);
  uint64_t sendId = 0;
  EXPECT_EQ(ZqMsgCopyFieldUINT64(m.handle, "Zq_SendId", &sendId), 0u);
  EXPECT_EQ(sendId, 0x0102030405060708ull);
  const void* value = nullptr;
  EXPECT_EQ(ZqMsgGetBinaryField(m.handle, "z", &value, &size), 0u);
  EXPECT_EQ(value, nullptr);
  EXPECT_EQ(size, 0u);

  // The loader is lenient: bytes after the terminator are not read; any
  // signature text will do; a block may end right after the header.
  Bytes trailing = kFullBlock;
  trailing.push_back(0x42);
  Message again(Load(trailing, &used));
  EXPECT_EQ(used, kFullBlock.size());
  Bytes header(kFullBlock.begin(), kFullBlock.begin() + kHeaderSize);
  std::memcpy(header.data() + 4, "XXXX", 4);
  Message bare(Load(header, &used));
  EXPECT_EQ(used, kHeaderSize);
  EXPECT_EQ(ZqMsgGetBinaryField(bare.handle, "x", &value, &size), kNotFound);
}

TEST(MessageBlock, MalformedBlocksFailAndLeaveTheHandle) {
  const HZQMSG sentinel = reinterpret_cast<HZQMSG>(0x1);
  for (size_t cut = 0; cut < kFullBlock.size() - 8; ++cut) {
    // Right after the header and after each pair, a block may end.
    if (cut == kHeaderSize || cut == 68 || cut == 81) continue;
    HZQMSG loaded = sentinel;
    const uint32_t rc = ZqMsgCreateMessageFromBlock(kFullBlock.data(), cut, &loaded, nullptr);
    EXPECT_EQ(rc, ZQERR_MSG_BAD_PARSE_BLOCK) << cut;
    EXPECT_EQ(loaded, sentinel) << cut;
  }
  // A user pair naming "Zq_Type" with 3 bytes is refused as ZqMsgSetField is.
  const Bytes bad =
      Concat({Bytes(kFullBlock.begin(), kFullBlock.begin() + kHeaderSize),
              {8, 0, 0, 0, 'Z', 'q', '_', 'T', 'y', 'p', 'e', 0, 3, 0, 0, 0, 1, 2, 3}});
  HZQMSG loaded = sentinel;
  EXPECT_EQ(ZqMsgCreateMessageFromBlock(bad.data(), bad.size(), &loaded, nullptr), 2u);
  EXPECT_EQ(loaded, sentinel);
}

TEST(MessageBlock, ReadFieldsStraightFromTheBlock) {
  const uint8_t* base = kFullBlock.data();
  const uint32_t n = kFullBlock.size();
  const void* value = nullptr;
  uint32_t size = 0;
  EXPECT_EQ(ZqMsgGetBinaryFieldFromBlock(base, n, "Zq_To", &value, &size), 0u);
  EXPECT_STREQ(static_cast<const char*>(value), "B");
  EXPECT_EQ(size, 2u);
  EXPECT_EQ(ZqMsgGetBinaryFieldFromBlock(base, n, "yy", &value, &size), 0u);
  const auto* bytes = static_cast<const uint8_t*>(value);
  EXPECT_EQ(Bytes(bytes, bytes + size), (Bytes{2, 3}));
  EXPECT_TRUE(bytes > base && bytes < base + n);  // points into the block
  EXPECT_EQ(ZqMsgGetBinaryFieldFromBlock(base, n, "nope", &value, &size), kNotFound);
  // A new message has no texts: they are not found.
  EXPECT_EQ(ZqMsgGetBinaryFieldFromBlock(kEmptyBlock.data(), kHeaderSize, "Zq_From", &value, &size),
            kNotFound);
  EXPECT_EQ(ZqMsgGetBinaryFieldFromBlock(base, 20, "Zq_To", &value, &size),
            ZQERR_MSG_BAD_PARSE_BLOCK);

  uint32_t type = 0;
  EXPECT_EQ(ZqMsgCopyFieldFromBlockUINT32(base, n, "Zq_Type", &type), 0u);
  EXPECT_EQ(type, 0x4003u);
  uint8_t x = 0;
  EXPECT_EQ(ZqMsgCopyFieldFromBlockUINT8(base, n, "x", &x), 0u);
  EXPECT_EQ(x, 1);
  uint16_t small = 0;
  EXPECT_EQ(ZqMsgCopyFieldFromBlockUINT16(base, n, "Zq_Type", &small),
            ZQERR_COMMON_BUFFER_TOO_SMALL);
  char text[4];
  size = 1;
  EXPECT_EQ(ZqMsgCopyFieldFromBlock(base, n, "Zq_From", text, &size),
            ZQERR_COMMON_BUFFER_TOO_SMALL);
  EXPECT_EQ(size, 1u);
}

// A block may name a user field twice: the later value replaces the earlier
// one in its place, also past the point where loading indexes the names, and
// the array of user fields grows well past its first 16 entries.
TEST(MessageBlock, RepeatedNamesReplaceInPlace) {
  const auto block = [](bool withRepeats) {
    ZQCOMPOSECTX ctx{};
    EXPECT_EQ(ZqMsgCompose(&ctx, "cu4u4u8u8ccbc", "ZORK", 1, 0, 0ull, 0ull, nullptr, nullptr,
                           nullptr, 0u, nullptr),
              0u);
    const auto put = [&ctx](int i, int value) {
      EXPECT_EQ(ZqMsgCompose(&ctx, "cb", ("f" + std::to_string(i)).c_str(), &value, 4u), 0u);
    };
    for (int i = 0; i < 5000; ++i)
      put(i, (i == 3 || i == 40 || i == 4999) && !withRepeats ? -i : i);
    for (int i : {3, 40, 4999}) {
      if (withRepeats) put(i, -i);
    }
    EXPECT_EQ(ZqMsgCompose(&ctx, "cb", nullptr, nullptr, 0u), 0u);
    Bytes bytes(ctx.buffer, ctx.buffer + ctx.size);
    ZqMsgFreeCompose(&ctx);
    return bytes;
  };
  Message m(Load(block(true)));
  EXPECT_EQ(SaveBlock(m.handle), block(false));
}

TEST(MessageFields, ArgumentAndSizeRules) {
  Message m;
  uint32_t four = 4;
  EXPECT_EQ(ZqMsgCreateMessage(nullptr), 2u);
  EXPECT_EQ(ZqMsgSetField(m.handle, "Zq_Type", &four, 3), 2u);
  EXPECT_EQ(ZqMsgSetField(m.handle, "Zq_SendId", &four, 4), 2u);
  EXPECT_EQ(ZqMsgSetField(m.handle, "", &four, 4), 2u);
  EXPECT_EQ(ZqMsgSetField(m.handle, nullptr, &four, 4), 2u);
  EXPECT_EQ(ZqMsgSetField(nullptr, "a", &four, 4), 2u);
  EXPECT_EQ(ZqMsgSetField(m.handle, "a", nullptr, 4), 2u);

  const void* value = nullptr;
  uint32_t size = 0;
  EXPECT_EQ(ZqMsgGetBinaryField(m.handle, "Zq_From", &value, &size), kNotFound);
  EXPECT_EQ(ZqMsgGetBinaryField(m.handle, "Zq_Body", &value, &size), kNotFound);
  EXPECT_EQ(ZqMsgGetBinaryField(m.handle, "missing", &value, &size), kNotFound);
  EXPECT_EQ(ZqMsgGetBinaryField(m.handle, "Zq_Type", &value, &size), 0u);
  EXPECT_EQ(size, 4u);

  int16_t narrow = 0;  // the typed copies pass their own width
  EXPECT_EQ(ZqMsgCopyFieldINT16(m.handle, "Zq_Type", &narrow), ZQERR_COMMON_BUFFER_TOO_SMALL);

  // A text set from bytes without a NUL gets one.
  ASSERT_EQ(ZqMsgSetField(m.handle, "Zq_Category", "abc", 3), 0u);
  EXPECT_EQ(ZqMsgGetBinaryField(m.handle, "Zq_Category", &value, &size), 0u);
  EXPECT_STREQ(static_cast<const char*>(value), "abc");
  EXPECT_EQ(size, 4u);
  ASSERT_EQ(ZqMsgSetFieldStr(m.handle, "Zq_Category", nullptr), 0u);
  EXPECT_EQ(ZqMsgGetBinaryField(m.handle, "Zq_Category", &value, &size), kNotFound);
}

TEST(MessageBody, CopyOutConvention) {
  Message m;
  uint8_t buffer[32] = {};
  uint32_t size = sizeof buffer;
  EXPECT_EQ(ZqMsgCopyBody(m.handle, buffer, &size), 2u);  // no body
  ASSERT_EQ(ZqMsgSetBodyStr(m.handle, "hello, world"), 0u);
  size = 3;
  EXPECT_EQ(ZqMsgCopyBody(m.handle, nullptr, &size), ZQERR_COMMON_REAL_SIZE_RETURNED);
  EXPECT_EQ(size, 13u);
  size = 12;
  EXPECT_EQ(ZqMsgCopyBody(m.handle, buffer, &size), ZQERR_COMMON_BUFFER_TOO_SMALL);
  EXPECT_EQ(size, 13u);
  EXPECT_EQ(buffer[0], 0);
  EXPECT_EQ(ZqMsgCopyBody(m.handle, buffer, &size), 0u);
  EXPECT_STREQ(reinterpret_cast<char*>(buffer), "hello, world");

  const void* body = nullptr;
  EXPECT_EQ(ZqMsgGetBody(m.handle, &body, &size), 0u);
  EXPECT_EQ(size, 13u);
  ASSERT_EQ(ZqMsgSetBodyStr(m.handle, nullptr), 0u);
  EXPECT_EQ(ZqMsgGetBody(m.handle, &body, &size), 0u);
  EXPECT_EQ(body, nullptr);
  EXPECT_EQ(size, 0u);
  EXPECT_EQ(ZqMsgGetBodySize(m.handle, nullptr), 2u);
}

TEST(MessageObject, CopyIsDeepAndHandlesAreCounted) {
  Message m;
  FillFull(m.handle);
  HZQMSG copied = nullptr;
  ASSERT_EQ(ZqMsgCopyMessage(&copied, m.handle), 0u);
  Message copy(copied);
  ASSERT_EQ(ZqMsgSetFieldStr(m.handle, "x", "changed"), 0u);
  EXPECT_EQ(SaveBlock(copy.handle), kFullBlock);

  HZQMSG second = nullptr;
  ASSERT_EQ(ZqMsgDuplicateMessageHandle(m.handle, &second), 0u);
  EXPECT_EQ(second, m.handle);
  EXPECT_EQ(ZqMsgFreeMessage(second), 0u);
  EXPECT_EQ(ZqMsgSetFieldStr(m.handle, "still", "alive"), 0u);
  EXPECT_EQ(ZqMsgDuplicateMessageHandle(m.handle, nullptr), 2u);
  EXPECT_EQ(ZqMsgFreeMessage(nullptr), 0u);
}

// One handle duplicated and released by several threads at once.
TEST(MessageObject, HandleSharedAcrossThreads) {
  HZQMSG m = nullptr;
  ASSERT_EQ(ZqMsgCreateMessage(&m), 0u);
  FillFull(m);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    HZQMSG mine = nullptr;
    ASSERT_EQ(ZqMsgDuplicateMessageHandle(m, &mine), 0u);
    threads.emplace_back([mine] {
      for (int i = 0; i < 10000; ++i) {
        HZQMSG extra = nullptr;
        ZqMsgDuplicateMessageHandle(mine, &extra);
        const void* value = nullptr;
        uint32_t size = 0;
        ZqMsgGetBinaryField(extra, "yy", &value, &size);
        ZqMsgFreeMessage(extra);
      }
      ZqMsgFreeMessage(mine);
    });
  }
  ZqMsgFreeMessage(m);  // the threads hold the last references
  for (auto& thread : threads)
    thread.join();
}

// Every allocation of a load failing in turn: the load reports no memory
// and leaves nothing behind.
TEST(MessageObject, OutOfMemoryAtEveryStep) {
  int failures = 0;
  for (int n = 1; n < 64; ++n) {
    HZQMSG loaded = nullptr;
    zq::os::FailAllocationAfter(n);
    const uint32_t rc =
        ZqMsgCreateMessageFromBlock(kFullBlock.data(), kFullBlock.size(), &loaded, nullptr);
    zq::os::FailAllocationAfter(-1);
    if (rc == 0) {
      EXPECT_EQ(SaveBlock(loaded), kFullBlock);
      ZqMsgFreeMessage(loaded);
      break;
    }
    EXPECT_EQ(rc, ZQERR_COMMON_NO_MEMORY) << n;
    ++failures;
  }
  EXPECT_GE(failures, 1);  // the message, with the arena its copies go into

  // Setting fields on a loaded message takes memory of its own.
  Message loaded(Load(kFullBlock));
  zq::os::FailAllocationAfter(1);
  const std::string large(kFullBlock.size(), 'v');  // more than the arena's leftovers
  EXPECT_EQ(ZqMsgSetFieldStr(loaded.handle, "yy", large.c_str()), ZQERR_COMMON_NO_MEMORY);
  zq::os::FailAllocationAfter(-1);
  EXPECT_EQ(SaveBlock(loaded.handle), kFullBlock);  // the old value stays
}

}  // namespace
