// The request-file runners and the suite sub-steps. Internal to the
// library: hosts reach them through the suite descriptors.
//
// Every runner takes the base name of one request file, reads
// "/tmp/req/<name>.req", writes "/tmp/resp/<name>.rsp" and reports problems
// only on standard output.
#pragma once

namespace fipsval {

// AES (suites/aes.cc).
void test_aes_cbc_from_file(const char* name);
void test_aes_ecb_from_file(const char* name);
void test_aes_cbc_mct_from_file(const char* name);
void test_aes_ecb_mct_from_file(const char* name);

// TDES (suites/tdes.cc).
void test_3des_tcbc_from_file(const char* name);
void test_3des_tcbc_mct_from_file(const char* name);

// SHA-1 and SHA-256 (suites/sha1.cc, suites/sha256.cc).
void test_sha1_from_file(const char* name);
void test_sha1_mct_from_file(const char* name);
void test_sha256_from_file(const char* name);
void test_sha256_mct_from_file(const char* name);

// HMAC (suites/hmac.cc).
void test_hmac_from_file(const char* name);

// RSA (suites/rsa_sign.cc, suites/rsa_keygen.cc). The verification runner
// is handed the same method argument as the generation runner and ignores
// it.
void test_rsa_sign_from_file(const char* name, int method);
void test_rsa_verify_from_file(const char* name, int unused_method);
void test_rsa_keygen_from_file(const char* name);
void test_rsa_keygen_kat_from_file(const char* name);
void test_rsa_keygen_rp_prime_from_file(const char* name);

// CTR_DRBG (suites/rbg.cc).
void test_rbg_from_file(const char* name);

// SSH KDF and TLS PRF (suites/ssh.cc, suites/tls.cc).
void test_ssh_from_file(const char* name);
void test_tls_from_file(const char* name);

// Sub-steps of the suite run operations (harness/suites.cc).
void test_3des_tcbc();
void test_3des_tcbc_kat();
void test_3des_tcbc_kat_vartext();
void test_3des_tcbc_kat_invperm();
void test_3des_tcbc_kat_varkey();
void test_3des_tcbc_kat_permop();
void test_3des_tcbc_kat_subtab();
void test_3des_tcbc_mmt();
void test_3des_tcbc_mct();
void test_aes_cbc();
void test_aes_cbc_kat();
void test_aes_cbc_kat_gfsbox();
void test_aes_cbc_kat_keysbox();
void test_aes_cbc_kat_vartext();
void test_aes_cbc_kat_varkey();
void test_aes_cbc_mmt();
void test_aes_cbc_mct();
void test_aes_ecb();
void test_rsa_pkcs1();
void test_rsa_keygen();

}  // namespace fipsval
