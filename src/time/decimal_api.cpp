// The exported functions of the decimal value family.
#include "os/edge.h"
#include "time/decimal.h"
#include "time/decimal_limbs.h"
#include "zqsys/zqbcd.h"
#include "zqsys/zqerr.h"

static_assert(ZQBCDII_MAX_SIZE == zq::time::kDecimalMaxSize);
static_assert(ZQBCDII_SIZE(26, 2) == zq::time::DecimalSize(26, 2));
static_assert(ZQBCDII_SIZE(255, 127) == zq::time::DecimalSize(255, 127));
static_assert(ZQBCDII_SIGN_NEGATIVE == zq::time::kDecimalSignNegativeOnly);
static_assert(ZQBCDII_SIGN_ALWAYS == zq::time::kDecimalSignAlways);
static_assert(ZQBCDII_ROUND_HALF_UP == zq::time::kRoundHalfUp);
static_assert(ZQBCDII_ROUND_HALF_EVEN == zq::time::kRoundHalfEven);
static_assert(ZQBCDII_ROUND_DOWN == zq::time::kRoundDown);
static_assert(ZQBCDII_ROUND_UP == zq::time::kRoundUp);
static_assert(ZQBCDII_ROUND_CEILING == zq::time::kRoundCeiling);
static_assert(ZQBCDII_ROUND_FLOOR == zq::time::kRoundFloor);

namespace {

uint32_t Calculate(zq::time::DecimalOperation operation, ZQBCDII* result, const ZQBCDII* a,
                   const ZQBCDII* b, uint32_t roundMode) {
  if (result == nullptr || a == nullptr || b == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return zq::Guarded(
      [&] { return zq::time::CalculateDecimal(operation, result, a, b, roundMode); });
}

}  // namespace

extern "C" {

ZQ_API uint32_t ZqBCDIIInit(ZQBCDII* value, uint32_t precision, uint32_t scale) {
  if (value == nullptr || !zq::time::IsDecimalType(precision, scale))
    return ZQERR_COMMON_WRONG_ARGUMENTS;
  return zq::Guarded([&]() -> uint32_t {
    zq::time::SetDecimalZero(value, precision, scale);
    return ZQERR_COMMON_OK;
  });
}

ZQ_API uint32_t ZqBCDIISetZero(ZQBCDII* value) {
  if (value == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return zq::Guarded([&]() -> uint32_t {
    if (!zq::time::HasDecimalHeader(value)) return ZQERR_COMMON_WRONG_ARGUMENTS;
    const uint32_t type = zq::time::DecimalTypeOf(value);
    zq::time::SetDecimalZero(value, type >> 8, type & 0xFFu);
    return ZQERR_COMMON_OK;
  });
}

ZQ_API uint32_t ZqBCDIIGetType(const ZQBCDII* value, uint32_t* type) {
  if (value == nullptr || type == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return zq::Guarded([&]() -> uint32_t {
    zq::time::DecimalDigits digits;
    if (!zq::time::UnpackDecimal(value, digits)) return ZQERR_COMMON_WRONG_ARGUMENTS;
    *type = zq::time::DecimalTypeOf(value);
    return ZQERR_COMMON_OK;
  });
}

ZQ_API uint32_t ZqBCDIIFormat(const ZQBCDII* value, int32_t precision, uint32_t signMode,
                              char* buffer, uint32_t* size) {
  if (value == nullptr || size == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return zq::Guarded(
      [&] { return zq::time::FormatDecimal(value, precision, signMode, buffer, size); });
}

ZQ_API uint32_t ZqBCDIIFormatTL(const void* value, uint32_t type, uint32_t signMode,
                                int32_t precision, uint32_t flags, char* buffer, uint32_t* size) {
  if (value == nullptr || size == nullptr || flags != 0) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return zq::Guarded([&]() -> uint32_t {
    if (zq::time::DecimalTypeOf(value) != type) return ZQERR_COMMON_WRONG_ARGUMENTS;
    return zq::time::FormatDecimal(value, precision, signMode, buffer, size);
  });
}

ZQ_API uint32_t ZqBCDIIFromStr(ZQBCDII* value, const char* text) {
  if (value == nullptr || text == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return zq::Guarded([&] { return zq::time::ParseDecimal(value, text); });
}

ZQ_API uint32_t ZqBCDIIToStr(const ZQBCDII* value, char* buffer, uint32_t* size) {
  if (value == nullptr || size == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return zq::Guarded([&] {
    return zq::time::FormatDecimal(value, -1, zq::time::kDecimalSignNegativeOnly, buffer, size);
  });
}

ZQ_API uint32_t ZqBCDIIFromInt64(ZQBCDII* value, int64_t number) {
  if (value == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return zq::Guarded([&] { return zq::time::DecimalFromInt64(value, number); });
}

ZQ_API uint32_t ZqBCDIIToInt64(const ZQBCDII* value, int64_t* number) {
  if (value == nullptr || number == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return zq::Guarded([&] { return zq::time::DecimalToInt64(value, *number); });
}

ZQ_API uint32_t ZqBCDIICompare(const ZQBCDII* a, const ZQBCDII* b, int32_t* result) {
  if (a == nullptr || b == nullptr || result == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return zq::Guarded([&] { return zq::time::CompareDecimals(a, b, *result); });
}

ZQ_API uint32_t ZqBCDIIAdd(ZQBCDII* result, const ZQBCDII* a, const ZQBCDII* b,
                           uint32_t roundMode) {
  return Calculate(zq::time::DecimalOperation::kAdd, result, a, b, roundMode);
}

ZQ_API uint32_t ZqBCDIISubtract(ZQBCDII* result, const ZQBCDII* a, const ZQBCDII* b,
                                uint32_t roundMode) {
  return Calculate(zq::time::DecimalOperation::kSubtract, result, a, b, roundMode);
}

ZQ_API uint32_t ZqBCDIIMultiply(ZQBCDII* result, const ZQBCDII* a, const ZQBCDII* b,
                                uint32_t roundMode) {
  return Calculate(zq::time::DecimalOperation::kMultiply, result, a, b, roundMode);
}

ZQ_API uint32_t ZqBCDIIDivide(ZQBCDII* result, const ZQBCDII* a, const ZQBCDII* b,
                              uint32_t roundMode) {
  return Calculate(zq::time::DecimalOperation::kDivide, result, a, b, roundMode);
}

ZQ_API uint32_t ZqBCDIIRescale(ZQBCDII* result, const ZQBCDII* value, uint32_t roundMode) {
  if (result == nullptr || value == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return zq::Guarded([&] { return zq::time::RescaleDecimal(result, value, roundMode); });
}

ZQ_API uint32_t ZqBCDIIRound(ZQBCDII* value, uint32_t digits, uint32_t roundMode) {
  if (value == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return zq::Guarded([&] { return zq::time::RoundDecimal(value, digits, roundMode); });
}

ZQ_API uint32_t ZqBCDIIToDouble(const ZQBCDII* value, double* number) {
  if (value == nullptr || number == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return zq::Guarded([&] { return zq::time::DecimalToDouble(value, *number); });
}

ZQ_API uint32_t ZqBCDIIFromDouble(ZQBCDII* value, double number, uint32_t roundMode) {
  if (value == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return zq::Guarded([&] { return zq::time::DecimalFromDouble(value, number, roundMode); });
}

ZQ_API uint32_t ZqBCDIIHash(const ZQBCDII* value, uint64_t* hash) {
  if (value == nullptr || hash == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return zq::Guarded([&] { return zq::time::HashDecimal(value, *hash); });
}

}  // extern "C"
