// Where the code of this library was loaded from.
#pragma once

#include <cstdint>
#include <string>

namespace zq::os {

struct ModuleFile {
  std::string path;            // the file as the loader opened it
  const void* base = nullptr;  // its load address: the module's handle
};

// The module that contains `address` (any function of it).
ModuleFile ModuleFileOf(const void* address);

}  // namespace zq::os

namespace zq::os {

// The path of the running program's executable; empty when it is unknown.
std::string ExecutablePath();

// Whether this process runs any thread but the calling one; true when the
// system cannot tell (no /proc), since callers use it to decide whether
// memory may be freed.
bool OtherThreadsRun() noexcept;

}  // namespace zq::os

namespace zq::os {

// The id of the running process.
std::uint32_t ProcessId() noexcept;

}  // namespace zq::os
