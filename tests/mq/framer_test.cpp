// The LLMsg framer over byte tables: every split of a frame, the body-size
// cap, sticky protocol errors, several frames in one feed; and frames built
// by the builders read back.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "mq/llmsg.h"
#include "os/memory.h"
#include "zqsys/zqerr.h"
#include "zqsys/zqmsg.h"

namespace zq::mq {
namespace {

std::string Header(std::uint32_t type, std::uint32_t len, std::uint32_t ver = 1) {
  unsigned char bytes[kLLHeaderSize];
  EncodeLLHeader(type, len, bytes);
  StoreU32(ver, bytes + 4);
  return std::string(reinterpret_cast<char*>(bytes), sizeof bytes);
}

std::string Frame(std::uint32_t type, const std::string& body) {
  return Header(type, static_cast<std::uint32_t>(body.size())) + body;
}

struct Seen {
  std::vector<std::pair<std::uint32_t, std::string>> frames;
  std::uint32_t error = 0;
};

// Feeds `bytes` in pieces cut at `cuts` and takes every frame that
// completes.
Seen FeedInPieces(CLLFramer& framer, const std::string& bytes, std::vector<std::size_t> cuts) {
  Seen seen;
  cuts.push_back(bytes.size());
  std::size_t at = 0;
  for (const std::size_t cut : cuts) {
    while (at < cut) {
      const std::size_t taken =
          framer.Feed(reinterpret_cast<const unsigned char*>(bytes.data()) + at, cut - at);
      at += taken;
      if (framer.FrameReady()) {
        const CLLMsg frame = framer.TakeFrame();
        seen.frames.emplace_back(
            frame.Type(),
            std::string(reinterpret_cast<const char*>(frame.Body()), frame.BodySize()));
      } else if (taken == 0) {
        seen.error = framer.Error();
        return seen;
      }
    }
  }
  seen.error = framer.Error();
  return seen;
}

TEST(Framer, FrameSplitAtEveryOffsetComesOutWhole) {
  const std::string bytes = Frame(0x4004, "body!");
  for (std::size_t cut = 0; cut <= bytes.size(); ++cut) {
    CLLFramer framer;
    const Seen seen = FeedInPieces(framer, bytes, {cut});
    ASSERT_EQ(seen.frames.size(), 1u) << "cut at " << cut;
    EXPECT_EQ(seen.frames[0].first, 0x4004u);
    EXPECT_EQ(seen.frames[0].second, "body!");
    EXPECT_EQ(seen.error, 0u);
    EXPECT_TRUE(framer.InHeader());
    EXPECT_EQ(framer.Needed(), kLLHeaderSize);
  }
}

TEST(Framer, SeveralFramesInOneFeedEachStopTheFeed) {
  const std::string bytes = Frame(0x5002, "abc") + Frame(0x1005, "") + Frame(0x4011, "12345678");
  CLLFramer framer;
  const auto* data = reinterpret_cast<const unsigned char*>(bytes.data());
  EXPECT_EQ(framer.Feed(data, bytes.size()), 23u);
  EXPECT_TRUE(framer.FrameReady());
  EXPECT_EQ(framer.Feed(data + 23, bytes.size() - 23), 0u);  // a frame waits to be taken
  framer.TakeFrame();
  const Seen rest = FeedInPieces(framer, bytes.substr(23), {});
  ASSERT_EQ(rest.frames.size(), 2u);
  EXPECT_EQ(rest.frames[0], std::make_pair(0x1005u, std::string()));
  EXPECT_EQ(rest.frames[1], std::make_pair(0x4011u, std::string("12345678")));
}

TEST(Framer, HeaderChecks) {
  struct Case {
    const char* what;
    std::string header;
    std::uint32_t error;
    std::uint32_t needed;  // after the header and two body bytes
  };
  std::string badSign[4];
  for (int i = 0; i < 4; ++i) {
    badSign[i] = Header(0x4004, 1);
    badSign[i][i] ^= 0x01;
  }
  const Case cases[] = {
      {"len at the cap", Header(0x4004, 0x1000000), 0, 0x1000000 - 2},
      {"len one past the cap", Header(0x4004, 0x1000001), ZQERR_MQ_LL_SIZE_TOOBIG, 0},
      {"len far past the cap", Header(0x4004, 0xFFFFFFFF), ZQERR_MQ_LL_SIZE_TOOBIG, 0},
      {"version not checked", Header(0x4004, 7, 0xABCD), 0, 5},
      {"signature byte 0", badSign[0], ZQERR_MQ_LL_BAD_SIGNATURE, 0},
      {"signature byte 1", badSign[1], ZQERR_MQ_LL_BAD_SIGNATURE, 0},
      {"signature byte 2", badSign[2], ZQERR_MQ_LL_BAD_SIGNATURE, 0},
      {"signature byte 3", badSign[3], ZQERR_MQ_LL_BAD_SIGNATURE, 0},
  };
  for (const Case& c : cases) {
    CLLFramer framer;
    const std::string bytes = c.header + "xy";
    const auto* data = reinterpret_cast<const unsigned char*>(bytes.data());
    const std::size_t taken = framer.Feed(data, bytes.size());
    EXPECT_EQ(framer.Error(), c.error) << c.what;
    EXPECT_EQ(framer.Needed(), c.needed) << c.what;
    if (c.error == 0) continue;
    // Sticky: nothing more is taken, the error stays, and the header that
    // caused it is kept for the log line.
    EXPECT_EQ(taken, kLLHeaderSize) << c.what;
    EXPECT_EQ(framer.Feed(data, bytes.size()), 0u) << c.what;
    EXPECT_EQ(framer.Commit(0), c.error) << c.what;
    EXPECT_EQ(framer.Error(), c.error) << c.what;
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(framer.HeaderBytes()), kLLHeaderSize),
              c.header);
    framer.Reset();
    EXPECT_EQ(framer.Error(), 0u);
    EXPECT_EQ(framer.Needed(), kLLHeaderSize);
  }
}

TEST(Framer, ReaderStyleUseWritesWhereTheStateAsks) {
  const std::string bytes = Frame(0x4008, "0123456789");
  CLLFramer framer;
  std::size_t at = 0;
  std::vector<std::uint32_t> asked;
  while (!framer.FrameReady()) {
    const std::uint32_t count = std::min<std::uint32_t>(framer.Needed(), 7);
    asked.push_back(framer.Needed());
    std::copy_n(bytes.data() + at, count, framer.WritePosition());
    at += count;
    ASSERT_EQ(framer.Commit(count), 0u);
  }
  EXPECT_EQ(asked, (std::vector<std::uint32_t>{20, 13, 6, 10, 3}));
  EXPECT_EQ(framer.Commit(1), ZQERR_COMMON_INTERNAL_ERROR);  // more than it asked for
}

TEST(Framer, BodyIsAllocatedOnlyAfterTheLengthIsChecked) {
  CLLFramer framer;
  os::FailAllocationAfter(1);
  const std::string tooBig = Header(0x4004, 0x1000001);
  framer.Feed(reinterpret_cast<const unsigned char*>(tooBig.data()), tooBig.size());
  EXPECT_EQ(framer.Error(), ZQERR_MQ_LL_SIZE_TOOBIG);
  framer.Reset();
  const std::string fits = Header(0x4004, 4);
  framer.Feed(reinterpret_cast<const unsigned char*>(fits.data()), fits.size());
  EXPECT_EQ(framer.Error(), ZQERR_COMMON_NO_MEMORY);  // the armed failure was still pending
  os::FailAllocationAfter(-1);
}

TEST(Framer, BuiltFramesCarryHeaderOperationFixedPartAndBlock) {
  HZQMSG message = nullptr;
  ASSERT_EQ(ZqMsgCreateMessage(&message), 0u);
  ASSERT_EQ(ZqMsgSetFieldStr(message, "Zq_To", "node.app"), 0u);
  std::uint32_t blockSize = 0;
  ASSERT_EQ(ZqMsgGetMessageBlockSize(message, &blockSize), 0u);
  std::string block(blockSize, '\0');
  ASSERT_EQ(ZqMsgSaveMessageToBlock(message, block.data(), &blockSize), 0u);

  CLLMsg frame;
  ASSERT_EQ(BuildLLMsg(kLLSyncSend, 7, LEBytes(std::uint32_t{30000}), message, {}, frame), 0u);
  const std::string expected =
      Header(kLLSyncSend, 8 + blockSize) + std::string("\x07\0\0\0\x30\x75\0\0", 8) + block;
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(frame.Bytes()), frame.Size()), expected);

  CLLMsg raw;
  ASSERT_EQ(BuildLLMsg(kLLLogin, 1, {}, nullptr, "user", raw), 0u);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(raw.Bytes()), raw.Size()),
            Header(kLLLogin, 8) + std::string("\x01\0\0\0user", 8));
  CLLMsg ping;
  ASSERT_EQ(BuildLLFrame(kLLPing, {}, nullptr, ping), 0u);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(ping.Bytes()), ping.Size()),
            Header(kLLPing, 0));

  const std::string huge(kLLMaxBody - 3, 'x');
  CLLMsg refused;
  EXPECT_EQ(BuildLLMsg(kLLPost, 2, {}, nullptr, huge, refused), ZQERR_MQ_LL_SIZE_TOOBIG);
  EXPECT_FALSE(refused);
  ZqMsgFreeMessage(message);
}

}  // namespace
}  // namespace zq::mq
