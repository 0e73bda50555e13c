#include "stat/stat_reply.h"

#include <cstring>
#include <string>

#include "msg/composed.h"
#include "os/module_file.h"
#include "zqsys/zqerr.h"

namespace zq::stat {
namespace {

constexpr std::uint32_t kRowVersion = 1;

// The query of a request: the rows it asks for, or why it asks for none.
std::uint32_t QueryOf(HZQMSG request, std::uint32_t& type, std::string& moduleClass) {
  type = ZQSTAT_QUERY_ALL;
  ZqMsgCopyFieldUINT32(request, ZQMSG_FIELD_TYPE, &type);
  if (type != ZQSTAT_QUERY_ALL) return ZQERR_MQSTAT_INVALID_QUERY;
  const void* value = nullptr;
  std::uint32_t size = 0;
  if (ZqMsgGetBinaryField(request, ZQSTAT_FIELD_CLASS, &value, &size) == 0 && size != 0) {
    const auto* text = static_cast<const char*>(value);
    moduleClass.assign(text, strnlen(text, size));
  }
  return 0;
}

std::uint32_t ComposeRows(const StatRows& rows, ZQCOMPOSECTX* body) {
  std::uint32_t rc = ZqMsgCompose(body, "u4", static_cast<std::uint32_t>(rows.size()));
  for (const StatRow& row : rows) {
    if (rc != 0) break;
    rc = ZqMsgCompose(body, ZQSTAT_ROW_FORMAT, row.moduleId, row.moduleClass.c_str(),
                      row.name.c_str(), static_cast<unsigned>(row.kind),
                      static_cast<long long>(row.number), row.text.c_str());
  }
  return rc;
}

// A text of a reply row: a pointer into the body that must end in its NUL
// within the length the stream gives it (a null text reads as "").
std::uint32_t ReadText(ZQPARSECTX* body, const char*& text) {
  const std::uint32_t start = body->position;
  text = nullptr;
  if (ZqMsgParseGetPointer(body, "c", &text) != 0) return ZQERR_MQSTAT_INVALID_QUERY;
  if (text == nullptr) {
    text = "";
    return 0;
  }
  const std::uint32_t length = body->position - start - 4;
  return length != 0 && text[length - 1] == '\0' ? 0 : ZQERR_MQSTAT_INVALID_QUERY;
}

}  // namespace

ZQSTATROW RowView(const StatRow& row) noexcept {
  return ZQSTATROW{row.moduleId,     row.moduleClass.c_str(),
                   row.name.c_str(), static_cast<std::uint32_t>(row.kind),
                   row.number,       row.text.c_str()};
}

std::uint32_t BuildReply(const CStatRegistry& registry, HZQMSG request, HZQMSG* reply) noexcept {
  HZQMSG made = nullptr;
  std::uint32_t rc = ZqMsgCreateMessage(&made);
  if (rc != 0) return rc;
  try {
    std::uint32_t type = 0;
    std::string moduleClass;
    const std::uint32_t result = QueryOf(request, type, moduleClass);
    msg::CComposed body;
    rc = ComposeRows(result == 0 ? registry.Read(moduleClass) : StatRows(), body.Context());
    if (rc == 0) rc = ZqMsgSetFieldStr(made, ZQMSG_FIELD_CATEGORY, ZQSTAT_CATEGORY);
    if (rc == 0) rc = ZqMsgSetFieldUINT32(made, ZQMSG_FIELD_TYPE, type);
    if (rc == 0) rc = ZqMsgSetFieldUINT32(made, ZQSTAT_FIELD_RESULT, result);
    if (rc == 0) rc = ZqMsgSetFieldUINT32(made, ZQSTAT_FIELD_VERSION, kRowVersion);
    if (rc == 0) rc = ZqMsgSetFieldUINT32(made, ZQSTAT_FIELD_PID, os::ProcessId());
    if (rc == 0) rc = ZqMsgSetBody(made, body.Context()->buffer, body.Context()->size);
  } catch (const std::bad_alloc&) {
    rc = ZQERR_COMMON_NO_MEMORY;
  }
  if (rc != 0) {
    ZqMsgFreeMessage(made);
    return rc;
  }
  *reply = made;
  return 0;
}

std::uint32_t ReadReply(HZQMSG reply, ZqMQStatRowCallback callback, void* context) noexcept {
  const void* category = nullptr;
  std::uint32_t size = 0;
  std::uint32_t version = 0;
  std::uint32_t result = 0;
  if (ZqMsgGetBinaryField(reply, ZQMSG_FIELD_CATEGORY, &category, &size) != 0 ||
      size != sizeof ZQSTAT_CATEGORY ||
      std::memcmp(category, ZQSTAT_CATEGORY, sizeof ZQSTAT_CATEGORY) != 0 ||
      ZqMsgCopyFieldUINT32(reply, ZQSTAT_FIELD_VERSION, &version) != 0 || version != kRowVersion) {
    return ZQERR_MQSTAT_INVALID_QUERY;
  }
  if (ZqMsgCopyFieldUINT32(reply, ZQSTAT_FIELD_RESULT, &result) == 0 && result != 0) return result;
  const void* bytes = nullptr;
  if (ZqMsgGetBody(reply, &bytes, &size) != 0) return ZQERR_MQSTAT_INVALID_QUERY;
  ZQPARSECTX body;
  ZqMsgInitParse(&body, bytes, size);
  std::uint32_t count = 0;
  if (ZqMsgParseCopy(&body, "u4", &count) != 0) return ZQERR_MQSTAT_INVALID_QUERY;
  for (std::uint32_t i = 0; i < count; ++i) {
    ZQSTATROW row{};
    std::uint8_t kind = 0;
    if (ZqMsgParseCopy(&body, "u4", &row.moduleId) != 0 || ReadText(&body, row.moduleClass) != 0 ||
        ReadText(&body, row.name) != 0 || ZqMsgParseCopy(&body, "u1i8", &kind, &row.number) != 0 ||
        ReadText(&body, row.text) != 0) {
      return ZQERR_MQSTAT_INVALID_QUERY;
    }
    row.kind = kind;
    if (const std::uint32_t stop = callback(&row, context); stop != 0) return stop;
  }
  return 0;
}

}  // namespace zq::stat
