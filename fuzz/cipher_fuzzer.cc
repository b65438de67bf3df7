// The block-cipher known-answer and multi-message runners on hostile
// request files. First byte: 0 AES CBC (both engines), 1 AES ECB, 2 TDES
// CBC.
#include <cstdint>

#include "fuzz/fuzz_runner.h"
#include "harness/runners.h"

namespace {

constexpr fipsval::fuzz::Runner kRunners[] = {
    {"CBCMMT128", fipsval::test_aes_cbc_from_file},
    {"ECBMMT128", fipsval::test_aes_ecb_from_file},
    {"TCBCMMT3", fipsval::test_3des_tcbc_from_file},
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fipsval::fuzz::EnterSandbox();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  return fipsval::fuzz::RunSelected(kRunners, data, size);
}
