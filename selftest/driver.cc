// The power-on self-test run, and the configuration checks the host makes
// outside it.
#include <array>
#include <cstdint>
#include <cstdio>

#include "fipsval.h"
#include "selftest/registry.h"
#include "selftest/selftest.h"

namespace fipsval {
namespace {

constexpr char kConfigFailure[] = "Configuration Integrity check failed";
constexpr int kSelfTestErrorMode = -3;
constexpr int kConfigErrorMode = -4;

}  // namespace

uint32_t do_self_tests() {
  const uint32_t force = static_cast<uint32_t>(fips_check_fail());
  uint32_t mask = 0;
  std::puts("\nFIPS-CC mode: Starting self-tests.");
  for (const selftest::SelfTest& t : selftest::kSelfTests) {
    std::fwrite(t.label.data(), 1, t.label.size(), stdout);
    // Each test sees only its own bit: 0, or the bit's value.
    const bool passed = t.run(static_cast<int>(force & t.bit)) >= 1;
    std::puts(passed ? "passed" : "failed");
    if (!passed) mask |= t.bit;
  }
  std::puts(mask == 0 ? "Self-tests passed" : "Self-tests failed");
  return mask;
}

}  // namespace fipsval

extern "C" {

FIPSVAL_API int fips_self_tests(void) {
  const uint32_t mask = fipsval::do_self_tests();
  if (mask == 0) return 0;
  std::array<char, 900> text;
  fipsval::get_self_test_errstr(mask, text.data(), text.size());
  if (fips_log_startup_error(text.data()) < 0) {
    std::printf("Failed to log self-test failure: %s", text.data());
  }
  fips_goto_error_mode(fipsval::kSelfTestErrorMode, text.data());
  return static_cast<int>(mask);
}

// Unlike the start-up run, only a result of exactly 1 counts as intact.
FIPSVAL_API int fips_check_config(int mode) {
  if (fips_check_vpn_cfg(0) == 1) return 0;
  if (mode == 1) {
    fipsmsg("\n%s\n", fipsval::kConfigFailure);
  } else if (mode == 2) {
    std::printf("\n%s\n", fipsval::kConfigFailure);
  }
  fips_goto_error_mode(fipsval::kConfigErrorMode, "configuration");
  return -1;
}

FIPSVAL_API int fips_update_config(void) {
  if (is_fips_cc_enabled()) fips_hash_vpn_cfg(0);
  return 0;
}

FIPSVAL_API int fips_get_max_hash_tests(void) { return 1; }

}  // extern "C"
