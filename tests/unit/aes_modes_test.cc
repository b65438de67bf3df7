// The mode layer and the streaming interface of the native AES engine,
// above all the deliberate asymmetries that callers rely on: CBC
// encryption restarts from the stored IV while decryption chains, padded
// ECB refuses a pad of 16 but takes a pad of 0, final reports an eighth of
// what it wrote.
#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "fipsval.h"

namespace fipsval {
namespace {

using Bytes = std::vector<uint8_t>;

constexpr std::array<uint8_t, 16> kKey = {0x2b, 0x7e, 0x15, 0x16, 0x28, 0xae,
                                          0xd2, 0xa6, 0xab, 0xf7, 0x15, 0x88,
                                          0x09, 0xcf, 0x4f, 0x3c};
constexpr std::array<uint8_t, 16> kIv = {0x00, 0x01, 0x02, 0x03, 0x04, 0x05,
                                         0x06, 0x07, 0x08, 0x09, 0x0a, 0x0b,
                                         0x0c, 0x0d, 0x0e, 0x0f};

keyInstance MakeKey(int direction) {
  keyInstance key{};
  key.direction = static_cast<uint8_t>(direction);
  key.keyLen = 16;
  key.Nr = direction == DIR_ENCRYPT
               ? rijndaelKeySetupEnc(key.rk, kKey.data(), 128)
               : rijndaelKeySetupDec(key.rk, kKey.data(), 128);
  rijndaelKeySetupEnc(key.ek, kKey.data(), 128);
  return key;
}

cipherInstance MakeCipher(int mode) {
  cipherInstance cipher{};
  std::memcpy(cipher.IV, kIv.data(), 16);
  cipher.mode = static_cast<uint8_t>(mode);
  return cipher;
}

Bytes Pattern(std::size_t n, uint8_t seed = 1) {
  Bytes b(n);
  for (std::size_t i = 0; i < n; ++i) b[i] = static_cast<uint8_t>(seed + 7 * i);
  return b;
}

Bytes Ecb(const Bytes& in, int direction) {
  keyInstance key = MakeKey(direction);
  cipherInstance cipher = MakeCipher(MODE_ECB);
  Bytes out(in.size());
  const int bits = static_cast<int>(in.size() * 8);
  const int r = direction == DIR_ENCRYPT
                    ? blockEncrypt(&cipher, &key, in.data(), bits, out.data())
                    : blockDecrypt(&cipher, &key, in.data(), bits, out.data());
  EXPECT_EQ(r, bits);
  return out;
}

using EvpCipherCtx =
    std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)>;

// OpenSSL's one-bit CFB over whole bytes, most significant bit first.
Bytes OpenSslCfb1(const Bytes& in, bool encrypt) {
  EvpCipherCtx ctx(EVP_CIPHER_CTX_new(), EVP_CIPHER_CTX_free);
  EXPECT_EQ(EVP_CipherInit_ex(ctx.get(), EVP_aes_128_cfb1(), nullptr,
                              kKey.data(), kIv.data(), encrypt ? 1 : 0),
            1);
  Bytes out(in.size());
  int n = 0;
  EXPECT_EQ(EVP_CipherUpdate(ctx.get(), out.data(), &n, in.data(),
                             static_cast<int>(in.size())),
            1);
  return out;
}

// ---------------------------------------------------------------------------
// blockEncrypt / blockDecrypt

TEST(BlockOperations, CountWholeBlocksInBitsAndIgnoreTheRest) {
  keyInstance key = MakeKey(DIR_ENCRYPT);
  cipherInstance cipher = MakeCipher(MODE_ECB);
  const Bytes in = Pattern(32);
  Bytes out(32, 0xEE);
  EXPECT_EQ(blockEncrypt(&cipher, &key, in.data(), 127, out.data()), 0);
  EXPECT_EQ(out, Bytes(32, 0xEE));
  EXPECT_EQ(blockEncrypt(&cipher, &key, in.data(), 130, out.data()), 128);
  EXPECT_EQ(Bytes(out.begin() + 16, out.end()), Bytes(16, 0xEE));
  EXPECT_EQ(blockEncrypt(&cipher, &key, in.data(), 0, out.data()), 0);
  EXPECT_EQ(blockEncrypt(&cipher, &key, nullptr, 128, out.data()), 0);
}

// Missing records, a key of the wrong direction, a mode the operation does
// not have: refused before anything is read or written.
TEST(ModeLayer, RefusesBadStatesWithoutWriting) {
  using Op =
      int (*)(cipherInstance*, keyInstance*, const uint8_t*, int, uint8_t*);
  const Op block_enc = blockEncrypt, block_dec = blockDecrypt;
  const Op pad_enc = padEncrypt, pad_dec = padDecrypt;
  constexpr int kNone = -1;  // no record at all
  const struct {
    Op op;
    int mode;  // or kNone
    int key;   // DIR_ENCRYPT, DIR_DECRYPT or kNone
    int len;
  } kCases[] = {
      {block_enc, kNone, DIR_ENCRYPT, 128},
      {block_enc, MODE_CBC, kNone, 128},
      {block_dec, MODE_CBC, kNone, 128},
      {block_enc, MODE_CBC, DIR_DECRYPT, 128},
      {block_dec, MODE_CBC, DIR_ENCRYPT, 128},
      {block_dec, MODE_ECB, DIR_ENCRYPT, 128},
      {block_enc, 7, DIR_ENCRYPT, 128},
      {block_dec, 7, DIR_DECRYPT, 128},
      {block_enc, MODE_CBC, DIR_DECRYPT, 0},  // direction before the input
      {pad_enc, MODE_CFB1, DIR_ENCRYPT, 16},
      {pad_dec, MODE_CFB1, DIR_DECRYPT, 16},
      {pad_enc, MODE_CBC, DIR_DECRYPT, 16},
      {pad_dec, MODE_CBC, DIR_ENCRYPT, 16},
      {pad_enc, kNone, DIR_ENCRYPT, 16},
      {pad_dec, MODE_CBC, kNone, 16},
  };
  const Bytes in = Pattern(32);
  for (const auto& c : kCases) {
    keyInstance key = MakeKey(c.key == kNone ? DIR_ENCRYPT : c.key);
    cipherInstance cipher = MakeCipher(c.mode == kNone ? MODE_CBC : c.mode);
    Bytes out(48, 0xEE);
    EXPECT_EQ(c.op(c.mode == kNone ? nullptr : &cipher,
                   c.key == kNone ? nullptr : &key, c.len ? in.data() : nullptr,
                   c.len, out.data()),
              BAD_CIPHER_STATE)
        << "mode " << c.mode << " key " << c.key;
    EXPECT_EQ(out, Bytes(48, 0xEE));
  }
}

TEST(BlockOperations, CbcEncryptionRestartsFromTheStoredIv) {
  keyInstance key = MakeKey(DIR_ENCRYPT);
  cipherInstance cipher = MakeCipher(MODE_CBC);
  const Bytes in = Pattern(16);
  Bytes first(16), second(16);
  ASSERT_EQ(blockEncrypt(&cipher, &key, in.data(), 128, first.data()), 128);
  EXPECT_EQ(0, std::memcmp(cipher.IV, kIv.data(), 16));
  ASSERT_EQ(blockEncrypt(&cipher, &key, in.data(), 128, second.data()), 128);
  EXPECT_EQ(first, second);
}

TEST(BlockOperations, CbcDecryptionChainsAcrossCalls) {
  // Encrypt two blocks in one call, then decrypt them one call at a time.
  keyInstance enc = MakeKey(DIR_ENCRYPT);
  cipherInstance cipher = MakeCipher(MODE_CBC);
  const Bytes plain = Pattern(32);
  Bytes ct(32);
  ASSERT_EQ(blockEncrypt(&cipher, &enc, plain.data(), 256, ct.data()), 256);

  keyInstance dec = MakeKey(DIR_DECRYPT);
  cipherInstance chain = MakeCipher(MODE_CBC);
  Bytes back(32);
  ASSERT_EQ(blockDecrypt(&chain, &dec, ct.data(), 128, back.data()), 128);
  EXPECT_EQ(0, std::memcmp(chain.IV, ct.data(), 16));
  ASSERT_EQ(blockDecrypt(&chain, &dec, ct.data() + 16, 128, back.data() + 16),
            128);
  EXPECT_EQ(back, plain);
}

TEST(BlockOperations, Cfb1MatchesOpenSslBitOrderAndAdvancesTheIv) {
  const Bytes plain = Pattern(32, 0x5a);
  keyInstance key = MakeKey(DIR_ENCRYPT);
  cipherInstance cipher = MakeCipher(MODE_CFB1);
  Bytes ct(32);
  ASSERT_EQ(blockEncrypt(&cipher, &key, plain.data(), 256, ct.data()), 256);
  EXPECT_EQ(ct, OpenSslCfb1(plain, true));
  // After 256 bits the shift register holds the last 16 ciphertext bytes.
  EXPECT_EQ(0, std::memcmp(cipher.IV, ct.data() + 16, 16));

  // Decryption uses ek and ignores the key's direction; in place here.
  cipherInstance again = MakeCipher(MODE_CFB1);
  Bytes buf = ct;
  ASSERT_EQ(blockDecrypt(&again, &key, buf.data(), 256, buf.data()), 256);
  EXPECT_EQ(buf, plain);
  keyInstance dec = MakeKey(DIR_DECRYPT);
  cipherInstance third = MakeCipher(MODE_CFB1);
  Bytes out(32);
  ASSERT_EQ(blockDecrypt(&third, &dec, ct.data(), 256, out.data()), 256);
  EXPECT_EQ(out, plain);
  EXPECT_EQ(blockDecrypt(&third, &dec, ct.data(), 0, out.data()), 0);
}

// ---------------------------------------------------------------------------
// padEncrypt / padDecrypt

TEST(PaddedOperations, AlignedInputGetsAWholePadBlock) {
  keyInstance key = MakeKey(DIR_ENCRYPT);
  cipherInstance cipher = MakeCipher(MODE_ECB);
  const Bytes in = Pattern(16);
  Bytes out(32);
  EXPECT_EQ(padEncrypt(&cipher, &key, in.data(), 0, out.data()), 0);
  ASSERT_EQ(padEncrypt(&cipher, &key, in.data(), 16, out.data()), 32);
  EXPECT_EQ(Ecb(Bytes(out.begin() + 16, out.end()), DIR_DECRYPT),
            Bytes(16, 0x10));
}

TEST(PaddedOperations, ShortTailIsPaddedWithItsPadLength) {
  keyInstance key = MakeKey(DIR_ENCRYPT);
  cipherInstance cipher = MakeCipher(MODE_ECB);
  const Bytes in = Pattern(21);
  Bytes out(32);
  ASSERT_EQ(padEncrypt(&cipher, &key, in.data(), 21, out.data()), 32);
  Bytes expected_tail(in.begin() + 16, in.end());
  expected_tail.resize(16, 11);
  EXPECT_EQ(Ecb(Bytes(out.begin() + 16, out.end()), DIR_DECRYPT),
            expected_tail);
}

TEST(PaddedOperations, EcbRefusesPadSixteenThatCbcAccepts) {
  const Bytes in = Pattern(16);
  for (int mode : {MODE_ECB, MODE_CBC}) {
    keyInstance enc = MakeKey(DIR_ENCRYPT);
    cipherInstance c1 = MakeCipher(mode);
    Bytes ct(32);
    ASSERT_EQ(padEncrypt(&c1, &enc, in.data(), 16, ct.data()), 32);
    keyInstance dec = MakeKey(DIR_DECRYPT);
    cipherInstance c2 = MakeCipher(mode);
    Bytes back(32, 0);
    const int r = padDecrypt(&c2, &dec, ct.data(), 32, back.data());
    if (mode == MODE_ECB) {
      EXPECT_EQ(r, BAD_DATA);
      // The blocks before the last were written before the pad was seen.
      EXPECT_EQ(Bytes(back.begin(), back.begin() + 16), in);
    } else {
      EXPECT_EQ(r, 16);
      EXPECT_EQ(Bytes(back.begin(), back.begin() + 16), in);
    }
  }
}

TEST(PaddedOperations, EcbAcceptsPadZeroThatCbcRefuses) {
  Bytes block = Pattern(16);
  block[15] = 0;
  const Bytes ct = Ecb(block, DIR_ENCRYPT);
  keyInstance dec = MakeKey(DIR_DECRYPT);
  cipherInstance ecb = MakeCipher(MODE_ECB);
  Bytes out(16);
  EXPECT_EQ(padDecrypt(&ecb, &dec, ct.data(), 16, out.data()), 16);
  EXPECT_EQ(out, block);

  // For CBC the same last byte 0 (after the IV) is bad data.
  Bytes chained = block;
  for (int i = 0; i < 16; ++i) chained[i] ^= kIv[i];
  const Bytes cbc_ct = Ecb(chained, DIR_ENCRYPT);
  cipherInstance cbc = MakeCipher(MODE_CBC);
  EXPECT_EQ(padDecrypt(&cbc, &dec, cbc_ct.data(), 16, out.data()), BAD_DATA);
}

TEST(PaddedOperations, BadPaddingAndLengthsAreBadData) {
  keyInstance dec = MakeKey(DIR_DECRYPT);
  cipherInstance cipher = MakeCipher(MODE_ECB);
  Bytes out(32, 0xEE);
  const Bytes in = Pattern(32);
  EXPECT_EQ(padDecrypt(&cipher, &dec, in.data(), 17, out.data()), BAD_DATA);
  EXPECT_EQ(out, Bytes(32, 0xEE));  // refused before any decryption
  EXPECT_EQ(padDecrypt(&cipher, &dec, in.data(), 0, out.data()), 0);

  Bytes block(16, 3);
  block[14] = 4;  // pad 3 claimed, one pad byte wrong
  const Bytes ct = Ecb(block, DIR_ENCRYPT);
  Bytes one(16, 0xEE);
  EXPECT_EQ(padDecrypt(&cipher, &dec, ct.data(), 16, one.data()), BAD_DATA);
  EXPECT_EQ(one, Bytes(16, 0xEE));
}

TEST(PaddedOperations, CbcRoundTripLeavesTheIvAloneWhenEncrypting) {
  for (int len : {1, 15, 16, 17, 47, 64}) {
    const Bytes in = Pattern(len);
    keyInstance enc = MakeKey(DIR_ENCRYPT);
    cipherInstance c1 = MakeCipher(MODE_CBC);
    Bytes ct(len + 16);
    const int written = padEncrypt(&c1, &enc, in.data(), len, ct.data());
    ASSERT_EQ(written, (len / 16 + 1) * 16);
    EXPECT_EQ(0, std::memcmp(c1.IV, kIv.data(), 16));
    keyInstance dec = MakeKey(DIR_DECRYPT);
    cipherInstance c2 = MakeCipher(MODE_CBC);
    Bytes back(written);
    ASSERT_EQ(padDecrypt(&c2, &dec, ct.data(), written, back.data()), len);
    back.resize(len);
    EXPECT_EQ(back, in) << len;
  }
}

// ---------------------------------------------------------------------------
// fips_aes_init / update / final / test

TEST(StreamingCbc, UpdateProcessesWholeBlocksOnly) {
  fips_aes_ctx ctx;
  fips_aes_init(&ctx, 1, kKey.data(), 16, kIv.data());
  const Bytes in = Pattern(20);
  Bytes out(32, 0xEE);
  EXPECT_EQ(fips_aes_update(&ctx, in.data(), 0, out.data()), 0);
  EXPECT_EQ(fips_aes_update(&ctx, in.data(), 15, out.data()), 0);
  EXPECT_EQ(out, Bytes(32, 0xEE));
  EXPECT_EQ(fips_aes_update(&ctx, in.data(), 20, out.data()), 16);
  EXPECT_EQ(Bytes(out.begin() + 16, out.end()), Bytes(16, 0xEE));
}

TEST(StreamingCbc, EncryptingUpdatesEachStartFromTheInitIv) {
  const Bytes in = Pattern(32);
  fips_aes_ctx ctx;
  fips_aes_init(&ctx, 1, kKey.data(), 16, kIv.data());
  Bytes a(16), b(16), whole(32);
  ASSERT_EQ(fips_aes_update(&ctx, in.data(), 16, a.data()), 16);
  ASSERT_EQ(fips_aes_update(&ctx, in.data() + 16, 16, b.data()), 16);

  fips_aes_init(&ctx, 1, kKey.data(), 16, kIv.data());
  Bytes second(16);
  fips_aes_update(&ctx, in.data() + 16, 16, second.data());
  EXPECT_EQ(b, second);
  fips_aes_init(&ctx, 1, kKey.data(), 16, kIv.data());
  fips_aes_update(&ctx, in.data(), 32, whole.data());
  EXPECT_EQ(Bytes(whole.begin(), whole.begin() + 16), a);
  EXPECT_NE(Bytes(whole.begin() + 16, whole.end()), b);
}

TEST(StreamingCbc, DecryptingUpdatesContinueTheChain) {
  const Bytes in = Pattern(32);
  fips_aes_ctx ctx;
  fips_aes_init(&ctx, 1, kKey.data(), 16, kIv.data());
  Bytes ct(32);
  fips_aes_update(&ctx, in.data(), 32, ct.data());
  fips_aes_init(&ctx, 0, kKey.data(), 16, kIv.data());
  Bytes back(32);
  ASSERT_EQ(fips_aes_update(&ctx, ct.data(), 16, back.data()), 16);
  ASSERT_EQ(fips_aes_update(&ctx, ct.data() + 16, 16, back.data() + 16), 16);
  EXPECT_EQ(back, in);
}

TEST(StreamingCbc, FinalReportsAnEighthOfWhatItWrote) {
  for (int encrypt : {0, 1}) {
    fips_aes_ctx ctx;
    fips_aes_init(&ctx, encrypt, kKey.data(), 16, kIv.data());
    EXPECT_EQ(fips_aes_final(&ctx, nullptr, 0, nullptr), 0);
    const uint8_t byte = 0;
    EXPECT_EQ(fips_aes_final(&ctx, &byte, 0, nullptr), 0);
  }
  fips_aes_ctx ctx;
  fips_aes_init(&ctx, 1, kKey.data(), 16, kIv.data());
  const Bytes in = Pattern(5);
  Bytes out(16);
  EXPECT_EQ(fips_aes_final(&ctx, in.data(), 5, out.data()), 2);
  // Decrypt the block by hand: five message bytes, eleven bytes of 11.
  Bytes block = Ecb(out, DIR_DECRYPT);
  for (int i = 0; i < 16; ++i) block[i] ^= kIv[i];
  Bytes expected = in;
  expected.resize(16, 11);
  EXPECT_EQ(block, expected);

  fips_aes_ctx dec;
  fips_aes_init(&dec, 0, kKey.data(), 16, kIv.data());
  Bytes back(16);
  EXPECT_EQ(fips_aes_final(&dec, out.data(), 16, back.data()), 0);  // 5 >> 3
  EXPECT_EQ(Bytes(back.begin(), back.begin() + 5), in);
  fips_aes_init(&dec, 0, kKey.data(), 16, kIv.data());
  EXPECT_EQ(fips_aes_final(&dec, out.data(), 15, back.data()), BAD_DATA);
}

TEST(StreamingCbc, InitWithoutIvUsesZeroesAndClearsTheContext) {
  fips_aes_ctx ctx;
  std::memset(&ctx, 0x5A, sizeof ctx);
  fips_aes_init(&ctx, 1, kKey.data(), 16, nullptr);
  EXPECT_EQ(ctx.key.direction, DIR_ENCRYPT);
  EXPECT_EQ(ctx.key.keyLen, 16);
  EXPECT_EQ(ctx.key.Nr, 10);
  EXPECT_EQ(ctx.cipher.mode, MODE_CBC);
  EXPECT_EQ(ctx.key.ek[0], 0u);
  EXPECT_EQ(ctx.key.keyMaterial[0], 0);
  const std::array<uint8_t, 16> zero{};
  EXPECT_EQ(0, std::memcmp(ctx.cipher.IV, zero.data(), 16));
  // CBC from a zero IV is ECB on the first block.
  const Bytes in = Pattern(16);
  Bytes out(16);
  fips_aes_update(&ctx, in.data(), 16, out.data());
  EXPECT_EQ(out, Ecb(in, DIR_ENCRYPT));

  uint8_t long_key[32] = {};
  fips_aes_ctx dec;
  fips_aes_init(&dec, 0, long_key, 24, nullptr);
  EXPECT_EQ(dec.key.direction, DIR_DECRYPT);
  EXPECT_EQ(dec.key.Nr, 12);
  // An unsupported length is stored as it is and leaves no rounds (the key
  // schedule still reads 32 bytes).
  fips_aes_init(&dec, 0, long_key, 20, nullptr);
  EXPECT_EQ(dec.key.Nr, 0);
  EXPECT_EQ(dec.key.keyLen, 20);
}

TEST(StreamingCbc, KnownAnswerTestPassesAndCanBeForcedToFail) {
  EXPECT_EQ(fips_aes_test(0), 1);
  EXPECT_EQ(fips_aes_test(1), 0);
  EXPECT_EQ(fips_aes_test(-1), 0);
}

}  // namespace
}  // namespace fipsval
