#include "tests/support/test_util.h"

#include <openssl/crypto.h>

namespace fipsval::testing {

std::string Hex(std::span<const uint8_t> bytes) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string s;
  for (uint8_t x : bytes) s += {kDigits[x >> 4], kDigits[x & 15]};
  return s;
}

std::string Hex(const BIGNUM* x) {
  char* text = BN_bn2hex(x);
  std::string s = text ? text : "";
  OPENSSL_free(text);
  return s;
}

std::vector<uint8_t> FromHex(std::string_view hex) {
  const auto digit = [](char c) {
    return c <= '9' ? c - '0' : (c | 0x20) - 'a' + 10;
  };
  std::vector<uint8_t> out;
  for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
    out.push_back(static_cast<uint8_t>(digit(hex[i]) << 4 | digit(hex[i + 1])));
  }
  return out;
}

}  // namespace fipsval::testing
