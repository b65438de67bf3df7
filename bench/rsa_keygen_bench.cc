// Costs of the RSA runners: the B.3.3 checks, the KAT file, key pairs made
// by the random probable-prime runner and SigGen sections. Uses the fixed
// request paths: run through sandbox_run.
#include <benchmark/benchmark.h>
#include <openssl/bn.h>

#include <string>

#include "harness/runners.h"
#include "suites/rsa_common.h"
#include "tests/support/test_env.h"

namespace fipsval {
namespace {

using testing::Crlf;
using testing::ReadFile;
using testing::ResetVectorDirs;
using testing::WriteRequest;

// Two primes above the sqrt(2) bound for an nlen-bit modulus.
void GoodPrimes(int nlen, UniqueBignum* p, UniqueBignum* q) {
  p->reset(BN_new());
  q->reset(BN_new());
  BN_generate_prime_ex(p->get(), nlen / 2, 0, nullptr, nullptr, nullptr);
  BN_generate_prime_ex(q->get(), nlen / 2, 0, nullptr, nullptr, nullptr);
}

// The passing record is the dearest: both candidates are tested as primes.
void BM_B33PassingRecord(benchmark::State& state) {
  const int nlen = static_cast<int>(state.range(0));
  UniqueBignum p, q, e(BN_new());
  BN_set_word(e.get(), 3);  // 3 or 65537: the gcd test costs nothing here
  GoodPrimes(nlen, &p, &q);
  char reason[100];
  for (auto _ : state) {
    benchmark::DoNotOptimize(
        b33_test(nlen, e.get(), p.get(), q.get(), reason, sizeof reason));
  }
}
BENCHMARK(BM_B33PassingRecord)->Arg(2048)->Arg(3072)->Unit(benchmark::kMillisecond);

void BM_KatRunnerProjectVectors(benchmark::State& state) {
  const std::string request = ReadFile(std::string(FIPSVAL_SOURCE_DIR) +
                                       "/vectors/RSA2/req/KeyGen3_3_KAT.req");
  ResetVectorDirs();
  WriteRequest("KeyGen3_3_KAT", request);
  for (auto _ : state) test_rsa_keygen_kat_from_file("KeyGen3_3_KAT");
}
BENCHMARK(BM_KatRunnerProjectVectors)->Unit(benchmark::kMillisecond);

void BM_RandomProbablePrimeKey(benchmark::State& state) {
  ResetVectorDirs();
  WriteRequest("RP", Crlf("[mod = " + std::to_string(state.range(0)) +
                          "]\n\nN = 1\n"));
  for (auto _ : state) test_rsa_keygen_rp_prime_from_file("RP");
}
BENCHMARK(BM_RandomProbablePrimeKey)
    ->Arg(2048)
    ->Arg(3072)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(8);

// One key and ten signatures of each supported digest.
void BM_SigGenSection(benchmark::State& state) {
  std::string request = "[mod = " + std::to_string(state.range(0)) + "]\n\n";
  for (const char* alg : {"SHA1", "SHA256", "SHA384", "SHA512"}) {
    for (int i = 0; i < 10; ++i) {
      request += std::string("SHAAlg = ") + alg + "\nMsg = " +
                 std::string(256, 'a' + i % 6) + "\n\n";
    }
  }
  ResetVectorDirs();
  WriteRequest("SigGen", Crlf(request));
  for (auto _ : state) test_rsa_sign_from_file("SigGen", 0);
}
BENCHMARK(BM_SigGenSection)
    ->Arg(1024)
    ->Arg(2048)
    ->Arg(3072)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(8);

}  // namespace
}  // namespace fipsval

BENCHMARK_MAIN();
