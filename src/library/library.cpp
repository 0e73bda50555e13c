#include "library/library.h"

#include <atomic>
#include <new>

#include "common/error_site.h"
#include "log/error_reporter.h"
#include "os/module_file.h"
#include "zqsys_build_version.h"

namespace zq::library {
namespace {

std::atomic<CLibrary*> g_library{nullptr};
// The library object left in memory at an unload with other threads running,
// kept here so that it stays reachable.
CLibrary* g_leftAtExit = nullptr;

void OnLoad() noexcept {
  // Loading always succeeds: without memory the library runs without its
  // registries, and every call that needs one reports so.
  try {
    g_library.store(new CLibrary(), std::memory_order_release);
  } catch (...) {
  }
}

void OnUnload() noexcept {
  CLibrary* library = g_library.exchange(nullptr, std::memory_order_acq_rel);
  // A program that calls exit() while other threads are inside the library
  // unloads it under them: freeing the registries would pull objects from
  // under their calls. Then the object is only detached, so that later calls
  // find none, and left in memory for the process's last moments. An unload
  // by dlclose has no thread inside, or the code itself would be gone.
  if (library != nullptr && os::OtherThreadsRun()) {
    g_leftAtExit = library;
    return;
  }
  delete library;
}

__attribute__((constructor)) void LibraryConstructor() {
  OnLoad();
}
__attribute__((destructor)) void LibraryDestructor() {
  OnUnload();
}

}  // namespace

CLibrary::CLibrary() {
  // The module registers itself with its own file and version; a failure
  // leaves the id at 0 and the library loaded.
  std::uint32_t id = 0;
  try {
    if (stat::RegisterBinaryModule(stats_, reinterpret_cast<const void*>(&OnLoad),
                                   ZQSYS_BUILD_VERSION_TEXT, id) == 0) {
      ownModuleId_ = id;
    }
  } catch (const std::bad_alloc&) {
  }
  // Failing error sites log from now on; the logs exist.
  common::InstallErrorSiteReporter(log::ErrorReporter());
}

CLibrary::~CLibrary() {
  common::RemoveErrorSiteReporter();
  if (ownModuleId_ != 0) stats_.Unregister(ownModuleId_);
}

CLibrary* Current() noexcept {
  return g_library.load(std::memory_order_acquire);
}

}  // namespace zq::library

// Declared by the INI family, which cannot see the library that owns its
// registry. Defined here, it also links the library object, and so the
// registry, into every program that calls an INI function.
zq::config::CIniRegistry* zq::config::CurrentIniRegistry() noexcept {
  library::CLibrary* library = library::Current();
  return library != nullptr ? &library->Ini() : nullptr;
}

zq::log::CLogRegistry* zq::log::CurrentLogRegistry() noexcept {
  library::CLibrary* library = library::Current();
  return library != nullptr ? &library->Logs() : nullptr;
}

zq::mq::CConnectionRegistry* zq::mq::CurrentConnectionRegistry() noexcept {
  library::CLibrary* library = library::Current();
  return library != nullptr ? &library->Connections() : nullptr;
}

zq::stat::CStatRegistry* zq::stat::CurrentStatRegistry() noexcept {
  library::CLibrary* library = library::Current();
  return library != nullptr ? &library->Stats() : nullptr;
}
