#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "os/memory.h"
#include "zqsys/zqerr.h"
#include "zqsys/zqmsg.h"

namespace {

using Bytes = std::vector<uint8_t>;

class Contexts : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(ZqMsgInitCompose(&composer_), 0u);
    ASSERT_EQ(ZqMsgCompose(&composer_, "cu2c", "text", 7, nullptr), 0u);
    ASSERT_EQ(ZqMsgInitParse(&parser_, composer_.buffer, composer_.size), 0u);
  }
  void TearDown() override { ZqMsgFreeCompose(&composer_); }
  const char* StreamText() const { return reinterpret_cast<const char*>(composer_.buffer) + 4; }

  ZQCOMPOSECTX composer_{};
  ZQPARSECTX parser_{};
};

TEST_F(Contexts, ParseChoosesByDestination) {
  char* text = nullptr;
  uint16_t number = 0;
  char keep[] = "keep";
  char* none = keep;
  ASSERT_EQ(ZqMsgParse(&parser_, nullptr, "cu2c", &text, &number, &none), 0u);
  EXPECT_EQ(text, StreamText());  // no allocator: a pointer into the stream
  EXPECT_EQ(number, 7);
  EXPECT_EQ(none, keep);  // a null text leaves the destination alone

  char buffer[8] = {};
  char* into = buffer;
  char* allocated = nullptr;
  ASSERT_EQ(ZqMsgResetParse(&parser_), 0u);
  ASSERT_EQ(ZqMsgParse(&parser_, std::malloc, "c", &into), 0u);
  EXPECT_STREQ(buffer, "text");
  ASSERT_EQ(ZqMsgResetParse(&parser_), 0u);
  ASSERT_EQ(ZqMsgParse(&parser_, std::malloc, "c", &allocated), 0u);
  EXPECT_STREQ(allocated, "text");
  EXPECT_NE(allocated, StreamText());
  std::free(allocated);
}

TEST_F(Contexts, PointerCopyAndAllocatedModes) {
  char* text = nullptr;
  uint16_t number = 0;
  char* none = reinterpret_cast<char*>(1);
  ASSERT_EQ(ZqMsgParseGetPointer(&parser_, "cu2c", &text, &number, &none), 0u);
  EXPECT_EQ(text, StreamText());
  EXPECT_EQ(none, nullptr);

  char first[8] = {}, second[8] = "xxxx";
  char* p1 = first;
  char* p2 = second;
  ASSERT_EQ(ZqMsgResetParse(&parser_), 0u);
  ASSERT_EQ(ZqMsgParseCopy(&parser_, "c", &p1), 0u);
  ASSERT_EQ(ZqMsgParseCopy(&parser_, "u2c", &number, &p2), 0u);
  EXPECT_STREQ(first, "text");
  EXPECT_STREQ(second, "");

  ASSERT_EQ(ZqMsgResetParse(&parser_), 0u);
  char* copy = nullptr;
  EXPECT_EQ(ZqMsgParseAllocCopy(&parser_, nullptr, "c", &copy), 2u);
  ASSERT_EQ(ZqMsgParseAllocCopy(&parser_, std::malloc, "cu2c", &copy, &number, &none), 0u);
  EXPECT_STREQ(copy, "text");
  EXPECT_EQ(none, nullptr);
  std::free(copy);
}

TEST_F(Contexts, IndexFunctions) {
  uint32_t index = 99;
  uint16_t number = 0;
  ASSERT_EQ(ZqMsgParseSetCurrentIndex(&parser_, 9), 0u);  // the u2 after "text"
  ASSERT_EQ(ZqMsgParseGetPointer(&parser_, "u2", &number), 0u);
  EXPECT_EQ(number, 7);
  ASSERT_EQ(ZqMsgParseGetCurrentIndex(&parser_, &index), 0u);
  EXPECT_EQ(index, 11u);
  ASSERT_EQ(ZqMsgParseSetCurrentIndex(&parser_, 1000), 0u);  // not tested here...
  EXPECT_EQ(ZqMsgParseGetPointer(&parser_, "u2", &number),
            ZQERR_MSG_BAD_PARSE_BLOCK);  // ...but here
  EXPECT_EQ(ZqMsgFreeParse(&parser_), 0u);
  EXPECT_EQ(ZqMsgInitParse(nullptr, nullptr, 0), 2u);
  EXPECT_EQ(ZqMsgParse(nullptr, nullptr, "c"), 2u);
  EXPECT_EQ(ZqMsgParse(&parser_, nullptr, nullptr), 2u);
}

TEST_F(Contexts, ComposeFromParserAndForAppend) {
  ZQCOMPOSECTX copy{};
  ASSERT_EQ(ZqMsgInitComposeForAppend(&copy, nullptr, 0), 0u);
  EXPECT_EQ(copy.buffer, nullptr);
  EXPECT_EQ(copy.size, 0u);

  // Skip the text, then move the rest over.
  ASSERT_EQ(ZqMsgParseSetCurrentIndex(&parser_, 9), 0u);
  ASSERT_EQ(ZqMsgComposeFromParser(&copy, &parser_), 0u);
  EXPECT_EQ(Bytes(copy.buffer, copy.buffer + copy.size), (Bytes{7, 0, 0xFF, 0xFF, 0xFF, 0xFF}));
  EXPECT_EQ(parser_.position, parser_.size);
  // At its end the parser has nothing more to give.
  const uint32_t before = copy.size;
  EXPECT_EQ(ZqMsgComposeFromParser(&copy, &parser_), 0u);
  EXPECT_EQ(copy.size, before);
  ZqMsgFreeCompose(&copy);
  EXPECT_EQ(copy.buffer, nullptr);

  // Appending starts from an exact copy.
  const uint8_t start[] = {1, 2, 3};
  ZQCOMPOSECTX append{};
  ASSERT_EQ(ZqMsgInitComposeForAppend(&append, start, 3), 0u);
  EXPECT_EQ(append.capacity, 3u);
  ASSERT_EQ(ZqMsgCompose(&append, "u1", 4), 0u);
  EXPECT_EQ(Bytes(append.buffer, append.buffer + append.size), (Bytes{1, 2, 3, 4}));
  EXPECT_EQ(append.capacity, 3u + 6);  // twice the capacity added
  ZqMsgFreeCompose(&append);
}

// A context stays usable after its buffer is freed, and after measuring.
TEST(ComposeContexts, ReuseAfterFreeAndAfterMeasuring) {
  ZQCOMPOSECTX ctx{};
  ASSERT_EQ(ZqMsgCompose(&ctx, "u4", 1), 0u);
  ASSERT_EQ(ZqMsgFreeCompose(&ctx), 0u);
  EXPECT_EQ(ctx.size, 0u);
  ASSERT_EQ(ZqMsgCompose(&ctx, "u4", 2), 0u);
  EXPECT_EQ(Bytes(ctx.buffer, ctx.buffer + ctx.size), (Bytes{2, 0, 0, 0}));
  ZqMsgFreeCompose(&ctx);

  // Measuring neither writes nor allocates, however large the values.
  ZQCOMPOSECTX measured{};
  measured.measureOnly = 1;
  const std::string big(100000, 'x');
  ASSERT_EQ(ZqMsgCompose(&measured, "cu8b", big.c_str(), 1ull, nullptr, 0u), 0u);
  EXPECT_EQ(measured.size, 4 + 100001 + 8 + 4u);
  EXPECT_EQ(measured.buffer, nullptr);
  EXPECT_EQ(measured.capacity, 0u);
  measured.measureOnly = 0;
  ASSERT_EQ(ZqMsgCompose(&measured, "u4", 3), 0u);  // lands after the measured bytes
  EXPECT_EQ(measured.size, 100021u);
  EXPECT_GE(measured.capacity, 100021u);
  ZqMsgFreeCompose(&measured);
}

// Values taken from the context's own buffer survive the buffer moving.
TEST(ComposeContexts, ComposingFromItsOwnBytes) {
  ZQCOMPOSECTX ctx{};
  const std::string text(400, 'x');
  ASSERT_EQ(ZqMsgCompose(&ctx, "c", text.c_str()), 0u);  // capacity 917, size 405
  ASSERT_EQ(ZqMsgCompose(&ctx, "c", text.c_str()), 0u);  // size 810
  const Bytes before(ctx.buffer, ctx.buffer + ctx.size);
  ZQPARSECTX self{};
  ASSERT_EQ(ZqMsgInitParse(&self, ctx.buffer, ctx.size), 0u);
  ASSERT_EQ(ZqMsgComposeFromParser(&ctx, &self), 0u);  // must grow while reading itself
  ASSERT_EQ(ctx.size, 2 * before.size());
  EXPECT_EQ(Bytes(ctx.buffer + before.size(), ctx.buffer + ctx.size), before);

  const uint32_t size = ctx.size;
  ASSERT_EQ(ZqMsgCompose(&ctx, "b", ctx.buffer, size), 0u);
  EXPECT_EQ(Bytes(ctx.buffer + size + 4, ctx.buffer + ctx.size),
            Bytes(ctx.buffer, ctx.buffer + size));
  ZqMsgFreeCompose(&ctx);

  ZQPARSECTX broken{nullptr, 10, 0};
  EXPECT_EQ(ZqMsgComposeFromParser(&ctx, &broken), 2u);
}

TEST(ComposeContexts, OutOfMemoryChangesNothing) {
  const uint8_t bytes[] = {1, 2, 3, 4, 5, 6};
  ZQCOMPOSECTX ctx{};
  zq::os::FailAllocationAfter(1);
  EXPECT_EQ(ZqMsgInitComposeForAppend(&ctx, bytes, 6), ZQERR_COMMON_NO_MEMORY);
  ZQPARSECTX parser{};
  ASSERT_EQ(ZqMsgInitParse(&parser, bytes, 6), 0u);
  zq::os::FailAllocationAfter(1);
  EXPECT_EQ(ZqMsgComposeFromParser(&ctx, &parser), ZQERR_COMMON_NO_MEMORY);
  EXPECT_EQ(parser.position, 0u);
  EXPECT_EQ(ctx.size, 0u);
  ASSERT_EQ(ZqMsgComposeFromParser(&ctx, &parser), 0u);
  EXPECT_EQ(ctx.capacity, 6u + 512);
  ZqMsgFreeCompose(&ctx);

  HZQPARSER handle = reinterpret_cast<HZQPARSER>(1);
  zq::os::FailAllocationAfter(1);
  EXPECT_EQ(ZqSysCreateBinaryParser(&handle), 0u);
  EXPECT_EQ(handle, nullptr);
  HZQMSG message = nullptr;
  zq::os::FailAllocationAfter(1);
  EXPECT_EQ(ZqMsgCreateMessage(&message), ZQERR_COMMON_NO_MEMORY);

  ASSERT_EQ(ZqMsgCreateMessage(&message), 0u);
  ASSERT_EQ(ZqMsgSetBodyStr(message, "old"), 0u);
  zq::os::FailAllocationAfter(2);  // the compose succeeds, storing the body fails
  EXPECT_EQ(ZqMsgComposeBody(message, "u4", 1), ZQERR_COMMON_NO_MEMORY);
  const void* body = nullptr;
  uint32_t size = 0;
  ASSERT_EQ(ZqMsgGetBody(message, &body, &size), 0u);
  EXPECT_STREQ(static_cast<const char*>(body), "old");
  // Measuring a block allocates nothing.
  zq::os::FailAllocationAfter(1);
  EXPECT_EQ(ZqMsgGetMessageBlockSize(message, &size), 0u);
  zq::os::FailAllocationAfter(-1);
  ZqMsgFreeMessage(message);
}

TEST(MessageBodies, ComposeAndParseByFormat) {
  HZQMSG m = nullptr;
  ASSERT_EQ(ZqMsgCreateMessage(&m), 0u);
  ASSERT_EQ(ZqMsgComposeBody(m, "c16u4", "XPAR-07", 100u), 0u);
  uint32_t size = 0;
  ASSERT_EQ(ZqMsgGetBodySize(m, &size), 0u);
  EXPECT_EQ(size, 4 + 8 + 4u);

  // A failed compose leaves the body as it was.
  EXPECT_EQ(ZqMsgComposeBody(m, "c2", "too long"), 2u);
  ASSERT_EQ(ZqMsgGetBodySize(m, &size), 0u);
  EXPECT_EQ(size, 16u);

  const char* symbol = nullptr;
  uint32_t quantity = 0;
  ASSERT_EQ(ZqMsgParseBodyGetPointer(m, "c16u4", &symbol, &quantity), 0u);
  const void* body = nullptr;
  ASSERT_EQ(ZqMsgGetBody(m, &body, &size), 0u);
  EXPECT_EQ(symbol, static_cast<const char*>(body) + 4);
  EXPECT_EQ(quantity, 100u);

  char copied[17] = {};
  quantity = 0;
  ASSERT_EQ(ZqMsgParseBodyCopy(m, "c16u4", copied, &quantity), 0u);
  EXPECT_STREQ(copied, "XPAR-07");
  EXPECT_EQ(quantity, 100u);
  EXPECT_EQ(ZqMsgParseBodyCopy(m, "c16u4u4", copied, &quantity, &quantity),
            ZQERR_MSG_BAD_PARSE_BLOCK);

  // An empty format composes an empty body, which is still a body.
  ASSERT_EQ(ZqMsgComposeBody(m, ""), 0u);
  ASSERT_EQ(ZqMsgGetBody(m, &body, &size), 0u);
  EXPECT_NE(body, nullptr);
  EXPECT_EQ(size, 0u);
  ZqMsgFreeMessage(m);
}

}  // namespace
