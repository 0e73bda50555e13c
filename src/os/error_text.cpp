#include "os/error_text.h"

#include <cerrno>
#include <cstring>

namespace zq::os {
namespace {

// strerror_r comes in two shapes: the XSI one returns 0 or an error number
// and fills the buffer, the GNU one returns the text (which may or may not be
// the buffer). Overloads pick the right reading for whichever is declared.
[[maybe_unused]] const char* TextOf(int result, const char* buffer) noexcept {
  return result == 0 ? buffer : nullptr;
}
[[maybe_unused]] const char* TextOf(const char* result, const char*) noexcept {
  return result;
}

bool IsKnownError(int code) noexcept {
#if defined(__GLIBC__) && (__GLIBC__ > 2 || (__GLIBC__ == 2 && __GLIBC_MINOR__ >= 32))
  // The GNU strerror_r answers "Unknown error N" rather than failing.
  return strerrordesc_np(code) != nullptr;
#else
  (void)code;
  return true;  // the XSI form reports unknown numbers itself
#endif
}

}  // namespace

std::size_t SystemErrorText(int code, char* buffer, std::size_t size) noexcept {
  if (size == 0 || !IsKnownError(code)) return 0;
  const int saved = errno;
  buffer[0] = '\0';
  const char* text = TextOf(strerror_r(code, buffer, size), buffer);
  errno = saved;
  if (text == nullptr || text[0] == '\0') return 0;
  std::size_t length = std::strlen(text);
  if (length >= size) length = size - 1;
  if (text != buffer) std::memmove(buffer, text, length);
  buffer[length] = '\0';
  return length;
}

}  // namespace zq::os
