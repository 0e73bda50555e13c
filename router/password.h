// Password hashes in crypt(3) form (yescrypt "$y$..." or SHA-512 "$6$..."),
// checked and made through libcrypt. Passwords are never logged.
#pragma once

#include <string>

namespace zq::router {

// True when `password` hashes to `hash`. A hash that libcrypt cannot use
// (empty, "*", "!") never matches.
bool CheckPassword(const std::string& password, const std::string& hash);

// A new yescrypt hash of `password` with a random salt, or empty on failure.
std::string HashPassword(const std::string& password);

}  // namespace zq::router
