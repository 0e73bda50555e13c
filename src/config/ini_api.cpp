// The exported INI functions.
#include "common/error_site.h"
#include "config/ini_registry.h"
#include "config/ini_text.h"
#include "os/edge.h"
#include "zqsys/zqerr.h"
#include "zqsys/zqini.h"

using zq::Guarded;
using zq::GuardedOr;
using zq::config::CIniObject;
using zq::config::CurrentIniRegistry;
using zq::config::IsName;
using zq::config::ResolveIni;

namespace {

constexpr auto kNotStarted = static_cast<uint32_t>(ZQERR_INI_NOT_STARTED);
constexpr auto kInvalidHandle = static_cast<uint32_t>(ZQERR_INI_INVALID_INI_HANDLE);

// Runs `call` on the object a handle names; 0x4005 when it names none.
template <class Call>
uint32_t OnObject(uint32_t handle, Call call) {
  return Guarded([&]() -> uint32_t {
    const auto object = ResolveIni(handle);
    return object ? call(*object.Get()) : kInvalidHandle;
  });
}

}  // namespace

extern "C" {

ZQ_API uint32_t ZqIniOpen(const char* path) {
  return Guarded([&]() -> uint32_t {
    zq::config::CIniRegistry* registry = CurrentIniRegistry();
    if (registry == nullptr) return kNotStarted;
    const auto object = registry->Resolve(ZQINI_DEFAULT_HANDLE);
    if (!object) return ZQERR_COMMON_NO_MEMORY;
    return ZQ_RETURN_ZQERR(object->Open(path, registry->Options()));
  });
}

ZQ_API uint32_t ZqIniClose(void) {
  return ZqIniCustClose(ZQINI_DEFAULT_HANDLE);
}

ZQ_API uint32_t ZqIniIsOpened(void) {
  return GuardedOr<uint32_t>(0, [] {
    const auto object = ResolveIni(ZQINI_DEFAULT_HANDLE);
    return object && object->IsOpen() ? 1u : 0u;
  });
}

ZQ_API uint32_t ZqIniSetOpt(uint32_t options) {
  return Guarded([&]() -> uint32_t {
    zq::config::CIniRegistry* registry = CurrentIniRegistry();
    return registry != nullptr ? registry->SetOptions(options) : kNotStarted;
  });
}

ZQ_API uint32_t ZqIniGetOpt(uint32_t* options) {
  if (options == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return Guarded([&]() -> uint32_t {
    zq::config::CIniRegistry* registry = CurrentIniRegistry();
    if (registry == nullptr) return kNotStarted;
    *options = registry->Options();
    return 0;
  });
}

ZQ_API uint32_t ZqIniCustOpen(uint32_t* handle, const char* path) {
  if (handle == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  *handle = 0;
  return Guarded([&]() -> uint32_t {
    zq::config::CIniRegistry* registry = CurrentIniRegistry();
    if (registry == nullptr) return kNotStarted;
    return ZQ_RETURN_ZQERR(registry->OpenCustom(*handle, path));
  });
}

ZQ_API uint32_t ZqIniCustClose(uint32_t handle) {
  Guarded([&]() -> uint32_t {
    if (zq::config::CIniRegistry* registry = CurrentIniRegistry()) registry->Close(handle);
    return 0;
  });
  return 0;
}

ZQ_API int32_t ZqIniCustGetInt(uint32_t handle, const char* section, const char* key,
                               int32_t defaultValue) {
  return GuardedOr(defaultValue, [&] {
    const auto object = ResolveIni(handle);
    return object ? object->GetInt(section, key, defaultValue) : defaultValue;
  });
}

ZQ_API uint32_t ZqIniCustGetStr(uint32_t handle, char* buffer, uint32_t size, const char* section,
                                const char* key, const char* defaultValue) {
  return GuardedOr<uint32_t>(0, [&] {
    const auto object = ResolveIni(handle);
    if (!object) return zq::config::CopyDefaultForUnknownHandle(buffer, size, defaultValue);
    return object->GetStr(buffer, size, section, key, defaultValue);
  });
}

ZQ_API uint32_t ZqIniCustGetSection(uint32_t handle, char* buffer, uint32_t* size,
                                    const char* section) {
  if (buffer == nullptr || size == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return ZQ_RETURN_ZQERR(
      OnObject(handle, [&](CIniObject& ini) { return ini.GetSection(buffer, size, section); }));
}

ZQ_API uint32_t ZqIniCustWriteInt(uint32_t handle, const char* section, const char* key,
                                  int32_t value) {
  return ZqIniCustWriteStr(handle, section, key, zq::config::DecimalText(value).text);
}

ZQ_API uint32_t ZqIniCustWriteStr(uint32_t handle, const char* section, const char* key,
                                  const char* value) {
  if (!IsName(section) || !IsName(key)) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return ZQ_RETURN_ZQERR(
      OnObject(handle, [&](CIniObject& ini) { return ini.WriteStr(section, key, value); }));
}

ZQ_API uint32_t ZqIniCustWriteSection(uint32_t handle, const char* section, const char* data) {
  if (!IsName(section) || data == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return ZQ_RETURN_ZQERR(
      OnObject(handle, [&](CIniObject& ini) { return ini.WriteSection(section, data); }));
}

ZQ_API uint32_t ZqIniCustEnumKeys(uint32_t handle, const char* section,
                                  ZqIniEnumKeysCallback callback, void* context) {
  if (section == nullptr || callback == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  while (*section == ' ')
    ++section;
  if (*section == '\0') return ZQERR_COMMON_WRONG_ARGUMENTS;
  return ZQ_RETURN_ZQERR(
      OnObject(handle, [&](CIniObject& ini) { return ini.EnumKeys(section, callback, context); }));
}

ZQ_API uint32_t ZqIniCustEnumSections(uint32_t handle, ZqIniEnumSectionsCallback callback,
                                      void* context) {
  if (callback == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return ZQ_RETURN_ZQERR(
      OnObject(handle, [&](CIniObject& ini) { return ini.EnumSections(callback, context); }));
}

}  // extern "C"
