// Arbitrary bytes as a scheme block. Whatever loads must save to a block
// that loads again equal and saves to the same bytes, and must be a subset
// of itself; whatever does not load must leave no scheme behind.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "scheme/live_counts.h"
#include "zqsys/zqerr.h"
#include "zqsys/zqscheme.h"

namespace {

void Require(bool condition) {
  if (!condition) std::abort();
}

std::vector<std::uint8_t> Save(HZQDBSCHEME scheme) {
  std::uint32_t size = 0;
  Require(ZqSchemeSaveSchemeToBlock(scheme, nullptr, &size) == ZQERR_COMMON_BUFFER_TOO_SMALL);
  std::vector<std::uint8_t> block(size);
  Require(ZqSchemeSaveSchemeToBlock(scheme, block.data(), &size) == 0 && size == block.size());
  return block;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > 0xFFFFFFFFu) return 0;
  const auto blockSize = static_cast<std::uint32_t>(size);
  // An exactly sized heap copy, so reads past its end are caught.
  const std::unique_ptr<std::uint8_t[]> block(new std::uint8_t[size]);
  if (size != 0) std::memcpy(block.get(), data, size);
  const zq::scheme::LiveCounts before = zq::scheme::CurrentLiveCounts();

  HZQDBSCHEME scheme = nullptr;
  std::uint32_t used = 0;
  const std::uint32_t rc = ZqSchemeCreateSchemeFromBlock(block.get(), blockSize, &scheme, &used);
  if (rc == 0) {
    Require(scheme != nullptr && used <= blockSize);
    const std::vector<std::uint8_t> saved = Save(scheme);
    HZQDBSCHEME again = nullptr;
    std::uint32_t againUsed = 0;
    Require(ZqSchemeCreateSchemeFromBlock(saved.data(), static_cast<std::uint32_t>(saved.size()),
                                          &again, &againUsed) == 0 &&
            againUsed == saved.size());
    std::uint32_t equal = 0, subset = 0;
    Require(ZqSchemeEqualSchemes(scheme, again, &equal) == 0 && equal == 1);
    Require(ZqDBIsSchemeSubset(again, scheme, &subset) == 0 && subset == 1);
    Require(Save(again) == saved);
    ZqSchemeFreeScheme(again);
    ZqSchemeFreeScheme(scheme);
  } else {
    Require(scheme == nullptr);
  }
  const zq::scheme::LiveCounts after = zq::scheme::CurrentLiveCounts();
  Require(after.schemes == before.schemes && after.tables == before.tables &&
          after.fields == before.fields);
  return 0;
}
