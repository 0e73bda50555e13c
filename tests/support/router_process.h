// A real zqrouter process for end-to-end tests: started on a free port with
// an INI file written into a scratch directory, its standard output read for
// the "listening" line, stopped with SIGTERM (its exit status checked) or
// killed with any signal, and restarted on the same port.
#pragma once

#include <gtest/gtest.h>
#include <signal.h>
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

  // Starts the router (on `port`, 0 for a free one) and waits for its
  // listening line. False, with a test failure, when it does not come.
  bool Start(std::uint16_t port = 0, std::vector<std::string> extra = {}) {
    const std::string out = dir_.Path("stdout.txt");
    std::remove(out.c_str());
    Spawn(port, std::move(extra));
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
        ADD_FAILURE() << "zqrouter exited at start with status " << status << "\n" << Log();
        return false;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    ADD_FAILURE() << "zqrouter did not say it listens\n" << Log();
    return false;
  }

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
