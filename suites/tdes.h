// The two small helpers of the TDES Monte Carlo runner that are worth
// reaching on their own (suites/tdes.cc).
#pragma once

#include <cstdint>

namespace fipsval {

// DES odd parity: b when it has an odd number of set bits, otherwise b with
// its lowest bit flipped.
uint8_t get_odd_bit_count_byte(uint8_t b);

// When the line holds "NumKeys = ", reads the decimal number behind it and
// stores it in *out if it is 1, 2 or 3 (result 1); otherwise result 0.
int extract_num_key(const char* line, uint32_t* out);

}  // namespace fipsval
