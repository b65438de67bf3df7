// The block-cipher Monte Carlo runners on hostile request files. First
// byte: 0 AES CBC, 1 AES ECB, 2 TDES CBC.
//
// Each seed a runner accepts costs a fixed chain of operations (AES: 100
// records of 1000; TDES: 400 records of 10000, some 2.5 s a seed under the
// sanitizers for a single block), and a longer value multiplies it. The
// guards keep an input to short values and to two AES seeds or one TDES
// seed: a few seconds at most.
#include <cstdint>

#include "fuzz/fuzz_runner.h"
#include "fuzz/input_limits.h"
#include "harness/runners.h"

namespace {

using fipsval::fuzz::Count;
using fipsval::fuzz::Input;
using fipsval::fuzz::LongestHexRun;

// An AES seed begins after a "COUNT = " line and needs a "KEY = " line;
// 64 hex digits hold a 256-bit key, a data value of two blocks.
bool AffordableAes(Input request) {
  return Count(request, "KEY = ") <= 2 && LongestHexRun(request) <= 64;
}

// A TDES seed is three lines holding "KEY", so five allow one seed; 16 hex
// digits hold one key and a data value of one block.
bool AffordableTdes(Input request) {
  return Count(request, "KEY") <= 5 && LongestHexRun(request) <= 16;
}

constexpr fipsval::fuzz::Runner kRunners[] = {
    {"CBCMCT128", fipsval::test_aes_cbc_mct_from_file, AffordableAes},
    {"ECBMCT128", fipsval::test_aes_ecb_mct_from_file, AffordableAes},
    {"TCBCMonte3", fipsval::test_3des_tcbc_mct_from_file, AffordableTdes},
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fipsval::fuzz::EnterSandbox();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  return fipsval::fuzz::RunSelected(kRunners, data, size);
}
