// The hash and MAC message runners on hostile request files. First byte:
// 0 SHA-1 messages, 1 SHA-256 messages, 2 HMAC.
#include <cstdint>

#include "fuzz/fuzz_runner.h"
#include "harness/runners.h"

namespace {

constexpr fipsval::fuzz::Runner kRunners[] = {
    {"SHA1LongMsg", fipsval::test_sha1_from_file},
    {"SHA256LongMsg", fipsval::test_sha256_from_file},
    {"HMAC", fipsval::test_hmac_from_file},
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fipsval::fuzz::EnterSandbox();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  return fipsval::fuzz::RunSelected(kRunners, data, size);
}
