// The table-driven AES block cipher: key schedules and one-block
// transforms. Each round is four table look-ups and XORs per column; the
// rounds are written out so that the round count is tested only twice per
// block.
#include <bit>
#include <cstdint>
#include <cstring>

#include "aes/tables.h"
#include "fipsval.h"

namespace fipsval {
namespace {

#define FIPSVAL_AES_INLINE [[gnu::always_inline]] inline

// Words are built big-endian from the byte string, whatever the host order.
FIPSVAL_AES_INLINE uint32_t Load32(const uint8_t* p) {
  uint32_t w;
  std::memcpy(&w, p, sizeof w);
  if constexpr (std::endian::native == std::endian::little) {
    w = __builtin_bswap32(w);
  }
  return w;
}

FIPSVAL_AES_INLINE void Store32(uint8_t* p, uint32_t w) {
  if constexpr (std::endian::native == std::endian::little) {
    w = __builtin_bswap32(w);
  }
  std::memcpy(p, &w, sizeof w);
}

FIPSVAL_AES_INLINE uint32_t B3(uint32_t w) { return w >> 24; }
FIPSVAL_AES_INLINE uint32_t B2(uint32_t w) { return (w >> 16) & 0xFF; }
FIPSVAL_AES_INLINE uint32_t B1(uint32_t w) { return (w >> 8) & 0xFF; }
FIPSVAL_AES_INLINE uint32_t B0(uint32_t w) { return w & 0xFF; }

struct State {
  uint32_t s0, s1, s2, s3;
};

// SubWord(RotWord(t)) of the key expansion.
FIPSVAL_AES_INLINE uint32_t SubRotWord(uint32_t t) {
  return (Te4[B2(t)] & 0xFF000000) ^ (Te4[B1(t)] & 0x00FF0000) ^
         (Te4[B0(t)] & 0x0000FF00) ^ (Te4[B3(t)] & 0x000000FF);
}

FIPSVAL_AES_INLINE uint32_t SubWord(uint32_t t) {
  return (Te4[B3(t)] & 0xFF000000) ^ (Te4[B2(t)] & 0x00FF0000) ^
         (Te4[B1(t)] & 0x0000FF00) ^ (Te4[B0(t)] & 0x000000FF);
}

// The S-box look-up through Te4 cancels the inverse S-box folded into the
// Td tables, leaving InvMixColumns.
FIPSVAL_AES_INLINE uint32_t InvMixColumns(uint32_t w) {
  return Td0[Te4[B3(w)] & 0xFF] ^ Td1[Te4[B2(w)] & 0xFF] ^
         Td2[Te4[B1(w)] & 0xFF] ^ Td3[Te4[B0(w)] & 0xFF];
}

FIPSVAL_AES_INLINE State EncRound(State s, const uint32_t* __restrict rk) {
  return {Te0[B3(s.s0)] ^ Te1[B2(s.s1)] ^ Te2[B1(s.s2)] ^ Te3[B0(s.s3)] ^ rk[0],
          Te0[B3(s.s1)] ^ Te1[B2(s.s2)] ^ Te2[B1(s.s3)] ^ Te3[B0(s.s0)] ^ rk[1],
          Te0[B3(s.s2)] ^ Te1[B2(s.s3)] ^ Te2[B1(s.s0)] ^ Te3[B0(s.s1)] ^ rk[2],
          Te0[B3(s.s3)] ^ Te1[B2(s.s0)] ^ Te2[B1(s.s1)] ^ Te3[B0(s.s2)] ^ rk[3]};
}

FIPSVAL_AES_INLINE uint32_t EncLast(uint32_t a, uint32_t b, uint32_t c,
                                    uint32_t d, uint32_t k) {
  return (Te4[B3(a)] & 0xFF000000) ^ (Te4[B2(b)] & 0x00FF0000) ^
         (Te4[B1(c)] & 0x0000FF00) ^ (Te4[B0(d)] & 0x000000FF) ^ k;
}

FIPSVAL_AES_INLINE State DecRound(State s, const uint32_t* __restrict rk) {
  return {Td0[B3(s.s0)] ^ Td1[B2(s.s3)] ^ Td2[B1(s.s2)] ^ Td3[B0(s.s1)] ^ rk[0],
          Td0[B3(s.s1)] ^ Td1[B2(s.s0)] ^ Td2[B1(s.s3)] ^ Td3[B0(s.s2)] ^ rk[1],
          Td0[B3(s.s2)] ^ Td1[B2(s.s1)] ^ Td2[B1(s.s0)] ^ Td3[B0(s.s3)] ^ rk[2],
          Td0[B3(s.s3)] ^ Td1[B2(s.s2)] ^ Td2[B1(s.s1)] ^ Td3[B0(s.s0)] ^ rk[3]};
}

FIPSVAL_AES_INLINE uint32_t DecLast(uint32_t a, uint32_t b, uint32_t c,
                                    uint32_t d, uint32_t k) {
  return (Td4[B3(a)] & 0xFF000000) ^ (Td4[B2(b)] & 0x00FF0000) ^
         (Td4[B1(c)] & 0x0000FF00) ^ (Td4[B0(d)] & 0x000000FF) ^ k;
}

#undef FIPSVAL_AES_INLINE

}  // namespace
}  // namespace fipsval

using fipsval::DecLast;
using fipsval::DecRound;
using fipsval::EncLast;
using fipsval::EncRound;
using fipsval::Load32;
using fipsval::State;
using fipsval::Store32;

int rijndaelKeySetupEnc(uint32_t rk[4 * (MAXNR + 1)], const uint8_t cipherKey[],
                        int keyBits) {
  using fipsval::rcon;
  rk[0] = Load32(cipherKey);
  rk[1] = Load32(cipherKey + 4);
  rk[2] = Load32(cipherKey + 8);
  rk[3] = Load32(cipherKey + 12);
  if (keyBits == 128) {
    for (int i = 0;; ++i, rk += 4) {
      rk[4] = rk[0] ^ fipsval::SubRotWord(rk[3]) ^ rcon[i];
      rk[5] = rk[1] ^ rk[4];
      rk[6] = rk[2] ^ rk[5];
      rk[7] = rk[3] ^ rk[6];
      if (i == 9) return 10;
    }
  }
  rk[4] = Load32(cipherKey + 16);
  rk[5] = Load32(cipherKey + 20);
  if (keyBits == 192) {
    for (int i = 0;; ++i, rk += 6) {
      rk[6] = rk[0] ^ fipsval::SubRotWord(rk[5]) ^ rcon[i];
      rk[7] = rk[1] ^ rk[6];
      rk[8] = rk[2] ^ rk[7];
      rk[9] = rk[3] ^ rk[8];
      if (i == 7) return 12;
      rk[10] = rk[4] ^ rk[9];
      rk[11] = rk[5] ^ rk[10];
    }
  }
  // Any other size has read all 32 key bytes by the time it is refused:
  // the caller answers for the length of the key buffer.
  rk[6] = Load32(cipherKey + 24);
  rk[7] = Load32(cipherKey + 28);
  if (keyBits == 256) {
    for (int i = 0;; ++i, rk += 8) {
      rk[8] = rk[0] ^ fipsval::SubRotWord(rk[7]) ^ rcon[i];
      rk[9] = rk[1] ^ rk[8];
      rk[10] = rk[2] ^ rk[9];
      rk[11] = rk[3] ^ rk[10];
      if (i == 6) return 14;
      rk[12] = rk[4] ^ fipsval::SubWord(rk[11]);
      rk[13] = rk[5] ^ rk[12];
      rk[14] = rk[6] ^ rk[13];
      rk[15] = rk[7] ^ rk[14];
    }
  }
  return 0;
}

int rijndaelKeySetupDec(uint32_t rk[4 * (MAXNR + 1)], const uint8_t cipherKey[],
                        int keyBits) {
  const int Nr = rijndaelKeySetupEnc(rk, cipherKey, keyBits);
  // The equivalent inverse cipher: round keys in reverse order, with
  // InvMixColumns applied to all but the first and last.
  for (int i = 0, j = 4 * Nr; i < j; i += 4, j -= 4) {
    for (int k = 0; k < 4; ++k) {
      const uint32_t t = rk[i + k];
      rk[i + k] = rk[j + k];
      rk[j + k] = t;
    }
  }
  for (int i = 4; i < 4 * Nr; ++i) rk[i] = fipsval::InvMixColumns(rk[i]);
  return Nr;
}

void rijndaelEncrypt(const uint32_t rk[4 * (MAXNR + 1)], int Nr,
                     const uint8_t pt[16], uint8_t ct[16]) {
  State s{Load32(pt) ^ rk[0], Load32(pt + 4) ^ rk[1], Load32(pt + 8) ^ rk[2],
          Load32(pt + 12) ^ rk[3]};
  s = EncRound(s, rk + 4);
  s = EncRound(s, rk + 8);
  s = EncRound(s, rk + 12);
  s = EncRound(s, rk + 16);
  s = EncRound(s, rk + 20);
  s = EncRound(s, rk + 24);
  s = EncRound(s, rk + 28);
  s = EncRound(s, rk + 32);
  s = EncRound(s, rk + 36);
  if (Nr > 10) {
    s = EncRound(s, rk + 40);
    s = EncRound(s, rk + 44);
    if (Nr > 12) {
      s = EncRound(s, rk + 48);
      s = EncRound(s, rk + 52);
    }
  }
  const uint32_t* last = rk + 4 * Nr;
  // Every word is computed before the first store: ct may alias pt.
  const uint32_t o0 = EncLast(s.s0, s.s1, s.s2, s.s3, last[0]);
  const uint32_t o1 = EncLast(s.s1, s.s2, s.s3, s.s0, last[1]);
  const uint32_t o2 = EncLast(s.s2, s.s3, s.s0, s.s1, last[2]);
  const uint32_t o3 = EncLast(s.s3, s.s0, s.s1, s.s2, last[3]);
  Store32(ct, o0);
  Store32(ct + 4, o1);
  Store32(ct + 8, o2);
  Store32(ct + 12, o3);
}

void rijndaelDecrypt(const uint32_t rk[4 * (MAXNR + 1)], int Nr,
                     const uint8_t ct[16], uint8_t pt[16]) {
  State s{Load32(ct) ^ rk[0], Load32(ct + 4) ^ rk[1], Load32(ct + 8) ^ rk[2],
          Load32(ct + 12) ^ rk[3]};
  s = DecRound(s, rk + 4);
  s = DecRound(s, rk + 8);
  s = DecRound(s, rk + 12);
  s = DecRound(s, rk + 16);
  s = DecRound(s, rk + 20);
  s = DecRound(s, rk + 24);
  s = DecRound(s, rk + 28);
  s = DecRound(s, rk + 32);
  s = DecRound(s, rk + 36);
  if (Nr > 10) {
    s = DecRound(s, rk + 40);
    s = DecRound(s, rk + 44);
    if (Nr > 12) {
      s = DecRound(s, rk + 48);
      s = DecRound(s, rk + 52);
    }
  }
  const uint32_t* last = rk + 4 * Nr;
  const uint32_t o0 = DecLast(s.s0, s.s3, s.s2, s.s1, last[0]);
  const uint32_t o1 = DecLast(s.s1, s.s0, s.s3, s.s2, last[1]);
  const uint32_t o2 = DecLast(s.s2, s.s1, s.s0, s.s3, last[2]);
  const uint32_t o3 = DecLast(s.s3, s.s2, s.s1, s.s0, last[3]);
  Store32(pt, o0);
  Store32(pt + 4, o1);
  Store32(pt + 8, o2);
  Store32(pt + 12, o3);
}
