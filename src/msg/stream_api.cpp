// The exported functions of the binary composer and parser.
#include <cstdarg>

#include "common/error_site.h"
#include "msg/binary_objects.h"
#include "os/edge.h"
#include "os/memory.h"
#include "zqsys/zqerr.h"
#include "zqsys/zqstream.h"

using zq::kWrongArguments;
using zq::msg::CBinaryComposer;
using zq::msg::CBinaryParser;

namespace {

template <class Object, class Handle>
uint32_t CreateObject(Handle* out) {
  if (out == nullptr) return kWrongArguments;
  // Out of memory still returns 0: the caller sees the null handle.
  Object* object = zq::os::NewObject<Object>();
  *out = object != nullptr ? object->Handle() : nullptr;
  return 0;
}

template <class Object>
uint32_t Duplicate(Object* object, decltype(object->Handle())* out) {
  if (object == nullptr || out == nullptr) return kWrongArguments;
  object->AddRef();
  *out = object->Handle();
  return 0;
}

template <class Object>
uint32_t Free(Object* object) {
  if (object != nullptr) object->Release();
  return 0;
}

}  // namespace

extern "C" {

ZQ_API uint32_t ZqSysCreateBinaryComposer(HZQCOMPOSER* composer) {
  return CreateObject<CBinaryComposer>(composer);
}

ZQ_API uint32_t ZqSysVCompose(HZQCOMPOSER composer, const char* format, va_list args) {
  if (composer == nullptr || format == nullptr) return kWrongArguments;
  return ZQ_RETURN_ZQERR(CBinaryComposer::From(composer)->Compose(format, args));
}

ZQ_API uint32_t ZqSysCompose(HZQCOMPOSER composer, const char* format, ...) {
  va_list args;
  va_start(args, format);
  const uint32_t rc = ZqSysVCompose(composer, format, args);
  va_end(args);
  return rc;
}

ZQ_API uint32_t ZqSysComposeAtIndex(HZQCOMPOSER composer, uint32_t index, const char* format, ...) {
  if (composer == nullptr || format == nullptr) return kWrongArguments;
  va_list args;
  va_start(args, format);
  const uint32_t rc = CBinaryComposer::From(composer)->ComposeAtIndex(index, format, args);
  va_end(args);
  return ZQ_RETURN_ZQERR(rc);
}

ZQ_API uint32_t ZqSysComposeGetBuffer(HZQCOMPOSER composer, const uint8_t** buffer) {
  if (composer == nullptr || buffer == nullptr) return kWrongArguments;
  return CBinaryComposer::From(composer)->GetBuffer(buffer);
}

ZQ_API uint32_t ZqSysComposeGetSize(HZQCOMPOSER composer, uint32_t* size) {
  if (composer == nullptr || size == nullptr) return kWrongArguments;
  return CBinaryComposer::From(composer)->GetSize(size);
}

ZQ_API uint32_t ZqSysDuplicateComposer(HZQCOMPOSER composer, HZQCOMPOSER* duplicate) {
  return Duplicate(CBinaryComposer::From(composer), duplicate);
}

ZQ_API uint32_t ZqSysFreeComposer(HZQCOMPOSER composer) {
  return Free(CBinaryComposer::From(composer));
}

ZQ_API uint32_t ZqSysCreateBinaryParser(HZQPARSER* parser) {
  return CreateObject<CBinaryParser>(parser);
}

ZQ_API uint32_t ZqSysInitParser(HZQPARSER parser, const void* buffer, uint32_t size) {
  if (parser == nullptr) return kWrongArguments;
  return CBinaryParser::From(parser)->Init(buffer, size);
}

ZQ_API uint32_t ZqSysResetParser(HZQPARSER parser) {
  if (parser == nullptr) return kWrongArguments;
  return CBinaryParser::From(parser)->Reset();
}

ZQ_API uint32_t ZqSysVParse(HZQPARSER parser, const char* format, va_list args) {
  if (parser == nullptr || format == nullptr) return kWrongArguments;
  return ZQ_RETURN_ZQERR(CBinaryParser::From(parser)->Parse(format, args));
}

ZQ_API uint32_t ZqSysParse(HZQPARSER parser, const char* format, ...) {
  va_list args;
  va_start(args, format);
  const uint32_t rc = ZqSysVParse(parser, format, args);
  va_end(args);
  return rc;
}

ZQ_API uint32_t ZqSysGetIndex(HZQPARSER parser, uint32_t* index) {
  if (parser == nullptr || index == nullptr) return kWrongArguments;
  return CBinaryParser::From(parser)->GetIndex(index);
}

ZQ_API uint32_t ZqSysDuplicateParser(HZQPARSER parser, HZQPARSER* duplicate) {
  return Duplicate(CBinaryParser::From(parser), duplicate);
}

ZQ_API uint32_t ZqSysFreeParser(HZQPARSER parser) {
  return Free(CBinaryParser::From(parser));
}

}  // extern "C"
