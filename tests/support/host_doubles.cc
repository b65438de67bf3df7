#include "tests/support/host_doubles.h"

#include <cstdarg>
#include <cstdio>

#include "fipsval.h"

namespace fipsval::testing {

HostDoubles& Host() {
  static HostDoubles host;
  return host;
}

void ResetHost() { Host() = HostDoubles{}; }

}  // namespace fipsval::testing

using fipsval::testing::Host;

extern "C" {

int is_fips_cc_enabled(void) { return Host().fips_cc_enabled; }

int fips_check_vpn_cfg(int force) {
  Host().vpn_cfg_args.push_back(force);
  return Host().vpn_cfg_result;
}

int fips_hash_vpn_cfg(int arg) {
  Host().hash_cfg_args.push_back(arg);
  return 0;
}

int fips_check_firmware(int force) {
  Host().firmware_args.push_back(force);
  return Host().firmware_result;
}

int fips_rng_test(int force) {
  Host().rng_args.push_back(force);
  return Host().rng_result;
}

int fips_log_startup_error(const char* text) {
  Host().logged.emplace_back(text);
  return Host().log_result;
}

int fips_goto_error_mode(int code, const char* text) {
  Host().error_modes.emplace_back(code, text);
  return 0;
}

int fipsmsg(const char* format, ...) {
  char text[1024];
  va_list args;
  va_start(args, format);
  const int n = std::vsnprintf(text, sizeof text, format, args);
  va_end(args);
  Host().messages.emplace_back(text);
  return n;
}

int fips_read_entropy(unsigned char* buffer, int length) {
  Host().entropy_lengths.push_back(length);
  if (Host().read_entropy) return Host().read_entropy(buffer, length);
  for (int i = 0; i < length; ++i) buffer[i] = static_cast<unsigned char>(i);
  return length;
}

}  // extern "C"
