// The registry of binary modules and their statistic values. Each module is
// registered under a class ("BinaryModule") and its module handle, and gets
// an id that is never reused while the process lives.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace zq::library {

class CModuleRegistry {
 public:
  using Values = std::vector<std::pair<std::string, std::string>>;

  struct Module {
    std::string moduleClass;
    const void* handle = nullptr;
    Values values;
  };

  // Registers a module; 0x10000 (MQSTAT:ALREADY_REGISTERED) if a module of
  // that class and handle is registered already, 0x10006 (MQSTAT:INVALID_NAME)
  // for an empty class or value name.
  std::uint32_t Register(const std::string& moduleClass, const void* handle, Values values,
                         std::uint32_t& id);

  // 0x10001 (MQSTAT:NOT_REGISTERED) for an unknown id.
  std::uint32_t Unregister(std::uint32_t id);

  std::optional<Module> Find(std::uint32_t id) const;
  std::size_t Count() const;

 private:
  mutable std::mutex lock_;
  std::map<std::uint32_t, Module> modules_;
  std::uint32_t lastId_ = 0;
};

}  // namespace zq::library
