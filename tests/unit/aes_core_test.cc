// The native AES engine: FIPS-197 appendix C, OpenSSL's EVP AES on random
// messages (CBC through the streaming interface the runners use, ECB and
// CFB1 through the mode layer), and the mode layer's deliberate
// asymmetries that callers rely on.
#include <gtest/gtest.h>
#include <openssl/evp.h>

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
    uint32_t enc[4 * (MAXNR + 1)], dec[4 * (MAXNR + 1)];
    ASSERT_EQ(rijndaelKeySetupEnc(enc, Counting(32).data(), c.bits), c.rounds);
    ASSERT_EQ(rijndaelKeySetupDec(dec, Counting(32).data(), c.bits), c.rounds);
    Bytes buf(16);
    rijndaelEncrypt(enc, c.rounds, plain.data(), buf.data());
    EXPECT_EQ(Hex(buf), c.cipher);
    rijndaelDecrypt(dec, c.rounds, buf.data(), buf.data());  // in place
    EXPECT_EQ(buf, plain) << c.bits;
  }
  uint32_t rk[4 * (MAXNR + 1)];
  for (int bits : {0, 129, 512}) EXPECT_EQ(rijndaelKeySetupEnc(rk, Counting(32).data(), bits), 0);
}

Bytes Evp(const EVP_CIPHER* cipher, const Bytes& key, const Bytes& iv, const Bytes& in,
          bool enc) {
  std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)> ctx(
      EVP_CIPHER_CTX_new(), EVP_CIPHER_CTX_free);
  EVP_CipherInit_ex(ctx.get(), cipher, nullptr, key.data(), iv.data(), enc);
  EVP_CIPHER_CTX_set_padding(ctx.get(), 0);
  Bytes out(in.size());
  int n = 0;
  EVP_CipherUpdate(ctx.get(), out.data(), &n, in.data(), static_cast<int>(in.size()));
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
  // CFB1 over whole bytes, most significant bit first; decryption uses ek.
  const Bytes key = random(16), iv = random(16), plain = random(32);
  Bytes data = plain;
  Mode(MODE_CFB1, DIR_ENCRYPT, key, iv, data);
  EXPECT_EQ(data, Evp(EVP_aes_128_cfb1(), key, iv, plain, 1));
  Mode(MODE_CFB1, DIR_DECRYPT, key, iv, data);
  EXPECT_EQ(data, plain);
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
  // Refused before anything is read: wrong key direction, no record, bad mode.
  EXPECT_EQ(blockEncrypt(&c, &dec, plain.data(), 128, back.data()), BAD_CIPHER_STATE);
  EXPECT_EQ(blockDecrypt(&c, &enc, plain.data(), 128, back.data()), BAD_CIPHER_STATE);
  EXPECT_EQ(blockEncrypt(nullptr, &enc, plain.data(), 128, back.data()), BAD_CIPHER_STATE);
  c.mode = 7;
  EXPECT_EQ(blockDecrypt(&c, &dec, plain.data(), 128, back.data()), BAD_CIPHER_STATE);
}

// Padded ECB refuses a pad of 16 that CBC accepts and takes a pad of 0
// that CBC refuses.
TEST(AesModes, PaddingAsymmetries) {
  for (int mode : {MODE_ECB, MODE_CBC}) {
    Bytes data = Counting(16);
    ASSERT_EQ(Mode(mode, DIR_ENCRYPT, kKey, kIv, data, true), 32);
    EXPECT_EQ(Mode(mode, DIR_DECRYPT, kKey, kIv, data, true), mode == MODE_ECB ? BAD_DATA : 16);
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
  Bytes odd = Counting(17);
  EXPECT_EQ(Mode(MODE_ECB, DIR_DECRYPT, kKey, kIv, odd, true), BAD_DATA);
  Bytes tail = Counting(21);
  ASSERT_EQ(Mode(MODE_CBC, DIR_ENCRYPT, kKey, kIv, tail, true), 32);
  ASSERT_EQ(Mode(MODE_CBC, DIR_DECRYPT, kKey, kIv, tail, true), 21);
  EXPECT_EQ(tail, Counting(21));
}

// final pads and reports an eighth of the bytes it wrote; the known-answer
// test fails when asked to.
TEST(AesModes, FinalReportsAnEighthAndSelfTestCanFail) {
  fips_aes_ctx ctx;
  fips_aes_init(&ctx, 1, kKey.data(), 16, kIv.data());
  Bytes out(16), back(16);
  EXPECT_EQ(fips_aes_final(&ctx, Counting(5).data(), 5, out.data()), 2);
  fips_aes_init(&ctx, 0, kKey.data(), 16, kIv.data());
  EXPECT_EQ(fips_aes_final(&ctx, out.data(), 16, back.data()), 0);  // 5 >> 3
  EXPECT_EQ(Bytes(back.begin(), back.begin() + 5), Counting(5));
  fips_aes_init(&ctx, 0, kKey.data(), 16, kIv.data());
  EXPECT_EQ(fips_aes_final(&ctx, out.data(), 15, back.data()), BAD_DATA);
  EXPECT_EQ(fips_aes_test(0), 1);
  EXPECT_EQ(fips_aes_test(1), 0);
}

}  // namespace
}  // namespace fipsval::testing
