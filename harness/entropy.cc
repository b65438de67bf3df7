// Raw entropy-source samples for the entropy assessment: the host's source
// is read through fips_read_entropy and each sample is written as one line
// of hex text to "/tmp/resp/entropy_samples".
#include <array>
#include <cstdint>
#include <cstdio>
#include <string_view>

#include "fipsval.h"
#include "harness/runner_io.h"
#include "harness/runners.h"

namespace fipsval {
namespace {

constexpr int kSampleSize = 640;
constexpr std::size_t kTextSize = 8192;
static_assert(2 * kSampleSize + 1 <= kTextSize);

}  // namespace

int WriteEntropySamples(std::FILE* out, int count) {
  // The label says "Min-Entropy Total" but the value is the sample count.
  std::array<char, kTextSize> text;
  const int n = std::snprintf(text.data(), text.size(), "%d", count);
  if (!WriteChecked(out, "Min-Entropy Total = ",
                    "Problem writing rnd tag to rsp file") ||
      !WriteChecked(out, std::string_view(text.data(), n),
                    "Problem writing count to rsp file") ||
      !WriteChecked(out, "\r\n", kEolError)) {
    return -1;
  }
  if (count <= 0) return -1;

  std::array<uint8_t, kSampleSize> sample;
  int result = -1;
  for (int i = 0; i < count; ++i) {
    result = fips_read_entropy(sample.data(), kSampleSize);
    if (result < 0) {
      Fail("Problem reading entropy token");
      return result;
    }
    fips_tv_convert_to_asc(sample.data(), kSampleSize, text.data());
    if (!WriteChecked(out, text.data(),
                      "Problem writing entropy to rsp file") ||
        !WriteChecked(out, "\r\n", kEolError)) {
      return result;
    }
  }
  return result;
}

}  // namespace fipsval

// Returns the last fips_read_entropy result on success. Failures before the
// first sample give -1 and a failing read its own result, but a failed
// write inside the loop also gives the last read result: only the printed
// message tells it apart from success. Samples that cannot be stored when
// the file is closed give -1.
int fips_tv_get_drbg_entropy_source(int count) {
  char path[256];
  std::snprintf(path, sizeof path, "%s/%s", FIPSVAL_RESPONSE_DIR,
                "entropy_samples");
  std::FILE* const out = std::fopen(path, "w");
  if (!out) {
    std::printf("Couldn't open %s\n", path);
    return -1;
  }
  const int result = fipsval::WriteEntropySamples(out, count);
  if (!fipsval::CloseChecked(out, "Problem writing entropy to rsp file") &&
      result >= 0) {
    return -1;
  }
  return result;
}
