// SHA-256 runners: the SHAVS message and Monte Carlo tests over OpenSSL's
// low-level SHA-256.
#include <openssl/sha.h>

#include <cstddef>
#include <cstdint>

#include "harness/runners.h"
#include "suites/sha_runner.h"

namespace fipsval {
namespace {

int hash(const uint8_t* msg, std::size_t len, uint8_t* md) {
  SHA256_CTX ctx;
  return SHA256_Init(&ctx) && SHA256_Update(&ctx, msg, len) &&
         SHA256_Final(md, &ctx);
}

struct Sha256 {
  static constexpr std::size_t kDigestLen = SHA256_DIGEST_LENGTH;
  static constexpr char kMarker[] = "[L = 32]";
  static int hash(const uint8_t* msg, std::size_t len, uint8_t* md) {
    return fipsval::hash(msg, len, md);
  }
};
static_assert(Sha256::kDigestLen == 32);

}  // namespace

void test_sha256_from_file(const char* name) {
  sha_runner::RunMessages<Sha256>(name);
}

void test_sha256_mct_from_file(const char* name) {
  sha_runner::RunMonteCarlo<Sha256>(name);
}

}  // namespace fipsval
