// SHA-1 and SHA-256 runners: the SHAVS message and Monte Carlo tests,
// written once over OpenSSL's low-level digest of each size.
#include <openssl/sha.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "harness/runner_io.h"
#include "harness/runners.h"

namespace fipsval {
namespace {

constexpr std::size_t kMaxDigest = 32;

struct ShaDigest {
  std::size_t length;  // digest and seed length
  const char* marker;  // the section line, "[L = 20]"
  int (*hash)(const uint8_t* msg, std::size_t len, uint8_t* md);
};

constexpr ShaDigest kSha1 = {
    SHA_DIGEST_LENGTH, "[L = 20]",
    [](const uint8_t* msg, std::size_t len, uint8_t* md) -> int {
      SHA_CTX ctx;
      return SHA1_Init(&ctx) && SHA1_Update(&ctx, msg, len) &&
             SHA1_Final(md, &ctx);
    }};
constexpr ShaDigest kSha256 = {
    SHA256_DIGEST_LENGTH, "[L = 32]",
    [](const uint8_t* msg, std::size_t len, uint8_t* md) -> int {
      SHA256_CTX ctx;
      return SHA256_Init(&ctx) && SHA256_Update(&ctx, msg, len) &&
             SHA256_Final(md, &ctx);
    }};
constexpr int kMonteCheckpoints = 100;
constexpr int kMonteIterations = 1000;

constexpr AnswerMessages kDigestMessages = {
    "Error converting digest to ascii",
    "Problem writing digest tag to rsp file",
    "Problem writing digest to rsp file",
};

// Short and long message tests: one "MD = " answer after each Msg line.
// The tags are searched anywhere in the line, but the values are read at a
// fixed index, as if the tag began the line: a line with leading text is
// read wrongly rather than refused.
void RunShaMessages(const ShaDigest& digest, std::FILE* req, std::FILE* rsp) {
  // A long-message line holds up to ~10 KB of message as hex; the message
  // buffer matches the line buffer, so any line's value fits it.
  constexpr int kLineSize = 20000;
  const BufferedSession<kLineSize> s(req, rsp);
  std::array<uint8_t, kLineSize> msg;
  if (!s.CopyUntil(digest.marker, "Never found encrypt marker")) return;

  while (s.Next()) {
    if (!s.Has("Len = ")) {
      if (!s.Copy()) return;
      continue;
    }
    // Whole bytes only; the division truncates toward zero.
    const int32_t declared = static_cast<int32_t>(s.Number("Len = ")) / 8;
    if (!s.Copy() || !s.ReadField("Msg = ", "Msg field not present")) return;
    const std::size_t extracted = s.Hex("Msg = ", msg.data(), msg.size());
    if (extracted == 0) {
      Fail("Error extracting msg");
      return;
    }
    // Cannot trigger while a line is no longer than the buffer; a guard
    // should the sizes ever part.
    if (extracted > msg.size()) {
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
    if (!s.Copy()) return;
    std::array<uint8_t, kMaxDigest> md;
    if (!digest.hash(msg.data(), static_cast<std::size_t>(declared),
                     md.data())) {
      Fail("Error hashing");
      return;
    }
    if (!s.Answer("MD = ", md.data(), static_cast<int>(digest.length),
                  kDigestMessages)) {
      return;
    }
  }
}

// Monte Carlo test: 100 checkpoints, each the last of 1000 chained digests
// MD[i] = H(MD[i-3] || MD[i-2] || MD[i-1]) with MD[0..2] = the seed.
void RunShaMonteCarlo(const ShaDigest& digest, std::FILE* req,
                      std::FILE* rsp) {
  const std::size_t n = digest.length;
  const BufferedSession<4096> s(req, rsp);
  if (!s.CopyUntil("Seed = ", "Never found seed marker", MarkerLine::kKept)) {
    return;
  }
  std::array<uint8_t, kMaxDigest> md;
  if (s.Hex("Seed = ", md.data(), n) != n) {
    Fail("Error extracting seed");
    return;
  }
  if (!s.Copy() || !s.WriteEol()) return;

  // Three consecutive slots: the oldest digest first.
  std::array<uint8_t, 3 * kMaxDigest> slots;
  for (int j = 0; j < kMonteCheckpoints; ++j) {
    std::memcpy(slots.data() + n, md.data(), n);
    std::memcpy(slots.data() + 2 * n, md.data(), n);
    for (int i = 0; i < kMonteIterations; ++i) {
      std::memmove(slots.data(), slots.data() + n, 2 * n);
      std::memcpy(slots.data() + 2 * n, md.data(), n);
      if (!digest.hash(slots.data(), 3 * n, md.data())) {
        Fail("Error hashing");
        return;
      }
    }
    if (!s.WriteNumber("COUNT = ", j, "Problem writing count tag to rsp file",
                       "Problem writing count to rsp file") ||
        !s.Answer("MD = ", md.data(), static_cast<int>(n), kDigestMessages) ||
        !s.WriteEol()) {
      return;
    }
  }
}

}  // namespace

void test_sha1_from_stream(std::FILE* req, std::FILE* rsp) {
  RunShaMessages(kSha1, req, rsp);
}
void test_sha1_mct_from_stream(std::FILE* req, std::FILE* rsp) {
  RunShaMonteCarlo(kSha1, req, rsp);
}
void test_sha256_from_stream(std::FILE* req, std::FILE* rsp) {
  RunShaMessages(kSha256, req, rsp);
}
void test_sha256_mct_from_stream(std::FILE* req, std::FILE* rsp) {
  RunShaMonteCarlo(kSha256, req, rsp);
}

}  // namespace fipsval
