// The binary composer and parser: reference-counted objects around a
// compose or parse context, behind the HZQCOMPOSER and HZQPARSER handles.
#pragma once

#include <cstdarg>
#include <cstdint>

#include "common/ref_counted.h"
#include "zqsys/zqstream.h"

namespace zq::msg {

// Final: the handle functions call these objects directly, not through the
// virtual table.
class CBinaryComposer final : public common::CRefCounted {
 public:
  virtual std::uint32_t Query() noexcept { return 0; }
  virtual std::uint32_t Compose(const char* format, va_list args) noexcept;
  virtual std::uint32_t ComposeAtIndex(std::uint32_t index, const char* format,
                                       va_list args) noexcept;
  virtual std::uint32_t GetBuffer(const std::uint8_t** buffer) noexcept;
  virtual std::uint32_t GetSize(std::uint32_t* size) noexcept;

  static CBinaryComposer* From(HZQCOMPOSER handle) noexcept {
    return reinterpret_cast<CBinaryComposer*>(handle);
  }
  HZQCOMPOSER Handle() noexcept { return reinterpret_cast<HZQCOMPOSER>(this); }
  // The stream, for families above that compose into it value by value.
  ZQCOMPOSECTX& Context() noexcept { return ctx_; }

 protected:
  ~CBinaryComposer() override;

 private:
  ZQCOMPOSECTX ctx_{};
};

class CBinaryParser final : public common::CRefCounted {
 public:
  virtual std::uint32_t Query() noexcept { return 0; }
  virtual std::uint32_t Init(const void* buffer, std::uint32_t size) noexcept;
  virtual std::uint32_t Reset() noexcept;
  virtual std::uint32_t Parse(const char* format, va_list args) noexcept;
  virtual std::uint32_t GetIndex(std::uint32_t* index) noexcept;

  static CBinaryParser* From(HZQPARSER handle) noexcept {
    return reinterpret_cast<CBinaryParser*>(handle);
  }
  HZQPARSER Handle() noexcept { return reinterpret_cast<HZQPARSER>(this); }
  ZQPARSECTX& Context() noexcept { return ctx_; }

 protected:
  ~CBinaryParser() override = default;

 private:
  ZQPARSECTX ctx_{};
};

}  // namespace zq::msg
