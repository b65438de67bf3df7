// SHA-256 runners: the SHAVS message and Monte Carlo tests over OpenSSL's
// low-level SHA-256.
#include <openssl/sha.h>

#include "harness/runner_io.h"
#include "harness/runners.h"
#include "suites/sha_runner.h"

namespace fipsval {
namespace {

int hash(const uint8_t* msg, std::size_t len, uint8_t* md) {
  SHA256_CTX ctx;
  return SHA256_Init(&ctx) && SHA256_Update(&ctx, msg, len) &&
         SHA256_Final(md, &ctx);
}

constexpr ShaDigest kSha256 = {SHA256_DIGEST_LENGTH, "[L = 32]", hash};

}  // namespace

void test_sha256_from_stream(std::FILE* req, std::FILE* rsp) {
  RunShaMessages(kSha256, req, rsp);
}
void test_sha256_mct_from_stream(std::FILE* req, std::FILE* rsp) {
  RunShaMonteCarlo(kSha256, req, rsp);
}
void test_sha256_from_file(const char* name) {
  RunOnFiles(name, test_sha256_from_stream);
}
void test_sha256_mct_from_file(const char* name) {
  RunOnFiles(name, test_sha256_mct_from_stream);
}

}  // namespace fipsval
