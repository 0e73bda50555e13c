// Structures and records in streams. A CStructLayout is the native layout
// of one table scheme, made once and then read-only, behind both the struct
// composer and the struct parser handles; the record functions lay their
// record's table out the same way for each call.
#pragma once

#include <cstdint>

#include "common/ref_counted.h"
#include "scheme/record.h"
#include "scheme/scheme_objects.h"
#include "zqsys/zqstream.h"
#include "zqsys/zqstruct.h"

namespace zq::scheme {

class CStructLayout final : public common::CRefCounted {
 public:
  // The layout of a table scheme with one reference: 0x8007 for a table
  // without fields, 0x800A for a type the layout refuses, 1 without memory.
  static std::uint32_t Create(HZQDBTABLE table, CStructLayout*& out) noexcept;

  // Appends the structure's fields in position order; on failure nothing is
  // appended. 22 for a size other than the structure's.
  std::uint32_t Compose(ZQCOMPOSECTX& ctx, const void* structure,
                        std::uint32_t size) const noexcept;
  // Reads one structure; on failure the read position stays where it was.
  std::uint32_t Parse(ZQPARSECTX& ctx, void* structure, std::uint32_t size) const noexcept;

  static CStructLayout* From(HZQSTRUCTCOMPOSER handle) noexcept {
    return reinterpret_cast<CStructLayout*>(handle);
  }
  static CStructLayout* From(HZQSTRUCTPARSER handle) noexcept {
    return reinterpret_cast<CStructLayout*>(handle);
  }
  HZQSTRUCTCOMPOSER ComposerHandle() noexcept { return reinterpret_cast<HZQSTRUCTCOMPOSER>(this); }
  HZQSTRUCTPARSER ParserHandle() noexcept { return reinterpret_cast<HZQSTRUCTPARSER>(this); }

  CStructLayout(CZqDBRecord& table, std::uint32_t count) noexcept
      : table_(Share(&table)), count_(count) {}

 protected:
  ~CStructLayout() override { os::Release(places_); }

 private:
  CRef<CZqDBRecord> table_;  // held for the layout's life
  FieldPlace* places_ = nullptr;
  std::uint32_t count_;
  std::uint32_t size_ = 0;
};

// A record's fields, each as a state byte and its value; see
// ZqSysComposeFromRecord and ZqSysParseToRecord.
std::uint32_t ComposeRecord(ZQCOMPOSECTX& ctx, CRecord& record) noexcept;
std::uint32_t ParseRecord(ZQPARSECTX& ctx, CRecord& record) noexcept;

}  // namespace zq::scheme
