// Test doubles for the host callbacks that the library calls by name. They
// record every call and return what the test configures.
#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace fipsval::testing {

struct HostDoubles {
  // Results the doubles return.
  int fips_cc_enabled = 1;
  int vpn_cfg_result = 1;
  int firmware_result = 1;
  int rng_result = 1;
  int log_result = 0;
  // The entropy source; by default fills the buffer with a counter and
  // returns the length.
  std::function<int(unsigned char*, int)> read_entropy;

  // What the doubles were called with.
  std::vector<int> vpn_cfg_args;
  std::vector<int> firmware_args;
  std::vector<int> rng_args;
  std::vector<int> hash_cfg_args;
  std::vector<std::string> logged;
  std::vector<std::pair<int, std::string>> error_modes;
  std::vector<std::string> messages;  // formatted fipsmsg() output
  std::vector<int> entropy_lengths;
};

// The doubles' state; Reset() restores the defaults and clears the record.
HostDoubles& Host();
void ResetHost();

}  // namespace fipsval::testing
