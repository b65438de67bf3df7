// What the runner fuzz targets share: a private /tmp to work in, the fuzz
// input written as a request file, and one runner of a family picked by the
// input's first byte.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace fipsval::fuzz {

using Input = std::span<const uint8_t>;

// For LLVMFuzzerInitialize. Refuses to go on (exit 1, with a message) unless
// the process runs inside sandbox_run, whose /tmp is private: the runners
// work on the fixed "/tmp/req" and "/tmp/resp", which must never be the
// machine's own. Creates both directories and sends standard output to
// /dev/null, so that the runners' messages do not bury libFuzzer's.
void EnterSandbox();

// Standard output to /dev/null only, for targets that need no files.
void SilenceStdout();

struct Runner {
  const char* name;  // request base name, as the suite run operation uses
  void (*run)(const char* name);
  // Cost guard, applied to the request bytes: false for a request that
  // would take too long for a fuzzing run (large keys, many Monte Carlo
  // seeds). nullptr accepts every request.
  bool (*affordable)(Input request) = nullptr;
};

// Inputs longer than this are skipped: libFuzzer's -max_len keeps below it,
// and a reproducer run on a stray large file stays quick.
inline constexpr std::size_t kMaxRequest = 64 * 1024;

// The first byte selects runners[byte % size]; the rest of the input becomes
// "/tmp/req/<name>.req" and the runner is called on it. Aborts when the
// runner leaves a file descriptor open. Returns 0 for libFuzzer.
int RunSelected(std::span<const Runner> runners, const uint8_t* data,
                std::size_t size);

}  // namespace fipsval::fuzz
