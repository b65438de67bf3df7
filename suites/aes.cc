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

#include "fipsval.h"
#include "harness/runner_io.h"
#include "harness/runners.h"

namespace fipsval {
namespace {

constexpr std::size_t kDataMax = 256;  // key, IV, plaintext, ciphertext
constexpr std::size_t kBlock = 16;
constexpr int kRecords = 100;
constexpr int kIterations = 1000;

enum class Mode { kCbc, kEcb };

// One run's buffers besides the line buffer of its session.
struct Buffers {
  uint8_t key[kDataMax] = {};
  uint32_t keylen = 0;
  uint8_t iv[kDataMax] = {};
  uint8_t plain[kDataMax] = {};
  uint8_t cipher[kDataMax] = {};
  uint32_t len = 0;  // data length, shared by both directions
};

// The runners' values are at most 256 bytes; OpenSSL reads and writes a
// trailing partial block whole, so its buffers are padded to full blocks.
constexpr std::size_t kPadded = kDataMax + kBlock;
using PaddedBuffer = std::array<uint8_t, kPadded>;

bool SetOpenSslKey(Direction dir, const uint8_t* key, uint32_t keylen,
                   AES_KEY* out) {
  const int bits = static_cast<int>(keylen * 8);
  return (dir == Direction::kEncrypt ? AES_set_encrypt_key(key, bits, out)
                                     : AES_set_decrypt_key(key, bits, out)) ==
         0;
}

// CBC over len bytes by both engines. iv is read and, when they agree,
// advanced to the chaining value that follows the data.
int CbcBothEngines(Direction dir, const uint8_t* in, uint8_t* out, uint32_t len,
        const uint8_t* key, uint32_t keylen, uint8_t* iv) {
  const bool encrypting = dir == Direction::kEncrypt;
  PaddedBuffer ssl_in{}, ssl_out{}, native_out{};
  std::memcpy(ssl_in.data(), in, len);

  std::array<uint8_t, kBlock> chain;
  std::memcpy(chain.data(), iv, kBlock);
  AES_KEY ssl_key;
  const bool keyed = SetOpenSslKey(dir, key, keylen, &ssl_key);
  if (keyed) {
    AES_cbc_encrypt(ssl_in.data(), ssl_out.data(), len, &ssl_key, chain.data(),
                    encrypting ? AES_ENCRYPT : AES_DECRYPT);
  }

  fips_aes_ctx ctx;
  fips_aes_init(&ctx, encrypting ? 1 : 0, key, static_cast<int>(keylen), iv);
  fips_aes_update(&ctx, in, static_cast<int>(len), native_out.data());
  fips_aes_final(&ctx, nullptr, 0, nullptr);

  if (!keyed || std::memcmp(ssl_out.data(), native_out.data(), len) != 0) {
    Fail(encrypting ? "ssl and fips ciphers are different"
                    : "ssl and fips plaintexts are different");
    return 0;
  }
  std::memcpy(out, ssl_out.data(), len);
  std::memcpy(iv, chain.data(), kBlock);
  return 1;
}

// ECB with OpenSSL, block by block; a trailing partial block is processed
// as a whole (zero-filled) block and cut back to len.
int EcbOpenSsl(Direction dir, const uint8_t* in, uint8_t* out, uint32_t len,
        const uint8_t* key, uint32_t keylen) {
  PaddedBuffer tmp_in{}, tmp_out{};
  std::memcpy(tmp_in.data(), in, len);
  AES_KEY ssl_key;
  if (SetOpenSslKey(dir, key, keylen, &ssl_key)) {
    const int flag = dir == Direction::kEncrypt ? AES_ENCRYPT : AES_DECRYPT;
    for (std::size_t i = 0; i < len; i += kBlock) {
      AES_ecb_encrypt(&tmp_in[i], &tmp_out[i], &ssl_key, flag);
    }
  }
  std::memcpy(out, tmp_out.data(), len);
  return 1;
}

// The cipher call of one vector or Monte Carlo iteration: from the
// plaintext buffer to the ciphertext buffer or back.
int Crypt(Mode mode, Direction dir, Buffers& b) {
  const bool enc = dir == Direction::kEncrypt;
  const uint8_t* in = enc ? b.plain : b.cipher;
  uint8_t* out = enc ? b.cipher : b.plain;
  if (mode == Mode::kEcb) {
    return EcbOpenSsl(dir, in, out, b.len, b.key, b.keylen);
  }
  return CbcBothEngines(dir, in, out, b.len, b.key, b.keylen, b.iv);
}

// Field lines: the tag may stand anywhere in the line, but the value is
// read at the tag's length from the start of the line.

// Reads the KEY line and, in CBC, the IV line that follow a COUNT line;
// `copy` passes them through to the response.
bool ReadKeyAndIv(const Session& s, Buffers& b, Mode mode, bool copy) {
  if (!s.ReadField("KEY = ", "Key field not present")) return false;
  const std::size_t n = s.Hex("KEY = ", b.key, kDataMax);
  if (n != 16 && n != 24 && n != 32) {
    Fail("Error extracting key");
    return false;
  }
  b.keylen = static_cast<uint32_t>(n);
  if (copy && !s.Copy()) return false;
  if (mode == Mode::kEcb) return true;
  return s.ReadHex("IV = ", "IV field not present", "Error extracting iv", b.iv,
                   kBlock) &&
         (!copy || s.Copy());
}

// Reads the data line of a vector: the plaintext when encrypting, the
// ciphertext when decrypting.
bool ReadData(const Session& s, Buffers& b, Direction dir, bool copy) {
  static constexpr const char* kTooLong[] = {
      "Plaintext buffer too small by %d bytes",
      "Cipher buffer too small by %d bytes"};
  return s.ReadCipherData(dir, dir == Direction::kEncrypt ? b.plain : b.cipher,
                          kDataMax, &b.len, kTooLong) &&
         (!copy || s.Copy());
}

constexpr AnswerMessages kCipherAnswer = {
    "Error converting cipher to ascii", "Problem writing cipher tag to rsp file",
    "Problem writing cipher to rsp file"};
// The value message names the cipher in both directions.
constexpr AnswerMessages kPlainAnswer = {
    "Error converting plain to ascii", "Problem writing plain tag to rsp file",
    "Problem writing cipher to rsp file"};

// Answers the vector whose COUNT line has just been copied.
bool AnswerVector(const Session& s, Buffers& b, Mode mode, Direction dir) {
  if (!ReadKeyAndIv(s, b, mode, true) || !ReadData(s, b, dir, true)) {
    return false;
  }
  const bool enc = dir == Direction::kEncrypt;
  if (!Crypt(mode, dir, b)) {
    Fail(enc ? "Error encrypting" : "Error decrypting");
    return false;
  }
  return s.Answer(enc ? "CIPHERTEXT = " : "PLAINTEXT = ",
                  enc ? b.cipher : b.plain, static_cast<int>(b.len),
                  enc ? kCipherAnswer : kPlainAnswer);
}

void RunVectors(std::FILE* req, std::FILE* rsp, Mode mode) {
  const BufferedSession<1024> s(req, rsp);
  Buffers b;
  RunCipherSections(s, "Never found encrypt marker", [&](Direction dir) {
    return s.Copy() && (!s.Has("COUNT = ") || AnswerVector(s, b, mode, dir));
  });
}

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
bool WriteRecordHead(const Session& s, Buffers& b, Mode mode, Direction dir,
                     int count) {
  if (!s.WriteNumber("COUNT = ", count, "Problem writing count tag to rsp file",
                     "Problem writing count to rsp file") ||
      !s.Answer("KEY = ", b.key, static_cast<int>(b.keylen), kKeyRecord) ||
      (mode == Mode::kCbc && !s.Answer("IV = ", b.iv, kBlock, kIvRecord))) {
    return false;
  }
  const int len = static_cast<int>(b.len);
  return dir == Direction::kEncrypt
             ? s.Answer("PLAINTEXT = ", b.plain, len, kPlainRecord)
             : s.Answer("CIPHERTEXT = ", b.cipher, len, kSeedCipherRecord);
}

// The record's result block and the blank line that closes the record.
bool WriteRecordTail(const Session& s, Buffers& b, Direction dir) {
  const bool ok =
      dir == Direction::kEncrypt
          ? s.Answer("CIPHERTEXT = ", b.cipher, kBlock, kCipherAnswer)
          : s.Answer("PLAINTEXT = ", b.plain, kBlock, kPlainRecord);
  return ok && s.WriteEol();
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

// Replaces one seed by its 100 records. The chain works on one block, so a
// seed of any other length is refused rather than padded.
bool RunSeed(const Session& s, Buffers& b, Mode mode, Direction dir) {
  const bool enc = dir == Direction::kEncrypt;
  if (b.len != kBlock) {
    std::printf("Monte Carlo seed %s is %u bytes, not one 16-byte block: "
                "not answered\n",
                enc ? "plaintext" : "ciphertext", b.len);
    return false;
  }
  uint8_t* const in = enc ? b.plain : b.cipher;
  const uint8_t* const out = enc ? b.cipher : b.plain;
  std::array<uint8_t, kBlock> first_iv{};
  std::array<uint8_t, kBlock> previous{};  // output of the iteration before
  for (int i = 0; i < kRecords; ++i) {
    if (!WriteRecordHead(s, b, mode, dir, i)) return false;
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
    if (!WriteRecordTail(s, b, dir) ||
        !UpdateKey(b, mode, out, previous.data())) {
      return false;
    }
    if (mode == Mode::kCbc) std::memcpy(b.iv, out, kBlock);
  }
  return true;
}

// A seed's own lines are consumed: its records replace them.
void RunMonteCarlo(std::FILE* req, std::FILE* rsp, Mode mode) {
  const BufferedSession<1024> s(req, rsp);
  Buffers b;
  RunCipherSections(s, "Never found encrypt marker", [&](Direction dir) {
    if (!s.Has("COUNT = ")) return s.Copy();
    return ReadKeyAndIv(s, b, mode, false) && ReadData(s, b, dir, false) &&
           RunSeed(s, b, mode, dir);
  });
}

}  // namespace

void test_aes_cbc_from_stream(std::FILE* req, std::FILE* rsp) {
  RunVectors(req, rsp, Mode::kCbc);
}
void test_aes_ecb_from_stream(std::FILE* req, std::FILE* rsp) {
  RunVectors(req, rsp, Mode::kEcb);
}
void test_aes_cbc_mct_from_stream(std::FILE* req, std::FILE* rsp) {
  RunMonteCarlo(req, rsp, Mode::kCbc);
}
void test_aes_ecb_mct_from_stream(std::FILE* req, std::FILE* rsp) {
  RunMonteCarlo(req, rsp, Mode::kEcb);
}

}  // namespace fipsval
