#include "library/module_registry.h"

#include "zqsys/zqerr.h"

namespace zq::library {

std::uint32_t CModuleRegistry::Register(const std::string& moduleClass, const void* handle,
                                        Values values, std::uint32_t& id) {
  if (moduleClass.empty()) return ZQERR_MQSTAT_INVALID_NAME;
  for (const auto& [name, value] : values) {
    if (name.empty()) return ZQERR_MQSTAT_INVALID_NAME;
  }
  const std::lock_guard guard(lock_);
  for (const auto& [existing, module] : modules_) {
    if (module.moduleClass == moduleClass && module.handle == handle) {
      return ZQERR_MQSTAT_ALREADY_REGISTERED;
    }
  }
  id = ++lastId_;
  modules_.emplace(id, Module{moduleClass, handle, std::move(values)});
  return 0;
}

std::uint32_t CModuleRegistry::Unregister(std::uint32_t id) {
  const std::lock_guard guard(lock_);
  return modules_.erase(id) == 1 ? 0 : ZQERR_MQSTAT_NOT_REGISTERED;
}

std::optional<CModuleRegistry::Module> CModuleRegistry::Find(std::uint32_t id) const {
  const std::lock_guard guard(lock_);
  const auto it = modules_.find(id);
  if (it == modules_.end()) return std::nullopt;
  return it->second;
}

std::size_t CModuleRegistry::Count() const {
  const std::lock_guard guard(lock_);
  return modules_.size();
}

}  // namespace zq::library
