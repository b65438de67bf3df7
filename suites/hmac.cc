// HMAC runner: answers the HMACVS request for HMAC-SHA-1 ("[L=20]") and
// HMAC-SHA-256 ("[L=32]") with OpenSSL's one-shot HMAC.
#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "harness/runner_io.h"
#include "harness/runners.h"

namespace fipsval {
namespace {

constexpr std::size_t kBufferSize = 1024;
constexpr int kMaxMacLen = 32;

// Which HMAC answers the tests: none until the first section marker.
enum Mode { kNoSection = 0, kSha1 = 1, kSha256 = 2 };

// The MAC of msg under key with the section's digest into mac; a MAC of
// any other length than the digest's is refused.
int Hmac(Mode mode, const uint8_t* msg, std::size_t msg_len,
         const uint8_t* key, std::size_t key_len, uint8_t* mac) {
  const unsigned expected = mode == kSha1 ? 20 : 32;
  std::array<uint8_t, EVP_MAX_MD_SIZE> out;
  unsigned out_len = 0;
  if (!HMAC(mode == kSha1 ? EVP_sha1() : EVP_sha256(), key,
            static_cast<int>(key_len), msg, msg_len, out.data(), &out_len) ||
      out_len != expected) {
    std::printf("Wrong mac length (%d)\n", static_cast<int>(out_len));
    return 0;
  }
  std::memcpy(mac, out.data(), out_len);
  return 1;
}

// Reads a hex field line into out (kBufferSize bytes) and copies it.
// Returns its length, or 0 after the message when it is missing, empty or
// too long.
std::size_t ReadHex(const Session& s, const char* tag, const char* missing,
                    const char* refused, const char* too_long, uint8_t* out) {
  if (!s.ReadField(tag, missing)) return 0;
  const std::size_t len = s.Hex(tag, out, kBufferSize);
  if (len == 0 || len > kBufferSize) {
    Fail(len == 0 ? refused : too_long);
    return 0;
  }
  return s.Copy() ? len : 0;
}

// One test after its Count line: Klen, Tlen, Key and Msg in this order,
// then the Mac answer truncated to Tlen bytes. The tags are searched
// anywhere in the line, but the values are read as if the tag began it.
bool AnswerTest(const Session& s, Mode mode) {
  // The key length comes from the key itself.
  if (!s.ReadField("Klen = ", "Key length field not present") || !s.Copy() ||
      !s.ReadField("Tlen = ", "MAC length field not present") || !s.Copy()) {
    return false;
  }
  const auto tlen = static_cast<int32_t>(s.Number("Tlen = "));
  if (tlen > kMaxMacLen) {
    Fail("MAC len is too big");
    return false;
  }
  uint8_t key[kBufferSize];
  uint8_t msg[kBufferSize];
  const std::size_t key_len = ReadHex(s, "Key = ", "Key field not present",
                                      "Error extracting key", "Key buffer too small", key);
  if (key_len == 0) return false;
  const std::size_t msg_len = ReadHex(s, "Msg = ", "Msg field not present",
                                      "Error extracting msg", "Msg buffer too small", msg);
  if (msg_len == 0) return false;
  // Zeroed so that a Tlen beyond the SHA-1 length (up to 32) shows zeros
  // rather than stale memory.
  std::array<uint8_t, kMaxMacLen> mac = {};
  if (!Hmac(mode, msg, msg_len, key, key_len, mac.data())) {
    Fail("Error generating mac");
    return false;
  }
  // A Tlen of 0 or less gives an empty Mac value.
  return s.Answer("Mac = ", mac.data(), tlen,
                  {"Error converting mac to ascii",
                   "Problem writing mac tag to rsp file",
                   "Problem writing mac to rsp file"});
}

}  // namespace

void test_hmac_from_stream(std::FILE* req, std::FILE* rsp) {
  const BufferedSession<1024> s(req, rsp);
  Mode mode = kNoSection;
  while (s.Next()) {
    // Find the line that the test step looks at. Only the first line after
    // a section marker is taken without classifying it again, so a marker
    // straight after another is copied as an ordinary line.
    for (;;) {
      const bool sha1 = s.Has("[L=20]");
      if (sha1 || s.Has("[L=32]")) {
        if (!s.Copy()) return;
        mode = sha1 ? kSha1 : kSha256;
        if (!s.Next()) {
          Fail("Problem reading req file.");
          return;
        }
        break;
      }
      if (mode != kNoSection) break;
      // Before the first marker: copied, tests included, without answers.
      if (!s.Copy()) return;
      if (!s.Next()) {
        Fail("Never found starting marker");
        return;
      }
    }
    // Other section markers (L=28, 48, 64) land here as ordinary lines and
    // their tests are answered in the mode then in force.
    if (!s.Copy()) return;
    if (s.Has("Count") && !AnswerTest(s, mode)) return;
  }
}

}  // namespace fipsval
