#include "host/platform/entropy_source.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <vector>

#include "host/base/owners.h"

#if defined(__x86_64__)
#include <cpuid.h>
#endif

namespace fipsval::host {
namespace {

constexpr double kAssessedEntropy = 7.0;  // bits per 8-bit sample
constexpr double kAlphaLog2 = -40.0;      // false-alarm probability 2^-40
constexpr int kAptWindow = 1024;

bool ReadUrandom(std::span<uint8_t> out) {
  const UniqueFd fd(open("/dev/urandom", O_RDONLY | O_CLOEXEC));
  if (!fd) {
    std::fprintf(stderr, "fipsval: cannot open /dev/urandom: %s\n",
                 std::strerror(errno));
    return false;
  }
  std::size_t done = 0;
  while (done < out.size()) {
    const ssize_t n = read(fd.get(), out.data() + done, out.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      std::fprintf(stderr, "fipsval: cannot read /dev/urandom: %s\n",
                   n < 0 ? std::strerror(errno) : "end of file");
      return false;
    }
    done += static_cast<std::size_t>(n);
  }
  return true;
}

#if defined(__x86_64__)
bool HasRdrand() {
  unsigned a, b, c, d;
  return __get_cpuid(1, &a, &b, &c, &d) && (c & bit_RDRND);
}

__attribute__((target("rdrnd"))) bool ReadRdrand(std::span<uint8_t> out) {
  for (std::size_t i = 0; i < out.size(); i += 8) {
    unsigned long long word = 0;
    int tries = 10;
    while (!__builtin_ia32_rdrand64_step(&word)) {
      if (--tries == 0) {
        std::fprintf(stderr, "fipsval: RDRAND returned no data\n");
        return false;
      }
    }
    std::memcpy(out.data() + i, &word, std::min<std::size_t>(8, out.size() - i));
  }
  return true;
}
#else
// RDRAND is an x86 instruction: other CPUs never have the source.
bool HasRdrand() { return false; }
bool ReadRdrand(std::span<uint8_t>) { return false; }
#endif

// Smallest c with P(X >= c) <= 2^-40 for X ~ Binomial(n, p).
int BinomialCutoff(int n, double p) {
  double tail = 0;
  for (int c = n; c >= 0; --c) {
    const double log_term = std::lgamma(n + 1.0) - std::lgamma(c + 1.0) -
                            std::lgamma(n - c + 1.0) + c * std::log(p) +
                            (n - c) * std::log1p(-p);
    tail += std::exp(log_term);
    if (tail > std::exp2(kAlphaLog2)) return c + 1;
  }
  return 0;
}

}  // namespace

bool CpuHasRdrand() { return HasRdrand(); }

bool ReadEntropy(EntropySource source, std::span<uint8_t> out) {
  if (source == EntropySource::kRdrand) {
    if (!CpuHasRdrand()) {
      std::fprintf(stderr, "fipsval: RDRAND is not available on this CPU\n");
      return false;
    }
    return ReadRdrand(out);
  }
  return ReadUrandom(out);
}

Status RunHealthTests(std::span<const uint8_t> samples) {
  // Repetition count test: C = 1 + ceil(-log2(alpha) / H).
  const int rct_cutoff =
      1 + static_cast<int>(std::ceil(-kAlphaLog2 / kAssessedEntropy));
  int run = 1;
  for (std::size_t i = 1; i < samples.size(); ++i) {
    run = samples[i] == samples[i - 1] ? run + 1 : 1;
    if (run >= rct_cutoff) {
      return Refused("repetition count test: " + std::to_string(run) +
                         " identical samples at offset " + std::to_string(i));
    }
  }
  // Adaptive proportion test over consecutive windows.
  static const int apt_cutoff =
      BinomialCutoff(kAptWindow, std::exp2(-kAssessedEntropy));
  for (std::size_t start = 0; start + kAptWindow <= samples.size();
       start += kAptWindow) {
    const auto window = samples.subspan(start, kAptWindow);
    const int count = static_cast<int>(
        std::count(window.begin(), window.end(), window.front()));
    if (count >= apt_cutoff) {
      return Refused("adaptive proportion test: a sample value occurs " +
                         std::to_string(count) + " times in a window of " +
                         std::to_string(kAptWindow));
    }
  }
  return Ok();
}

int RngSelfTest(EntropySource source, int force) {
  std::vector<uint8_t> block(4 * kAptWindow);
  if (force) {
    std::fill(block.begin(), block.end(), 0x5a);  // a stuck source
  } else if (!ReadEntropy(source, block)) {
    std::fprintf(stderr, "fipsval: RNG test: no samples from the source\n");
    return 0;
  }
  const Status health = RunHealthTests(block);
  if (!health.ok()) {
    std::fprintf(stderr, "fipsval: RNG test: %s%s\n", health.message().c_str(),
                 force ? " (forced failure)" : "");
    return 0;
  }
  return 1;
}

}  // namespace fipsval::host
