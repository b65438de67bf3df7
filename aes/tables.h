// The constant tables of the table-driven AES: the round tables Te0..Te3
// and Td0..Td3, the S-box tables Te4 and Td4 and the round constants. They
// are computed by the compiler from the field arithmetic, so the binary
// holds them as read-only data and no start-up code fills them.
#pragma once

#include <array>
#include <cstdint>

namespace fipsval {
namespace aes_tables {

using Table = std::array<uint32_t, 256>;
using Bytes = std::array<uint8_t, 256>;

// Multiplication in GF(2^8) modulo x^8 + x^4 + x^3 + x + 1 (0x11B).
constexpr uint8_t Mul(uint8_t a, uint8_t b) {
  uint8_t product = 0;
  while (b) {
    if (b & 1) product ^= a;
    a = static_cast<uint8_t>((a << 1) ^ ((a & 0x80) ? 0x1B : 0));
    b >>= 1;
  }
  return product;
}

constexpr uint8_t Rotl8(uint8_t x, int n) {
  return static_cast<uint8_t>((x << n) | (x >> (8 - n)));
}

// The FIPS-197 S-box: the multiplicative inverse followed by the affine
// map. Walking the powers of the generator 3 (p) together with those of its
// inverse (q) yields every non-zero inverse pair in 255 steps.
constexpr Bytes MakeSbox() {
  Bytes s{};
  uint8_t p = 1;
  uint8_t q = 1;
  do {
    p = static_cast<uint8_t>(p ^ (p << 1) ^ ((p & 0x80) ? 0x1B : 0));
    q ^= static_cast<uint8_t>(q << 1);
    q ^= static_cast<uint8_t>(q << 2);
    q ^= static_cast<uint8_t>(q << 4);
    if (q & 0x80) q ^= 0x09;
    s[p] = static_cast<uint8_t>(q ^ Rotl8(q, 1) ^ Rotl8(q, 2) ^ Rotl8(q, 3) ^
                                Rotl8(q, 4) ^ 0x63);
  } while (p != 1);
  s[0] = 0x63;
  return s;
}

constexpr Bytes MakeInverse(const Bytes& s) {
  Bytes inv{};
  for (int x = 0; x < 256; ++x) inv[s[x]] = static_cast<uint8_t>(x);
  return inv;
}

inline constexpr Bytes kSbox = MakeSbox();
inline constexpr Bytes kInvSbox = MakeInverse(kSbox);

constexpr uint32_t Word(uint8_t b0, uint8_t b1, uint8_t b2, uint8_t b3) {
  return (uint32_t{b0} << 24) | (uint32_t{b1} << 16) | (uint32_t{b2} << 8) |
         uint32_t{b3};
}

constexpr uint32_t Rotr(uint32_t w, int n) {
  return n == 0 ? w : (w >> n) | (w << (32 - n));
}

// Te<n>[x] = (2·S[x], S[x], S[x], 3·S[x]) rotated right by 8n bits.
constexpr Table MakeTe(int n) {
  Table t{};
  for (int x = 0; x < 256; ++x) {
    const uint8_t s = kSbox[x];
    t[x] = Rotr(Word(Mul(s, 2), s, s, Mul(s, 3)), 8 * n);
  }
  return t;
}

// Td<n>[x] = (0E·Si[x], 09·Si[x], 0D·Si[x], 0B·Si[x]) rotated right by 8n.
constexpr Table MakeTd(int n) {
  Table t{};
  for (int x = 0; x < 256; ++x) {
    const uint8_t s = kInvSbox[x];
    t[x] = Rotr(Word(Mul(s, 0x0E), Mul(s, 0x09), Mul(s, 0x0D), Mul(s, 0x0B)),
                8 * n);
  }
  return t;
}

constexpr Table Replicate(const Bytes& box) {
  Table t{};
  for (int x = 0; x < 256; ++x) t[x] = box[x] * 0x01010101u;
  return t;
}

constexpr std::array<uint32_t, 10> MakeRcon() {
  std::array<uint32_t, 10> r{};
  uint8_t x = 1;
  for (auto& word : r) {
    word = uint32_t{x} << 24;
    x = Mul(x, 2);
  }
  return r;
}

}  // namespace aes_tables

inline constexpr aes_tables::Table Te0 = aes_tables::MakeTe(0);
inline constexpr aes_tables::Table Te1 = aes_tables::MakeTe(1);
inline constexpr aes_tables::Table Te2 = aes_tables::MakeTe(2);
inline constexpr aes_tables::Table Te3 = aes_tables::MakeTe(3);
inline constexpr aes_tables::Table Te4 = aes_tables::Replicate(aes_tables::kSbox);
inline constexpr aes_tables::Table Td0 = aes_tables::MakeTd(0);
inline constexpr aes_tables::Table Td1 = aes_tables::MakeTd(1);
inline constexpr aes_tables::Table Td2 = aes_tables::MakeTd(2);
inline constexpr aes_tables::Table Td3 = aes_tables::MakeTd(3);
inline constexpr aes_tables::Table Td4 =
    aes_tables::Replicate(aes_tables::kInvSbox);
inline constexpr std::array<uint32_t, 10> rcon = aes_tables::MakeRcon();

// Spot checks against the published tables, so that a slip in the
// generators fails the build instead of a test run.
static_assert(aes_tables::kSbox[0x00] == 0x63 && aes_tables::kSbox[0x53] == 0xED);
static_assert(aes_tables::kInvSbox[0x63] == 0x00);
static_assert(Te0[0x00] == 0xC66363A5u && Te0[0xFF] == 0x2C16163Au);
static_assert(Te1[0x00] == 0xA5C66363u && Te3[0x00] == 0x6363A5C6u);
static_assert(Td0[0x00] == 0x51F4A750u && Td0[0xFF] == 0xD0B85742u);
static_assert(Te4[0x01] == 0x7C7C7C7Cu && Td4[0x00] == 0x52525252u);
static_assert(rcon[8] == 0x1B000000u && rcon[9] == 0x36000000u);

}  // namespace fipsval
