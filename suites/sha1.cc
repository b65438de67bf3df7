// SHA-1 runners: the SHAVS message and Monte Carlo tests over OpenSSL's
// low-level SHA-1.
#include <openssl/sha.h>

#include "harness/runner_io.h"
#include "harness/runners.h"
#include "suites/sha_runner.h"

namespace fipsval {
namespace {

int hash(const uint8_t* msg, std::size_t len, uint8_t* md) {
  SHA_CTX ctx;
  return SHA1_Init(&ctx) && SHA1_Update(&ctx, msg, len) && SHA1_Final(md, &ctx);
}

constexpr ShaDigest kSha1 = {SHA_DIGEST_LENGTH, "[L = 20]", hash};

}  // namespace

void test_sha1_from_stream(std::FILE* req, std::FILE* rsp) {
  RunShaMessages(kSha1, req, rsp);
}
void test_sha1_mct_from_stream(std::FILE* req, std::FILE* rsp) {
  RunShaMonteCarlo(kSha1, req, rsp);
}
void test_sha1_from_file(const char* name) {
  RunOnFiles(name, test_sha1_from_stream);
}
void test_sha1_mct_from_file(const char* name) {
  RunOnFiles(name, test_sha1_mct_from_stream);
}

}  // namespace fipsval
