// The registry of modules and their statistic values. A module is a
// reference-counted object: the registry holds one reference, and a part of
// the library that counts into a module (a connection) holds another, so its
// counters are updated straight on the value, never through a lookup, and
// outlive the registry at unload without dangling.
//
// Locks, in order: the registry's, then a module's, then a text value's.
// Numbers take no lock at all.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "common/ref_counted.h"

namespace zq::stat {

enum class Kind : std::uint8_t { kCounter = 1, kGauge = 2, kText = 3 };

inline constexpr const char* kBinaryModuleClass = "BinaryModule";

class CStatValue {
 public:
  CStatValue(std::string name, Kind kind) : name_(std::move(name)), kind_(kind) {}
  CStatValue(const CStatValue&) = delete;
  CStatValue& operator=(const CStatValue&) = delete;

  const std::string& Name() const noexcept { return name_; }
  Kind ValueKind() const noexcept { return kind_; }
  bool IsNumber() const noexcept { return kind_ != Kind::kText; }

  // One relaxed atomic operation each: figures are read as they are at the
  // moment, with no order against other memory.
  void Add(std::int64_t delta) noexcept { number_.fetch_add(delta, std::memory_order_relaxed); }
  void Set(std::int64_t number) noexcept { number_.store(number, std::memory_order_relaxed); }
  std::int64_t Number() const noexcept { return number_.load(std::memory_order_relaxed); }

  void SetText(std::string_view text);
  std::string Text() const;

 private:
  const std::string name_;
  const Kind kind_;
  std::atomic<std::int64_t> number_{0};
  mutable std::mutex textLock_;  // guards text_
  std::string text_;
};

// One row of a reading, copied out so that no lock is held while it is used.
struct StatRow {
  std::uint32_t moduleId;
  std::string moduleClass;
  std::string name;
  Kind kind;
  std::int64_t number;
  std::string text;
};
using StatRows = std::vector<StatRow>;

class CStatModule : public common::CRefCounted {
 public:
  CStatModule(std::string moduleClass, const void* key) noexcept
      : class_(std::move(moduleClass)), key_(key) {}

  const std::string& ModuleClass() const noexcept { return class_; }
  const void* Key() const noexcept { return key_; }
  std::uint32_t Id() const noexcept { return id_.load(std::memory_order_relaxed); }
  void SetId(std::uint32_t id) noexcept { id_.store(id, std::memory_order_relaxed); }

  // `value` is set on success only. MQSTAT:INVALID_NAME for an empty name,
  // MQSTAT:ALREADY_ANNOUNCED for a name the module has.
  std::uint32_t AddValue(std::string_view name, Kind kind, CStatValue*& value);
  CStatValue* FindValue(std::string_view name) const noexcept;
  void AppendRows(StatRows& rows) const;

 private:
  const std::string class_;
  const void* const key_;
  std::atomic<std::uint32_t> id_{0};
  mutable std::mutex lock_;        // guards values_ (the list, not the numbers)
  std::deque<CStatValue> values_;  // a deque: values never move once added
};

class CStatRegistry {
 public:
  CStatRegistry() = default;
  CStatRegistry(const CStatRegistry&) = delete;
  CStatRegistry& operator=(const CStatRegistry&) = delete;

  // Makes and registers a module; `module` gets a reference for the caller.
  // MQSTAT:INVALID_NAME for an empty class, MQSTAT:ALREADY_REGISTERED for a
  // non-null key the class has, COMMON:NO_MEMORY.
  std::uint32_t Register(std::string_view moduleClass, const void* key,
                         common::CRef<CStatModule>& module);
  // 0 or MQSTAT:NOT_REGISTERED.
  std::uint32_t Unregister(std::uint32_t id);
  common::CRef<CStatModule> Find(std::uint32_t id) const;
  // The rows of every module (of `moduleClass` only when it is not empty),
  // modules by id, values in the order they were added.
  StatRows Read(std::string_view moduleClass) const;
  std::size_t Count() const;

 private:
  mutable std::mutex lock_;
  std::map<std::uint32_t, common::CRef<CStatModule>> modules_;
  std::uint32_t lastId_ = 0;
};

// Registers the binary module that holds `address` (the running program when
// null) as a "BinaryModule" with its "Name" and "Version".
std::uint32_t RegisterBinaryModule(CStatRegistry& registry, const void* address,
                                   std::string_view version, std::uint32_t& id);

// The registry of the live library object; null before load and after
// unload. The library, which owns the registry, defines it.
CStatRegistry* CurrentStatRegistry() noexcept;

}  // namespace zq::stat
