// The key-derivation runners on hostile request files. First byte: 0 SSH
// KDF, 1 TLS PRF.
#include <cstdint>

#include "fuzz/fuzz_runner.h"
#include "harness/runners.h"

namespace {

constexpr fipsval::fuzz::Runner kRunners[] = {
    {"ssh", fipsval::test_ssh_from_file},
    {"tls", fipsval::test_tls_from_file},
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fipsval::fuzz::EnterSandbox();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  return fipsval::fuzz::RunSelected(kRunners, data, size);
}
