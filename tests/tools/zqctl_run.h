// Runs the zqctl binary through /bin/sh, so that a command line is quoted
// as a user types it, and hands back its exit status and both outputs.
#pragma once

#include <sys/wait.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

#include "support/files.h"

namespace zqtest {

struct ZqctlResult {
  int status = -1;
  std::string out, err;
};

// Runs a shell command line in `dir`.
inline ZqctlResult RunShell(const ScratchDir& dir, const std::string& command) {
  const std::string out = dir.Path("stdout"), err = dir.Path("stderr");
  const std::string line =
      "cd '" + dir.path().string() + "' && " + command + " >'" + out + "' 2>'" + err + "'";
  const int raw = std::system(line.c_str());
  ZqctlResult result;
  result.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
  const auto slurp = [](const std::string& path) {
    std::ifstream file(path);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
  };
  result.out = slurp(out);
  result.err = slurp(err);
  return result;
}

// `command` is the text after "zqctl", as a shell reads it.
inline ZqctlResult RunZqctl(const ScratchDir& dir, const std::string& command) {
  return RunShell(dir, std::string(ZQCTL_PATH) + " " + command);
}

}  // namespace zqtest
