// The CTR_DRBG runner on hostile request files. Its ioctl on /dev/urandom
// reaches the host program's user-space stand-in of the driver where the
// kernel does not answer it, as in the unit tests. The first byte is
// ignored (one runner), so that the seeds share the other targets' layout.
#include <cstdarg>
#include <cstdint>

#include "fuzz/fuzz_runner.h"
#include "harness/runners.h"
#include "host/core/drbg_standin.h"

// The host program's interposer, so that the library's ioctl reaches the
// stand-in.
extern "C" int ioctl(int fd, unsigned long request, ...) noexcept {
  va_list args;
  va_start(args, request);
  void* const arg = va_arg(args, void*);
  va_end(args);
  return fipsval::InterposedIoctl(fd, request, arg);
}

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
