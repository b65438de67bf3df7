// Placeholder until this runner is written: it only opens its files.
#include "harness/runner_io.h"
#include "harness/runners.h"

namespace fipsval {
void test_3des_tcbc_from_file(const char* name) { RunnerFiles files; files.Open(name); }
void test_3des_tcbc_mct_from_file(const char* name) { RunnerFiles files; files.Open(name); }
}  // namespace fipsval
