// Entropy-sample export: the file layout, the return values, a failing
// source, and a missing or full response directory.
#include <gtest/gtest.h>

#include <cstdlib>
#include <initializer_list>
#include <string>
#include <vector>

#include "fipsval.h"
#include "tests/support/host_doubles.h"
#include "tests/support/test_env.h"

namespace fipsval::testing {
namespace {

const char kPath[] = "/tmp/resp/entropy_samples";

struct Result {
  int value;
  std::string printed;
  std::string file;
};

class Entropy : public ::testing::Test {
 protected:
  void SetUp() override {
    ResetVectorDirs();
    ResetHost();
  }

  Result Export(int count) {
    const int fds = OpenDescriptorCount();
    Result r{0, "", ""};
    r.printed = CaptureStdout(
        [&] { r.value = fips_tv_get_drbg_entropy_source(count); });
    EXPECT_EQ(OpenDescriptorCount(), fds) << "samples file left open";
    r.file = ReadFile(kPath);
    return r;
  }
};

// The hex line of a sample filled with `byte`.
std::string SampleLine(unsigned char byte) {
  std::vector<unsigned char> sample(640, byte);
  std::string hex(1280, '\0');
  fips_tv_convert_to_asc(sample.data(), 640, hex.data());
  return hex + "\r\n";
}

TEST_F(Entropy, WritesTheCountThenOneHexLinePerSample) {
  int call = 0;
  Host().read_entropy = [&](unsigned char* buf, int len) {
    std::fill(buf, buf + len, static_cast<unsigned char>(0xa0 + call++));
    return len;
  };
  const Result r = Export(3);
  EXPECT_EQ(r.value, 640);
  EXPECT_EQ(r.printed, "");
  EXPECT_EQ(r.file, "Min-Entropy Total = 3\r\n" + SampleLine(0xa0) +
                        SampleLine(0xa1) + SampleLine(0xa2));
  EXPECT_EQ(Host().entropy_lengths, (std::vector<int>{640, 640, 640}));
}

TEST_F(Entropy, PassesTheSourceResultThroughAndUsesTheWholeBuffer) {
  Host().read_entropy = [](unsigned char* buf, int len) {
    std::fill(buf, buf + len, 0x5c);
    return 0;
  };
  const Result r = Export(1);
  EXPECT_EQ(r.value, 0);
  EXPECT_EQ(r.file, "Min-Entropy Total = 1\r\n" + SampleLine(0x5c));
}

TEST_F(Entropy, CountOfZeroOrLessWritesOnlyTheHeader) {
  for (int count : {0, -2}) {
    SCOPED_TRACE(count);
    const Result r = Export(count);
    EXPECT_EQ(r.value, -1);
    EXPECT_EQ(r.printed, "");
    EXPECT_EQ(r.file, "Min-Entropy Total = " + std::to_string(count) + "\r\n");
  }
  EXPECT_TRUE(Host().entropy_lengths.empty());
}

TEST_F(Entropy, FailingSourceEndsWithItsResultKeepingEarlierSamples) {
  int call = 0;
  Host().read_entropy = [&](unsigned char* buf, int len) {
    if (++call == 2) return -5;
    std::fill(buf, buf + len, 0x11);
    return len;
  };
  const Result r = Export(4);
  EXPECT_EQ(r.value, -5);
  EXPECT_EQ(r.printed, "Problem reading entropy token\n");
  EXPECT_EQ(r.file, "Min-Entropy Total = 4\r\n" + SampleLine(0x11));
  EXPECT_EQ(call, 2);
}

TEST_F(Entropy, MissingResponseDirPrintsThePath) {
  ASSERT_EQ(std::system("rmdir /tmp/resp"), 0);
  const Result r = Export(3);
  EXPECT_EQ(r.value, -1);
  EXPECT_EQ(r.printed, "Couldn't open /tmp/resp/entropy_samples\n");
  EXPECT_TRUE(Host().entropy_lengths.empty());
}

TEST_F(Entropy, FullDiskInsideTheLoopReturnsTheLastReadResult) {
  // Only the message tells this failure from success.
  MountTinyResponseDir(4096);
  const Result r = Export(10);
  EXPECT_EQ(r.value, 640);
  EXPECT_TRUE(OneOf(r.printed, {"Problem writing entropy to rsp file\n",
                                "Problem writing EOL to rsp file\n"}))
      << r.printed;
  EXPECT_LT(Host().entropy_lengths.size(), 10u);
  EXPECT_LE(r.file.size(), 4096u);
}

}  // namespace
}  // namespace fipsval::testing
