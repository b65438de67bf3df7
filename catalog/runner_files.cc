// The runners on the fixed paths: each test_*_from_file shell reads
// "/tmp/req/<name>.req" and writes "/tmp/resp/<name>.rsp" through
// RunOnFiles, with its core (suites/) doing the work. Only the AES runners
// announce the file they start.
#include <cstdio>

#include "harness/runner_io.h"
#include "harness/runners.h"

namespace fipsval {
namespace {

void RunAes(const char* name, void (*core)(std::FILE*, std::FILE*)) {
  std::printf("Running file %s\n", name);
  RunOnFiles(name, core);
}

}  // namespace

void test_aes_cbc_from_file(const char* name) {
  RunAes(name, test_aes_cbc_from_stream);
}
void test_aes_ecb_from_file(const char* name) {
  RunAes(name, test_aes_ecb_from_stream);
}
void test_aes_cbc_mct_from_file(const char* name) {
  RunAes(name, test_aes_cbc_mct_from_stream);
}
void test_aes_ecb_mct_from_file(const char* name) {
  RunAes(name, test_aes_ecb_mct_from_stream);
}
void test_3des_tcbc_from_file(const char* name) {
  RunOnFiles(name, test_3des_tcbc_from_stream);
}
void test_3des_tcbc_mct_from_file(const char* name) {
  RunOnFiles(name, test_3des_tcbc_mct_from_stream);
}
void test_sha1_from_file(const char* name) {
  RunOnFiles(name, test_sha1_from_stream);
}
void test_sha1_mct_from_file(const char* name) {
  RunOnFiles(name, test_sha1_mct_from_stream);
}
void test_sha256_from_file(const char* name) {
  RunOnFiles(name, test_sha256_from_stream);
}
void test_sha256_mct_from_file(const char* name) {
  RunOnFiles(name, test_sha256_mct_from_stream);
}
void test_hmac_from_file(const char* name) {
  RunOnFiles(name, test_hmac_from_stream);
}
void test_rsa_sign_from_file(const char* name, int method) {
  RunOnFiles(name, [method](std::FILE* req, std::FILE* rsp) {
    test_rsa_sign_from_stream(req, rsp, method);
  });
}
void test_rsa_verify_from_file(const char* name, int unused_method) {
  RunOnFiles(name, [unused_method](std::FILE* req, std::FILE* rsp) {
    test_rsa_verify_from_stream(req, rsp, unused_method);
  });
}
void test_rsa_keygen_from_file(const char* name) {
  RunOnFiles(name, test_rsa_keygen_from_stream);
}
void test_rsa_keygen_kat_from_file(const char* name) {
  RunOnFiles(name, test_rsa_keygen_kat_from_stream);
}
void test_rsa_keygen_rp_prime_from_file(const char* name) {
  RunOnFiles(name, test_rsa_keygen_rp_prime_from_stream);
}
void test_rbg_from_file(const char* name) {
  RunOnFiles(name, test_rbg_from_stream);
}
void test_ssh_from_file(const char* name) {
  RunOnFiles(name, test_ssh_from_stream);
}
void test_tls_from_file(const char* name) {
  RunOnFiles(name, test_tls_from_stream);
}

}  // namespace fipsval
