// The message object behind HZQMSG: system fields, user fields, body, and
// its block form.
#pragma once

#include <cstdint>
#include <string_view>

#include "common/ref_counted.h"
#include "zqsys/zqmsg.h"
#include "zqsys/zqstream.h"

namespace zq::msg {

struct UserField {
  char* name;
  std::uint8_t* value;  // null for an empty value stored as null
  std::uint32_t nameLength;
  std::uint32_t size;
};

class CMessage : public common::CRefCounted {
 public:
  static CMessage* From(HZQMSG handle) noexcept { return reinterpret_cast<CMessage*>(handle); }

  // A new message with room for `arenaSize` bytes of copies right behind
  // it, in the same allocation; null when memory runs out.
  static CMessage* CreateWithArena(std::uint32_t arenaSize) noexcept;
  HZQMSG Handle() noexcept { return reinterpret_cast<HZQMSG>(this); }

  // See ZqMsgSetField and ZqMsgGetBinaryField.
  std::uint32_t SetField(const char* name, const void* value, std::uint32_t size) noexcept;
  std::uint32_t GetField(const char* name, const void** value, std::uint32_t* size) const noexcept;

  std::uint32_t SetBody(const void* bytes, std::uint32_t size) noexcept;
  const std::uint8_t* Body() const noexcept { return body_; }
  std::uint32_t BodySize() const noexcept { return bodySize_; }

  // Appends the block to `ctx` (measures it when the context measures).
  std::uint32_t ComposeBlock(ZQCOMPOSECTX& ctx) const noexcept;
  // Fills this new, empty message from a block; `used` receives the bytes
  // read so far, also on failure.
  std::uint32_t LoadBlock(const std::uint8_t* block, std::uint32_t size,
                          std::uint32_t& used) noexcept;

  std::uint32_t UserFieldCount() const noexcept { return userCount_; }
  const UserField& UserFieldAt(std::uint32_t i) const noexcept { return users_[i]; }

  struct SystemField;
  // The header field of that name ("Zq_From", ...), or null for a user name.
  static const SystemField* FindSystemField(const char* name) noexcept;

 protected:
  ~CMessage() override;

 private:
  static constexpr std::uint32_t kAppend = 0xFFFFFFFFu;
  // The index of the user field of that name (`length` characters), or
  // kAppend.
  std::uint32_t FindUserField(const char* name, std::uint32_t length) const noexcept;
  // Replaces the value of entry `index`, or appends a new field (kAppend).
  std::uint32_t SetUserFieldAt(std::uint32_t index, const char* name, std::uint32_t nameLength,
                               const void* value, std::uint32_t size) noexcept;

  // A text field keeps its length beside it, so blocks are written without
  // measuring texts again.
  struct Text {
    char* text = nullptr;
    std::uint32_t length = 0;
  };
  std::uint32_t SetText(Text& field, const void* value, std::uint32_t size) noexcept;
  // Stores exactly `length` bytes of text and a NUL after them.
  std::uint32_t SetTextOfLength(Text& field, const char* text, std::uint32_t length) noexcept;

  // Storage for copies: the arena while it has room (a load sizes it to the
  // block, which bounds everything copied out of it), else the heap. The
  // arena lies behind the object and goes with it; a pointer into it is
  // never released on its own.
  void* Take(std::size_t size) noexcept;
  void Drop(void* block) noexcept;
  char* CopyText(const void* value, std::uint32_t length) noexcept;
  std::uint8_t* CopyBytes(const void* value, std::uint32_t size) noexcept;

  std::uint32_t type_ = 0;
  std::uint64_t sendId_ = 0;
  std::uint64_t replyId_ = 0;
  Text from_;
  Text to_;
  std::uint8_t* body_ = nullptr;
  std::uint32_t bodySize_ = 0;
  Text category_;
  std::uint32_t userCapacity_ = 0;
  std::uint32_t userCount_ = 0;
  UserField* users_ = nullptr;
  std::uint8_t* arena_ = nullptr;
  std::uint32_t arenaSize_ = 0;
  std::uint32_t arenaUsed_ = 0;
  // The first 16 user fields live in the object itself.
  UserField firstUsers_[16];
};

// Where the header values of a block lie, for a reader that forwards the
// block with a few values changed instead of loading it: offsets into the
// block, and the texts (without their NUL, empty when null).
struct BlockLayout {
  std::uint32_t typeOffset = 0;     // the u4 "Zq_Type"
  std::uint32_t sendIdOffset = 0;   // the u8 "Zq_SendId"
  std::uint32_t replyIdOffset = 0;  // the u8 "Zq_ReplyId"
  std::uint32_t fromBegin = 0;      // the whole "c" value of "Zq_From": length
  std::uint32_t fromEnd = 0;        // word, bytes and NUL
  std::string_view from, to, category;
  std::uint32_t size = 0;   // bytes up to and including the terminator
  bool systemPair = false;  // a user pair names a header field
};

// Walks a whole block with the checks of a load, without copying anything:
// the header, every user pair (an empty name is refused as a load refuses
// it) and the terminator, which may be missing at the very end as a load
// allows. 0 or the load's result code.
std::uint32_t ScanBlock(const std::uint8_t* block, std::uint32_t size,
                        BlockLayout& layout) noexcept;

// Reads one field straight from a block without building a message.
std::uint32_t ReadFieldFromBlock(const std::uint8_t* block, std::uint32_t size, const char* name,
                                 const void** value, std::uint32_t* valueSize) noexcept;

}  // namespace zq::msg
