// The reference host's noise-source health tests.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "host/core/entropy_source.h"

namespace fipsval::testing {
namespace {

std::vector<uint8_t> Random(std::size_t n) {
  std::mt19937 rng(12345);
  std::vector<uint8_t> v(n);
  for (auto& b : v) b = static_cast<uint8_t>(rng());
  return v;
}

TEST(HealthTests, RandomSamplesPass) {
  EXPECT_TRUE(host::RunHealthTests(Random(8192)).ok);
}

TEST(HealthTests, RepetitionCountCatchesARunOfSevenButNotSix) {
  auto samples = Random(4096);
  std::fill(samples.begin() + 100, samples.begin() + 106, 0x42);
  samples[99] = 0x41;
  samples[106] = 0x43;
  EXPECT_TRUE(host::RunHealthTests(samples).ok);
  samples[106] = 0x42;
  const auto result = host::RunHealthTests(samples);
  EXPECT_FALSE(result.ok);
  EXPECT_NE(result.failure.find("repetition count"), std::string::npos);
}

TEST(HealthTests, AdaptiveProportionCatchesABiasedWindow) {
  auto samples = Random(2048);
  // Every other sample equal to the window's first: no long runs, but far
  // too frequent.
  for (std::size_t i = 0; i < 1024; i += 2) samples[i] = samples[0];
  for (std::size_t i = 1; i < 1024; i += 2) {
    if (samples[i] == samples[0]) samples[i] ^= 1;
  }
  const auto result = host::RunHealthTests(samples);
  EXPECT_FALSE(result.ok);
  EXPECT_NE(result.failure.find("adaptive proportion"), std::string::npos);
}

TEST(RngSelfTest, PassesOnTheMachineSourceAndFailsWhenForced) {
  EXPECT_EQ(host::RngSelfTest(host::EntropySource::kUrandom, 0), 1);
  EXPECT_EQ(host::RngSelfTest(host::EntropySource::kUrandom, 32), 0);
  if (host::CpuHasRdrand()) {
    EXPECT_EQ(host::RngSelfTest(host::EntropySource::kRdrand, 0), 1);
  }
}

}  // namespace
}  // namespace fipsval::testing
