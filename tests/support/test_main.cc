// Test entry point: refuses to run outside sandbox_run, because the tests
// create and delete files under the library's fixed paths.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  if (!std::getenv("FIPSVAL_SANDBOX")) {
    std::fprintf(stderr,
                 "skipped: %s works on /tmp/req, /tmp/resp and /data/etc: "
                 "run it through sandbox_run (as ctest does)\n",
                 argv[0]);
    return 77;
  }
  return RUN_ALL_TESTS();
}
