// The exported functions of the common family.
#include "common/result_codes.h"
#include "common/type_codes.h"
#include "zqsys/zqerr.h"
#include "zqsys/zqtypes.h"
#include "zqsys_build_version.h"

static_assert(ZQSYS_VERSION_NUMBER >= 0);

extern "C" {

ZQ_API const char* ZqSysGetVersionStr(void) {
  return ZQSYS_BUILD_VERSION_TEXT;
}

ZQ_API uint32_t ZqSysGetVersionNumber(void) {
  return ZQSYS_VERSION_NUMBER;
}

ZQ_API const char* ZqErrGetDescrStr(uint32_t code) {
  return zq::common::DescribeResult(code);
}

ZQ_API uint32_t ZqSysGetNextType(const char* format, uint32_t* length, uint32_t* width,
                                 uint32_t* scale) {
  if (format == nullptr || length == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  zq::common::TypeCode code;
  if (!zq::common::ScanType(format, code)) return ZQERR_COMMON_WRONG_ARGUMENTS;
  *length = code.length;
  if (width != nullptr) *width = code.width;
  if (scale != nullptr) *scale = code.scale;
  return ZQERR_COMMON_OK;
}

ZQ_API uint32_t ZqSysTypeGetSizeAndAlign(char letter, uint32_t width, uint32_t scale,
                                         uint32_t* size, uint32_t* alignment) {
  if (size == nullptr || alignment == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  zq::common::TypeLayout layout;
  uint32_t rc = zq::common::MeasureType(letter, width, scale, layout);
  // A size past 4 GiB has no u32 to go in: no native structure holds it.
  if (rc == ZQERR_COMMON_OK && layout.size > 0xFFFFFFFFu) rc = ZQERR_DB_INVALID_TYPE;
  // An integer of a bad width reports its width as the size all the same.
  if (rc == ZQERR_COMMON_OK || letter == 'i' || letter == 'u')
    *size = static_cast<uint32_t>(layout.size);
  if (rc == ZQERR_COMMON_OK) *alignment = layout.alignment;
  return rc;
}

ZQ_API uint32_t ZqSysTypeGetAlign(char letter, uint32_t width, uint32_t* alignment) {
  if (alignment == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  zq::common::TypeLayout layout;
  const uint32_t rc = zq::common::MeasureType(letter, width, 0, layout);
  if (rc == ZQERR_COMMON_OK) *alignment = layout.alignment;
  return rc;
}

}  // extern "C"
