#include "msg/message.h"

#include <cstring>

#include "os/edge.h"
#include "os/memory.h"
#include "zqsys/zqerr.h"

namespace zq::msg {
namespace {

constexpr std::uint32_t kFieldNotFound = ZQERR_MSG_FIELD_NOT_FOUND;
constexpr std::uint32_t kFirstUserFields = 16;
constexpr std::uint32_t kMoreUserFields = 8;

// A copy of `size` bytes with a NUL after them; null when memory runs out.
char* CopyText(const void* value, std::uint32_t size) noexcept {
  auto* copy = static_cast<char*>(os::Allocate(std::size_t{size} + 1));
  if (copy == nullptr) return nullptr;
  if (size != 0) std::memcpy(copy, value, size);
  copy[size] = '\0';
  return copy;
}

std::uint8_t* CopyBytes(const void* value, std::uint32_t size) noexcept {
  auto* copy = static_cast<std::uint8_t*>(os::Allocate(size));
  if (copy != nullptr && size != 0) std::memcpy(copy, value, size);
  return copy;
}

}  // namespace

void* LibraryAllocate(std::size_t size) noexcept {
  return os::Allocate(size);
}

// The system fields: a name and where the value lives. Texts are owned and
// NUL-terminated; the fixed fields take exactly their width.
struct CMessage::SystemField {
  enum class Kind { kText, kBody, kU32, kU64 };
  const char* name;
  Kind kind;
  char* CMessage::*text;
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
  if (std::strncmp(name, "Zq_", 3) != 0) return nullptr;
  for (const SystemField& field : kFields) {
    if (std::strcmp(field.name, name) == 0) return &field;
  }
  return nullptr;
}

CMessage::~CMessage() {
  os::Release(from_);
  os::Release(to_);
  os::Release(body_);
  os::Release(category_);
  for (std::uint32_t i = 0; i < userCount_; ++i) {
    os::Release(users_[i].name);
    os::Release(users_[i].value);
  }
  os::Release(users_);
}

std::uint32_t CMessage::SetBody(const void* bytes, std::uint32_t size) noexcept {
  if (bytes == nullptr && size != 0) return kWrongArguments;
  std::uint8_t* copy = nullptr;
  if (bytes != nullptr) {
    copy = CopyBytes(bytes, size);
    if (copy == nullptr) return kNoMemory;
  }
  os::Release(body_);
  body_ = copy;
  bodySize_ = copy != nullptr ? size : 0;
  return 0;
}

std::uint32_t CMessage::SetField(const char* name, const void* value, std::uint32_t size) noexcept {
  if (value == nullptr && size != 0) return kWrongArguments;
  const SystemField* field = FindSystemField(name);
  if (field == nullptr) return SetUserFieldAt(FindUserField(name), name, value, size);
  switch (field->kind) {
    case Kind::kText: {
      char* copy = nullptr;
      if (value != nullptr) {
        copy = CopyText(value, size);
        if (copy == nullptr) return kNoMemory;
      }
      os::Release(this->*field->text);
      this->*field->text = copy;
      return 0;
    }
    case Kind::kBody:
      return SetBody(value, size);
    case Kind::kU32:
      if (size != 4) return kWrongArguments;
      std::memcpy(&(this->*field->u32), value, 4);
      return 0;
    case Kind::kU64:
      if (size != 8) return kWrongArguments;
      std::memcpy(&(this->*field->u64), value, 8);
      return 0;
  }
  return kInternalError;
}

std::uint32_t CMessage::FindUserField(const char* name) const noexcept {
  for (std::uint32_t i = 0; i < userCount_; ++i) {
    if (std::strcmp(users_[i].name, name) == 0) return i;
  }
  return kAppend;
}

// A field that exists has its value replaced in place; a new one is
// appended, the array growing to 16 entries first and by 8 after that.
std::uint32_t CMessage::SetUserFieldAt(std::uint32_t index, const char* name, const void* value,
                                       std::uint32_t size) noexcept {
  std::uint8_t* copy = nullptr;
  if (value != nullptr) {
    copy = CopyBytes(value, size);
    if (copy == nullptr) return kNoMemory;
  }
  if (index != kAppend) {
    os::Release(users_[index].value);
    users_[index].value = copy;
    users_[index].size = copy != nullptr ? size : 0;
    return 0;
  }
  if (userCount_ == userCapacity_) {
    const std::uint64_t capacity =
        userCapacity_ == 0 ? kFirstUserFields : std::uint64_t{userCapacity_} + kMoreUserFields;
    void* grown = capacity > 0xFFFFFFFFu / sizeof(UserField)
                      ? nullptr
                      : os::Reallocate(users_, capacity * sizeof(UserField));
    if (grown == nullptr) {
      os::Release(copy);
      return kNoMemory;
    }
    users_ = static_cast<UserField*>(grown);
    userCapacity_ = static_cast<std::uint32_t>(capacity);
  }
  char* nameCopy = CopyText(name, static_cast<std::uint32_t>(std::strlen(name)));
  if (nameCopy == nullptr) {
    os::Release(copy);
    return kNoMemory;
  }
  users_[userCount_++] = UserField{nameCopy, copy, copy != nullptr ? size : 0};
  return 0;
}

std::uint32_t CMessage::GetField(const char* name, const void** value,
                                 std::uint32_t* size) const noexcept {
  const SystemField* field = FindSystemField(name);
  if (field == nullptr) {
    for (std::uint32_t i = 0; i < userCount_; ++i) {
      if (std::strcmp(users_[i].name, name) == 0) {
        *value = users_[i].value;
        *size = users_[i].size;
        return 0;
      }
    }
    return kFieldNotFound;
  }
  switch (field->kind) {
    case Kind::kText: {
      const char* text = this->*field->text;
      if (text == nullptr) return kFieldNotFound;
      *value = text;
      *size = static_cast<std::uint32_t>(std::strlen(text) + 1);
      return 0;
    }
    case Kind::kBody:
      if (body_ == nullptr) return kFieldNotFound;
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
  return kInternalError;
}

}  // namespace zq::msg
