// The self-tests, once: every fact about a test (its mask bit, progress
// label, the marker name that forces it, its error message, the function
// that runs it) lives in one row of kSelfTests, and every list the driver,
// the forced-failure marker and the error text need is derived from it.
//
// Adding a test means adding one row here and its bit in fipsval.h.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "fipsval.h"

namespace fipsval::selftest {

struct SelfTest {
  uint32_t bit;                 // FIPS_ST_*: mask bit and force selector
  std::string_view label;       // progress label, printed without newline
  std::string_view force_name;  // the marker text that forces this test
  std::string_view error_text;  // its part of the error text
  int error_position;           // its place in the error text (0 first)
  int (*run)(int force);        // 1 or more passes
};

// The host performs three of the tests. They are reached through these
// functions rather than by address, so that loading the library does not
// need the callbacks resolved: a host that only runs the test-vector suites
// may leave them out.
inline int HostConfigurationTest(int force) { return fips_check_vpn_cfg(force); }
inline int HostFirmwareTest(int force) { return fips_check_firmware(force); }
inline int HostRngTest(int force) { return fips_rng_test(force); }

// Rows in the order the tests run. Labels are padded to 46 characters so
// that "passed"/"failed" line up. The error text lists the failed tests in
// another order (firmware first, configuration last), kept as it is.
inline constexpr std::array<SelfTest, 8> kSelfTests{{
    {FIPS_ST_CONFIG, "Running Configuration Integrity test...       ", "Configuration",
     "Configuration Integrity test failed", 7, HostConfigurationTest},
    {FIPS_ST_AES, "Running AES test...                           ", "AES",
     "AES self-test failed", 1, fips_kat_aes_test},
    {FIPS_ST_HMAC_SHA1, "Running SHA1 HMAC test...                     ", "SHA1-HMAC",
     "SHA1 HMAC self-test failed", 2, fips_kat_sha1_test},
    {FIPS_ST_HMAC_SHA256, "Running SHA256 HMAC test...                   ", "SHA256-HMAC",
     "SHA256 HMAC self-test failed", 3, fips_kat_sha256_test},
    {FIPS_ST_TDES, "Running 3DES test...                          ", "3DES",
     "3DES self-test failed", 4, fips_kat_3des_test},
    {FIPS_ST_RSA, "Running RSA test...                           ", "RSA",
     "RSA self-test failed", 5, fips_kat_rsa_test},
    {FIPS_ST_FIRMWARE, "Running Firmware integrity test...            ",
     "Firmware-integrity", "Firmware integrity test failed", 0, HostFirmwareTest},
    {FIPS_ST_RNG, "Running RNG test...                           ", "RNG",
     "RNG self-test failed", 6, HostRngTest},
}};

inline constexpr std::size_t kLabelWidth = 46;

// The rows in the order of the error text.
inline constexpr std::array<const SelfTest*, kSelfTests.size()> kErrorTextOrder = [] {
  std::array<const SelfTest*, kSelfTests.size()> order{};
  for (const SelfTest& t : kSelfTests) {
    order[static_cast<std::size_t>(t.error_position)] = &t;
  }
  return order;
}();

// The row that the marker text names exactly, or null.
constexpr const SelfTest* FindByForceName(std::string_view name) {
  for (const SelfTest& t : kSelfTests) {
    if (t.force_name == name) return &t;
  }
  return nullptr;
}

namespace internal {

constexpr bool RegistryIsConsistent() {
  uint32_t bits = 0;
  std::array<bool, kSelfTests.size()> placed{};
  for (const SelfTest& t : kSelfTests) {
    // One bit a test, none shared.
    if (t.bit == 0 || (t.bit & (t.bit - 1)) != 0 || (bits & t.bit) != 0) return false;
    bits |= t.bit;
    if (t.label.size() != kLabelWidth || t.force_name.empty()) return false;
    if (FindByForceName(t.force_name) != &t) return false;  // names are unique
    const auto position = static_cast<std::size_t>(t.error_position);
    if (t.error_position < 0 || position >= placed.size() || placed[position]) return false;
    placed[position] = true;
  }
  return true;
}
static_assert(RegistryIsConsistent());

}  // namespace internal
}  // namespace fipsval::selftest
