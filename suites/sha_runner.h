// The SHAVS message and Monte Carlo runners, written once for every digest.
// A suite file supplies a traits type:
//
//   struct Traits {
//     static constexpr std::size_t kDigestLen;  // digest and seed length
//     static constexpr char kMarker[];          // section line, "[L = 20]"
//     static int hash(const uint8_t* msg, std::size_t len, uint8_t* md);
//   };
//
// and instantiates RunMessages<Traits> / RunMonteCarlo<Traits>.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "harness/runner_io.h"

namespace fipsval::sha_runner {

inline constexpr int kMessageLineSize = 20000;
inline constexpr int kMonteLineSize = 4096;
inline constexpr int kMonteCheckpoints = 100;
inline constexpr int kMonteIterations = 1000;

// The tags are searched anywhere in the line, but the values are read at a
// fixed index, as if the tag began the line: a line with leading text is
// read wrongly rather than refused. The lines are at least as long as the
// tag found in them, so the fixed index is always inside the line.
inline int extract_len(const char* line, int32_t* len) {
  if (!std::strstr(line, "Len = ")) return 0;
  *len = static_cast<int32_t>(std::strtol(line + 6, nullptr, 10));
  return 1;
}

// Stores at most `capacity` bytes; *len gets the full count the hex encodes.
inline int extract_msg(const char* line, uint8_t* msg, std::size_t capacity,
                       std::size_t* len) {
  if (!std::strstr(line, "Msg = ")) return 0;
  *len = DecodeHex(line + 6, msg, capacity);
  return *len != 0;
}

template <class Traits>
int extract_seed(const char* line, uint8_t* seed) {
  if (!std::strstr(line, "Seed = ")) return 0;
  return DecodeHex(line + 7, seed, Traits::kDigestLen) == Traits::kDigestLen;
}

inline const AnswerMessages kDigestMessages = {
    "Error converting digest to ascii",
    "Problem writing digest tag to rsp file",
    "Problem writing digest to rsp file",
};

// Short and long message tests: one "MD = " answer after each Msg line.
template <class Traits>
void RunMessages(const char* name) {
  RunnerFiles files;
  if (!files.Open(name)) return;

  // A long-message line holds up to ~10 KB of message as hex; the message
  // buffer matches the line buffer, so any line's value fits it.
  char line[kMessageLineSize] = {};
  uint8_t msg[kMessageLineSize];

  for (;;) {
    if (!files.ReadLine(line, sizeof line)) {
      Fail("Never found encrypt marker");
      return;
    }
    if (!files.Copy(line)) return;
    if (std::strstr(line, Traits::kMarker)) break;
  }

  while (files.ReadLine(line, sizeof line)) {
    if (!std::strstr(line, "Len = ")) {
      if (!files.Copy(line)) return;
      continue;
    }
    int32_t bits = 0;
    if (!extract_len(line, &bits)) {
      Fail("Error extracting msg len");
      return;
    }
    // Whole bytes only; the division truncates toward zero.
    const int32_t declared = bits / 8;
    if (!files.Copy(line)) return;

    if (!files.ReadLine(line, sizeof line) || !std::strstr(line, "Msg = ")) {
      Fail("Msg field not present");
      return;
    }
    std::size_t extracted = 0;
    if (!extract_msg(line, msg, sizeof msg, &extracted)) {
      Fail("Error extracting msg");
      return;
    }
    // Cannot trigger while a line is no longer than the buffer; a guard
    // should the sizes ever part.
    if (extracted > sizeof msg) {
      Fail("Msg field too long for the message buffer");
      return;
    }
    // A declared length of 0 comes with the placeholder message 00, which
    // is not hashed.
    if (declared != 0 && static_cast<std::size_t>(declared) != extracted) {
      std::printf("Msg len mismatch (%d != %d)\n", declared,
                  static_cast<int>(extracted));
      return;
    }
    if (!files.Copy(line)) return;

    std::array<uint8_t, Traits::kDigestLen> md;
    if (!Traits::hash(msg, static_cast<std::size_t>(declared), md.data())) {
      Fail("Error hashing");
      return;
    }
    if (!WriteAnswer(files, "MD = ", md.data(), static_cast<int>(md.size()),
                     line, sizeof line, kDigestMessages)) {
      return;
    }
  }
}

// Monte Carlo test: 100 checkpoints, each the last of 1000 chained digests
// MD[i] = H(MD[i-3] || MD[i-2] || MD[i-1]) with MD[0..2] = the seed.
template <class Traits>
void RunMonteCarlo(const char* name) {
  constexpr std::size_t n = Traits::kDigestLen;
  RunnerFiles files;
  if (!files.Open(name)) return;

  char line[kMonteLineSize] = {};
  for (;;) {
    if (!files.ReadLine(line, sizeof line)) {
      Fail("Never found seed marker");
      return;
    }
    if (std::strstr(line, "Seed = ")) break;
    if (!files.Copy(line)) return;
  }

  std::array<uint8_t, n> md;
  if (!extract_seed<Traits>(line, md.data())) {
    Fail("Error extracting seed");
    return;
  }
  if (!files.Copy(line) || !files.WriteEol()) return;

  // Three consecutive slots: the oldest digest first.
  std::array<uint8_t, 3 * n> slots;
  for (int j = 0; j < kMonteCheckpoints; ++j) {
    std::memcpy(slots.data() + n, md.data(), n);
    std::memcpy(slots.data() + 2 * n, md.data(), n);
    for (int i = 0; i < kMonteIterations; ++i) {
      std::memmove(slots.data(), slots.data() + n, 2 * n);
      std::memcpy(slots.data() + 2 * n, md.data(), n);
      if (!Traits::hash(slots.data(), slots.size(), md.data())) {
        Fail("Error hashing");
        return;
      }
    }

    char count[16];
    const int count_len = std::snprintf(count, sizeof count, "%d", j);
    if (!files.Write("COUNT = ", "Problem writing count tag to rsp file") ||
        !files.Write({count, static_cast<std::size_t>(count_len)},
                     "Problem writing count to rsp file") ||
        !files.WriteEol() ||
        !WriteAnswer(files, "MD = ", md.data(), static_cast<int>(n), line,
                     sizeof line, kDigestMessages) ||
        !files.WriteEol()) {
      return;
    }
  }
}

}  // namespace fipsval::sha_runner
