// The RSA runners that make no keys, on hostile request files. First byte:
// 0 signature verification, 1 key-generation copy-through, 2 the B.3.3
// known-answer test on given primes.
//
// The known-answer test runs Miller-Rabin on every candidate; the guard
// keeps candidates to 2080 bits (the 4096-bit modulus of the real files has
// 2048-bit primes) and an input to 16 records.
#include <openssl/crypto.h>

#include <cstdint>

#include "fuzz/fuzz_runner.h"
#include "fuzz/input_limits.h"
#include "harness/runners.h"

namespace {

using fipsval::fuzz::Count;
using fipsval::fuzz::Input;
using fipsval::fuzz::LongestHexRun;

bool AffordableKat(Input request) {
  return LongestHexRun(request) <= 520 && Count(request, "e = ") <= 16;
}

constexpr fipsval::fuzz::Runner kRunners[] = {
    {"SigVer15_186-3",
     [](const char* name) { fipsval::test_rsa_verify_from_file(name, 0); }},
    {"KeyGen_186-3", fipsval::test_rsa_keygen_from_file},
    {"KeyGen3_3_KAT", fipsval::test_rsa_keygen_kat_from_file, AffordableKat},
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fipsval::fuzz::EnterSandbox();
  // As the RSA suite's run operation does before its runners.
  OPENSSL_init_crypto(OPENSSL_INIT_ADD_ALL_DIGESTS, nullptr);
  OPENSSL_init_crypto(OPENSSL_INIT_LOAD_CRYPTO_STRINGS, nullptr);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  return fipsval::fuzz::RunSelected(kRunners, data, size);
}
