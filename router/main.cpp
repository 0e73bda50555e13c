// zqrouter: the router that the applications of one node talk to.
#include <termios.h>
#include <unistd.h>

#include <cstdio>
#include <iostream>
#include <memory>
#include <string>

#include "event_loop.h"
#include "grnt_store.h"
#include "password.h"
#include "router_core.h"
#include "settings.h"
#include "zqsys/zqerr.h"
#include "zqsys/zqini.h"
#include "zqsys/zqlog.h"

namespace {

using namespace zq::router;

constexpr const char* kUsage =
    "usage: zqrouter [--config FILE] [--node NAME] [--port N] [--bind ADDR] [--data-dir DIR]\n"
    "       zqrouter --hash-password    (reads a password on standard input, prints its hash)\n"
    "\n"
    "Runs the router of one node in the foreground until SIGTERM or SIGINT; SIGHUP\n"
    "re-reads the users, application passwords and administrators of the INI file.\n"
    "Options override the [zqrouter] keys of the INI file: node, port, bind, data_dir.\n"
    "Defaults: node from the host name, bind 127.0.0.1, port 7420 (0 takes a free port).\n";

// Reads one line from standard input, without echo on a terminal.
std::string ReadPassword() {
  termios saved{};
  const bool terminal = isatty(STDIN_FILENO) != 0 && tcgetattr(STDIN_FILENO, &saved) == 0;
  if (terminal) {
    termios quiet = saved;
    quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    tcsetattr(STDIN_FILENO, TCSANOW, &quiet);
    std::fputs("password: ", stderr);
  }
  std::string line;
  std::getline(std::cin, line);
  if (terminal) {
    tcsetattr(STDIN_FILENO, TCSANOW, &saved);
    std::fputs("\n", stderr);
  }
  return line;
}

int HashCommand() {
  const std::string password = ReadPassword();
  if (password.empty()) {
    std::fputs("zqrouter: empty password\n", stderr);
    return 2;
  }
  const std::string hash = HashPassword(password);
  if (hash.empty()) {
    std::fputs("zqrouter: cannot hash the password\n", stderr);
    return 1;
  }
  std::printf("%s\n", hash.c_str());
  return 0;
}

// The guaranteed-delivery store under the data directory. A file that is
// not a store, or a store another router holds, stops the router (the file
// is left as it is); a store that cannot be opened otherwise leaves the
// router running without guaranteed delivery.
std::unique_ptr<CGrntStore> OpenStore(const Settings& settings, CRouterCore& core,
                                      std::uint32_t log, bool& fatal) {
  const std::string path = settings.dataDir + "/" + kGrntStoreFile;
  std::string error;
  std::unique_ptr<CGrntStore> store = CGrntStore::Open(path, settings.grntFileLimit, error, fatal);
  if (store && !core.AttachStore(*store, error)) store.reset();
  if (store) {
    if (!store->Writable()) {
      ZqLogCustErrorEx(log, "zqrouter", "Guaranteed-delivery store is read-only;file '%s'",
                       path.c_str());
    }
    return store;
  }
  if (fatal) {
    std::fprintf(stderr,
                 "zqrouter: cannot use the guaranteed-delivery store %s: %s; the file is left as "
                 "it is\n",
                 path.c_str(), error.c_str());
    ZqLogCustErrorEx(log, "zqrouter",
                     "Cannot start: cannot use the store %s: %s;the file is left as it is",
                     path.c_str(), error.c_str());
  } else {
    std::fprintf(stderr, "zqrouter: no guaranteed delivery: %s: %s\n", path.c_str(), error.c_str());
    ZqLogCustErrorEx(log, "zqrouter",
                     "Guaranteed-delivery store unusable, GRNT posts refused;file '%s';%s",
                     path.c_str(), error.c_str());
  }
  return nullptr;
}

}  // namespace

// Exit statuses: 0 after SIGTERM or SIGINT, 2 for a command line or an INI
// setting that does not parse, 78 (EX_CONFIG) for settings or files that a restart cannot mend
// (users or passwords that do not load, a store that is not one or that
// another router holds), 1 for anything else.
constexpr int kExitUsage = 2;
constexpr int kExitConfig = 78;

int main(int argc, char** argv) {
  CommandLine line;
  std::string error;
  if (!ParseCommandLine(argc, argv, line, error)) {
    std::fprintf(stderr, "zqrouter: %s\n", error.c_str());
    return kExitUsage;
  }
  if (line.help) {
    std::fputs(kUsage, stdout);
    return 0;
  }
  if (line.hashPassword) return HashCommand();
  const Settings& settings = line.settings;

  AccessList access;
  if (!LoadAccessList(settings.configPath, access, error)) {
    std::fprintf(stderr, "zqrouter: %s\n", error.c_str());
    return kExitConfig;
  }
  std::uint32_t ini = ZQINI_DEFAULT_HANDLE;
  if (!settings.configPath.empty() && ZqIniCustOpen(&ini, settings.configPath.c_str()) != 0) {
    ini = ZQINI_DEFAULT_HANDLE;
  }
  std::uint32_t log = 0;
  if (const std::uint32_t rc = ZqLogCustOpenEx(&log, kLogSection, ini)) {
    std::fprintf(stderr, "zqrouter: cannot open the log [%s]: %s\n", kLogSection,
                 ZqErrGetDescrStr(rc));
    return 1;
  }

  CEventLoop::BlockSignals();
  CRouterCore core(settings, std::move(access), log);
  bool storeFatal = false;
  const std::unique_ptr<CGrntStore> store = OpenStore(settings, core, log, storeFatal);
  if (storeFatal) {
    ZqLogCustClose(log);
    return kExitConfig;
  }
  const std::string configPath = settings.configPath;
  CEventLoop loop(
      core,
      [&configPath, log](AccessList& reloaded) {
        std::string why;
        if (LoadAccessList(configPath, reloaded, why)) return true;
        ZqLogCustErrorEx(log, "zqrouter", "Reload failed, keeping the old lists: %s", why.c_str());
        return false;
      },
      log);
  std::string where;
  if (!loop.Listen(settings.bind, settings.port, where, error)) {
    std::fprintf(stderr, "zqrouter: %s\n", error.c_str());
    ZqLogCustErrorEx(log, "zqrouter", "Cannot start: %s", error.c_str());
    ZqLogCustClose(log);
    return 1;
  }
  CPasswordWorker worker;
  if (!worker.Ready()) {
    std::fprintf(stderr, "zqrouter: cannot start the password checker\n");
    return 1;
  }
  loop.UsePasswordWorker(worker);
  ZqLogCustInfoEx(log, "zqrouter", "Router started;node '%s';listening on %s",
                  settings.node.c_str(), where.c_str());
  std::printf("zqrouter: node %s listening on %s\n", settings.node.c_str(), where.c_str());
  std::fflush(stdout);
  const int status = loop.Run();
  ZqLogCustInfoEx(log, "zqrouter", "Router stopped;status %d", status);
  ZqLogCustClose(log);
  if (ini != ZQINI_DEFAULT_HANDLE) ZqIniCustClose(ini);
  return status;
}
