// TLS key-derivation runner: answers the master secret and key block of a
// TLS KDF request with the PRF of TLS 1.0/1.1 (RFC 2246) or of TLS 1.2
// (RFC 5246) over SHA-256, SHA-384 or SHA-512.
#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <span>
#include <string_view>
#include <vector>

#include "fipsval.h"
#include "harness/runner_io.h"
#include "harness/runners.h"

namespace fipsval {
namespace {

constexpr std::size_t kMaxSecret = 1024;
constexpr std::size_t kMaxRandom = 512;
// The key block is refused above this, so that it and its hex text fit the
// runner's buffers; the validation files ask for 104 and 128 bytes.
constexpr int kMaxKeyBlock = 1024;

using Bytes = std::vector<uint8_t>;

// P_hash of the TLS standards: A(1) = HMAC(secret, seed), then output
// blocks HMAC(secret, A(i) || seed) with A(i+1) = HMAC(secret, A(i)), cut
// to out_len bytes. An out_len below 1 computes A(1) only.
int PHash(const EVP_MD* md, const uint8_t* secret, int secret_len,
          const uint8_t* seed, int seed_len, uint8_t* out, int out_len) {
  const int d = EVP_MD_size(md);
  // A(i) sits in front of the seed, so each block is one HMAC call.
  Bytes a_seed(static_cast<std::size_t>(d) + static_cast<std::size_t>(seed_len));
  std::copy_n(seed, seed_len, a_seed.begin() + d);
  std::array<uint8_t, EVP_MAX_MD_SIZE> block;
  unsigned n = 0;
  HMAC(md, secret, secret_len, seed, static_cast<std::size_t>(seed_len),
       a_seed.data(), &n);
  for (int done = 0; done < out_len;) {
    HMAC(md, secret, secret_len, a_seed.data(), a_seed.size(), block.data(),
         &n);
    const int take = std::min(d, out_len - done);
    std::copy_n(block.begin(), take, out + done);
    done += take;
    if (done < out_len) {
      HMAC(md, secret, secret_len, a_seed.data(), static_cast<std::size_t>(d),
           block.data(), &n);
      std::copy_n(block.begin(), d, a_seed.begin());
    }
  }
  return 1;
}

// label || seed1 || seed2, the label without its terminator.
Bytes LabelAndSeed(const char* label, const uint8_t* seed1, int seed1_len,
                   const uint8_t* seed2, int seed2_len) {
  Bytes s(label, label + std::strlen(label));
  s.insert(s.end(), seed1, seed1 + seed1_len);
  s.insert(s.end(), seed2, seed2 + seed2_len);
  return s;
}

// TLS 1.0/1.1 (selector 20): P_MD5(S1, seed) XOR P_SHA1(S2, seed). S1 and
// S2 are the two halves of the secret rounded down, so an odd secret's last
// byte takes no part (RFC 2246 would share the middle byte); answers depend
// on this. TLS 1.2 (selectors 32, 48, 64, the digest length):
// P_<hash>(secret, label || seed1 || seed2) with SHA-256, SHA-384, SHA-512.
// Returns 0 for an unknown selector.
int prf_hash(int selector, const uint8_t* secret, int secret_len,
             const char* label, const uint8_t* seed1, int seed1_len,
             const uint8_t* seed2, int seed2_len, uint8_t* out, int out_len) {
  const Bytes seed = LabelAndSeed(label, seed1, seed1_len, seed2, seed2_len);
  const int seed_len = static_cast<int>(seed.size());
  const EVP_MD* md = selector == 32   ? EVP_sha256()
                     : selector == 48 ? EVP_sha384()
                     : selector == 64 ? EVP_sha512()
                                      : nullptr;
  if (md) {
    return PHash(md, secret, secret_len, seed.data(), seed_len, out, out_len);
  }
  if (selector != 20) return 0;
  const int half = secret_len / 2;
  Bytes md5_part(static_cast<std::size_t>(std::max(out_len, 0)));
  Bytes sha1_part(md5_part.size());
  PHash(EVP_md5(), secret, half, seed.data(), seed_len, md5_part.data(),
        out_len);
  PHash(EVP_sha1(), secret + half, half, seed.data(), seed_len,
        sha1_part.data(), out_len);
  for (std::size_t i = 0; i < md5_part.size(); ++i) {
    out[i] = md5_part[i] ^ sha1_part[i];
  }
  return 1;
}

struct Marker {
  std::string_view text;
  int prf;
};

constexpr Marker kMarkers[] = {
    {"[TLS 1.0/1.1]", 20},
    {"[TLS 1.2, SHA-256]", 32},
    {"[TLS 1.2, SHA-384]", 48},
    {"[TLS 1.2, SHA-512]", 64},
};

// The PRF a line selects when it begins with a section marker, else 0.
int MarkerPrf(const char* line) {
  const std::string_view l(line);
  for (const Marker& m : kMarkers) {
    if (l.starts_with(m.text)) return m.prf;
  }
  return 0;
}

struct Section {
  int prf = 0;
  int key_block_len = 0;  // bytes
};

// Reads the two length lines that follow a marker. The pre-master-secret
// length is only copied: each case's secret carries its own length.
bool ReadSectionHeader(const Session& s, Section& section) {
  if (!s.Length("[pre-master secret length = ")) return false;
  const auto key_block_bits = s.Length("[key block length = ");
  if (!key_block_bits) return false;
  section.key_block_len = *key_block_bits / 8;
  if (section.key_block_len > kMaxKeyBlock) {
    std::printf("The key block length is over limit %d(%d)\n",
                section.key_block_len, kMaxKeyBlock);
    return false;
  }
  return true;
}

// The byte count of the next hex field line, or 0 (reported) when it is
// missing, empty or longer than the field.
int ParseField(const Session& s, const char* tag, std::span<uint8_t> field) {
  const auto n = ParseHexField(s, tag, field);
  if (n && *n == 0) std::printf("Problem parse %s\n", tag);
  return n ? static_cast<int>(*n) : 0;
}

constexpr AnswerMessages kMasterSecretMessages = {
    "Error converting master-secret to ascii",
    "Problem writing master-secret tag to rsp file",
    "Problem writing master-secret to rsp file"};
// The key block's value reuses the master-secret message.
constexpr AnswerMessages kKeyBlockMessages = {
    "Error converting key-block to ascii",
    "Problem writing key-block tag to rsp file",
    "Problem writing master-secret to rsp file"};

// One test case, after its COUNT line. Returns false when the runner must
// stop.
bool AnswerCase(const Session& s, const Section& section) {
  std::array<uint8_t, kMaxSecret> secret{};
  // server hello, client hello, server random, client random
  std::array<std::array<uint8_t, kMaxRandom>, 4> random{};
  std::array<int, 4> random_len{};
  static constexpr const char* kRandomTags[] = {
      "serverHello_random = ", "clientHello_random = ", "server_random = ",
      "client_random = "};
  // The master secret is as long as the pre-master secret, not a fixed 48.
  const int secret_len = ParseField(s, "pre_master_secret = ", secret);
  if (!secret_len) return false;
  for (std::size_t i = 0; i < random.size(); ++i) {
    random_len[i] = ParseField(s, kRandomTags[i], random[i]);
    if (!random_len[i]) return false;
  }
  std::memset(s.line(), 0, s.buffer().size());

  static_assert(kMaxKeyBlock <= static_cast<int>(kMaxSecret));
  std::array<uint8_t, kMaxSecret> derived{};
  HexText<kMaxSecret> text{};
  // The PRF's result is not examined: it fails only for an unknown
  // selector, and the markers give known ones.
  prf_hash(section.prf, secret.data(), secret_len, "master secret",
           random[1].data(), random_len[1], random[0].data(), random_len[0],
           derived.data(), secret_len);
  std::copy_n(derived.begin(), secret_len, secret.begin());
  if (!s.Answer("master_secret = ", secret.data(), secret_len,
                kMasterSecretMessages, text)) {
    return false;
  }
  prf_hash(section.prf, secret.data(), secret_len, "key expansion",
           random[2].data(), random_len[2], random[3].data(), random_len[3],
           derived.data(), section.key_block_len);
  return s.Answer("key_block = ", derived.data(), section.key_block_len,
                  kKeyBlockMessages, text);
}

}  // namespace

void test_tls_from_stream(std::FILE* req, std::FILE* rsp) {
  const BufferedSession<4096> s(req, rsp);
  Section section;
  RunKdfSections(
      s, MarkerPrf,
      [&](int prf) {
        section.prf = prf;
        return ReadSectionHeader(s, section);
      },
      [&] { return AnswerCase(s, section); });
}

}  // namespace fipsval
