#include "msg/message.h"

#include <cstring>

#include "os/memory.h"
#include "zqsys/zqerr.h"

namespace zq::msg {
namespace {

constexpr std::uint32_t kFirstUserFields = 16;
constexpr std::uint32_t kMoreUserFields = 8;

}  // namespace

// The system fields: a name and where the value lives. Texts are owned and
// NUL-terminated; the fixed fields take exactly their width.
struct CMessage::SystemField {
  enum class Kind { kText, kBody, kU32, kU64 };
  const char* name;
  Kind kind;
  Text CMessage::*text;
  std::uint32_t CMessage::*u32;
  std::uint64_t CMessage::*u64;
};

namespace {
using Kind = CMessage::SystemField::Kind;
}

const CMessage::SystemField* CMessage::FindSystemField(const char* name) noexcept {
  static const SystemField kFields[] = {
      {ZQMSG_FIELD_FROM, Kind::kText, &CMessage::from_, nullptr, nullptr},
      {ZQMSG_FIELD_TO, Kind::kText, &CMessage::to_, nullptr, nullptr},
      {ZQMSG_FIELD_BODY, Kind::kBody, nullptr, nullptr, nullptr},
      {ZQMSG_FIELD_TYPE, Kind::kU32, nullptr, &CMessage::type_, nullptr},
      {ZQMSG_FIELD_SENDID, Kind::kU64, nullptr, nullptr, &CMessage::sendId_},
      {ZQMSG_FIELD_REPLYID, Kind::kU64, nullptr, nullptr, &CMessage::replyId_},
      {ZQMSG_FIELD_CATEGORY, Kind::kText, &CMessage::category_, nullptr, nullptr},
  };
  // Every system name starts with "Zq_": other names skip the table.
  if (name[0] != 'Z' || name[1] != 'q' || name[2] != '_') return nullptr;
  for (const SystemField& field : kFields) {
    if (std::strcmp(field.name, name) == 0) return &field;
  }
  return nullptr;
}

CMessage::~CMessage() {
  Drop(from_.text);
  Drop(to_.text);
  Drop(body_);
  Drop(category_.text);
  for (std::uint32_t i = 0; i < userCount_; ++i) {
    Drop(users_[i].name);
    Drop(users_[i].value);
  }
  if (users_ != firstUsers_) os::Release(users_);
}

CMessage* CMessage::CreateWithArena(std::uint32_t arenaSize) noexcept {
  void* memory = os::Allocate(sizeof(CMessage) + std::size_t{arenaSize});
  if (memory == nullptr) return nullptr;
  auto* message = new (memory) CMessage();
  message->arena_ = static_cast<std::uint8_t*>(memory) + sizeof(CMessage);
  message->arenaSize_ = arenaSize;
  return message;
}

void* CMessage::Take(std::size_t size) noexcept {
  if (arenaSize_ - arenaUsed_ >= size && size != 0) {
    void* block = arena_ + arenaUsed_;
    arenaUsed_ += static_cast<std::uint32_t>(size);
    return block;
  }
  return os::Allocate(size);
}

void CMessage::Drop(void* block) noexcept {
  const auto* p = static_cast<const std::uint8_t*>(block);
  const bool inArena = arena_ != nullptr && p >= arena_ && p < arena_ + arenaSize_;
  if (!inArena) os::Release(block);
}

// A copy of `length` bytes with a NUL after them; null when memory runs out.
char* CMessage::CopyText(const void* value, std::uint32_t length) noexcept {
  auto* copy = static_cast<char*>(Take(std::size_t{length} + 1));
  if (copy == nullptr) return nullptr;
  if (length != 0) std::memcpy(copy, value, length);
  copy[length] = '\0';
  return copy;
}

std::uint8_t* CMessage::CopyBytes(const void* value, std::uint32_t size) noexcept {
  auto* copy = static_cast<std::uint8_t*>(Take(size));
  if (copy != nullptr && size != 0) std::memcpy(copy, value, size);
  return copy;
}

// A text is stored up to its first NUL, whatever size it came with.
std::uint32_t CMessage::SetText(Text& field, const void* value, std::uint32_t size) noexcept {
  if (value == nullptr) return SetTextOfLength(field, nullptr, 0);
  const void* nul = std::memchr(value, 0, size);
  const auto length = nul != nullptr ? static_cast<std::uint32_t>(static_cast<const char*>(nul) -
                                                                  static_cast<const char*>(value))
                                     : size;
  return SetTextOfLength(field, static_cast<const char*>(value), length);
}

std::uint32_t CMessage::SetTextOfLength(Text& field, const char* text,
                                        std::uint32_t length) noexcept {
  char* copy = nullptr;
  if (text != nullptr) {
    copy = CopyText(text, length);
    if (copy == nullptr) return ZQERR_COMMON_NO_MEMORY;
  }
  Drop(field.text);
  field.text = copy;
  field.length = length;
  return 0;
}

std::uint32_t CMessage::SetBody(const void* bytes, std::uint32_t size) noexcept {
  if (bytes == nullptr && size != 0) return ZQERR_COMMON_WRONG_ARGUMENTS;
  std::uint8_t* copy = nullptr;
  if (bytes != nullptr) {
    copy = CopyBytes(bytes, size);
    if (copy == nullptr) return ZQERR_COMMON_NO_MEMORY;
  }
  Drop(body_);
  body_ = copy;
  bodySize_ = copy != nullptr ? size : 0;
  return 0;
}

std::uint32_t CMessage::SetField(const char* name, const void* value, std::uint32_t size) noexcept {
  if (value == nullptr && size != 0) return ZQERR_COMMON_WRONG_ARGUMENTS;
  const SystemField* field = FindSystemField(name);
  if (field == nullptr) {
    const auto length = static_cast<std::uint32_t>(std::strlen(name));
    return SetUserFieldAt(FindUserField(name, length), name, length, value, size);
  }
  switch (field->kind) {
    case Kind::kText:
      return SetText(this->*field->text, value, size);
    case Kind::kBody:
      return SetBody(value, size);
    case Kind::kU32:
      if (size != 4) return ZQERR_COMMON_WRONG_ARGUMENTS;
      std::memcpy(&(this->*field->u32), value, 4);
      return 0;
    case Kind::kU64:
      if (size != 8) return ZQERR_COMMON_WRONG_ARGUMENTS;
      std::memcpy(&(this->*field->u64), value, 8);
      return 0;
  }
  return ZQERR_COMMON_INTERNAL_ERROR;
}

std::uint32_t CMessage::FindUserField(const char* name, std::uint32_t length) const noexcept {
  for (std::uint32_t i = 0; i < userCount_; ++i) {
    if (users_[i].nameLength == length && std::memcmp(users_[i].name, name, length) == 0) return i;
  }
  return kAppend;
}

// A field that exists has its value replaced in place; a new one is
// appended, the array holding 16 entries first and growing by 8 after that.
std::uint32_t CMessage::SetUserFieldAt(std::uint32_t index, const char* name,
                                       std::uint32_t nameLength, const void* value,
                                       std::uint32_t size) noexcept {
  std::uint8_t* copy = nullptr;
  if (value != nullptr) {
    copy = CopyBytes(value, size);
    if (copy == nullptr) return ZQERR_COMMON_NO_MEMORY;
  }
  if (index != kAppend) {
    Drop(users_[index].value);
    users_[index].value = copy;
    users_[index].size = copy != nullptr ? size : 0;
    return 0;
  }
  if (userCount_ == userCapacity_) {
    if (users_ == nullptr) {
      users_ = firstUsers_;
      userCapacity_ = kFirstUserFields;
    } else {
      const std::uint64_t capacity = std::uint64_t{userCapacity_} + kMoreUserFields;
      void* grown = nullptr;
      if (capacity <= 0xFFFFFFFFu / sizeof(UserField)) {
        grown = users_ == firstUsers_ ? os::Allocate(capacity * sizeof(UserField))
                                      : os::Reallocate(users_, capacity * sizeof(UserField));
      }
      if (grown == nullptr) {
        Drop(copy);
        return ZQERR_COMMON_NO_MEMORY;
      }
      if (users_ == firstUsers_) std::memcpy(grown, firstUsers_, sizeof firstUsers_);
      users_ = static_cast<UserField*>(grown);
      userCapacity_ = static_cast<std::uint32_t>(capacity);
    }
  }
  char* nameCopy = CopyText(name, nameLength);
  if (nameCopy == nullptr) {
    Drop(copy);
    return ZQERR_COMMON_NO_MEMORY;
  }
  users_[userCount_++] = UserField{nameCopy, copy, nameLength, copy != nullptr ? size : 0};
  return 0;
}

std::uint32_t CMessage::GetField(const char* name, const void** value,
                                 std::uint32_t* size) const noexcept {
  const SystemField* field = FindSystemField(name);
  if (field == nullptr) {
    const std::uint32_t index = FindUserField(name, static_cast<std::uint32_t>(std::strlen(name)));
    if (index == kAppend) return ZQERR_MSG_FIELD_NOT_FOUND;
    *value = users_[index].value;
    *size = users_[index].size;
    return 0;
  }
  switch (field->kind) {
    case Kind::kText: {
      const Text& text = this->*field->text;
      if (text.text == nullptr) return ZQERR_MSG_FIELD_NOT_FOUND;
      *value = text.text;
      *size = text.length + 1;
      return 0;
    }
    case Kind::kBody:
      if (body_ == nullptr) return ZQERR_MSG_FIELD_NOT_FOUND;
      *value = body_;
      *size = bodySize_;
      return 0;
    case Kind::kU32:
      *value = &(this->*field->u32);
      *size = 4;
      return 0;
    case Kind::kU64:
      *value = &(this->*field->u64);
      *size = 8;
      return 0;
  }
  return ZQERR_COMMON_INTERNAL_ERROR;
}

}  // namespace zq::msg
