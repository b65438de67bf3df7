// The reference host's noise source and its health tests.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "host/base/status.h"
#include "host/platform/host_settings.h"

namespace fipsval::host {

// Fills out with fresh samples; false (with the reason on standard error)
// when the source fails. kRdrand uses the CPU's RDRAND instruction and
// fails where the CPU has none (every CPU but x86-64).
bool ReadEntropy(EntropySource source, std::span<uint8_t> out);
bool CpuHasRdrand();

// The two continuous health tests for a noise source with 8-bit samples,
// assessed at 7 bits of entropy per sample, with a false-alarm rate of
// 2^-40: the repetition count test and the adaptive proportion test
// (window 1024).
Status RunHealthTests(std::span<const uint8_t> samples);

// The RNG self-test: health tests over a fresh block from the source. A
// non-zero force replaces the block with a stuck source's output.
int RngSelfTest(EntropySource source, int force);

}  // namespace fipsval::host
