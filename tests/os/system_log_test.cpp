// The system-log copy through the real syslog(3) of a host program that set
// its own ident, options and facility before.
#include "os/system_log.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <string>

namespace zq::os {
namespace {

// In a child whose standard error is a pipe, the host opens its syslog with
// LOG_PERROR (entries are echoed there), the library writes an entry, and
// the host writes one more: both come out under the host's ident and pid,
// so the library left the host's settings as they were.
TEST(SystemLog, HostSyslogSettingsSurviveTheLibrarysEntries) {
  int pipeFds[2];
  ASSERT_EQ(pipe(pipeFds), 0);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    dup2(pipeFds[1], STDERR_FILENO);
    close(pipeFds[0]);
    close(pipeFds[1]);
    openlog("zqhost", LOG_PID | LOG_PERROR, LOG_LOCAL3);
    WriteSystemLog(3, "cat", "100%s lost");
    syslog(LOG_NOTICE, "%s", "host line");
    _exit(0);
  }
  close(pipeFds[1]);
  std::string echoed;
  char buffer[512];
  for (ssize_t got; (got = read(pipeFds[0], buffer, sizeof buffer)) > 0;)
    echoed.append(buffer, static_cast<std::size_t>(got));
  close(pipeFds[0]);
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  const std::string host = "zqhost[" + std::to_string(child) + "]: ";
  EXPECT_EQ(echoed, host + "ZqSysLog: cat;100%s lost\n" + host + "host line\n");
}

}  // namespace
}  // namespace zq::os
