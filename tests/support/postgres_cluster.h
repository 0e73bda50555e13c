// A throwaway PostgreSQL cluster for tests that run SQL in a real server.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "support/files.h"

namespace zqtest {

// A cluster in a scratch directory, reached only through a unix socket in
// that directory. The server refuses to run as root, so as root every server
// and client program runs as the "postgres" account.
class PostgresCluster {
 public:
  PostgresCluster();
  ~PostgresCluster() { Stop(); }
  PostgresCluster(const PostgresCluster&) = delete;
  PostgresCluster& operator=(const PostgresCluster&) = delete;

  // Why no cluster can run on this machine, or empty when one can.
  const std::string& Unavailable() const { return unavailable_; }
  // Makes and starts the cluster; a failure is a fatal test failure.
  void Start();
  // Stops the server at once and removes the cluster.
  void Stop();
  // Runs SQL; the rows come back one a line, columns joined by "|".
  std::string Sql(const std::string& sql);

 private:
  struct Outcome {
    int status = -1;  // the exit status, or -1 when the program did not end normally
    std::string output;
  };
  static Outcome RunProgram(const std::vector<std::string>& argv, const std::filesystem::path& dir);
  std::string Data() const { return dir_->Path("data"); }
  Outcome Server(std::vector<std::string> argv);

  std::string unavailable_;
  std::filesystem::path programs_;
  std::vector<std::string> asUser_;
  uid_t uid_ = 0;
  gid_t gid_ = 0;
  std::unique_ptr<ScratchDir> dir_;
  std::uint16_t port_ = 0;
  bool started_ = false;
};

}  // namespace zqtest
