// The error text handed to the host after a failed self-test run.
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "fipsval.h"
#include "selftest/selftest.h"

namespace fipsval {
namespace {

struct ErrorMessage {
  uint32_t bit;
  const char* text;
};

// Walked in this order, which is neither the order of the tests nor that of
// the bits; the order of the error text is kept as it is on purpose.
constexpr std::array<ErrorMessage, 8> kErrorMessages{{
    {FIPS_ST_FIRMWARE, "Firmware integrity test failed"},
    {FIPS_ST_AES, "AES self-test failed"},
    {FIPS_ST_HMAC_SHA1, "SHA1 HMAC self-test failed"},
    {FIPS_ST_HMAC_SHA256, "SHA256 HMAC self-test failed"},
    {FIPS_ST_TDES, "3DES self-test failed"},
    {FIPS_ST_RSA, "RSA self-test failed"},
    {FIPS_ST_RNG, "RNG self-test failed"},
    {FIPS_ST_CONFIG, "Configuration Integrity test failed"},
}};

// Appends as much of text as fits in size - 1 characters in all.
void Append(char* buffer, std::size_t size, const char* text) {
  std::strncat(buffer, text, size - 1 - std::strlen(buffer));
}

}  // namespace

void get_self_test_errstr(uint32_t mask, char* buffer, std::size_t size) {
  if (size == 0) return;
  std::snprintf(buffer, size, "FIPS error: ");
  bool first = true;
  for (const ErrorMessage& m : kErrorMessages) {
    if (!(mask & m.bit)) continue;
    if (!first) Append(buffer, size, ", ");
    Append(buffer, size, m.text);
    first = false;
  }
}

}  // namespace fipsval
