// OpenSSL allocations that fail: the self-tests and runners either give the
// answer they give undisturbed or fail with their message. A failed
// allocation never turns into a pass, a silent stop or a crash.
#include <gtest/gtest.h>
#include <openssl/bn.h>
#include <openssl/crypto.h>
#include <openssl/rsa.h>

#include <cstdlib>
#include <functional>
#include <string>

#include "harness/owners.h"
#include "harness/runners.h"
#include "selftest/selftest.h"
#include "suites/rsa_common.h"
#include "tests/support/test_env.h"

namespace fipsval::testing {
namespace {

long g_fail_at = -1;  // the allocation to refuse, counted from 0; -1: none
long g_count = 0;
bool g_refused = false;

bool Refuse() { return g_fail_at >= 0 && g_count++ == g_fail_at && (g_refused = true); }
void* Malloc(std::size_t n, const char*, int) { return Refuse() ? nullptr : std::malloc(n); }
void* Realloc(void* p, std::size_t n, const char*, int) {
  return Refuse() ? nullptr : std::realloc(p, n);
}
void Free(void* p, const char*, int) { std::free(p); }

// Before OpenSSL allocates anything: afterwards it keeps its own functions.
const bool kHooked = CRYPTO_set_mem_functions(Malloc, Realloc, Free) == 1;

// Runs `run` once with each of the first allocations refused in turn, then
// with a few later ones, until a run reaches none; `check` judges each run
// that had one refused.
void ForEachRefusal(const std::function<void()>& run, const std::function<void(long)>& check) {
  ASSERT_TRUE(kHooked);
  run();  // OpenSSL's one-time set-up happens undisturbed
  for (long n = 0; n < 1000000; n = n < 400 ? n + 1 : 3 * n) {
    g_fail_at = n;
    g_count = 0;
    g_refused = false;
    run();
    g_fail_at = -1;
    if (!g_refused) return;
    check(n);
  }
}

TEST(AllocationFailure, ForcedSelfTestsNeverPass) {
  for (const auto test : {fips_openssl_3des_test, fips_openssl_sha1_test,
                          fips_openssl_sha256_test, fips_openssl_rsa_test}) {
    int forced = -1;
    ForEachRefusal([&] { forced = test(1); },
                   [&](long n) { EXPECT_EQ(forced, 0) << "allocation " << n; });
  }
}

TEST(AllocationFailure, PrimeChecksFailWithAnErrorRatherThanJudge) {
  UniqueRsa rsa(RSA_new());
  UniqueBignum e(BN_new());
  ASSERT_TRUE(BN_set_word(e.get(), 65537));
  ASSERT_EQ(RSA_generate_key_ex(rsa.get(), 2048, e.get(), nullptr), 1);
  char reason[200];
  int pass = -1;
  const auto run = [&] {
    pass = b33_test(2048, e.get(), RSA_get0_p(rsa.get()), RSA_get0_q(rsa.get()), reason,
                    sizeof reason);
  };
  run();
  ASSERT_EQ(pass, 1) << reason;
  const std::string passed = reason;
  ForEachRefusal(run, [&](long n) {
    EXPECT_TRUE(pass == 1 ? reason == passed : std::string_view(reason).starts_with("Error "))
        << "allocation " << n << ": " << reason;
  });
}

// A runner's response is what it writes undisturbed, or it stops with one
// message that starts "Error".
void ExpectAnswerOrError(const RunnerCore& core, const std::string& request,
                         const std::function<bool(const std::string&)>& answered) {
  CoreResult r;
  ForEachRefusal([&] { r = RunCore(core, request); }, [&](long n) {
    EXPECT_TRUE(r.printed.empty() ? answered(r.response)
                                  : r.printed.starts_with("Error ") &&
                                        r.printed.find('\n') == r.printed.size() - 1)
        << "allocation " << n << ": " << r.printed;
  });
  EXPECT_TRUE(answered(r.response));
}

TEST(AllocationFailure, RunnersAnswerOrSayWhy) {
  const std::string sha = "[L = 20]\n\nSeed = " + std::string(40, 'a') + "\n";
  const std::string whole = RunCore(test_sha1_mct_from_stream, sha).response;
  ExpectAnswerOrError(test_sha1_mct_from_stream, sha,
                      [&](const std::string& response) { return response == whole; });
  ExpectAnswerOrError(test_rsa_keygen_rp_prime_from_stream, "[mod = 2048]\n\nN = 1\n",
                      [](const std::string& response) {
                        return response.find("\r\nd = ") != std::string::npos;
                      });
}

}  // namespace
}  // namespace fipsval::testing
