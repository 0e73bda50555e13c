// A real zqrouter process for end-to-end tests: started on a free port with
// an INI file written into a scratch directory, its standard output read for
// the "listening" line, stopped with SIGTERM (its exit status checked) or
// killed with any signal, and restarted on the same port.
#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "support/files.h"

namespace zq::test {

class RouterProcess {
 public:
  // `ini` is the text of the INI file after the [zqrouter] keys the test
  // support writes itself (node, log settings); it may add keys to
  // [zqrouter] only through `routerKeys`.
  explicit RouterProcess(std::string routerKeys = "", std::string moreSections = "",
                         std::string node = "n1")
      : dir_("zqrouter-test-"), node_(std::move(node)) {
    std::ofstream ini(dir_.Path("zqrouter.ini"));
    ini << "[zqrouter]\nnode=" << node_ << "\n"
        << routerKeys << "\n"
        << "[zqrouter_log]\nlogfile=" << dir_.Path("router.log")
        << "\nlogtoconsole=0\nlogtosyslog=0\nlogfilecache=0\n"
        << moreSections;
  }
  ~RouterProcess() {
    if (pid_ > 0) Kill(SIGKILL);
  }
  RouterProcess(const RouterProcess&) = delete;
  RouterProcess& operator=(const RouterProcess&) = delete;

  // A port the test chooses: free now and below the kernel's ephemeral
  // range, so that a restart on it cannot find it taken by another test's
  // port-0 listener or by an outgoing connection.
  static constexpr int kStablePort = -1;

  // Starts the router on `port` (0: whatever free port the router takes;
  // kStablePort: one chosen as above, tried again when another process took
  // it first) and waits for its listening line. False, with a test failure,
  // when it does not come.
  bool Start(int port = kStablePort, std::vector<std::string> extra = {}) {
    if (port != kStablePort) return StartOn(static_cast<std::uint16_t>(port), extra, true);
    for (int attempt = 0; attempt < 5; ++attempt) {
      if (StartOn(StablePortCandidate(), extra, attempt == 4)) return true;
    }
    return false;
  }

  // A port below the ephemeral range that nobody listens on now.
  static std::uint16_t StablePortCandidate() {
    int low = 32768, high = 60999;
    std::ifstream("/proc/sys/net/ipv4/ip_local_port_range") >> low >> high;
    const int first = 10000, last = low > first + 1000 ? low - 1 : first + 1000;
    static std::uint32_t seed = static_cast<std::uint32_t>(getpid()) * 2654435761u;
    for (;;) {
      seed = seed * 1103515245u + 12345u;
      const auto port = static_cast<std::uint16_t>(first + (seed >> 8) % (last - first + 1));
      const int fd = socket(AF_INET, SOCK_STREAM, 0);
      sockaddr_in address{};
      address.sin_family = AF_INET;
      address.sin_port = htons(port);
      address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
      const bool free = bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
      close(fd);
      if (free) return port;
    }
  }

 private:
  bool StartOn(std::uint16_t port, const std::vector<std::string>& extra, bool reportFailure) {
    const std::string out = dir_.Path("stdout.txt");
    std::remove(out.c_str());
    Spawn(port, extra);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (std::chrono::steady_clock::now() < deadline) {
      std::ifstream in(out);
      std::string line;
      while (std::getline(in, line)) {
        const std::string tag = "zqrouter: node " + node_ + " listening on ";
        if (line.rfind(tag, 0) == 0) {
          port_ = static_cast<std::uint16_t>(std::stoi(line.substr(line.rfind(':') + 1)));
          return true;
        }
      }
      int status = 0;
      if (waitpid(pid_, &status, WNOHANG) == pid_) {
        pid_ = -1;
        if (reportFailure) {
          ADD_FAILURE() << "zqrouter exited at start with status " << status << "\n" << Log();
        }
        return false;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    ADD_FAILURE() << "zqrouter did not say it listens\n" << Log();
    return false;
  }

 public:
  // Starts the router expecting it to stop at start: its exit status (-1
  // when it listens instead, or does not stop) and its standard error.
  int ExitAtStart(std::string& errors, std::vector<std::string> extra = {}) {
    Spawn(0, std::move(extra));
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    int status = 0;
    while (std::chrono::steady_clock::now() < deadline && waitpid(pid_, &status, WNOHANG) != pid_) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    if (waitpid(pid_, &status, WNOHANG) == 0) return Stop(), -1;
    pid_ = -1;
    std::ifstream in(dir_.Path("stderr.txt"));
    std::stringstream text;
    text << in.rdbuf();
    errors = text.str();
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  // SIGTERM, then the exit status (-1 when it had to be killed).
  int Stop() {
    if (pid_ <= 0) return -1;
    kill(pid_, SIGTERM);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    int status = 0;
    while (std::chrono::steady_clock::now() < deadline) {
      if (waitpid(pid_, &status, WNOHANG) == pid_) {
        pid_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    Kill(SIGKILL);
    return -1;
  }

  void Kill(int signal) {
    if (pid_ <= 0) return;
    kill(pid_, signal);
    if (signal == SIGKILL || signal == SIGTERM || signal == SIGINT) {
      waitpid(pid_, nullptr, 0);
      pid_ = -1;
    }
  }
  void Signal(int signal) const { kill(pid_, signal); }

  std::uint16_t Port() const { return port_; }
  const std::string& Node() const { return node_; }
  std::string Address(const std::string& app) const { return node_ + "." + app; }
  std::string IniPath() const { return dir_.Path("zqrouter.ini"); }
  const zqtest::ScratchDir& Dir() const { return dir_; }
  std::string ConnectionString(const std::string& app, const std::string& more = "") const {
    return "APPNAME=" + app + ";PORT=" + std::to_string(port_) + (more.empty() ? "" : ";" + more);
  }
  // The router's log file, for failure messages and checks.
  std::string Log() const {
    std::ifstream in(dir_.Path("router.log"));
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
  }

 private:
  // Runs the router with its standard output and error in files; the
  // scratch directory is its data directory unless `extra` says otherwise.
  void Spawn(std::uint16_t port, std::vector<std::string> extra) {
    const std::string out = dir_.Path("stdout.txt");
    const std::string err = dir_.Path("stderr.txt");
    std::vector<std::string> args = {
        ZQROUTER_PATH,        "--config",   dir_.Path("zqrouter.ini"), "--port",
        std::to_string(port), "--data-dir", dir_.path().string()};
    args.insert(args.end(), extra.begin(), extra.end());
    pid_ = fork();
    if (pid_ == 0) {
      FILE* f = std::freopen(out.c_str(), "w", stdout);
      f = std::freopen(err.c_str(), "w", stderr);
      (void)f;
      std::vector<char*> argv;
      for (std::string& arg : args)
        argv.push_back(arg.data());
      argv.push_back(nullptr);
      execv(argv[0], argv.data());
      _exit(127);
    }
  }

  zqtest::ScratchDir dir_;
  std::string node_;
  pid_t pid_ = -1;
  std::uint16_t port_ = 0;
};

}  // namespace zq::test
