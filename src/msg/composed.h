// A compose context for one scope: a body composed by format, freed when
// the scope ends.
#pragma once

#include <string_view>

#include "zqsys/zqmsg.h"

namespace zq::msg {

class CComposed {
 public:
  CComposed() noexcept { ZqMsgInitCompose(&context_); }
  ~CComposed() { ZqMsgFreeCompose(&context_); }
  CComposed(const CComposed&) = delete;
  CComposed& operator=(const CComposed&) = delete;
  ZQCOMPOSECTX* Context() noexcept { return &context_; }
  std::string_view Bytes() const noexcept {
    return {reinterpret_cast<const char*>(context_.buffer), context_.size};
  }

 private:
  ZQCOMPOSECTX context_;
};

}  // namespace zq::msg
