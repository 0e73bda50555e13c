// The system log and the console as the log family uses them.
#pragma once

#include <cstddef>

namespace zq::os {

// Writes one entry to syslog(3) with facility LOG_USER: severity 1 as a
// warning, 2 and 3 as errors, anything else as information; the text is
// "ZqSysLog: category;message". The host's own openlog settings (ident,
// options, facility) are left as they are: the entry goes under the host's
// ident. The message is always handed over as data, never as a format.
void WriteSystemLog(int severity, const char* category, const char* message) noexcept;

// Writes the text and a newline to standard output as one piece.
void WriteConsoleLine(const char* text, std::size_t length) noexcept;

// Test seam: entries go to `sink` instead of syslog(3); null restores it.
using SystemLogSink = void (*)(int severity, const char* category, const char* message);
void SetSystemLogSinkForTesting(SystemLogSink sink) noexcept;

}  // namespace zq::os
