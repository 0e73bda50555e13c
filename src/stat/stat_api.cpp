// The exported statistics functions: check the arguments, find the registry
// or the module, do the one thing, return the code.
#include <string>
#include <string_view>

#include "os/edge.h"
#include "stat/stat_registry.h"
#include "stat/stat_reply.h"
#include "zqsys/zqerr.h"
#include "zqsys/zqstat.h"

using zq::Guarded;
using zq::common::CRef;
using zq::stat::CStatModule;
using zq::stat::CStatRegistry;
using zq::stat::CStatService;
using zq::stat::CStatValue;
using zq::stat::Kind;

namespace {

constexpr auto kWrongArguments = static_cast<uint32_t>(ZQERR_COMMON_WRONG_ARGUMENTS);
constexpr auto kNotRegistered = static_cast<uint32_t>(ZQERR_MQSTAT_NOT_REGISTERED);
constexpr auto kLame = static_cast<uint32_t>(ZQERR_MQSTAT_LAME_STATISTIC);

CStatValue* ValueOf(HZQSTATVALUE handle) noexcept {
  return reinterpret_cast<CStatValue*>(handle);
}
HZQSTATVALUE HandleOf(CStatValue* value) noexcept {
  return reinterpret_cast<HZQSTATVALUE>(value);
}

// Runs `call` on the live registry; after unload there is none.
template <class Call>
uint32_t OnRegistry(Call call) {
  return Guarded([&]() -> uint32_t {
    CStatRegistry* registry = zq::stat::CurrentStatRegistry();
    return registry != nullptr ? call(*registry)
                               : static_cast<uint32_t>(ZQERR_COMMON_INTERNAL_ERROR);
  });
}

template <class Call>
uint32_t OnModule(uint32_t moduleId, Call call) {
  return OnRegistry([&](CStatRegistry& registry) -> uint32_t {
    const CRef<CStatModule> module = registry.Find(moduleId);
    return module ? call(*module) : kNotRegistered;
  });
}

bool KindOf(uint32_t code, Kind& kind) noexcept {
  if (code < ZQSTAT_COUNTER || code > ZQSTAT_TEXT) return false;
  kind = static_cast<Kind>(code);
  return true;
}

// A counter only grows: its deltas and settings are never negative.
uint32_t CheckNumber(const CStatValue* value, int64_t number) noexcept {
  if (value == nullptr) return kWrongArguments;
  if (!value->IsNumber()) return kLame;
  if (value->ValueKind() == Kind::kCounter && number < 0) return kWrongArguments;
  return 0;
}

}  // namespace

extern "C" {

ZQ_API uint32_t ZqMQStatRegisterModule(const char* moduleClass, const void* key,
                                       uint32_t* moduleId) {
  if (moduleClass == nullptr || moduleId == nullptr) return kWrongArguments;
  return OnRegistry([&](CStatRegistry& registry) -> uint32_t {
    CRef<CStatModule> module;
    const uint32_t rc = registry.Register(moduleClass, key, module);
    if (rc == 0) *moduleId = module->Id();
    return rc;
  });
}

ZQ_API uint32_t ZqMQStatSetBinaryModuleVersion(const void* address, const char* version,
                                               uint32_t* moduleId) {
  if (moduleId == nullptr) return kWrongArguments;
  return OnRegistry([&](CStatRegistry& registry) {
    return zq::stat::RegisterBinaryModule(registry, address, version != nullptr ? version : "",
                                          *moduleId);
  });
}

ZQ_API uint32_t ZqMQStatUnregisterModule(uint32_t moduleId) {
  return OnRegistry([&](CStatRegistry& registry) { return registry.Unregister(moduleId); });
}

ZQ_API uint32_t ZqMQStatAddValue(uint32_t moduleId, const char* name, uint32_t kind,
                                 HZQSTATVALUE* value) {
  Kind checked{};
  if (name == nullptr || value == nullptr || !KindOf(kind, checked)) return kWrongArguments;
  return OnModule(moduleId, [&](CStatModule& module) {
    CStatValue* added = nullptr;
    const uint32_t rc = module.AddValue(name, checked, added);
    if (rc == 0) *value = HandleOf(added);
    return rc;
  });
}

ZQ_API uint32_t ZqMQStatFindValue(uint32_t moduleId, const char* name, HZQSTATVALUE* value) {
  if (name == nullptr || value == nullptr) return kWrongArguments;
  return OnModule(moduleId, [&](CStatModule& module) -> uint32_t {
    CStatValue* found = module.FindValue(name);
    if (found == nullptr) return ZQERR_MQSTAT_NOT_ANNOUNCED;
    *value = HandleOf(found);
    return 0;
  });
}

ZQ_API uint32_t ZqMQStatAdd(HZQSTATVALUE value, int64_t delta) {
  CStatValue* target = ValueOf(value);
  if (const uint32_t rc = CheckNumber(target, delta); rc != 0) return rc;
  target->Add(delta);
  return 0;
}

ZQ_API uint32_t ZqMQStatSet(HZQSTATVALUE value, int64_t number) {
  CStatValue* target = ValueOf(value);
  if (const uint32_t rc = CheckNumber(target, number); rc != 0) return rc;
  target->Set(number);
  return 0;
}

ZQ_API uint32_t ZqMQStatSetText(HZQSTATVALUE value, const char* text) {
  CStatValue* target = ValueOf(value);
  if (target == nullptr) return kWrongArguments;
  if (target->IsNumber()) return kLame;
  return Guarded([&]() -> uint32_t {
    target->SetText(text != nullptr ? text : "");
    return 0;
  });
}

ZQ_API uint32_t ZqMQStatGet(HZQSTATVALUE value, int64_t* number) {
  const CStatValue* target = ValueOf(value);
  if (target == nullptr || number == nullptr) return kWrongArguments;
  if (!target->IsNumber()) return kLame;
  *number = target->Number();
  return 0;
}

ZQ_API uint32_t ZqMQStatEnumValues(const char* moduleClass, ZqMQStatRowCallback callback,
                                   void* context) {
  if (callback == nullptr) return kWrongArguments;
  return OnRegistry([&](CStatRegistry& registry) -> uint32_t {
    const zq::stat::StatRows rows = registry.Read(moduleClass != nullptr ? moduleClass : "");
    for (const zq::stat::StatRow& row : rows) {
      const ZQSTATROW view = zq::stat::RowView(row);
      if (const uint32_t stop = callback(&view, context); stop != 0) return stop;
    }
    return 0;
  });
}

ZQ_API uint32_t ZqMQStatBuildReply(HZQMSG request, HZQMSG* reply) {
  if (request == nullptr || reply == nullptr) return kWrongArguments;
  return OnRegistry(
      [&](CStatRegistry& registry) { return zq::stat::BuildReply(registry, request, reply); });
}

ZQ_API uint32_t ZqMQStatReadReply(HZQMSG reply, ZqMQStatRowCallback callback, void* context) {
  if (reply == nullptr || callback == nullptr) return kWrongArguments;
  return zq::stat::ReadReply(reply, callback, context);
}

ZQ_API uint32_t ZqMQStatServiceGetModuleId(HZQSTATSERVICE service, uint32_t* moduleId) {
  if (service == nullptr || moduleId == nullptr) return kWrongArguments;
  *moduleId = CStatService::From(service)->Module().Id();
  return 0;
}

ZQ_API uint32_t ZqMQStatServiceSetAnswering(HZQSTATSERVICE service, uint32_t on) {
  if (service == nullptr) return kWrongArguments;
  CStatService::From(service)->SetAnswering(on != 0);
  return 0;
}

}  // extern "C"
