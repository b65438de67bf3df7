// SHA-1 runners: the SHAVS message and Monte Carlo tests over OpenSSL's
// low-level SHA-1.
#include <openssl/sha.h>

#include <cstddef>
#include <cstdint>

#include "harness/runners.h"
#include "suites/sha_runner.h"

namespace fipsval {
namespace {

int hash(const uint8_t* msg, std::size_t len, uint8_t* md) {
  SHA_CTX ctx;
  return SHA1_Init(&ctx) && SHA1_Update(&ctx, msg, len) && SHA1_Final(md, &ctx);
}

struct Sha1 {
  static constexpr std::size_t kDigestLen = SHA_DIGEST_LENGTH;
  static constexpr char kMarker[] = "[L = 20]";
  static int hash(const uint8_t* msg, std::size_t len, uint8_t* md) {
    return fipsval::hash(msg, len, md);
  }
};
static_assert(Sha1::kDigestLen == 20);

}  // namespace

void test_sha1_from_file(const char* name) {
  sha_runner::RunMessages<Sha1>(name);
}

void test_sha1_mct_from_file(const char* name) {
  sha_runner::RunMonteCarlo<Sha1>(name);
}

}  // namespace fipsval
