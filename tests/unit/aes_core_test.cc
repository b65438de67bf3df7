// The native AES block cipher: FIPS-197 appendix C, the key schedules'
// round counts and extents, the refused key sizes and the constant tables.
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <numeric>
#include <random>

#include "aes/tables.h"
#include "fipsval.h"

namespace fipsval {
namespace {

using Block = std::array<uint8_t, 16>;
using Schedule = std::array<uint32_t, 4 * (MAXNR + 1)>;

constexpr Block kPlain = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77,
                          0x88, 0x99, 0xaa, 0xbb, 0xcc, 0xdd, 0xee, 0xff};

struct Fips197Case {
  int bits;
  int rounds;
  Block cipher;
};

// Appendix C: key bytes 00 01 02 ... over the key length.
constexpr Fips197Case kAppendixC[] = {
    {128, 10, {0x69, 0xc4, 0xe0, 0xd8, 0x6a, 0x7b, 0x04, 0x30, 0xd8, 0xcd, 0xb7,
               0x80, 0x70, 0xb4, 0xc5, 0x5a}},
    {192, 12, {0xdd, 0xa9, 0x7c, 0xa4, 0x86, 0x4c, 0xdf, 0xe0, 0x6e, 0xaf, 0x70,
               0xa0, 0xec, 0x0d, 0x71, 0x91}},
    {256, 14, {0x8e, 0xa2, 0xb7, 0xca, 0x51, 0x67, 0x45, 0xbf, 0xea, 0xfc, 0x49,
               0x90, 0x4b, 0x49, 0x60, 0x89}},
};

std::array<uint8_t, 32> CountingKey() {
  std::array<uint8_t, 32> key;
  std::iota(key.begin(), key.end(), uint8_t{0});
  return key;
}

class Fips197 : public ::testing::TestWithParam<Fips197Case> {};

TEST_P(Fips197, EncryptsAndDecryptsTheAppendixVector) {
  const auto& c = GetParam();
  const auto key = CountingKey();
  Schedule enc{}, dec{};
  ASSERT_EQ(rijndaelKeySetupEnc(enc.data(), key.data(), c.bits), c.rounds);
  ASSERT_EQ(rijndaelKeySetupDec(dec.data(), key.data(), c.bits), c.rounds);

  Block out{};
  rijndaelEncrypt(enc.data(), c.rounds, kPlain.data(), out.data());
  EXPECT_EQ(out, c.cipher);
  Block back{};
  rijndaelDecrypt(dec.data(), c.rounds, out.data(), back.data());
  EXPECT_EQ(back, kPlain);
}

TEST_P(Fips197, WorksInPlace) {
  const auto& c = GetParam();
  const auto key = CountingKey();
  Schedule enc{}, dec{};
  rijndaelKeySetupEnc(enc.data(), key.data(), c.bits);
  rijndaelKeySetupDec(dec.data(), key.data(), c.bits);
  Block buf = kPlain;
  rijndaelEncrypt(enc.data(), c.rounds, buf.data(), buf.data());
  EXPECT_EQ(buf, c.cipher);
  rijndaelDecrypt(dec.data(), c.rounds, buf.data(), buf.data());
  EXPECT_EQ(buf, kPlain);
}

TEST_P(Fips197, SchedulesFillExactlyTheirRoundKeys) {
  const auto& c = GetParam();
  const auto key = CountingKey();
  const std::size_t used = 4 * (c.rounds + 1);
  for (auto setup : {rijndaelKeySetupEnc, rijndaelKeySetupDec}) {
    Schedule rk;
    rk.fill(0xA5A5A5A5u);
    setup(rk.data(), key.data(), c.bits);
    for (std::size_t i = used; i < rk.size(); ++i) {
      EXPECT_EQ(rk[i], 0xA5A5A5A5u) << "word " << i << " of " << c.bits;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(AllKeySizes, Fips197, ::testing::ValuesIn(kAppendixC),
                         [](const auto& info) {
                           return "Aes" + std::to_string(info.param.bits);
                         });

TEST(RijndaelKeySchedule, LastRoundKeyOfAes128MatchesFips197) {
  // FIPS-197 appendix A.1, key 2b7e1516 28aed2a6 abf71588 09cf4f3c: the
  // last four words of the expansion.
  const uint8_t key[16] = {0x2b, 0x7e, 0x15, 0x16, 0x28, 0xae, 0xd2, 0xa6,
                           0xab, 0xf7, 0x15, 0x88, 0x09, 0xcf, 0x4f, 0x3c};
  Schedule rk{};
  ASSERT_EQ(rijndaelKeySetupEnc(rk.data(), key, 128), 10);
  EXPECT_EQ(rk[40], 0xd014f9a8u);
  EXPECT_EQ(rk[41], 0xc9ee2589u);
  EXPECT_EQ(rk[42], 0xe13f0cc8u);
  EXPECT_EQ(rk[43], 0xb6630ca6u);
}

TEST(RijndaelKeySchedule, DecryptionScheduleIsTheReversedEncryptionOne) {
  const auto key = CountingKey();
  Schedule enc{}, dec{};
  const int nr = rijndaelKeySetupEnc(enc.data(), key.data(), 256);
  rijndaelKeySetupDec(dec.data(), key.data(), 256);
  // The outer groups are swapped verbatim; the inner ones are transformed.
  for (int k = 0; k < 4; ++k) {
    EXPECT_EQ(dec[k], enc[4 * nr + k]);
    EXPECT_EQ(dec[4 * nr + k], enc[k]);
  }
  EXPECT_NE(dec[4], enc[4 * nr - 4]);
}

TEST(RijndaelKeySchedule, RefusesOtherSizesAfterReadingThirtyTwoBytes) {
  const auto key = CountingKey();
  for (int bits : {0, 64, 129, 160, 512}) {
    for (auto setup : {rijndaelKeySetupEnc, rijndaelKeySetupDec}) {
      Schedule rk{};
      EXPECT_EQ(setup(rk.data(), key.data(), bits), 0) << bits;
      // All eight key words were loaded big-endian, nothing beyond them.
      for (int i = 0; i < 8; ++i) {
        const uint32_t expected = (4u * i) << 24 | (4u * i + 1) << 16 |
                                  (4u * i + 2) << 8 | (4u * i + 3);
        EXPECT_EQ(rk[i], expected) << bits << " word " << i;
      }
      EXPECT_EQ(rk[8], 0u);
    }
  }
}

TEST(RijndaelKeySchedule, RandomKeysRoundTrip) {
  std::mt19937 rng(197);
  for (int bits : {128, 192, 256}) {
    for (int trial = 0; trial < 200; ++trial) {
      std::array<uint8_t, 32> key;
      Block plain;
      for (auto& b : key) b = static_cast<uint8_t>(rng());
      for (auto& b : plain) b = static_cast<uint8_t>(rng());
      Schedule enc{}, dec{};
      const int nr = rijndaelKeySetupEnc(enc.data(), key.data(), bits);
      rijndaelKeySetupDec(dec.data(), key.data(), bits);
      Block cipher{}, back{};
      rijndaelEncrypt(enc.data(), nr, plain.data(), cipher.data());
      rijndaelDecrypt(dec.data(), nr, cipher.data(), back.data());
      ASSERT_EQ(back, plain) << bits << " trial " << trial;
      ASSERT_NE(cipher, plain);
    }
  }
}

TEST(RijndaelTables, RotatedTablesAndSboxesAgree) {
  const auto rotr = [](uint32_t w, int n) {
    return (w >> n) | (w << (32 - n));
  };
  for (int x = 0; x < 256; ++x) {
    EXPECT_EQ(Te1[x], rotr(Te0[x], 8));
    EXPECT_EQ(Te2[x], rotr(Te0[x], 16));
    EXPECT_EQ(Te3[x], rotr(Te0[x], 24));
    EXPECT_EQ(Td1[x], rotr(Td0[x], 8));
    EXPECT_EQ(Td2[x], rotr(Td0[x], 16));
    EXPECT_EQ(Td3[x], rotr(Td0[x], 24));
    // Te4 and Td4 repeat the S-box and its inverse in every byte.
    const uint32_t s = Te4[x] & 0xFF;
    EXPECT_EQ(Te4[x], s * 0x01010101u);
    EXPECT_EQ(Td4[s], static_cast<uint32_t>(x) * 0x01010101u);
    // Te0 carries S[x] unmultiplied in its middle bytes.
    EXPECT_EQ((Te0[x] >> 16) & 0xFF, s);
    EXPECT_EQ((Te0[x] >> 8) & 0xFF, s);
  }
  const uint32_t expected_rcon[10] = {
      0x01000000, 0x02000000, 0x04000000, 0x08000000, 0x10000000,
      0x20000000, 0x40000000, 0x80000000, 0x1B000000, 0x36000000};
  for (int i = 0; i < 10; ++i) EXPECT_EQ(rcon[i], expected_rcon[i]);
}

}  // namespace
}  // namespace fipsval
