// The native AES engine: FIPS-197 appendix C, OpenSSL's EVP AES on random
// messages (CBC through the streaming interface the runners use, ECB
// through the mode layer), the mode layer's deliberate asymmetries that
// callers rely on, and an edge table of every call against OpenSSL.
#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <numeric>
#include <random>
#include <vector>

#include "fipsval.h"
#include "tests/support/test_util.h"

namespace fipsval::testing {
namespace {

using Bytes = std::vector<uint8_t>;

Bytes Counting(std::size_t n, uint8_t from = 0) {
  Bytes b(n);
  std::iota(b.begin(), b.end(), from);
  return b;
}

TEST(AesCore, Fips197AppendixCBothWaysAndInPlace) {
  const Bytes plain = FromHex("00112233445566778899aabbccddeeff");
  const struct { int bits, rounds; const char* cipher; } kCases[] = {
      {128, 10, "69c4e0d86a7b0430d8cdb78070b4c55a"},
      {192, 12, "dda97ca4864cdfe06eaf70a0ec0d7191"},
      {256, 14, "8ea2b7ca516745bfeafc49904b496089"}};
  for (const auto& c : kCases) {
    // The schedule is 4 (Nr + 1) words; no word after it is written.
    std::vector<uint32_t> enc(4 * (MAXNR + 1), 0x5a5a5a5a), dec = enc;
    ASSERT_EQ(rijndaelKeySetupEnc(enc.data(), Counting(32).data(), c.bits), c.rounds);
    EXPECT_EQ(std::count(enc.begin(), enc.end(), 0x5a5a5a5au), 4 * (MAXNR - c.rounds));
    ASSERT_EQ(rijndaelKeySetupDec(dec.data(), Counting(32).data(), c.bits), c.rounds);
    Bytes buf(16);
    rijndaelEncrypt(enc.data(), c.rounds, plain.data(), buf.data());
    EXPECT_EQ(Hex(buf), c.cipher);
    rijndaelDecrypt(dec.data(), c.rounds, buf.data(), buf.data());  // in place
    EXPECT_EQ(buf, plain) << c.bits;
  }
  uint32_t rk[4 * (MAXNR + 1)];
  for (int bits : {0, 129, 512}) EXPECT_EQ(rijndaelKeySetupEnc(rk, Counting(32).data(), bits), 0);
}

Bytes Evp(const EVP_CIPHER* cipher, const Bytes& key, const Bytes& iv, const Bytes& in,
          bool enc, bool pad = false) {
  std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)> ctx(
      EVP_CIPHER_CTX_new(), EVP_CIPHER_CTX_free);
  EVP_CipherInit_ex(ctx.get(), cipher, nullptr, key.data(), iv.data(), enc);
  EVP_CIPHER_CTX_set_padding(ctx.get(), pad);
  Bytes out(in.size() + 16);
  int n = 0, last = 0;
  EVP_CipherUpdate(ctx.get(), out.data(), &n, in.data(), static_cast<int>(in.size()));
  EVP_CipherFinal_ex(ctx.get(), out.data() + n, &last);
  out.resize(n + last);
  return out;
}

keyInstance Key(const Bytes& k, int dir) {
  keyInstance key{};
  key.direction = static_cast<uint8_t>(dir);
  const int bits = static_cast<int>(k.size() * 8);
  key.Nr = dir == DIR_ENCRYPT ? rijndaelKeySetupEnc(key.rk, k.data(), bits)
                              : rijndaelKeySetupDec(key.rk, k.data(), bits);
  rijndaelKeySetupEnc(key.ek, k.data(), bits);
  return key;
}

// The mode layer on one message (in place when asked); the result in bits.
int Mode(int mode, int dir, const Bytes& k, const Bytes& iv, Bytes& data, bool pad = false) {
  keyInstance key = Key(k, dir);
  cipherInstance c{};
  c.mode = static_cast<uint8_t>(mode);
  std::memcpy(c.IV, iv.data(), 16);
  Bytes in = data;
  const int n = static_cast<int>(pad ? data.size() : data.size() * 8);
  data.resize(data.size() + 16);
  const int r = pad ? (dir == DIR_ENCRYPT ? padEncrypt : padDecrypt)(&c, &key, in.data(), n, data.data())
                    : (dir == DIR_ENCRYPT ? blockEncrypt : blockDecrypt)(&c, &key, in.data(), n, data.data());
  data.resize(r > 0 ? r / (pad ? 1 : 8) : 0);
  return r;
}

TEST(AesCore, AgreesWithOpenSslOnRandomMessages) {
  std::mt19937 rng(7);
  const auto random = [&](std::size_t n) {
    Bytes b(n);
    for (auto& x : b) x = static_cast<uint8_t>(rng());
    return b;
  };
  const EVP_CIPHER* kCbc[] = {EVP_aes_128_cbc(), EVP_aes_192_cbc(), EVP_aes_256_cbc()};
  const EVP_CIPHER* kEcb[] = {EVP_aes_128_ecb(), EVP_aes_192_ecb(), EVP_aes_256_ecb()};
  for (int trial = 0; trial < 600; ++trial) {
    const int size = trial % 3;
    const Bytes key = random(16 + 8 * size), iv = random(16), in = random(16 * (1 + rng() % 24));
    const int enc = trial / 6 % 2;  // with size and in place: all 12 cases
    SCOPED_TRACE(::testing::Message() << "trial " << trial);
    fips_aes_ctx ctx;  // CBC the runners' way: init, one update, empty final
    fips_aes_init(&ctx, enc, key.data(), static_cast<int>(key.size()), iv.data());
    Bytes out = in;  // in place on odd trials
    const int n = static_cast<int>(in.size());
    ASSERT_EQ(fips_aes_update(&ctx, trial % 2 ? out.data() : in.data(), n, out.data()), n);
    EXPECT_EQ(fips_aes_final(&ctx, nullptr, 0, nullptr), 0);
    ASSERT_EQ(out, Evp(kCbc[size], key, iv, in, enc));
    Bytes ecb = in;
    Mode(MODE_ECB, enc ? DIR_ENCRYPT : DIR_DECRYPT, key, iv, ecb);
    ASSERT_EQ(ecb, Evp(kEcb[size], key, iv, in, enc));
  }
}

const Bytes kKey = Counting(16, 0x40), kIv = Counting(16);

// Block CBC encryption restarts from the stored IV on every call, while
// decryption (block and streaming) chains across calls.
TEST(AesModes, CbcEncryptionRestartsDecryptionChains) {
  const Bytes plain = Counting(32, 1);
  Bytes whole = plain, half = Bytes(plain.begin() + 16, plain.end());
  Mode(MODE_CBC, DIR_ENCRYPT, kKey, kIv, whole);
  Mode(MODE_CBC, DIR_ENCRYPT, kKey, kIv, half);  // the second block alone
  keyInstance enc = Key(kKey, DIR_ENCRYPT), dec = Key(kKey, DIR_DECRYPT);
  cipherInstance c{};
  c.mode = MODE_CBC;
  std::memcpy(c.IV, kIv.data(), 16);
  Bytes back(32);
  ASSERT_EQ(blockEncrypt(&c, &enc, plain.data() + 16, 128, back.data()), 128);
  EXPECT_EQ(Bytes(back.begin(), back.begin() + 16), half);
  ASSERT_EQ(blockDecrypt(&c, &dec, whole.data(), 128, back.data()), 128);
  ASSERT_EQ(blockDecrypt(&c, &dec, whole.data() + 16, 128, back.data() + 16), 128);
  EXPECT_EQ(back, plain);
  fips_aes_ctx ctx;
  fips_aes_init(&ctx, 1, kKey.data(), 16, kIv.data());
  fips_aes_update(&ctx, plain.data(), 16, back.data());
  fips_aes_update(&ctx, plain.data() + 16, 16, back.data() + 16);
  EXPECT_EQ(Bytes(back.begin() + 16, back.end()), half);
  // Refused before anything is read: a missing record, a mode that does not
  // exist.
  for (auto op : {blockEncrypt, blockDecrypt, padEncrypt, padDecrypt}) {
    EXPECT_EQ(op(nullptr, &enc, plain.data(), 128, back.data()), BAD_CIPHER_STATE);
    EXPECT_EQ(op(&c, nullptr, plain.data(), 128, back.data()), BAD_CIPHER_STATE);
  }
  c.mode = 7;
  EXPECT_EQ(blockDecrypt(&c, &dec, plain.data(), 128, back.data()), BAD_CIPHER_STATE);
}

// Padded ECB takes a pad of 0 that CBC refuses; a pad byte that differs
// from the pad length is refused.
TEST(AesModes, PaddingAsymmetries) {
  for (int mode : {MODE_ECB, MODE_CBC}) {
    Bytes zero_pad = Counting(16, 1);
    zero_pad[15] = 0;
    if (mode == MODE_CBC) {
      for (int i = 0; i < 16; ++i) zero_pad[i] ^= kIv[i];
    }
    Mode(MODE_ECB, DIR_ENCRYPT, kKey, kIv, zero_pad);
    EXPECT_EQ(Mode(mode, DIR_DECRYPT, kKey, kIv, zero_pad, true), mode == MODE_ECB ? 16 : BAD_DATA);
  }
  Bytes wrong(16, 3);  // pad 3 claimed, one pad byte 4
  wrong[14] = 4;
  Mode(MODE_ECB, DIR_ENCRYPT, kKey, kIv, wrong);
  EXPECT_EQ(Mode(MODE_ECB, DIR_DECRYPT, kKey, kIv, wrong, true), BAD_DATA);
}

enum class Call { kUpdate, kFinal, kBlock, kPad };

// One call of the engine on a 48-byte message (decrypting: on OpenSSL's
// encryption of it, padded for the padded calls): its result, and how many
// bytes of the output must be OpenSSL's answer; no byte after them may be
// written. Lengths are bits for kBlock, bytes otherwise; the streaming
// calls (kUpdate, kFinal) are CBC on a context from fips_aes_init, and
// final reports an eighth of what the padded call returns.
const struct Edge {
  Call call;
  int mode;
  bool encrypt;
  int length, result, written;
  bool wrong_key = false;  // kBlock, kPad: a key made for the other direction
  int key_bytes = 16;
  bool iv = true;  // streaming: an IV given to init (else CBC from zeros)
} kEdges[] = {
    {Call::kUpdate, MODE_CBC, true, 0, 0, 0}, {Call::kUpdate, MODE_CBC, true, 15, 0, 0},
    {Call::kUpdate, MODE_CBC, true, 16, 16, 16}, {Call::kUpdate, MODE_CBC, true, 20, 16, 16},
    {Call::kUpdate, MODE_CBC, false, 20, 16, 16},
    {Call::kUpdate, MODE_CBC, true, 33, 32, 32, false, 32},
    {Call::kUpdate, MODE_CBC, false, 48, 48, 48, false, 24, false},
    {Call::kFinal, MODE_CBC, true, 0, 0, 0}, {Call::kFinal, MODE_CBC, true, 5, 2, 16},
    {Call::kFinal, MODE_CBC, true, 16, 4, 32},
    {Call::kFinal, MODE_CBC, true, 20, 4, 32, false, 16, false},
    {Call::kFinal, MODE_CBC, false, 16, 0, 5}, {Call::kFinal, MODE_CBC, false, 48, 4, 37},
    {Call::kFinal, MODE_CBC, false, 15, BAD_DATA, 0},
    // Whole blocks only; CFB1 runs on the encryption schedule that the
    // caller put in ek, in both directions and with either key.
    {Call::kBlock, MODE_ECB, true, 0, 0, 0}, {Call::kBlock, MODE_ECB, true, 15, 0, 0},
    {Call::kBlock, MODE_ECB, false, 127, 0, 0}, {Call::kBlock, MODE_ECB, true, 130, 128, 16},
    {Call::kBlock, MODE_CBC, true, 16, 0, 0}, {Call::kBlock, MODE_CFB1, false, 20, 0, 0},
    {Call::kBlock, MODE_CBC, true, 130, 128, 16},
    {Call::kBlock, MODE_CBC, false, 383, 256, 32},
    {Call::kBlock, MODE_CFB1, true, 130, 128, 16},
    {Call::kBlock, MODE_CFB1, false, 256, 256, 32},
    {Call::kBlock, MODE_CFB1, false, 256, 256, 32, true},
    {Call::kBlock, MODE_ECB, true, 128, BAD_CIPHER_STATE, 0, true},
    {Call::kBlock, MODE_CFB1, true, 128, BAD_CIPHER_STATE, 0, true},
    {Call::kBlock, MODE_CBC, false, 128, BAD_CIPHER_STATE, 0, true},
    {Call::kBlock, MODE_ECB, false, 128, BAD_CIPHER_STATE, 0, true},
    // Padded, in bytes. ECB refuses a pad of 16 after writing the blocks
    // before it; a length that is no whole number of blocks is refused
    // before any block.
    {Call::kPad, MODE_CBC, true, 16, BAD_CIPHER_STATE, 0, true},
    {Call::kPad, MODE_ECB, false, 16, BAD_CIPHER_STATE, 0, true},
    {Call::kPad, MODE_ECB, true, 0, 0, 0}, {Call::kPad, MODE_CBC, false, 0, 0, 0},
    {Call::kPad, MODE_ECB, true, 20, 32, 32},
    {Call::kPad, MODE_CBC, true, 16, 32, 32},
    {Call::kPad, MODE_CFB1, true, 16, BAD_CIPHER_STATE, 0},
    {Call::kPad, MODE_CBC, false, 32, 16, 16}, {Call::kPad, MODE_ECB, false, 32, BAD_DATA, 16},
    {Call::kPad, MODE_CBC, false, 17, BAD_DATA, 0},
};

TEST(AesEdges, EachCallAgreesWithOpenSsl) {
  const Bytes message = Counting(48, 0x81);
  for (const Edge& e : kEdges) {
    SCOPED_TRACE(::testing::Message() << "row " << &e - kEdges);
    const bool pad = e.call == Call::kFinal || e.call == Call::kPad;
    const bool streaming = e.call == Call::kUpdate || e.call == Call::kFinal;
    const Bytes key = Counting(e.key_bytes, 0x40), iv = e.iv ? kIv : Bytes(16, 0);
    const std::string name = "aes-" + std::to_string(e.key_bytes * 8) +
                             (e.mode == MODE_ECB ? "-ecb" : e.mode == MODE_CBC ? "-cbc" : "-cfb1");
    const EVP_CIPHER* cipher = EVP_get_cipherbyname(name.c_str());
    // The plaintext of the answer, and the engine's input.
    const Bytes plain(message.begin(),
                      message.begin() + (pad && e.encrypt && e.written ? e.length : e.written));
    Bytes in = e.encrypt ? message : Evp(cipher, key, iv, pad ? plain : message, true, pad);
    in.resize(64);
    Bytes out(64, 0xee);
    int r = 0;
    if (streaming) {
      fips_aes_ctx ctx;
      fips_aes_init(&ctx, e.encrypt, key.data(), e.key_bytes, e.iv ? iv.data() : nullptr);
      r = (e.call == Call::kUpdate ? fips_aes_update : fips_aes_final)(&ctx, in.data(), e.length,
                                                                        out.data());
    } else {
      keyInstance k = Key(key, e.encrypt != e.wrong_key ? DIR_ENCRYPT : DIR_DECRYPT);
      cipherInstance c{};
      c.mode = static_cast<uint8_t>(e.mode);
      std::memcpy(c.IV, iv.data(), 16);
      const auto op = e.call == Call::kBlock ? (e.encrypt ? blockEncrypt : blockDecrypt)
                                             : (e.encrypt ? padEncrypt : padDecrypt);
      r = op(&c, &k, in.data(), e.length, out.data());
    }
    EXPECT_EQ(r, e.result);
    const Bytes want = e.encrypt && e.written ? Evp(cipher, key, iv, plain, true, pad) : plain;
    EXPECT_EQ(Hex(Bytes(out.begin(), out.begin() + e.written)), Hex(want));
    EXPECT_EQ(Bytes(out.begin() + e.written, out.end()), Bytes(64 - e.written, 0xee));
  }
  EXPECT_EQ(fips_aes_test(0), 1);
  EXPECT_EQ(fips_aes_test(1), 0);
}

}  // namespace
}  // namespace fipsval::testing
