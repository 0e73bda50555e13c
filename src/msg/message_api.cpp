// The exported functions of the message object and its block.
#include <cstring>

#include "common/error_site.h"
#include "msg/message.h"
#include "msg/stream_engine.h"
#include "os/edge.h"
#include "os/memory.h"
#include "zqsys/zqerr.h"
#include "zqsys/zqmsg.h"

using zq::kNoMemory;
using zq::kWrongArguments;
using zq::msg::CMessage;

// The typed field functions: one per integer width and signedness.
// clang-format off
#define ZQ_TYPED_FIELDS(X) \
  X(INT8, int8_t)          \
  X(UINT8, uint8_t)        \
  X(INT16, int16_t)        \
  X(UINT16, uint16_t)      \
  X(INT32, int32_t)        \
  X(UINT32, uint32_t)      \
  X(INT64, int64_t)        \
  X(UINT64, uint64_t)
// clang-format on

namespace {

bool IsName(const char* name) {
  return name != nullptr && name[0] != '\0';
}

// Copies a looked-up value out: 7 with *size untouched if it does not fit.
uint32_t CopyOut(uint32_t rc, const void* value, uint32_t valueSize, void* buffer, uint32_t* size) {
  if (rc != 0) return rc;
  if (*size < valueSize) return ZQERR_COMMON_BUFFER_TOO_SMALL;
  if (valueSize != 0) std::memcpy(buffer, value, valueSize);
  *size = valueSize;
  return 0;
}

uint32_t CopyField(HZQMSG message, const char* name, void* buffer, uint32_t* size) {
  if (message == nullptr || !IsName(name) || buffer == nullptr || size == nullptr) {
    return kWrongArguments;
  }
  const void* value = nullptr;
  uint32_t valueSize = 0;
  const uint32_t rc = CMessage::From(message)->GetField(name, &value, &valueSize);
  return CopyOut(rc, value, valueSize, buffer, size);
}

uint32_t CopyFieldFromBlock(const void* block, uint32_t blockSize, const char* name, void* buffer,
                            uint32_t* size) {
  if (block == nullptr || !IsName(name) || buffer == nullptr || size == nullptr) {
    return kWrongArguments;
  }
  const void* value = nullptr;
  uint32_t valueSize = 0;
  const uint32_t rc = zq::msg::ReadFieldFromBlock(static_cast<const uint8_t*>(block), blockSize,
                                                  name, &value, &valueSize);
  return CopyOut(rc, value, valueSize, buffer, size);
}

template <class T>
uint32_t SetTyped(HZQMSG message, const char* name, T value) {
  return ZqMsgSetField(message, name, &value, sizeof value);
}

template <class T>
uint32_t CopyTyped(HZQMSG message, const char* name, T* value) {
  uint32_t size = sizeof(T);
  return CopyField(message, name, value, &size);
}

template <class T>
uint32_t CopyTypedFromBlock(const void* block, uint32_t blockSize, const char* name, T* value) {
  uint32_t size = sizeof(T);
  return CopyFieldFromBlock(block, blockSize, name, value, &size);
}

// Composes the message's block into `ctx`; measures first so that a
// caller's buffer is only written when the whole block fits.
uint32_t ComposeBlockInto(const CMessage& message, void* buffer, uint32_t* size) {
  ZQCOMPOSECTX measure{};
  measure.measureOnly = 1;
  if (const uint32_t rc = message.ComposeBlock(measure)) return rc;
  if (measure.size > *size) return ZQERR_COMMON_BUFFER_TOO_SMALL;
  // It fits, so the engine never grows (or frees) the caller's buffer.
  ZQCOMPOSECTX ctx{static_cast<uint8_t*>(buffer), 0, measure.size, 0};
  if (const uint32_t rc = message.ComposeBlock(ctx)) return rc;
  *size = ctx.size;
  return 0;
}

}  // namespace

extern "C" {

ZQ_API uint32_t ZqMsgCreateMessage(HZQMSG* message) {
  if (message == nullptr) return kWrongArguments;
  CMessage* created = zq::os::NewObject<CMessage>();
  if (created == nullptr) return kNoMemory;
  *message = created->Handle();
  return 0;
}

ZQ_API uint32_t ZqMsgDuplicateMessageHandle(HZQMSG message, HZQMSG* duplicate) {
  if (message == nullptr || duplicate == nullptr) return kWrongArguments;
  CMessage::From(message)->AddRef();
  *duplicate = message;
  return 0;
}

ZQ_API uint32_t ZqMsgFreeMessage(HZQMSG message) {
  if (message != nullptr) CMessage::From(message)->Release();
  return 0;
}

ZQ_API uint32_t ZqMsgSetField(HZQMSG message, const char* name, const void* value, uint32_t size) {
  if (message == nullptr || !IsName(name)) return kWrongArguments;
  return ZQ_RETURN_ZQERR(CMessage::From(message)->SetField(name, value, size));
}

ZQ_API uint32_t ZqMsgSetFieldStr(HZQMSG message, const char* name, const char* text) {
  const uint32_t size = text != nullptr ? static_cast<uint32_t>(std::strlen(text) + 1) : 0;
  return ZqMsgSetField(message, name, text, size);
}

#define ZQ_SET_TYPED(suffix, type)                                                      \
  ZQ_API uint32_t ZqMsgSetField##suffix(HZQMSG message, const char* name, type value) { \
    return SetTyped(message, name, value);                                              \
  }
ZQ_TYPED_FIELDS(ZQ_SET_TYPED)
#undef ZQ_SET_TYPED

ZQ_API uint32_t ZqMsgGetBinaryField(HZQMSG message, const char* name, const void** value,
                                    uint32_t* size) {
  if (message == nullptr || !IsName(name) || value == nullptr || size == nullptr) {
    return kWrongArguments;
  }
  return CMessage::From(message)->GetField(name, value, size);
}

ZQ_API uint32_t ZqMsgCopyField(HZQMSG message, const char* name, void* buffer, uint32_t* size) {
  return CopyField(message, name, buffer, size);
}

#define ZQ_COPY_TYPED(suffix, type)                                                       \
  ZQ_API uint32_t ZqMsgCopyField##suffix(HZQMSG message, const char* name, type* value) { \
    return CopyTyped(message, name, value);                                               \
  }
ZQ_TYPED_FIELDS(ZQ_COPY_TYPED)
#undef ZQ_COPY_TYPED

ZQ_API uint32_t ZqMsgSetBody(HZQMSG message, const void* bytes, uint32_t size) {
  if (message == nullptr) return kWrongArguments;
  return ZQ_RETURN_ZQERR(CMessage::From(message)->SetBody(bytes, size));
}

ZQ_API uint32_t ZqMsgSetBodyStr(HZQMSG message, const char* text) {
  const uint32_t size = text != nullptr ? static_cast<uint32_t>(std::strlen(text) + 1) : 0;
  return ZqMsgSetBody(message, text, size);
}

ZQ_API uint32_t ZqMsgGetBody(HZQMSG message, const void** body, uint32_t* size) {
  if (message == nullptr || body == nullptr || size == nullptr) return kWrongArguments;
  *body = CMessage::From(message)->Body();
  *size = CMessage::From(message)->BodySize();
  return 0;
}

ZQ_API uint32_t ZqMsgGetBodySize(HZQMSG message, uint32_t* size) {
  if (message == nullptr || size == nullptr) return kWrongArguments;
  *size = CMessage::From(message)->BodySize();
  return 0;
}

ZQ_API uint32_t ZqMsgCopyBody(HZQMSG message, void* buffer, uint32_t* size) {
  if (message == nullptr || size == nullptr) return kWrongArguments;
  const CMessage* m = CMessage::From(message);
  if (m->Body() == nullptr) return kWrongArguments;
  const uint32_t given = *size;
  *size = m->BodySize();
  if (buffer == nullptr) return ZQERR_COMMON_REAL_SIZE_RETURNED;
  if (given < m->BodySize()) return ZQERR_COMMON_BUFFER_TOO_SMALL;
  if (m->BodySize() != 0) std::memcpy(buffer, m->Body(), m->BodySize());
  return 0;
}

ZQ_API uint32_t ZqMsgGetMessageBlockSize(HZQMSG message, uint32_t* size) {
  if (message == nullptr || size == nullptr) return kWrongArguments;
  ZQCOMPOSECTX measure{};
  measure.measureOnly = 1;
  if (const uint32_t rc = CMessage::From(message)->ComposeBlock(measure)) {
    return ZQ_RETURN_ZQERR(rc);
  }
  *size = measure.size;
  return 0;
}

ZQ_API uint32_t ZqMsgSaveMessageToBlock(HZQMSG message, void* buffer, uint32_t* size) {
  if (message == nullptr || buffer == nullptr || size == nullptr) return kWrongArguments;
  return ZQ_RETURN_ZQERR(ComposeBlockInto(*CMessage::From(message), buffer, size));
}

ZQ_API uint32_t ZqMsgCreateMessageFromBlock(const void* block, uint32_t size, HZQMSG* message,
                                            uint32_t* used) {
  if (block == nullptr || message == nullptr) return kWrongArguments;
  CMessage* created = CMessage::CreateWithArena(size);
  if (created == nullptr) return kNoMemory;
  uint32_t consumed = 0;
  const uint32_t rc = created->LoadBlock(static_cast<const uint8_t*>(block), size, consumed);
  if (rc != 0) {
    created->Release();
    return ZQ_RETURN_ZQERR(rc);
  }
  if (used != nullptr) *used = consumed;
  *message = created->Handle();
  return 0;
}

ZQ_API uint32_t ZqMsgGetBinaryFieldFromBlock(const void* block, uint32_t blockSize,
                                             const char* name, const void** value, uint32_t* size) {
  if (block == nullptr || !IsName(name) || value == nullptr || size == nullptr) {
    return kWrongArguments;
  }
  return zq::msg::ReadFieldFromBlock(static_cast<const uint8_t*>(block), blockSize, name, value,
                                     size);
}

ZQ_API uint32_t ZqMsgCopyFieldFromBlock(const void* block, uint32_t blockSize, const char* name,
                                        void* buffer, uint32_t* size) {
  return CopyFieldFromBlock(block, blockSize, name, buffer, size);
}

#define ZQ_COPY_FROM_BLOCK(suffix, type)                                                 \
  ZQ_API uint32_t ZqMsgCopyFieldFromBlock##suffix(const void* block, uint32_t blockSize, \
                                                  const char* name, type* value) {       \
    return CopyTypedFromBlock(block, blockSize, name, value);                            \
  }
ZQ_TYPED_FIELDS(ZQ_COPY_FROM_BLOCK)
#undef ZQ_COPY_FROM_BLOCK

ZQ_API uint32_t ZqMsgCopyMessage(HZQMSG* copy, HZQMSG message) {
  if (copy == nullptr || message == nullptr) return kWrongArguments;
  ZQCOMPOSECTX ctx{};
  uint32_t rc = CMessage::From(message)->ComposeBlock(ctx);
  if (rc == 0) rc = ZqMsgCreateMessageFromBlock(ctx.buffer, ctx.size, copy, nullptr);
  zq::msg::FreeComposeBuffer(ctx);
  return ZQ_RETURN_ZQERR(rc);
}

}  // extern "C"
