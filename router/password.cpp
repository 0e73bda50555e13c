#include "password.h"

#include <crypt.h>

#include <cstring>
#include <memory>

namespace zq::router {

bool CheckPassword(const std::string& password, const std::string& hash) {
  if (hash.empty() || hash[0] != '$') return false;
  auto data = std::make_unique<crypt_data>();
  const char* result = crypt_rn(password.c_str(), hash.c_str(), data.get(), sizeof(crypt_data));
  if (result == nullptr || result[0] == '*') return false;
  const std::size_t length = std::strlen(result);
  if (length != hash.size()) return false;
  // Every byte is compared, so the time does not tell where they differ.
  unsigned char difference = 0;
  for (std::size_t i = 0; i < length; ++i)
    difference |= static_cast<unsigned char>(result[i] ^ hash[i]);
  return difference == 0;
}

std::string HashPassword(const std::string& password) {
  char salt[CRYPT_GENSALT_OUTPUT_SIZE];
  if (crypt_gensalt_rn("$y$", 0, nullptr, 0, salt, sizeof salt) == nullptr) return std::string();
  auto data = std::make_unique<crypt_data>();
  const char* result = crypt_rn(password.c_str(), salt, data.get(), sizeof(crypt_data));
  if (result == nullptr || result[0] == '*') return std::string();
  return result;
}

}  // namespace zq::router
