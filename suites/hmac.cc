// HMAC runner: answers the HMACVS request for HMAC-SHA-1 ("[L=20]") and
// HMAC-SHA-256 ("[L=32]") with OpenSSL's one-shot HMAC.
#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "harness/runner_io.h"
#include "harness/runners.h"

namespace fipsval {
namespace {

constexpr int kLineSize = 1024;
constexpr std::size_t kBufferSize = 1024;
constexpr int kMaxMacLen = 32;

// Which HMAC answers the tests: none until the first section marker.
enum Mode { kNoSection = 0, kSha1 = 1, kSha256 = 2 };

int hmac_with(const EVP_MD* md, unsigned expected, const uint8_t* msg,
              std::size_t msg_len, const uint8_t* key, std::size_t key_len,
              uint8_t* mac) {
  std::array<uint8_t, EVP_MAX_MD_SIZE> out;
  unsigned out_len = 0;
  if (!HMAC(md, key, static_cast<int>(key_len), msg, msg_len, out.data(),
            &out_len) ||
      out_len != expected) {
    std::printf("Wrong mac length (%d)\n", static_cast<int>(out_len));
    return 0;
  }
  std::memcpy(mac, out.data(), out_len);
  return 1;
}

int hmac_sha1(const uint8_t* msg, std::size_t msg_len, const uint8_t* key,
              std::size_t key_len, uint8_t* mac) {
  return hmac_with(EVP_sha1(), 20, msg, msg_len, key, key_len, mac);
}

int hmac_sha256(const uint8_t* msg, std::size_t msg_len, const uint8_t* key,
                std::size_t key_len, uint8_t* mac) {
  return hmac_with(EVP_sha256(), 32, msg, msg_len, key, key_len, mac);
}

// The tags are searched anywhere in the line, but the values are read at a
// fixed index as if the tag began the line; the line is at least that long
// once it holds the tag.
int extract_mac_len(const char* line, int32_t* out) {
  if (!std::strstr(line, "Tlen = ")) return 0;
  *out = static_cast<int32_t>(std::strtol(line + 7, nullptr, 10));
  return 1;
}

// Both store at most kBufferSize bytes; *len gets the full count the hex
// encodes, for the caller's size check.
int extract_key(const char* line, uint8_t* key, std::size_t* len) {
  if (!std::strstr(line, "Key = ")) return 0;
  *len = DecodeHex(line + 6, key, kBufferSize);
  return *len != 0;
}

int extract_msg(const char* line, uint8_t* msg, std::size_t* len) {
  if (!std::strstr(line, "Msg = ")) return 0;
  *len = DecodeHex(line + 6, msg, kBufferSize);
  return *len != 0;
}

const AnswerMessages kMacMessages = {
    "Error converting mac to ascii",
    "Problem writing mac tag to rsp file",
    "Problem writing mac to rsp file",
};

// Reads the next line into `line`; it must hold `tag`, else prints
// `missing` and fails.
bool ReadField(const RunnerFiles& files, char* line, const char* tag,
               const char* missing) {
  if (!files.ReadLine(line, kLineSize) || !std::strstr(line, tag)) {
    Fail(missing);
    return false;
  }
  return true;
}

// One test after its Count line: Klen, Tlen, Key and Msg in this order,
// then the Mac answer truncated to Tlen bytes.
bool AnswerTest(const RunnerFiles& files, Mode mode, char* line) {
  if (!ReadField(files, line, "Klen = ", "Key length field not present") ||
      !files.Copy(line)) {  // the key length comes from the key itself
    return false;
  }

  if (!ReadField(files, line, "Tlen = ", "MAC length field not present") ||
      !files.Copy(line)) {
    return false;
  }
  int32_t tlen = 0;
  if (!extract_mac_len(line, &tlen)) {
    Fail("Error extracting mac len");
    return false;
  }
  if (tlen > kMaxMacLen) {
    Fail("MAC len is too big");
    return false;
  }

  uint8_t key[kBufferSize];
  std::size_t key_len = 0;
  if (!ReadField(files, line, "Key = ", "Key field not present")) return false;
  if (!extract_key(line, key, &key_len)) {
    Fail("Error extracting key");
    return false;
  }
  if (key_len > sizeof key) {
    Fail("Key buffer too small");
    return false;
  }
  if (!files.Copy(line)) return false;

  uint8_t msg[kBufferSize];
  std::size_t msg_len = 0;
  if (!ReadField(files, line, "Msg = ", "Msg field not present")) return false;
  if (!extract_msg(line, msg, &msg_len)) {
    Fail("Error extracting msg");
    return false;
  }
  if (msg_len > sizeof msg) {
    Fail("Msg buffer too small");
    return false;
  }
  if (!files.Copy(line)) return false;

  // Zeroed so that a Tlen beyond the SHA-1 length (up to 32) shows zeros
  // rather than stale memory.
  std::array<uint8_t, kMaxMacLen> mac = {};
  const int ok = mode == kSha1
                     ? hmac_sha1(msg, msg_len, key, key_len, mac.data())
                     : hmac_sha256(msg, msg_len, key, key_len, mac.data());
  if (!ok) {
    Fail("Error generating mac");
    return false;
  }
  // A Tlen of 0 or less gives an empty Mac value.
  return WriteAnswer(files, "Mac = ", mac.data(), tlen, line, kLineSize,
                     kMacMessages);
}

}  // namespace

void test_hmac_from_file(const char* name) {
  RunnerFiles files;
  if (!files.Open(name)) return;

  char line[kLineSize] = {};
  Mode mode = kNoSection;
  while (files.ReadLine(line, sizeof line)) {
    // Find the line that the test step looks at. Only the first line after
    // a section marker is taken without classifying it again, so a marker
    // straight after another is copied as an ordinary line.
    for (;;) {
      const bool sha1 = std::strstr(line, "[L=20]") != nullptr;
      if (sha1 || std::strstr(line, "[L=32]")) {
        if (!files.Copy(line)) return;
        mode = sha1 ? kSha1 : kSha256;
        if (!files.ReadLine(line, sizeof line)) {
          Fail("Problem reading req file.");
          return;
        }
        break;
      }
      if (mode != kNoSection) break;
      // Before the first marker: copied, tests included, without answers.
      if (!files.Copy(line)) return;
      if (!files.ReadLine(line, sizeof line)) {
        Fail("Never found starting marker");
        return;
      }
    }

    // Other section markers (L=28, 48, 64) land here as ordinary lines and
    // their tests are answered in the mode then in force.
    if (!std::strstr(line, "Count")) {
      if (!files.Copy(line)) return;
      continue;
    }
    if (!files.Copy(line) || !AnswerTest(files, mode, line)) return;
  }
}

}  // namespace fipsval
