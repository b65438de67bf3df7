// Placeholder until this runner is written: it only opens its files.
#include "harness/runner_io.h"
#include "harness/runners.h"

namespace fipsval {
void test_rsa_keygen_from_file(const char* name) { RunnerFiles files; files.Open(name); }
void test_rsa_keygen_kat_from_file(const char* name) { RunnerFiles files; files.Open(name); }
void test_rsa_keygen_rp_prime_from_file(const char* name) { RunnerFiles files; files.Open(name); }
}  // namespace fipsval
extern "C" const uint32_t exps = 65537;
