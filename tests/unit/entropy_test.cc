// Entropy-sample export: the file layout, the return values, a failing
// source, and a short write at each write of the export.
#include <gtest/gtest.h>

#include "fipsval.h"
#include "harness/runners.h"
#include "tests/support/host_doubles.h"
#include "tests/support/test_env.h"

namespace fipsval::testing {
namespace {

// The source's call n (from 0) fills the sample with 0xa0 + n and returns
// `result`, except call `fails_at`, which returns -5.
void Source(int result, int fails_at = -1) {
  Host().read_entropy = [=, n = 0](unsigned char* buf, int len) mutable {
    if (n == fails_at) return -5;
    std::fill(buf, buf + len, static_cast<unsigned char>(0xa0 + n++));
    return result;
  };
}

// The export's result and what it printed; into `out` when given.
std::pair<int, std::string> Export(int count, std::FILE* out = nullptr) {
  int v = 0;
  std::string printed = CaptureStdout(
      [&] { v = out ? WriteEntropySamples(out, count) : fips_tv_get_drbg_entropy_source(count); });
  return {v, printed};
}
std::string Samples(int count, int lines) {
  std::string text = "Min-Entropy Total = " + std::to_string(count) + "\r\n";
  for (int n = 0; n < lines; ++n) text += Hex(std::vector<uint8_t>(640, 0xa0 + n)) + "\r\n";
  return text;
}

// The source's result passes through; a count of 0 or less writes the
// header alone.
TEST(Entropy, WritesTheCountThenOneHexLinePerSample) {
  const struct {
    int count, result, fails_at, value, lines, reads;
    std::string printed;
  } cases[] = {{3, 640, -1, 640, 3, 3, ""},  {1, 0, -1, 0, 1, 1, ""},
               {0, 640, -1, -1, 0, 0, ""},   {-2, 640, -1, -1, 0, 0, ""},
               {4, 640, 1, -5, 1, 2, "Problem reading entropy token\n"}};
  for (const auto& c : cases) {
    ResetVectorDirs();
    ResetHost();
    Source(c.result, c.fails_at);
    const int fds = OpenDescriptorCount();
    EXPECT_EQ(Export(c.count), std::make_pair(c.value, c.printed));
    EXPECT_EQ(ReadFile("/tmp/resp/entropy_samples"), Samples(c.count, c.lines)) << c.count;
    EXPECT_EQ(Host().entropy_lengths, std::vector<int>(c.reads, 640)) << c.count;
    EXPECT_EQ(OpenDescriptorCount(), fds) << "samples file left open";
  }
}

// Before the first sample a short write gives -1; inside the loop it gives
// the last read result, and only the message tells it from success.
TEST(Entropy, ShortWriteAtEachWriteEndsWithItsMessage) {
  const struct {
    std::size_t room;
    int value;
    std::string printed;
  } cases[] = {{10, -1, "Problem writing rnd tag to rsp file\n"},
               {20, -1, "Problem writing count to rsp file\n"},
               {22, -1, "Problem writing EOL to rsp file\n"},
               {23 + 1000, 640, "Problem writing entropy to rsp file\n"},
               {23 + 1281, 640, "Problem writing EOL to rsp file\n"}};
  for (const auto& c : cases) {
    ResetHost();
    Source(640);
    std::string buf(c.room, '\0');
    std::FILE* out = fmemopen(buf.data(), buf.size(), "w");
    setvbuf(out, nullptr, _IONBF, 0);
    EXPECT_EQ(Export(3, out), std::make_pair(c.value, c.printed)) << c.room;
    std::fclose(out);
  }
}

TEST(Entropy, MissingOrFullResponseDirectory) {
  ResetVectorDirs();
  ResetHost();
  ASSERT_EQ(std::system("rmdir /tmp/resp"), 0);
  EXPECT_EQ(Export(3).second, "Couldn't open /tmp/resp/entropy_samples\n");
  EXPECT_EQ(Export(3).first, -1);
  EXPECT_TRUE(Host().entropy_lengths.empty());
  ResetVectorDirs();
  MountTinyResponseDir(4096);
  const auto [value, printed] = Export(10);
  EXPECT_EQ(value, 640);
  EXPECT_TRUE(OneOf(printed, {"Problem writing entropy to rsp file\n",
                              "Problem writing EOL to rsp file\n"})) << printed;
  EXPECT_LT(Host().entropy_lengths.size(), 10u);
}

}  // namespace
}  // namespace fipsval::testing
