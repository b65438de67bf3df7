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
int p_hash(const EVP_MD* md, const uint8_t* secret, int secret_len,
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

int hmac_md5(const uint8_t* secret, int secret_len, const uint8_t* seed,
             int seed_len, uint8_t* out, int out_len) {
  return p_hash(EVP_md5(), secret, secret_len, seed, seed_len, out, out_len);
}
int hmac_sha1(const uint8_t* secret, int secret_len, const uint8_t* seed,
              int seed_len, uint8_t* out, int out_len) {
  return p_hash(EVP_sha1(), secret, secret_len, seed, seed_len, out, out_len);
}
int hmac_sha256(const uint8_t* secret, int secret_len, const uint8_t* seed,
                int seed_len, uint8_t* out, int out_len) {
  return p_hash(EVP_sha256(), secret, secret_len, seed, seed_len, out,
                out_len);
}
int hmac_sha384(const uint8_t* secret, int secret_len, const uint8_t* seed,
                int seed_len, uint8_t* out, int out_len) {
  return p_hash(EVP_sha384(), secret, secret_len, seed, seed_len, out,
                out_len);
}
int hmac_sha512(const uint8_t* secret, int secret_len, const uint8_t* seed,
                int seed_len, uint8_t* out, int out_len) {
  return p_hash(EVP_sha512(), secret, secret_len, seed, seed_len, out,
                out_len);
}

// label || seed1 || seed2, the label without its terminator.
Bytes label_and_seed(const char* label, const uint8_t* seed1, int seed1_len,
                     const uint8_t* seed2, int seed2_len) {
  Bytes s(label, label + std::strlen(label));
  s.insert(s.end(), seed1, seed1 + seed1_len);
  s.insert(s.end(), seed2, seed2 + seed2_len);
  return s;
}

std::size_t out_size(int out_len) {
  return out_len > 0 ? static_cast<std::size_t>(out_len) : 0;
}

// TLS 1.0/1.1: P_MD5(S1, seed) XOR P_SHA1(S2, seed). S1 and S2 are the two
// halves of the secret rounded down, so an odd secret's last byte takes no
// part (RFC 2246 would share the middle byte); answers depend on this.
int prf_sha1(const uint8_t* secret, int secret_len, const char* label,
             const uint8_t* seed1, int seed1_len, const uint8_t* seed2,
             int seed2_len, uint8_t* out, int out_len) {
  const int half = secret_len / 2;
  const Bytes seed = label_and_seed(label, seed1, seed1_len, seed2, seed2_len);
  const int seed_len = static_cast<int>(seed.size());
  Bytes md5_part(out_size(out_len));
  Bytes sha1_part(out_size(out_len));
  hmac_md5(secret, half, seed.data(), seed_len, md5_part.data(), out_len);
  hmac_sha1(secret + half, half, seed.data(), seed_len, sha1_part.data(),
            out_len);
  for (std::size_t i = 0; i < md5_part.size(); ++i) {
    out[i] = md5_part[i] ^ sha1_part[i];
  }
  return 1;
}

using PHash = int (*)(const uint8_t*, int, const uint8_t*, int, uint8_t*, int);

// TLS 1.2: P_<hash>(secret, label || seed1 || seed2).
int prf_tls12(PHash p, const uint8_t* secret, int secret_len,
              const char* label, const uint8_t* seed1, int seed1_len,
              const uint8_t* seed2, int seed2_len, uint8_t* out, int out_len) {
  const Bytes seed = label_and_seed(label, seed1, seed1_len, seed2, seed2_len);
  return p(secret, secret_len, seed.data(), static_cast<int>(seed.size()), out,
           out_len);
}

int prf_sha256(const uint8_t* secret, int secret_len, const char* label,
               const uint8_t* seed1, int seed1_len, const uint8_t* seed2,
               int seed2_len, uint8_t* out, int out_len) {
  return prf_tls12(hmac_sha256, secret, secret_len, label, seed1, seed1_len,
                   seed2, seed2_len, out, out_len);
}
int prf_sha384(const uint8_t* secret, int secret_len, const char* label,
               const uint8_t* seed1, int seed1_len, const uint8_t* seed2,
               int seed2_len, uint8_t* out, int out_len) {
  return prf_tls12(hmac_sha384, secret, secret_len, label, seed1, seed1_len,
                   seed2, seed2_len, out, out_len);
}
int prf_sha512(const uint8_t* secret, int secret_len, const char* label,
               const uint8_t* seed1, int seed1_len, const uint8_t* seed2,
               int seed2_len, uint8_t* out, int out_len) {
  return prf_tls12(hmac_sha512, secret, secret_len, label, seed1, seed1_len,
                   seed2, seed2_len, out, out_len);
}

// The selector is the PRF's digest length: 20 for TLS 1.0/1.1 (MD5 and
// SHA-1), 32, 48 and 64 for TLS 1.2 with SHA-256, SHA-384 and SHA-512.
int prf_hash(int selector, const uint8_t* secret, int secret_len,
             const char* label, const uint8_t* seed1, int seed1_len,
             const uint8_t* seed2, int seed2_len, uint8_t* out, int out_len) {
  switch (selector) {
    case 20:
      return prf_sha1(secret, secret_len, label, seed1, seed1_len, seed2,
                      seed2_len, out, out_len);
    case 32:
      return prf_sha256(secret, secret_len, label, seed1, seed1_len, seed2,
                        seed2_len, out, out_len);
    case 48:
      return prf_sha384(secret, secret_len, label, seed1, seed1_len, seed2,
                        seed2_len, out, out_len);
    case 64:
      return prf_sha512(secret, secret_len, label, seed1, seed1_len, seed2,
                        seed2_len, out, out_len);
    default:
      return 0;
  }
}

struct Marker {
  std::string_view text;
  int prf;
};

constexpr std::array<Marker, 4> kMarkers = {{
    {"[TLS 1.0/1.1]", 20},
    {"[TLS 1.2, SHA-256]", 32},
    {"[TLS 1.2, SHA-384]", 48},
    {"[TLS 1.2, SHA-512]", 64},
}};

// The PRF a line selects when it begins with a section marker, else 0.
int marker_prf(const char* line) {
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
bool read_section_header(const RunnerFiles& files, Section& s) {
  int secret_bits = 0;
  int key_block_bits = 0;
  if (!fips_tv_extract_len(files.req(), files.rsp(),
                           "[pre-master secret length = ", &secret_bits) ||
      !fips_tv_extract_len(files.req(), files.rsp(), "[key block length = ",
                           &key_block_bits)) {
    return false;
  }
  s.key_block_len = key_block_bits / 8;
  if (s.key_block_len > kMaxKeyBlock) {
    std::printf("The key block length is over limit %d(%d)\n",
                s.key_block_len, kMaxKeyBlock);
    return false;
  }
  return true;
}

// Parses the next line's hex value into out and returns its byte count;
// prints the runner's message and returns 0 when it is missing or longer
// than out.
int parse_field(const RunnerFiles& files, const char* tag,
                std::span<uint8_t> out) {
  const int n =
      ParseKeyBounded(files.req(), files.rsp(), tag, out.data(), out.size());
  if (n == 0) {
    std::printf("Problem parse %s\n", tag);
    return 0;
  }
  if (n > static_cast<int>(out.size())) {
    std::printf("%.*s is too long: %d bytes, at most %zu\n",
                static_cast<int>(std::strcspn(tag, " ")), tag, n, out.size());
    return 0;
  }
  return n;
}

constexpr AnswerMessages kMasterSecretMessages = {
    .convert = "Error converting master-secret to ascii",
    .tag = "Problem writing master-secret tag to rsp file",
    .value = "Problem writing master-secret to rsp file",
};
// The key block's value reuses the master-secret message.
constexpr AnswerMessages kKeyBlockMessages = {
    .convert = "Error converting key-block to ascii",
    .tag = "Problem writing key-block tag to rsp file",
    .value = "Problem writing master-secret to rsp file",
};

// One test case, after its COUNT line. Returns false when the runner must
// stop.
bool answer_case(const RunnerFiles& files, const Section& s,
                 std::span<char> line) {
  std::array<uint8_t, kMaxSecret> secret{};
  std::array<uint8_t, kMaxRandom> server_hello{};
  std::array<uint8_t, kMaxRandom> client_hello{};
  std::array<uint8_t, kMaxRandom> server_random{};
  std::array<uint8_t, kMaxRandom> client_random{};
  // The master secret is as long as the pre-master secret, not a fixed 48.
  const int secret_len = parse_field(files, "pre_master_secret = ", secret);
  if (!secret_len) return false;
  const int server_hello_len =
      parse_field(files, "serverHello_random = ", server_hello);
  if (!server_hello_len) return false;
  const int client_hello_len =
      parse_field(files, "clientHello_random = ", client_hello);
  if (!client_hello_len) return false;
  const int server_random_len =
      parse_field(files, "server_random = ", server_random);
  if (!server_random_len) return false;
  const int client_random_len =
      parse_field(files, "client_random = ", client_random);
  if (!client_random_len) return false;
  std::memset(line.data(), 0, line.size());

  static_assert(kMaxKeyBlock <= static_cast<int>(kMaxSecret));
  std::array<uint8_t, kMaxSecret> derived{};
  std::array<char, 2 * kMaxSecret + 1> text{};

  // The PRF's result is not examined: it fails only for an unknown
  // selector, and the markers give known ones.
  prf_hash(s.prf, secret.data(), secret_len, "master secret",
           client_hello.data(), client_hello_len, server_hello.data(),
           server_hello_len, derived.data(), secret_len);
  std::copy_n(derived.begin(), secret_len, secret.begin());
  if (!WriteAnswer(files, "master_secret = ", secret.data(), secret_len,
                   text.data(), text.size(), kMasterSecretMessages)) {
    return false;
  }

  prf_hash(s.prf, secret.data(), secret_len, "key expansion",
           server_random.data(), server_random_len, client_random.data(),
           client_random_len, derived.data(), s.key_block_len);
  return WriteAnswer(files, "key_block = ", derived.data(), s.key_block_len,
                     text.data(), text.size(), kKeyBlockMessages);
}

}  // namespace

void test_tls_from_file(const char* name) {
  RunnerFiles files;
  if (!files.Open(name)) return;

  std::array<char, 4096> line{};
  Section section;
  while (files.ReadLine(line.data(), static_cast<int>(line.size()))) {
    if (!files.Copy(line.data())) return;
    if (const int prf = marker_prf(line.data())) {
      section.prf = prf;
      if (!read_section_header(files, section)) return;
    } else if (section.prf && std::strstr(line.data(), "COUNT")) {
      if (!answer_case(files, section, line)) return;
    }
  }
  if (!section.prf) Fail("Never found starting marker");
}

}  // namespace fipsval
