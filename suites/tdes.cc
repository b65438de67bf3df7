// TDES CBC runners: the known-answer and multi-block-message files, and the
// Monte Carlo files. OpenSSL's EVP_des_ede3_cbc is the only engine; there is
// no second implementation to compare with.
#include <openssl/crypto.h>
#include <openssl/evp.h>

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "harness/owners.h"
#include "harness/runner_io.h"
#include "harness/runners.h"

namespace fipsval {
namespace {

constexpr uint32_t kDataSize = 256;
constexpr std::size_t kDesBlock = 8;
constexpr int kRecords = 400;
constexpr int kChain = 10000;
constexpr int kProgressEvery = 50;

using DesBlock = std::array<uint8_t, kDesBlock>;
using DesKeys = std::array<DesBlock, 3>;
using DataBuffer = std::array<uint8_t, kDataSize>;

// Keys ctx for EDE3-CBC with key 1, key 2, key 3 in that order, padding off.
bool KeyContext(EVP_CIPHER_CTX* ctx, Direction dir, const DesKeys& keys,
                const uint8_t* iv) {
  std::array<uint8_t, sizeof(DesKeys)> ede;
  for (std::size_t k = 0; k < keys.size(); ++k) {
    std::memcpy(ede.data() + k * kDesBlock, keys[k].data(), kDesBlock);
  }
  EVP_CIPHER_CTX_reset(ctx);
  const int ok = EVP_CipherInit_ex(ctx, EVP_des_ede3_cbc(), nullptr,
                                   ede.data(), iv,
                                   dir == Direction::kEncrypt ? 1 : 0);
  OPENSSL_cleanse(ede.data(), ede.size());
  return ok == 1 && EVP_CIPHER_CTX_set_padding(ctx, 0) == 1;
}

// The chaining value after the data processed so far.
bool ChainingValue(EVP_CIPHER_CTX* ctx, uint8_t* iv) {
  const unsigned char* chain = EVP_CIPHER_CTX_iv(ctx);
  if (!chain) return false;
  std::memcpy(iv, chain, kDesBlock);
  return true;
}

bool WholeBlocks(Direction dir, uint32_t len) {
  if (len % kDesBlock == 0) return true;
  std::printf(dir == Direction::kEncrypt
                  ? "plain text is not a multiple of 8 (len=%d)\n"
                  : "cipher text is not a multiple of 8 (len=%d)\n",
              static_cast<int>(len));
  return false;
}

// One CBC operation over len bytes with a fresh context; iv is read and
// replaced by the chaining value that follows the data. With padding off,
// the update call processes every whole block. Result 1 or 0.
int Cbc(Direction dir, const uint8_t* in, uint8_t* out, uint32_t len,
        const DesKeys& keys, uint8_t* iv) {
  if (!WholeBlocks(dir, len)) return 0;
  UniqueCipherCtx ctx(EVP_CIPHER_CTX_new());
  if (!ctx) {
    Fail("EVP_CIPHER_CTX_new() or malloc error");
    return 0;
  }
  int produced = 0;
  return KeyContext(ctx.get(), dir, keys, iv) &&
         EVP_CipherUpdate(ctx.get(), out, &produced, in,
                          static_cast<int>(len)) == 1 &&
         ChainingValue(ctx.get(), iv);
}

// Field lines: the tag may stand anywhere in the line, but the value is
// read at the tag's length from the start of the line.

// "KEYs = " sets all three keys (result 3); "KEY1 = ", "KEY2 = " or
// "KEY3 = " sets one (result 1). Anything but 8 bytes gives 0.
int extract_key(const Session& s, DesKeys& keys) {
  if (s.Has("KEYs = ")) {
    if (s.Hex("KEYs = ", keys[0].data(), kDesBlock) != kDesBlock) return 0;
    keys[1] = keys[0];
    keys[2] = keys[0];
    return 3;
  }
  static constexpr const char* kTags[] = {"KEY1 = ", "KEY2 = ", "KEY3 = "};
  for (std::size_t k = 0; k < keys.size(); ++k) {
    if (s.Has(kTags[k])) {
      return s.Hex(kTags[k], keys[k].data(), kDesBlock) == kDesBlock ? 1 : 0;
    }
  }
  return 0;
}

bool ReadIv(const Session& s, DesBlock& iv) {
  return s.ReadHex("IV = ", "IV field not present", "Error extracting iv",
                   iv.data(), kDesBlock);
}

// Reads the data line of a vector: the plaintext when encrypting, the
// ciphertext when decrypting. Only the decryption says by how much a value
// is too long.
bool ReadData(const Session& s, Direction dir, DataBuffer& out,
              uint32_t* len) {
  static constexpr const char* kTooLong[] = {
      "Plaintext buffer too small", "Cipher buffer too small by %d bytes"};
  return s.ReadCipherData(dir, out.data(), out.size(), len, kTooLong);
}

constexpr AnswerMessages kCipherMessages = {
    "Error converting cipher to ascii", "Problem writing cipher tag to rsp file",
    "Problem writing cipher to rsp file"};
// The value message names the cipher in both directions.
constexpr AnswerMessages kPlainMessages = {
    "Error converting plain to ascii", "Problem writing plain tag to rsp file",
    "Problem writing cipher to rsp file"};

struct Vector {
  DesKeys keys{};
  DesBlock iv{};
  DataBuffer in{};  // plaintext when encrypting, ciphertext when decrypting
  DataBuffer out{};
  uint32_t len = 0;
};

// Key lines until three keys are counted: one "KEYs = " line, or three
// single-key lines (only the count is checked), each copied.
bool ReadKeys(const Session& s, DesKeys& keys) {
  for (int count = 0; count < 3;) {
    if (!s.ReadField("KEY", "Key field not present")) return false;
    const int got = extract_key(s, keys);
    if (got == 0) {
      Fail("Error extracting key");
      return false;
    }
    count += got;
    if (!s.Copy()) return false;
  }
  return true;
}

// The lines that follow a COUNT line, copied, then the computed line.
bool AnswerVector(const Session& s, Direction dir, Vector& v) {
  if (!ReadKeys(s, v.keys) || !ReadIv(s, v.iv) || !s.Copy() ||
      !ReadData(s, dir, v.in, &v.len) || !s.Copy()) {
    return false;
  }
  const bool enc = dir == Direction::kEncrypt;
  if (!Cbc(dir, v.in.data(), v.out.data(), v.len, v.keys, v.iv.data())) {
    Fail(enc ? "Error encrypting" : "Error decrypting");
    return false;
  }
  return s.Answer(enc ? "CIPHERTEXT = " : "PLAINTEXT = ", v.out.data(), v.len,
                  enc ? kCipherMessages : kPlainMessages);
}

// A seed: the keys, IV and input of its first record.
using Seed = Vector;

// The two outputs before the current one: [0] is j-1, [1] is j-2.
using History = std::array<DesBlock, 2>;

// A seed: "KEY1 = " on the current line, then "KEY2 = ", "KEY3 = ", "IV = "
// and the data line. Nothing is copied to the response.
bool ReadSeed(const Session& s, Direction dir, Seed& seed) {
  static constexpr const char* kTags[] = {"KEY1 = ", "KEY2 = ", "KEY3 = "};
  for (int k = 0; k < 3; ++k) {
    // Key 1 may come from a "KEYs = " line too, but that line counts 3
    // keys and is refused as a bad key 1: a seed needs three key lines.
    const bool present = k == 0 ? s.Has(kTags[0]) || s.Has("KEYs = ")
                                : s.Next() && s.Has(kTags[k]);
    if (!present || extract_key(s, seed.keys) != 1) {
      std::printf(present ? "Error extracting key%d\n"
                          : "Key%d field not present\n",
                  k + 1);
      return false;
    }
  }
  return ReadIv(s, seed.iv) && ReadData(s, dir, seed.in, &seed.len);
}

bool WriteRecordHead(const Session& s, Direction dir, int i, const Seed& seed) {
  std::snprintf(s.line(), s.buffer().size(), "%s = %d", "COUNT", i);
  if (i % kProgressEvery == 0) {
    if (dir == Direction::kEncrypt) {
      std::printf("%d of %d\n", i, kRecords);
    } else {
      std::puts(s.line());
    }
    std::fflush(stdout);  // the only sign of life during a long seed
  }
  if (!s.Write(s.line(), "Problem writing count to rsp file") ||
      !s.WriteEol()) {
    return false;
  }
  for (std::size_t k = 0; k < seed.keys.size(); ++k) {
    char tag[] = "KEY1 = ";
    char convert[] = "Error converting key1 to ascii";
    tag[3] = convert[20] = static_cast<char>('1' + k);
    if (!s.Answer(tag, seed.keys[k].data(), kDesBlock,
                  {convert, "Problem writing key tag to rsp file",
                   "Problem writing cipher to rsp file"})) {
      return false;
    }
  }
  if (!s.Answer("IV = ", seed.iv.data(), kDesBlock,
                {"Error converting iv to ascii",
                 "Problem writing iv tag to rsp file",
                 "Problem writing cipher to rsp file"})) {
    return false;
  }
  const bool enc = dir == Direction::kEncrypt;
  return s.Answer(enc ? "PLAINTEXT = " : "CIPHERTEXT = ", seed.in.data(),
                  static_cast<int>(seed.len),
                  {"Error converting plaintext to ascii",
                   enc ? "Problem writing plaintext tag to rsp file"
                       : "Problem writing ciphertext tag to rsp file",
                   "Problem writing plaintext to rsp file"});
}

bool WriteRecordTail(const Session& s, Direction dir, const DataBuffer& out) {
  const bool written =
      dir == Direction::kEncrypt
          ? s.Answer("CIPHERTEXT = ", out.data(), kDesBlock, kCipherMessages)
          : s.Answer("PLAINTEXT = ", out.data(), kDesBlock,
                     {"Error plain cipher to ascii",
                      "Problem writing plain tag to rsp file",
                      "Problem writing plain to rsp file"});
  return written && s.WriteEol();
}

// Mixes the last three outputs into the keys, then restores odd parity.
void UpdateKeys(DesKeys& keys, uint32_t num_keys, const DataBuffer& last,
                const History& history) {
  const uint8_t* out0 = last.data();
  const uint8_t* out1 = history[0].data();
  const uint8_t* out2 = history[1].data();
  const std::array<const uint8_t*, 3> mix =
      num_keys == 3   ? std::array{out0, out1, out2}
      : num_keys == 2 ? std::array{out0, out1, out0}
                      : std::array{out0, out0, out0};  // 1, or no NumKeys
  for (std::size_t k = 0; k < keys.size(); ++k) {
    for (std::size_t b = 0; b < kDesBlock; ++b) {
      keys[k][b] = get_odd_bit_count_byte(keys[k][b] ^ mix[k][b]);
    }
  }
}

// One record's 10000 chained operations as one continuing CBC stream (each
// operation's IV is the block that ended the one before), then the IV for
// the next record. The next input: encrypting, the IV, then CT[j-1];
// decrypting, PT[j]. False with *failed_at set when an operation fails.
bool ChainRecord(EVP_CIPHER_CTX* ctx, Direction dir, Seed& seed,
                 DataBuffer& out, History& history, int* failed_at) {
  *failed_at = 0;
  if (!WholeBlocks(dir, seed.len)) return false;
  if (!ctx) {
    Fail("EVP_CIPHER_CTX_new() or malloc error");
    return false;
  }
  if (!KeyContext(ctx, dir, seed.keys, seed.iv.data())) return false;
  const DesBlock first_iv = seed.iv;
  const int len = static_cast<int>(seed.len);
  for (int j = 0; j < kChain; ++j) {
    if (j > 0) {
      history[1] = history[0];
      std::memcpy(history[0].data(), out.data(), kDesBlock);
    }
    int produced = 0;
    *failed_at = j;
    if (EVP_CipherUpdate(ctx, out.data(), &produced, seed.in.data(), len) !=
            1 ||
        produced != len) {
      return false;
    }
    const uint8_t* next = dir == Direction::kDecrypt ? out.data()
                          : j == 0                   ? first_iv.data()
                                                     : history[0].data();
    std::memcpy(seed.in.data(), next, kDesBlock);
  }
  return ChainingValue(ctx, seed.iv.data());
}

// The 400 records of one seed.
bool RunSeed(const Session& s, Direction dir, Seed& seed, uint32_t num_keys) {
  UniqueCipherCtx ctx(EVP_CIPHER_CTX_new());
  DataBuffer out{};
  History history{};
  for (int i = 0; i < kRecords; ++i) {
    if (!WriteRecordHead(s, dir, i, seed)) return false;
    int failed_at = 0;
    if (!ChainRecord(ctx.get(), dir, seed, out, history, &failed_at)) {
      if (dir == Direction::kEncrypt) {
        std::printf("Problem encrypting i=%d j=%d\n", i, failed_at);
      } else {
        Fail("Problem decrypting");
      }
      return false;
    }
    if (!WriteRecordTail(s, dir, out)) return false;
    UpdateKeys(seed.keys, num_keys, out, history);
  }
  return true;
}

// One request line of a Monte Carlo section; a line with "KEY" starts a
// seed, which is read and run. Nothing else is copied.
bool MonteCarloLine(const Session& s, Direction dir, uint32_t& num_keys) {
  if (s.Has("NumKeys = ") && !extract_num_key(s.line(), &num_keys)) {
    Fail("Error extracting number of keys");
    return false;
  }
  if (!s.Has("KEY")) return true;
  Seed seed;
  return ReadSeed(s, dir, seed) && RunSeed(s, dir, seed, num_keys);
}

}  // namespace

uint8_t get_odd_bit_count_byte(uint8_t b) {
  return std::popcount(b) % 2 == 1 ? b : static_cast<uint8_t>(b ^ 1);
}

int extract_num_key(const char* line, uint32_t* out) {
  static constexpr char kTag[] = "NumKeys = ";
  if (!std::strstr(line, kTag)) return 0;
  const long n = std::strtol(line + sizeof kTag - 1, nullptr, 10);
  if (n < 1 || n > 3) return 0;
  *out = static_cast<uint32_t>(n);
  return 1;
}

void test_3des_tcbc_from_stream(std::FILE* req, std::FILE* rsp) {
  const BufferedSession<1024> s(req, rsp);
  Vector v;
  // The bare word starts a vector, even inside a comment.
  RunCipherSections(s, "Never found decrypt marker", [&](Direction dir) {
    return s.Copy() && (!s.Has("COUNT") || AnswerVector(s, dir, v));
  });
}

void test_3des_tcbc_mct_from_stream(std::FILE* req, std::FILE* rsp) {
  const BufferedSession<1024> s(req, rsp);
  // Kept across seeds and sections; 0 (no NumKeys line) means one key.
  uint32_t num_keys = 0;
  RunCipherSections(
      s, "Never found decrypt marker",
      [&](Direction dir) { return MonteCarloLine(s, dir, num_keys); },
      [&](Direction dir) {
        std::puts(dir == Direction::kEncrypt ? "ENCRYPT" : "DECRYPT");
        return s.WriteEol();
      });
}

}  // namespace fipsval
