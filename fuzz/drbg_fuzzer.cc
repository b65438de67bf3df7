// The CTR_DRBG runner on hostile request files. Its ioctl on /dev/urandom
// reaches the host program's user-space stand-in of the driver where the
// kernel does not answer it: the target links the host's ioctl interposer,
// as the unit tests do. The first byte is ignored (one runner), so that the
// seeds share the other targets' layout.
#include <cstdint>

#include "fuzz/fuzz_runner.h"
#include "harness/runners.h"

namespace {

constexpr fipsval::fuzz::Runner kRunners[] = {
    {"CTR_DRBG", fipsval::test_rbg_from_file},
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fipsval::fuzz::EnterSandbox();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  return fipsval::fuzz::RunSelected(kRunners, data, size);
}
