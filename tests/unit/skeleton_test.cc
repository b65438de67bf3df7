#include <gtest/gtest.h>

#include "fipsval.h"
#include "tests/support/test_env.h"

namespace fipsval::testing {
namespace {

TEST(Skeleton, SandboxGivesPrivateVectorDirs) {
  ResetVectorDirs();
  WriteRequest("HMAC", "x");
  EXPECT_TRUE(FileExists("/tmp/req/HMAC.req"));
  EXPECT_TRUE(FileExists("/data/etc"));
}

}  // namespace
}  // namespace fipsval::testing
