// SSH key-derivation runner: answers "[SHA-1]" and "[SHA-256]" sections of
// an SSH KDF request with the six transport keys of RFC 4253, section 7.2.
#include <openssl/evp.h>
#include <openssl/sha.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <span>
#include <string_view>

#include "fipsval.h"
#include "harness/owners.h"
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

using Piece = std::span<const uint8_t>;

// One digest over the pieces in order.
void Digest(const EVP_MD* md, std::initializer_list<Piece> pieces,
            uint8_t* out) {
  const UniqueMdCtx ctx(EVP_MD_CTX_new());
  EVP_DigestInit_ex(ctx.get(), md, nullptr);
  for (const Piece& p : pieces) EVP_DigestUpdate(ctx.get(), p.data(), p.size());
  EVP_DigestFinal_ex(ctx.get(), out, nullptr);
}

// Derives `needed` bytes (at most two digests) for one letter into out:
// K1 = HASH(K || H || letter || session_id), then K2 = HASH(K || H || K1)
// for keys longer than a digest. hash_len selects SHA-1 (20) or SHA-256
// (32); 0 for any other.
int hash(int hash_len, const uint8_t* k, unsigned k_len, const uint8_t* h,
         char letter, const uint8_t* session_id, uint8_t* out, int needed) {
  const EVP_MD* md = hash_len == SHA_DIGEST_LENGTH      ? EVP_sha1()
                     : hash_len == SHA256_DIGEST_LENGTH ? EVP_sha256()
                                                        : nullptr;
  if (!md) return 0;
  const auto n = static_cast<std::size_t>(hash_len);
  const uint8_t x = static_cast<uint8_t>(letter);
  Digest(md, {Piece(k, k_len), Piece(h, n), Piece(&x, 1), Piece(session_id, n)},
         out);
  if (needed > hash_len) {
    Digest(md, {Piece(k, k_len), Piece(h, n), Piece(out, n)}, out + n);
  }
  return 1;
}

// The digest length a section marker selects, 0 for any other line.
// "[SHA-256]" wins when a line holds both markers.
int MarkerHashLen(const char* line) {
  if (std::strstr(line, "[SHA-256]")) return SHA256_DIGEST_LENGTH;
  if (std::strstr(line, "[SHA-1]")) return SHA_DIGEST_LENGTH;
  return 0;
}

struct Section {
  int hash_len = 0;
  int iv_len = 0;   // bytes
  int key_len = 0;  // bytes
};

// Reads the three length lines that follow a marker. The shared-secret
// length is copied but not needed: K carries its own length.
bool ReadSectionHeader(const Session& s, Section& section) {
  if (!s.Length("[shared secret length = ")) return false;
  const auto iv_bits = s.Length("[IV length = ");
  if (!iv_bits) return false;
  const auto key_bits = s.Length("[encryption key length = ");
  if (!key_bits) return false;
  section.iv_len = *iv_bits / 8;
  section.key_len = *key_bits / 8;
  const int limit = 2 * section.hash_len;
  if (section.key_len > limit) {
    std::printf("The encryption key length is over limit %d(%d)\n",
                section.key_len, limit);
    return false;
  }
  // The IVs come out of the same two-digest derivation, so they are bounded
  // alike, under a message that names them.
  if (section.iv_len > limit) {
    std::printf("The IV length is over limit %d(%d)\n", section.iv_len, limit);
    return false;
  }
  return true;
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

// One test case, after its COUNT line: K, H and session_id in, six derived
// values out. Returns false when the runner must stop.
bool AnswerCase(const Session& s, const Section& section) {
  std::array<uint8_t, kMaxK> k{};
  const auto k_len = ParseHexField(s, "K = ", k);
  if (k_len && *k_len == 0) std::printf("Problem parse %s\n", "K = ");
  if (!k_len || *k_len == 0) return false;
  std::array<uint8_t, kMaxHashInput> h{};
  std::array<uint8_t, kMaxHashInput> session_id{};
  for (const auto& [tag, field] :
       {std::pair{"H = ", std::span(h)},
        std::pair{"session_id = ", std::span(session_id)}}) {
    const auto n = ParseHexField(s, tag, field);
    if (!n || *n == 0) return false;
  }
  std::memset(s.line(), 0, s.buffer().size());

  std::array<uint8_t, kMaxDerived> derived{};
  HexText<kMaxDerived> text{};
  for (const Output& o : kOutputs) {
    const int len = o.length ? section.*o.length : section.hash_len;
    if (!hash(section.hash_len, k.data(), static_cast<unsigned>(*k_len),
              h.data(), o.letter, session_id.data(), derived.data(), len)) {
      Fail("Error hashing");
      return false;
    }
    if (!s.Answer(o.tag, derived.data(), len,
                  {"Error converting rnd to ascii",
                   "Problem writing rnd tag to rsp file",
                   "Problem writing rnd to rsp file"},
                  text)) {
      return false;
    }
  }
  return true;
}

}  // namespace

void test_ssh_from_stream(std::FILE* req, std::FILE* rsp) {
  const BufferedSession<4096> s(req, rsp);
  Section section;
  RunKdfSections(
      s, MarkerHashLen,
      [&](int hash_len) {
        section.hash_len = hash_len;
        return ReadSectionHeader(s, section);
      },
      [&] { return AnswerCase(s, section); });
}

}  // namespace fipsval
