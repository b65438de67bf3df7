// The request-file runners and the suite sub-steps. Internal to the
// library: hosts reach them through the suite descriptors.
//
// Every runner has two forms:
//
// - test_<x>_from_stream(req, rsp), in suites/: the runner's whole work on
//   an open request stream and an open response stream, which it neither
//   opens nor closes. Every problem is one line on standard output, after
//   which the core returns.
// - test_<x>_from_file(name), in catalog/runner_files.cc: reads
//   "/tmp/req/<name>.req" and writes "/tmp/resp/<name>.rsp" through
//   RunOnFiles (harness/runner_io.h): "Couldn't open <path>" when one
//   cannot be opened, and "Problem writing to rsp file" when the response
//   cannot be completed at close. The AES shells first print
//   "Running file <name>".
//
// A test can drive a core with fmemopen() for the request and
// open_memstream() for the response: no fixed paths are touched. The
// cores read their request with fips_tv_get_line, so request text needs
// CR LF line ends.
#pragma once

#include <cstdint>
#include <cstdio>

namespace fipsval {

// AES (suites/aes.cc): known-answer and multi-message files, Monte Carlo.
void test_aes_cbc_from_stream(std::FILE* req, std::FILE* rsp);
void test_aes_ecb_from_stream(std::FILE* req, std::FILE* rsp);
void test_aes_cbc_mct_from_stream(std::FILE* req, std::FILE* rsp);
void test_aes_ecb_mct_from_stream(std::FILE* req, std::FILE* rsp);
void test_aes_cbc_from_file(const char* name);
void test_aes_ecb_from_file(const char* name);
void test_aes_cbc_mct_from_file(const char* name);
void test_aes_ecb_mct_from_file(const char* name);

// TDES (suites/tdes.cc).
void test_3des_tcbc_from_stream(std::FILE* req, std::FILE* rsp);
void test_3des_tcbc_mct_from_stream(std::FILE* req, std::FILE* rsp);
void test_3des_tcbc_from_file(const char* name);
void test_3des_tcbc_mct_from_file(const char* name);

// SHA-1 and SHA-256 (suites/sha.cc).
void test_sha1_from_stream(std::FILE* req, std::FILE* rsp);
void test_sha1_mct_from_stream(std::FILE* req, std::FILE* rsp);
void test_sha256_from_stream(std::FILE* req, std::FILE* rsp);
void test_sha256_mct_from_stream(std::FILE* req, std::FILE* rsp);
void test_sha1_from_file(const char* name);
void test_sha1_mct_from_file(const char* name);
void test_sha256_from_file(const char* name);
void test_sha256_mct_from_file(const char* name);

// HMAC (suites/hmac.cc).
void test_hmac_from_stream(std::FILE* req, std::FILE* rsp);
void test_hmac_from_file(const char* name);

// RSA (suites/rsa_sign.cc, suites/rsa_keygen.cc). The verification runner
// is handed the same method argument as the generation runner and ignores
// it.
void test_rsa_sign_from_stream(std::FILE* req, std::FILE* rsp, int method);
void test_rsa_verify_from_stream(std::FILE* req, std::FILE* rsp,
                                 int unused_method);
void test_rsa_keygen_from_stream(std::FILE* req, std::FILE* rsp);
void test_rsa_keygen_kat_from_stream(std::FILE* req, std::FILE* rsp);
void test_rsa_keygen_rp_prime_from_stream(std::FILE* req, std::FILE* rsp);
void test_rsa_sign_from_file(const char* name, int method);
void test_rsa_verify_from_file(const char* name, int unused_method);
void test_rsa_keygen_from_file(const char* name);
void test_rsa_keygen_kat_from_file(const char* name);
void test_rsa_keygen_rp_prime_from_file(const char* name);

// CTR_DRBG (suites/rbg.cc). The core still sends each test to the driver
// on "/dev/urandom".
void test_rbg_from_stream(std::FILE* req, std::FILE* rsp);
void test_rbg_from_file(const char* name);

// SSH KDF and TLS PRF (suites/ssh.cc, suites/tls.cc).
void test_ssh_from_stream(std::FILE* req, std::FILE* rsp);
void test_tls_from_stream(std::FILE* req, std::FILE* rsp);
void test_ssh_from_file(const char* name);
void test_tls_from_file(const char* name);

// Two helpers of the TDES Monte Carlo runner (suites/tdes.cc). DES odd
// parity: b when it has an odd number of set bits, otherwise b with its
// lowest bit flipped.
uint8_t get_odd_bit_count_byte(uint8_t b);
// When the line holds "NumKeys = ", reads the decimal number behind it and
// stores it in *out if it is 1, 2 or 3 (result 1); otherwise result 0.
int extract_num_key(const char* line, uint32_t* out);

// The entropy-sample export (harness/entropy.cc) on an open stream: the
// header line and `count` samples; the result of
// fips_tv_get_drbg_entropy_source.
int WriteEntropySamples(std::FILE* out, int count);

// Sub-steps of the suite run operations (catalog/suites.cc).
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
