// The SHAVS message and Monte Carlo runners, written once for every digest
// (suites/sha_runner.cc); suites/sha1.cc and sha256.cc supply the digest.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace fipsval {

struct ShaDigest {
  std::size_t length;  // digest and seed length, at most 32
  const char* marker;  // the section line, "[L = 20]"
  int (*hash)(const uint8_t* msg, std::size_t len, uint8_t* md);
};

// Short and long message tests: one "MD = " answer after each Msg line.
void RunShaMessages(const ShaDigest& digest, std::FILE* req, std::FILE* rsp);

// Monte Carlo test: 100 checkpoints, each the last of 1000 chained digests
// MD[i] = H(MD[i-3] || MD[i-2] || MD[i-1]) with MD[0..2] = the seed.
void RunShaMonteCarlo(const ShaDigest& digest, std::FILE* req,
                      std::FILE* rsp);

}  // namespace fipsval
