// Raw entropy-source samples for the entropy assessment: the host's source
// is read through fips_read_entropy and each sample is written as one line
// of hex text to "/tmp/resp/entropy_samples".
#include <array>
#include <cstdint>
#include <cstdio>
#include <string_view>

#include "fipsval.h"
#include "harness/runner_io.h"

namespace fipsval {
namespace {

constexpr int kSampleSize = 640;
constexpr std::size_t kTextSize = 8192;
static_assert(2 * kSampleSize + 1 <= kTextSize);

}  // namespace
}  // namespace fipsval

using fipsval::Fail;
using fipsval::WriteChecked;

// Returns the last fips_read_entropy result on success. Failures before the
// first sample give -1 and a failing read its own result, but a failed
// write inside the loop also gives the last read result: only the printed
// message tells it apart from success.
int fips_tv_get_drbg_entropy_source(int count) {
  char path[256];
  std::snprintf(path, sizeof path, "%s/%s", fipsval::kResponseDir,
                "entropy_samples");
  const fipsval::UniqueFile out(std::fopen(path, "w"));
  if (!out) {
    std::printf("Couldn't open %s\n", path);
    return -1;
  }

  // The label says "Min-Entropy Total" but the value is the sample count.
  std::array<char, fipsval::kTextSize> text;
  const int n = std::snprintf(text.data(), text.size(), "%d", count);
  if (!WriteChecked(out.get(), "Min-Entropy Total = ",
                    "Problem writing rnd tag to rsp file") ||
      !WriteChecked(out.get(), std::string_view(text.data(), n),
                    "Problem writing count to rsp file") ||
      !WriteChecked(out.get(), "\r\n", "Problem writing EOL to rsp file")) {
    return -1;
  }
  if (count <= 0) return -1;

  std::array<uint8_t, fipsval::kSampleSize> sample;
  int result = -1;
  for (int i = 0; i < count; ++i) {
    result = fips_read_entropy(sample.data(), fipsval::kSampleSize);
    if (result < 0) {
      Fail("Problem reading entropy token");
      return result;
    }
    if (!fips_tv_convert_to_asc(sample.data(), fipsval::kSampleSize,
                                text.data())) {
      Fail("Error converting rng to ascii");
      return result;
    }
    if (!WriteChecked(out.get(), text.data(),
                      "Problem writing entropy to rsp file") ||
        !WriteChecked(out.get(), "\r\n", "Problem writing EOL to rsp file")) {
      return result;
    }
  }
  return result;
}
