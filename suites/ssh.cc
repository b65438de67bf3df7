// SSH key-derivation runner: answers "[SHA-1]" and "[SHA-256]" sections of
// an SSH KDF request with the six transport keys of RFC 4253, section 7.2.
#include <openssl/sha.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <span>
#include <string_view>

#include "fipsval.h"
#include "harness/runner_io.h"
#include "harness/runners.h"

namespace fipsval {
namespace {

constexpr std::size_t kMaxK = 1024;
// H and the session identifier are read into buffers of the larger digest
// and always hashed as one digest's worth, whatever length the file gave.
constexpr std::size_t kMaxHashInput = SHA256_DIGEST_LENGTH;
// The runner refuses lengths above two digests, so no third block exists.
constexpr std::size_t kMaxDerived = 2 * SHA256_DIGEST_LENGTH;

struct Sha1 {
  using Ctx = SHA_CTX;
  static constexpr int kLen = SHA_DIGEST_LENGTH;
  static constexpr auto Init = SHA1_Init;
  static constexpr auto Update = SHA1_Update;
  static constexpr auto Final = SHA1_Final;
};

struct Sha256 {
  using Ctx = SHA256_CTX;
  static constexpr int kLen = SHA256_DIGEST_LENGTH;
  static constexpr auto Init = SHA256_Init;
  static constexpr auto Update = SHA256_Update;
  static constexpr auto Final = SHA256_Final;
};

using Piece = std::span<const uint8_t>;

// One digest over the pieces in order: init, one update each, final.
template <typename D>
void digest(std::initializer_list<Piece> pieces, uint8_t* out) {
  typename D::Ctx ctx;
  D::Init(&ctx);
  for (const Piece& p : pieces) D::Update(&ctx, p.data(), p.size());
  D::Final(out, &ctx);
}

// K1 = HASH(K || H || letter || session_id).
template <typename D>
void first_block(const uint8_t* k, unsigned k_len, const uint8_t* h,
                 char letter, const uint8_t* session_id, uint8_t* out) {
  const uint8_t x = static_cast<uint8_t>(letter);
  digest<D>({Piece(k, k_len), Piece(h, D::kLen), Piece(&x, 1),
             Piece(session_id, D::kLen)},
            out);
}

// K2 = HASH(K || H || K1), the extension for keys longer than a digest.
int sha1_hash_K(const uint8_t* k, unsigned k_len, const uint8_t* h,
                const uint8_t* previous, uint8_t* out) {
  digest<Sha1>({Piece(k, k_len), Piece(h, Sha1::kLen),
                Piece(previous, Sha1::kLen)},
               out);
  return 1;
}

int sha256_hash_K(const uint8_t* k, unsigned k_len, const uint8_t* h,
                  const uint8_t* previous, uint8_t* out) {
  digest<Sha256>({Piece(k, k_len), Piece(h, Sha256::kLen),
                  Piece(previous, Sha256::kLen)},
                 out);
  return 1;
}

int sha1_hash(const uint8_t* k, unsigned k_len, const uint8_t* h, char letter,
              const uint8_t* session_id, uint8_t* out, int needed) {
  first_block<Sha1>(k, k_len, h, letter, session_id, out);
  if (needed > Sha1::kLen) {
    sha1_hash_K(k, k_len, h, out, out + Sha1::kLen);
  }
  return 1;
}

int sha256_hash(const uint8_t* k, unsigned k_len, const uint8_t* h,
                char letter, const uint8_t* session_id, uint8_t* out,
                int needed) {
  first_block<Sha256>(k, k_len, h, letter, session_id, out);
  if (needed > Sha256::kLen) {
    sha256_hash_K(k, k_len, h, out, out + Sha256::kLen);
  }
  return 1;
}

// Derives `needed` bytes (at most two digests) for one letter into out.
int hash(int hash_len, const uint8_t* k, unsigned k_len, const uint8_t* h,
         char letter, const uint8_t* session_id, uint8_t* out, int needed) {
  switch (hash_len) {
    case Sha1::kLen:
      return sha1_hash(k, k_len, h, letter, session_id, out, needed);
    case Sha256::kLen:
      return sha256_hash(k, k_len, h, letter, session_id, out, needed);
    default:
      return 0;
  }
}

// The digest length a section marker selects, 0 for any other line.
// "[SHA-256]" wins when a line holds both markers.
int marker_hash_len(const char* line) {
  if (std::strstr(line, "[SHA-256]")) return Sha256::kLen;
  if (std::strstr(line, "[SHA-1]")) return Sha1::kLen;
  return 0;
}

struct Section {
  int hash_len = 0;
  int iv_len = 0;   // bytes
  int key_len = 0;  // bytes
};

// Reads the three length lines that follow a marker. The shared-secret
// length is copied but not needed: K carries its own length.
bool read_section_header(const RunnerFiles& files, Section& s) {
  int secret_bits = 0;
  int iv_bits = 0;
  int key_bits = 0;
  if (!fips_tv_extract_len(files.req(), files.rsp(),
                           "[shared secret length = ", &secret_bits) ||
      !fips_tv_extract_len(files.req(), files.rsp(), "[IV length = ",
                           &iv_bits) ||
      !fips_tv_extract_len(files.req(), files.rsp(),
                           "[encryption key length = ", &key_bits)) {
    return false;
  }
  s.iv_len = iv_bits / 8;
  s.key_len = key_bits / 8;
  const int limit = 2 * s.hash_len;
  if (s.key_len > limit) {
    std::printf("The encryption key length is over limit %d(%d)\n", s.key_len,
                limit);
    return false;
  }
  // The IVs come out of the same two-digest derivation.
  if (s.iv_len > limit) {
    std::printf("The encryption key length is over limit %d(%d)\n", s.iv_len,
                limit);
    return false;
  }
  return true;
}

// Parses the next line's hex value into out. Returns its byte count, 0 when
// the line lacks the tag or a value (the reader has said which), or -1 for
// a value longer than out (reported here).
int parse_field(const RunnerFiles& files, const char* tag,
                std::span<uint8_t> out) {
  const int n =
      ParseKeyBounded(files.req(), files.rsp(), tag, out.data(), out.size());
  if (n > static_cast<int>(out.size())) {
    std::printf("%.*s is too long: %d bytes, at most %zu\n",
                static_cast<int>(std::strcspn(tag, " ")), tag, n, out.size());
    return -1;
  }
  return n;
}

struct Output {
  char letter;
  std::string_view tag;
  int Section::*length;  // nullptr: one digest
};

constexpr std::array<Output, 6> kOutputs = {{
    {'A', "Initial IV (client to server) = ", &Section::iv_len},
    {'B', "Initial IV (server to client) = ", &Section::iv_len},
    {'C', "Encryption key (client to server) = ", &Section::key_len},
    {'D', "Encryption key (server to client) = ", &Section::key_len},
    {'E', "Integrity key (client to server) = ", nullptr},
    {'F', "Integrity key (server to client) = ", nullptr},
}};

constexpr AnswerMessages kRndMessages = {
    .convert = "Error converting rnd to ascii",
    .tag = "Problem writing rnd tag to rsp file",
    .value = "Problem writing rnd to rsp file",
};

// One test case, after its COUNT line: K, H and session_id in, six derived
// values out. Returns false when the runner must stop.
bool answer_case(const RunnerFiles& files, const Section& s,
                 std::span<char> line) {
  std::array<uint8_t, kMaxK> k{};
  const int k_len = parse_field(files, "K = ", k);
  if (k_len == 0) std::printf("Problem parse %s\n", "K = ");
  if (k_len <= 0) return false;
  std::array<uint8_t, kMaxHashInput> h{};
  if (parse_field(files, "H = ", h) <= 0) return false;
  std::array<uint8_t, kMaxHashInput> session_id{};
  if (parse_field(files, "session_id = ", session_id) <= 0) return false;
  std::memset(line.data(), 0, line.size());

  std::array<uint8_t, kMaxDerived> derived{};
  std::array<char, 2 * kMaxDerived + 1> text{};
  for (const Output& o : kOutputs) {
    const int len = o.length ? s.*o.length : s.hash_len;
    if (!hash(s.hash_len, k.data(), static_cast<unsigned>(k_len), h.data(),
              o.letter, session_id.data(), derived.data(), len)) {
      Fail("Error hashing");
      return false;
    }
    if (!WriteAnswer(files, o.tag, derived.data(), len, text.data(),
                     text.size(), kRndMessages)) {
      return false;
    }
  }
  return true;
}

}  // namespace

void test_ssh_from_file(const char* name) {
  RunnerFiles files;
  if (!files.Open(name)) return;

  std::array<char, 4096> line{};
  Section section;
  while (files.ReadLine(line.data(), static_cast<int>(line.size()))) {
    if (!files.Copy(line.data())) return;
    if (const int hash_len = marker_hash_len(line.data())) {
      section.hash_len = hash_len;
      if (!read_section_header(files, section)) return;
    } else if (section.hash_len && std::strstr(line.data(), "COUNT")) {
      if (!answer_case(files, section, line)) return;
    }
  }
  if (!section.hash_len) Fail("Never found starting marker");
}

}  // namespace fipsval
