// What the RSA signature and key-generation runners share: owners for the
// OpenSSL objects they make, the "[mod = ...]" section reader, the modulus
// sizes they accept, and the appendix B.3.3 prime checks.
#pragma once

#include <openssl/bn.h>
#include <openssl/crypto.h>
#include <openssl/rsa.h>

#include <cstddef>
#include <cstring>
#include <memory>
#include <string_view>

#include "harness/openssl_ptr.h"
#include "harness/runner_io.h"

namespace fipsval {

using UniqueBignum = UniquePtr<BIGNUM>;
using UniqueBnCtx = UniquePtr<BN_CTX>;
using UniqueRsa = UniquePtr<RSA>;

inline constexpr char kModulusTag[] = "[mod = ";

// RSA request tags are recognised only at the start of a line.
inline bool starts_with(const char* line, std::string_view tag) {
  return std::strncmp(line, tag.data(), tag.size()) == 0;
}

// Reads the modulus size of a "[mod = ...]" line. Only the four characters
// after the tag are read, so "[mod = 20480]" gives 2048. False when the line
// is not a section line or no digits follow the tag.
bool extract_modulus_size(const char* line, int* out);

// The five sizes of the signature and key-generation known-answer files:
// 1024, 1536, 2048, 3072 and 4096 bits.
bool is_signature_modulus_size(int bits);

// Writes bn in the upper-case hex of BN_bn2hex; prints one line and returns
// false on failure.
bool WriteBignumHex(const RunnerFiles& files, const BIGNUM* bn);

// Miller-Rabin rounds of the B.3.3 primality checks for a modulus of nlen
// bits: 4 for 3072 (and 3073) bits, 5 otherwise.
int b33_rounds(int nlen);

// The appendix B.3.3 checks on the candidates p and q of an nlen-bit key
// with public exponent e. Returns 1 (pass) or 0 (fail) and writes the
// response's reason text into reason (at most size bytes, terminated).
int b33_test(int nlen, const BIGNUM* e, const BIGNUM* p, const BIGNUM* q,
             char* reason, std::size_t size);

}  // namespace fipsval
