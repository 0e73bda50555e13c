#include "support/postgres_cluster.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <pwd.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <utility>

namespace zqtest {
namespace {

namespace fs = std::filesystem;

// The folder holding initdb, pg_ctl and psql: wherever PATH finds initdb,
// else Debian's per-version folders, newest first.
fs::path FindPostgresPrograms() {
  std::vector<fs::path> folders;
  const char* path = std::getenv("PATH");
  for (std::string rest = path != nullptr ? path : ""; !rest.empty();) {
    const std::size_t colon = rest.find(':');
    const fs::path initdb = fs::path(rest.substr(0, colon)) / "initdb";
    std::error_code error;
    if (fs::exists(initdb, error)) folders.push_back(fs::canonical(initdb, error).parent_path());
    rest = colon == std::string::npos ? "" : rest.substr(colon + 1);
  }
  std::vector<std::pair<int, fs::path>> versions;
  std::error_code error;
  for (const auto& entry : fs::directory_iterator("/usr/lib/postgresql", error)) {
    versions.emplace_back(std::atoi(entry.path().filename().c_str()), entry.path() / "bin");
  }
  std::sort(versions.rbegin(), versions.rend());
  for (const auto& version : versions)
    folders.push_back(version.second);
  for (const fs::path& folder : folders) {
    if (fs::exists(folder / "initdb", error) && fs::exists(folder / "pg_ctl", error) &&
        fs::exists(folder / "psql", error)) {
      return folder;
    }
  }
  return {};
}

std::uint16_t FreeLocalPort() {
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  std::uint16_t port = 0;
  if (fd >= 0 && bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
      getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) == 0) {
    port = ntohs(address.sin_port);
  }
  if (fd >= 0) close(fd);
  return port;
}

}  // namespace

PostgresCluster::PostgresCluster() : programs_(FindPostgresPrograms()) {
  if (programs_.empty()) {
    unavailable_ = "PostgreSQL server programs are not installed";
  } else if (geteuid() == 0) {
    const passwd* account = getpwnam("postgres");
    if (account == nullptr) {
      unavailable_ = "running as root and there is no postgres account";
      return;
    }
    asUser_ = {"setpriv", "--reuid=" + std::to_string(account->pw_uid),
               "--regid=" + std::to_string(account->pw_gid), "--clear-groups", "--"};
    uid_ = account->pw_uid;
    gid_ = account->pw_gid;
  }
}

void PostgresCluster::Start() {
  ASSERT_TRUE(unavailable_.empty()) << unavailable_;
  // Under /tmp whatever TMPDIR says: the socket's path must stay short.
  dir_ = std::make_unique<ScratchDir>("zqsys-pg-", "/tmp");
  ASSERT_FALSE(dir_->path().empty());
  if (geteuid() == 0) {
    ASSERT_EQ(chown(dir_->path().c_str(), uid_, gid_), 0);
  }
  port_ = FreeLocalPort();
  ASSERT_NE(port_, 0);

  const Outcome init = Server(
      {"initdb", "-D", Data(), "-A", "trust", "-U", "zq", "-E", "UTF8", "--locale=C", "--no-sync"});
  ASSERT_EQ(init.status, 0) << init.output;
  const Outcome start =
      Server({"pg_ctl", "-D", Data(), "-l", dir_->Path("server.log"), "-w", "-t", "60", "-o",
              "-k " + dir_->path().string() + " -p " + std::to_string(port_) +
                  " -c listen_addresses='' -c fsync=off",
              "start"});
  started_ = start.status == 0;
  ASSERT_TRUE(started_) << start.output;
}

void PostgresCluster::Stop() {
  if (started_) Server({"pg_ctl", "-D", Data(), "-m", "immediate", "-w", "stop"});
  started_ = false;
  dir_.reset();
}

std::string PostgresCluster::Sql(const std::string& sql) {
  const Outcome outcome =
      Server({"psql", "-X", "-q", "-A", "-t", "-v", "ON_ERROR_STOP=1", "-h", dir_->path().string(),
              "-p", std::to_string(port_), "-U", "zq", "-d", "postgres", "-c", sql});
  EXPECT_EQ(outcome.status, 0) << sql << "\n" << outcome.output;
  std::string rows = outcome.output;
  while (!rows.empty() && rows.back() == '\n')
    rows.pop_back();
  return rows;
}

PostgresCluster::Outcome PostgresCluster::Server(std::vector<std::string> argv) {
  argv[0] = (programs_ / argv[0]).string();
  argv.insert(argv.begin(), asUser_.begin(), asUser_.end());
  return RunProgram(argv, dir_->path());
}

// Runs a program with its standard output and error captured, in `dir`.
PostgresCluster::Outcome PostgresCluster::RunProgram(const std::vector<std::string>& argv,
                                                     const fs::path& dir) {
  std::vector<char*> args;
  for (const std::string& arg : argv)
    args.push_back(const_cast<char*>(arg.c_str()));
  args.push_back(nullptr);
  int fds[2];
  if (pipe2(fds, O_CLOEXEC) != 0) return {};
  const pid_t pid = fork();
  if (pid == 0) {
    const int null = open("/dev/null", O_RDONLY);
    if (null < 0 || dup2(null, 0) < 0 || dup2(fds[1], 1) < 0 || dup2(fds[1], 2) < 0 ||
        chdir(dir.c_str()) != 0) {
      _exit(126);
    }
    execvp(args[0], args.data());
    _exit(127);
  }
  close(fds[1]);
  Outcome outcome;
  char chunk[4096];
  for (ssize_t n; (n = read(fds[0], chunk, sizeof chunk)) != 0;) {
    if (n > 0) outcome.output.append(chunk, static_cast<std::size_t>(n));
    if (n < 0 && errno != EINTR) break;
  }
  close(fds[0]);
  int status = 0;
  if (pid > 0 && waitpid(pid, &status, 0) == pid && WIFEXITED(status)) {
    outcome.status = WEXITSTATUS(status);
  }
  return outcome;
}

}  // namespace zqtest
