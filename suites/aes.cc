// The AES CBC and ECB runners: known-answer and multi-message files, where
// every vector gets one computed line, and Monte Carlo files, where every
// seed becomes 100 generated records.
//
// Every CBC answer is computed twice, by OpenSSL and by the library's own
// engine through fips_aes_init/update/final; OpenSSL's value is written
// only when the two agree. ECB answers come from OpenSSL alone.
#include <openssl/aes.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>

#include "fipsval.h"
#include "harness/runner_io.h"
#include "harness/runners.h"

namespace fipsval {
namespace {

constexpr int kLineSize = 1024;
constexpr std::size_t kDataMax = 256;  // key, IV, plaintext, ciphertext
constexpr std::size_t kBlock = 16;
constexpr int kRecords = 100;
constexpr int kIterations = 1000;

enum class Mode { kCbc, kEcb };
enum class Direction { kEncrypt, kDecrypt };

// Everything one run of a runner owns besides its two files.
struct Buffers {
  char line[kLineSize] = {};  // request lines, then answer text
  uint8_t key[kDataMax] = {};
  uint32_t keylen = 0;
  uint8_t iv[kDataMax] = {};
  uint8_t plain[kDataMax] = {};
  uint8_t cipher[kDataMax] = {};
  uint32_t len = 0;  // data length, shared by both directions
};

// ---------------------------------------------------------------------------
// Field extractors. The tag may be anywhere in the line, but the value is
// decoded from the tag's length past the start of the line: an indented
// tag is read from the wrong place, as the request format has never needed
// otherwise.

int extract_key(const char* line, uint8_t* key, uint32_t* keylen) {
  if (!std::strstr(line, "KEY = ")) return 0;
  const std::size_t n = DecodeHex(line + 6, key, kDataMax);
  if (n != 16 && n != 24 && n != 32) return 0;
  *keylen = static_cast<uint32_t>(n);
  return 1;
}

int extract_iv(const char* line, uint8_t* iv) {
  if (!std::strstr(line, "IV = ")) return 0;
  return DecodeHex(line + 5, iv, kDataMax) == kBlock ? 1 : 0;
}

// The data extractors keep the decoded length even when it is refused, so
// that an over-long value can report its true excess.
int extract_plain(const char* line, uint8_t* plain, uint32_t* len) {
  if (!std::strstr(line, "PLAINTEXT = ")) return 0;
  *len = static_cast<uint32_t>(DecodeHex(line + 12, plain, kDataMax));
  return *len != 0 ? 1 : 0;
}

int extract_cipher(const char* line, uint8_t* cipher, uint32_t* len) {
  if (!std::strstr(line, "CIPHERTEXT = ")) return 0;
  *len = static_cast<uint32_t>(DecodeHex(line + 13, cipher, kDataMax));
  return *len != 0 ? 1 : 0;
}

// ---------------------------------------------------------------------------
// Cipher operations.

std::size_t RoundUpToBlock(std::size_t n) {
  return (n + kBlock - 1) / kBlock * kBlock;
}

// Zeroed scratch space: on the stack for the runners' values (at most 256
// bytes each, rounded up to whole blocks), on the heap beyond that.
class Scratch {
 public:
  explicit Scratch(std::size_t size)
      : heap_(size > kInline ? std::make_unique<uint8_t[]>(size) : nullptr) {}
  uint8_t* data() { return heap_ ? heap_.get() : inline_.data(); }

 private:
  static constexpr std::size_t kInline = 3 * (kDataMax + kBlock);
  std::array<uint8_t, kInline> inline_{};
  std::unique_ptr<uint8_t[]> heap_;
};

bool SetOpenSslKey(Direction dir, const uint8_t* key, uint32_t keylen,
                   AES_KEY* out) {
  const int bits = static_cast<int>(keylen * 8);
  return (dir == Direction::kEncrypt ? AES_set_encrypt_key(key, bits, out)
                                     : AES_set_decrypt_key(key, bits, out)) ==
         0;
}

// CBC over len bytes by both engines. iv is read and, when they agree,
// advanced to the chaining value that follows the data.
int cbc(Direction dir, const uint8_t* in, uint8_t* out, uint32_t len,
        const uint8_t* key, uint32_t keylen, uint8_t* iv) {
  const bool encrypting = dir == Direction::kEncrypt;
  // OpenSSL reads and writes a trailing partial block whole, so its input
  // and output are padded to full blocks.
  const std::size_t padded = RoundUpToBlock(len);
  Scratch scratch(3 * padded);
  uint8_t* const ssl_in = scratch.data();
  uint8_t* const ssl_out = ssl_in + padded;
  uint8_t* const native_out = ssl_out + padded;
  std::memcpy(ssl_in, in, len);

  std::array<uint8_t, kBlock> chain;
  std::memcpy(chain.data(), iv, kBlock);
  AES_KEY ssl_key;
  const bool keyed = SetOpenSslKey(dir, key, keylen, &ssl_key);
  if (keyed) {
    AES_cbc_encrypt(ssl_in, ssl_out, len, &ssl_key, chain.data(),
                    encrypting ? AES_ENCRYPT : AES_DECRYPT);
  }

  fips_aes_ctx ctx;
  fips_aes_init(&ctx, encrypting ? 1 : 0, key, static_cast<int>(keylen), iv);
  fips_aes_update(&ctx, in, static_cast<int>(len), native_out);
  fips_aes_final(&ctx, nullptr, 0, nullptr);

  if (!keyed || std::memcmp(ssl_out, native_out, len) != 0) {
    Fail(encrypting ? "ssl and fips ciphers are different"
                    : "ssl and fips plaintexts are different");
    return 0;
  }
  std::memcpy(out, ssl_out, len);
  std::memcpy(iv, chain.data(), kBlock);
  return 1;
}

int encrypt(const uint8_t* in, uint8_t* out, uint32_t len, const uint8_t* key,
            uint32_t keylen, uint8_t* iv) {
  return cbc(Direction::kEncrypt, in, out, len, key, keylen, iv);
}

int decrypt(const uint8_t* in, uint8_t* out, uint32_t len, const uint8_t* key,
            uint32_t keylen, uint8_t* iv) {
  return cbc(Direction::kDecrypt, in, out, len, key, keylen, iv);
}

// ECB with OpenSSL, block by block; a trailing partial block is processed
// as a whole (zero-filled) block and cut back to len.
int ecb(Direction dir, const uint8_t* in, uint8_t* out, uint32_t len,
        const uint8_t* key, uint32_t keylen) {
  const std::size_t padded = RoundUpToBlock(len);
  Scratch scratch(2 * padded);
  uint8_t* const tmp_in = scratch.data();
  uint8_t* const tmp_out = tmp_in + padded;
  std::memcpy(tmp_in, in, len);
  AES_KEY ssl_key;
  if (SetOpenSslKey(dir, key, keylen, &ssl_key)) {
    const int flag = dir == Direction::kEncrypt ? AES_ENCRYPT : AES_DECRYPT;
    for (std::size_t i = 0; i < padded; i += kBlock) {
      AES_ecb_encrypt(tmp_in + i, tmp_out + i, &ssl_key, flag);
    }
  }
  std::memcpy(out, tmp_out, len);
  return 1;
}

int encrypt_ecb(const uint8_t* in, uint8_t* out, uint32_t len,
                const uint8_t* key, uint32_t keylen) {
  return ecb(Direction::kEncrypt, in, out, len, key, keylen);
}

int decrypt_ecb(const uint8_t* in, uint8_t* out, uint32_t len,
                const uint8_t* key, uint32_t keylen) {
  return ecb(Direction::kDecrypt, in, out, len, key, keylen);
}

// The cipher call of one vector or Monte Carlo iteration: from the
// plaintext buffer to the ciphertext buffer or back.
int Crypt(Mode mode, Direction dir, Buffers& b) {
  const bool enc = dir == Direction::kEncrypt;
  const uint8_t* in = enc ? b.plain : b.cipher;
  uint8_t* out = enc ? b.cipher : b.plain;
  if (mode == Mode::kEcb) {
    return enc ? encrypt_ecb(in, out, b.len, b.key, b.keylen)
               : decrypt_ecb(in, out, b.len, b.key, b.keylen);
  }
  return enc ? encrypt(in, out, b.len, b.key, b.keylen, b.iv)
             : decrypt(in, out, b.len, b.key, b.keylen, b.iv);
}

// ---------------------------------------------------------------------------
// Request reading.

// Copies lines up to and including the one that holds "[ENCRYPT]".
bool CopyHeader(const RunnerFiles& files, char* line) {
  for (;;) {
    if (!files.ReadLine(line, kLineSize)) {
      Fail("Never found encrypt marker");
      return false;
    }
    if (!files.Copy(line)) return false;
    if (std::strstr(line, "[ENCRYPT]")) return true;
  }
}

// Reads the KEY line and, in CBC, the IV line that follow a COUNT line;
// `copy` passes them through to the response.
bool ReadKeyAndIv(const RunnerFiles& files, Buffers& b, Mode mode, bool copy) {
  if (!files.ReadLine(b.line, kLineSize) || !std::strstr(b.line, "KEY = ")) {
    Fail("Key field not present");
    return false;
  }
  if (!extract_key(b.line, b.key, &b.keylen)) {
    Fail("Error extracting key");
    return false;
  }
  if (copy && !files.Copy(b.line)) return false;
  if (mode == Mode::kEcb) return true;
  if (!files.ReadLine(b.line, kLineSize) || !std::strstr(b.line, "IV = ")) {
    Fail("IV field not present");
    return false;
  }
  if (!extract_iv(b.line, b.iv)) {
    Fail("Error extracting iv");
    return false;
  }
  return !copy || files.Copy(b.line);
}

// Reads the data line of a vector: the plaintext when encrypting, the
// ciphertext when decrypting.
bool ReadData(const RunnerFiles& files, Buffers& b, Direction dir, bool copy) {
  const bool enc = dir == Direction::kEncrypt;
  if (!files.ReadLine(b.line, kLineSize) ||
      !std::strstr(b.line, enc ? "PLAINTEXT = " : "CIPHERTEXT = ")) {
    Fail(enc ? "Plaintext field not present" : "Ciphertext field not present");
    return false;
  }
  if (!(enc ? extract_plain(b.line, b.plain, &b.len)
            : extract_cipher(b.line, b.cipher, &b.len))) {
    Fail(enc ? "Error extracting plaintext" : "Error extracting ciphertext");
    return false;
  }
  if (b.len > kDataMax) {
    std::printf(enc ? "Plaintext buffer too small by %d bytes\n"
                    : "Cipher buffer too small by %d bytes\n",
                static_cast<int>(b.len - kDataMax));
    return false;
  }
  return !copy || files.Copy(b.line);
}

// ---------------------------------------------------------------------------
// Known-answer and multi-message files.

constexpr AnswerMessages kCipherAnswer = {
    "Error converting cipher to ascii", "Problem writing cipher tag to rsp file",
    "Problem writing cipher to rsp file"};
// The value message names the cipher in both directions.
constexpr AnswerMessages kPlainAnswer = {
    "Error converting plain to ascii", "Problem writing plain tag to rsp file",
    "Problem writing cipher to rsp file"};

// Answers the vector whose COUNT line has just been copied.
bool AnswerVector(const RunnerFiles& files, Buffers& b, Mode mode,
                  Direction dir) {
  if (!ReadKeyAndIv(files, b, mode, true) || !ReadData(files, b, dir, true)) {
    return false;
  }
  const bool enc = dir == Direction::kEncrypt;
  if (!Crypt(mode, dir, b)) {
    Fail(enc ? "Error encrypting" : "Error decrypting");
    return false;
  }
  return WriteAnswer(files, enc ? "CIPHERTEXT = " : "PLAINTEXT = ",
                     enc ? b.cipher : b.plain, static_cast<int>(b.len), b.line,
                     sizeof b.line, enc ? kCipherAnswer : kPlainAnswer);
}

void RunVectors(const char* name, Mode mode) {
  std::printf("Running file %s\n", name);
  RunnerFiles files;
  if (!files.Open(name)) return;
  Buffers b;
  if (!CopyHeader(files, b.line)) return;
  for (;;) {  // encrypt section
    if (!files.ReadLine(b.line, kLineSize)) {
      Fail("Never found encrypt marker");
      return;
    }
    if (!files.Copy(b.line)) return;
    if (std::strstr(b.line, "[DECRYPT]")) break;
    if (std::strstr(b.line, "COUNT = ") &&
        !AnswerVector(files, b, mode, Direction::kEncrypt)) {
      return;
    }
  }
  // Decrypt section; "[ENCRYPT]" here is merely copied.
  while (files.ReadLine(b.line, kLineSize)) {
    if (!files.Copy(b.line)) return;
    if (std::strstr(b.line, "COUNT = ") &&
        !AnswerVector(files, b, mode, Direction::kDecrypt)) {
      return;
    }
  }
}

// ---------------------------------------------------------------------------
// Monte Carlo files.

constexpr AnswerMessages kKeyRecord = {"Error converting key to ascii",
                                       "Problem writing key tag to rsp file",
                                       "Problem writing cipher to rsp file"};
constexpr AnswerMessages kIvRecord = {"Error converting iv to ascii",
                                      "Problem writing iv tag to rsp file",
                                      "Problem writing cipher to rsp file"};
constexpr AnswerMessages kPlainRecord = {
    "Error converting plaintext to ascii",
    "Problem writing plaintext tag to rsp file",
    "Problem writing plaintext to rsp file"};
// The seed ciphertext of a decrypt record reuses the plaintext messages
// except for its tag.
constexpr AnswerMessages kSeedCipherRecord = {
    "Error converting plaintext to ascii",
    "Problem writing cipher tag to rsp file",
    "Problem writing plaintext to rsp file"};

// COUNT, KEY, (CBC) IV and the record's input value.
bool WriteRecordHead(const RunnerFiles& files, Buffers& b, Mode mode,
                     Direction dir, int count) {
  std::snprintf(b.line, sizeof b.line, "%d", count);
  if (!files.Write("COUNT = ", "Problem writing count tag to rsp file") ||
      !files.Write(b.line, "Problem writing count to rsp file") ||
      !files.WriteEol()) {
    return false;
  }
  if (!WriteAnswer(files, "KEY = ", b.key, static_cast<int>(b.keylen), b.line,
                   sizeof b.line, kKeyRecord)) {
    return false;
  }
  if (mode == Mode::kCbc &&
      !WriteAnswer(files, "IV = ", b.iv, kBlock, b.line, sizeof b.line,
                   kIvRecord)) {
    return false;
  }
  const int len = static_cast<int>(b.len);
  return dir == Direction::kEncrypt
             ? WriteAnswer(files, "PLAINTEXT = ", b.plain, len, b.line,
                           sizeof b.line, kPlainRecord)
             : WriteAnswer(files, "CIPHERTEXT = ", b.cipher, len, b.line,
                           sizeof b.line, kSeedCipherRecord);
}

// The record's result block and the blank line that closes the record.
bool WriteRecordTail(const RunnerFiles& files, Buffers& b, Direction dir) {
  const bool ok =
      dir == Direction::kEncrypt
          ? WriteAnswer(files, "CIPHERTEXT = ", b.cipher, kBlock, b.line,
                        sizeof b.line, kCipherAnswer)
          : WriteAnswer(files, "PLAINTEXT = ", b.plain, kBlock, b.line,
                        sizeof b.line, kPlainRecord);
  return ok && files.WriteEol();
}

void XorInto(uint8_t* dst, const uint8_t* src, std::size_t n) {
  for (std::size_t i = 0; i < n; ++i) dst[i] ^= src[i];
}

// The next record's key from the last output block and, in CBC, the one
// before it. ECB takes no part of the second-last block even for longer
// keys; only 128-bit ECB keys are ever requested.
bool UpdateKey(Buffers& b, Mode mode, const uint8_t* last,
               const uint8_t* before_last) {
  switch (b.keylen) {
    case 16:
      XorInto(b.key, last, 16);
      return true;
    case 24:
      if (mode == Mode::kCbc) XorInto(b.key, before_last + 8, 8);
      XorInto(b.key + 8, last, 16);
      return true;
    case 32:
      if (mode == Mode::kCbc) XorInto(b.key, before_last, 16);
      XorInto(b.key + 16, last, 16);
      return true;
    default:
      Fail("Invalid key length");
      return false;
  }
}

// Replaces one seed by its 100 records.
bool RunSeed(const RunnerFiles& files, Buffers& b, Mode mode, Direction dir) {
  const bool enc = dir == Direction::kEncrypt;
  uint8_t* const in = enc ? b.plain : b.cipher;
  const uint8_t* const out = enc ? b.cipher : b.plain;
  std::array<uint8_t, kBlock> first_iv{};
  std::array<uint8_t, kBlock> previous{};  // output of the iteration before
  for (int i = 0; i < kRecords; ++i) {
    if (!WriteRecordHead(files, b, mode, dir, i)) return false;
    std::memcpy(first_iv.data(), b.iv, kBlock);
    for (int j = 0; j < kIterations; ++j) {
      if (j > 0) std::memcpy(previous.data(), out, kBlock);
      if (!Crypt(mode, dir, b)) {
        std::printf(enc ? "Problem encrypting i=%d j=%d\n"
                        : "Problem decrypting i=%d j=%d\n",
                    i, j);
        return false;
      }
      // ECB feeds each output straight back; CBC feeds the IV first and
      // then the output of the iteration before.
      const uint8_t* next = mode == Mode::kEcb ? out
                            : j == 0           ? first_iv.data()
                                               : previous.data();
      std::memcpy(in, next, kBlock);
    }
    if (!WriteRecordTail(files, b, dir)) return false;
    if (!UpdateKey(b, mode, out, previous.data())) return false;
    if (mode == Mode::kCbc) std::memcpy(b.iv, out, kBlock);
  }
  return true;
}

void RunMonteCarlo(const char* name, Mode mode) {
  std::printf("Running file %s\n", name);
  RunnerFiles files;
  if (!files.Open(name)) return;
  Buffers b;
  if (!CopyHeader(files, b.line)) return;
  // A seed's own lines are consumed: its records replace them.
  const auto seed = [&](Direction dir) {
    return ReadKeyAndIv(files, b, mode, false) &&
           ReadData(files, b, dir, false) && RunSeed(files, b, mode, dir);
  };
  for (;;) {  // encrypt section
    if (!files.ReadLine(b.line, kLineSize)) {
      Fail("Never found encrypt marker");
      return;
    }
    if (std::strstr(b.line, "[DECRYPT]")) {
      if (!files.Copy(b.line)) return;
      break;
    }
    if (std::strstr(b.line, "COUNT = ")) {
      if (!seed(Direction::kEncrypt)) return;
    } else if (!files.Copy(b.line)) {
      return;
    }
  }
  while (files.ReadLine(b.line, kLineSize)) {
    if (std::strstr(b.line, "COUNT = ")) {
      if (!seed(Direction::kDecrypt)) return;
    } else if (!files.Copy(b.line)) {
      return;
    }
  }
}

}  // namespace

void test_aes_cbc_from_file(const char* name) { RunVectors(name, Mode::kCbc); }
void test_aes_ecb_from_file(const char* name) { RunVectors(name, Mode::kEcb); }
void test_aes_cbc_mct_from_file(const char* name) {
  RunMonteCarlo(name, Mode::kCbc);
}
void test_aes_ecb_mct_from_file(const char* name) {
  RunMonteCarlo(name, Mode::kEcb);
}

}  // namespace fipsval
