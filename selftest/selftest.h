// Internals of the power-on self-tests: the run itself, its error text,
// and the known-answer tests that exercise OpenSSL. The exported entry
// points are in fipsval.h.
#pragma once

#include <openssl/rsa.h>

#include <cstddef>
#include <cstdint>

#include "fipsval.h"

namespace fipsval {

// Reading this file at the start of a run forces one named test to fail;
// the file is deleted when read.
inline constexpr char kForceMarkerPath[] = FIPSVAL_FORCE_MARKER;

// Runs the eight tests in order with their progress lines; returns the
// failure mask (FIPS_ST_* bits, 0 when all passed).
uint32_t do_self_tests();

// Writes "FIPS error: " and the messages of the tests in `mask` into
// buffer, never more than size - 1 characters plus the terminator.
void get_self_test_errstr(uint32_t mask, char* buffer, std::size_t size);

// OpenSSL known-answer tests: 1 pass, 0 fail. A non-zero force corrupts
// one byte of an intermediate result so that the test fails.
int fips_openssl_aes_test(int force);
int fips_openssl_3des_test(int force);
int fips_openssl_sha1_test(int force);
int fips_openssl_sha256_test(int force);
int fips_openssl_rsa_test(int force);

// Loads the test's RSA-2048 key into rsa, which takes ownership of the
// numbers. 0 when set, -1 when rsa is null.
int fips_set_rsa_key(RSA* rsa);

}  // namespace fipsval
