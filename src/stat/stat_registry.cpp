#include "stat/stat_registry.h"

#include "os/memory.h"
#include "os/module_file.h"
#include "zqsys/zqerr.h"

namespace zq::stat {

void CStatValue::SetText(std::string_view text) {
  std::string copy(text);
  const std::lock_guard hold(textLock_);
  text_.swap(copy);
}

std::string CStatValue::Text() const {
  const std::lock_guard hold(textLock_);
  return text_;
}

std::uint32_t CStatModule::AddValue(std::string_view name, Kind kind, CStatValue*& value) {
  if (name.empty()) return ZQERR_MQSTAT_INVALID_NAME;
  const std::lock_guard hold(lock_);
  for (const CStatValue& existing : values_) {
    if (existing.Name() == name) return ZQERR_MQSTAT_ALREADY_ANNOUNCED;
  }
  value = &values_.emplace_back(std::string(name), kind);
  return 0;
}

CStatValue* CStatModule::FindValue(std::string_view name) const noexcept {
  const std::lock_guard hold(lock_);
  for (const CStatValue& value : values_) {
    if (value.Name() == name) return const_cast<CStatValue*>(&value);
  }
  return nullptr;
}

void CStatModule::AppendRows(StatRows& rows) const {
  const std::lock_guard hold(lock_);
  for (const CStatValue& value : values_) {
    const bool number = value.IsNumber();
    rows.push_back(StatRow{Id(), class_, value.Name(), value.ValueKind(),
                           number ? value.Number() : 0, number ? std::string() : value.Text()});
  }
}

std::uint32_t CStatRegistry::Register(std::string_view moduleClass, const void* key,
                                      common::CRef<CStatModule>& module) {
  if (moduleClass.empty()) return ZQERR_MQSTAT_INVALID_NAME;
  common::CRef<CStatModule> made(os::NewObject<CStatModule>(std::string(moduleClass), key));
  if (!made) return ZQERR_COMMON_NO_MEMORY;
  const std::lock_guard hold(lock_);
  if (key != nullptr) {
    for (const auto& [id, existing] : modules_) {
      if (existing->Key() == key && existing->ModuleClass() == moduleClass) {
        return ZQERR_MQSTAT_ALREADY_REGISTERED;
      }
    }
  }
  made->SetId(++lastId_);
  modules_.emplace(lastId_, made.Share());
  module = std::move(made);
  return 0;
}

std::uint32_t CStatRegistry::Unregister(std::uint32_t id) {
  common::CRef<CStatModule> gone;  // released after the lock
  const std::lock_guard hold(lock_);
  const auto found = modules_.find(id);
  if (found == modules_.end()) return ZQERR_MQSTAT_NOT_REGISTERED;
  gone = std::move(found->second);
  modules_.erase(found);
  return 0;
}

common::CRef<CStatModule> CStatRegistry::Find(std::uint32_t id) const {
  const std::lock_guard hold(lock_);
  const auto found = modules_.find(id);
  if (found == modules_.end()) return {};
  return found->second.Share();
}

StatRows CStatRegistry::Read(std::string_view moduleClass) const {
  // The modules are taken under the registry's lock and read after it, so a
  // reading never holds two locks of this family at once.
  std::vector<common::CRef<CStatModule>> taken;
  {
    const std::lock_guard hold(lock_);
    taken.reserve(modules_.size());
    for (const auto& [id, module] : modules_) {
      if (!moduleClass.empty() && module->ModuleClass() != moduleClass) continue;
      taken.push_back(module.Share());
    }
  }
  StatRows rows;
  for (const auto& module : taken)
    module->AppendRows(rows);
  return rows;
}

std::size_t CStatRegistry::Count() const {
  const std::lock_guard hold(lock_);
  return modules_.size();
}

std::uint32_t RegisterBinaryModule(CStatRegistry& registry, const void* address,
                                   std::string_view version, std::uint32_t& id) {
  // The running program has no address of its own here: a key of this file
  // stands for it.
  static const char kMainProgram = 0;
  os::ModuleFile file;
  if (address != nullptr) {
    file = os::ModuleFileOf(address);
  } else {
    file.path = os::ExecutablePath();
    file.base = &kMainProgram;
  }
  common::CRef<CStatModule> module;
  if (const std::uint32_t rc = registry.Register(kBinaryModuleClass, file.base, module); rc != 0) {
    return rc;
  }
  try {
    CStatValue* name = nullptr;
    CStatValue* text = nullptr;
    module->AddValue("Name", Kind::kText, name);
    module->AddValue("Version", Kind::kText, text);
    name->SetText(file.path);
    text->SetText(version);
  } catch (...) {
    registry.Unregister(module->Id());
    throw;
  }
  id = module->Id();
  return 0;
}

}  // namespace zq::stat
