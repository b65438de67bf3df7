// The native AES block cipher: FIPS-197 appendix C in both directions and
// in place, the key schedules' round counts and extents, and the refused
// key sizes. (The tables are checked at compile time in aes/tables.h.)
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <numeric>

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

TEST_P(Fips197, EncryptsAndDecryptsTheAppendixVectorAlsoInPlace) {
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

}  // namespace
}  // namespace fipsval
