// Measures of a request that tell what it would cost a runner, for the
// targets' cost guards. They look at the raw bytes, not at lines as the
// runners do, so that no line cut or stray zero byte can hide a costly
// field from them: each measure is an upper bound of what a runner can see.
#pragma once

#include <cstddef>
#include <string_view>

#include "fuzz/fuzz_runner.h"

namespace fipsval::fuzz {

// Occurrences of needle, overlapping ones included.
std::size_t Count(Input in, std::string_view needle);

// Length of the longest run of hexadecimal digits: a bound on every hex
// value a runner decodes (twice its byte count).
std::size_t LongestHexRun(Input in);

// The largest modulus size that any "[mod = " in the input selects, read as
// the RSA runners read it (at most four characters after the tag); 0 when
// none gives a number.
int LargestModulus(Input in);

// The number of key pairs that the "N = " counts in the input ask for, each
// read as the random probable-prime runner reads it (strtol, then int) and
// counted only when positive.
long long KeysAsked(Input in);

}  // namespace fipsval::fuzz
