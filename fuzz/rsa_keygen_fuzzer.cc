// The RSA runners that generate keys, on hostile request files. First byte:
// 0 signature generation (method 0, as the suite calls it), 1 signature
// generation with an unsupported method, 2 random probable-prime key pairs.
//
// Key generation dominates: the guard refuses moduli above 2048 bits and
// more than two keys an input (two "[mod = " sections, or N values adding
// up to two), which keeps an input to about a second.
#include <openssl/crypto.h>

#include <cstdint>

#include "fuzz/fuzz_runner.h"
#include "fuzz/input_limits.h"
#include "harness/runners.h"

namespace {

using fipsval::fuzz::Count;
using fipsval::fuzz::Input;
using fipsval::fuzz::KeysAsked;
using fipsval::fuzz::LargestModulus;

constexpr int kLargestModulus = 2048;
constexpr int kMostKeys = 2;

bool AffordableSigGen(Input request) {
  return LargestModulus(request) <= kLargestModulus &&
         Count(request, "[mod = ") <= kMostKeys;
}

bool AffordableRandomPrimes(Input request) {
  return LargestModulus(request) <= kLargestModulus &&
         KeysAsked(request) <= kMostKeys;
}

constexpr fipsval::fuzz::Runner kRunners[] = {
    {"SigGen15_186-3",
     [](const char* name) { fipsval::test_rsa_sign_from_file(name, 0); },
     AffordableSigGen},
    {"SigGen15_186-3",
     [](const char* name) { fipsval::test_rsa_sign_from_file(name, 1); },
     AffordableSigGen},
    {"KeyGen_RandomProbablyPrime3_3",
     fipsval::test_rsa_keygen_rp_prime_from_file, AffordableRandomPrimes},
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fipsval::fuzz::EnterSandbox();
  OPENSSL_init_crypto(OPENSSL_INIT_ADD_ALL_DIGESTS, nullptr);
  OPENSSL_init_crypto(OPENSSL_INIT_LOAD_CRYPTO_STRINGS, nullptr);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  return fipsval::fuzz::RunSelected(kRunners, data, size);
}
