// What the RSA signature and key-generation runners share
// (suites/rsa_common.cc): the "[mod = ...]" section reader, the modulus
// sizes they accept, BIGNUM output and the appendix B.3.3 prime checks.
// RSA request tags are recognised only at the start of a line.
#pragma once

#include <openssl/bn.h>

#include <cstddef>

#include "harness/owners.h"
#include "harness/runner_io.h"

namespace fipsval {

inline constexpr char kModulusTag[] = "[mod = ";

// Reads the modulus size of a "[mod = ...]" line with strtol: only the four
// characters after the tag are read, so "[mod = 20480]" gives 2048, and a
// size without digits reads as 0. False when the line is not a section
// line.
bool extract_modulus_size(const char* line, int* out);

// Reads the size of the current "[mod = ...]" line into *bits; a size that
// `accepted` refuses prints "Invalid modulus size (N)" and gives false.
bool ReadModulusSize(const Session& s, bool (*accepted)(int bits), int* bits);

// The five sizes of the signature and key-generation known-answer files:
// 1024, 1536, 2048, 3072 and 4096 bits.
bool IsSignatureModulusSize(int bits);

// Writes bn in the upper-case hex of BN_bn2hex; prints one line and returns
// false on failure.
bool WriteBignumHex(const Session& s, const BIGNUM* bn);

// Miller-Rabin rounds of the B.3.3 primality checks for a modulus of nlen
// bits: 4 for 3072 (and 3073) bits, 5 otherwise.
int B33Rounds(int nlen);

// The appendix B.3.3 checks on the candidates p and q of an nlen-bit key
// with public exponent e. Returns 1 (pass) or 0 (fail) and writes the
// response's reason text into reason (at most size bytes, terminated).
int b33_test(int nlen, const BIGNUM* e, const BIGNUM* p, const BIGNUM* q,
             char* reason, std::size_t size);

}  // namespace fipsval
