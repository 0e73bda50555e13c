// The exported functions on caller-owned compose and parse contexts, and
// message bodies composed and parsed by format.
#include <cstdarg>
#include <cstring>

#include "common/error_site.h"
#include "msg/message.h"
#include "msg/stream_engine.h"
#include "os/edge.h"
#include "os/memory.h"
#include "zqsys/zqmsg.h"

using zq::kNoMemory;
using zq::kWrongArguments;
using zq::msg::CMessage;
using zq::msg::ParseMode;

namespace {

uint32_t ParseContext(ZQPARSECTX* context, ParseMode mode, ZqAllocFunc allocator,
                      const char* format, va_list args) {
  if (context == nullptr || format == nullptr) return kWrongArguments;
  return ZQ_RETURN_ZQERR(
      zq::msg::ParseV(*context, static_cast<uint32_t>(mode), allocator, format, args));
}

// The body is parsed where it lies; pointers delivered stay valid while the
// body is unchanged.
uint32_t ParseBody(HZQMSG message, ParseMode mode, const char* format, va_list args) {
  if (message == nullptr) return kWrongArguments;
  const CMessage* m = CMessage::From(message);
  ZQPARSECTX body{m->Body(), m->BodySize(), 0};
  return ParseContext(&body, mode, nullptr, format, args);
}

}  // namespace

extern "C" {

ZQ_API uint32_t ZqMsgInitCompose(ZQCOMPOSECTX* context) {
  if (context == nullptr) return kWrongArguments;
  *context = ZQCOMPOSECTX{};
  return 0;
}

ZQ_API uint32_t ZqMsgInitComposeForAppend(ZQCOMPOSECTX* context, const void* bytes, uint32_t size) {
  if (context == nullptr) return kWrongArguments;
  *context = ZQCOMPOSECTX{};
  if (bytes == nullptr || size == 0) return 0;
  auto* buffer = static_cast<uint8_t*>(zq::os::Allocate(size));
  if (buffer == nullptr) return kNoMemory;
  std::memcpy(buffer, bytes, size);
  *context = ZQCOMPOSECTX{buffer, size, size, 0};
  return 0;
}

ZQ_API uint32_t ZqMsgFreeCompose(ZQCOMPOSECTX* context) {
  if (context == nullptr) return kWrongArguments;
  zq::msg::FreeComposeBuffer(*context);
  return 0;
}

ZQ_API uint32_t ZqMsgVCompose(ZQCOMPOSECTX* context, const char* format, va_list args) {
  if (context == nullptr || format == nullptr) return kWrongArguments;
  return ZQ_RETURN_ZQERR(zq::msg::ComposeV(*context, format, args));
}

ZQ_API uint32_t ZqMsgCompose(ZQCOMPOSECTX* context, const char* format, ...) {
  va_list args;
  va_start(args, format);
  const uint32_t rc = ZqMsgVCompose(context, format, args);
  va_end(args);
  return rc;
}

ZQ_API uint32_t ZqMsgComposeFromParser(ZQCOMPOSECTX* composer, ZQPARSECTX* parser) {
  if (composer == nullptr || parser == nullptr) return kWrongArguments;
  if (parser->buffer == nullptr && parser->size != 0) return kWrongArguments;
  if (parser->position >= parser->size) return 0;
  const uint32_t rest = parser->size - parser->position;
  if (const uint32_t rc = zq::msg::ComposeRaw(*composer, parser->buffer + parser->position, rest)) {
    return ZQ_RETURN_ZQERR(rc);
  }
  parser->position = parser->size;
  return 0;
}

ZQ_API uint32_t ZqMsgInitParse(ZQPARSECTX* context, const void* buffer, uint32_t size) {
  if (context == nullptr || (buffer == nullptr && size != 0)) return kWrongArguments;
  *context = ZQPARSECTX{static_cast<const uint8_t*>(buffer), size, 0};
  return 0;
}

ZQ_API uint32_t ZqMsgFreeParse(ZQPARSECTX*) {
  return 0;
}

ZQ_API uint32_t ZqMsgResetParse(ZQPARSECTX* context) {
  if (context == nullptr) return kWrongArguments;
  context->position = 0;
  return 0;
}

ZQ_API uint32_t ZqMsgParseGetCurrentIndex(ZQPARSECTX* context, uint32_t* index) {
  if (context == nullptr || index == nullptr) return kWrongArguments;
  *index = context->position;
  return 0;
}

ZQ_API uint32_t ZqMsgParseSetCurrentIndex(ZQPARSECTX* context, uint32_t index) {
  if (context == nullptr) return kWrongArguments;
  context->position = index;
  return 0;
}

ZQ_API uint32_t ZqMsgVParse(ZQPARSECTX* context, ZqAllocFunc allocator, const char* format,
                            va_list args) {
  return ParseContext(context, ParseMode::kChoose, allocator, format, args);
}

#define ZQ_VARIADIC(call)     \
  va_list args;               \
  va_start(args, format);     \
  const uint32_t rc = (call); \
  va_end(args);               \
  return rc

ZQ_API uint32_t ZqMsgParse(ZQPARSECTX* context, ZqAllocFunc allocator, const char* format, ...) {
  ZQ_VARIADIC(ParseContext(context, ParseMode::kChoose, allocator, format, args));
}

ZQ_API uint32_t ZqMsgParseGetPointer(ZQPARSECTX* context, const char* format, ...) {
  ZQ_VARIADIC(ParseContext(context, ParseMode::kPointer, nullptr, format, args));
}

ZQ_API uint32_t ZqMsgParseCopy(ZQPARSECTX* context, const char* format, ...) {
  ZQ_VARIADIC(ParseContext(context, ParseMode::kCopyToPointed, nullptr, format, args));
}

ZQ_API uint32_t ZqMsgParseAllocCopy(ZQPARSECTX* context, ZqAllocFunc allocator, const char* format,
                                    ...) {
  ZQ_VARIADIC(ParseContext(context, ParseMode::kAllocatedCopy, allocator, format, args));
}

ZQ_API uint32_t ZqMsgComposeBodyV(HZQMSG message, const char* format, va_list args) {
  if (message == nullptr || format == nullptr) return kWrongArguments;
  ZQCOMPOSECTX body{};
  uint32_t rc = zq::msg::ComposeV(body, format, args);
  if (rc == 0) {
    // An empty result still gives the message a (zero-length) body.
    static const uint8_t kEmpty = 0;
    rc =
        CMessage::From(message)->SetBody(body.buffer != nullptr ? body.buffer : &kEmpty, body.size);
  }
  zq::msg::FreeComposeBuffer(body);
  return ZQ_RETURN_ZQERR(rc);
}

ZQ_API uint32_t ZqMsgComposeBody(HZQMSG message, const char* format, ...) {
  ZQ_VARIADIC(ZqMsgComposeBodyV(message, format, args));
}

ZQ_API uint32_t ZqMsgParseBodyGetPointer(HZQMSG message, const char* format, ...) {
  ZQ_VARIADIC(ParseBody(message, ParseMode::kPointer, format, args));
}

ZQ_API uint32_t ZqMsgParseBodyCopyV(HZQMSG message, const char* format, va_list args) {
  return ParseBody(message, ParseMode::kCopyInPlace, format, args);
}

ZQ_API uint32_t ZqMsgParseBodyCopy(HZQMSG message, const char* format, ...) {
  ZQ_VARIADIC(ParseBody(message, ParseMode::kCopyInPlace, format, args));
}

#undef ZQ_VARIADIC

}  // extern "C"
