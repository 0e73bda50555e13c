// The exported functions of the struct composer and parser.
#include <cstdint>

#include "common/error_site.h"
#include "msg/binary_objects.h"
#include "scheme/struct_stream.h"
#include "zqsys/zqerr.h"
#include "zqsys/zqstruct.h"

using zq::msg::CBinaryComposer;
using zq::msg::CBinaryParser;
using zq::scheme::CStructLayout;

namespace {

uint32_t CreateLayout(HZQDBTABLE table, CStructLayout*& layout) {
  if (table == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return CStructLayout::Create(table, layout);
}

}  // namespace

extern "C" {

ZQ_API uint32_t ZqSysCreateStructComposer(HZQDBTABLE table, HZQSTRUCTCOMPOSER* composer) {
  if (composer == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  CStructLayout* layout = nullptr;
  if (const uint32_t rc = CreateLayout(table, layout)) return rc;
  *composer = layout->ComposerHandle();
  return 0;
}

ZQ_API uint32_t ZqSysComposeStruct(HZQSTRUCTCOMPOSER composer, HZQCOMPOSER stream,
                                   const void* structure, uint32_t size) {
  if (composer == nullptr || stream == nullptr || structure == nullptr) {
    return ZQERR_COMMON_WRONG_ARGUMENTS;
  }
  return ZQ_RETURN_ZQERR(CStructLayout::From(composer)->Compose(
      CBinaryComposer::From(stream)->Context(), structure, size));
}

ZQ_API uint32_t ZqSysDuplicateStructComposer(HZQSTRUCTCOMPOSER composer,
                                             HZQSTRUCTCOMPOSER* duplicate) {
  if (composer == nullptr || duplicate == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  CStructLayout::From(composer)->AddRef();
  *duplicate = composer;
  return 0;
}

ZQ_API uint32_t ZqSysFreeStructComposer(HZQSTRUCTCOMPOSER composer) {
  if (composer != nullptr) CStructLayout::From(composer)->Release();
  return 0;
}

ZQ_API uint32_t ZqSysCreateStructParser(HZQDBTABLE table, HZQSTRUCTPARSER* parser) {
  if (parser == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  CStructLayout* layout = nullptr;
  if (const uint32_t rc = CreateLayout(table, layout)) return rc;
  *parser = layout->ParserHandle();
  return 0;
}

ZQ_API uint32_t ZqSysParseStruct(HZQSTRUCTPARSER parser, HZQPARSER stream, void* structure,
                                 uint32_t size) {
  if (parser == nullptr || stream == nullptr || structure == nullptr) {
    return ZQERR_COMMON_WRONG_ARGUMENTS;
  }
  return ZQ_RETURN_ZQERR(
      CStructLayout::From(parser)->Parse(CBinaryParser::From(stream)->Context(), structure, size));
}

ZQ_API uint32_t ZqSysDuplicateStructParser(HZQSTRUCTPARSER parser, HZQSTRUCTPARSER* duplicate) {
  if (parser == nullptr || duplicate == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  CStructLayout::From(parser)->AddRef();
  *duplicate = parser;
  return 0;
}

ZQ_API uint32_t ZqSysFreeStructParser(HZQSTRUCTPARSER parser) {
  if (parser != nullptr) CStructLayout::From(parser)->Release();
  return 0;
}

}  // extern "C"
