// The SHA Monte Carlo runners on hostile request files. First byte: 0 SHA-1,
// 1 SHA-256. A request holds one seed whatever it says (100 000 digests,
// well under a second), so no guard is needed.
#include <cstdint>

#include "fuzz/fuzz_runner.h"
#include "harness/runners.h"

namespace {

constexpr fipsval::fuzz::Runner kRunners[] = {
    {"SHA1Monte", fipsval::test_sha1_mct_from_file},
    {"SHA256Monte", fipsval::test_sha256_mct_from_file},
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fipsval::fuzz::EnterSandbox();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  return fipsval::fuzz::RunSelected(kRunners, data, size);
}
