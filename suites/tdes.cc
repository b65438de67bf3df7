// TDES CBC runners: the known-answer and multi-block-message files, and the
// Monte Carlo files. OpenSSL's EVP_des_ede3_cbc is the only engine; there is
// no second implementation to compare with.
#include "harness/openssl_ptr.h"
#include "suites/tdes.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>

#include "harness/runner_io.h"
#include "harness/runners.h"

namespace fipsval {
namespace {

constexpr std::size_t kLineSize = 1024;
constexpr uint32_t kDataSize = 256;
constexpr std::size_t kDesBlock = 8;

constexpr int kRecords = 400;
constexpr int kChain = 10000;
constexpr int kProgressEvery = 50;

using DesBlock = std::array<uint8_t, kDesBlock>;
using DesKeys = std::array<DesBlock, 3>;
using DataBuffer = std::array<uint8_t, kDataSize>;

using EvpCipherCtx = UniquePtr<EVP_CIPHER_CTX>;

enum class Direction { kEncrypt, kDecrypt };

// One run's files and its 1024-byte line buffer. The buffer is zeroed once
// and also holds the hex text of every value the runner writes.
struct Session {
  RunnerFiles files;
  std::array<char, kLineSize> line{};

  bool Next() {
    return files.ReadLine(line.data(), static_cast<int>(line.size())) !=
           nullptr;
  }
  bool Has(const char* tag) const {
    return std::strstr(line.data(), tag) != nullptr;
  }
  bool CopyLine() const { return files.Copy(line.data()); }
  bool Answer(std::string_view tag, const uint8_t* bytes, uint32_t len,
              const AnswerMessages& m) {
    return WriteAnswer(files, tag, bytes, static_cast<int>(len), line.data(),
                       line.size(), m);
  }
};

// ---------------------------------------------------------------------------
// Cipher operations.

// Keys ctx for EDE3-CBC with key 1, key 2, key 3 in that order, padding off.
bool key_context(EVP_CIPHER_CTX* ctx, Direction dir, const uint8_t* key1,
                 const uint8_t* key2, const uint8_t* key3, const uint8_t* iv) {
  std::array<uint8_t, 3 * kDesBlock> ede;
  std::memcpy(ede.data(), key1, kDesBlock);
  std::memcpy(ede.data() + kDesBlock, key2, kDesBlock);
  std::memcpy(ede.data() + 2 * kDesBlock, key3, kDesBlock);
  EVP_CIPHER_CTX_reset(ctx);
  const int ok = EVP_CipherInit_ex(ctx, EVP_des_ede3_cbc(), nullptr,
                                   ede.data(), iv,
                                   dir == Direction::kEncrypt ? 1 : 0);
  OPENSSL_cleanse(ede.data(), ede.size());
  return ok == 1 && EVP_CIPHER_CTX_set_padding(ctx, 0) == 1;
}

// The chaining value after the data processed so far.
bool chaining_value(EVP_CIPHER_CTX* ctx, uint8_t* iv) {
  const unsigned char* chain = EVP_CIPHER_CTX_iv(ctx);
  if (!chain) return false;
  std::memcpy(iv, chain, kDesBlock);
  return true;
}

bool whole_blocks(Direction dir, uint32_t len) {
  if (len % kDesBlock == 0) return true;
  std::printf(dir == Direction::kEncrypt
                  ? "plain text is not a multiple of 8 (len=%d)\n"
                  : "cipher text is not a multiple of 8 (len=%d)\n",
              static_cast<int>(len));
  return false;
}

// One CBC operation over len bytes with a fresh context; iv is read and
// replaced by the chaining value that follows the data. Result 1 or 0.
int cbc(Direction dir, const uint8_t* in, uint8_t* out, uint32_t len,
        const uint8_t* key1, const uint8_t* key2, const uint8_t* key3,
        uint8_t* iv) {
  if (!whole_blocks(dir, len)) return 0;
  // The decryption once took a second work buffer that only served the
  // allocation test; one buffer gives the same results and messages.
  EvpCipherCtx ctx(EVP_CIPHER_CTX_new());
  std::unique_ptr<uint8_t[]> work(new (std::nothrow)
                                      uint8_t[std::size_t{len} + kDesBlock]);
  if (!ctx || !work) {
    Fail("EVP_CIPHER_CTX_new() or malloc error");
    return 0;
  }
  if (!key_context(ctx.get(), dir, key1, key2, key3, iv)) return 0;
  int produced = 0;
  if (EVP_CipherUpdate(ctx.get(), work.get(), &produced, in,
                       static_cast<int>(len)) != 1) {
    return 0;
  }
  if (static_cast<uint32_t>(produced) < len &&
      len - static_cast<uint32_t>(produced) > kDesBlock - 1) {
    int tail = 0;
    if (EVP_CipherFinal_ex(ctx.get(), work.get() + produced, &tail) != 1) {
      return 0;
    }
  }
  if (!chaining_value(ctx.get(), iv)) return 0;
  std::memcpy(out, work.get(), len);
  return 1;
}

int encrypt(const uint8_t* in, uint8_t* out, uint32_t len, const uint8_t* key1,
            const uint8_t* key2, const uint8_t* key3, uint8_t* iv) {
  return cbc(Direction::kEncrypt, in, out, len, key1, key2, key3, iv);
}

int decrypt(const uint8_t* in, uint8_t* out, uint32_t len, const uint8_t* key1,
            const uint8_t* key2, const uint8_t* key3, uint8_t* iv) {
  return cbc(Direction::kDecrypt, in, out, len, key1, key2, key3, iv);
}

// ---------------------------------------------------------------------------
// Field extractors. The tag may stand anywhere in the line, but the value is
// read at the tag's length from the start of the line. Every decode is
// bounded by its buffer; the count returned is what the text encodes.

// "KEYs = " sets all three keys (result 3); "KEY1 = ", "KEY2 = " or
// "KEY3 = " sets one (result 1). Anything but 8 bytes gives 0.
int extract_key(const char* line, DesKeys& keys) {
  if (std::strstr(line, "KEYs = ")) {
    if (DecodeHex(line + 7, keys[0].data(), kDesBlock) != kDesBlock) return 0;
    keys[1] = keys[0];
    keys[2] = keys[0];
    return 3;
  }
  static constexpr const char* kTags[] = {"KEY1 = ", "KEY2 = ", "KEY3 = "};
  for (std::size_t k = 0; k < keys.size(); ++k) {
    if (std::strstr(line, kTags[k])) {
      return DecodeHex(line + 7, keys[k].data(), kDesBlock) == kDesBlock ? 1
                                                                         : 0;
    }
  }
  return 0;
}

int extract_iv(const char* line, DesBlock& iv) {
  return std::strstr(line, "IV = ") &&
                 DecodeHex(line + 5, iv.data(), kDesBlock) == kDesBlock
             ? 1
             : 0;
}

// "PLAINTEXT = " or "CIPHERTEXT = ": the length is stored in any case;
// result 1 when it is not zero.
int extract_data(const char* line, const char* tag, DataBuffer& out,
                 uint32_t* len) {
  if (!std::strstr(line, tag)) return 0;
  *len = static_cast<uint32_t>(
      DecodeHex(line + std::strlen(tag), out.data(), out.size()));
  return *len != 0 ? 1 : 0;
}

// ---------------------------------------------------------------------------
// Request reading shared by both runners.

// Copies the header through the line that holds "[ENCRYPT]".
bool copy_header(Session& s) {
  do {
    if (!s.Next()) {
      Fail("Never found encrypt marker");
      return false;
    }
    if (!s.CopyLine()) return false;
  } while (!s.Has("[ENCRYPT]"));
  return true;
}

bool read_iv(Session& s, DesBlock& iv) {
  if (!s.Next() || !s.Has("IV = ")) {
    Fail("IV field not present");
    return false;
  }
  if (!extract_iv(s.line.data(), iv)) {
    Fail("Error extracting iv");
    return false;
  }
  return true;
}

// Reads the data line of a vector: the plaintext when encrypting, the
// ciphertext when decrypting.
bool read_data(Session& s, Direction dir, DataBuffer& out, uint32_t* len) {
  const bool enc = dir == Direction::kEncrypt;
  const char* tag = enc ? "PLAINTEXT = " : "CIPHERTEXT = ";
  if (!s.Next() || !s.Has(tag)) {
    Fail(enc ? "Plaintext field not present" : "Ciphertext field not present");
    return false;
  }
  if (!extract_data(s.line.data(), tag, out, len)) {
    Fail(enc ? "Error extracting plaintext" : "Error extracting ciphertext");
    return false;
  }
  if (*len > kDataSize) {
    if (enc) {
      Fail("Plaintext buffer too small");
    } else {
      std::printf("Cipher buffer too small by %d bytes\n",
                  static_cast<int>(*len - kDataSize));
    }
    return false;
  }
  return true;
}

// ---------------------------------------------------------------------------
// Known-answer and multi-block-message runner.

struct Vector {
  DesKeys keys{};
  DesBlock iv{};
  DataBuffer in{};
  DataBuffer out{};
  uint32_t len = 0;
};

// Key lines until three keys are counted: one "KEYs = " line, or three
// single-key lines (only the count is checked), each copied.
bool read_keys(Session& s, DesKeys& keys) {
  for (int count = 0; count < 3;) {
    if (!s.Next() || !s.Has("KEY")) {
      Fail("Key field not present");
      return false;
    }
    const int got = extract_key(s.line.data(), keys);
    if (got == 0) {
      Fail("Error extracting key");
      return false;
    }
    count += got;
    if (!s.CopyLine()) return false;
  }
  return true;
}

// The lines that follow a COUNT line, copied, then the computed line.
bool answer_vector(Session& s, Direction dir, Vector& v) {
  if (!read_keys(s, v.keys) || !read_iv(s, v.iv) || !s.CopyLine() ||
      !read_data(s, dir, v.in, &v.len) || !s.CopyLine()) {
    return false;
  }
  const auto& [key1, key2, key3] = v.keys;
  if (dir == Direction::kEncrypt) {
    if (!encrypt(v.in.data(), v.out.data(), v.len, key1.data(), key2.data(),
                 key3.data(), v.iv.data())) {
      Fail("Error encrypting");
      return false;
    }
    return s.Answer("CIPHERTEXT = ", v.out.data(), v.len,
                    {"Error converting cipher to ascii",
                     "Problem writing cipher tag to rsp file",
                     "Problem writing cipher to rsp file"});
  }
  if (!decrypt(v.in.data(), v.out.data(), v.len, key1.data(), key2.data(),
               key3.data(), v.iv.data())) {
    Fail("Error decrypting");
    return false;
  }
  return s.Answer("PLAINTEXT = ", v.out.data(), v.len,
                  {"Error converting plain to ascii",
                   "Problem writing plain tag to rsp file",
                   "Problem writing cipher to rsp file"});
}

// ---------------------------------------------------------------------------
// Monte Carlo runner.

struct Seed {
  DesKeys keys{};
  DesBlock iv{};
  DataBuffer in{};  // plaintext when encrypting, ciphertext when decrypting
  uint32_t len = 0;
};

// The two outputs before the current one: [0] is j-1, [1] is j-2.
using History = std::array<DesBlock, 2>;

// A seed: "KEY1 = " on the current line, then "KEY2 = ", "KEY3 = ", "IV = "
// and the data line. Nothing is copied to the response.
bool read_seed(Session& s, Direction dir, Seed& seed) {
  struct KeyLine {
    const char* tag;
    const char* missing;
    const char* refused;
  };
  static constexpr KeyLine kKeyLines[] = {
      {"KEY1 = ", "Key1 field not present", "Error extracting key1"},
      {"KEY2 = ", "Key2 field not present", "Error extracting key2"},
      {"KEY3 = ", "Key3 field not present", "Error extracting key3"},
  };
  for (std::size_t k = 0; k < std::size(kKeyLines); ++k) {
    // Key 1 may come from a "KEYs = " line too, but that line counts 3
    // keys and is refused as a bad key 1: a seed needs three key lines.
    const bool present =
        k == 0 ? s.Has(kKeyLines[0].tag) || s.Has("KEYs = ")
               : s.Next() && s.Has(kKeyLines[k].tag);
    if (!present) {
      Fail(kKeyLines[k].missing);
      return false;
    }
    if (extract_key(s.line.data(), seed.keys) != 1) {
      Fail(kKeyLines[k].refused);
      return false;
    }
  }
  return read_iv(s, seed.iv) && read_data(s, dir, seed.in, &seed.len);
}

bool write_record_head(Session& s, Direction dir, int i, const Seed& seed) {
  std::snprintf(s.line.data(), s.line.size(), "%s = %d", "COUNT", i);
  if (i % kProgressEvery == 0) {
    if (dir == Direction::kEncrypt) {
      std::printf("%d of %d\n", i, kRecords);
    } else {
      std::puts(s.line.data());
    }
    std::fflush(stdout);  // the only sign of life during a long seed
  }
  if (!s.files.Write(s.line.data(), "Problem writing count to rsp file") ||
      !s.files.WriteEol()) {
    return false;
  }
  static constexpr std::string_view kKeyTags[] = {"KEY1 = ", "KEY2 = ",
                                                  "KEY3 = "};
  static constexpr const char* kKeyConvert[] = {
      "Error converting key1 to ascii", "Error converting key2 to ascii",
      "Error converting key3 to ascii"};
  for (std::size_t k = 0; k < seed.keys.size(); ++k) {
    if (!s.Answer(kKeyTags[k], seed.keys[k].data(), kDesBlock,
                  {kKeyConvert[k], "Problem writing key tag to rsp file",
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
  if (dir == Direction::kEncrypt) {
    return s.Answer("PLAINTEXT = ", seed.in.data(), seed.len,
                    {"Error converting plaintext to ascii",
                     "Problem writing plaintext tag to rsp file",
                     "Problem writing plaintext to rsp file"});
  }
  return s.Answer("CIPHERTEXT = ", seed.in.data(), seed.len,
                  {"Error converting plaintext to ascii",
                   "Problem writing ciphertext tag to rsp file",
                   "Problem writing plaintext to rsp file"});
}

bool write_record_tail(Session& s, Direction dir, const DataBuffer& out) {
  const bool written =
      dir == Direction::kEncrypt
          ? s.Answer("CIPHERTEXT = ", out.data(), kDesBlock,
                     {"Error converting cipher to ascii",
                      "Problem writing cipher tag to rsp file",
                      "Problem writing cipher to rsp file"})
          : s.Answer("PLAINTEXT = ", out.data(), kDesBlock,
                     {"Error plain cipher to ascii",
                      "Problem writing plain tag to rsp file",
                      "Problem writing plain to rsp file"});
  return written && s.files.WriteEol();
}

// The 10000 chained operations of one record. Each operation's IV is the
// ciphertext block that ended the previous one, so the chain is a single
// continuing CBC stream: ctx, keyed once for the record with the record's
// IV, is fed one operation after another instead of being rebuilt for every
// block. Encrypting, the next plaintext is the IV before the first
// operation, then CT[j-1]; decrypting, the next ciphertext is PT[j].
// Returns the index of a failed operation, or -1.
int run_chain(EVP_CIPHER_CTX* ctx, Direction dir, Seed& seed, DataBuffer& out,
              History& history) {
  const DesBlock first_iv = seed.iv;
  const int len = static_cast<int>(seed.len);
  for (int j = 0; j < kChain; ++j) {
    if (j > 0) {
      history[1] = history[0];
      std::memcpy(history[0].data(), out.data(), kDesBlock);
    }
    int produced = 0;
    if (EVP_CipherUpdate(ctx, out.data(), &produced, seed.in.data(), len) !=
            1 ||
        produced != len) {
      return j;
    }
    const uint8_t* next = dir == Direction::kDecrypt ? out.data()
                          : j == 0                   ? first_iv.data()
                                                     : history[0].data();
    std::memcpy(seed.in.data(), next, kDesBlock);
  }
  return -1;
}

// Mixes the last three outputs into the keys, then restores odd parity.
void update_keys(DesKeys& keys, uint32_t num_keys, const DataBuffer& last,
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

// Keys ctx for one record and runs its chain; the IV then holds the
// chaining value for the next record. Returns the index of the failed
// operation, or -1.
int chain_record(EVP_CIPHER_CTX* ctx, Direction dir, Seed& seed,
                 DataBuffer& out, History& history) {
  if (!whole_blocks(dir, seed.len)) return 0;
  if (!ctx) {
    Fail("EVP_CIPHER_CTX_new() or malloc error");
    return 0;
  }
  if (!key_context(ctx, dir, seed.keys[0].data(), seed.keys[1].data(),
                   seed.keys[2].data(), seed.iv.data())) {
    return 0;
  }
  const int failed = run_chain(ctx, dir, seed, out, history);
  if (failed >= 0) return failed;
  return chaining_value(ctx, seed.iv.data()) ? -1 : kChain - 1;
}

// The 400 records of one seed.
bool run_seed(Session& s, Direction dir, Seed& seed, uint32_t num_keys) {
  EvpCipherCtx ctx(EVP_CIPHER_CTX_new());
  DataBuffer out{};
  History history{};
  for (int i = 0; i < kRecords; ++i) {
    if (!write_record_head(s, dir, i, seed)) return false;
    const int failed = chain_record(ctx.get(), dir, seed, out, history);
    if (failed >= 0) {
      if (dir == Direction::kEncrypt) {
        std::printf("Problem encrypting i=%d j=%d\n", i, failed);
      } else {
        Fail("Problem decrypting");
      }
      return false;
    }
    if (!write_record_tail(s, dir, out)) return false;
    update_keys(seed.keys, num_keys, out, history);
  }
  return true;
}

// One request line of a Monte Carlo section; a line with "KEY" starts a
// seed, which is read and run.
bool monte_carlo_line(Session& s, Direction dir, uint32_t& num_keys) {
  if (s.Has("NumKeys = ") && !extract_num_key(s.line.data(), &num_keys)) {
    Fail("Error extracting number of keys");
    return false;
  }
  if (!s.Has("KEY")) return true;
  Seed seed;
  return read_seed(s, dir, seed) && run_seed(s, dir, seed, num_keys);
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

void test_3des_tcbc_from_file(const char* name) {
  Session s;
  if (!s.files.Open(name) || !copy_header(s)) return;
  Vector v;
  for (;;) {
    if (!s.Next()) {
      Fail("Never found decrypt marker");
      return;
    }
    if (s.Has("[DECRYPT]")) break;
    if (!s.CopyLine()) return;
    // The bare word starts a vector, even inside a comment.
    if (s.Has("COUNT") && !answer_vector(s, Direction::kEncrypt, v)) return;
  }
  if (!s.CopyLine()) return;
  while (s.Next()) {
    if (!s.CopyLine()) return;
    if (s.Has("COUNT") && !answer_vector(s, Direction::kDecrypt, v)) return;
  }
}

void test_3des_tcbc_mct_from_file(const char* name) {
  Session s;
  if (!s.files.Open(name) || !copy_header(s)) return;
  std::puts("ENCRYPT");
  if (!s.files.WriteEol()) return;
  // Kept across seeds and sections; 0 (no NumKeys line) means one key.
  uint32_t num_keys = 0;
  for (;;) {
    if (!s.Next()) {
      Fail("Never found decrypt marker");
      return;
    }
    if (s.Has("[DECRYPT]")) break;
    if (!monte_carlo_line(s, Direction::kEncrypt, num_keys)) return;
  }
  if (!s.CopyLine()) return;
  std::puts("DECRYPT");
  if (!s.files.WriteEol()) return;
  while (s.Next()) {
    if (!monte_carlo_line(s, Direction::kDecrypt, num_keys)) return;
  }
}

}  // namespace fipsval
