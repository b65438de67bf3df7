// The mode layer over the AES core: ECB, CBC and one-bit CFB over whole
// blocks (lengths in bits) and padded ECB and CBC (lengths in bytes).
//
// Two asymmetries are relied upon and kept: CBC encryption never advances
// the stored IV (a message is encrypted in one call), while CBC decryption
// does; and padded ECB decryption refuses a pad of 16 yet accepts a pad of
// 0, unlike padded CBC. Input and output may be the same buffer throughout.
#include <cstdint>
#include <cstring>

#include "fipsval.h"

namespace fipsval {
namespace {

constexpr int kBlock = 16;

// out = a ^ b over one block; out may alias either input.
inline void XorBlock(uint8_t* out, const uint8_t* a, const uint8_t* b) {
  uint64_t a0, a1, b0, b1;
  std::memcpy(&a0, a, 8);
  std::memcpy(&a1, a + 8, 8);
  std::memcpy(&b0, b, 8);
  std::memcpy(&b1, b + 8, 8);
  a0 ^= b0;
  a1 ^= b1;
  std::memcpy(out, &a0, 8);
  std::memcpy(out + 8, &a1, 8);
}

// Shifts the 16-byte register left by one bit and feeds `bit` in at the
// bottom.
inline void ShiftIn(uint8_t iv[kBlock], unsigned bit) {
  for (int t = 0; t < kBlock - 1; ++t) {
    iv[t] = static_cast<uint8_t>((iv[t] << 1) | (iv[t + 1] >> 7));
  }
  iv[kBlock - 1] = static_cast<uint8_t>((iv[kBlock - 1] << 1) | bit);
}

inline unsigned BitAt(const uint8_t* bytes, int k) {
  return (bytes[k >> 3] >> (7 - (k & 7))) & 1u;
}

// One block of CFB1: 128 one-bit steps, each costing a full encryption of
// the shift register with the encryption schedule.
void Cfb1Block(const keyInstance& key, uint8_t iv[kBlock], const uint8_t* in,
               uint8_t* out, bool encrypting) {
  if (out != in) std::memcpy(out, in, kBlock);
  uint8_t stream[kBlock];
  for (int k = 0; k < 128; ++k) {
    rijndaelEncrypt(key.ek, key.Nr, iv, stream);
    // In place the ciphertext bit k must be read before it is changed.
    const unsigned cipher_bit = encrypting ? 0 : BitAt(out, k);
    out[k >> 3] ^= static_cast<uint8_t>((stream[0] & 0x80u) >> (k & 7));
    ShiftIn(iv, encrypting ? BitAt(out, k) : cipher_bit);
  }
}

void CbcEncryptBlocks(const keyInstance& key, const uint8_t* iv,
                      const uint8_t* in, int blocks, uint8_t* out) {
  const uint8_t* chain = iv;
  uint8_t block[kBlock];
  for (int i = 0; i < blocks; ++i, in += kBlock, out += kBlock) {
    XorBlock(block, in, chain);
    rijndaelEncrypt(key.rk, key.Nr, block, out);
    chain = out;
  }
}

// Decrypts blocks and advances the stored IV to the last ciphertext block.
void CbcDecryptBlocks(const keyInstance& key, uint8_t iv[kBlock],
                      const uint8_t* in, int blocks, uint8_t* out) {
  uint8_t block[kBlock];
  for (int i = 0; i < blocks; ++i, in += kBlock, out += kBlock) {
    rijndaelDecrypt(key.rk, key.Nr, in, block);
    XorBlock(block, block, iv);
    std::memcpy(iv, in, kBlock);  // before out overwrites an aliased in
    std::memcpy(out, block, kBlock);
  }
}

}  // namespace
}  // namespace fipsval

using fipsval::kBlock;

int blockEncrypt(cipherInstance* cipher, keyInstance* key, const uint8_t* input,
                 int inputLen, uint8_t* outBuffer) {
  if (!cipher || !key || key->direction == DIR_DECRYPT) return BAD_CIPHER_STATE;
  if (!input || inputLen <= 0) return 0;
  const int blocks = inputLen / 128;
  switch (cipher->mode) {
    case MODE_ECB:
      for (int i = 0; i < blocks; ++i) {
        rijndaelEncrypt(key->rk, key->Nr, input + i * kBlock,
                        outBuffer + i * kBlock);
      }
      break;
    case MODE_CBC:
      fipsval::CbcEncryptBlocks(*key, cipher->IV, input, blocks, outBuffer);
      break;
    case MODE_CFB1:
      for (int i = 0; i < blocks; ++i) {
        fipsval::Cfb1Block(*key, cipher->IV, input + i * kBlock,
                           outBuffer + i * kBlock, true);
      }
      break;
    default:
      return BAD_CIPHER_STATE;
  }
  return 128 * blocks;
}

int blockDecrypt(cipherInstance* cipher, keyInstance* key, const uint8_t* input,
                 int inputLen, uint8_t* outBuffer) {
  if (!cipher || !key) return BAD_CIPHER_STATE;
  // CFB1 decrypts with the encryption schedule, so the key's direction is
  // not checked for it.
  if (cipher->mode == MODE_CFB1) {
    if (!input || inputLen < 1) return 0;
    const int blocks = inputLen / 128;
    for (int i = 0; i < blocks; ++i) {
      fipsval::Cfb1Block(*key, cipher->IV, input + i * kBlock,
                         outBuffer + i * kBlock, false);
    }
    return 128 * blocks;
  }
  if (key->direction == DIR_ENCRYPT) return BAD_CIPHER_STATE;
  if (!input || inputLen < 1) return 0;
  const int blocks = inputLen / 128;
  switch (cipher->mode) {
    case MODE_CBC:
      fipsval::CbcDecryptBlocks(*key, cipher->IV, input, blocks, outBuffer);
      break;
    case MODE_ECB:
      for (int i = 0; i < blocks; ++i) {
        rijndaelDecrypt(key->rk, key->Nr, input + i * kBlock,
                        outBuffer + i * kBlock);
      }
      break;
    default:
      return BAD_CIPHER_STATE;
  }
  return 128 * blocks;
}

int padEncrypt(cipherInstance* cipher, keyInstance* key, const uint8_t* input,
               int inputOctets, uint8_t* outBuffer) {
  if (!cipher || !key || key->direction == DIR_DECRYPT) return BAD_CIPHER_STATE;
  if (!input || inputOctets <= 0) return 0;
  const int blocks = inputOctets / kBlock;
  const int pad = kBlock - inputOctets % kBlock;
  const int rest = kBlock - pad;
  const uint8_t* tail_in = input + blocks * kBlock;
  uint8_t* tail_out = outBuffer + blocks * kBlock;
  uint8_t block[kBlock];
  switch (cipher->mode) {
    case MODE_ECB:
      for (int i = 0; i < blocks; ++i) {
        rijndaelEncrypt(key->rk, key->Nr, input + i * kBlock,
                        outBuffer + i * kBlock);
      }
      std::memcpy(block, tail_in, rest);
      std::memset(block + rest, pad, pad);
      rijndaelEncrypt(key->rk, key->Nr, block, tail_out);
      break;
    case MODE_CBC: {
      fipsval::CbcEncryptBlocks(*key, cipher->IV, input, blocks, outBuffer);
      const uint8_t* chain = blocks ? tail_out - kBlock : cipher->IV;
      for (int i = 0; i < rest; ++i) block[i] = tail_in[i] ^ chain[i];
      for (int i = rest; i < kBlock; ++i) {
        block[i] = static_cast<uint8_t>(pad ^ chain[i]);
      }
      rijndaelEncrypt(key->rk, key->Nr, block, tail_out);
      break;
    }
    default:
      return BAD_CIPHER_STATE;
  }
  return kBlock * (blocks + 1);
}

int padDecrypt(cipherInstance* cipher, keyInstance* key, const uint8_t* input,
               int inputOctets, uint8_t* outBuffer) {
  if (!cipher || !key || key->direction == DIR_ENCRYPT) return BAD_CIPHER_STATE;
  if (!input || inputOctets <= 0) return 0;
  if (inputOctets % kBlock != 0) return BAD_DATA;
  const int blocks = inputOctets / kBlock;
  const uint8_t* last_in = input + (blocks - 1) * kBlock;
  uint8_t* last_out = outBuffer + (blocks - 1) * kBlock;
  uint8_t block[kBlock];
  int pad = 0;
  switch (cipher->mode) {
    case MODE_ECB:
      for (int i = 0; i < blocks - 1; ++i) {
        rijndaelDecrypt(key->rk, key->Nr, input + i * kBlock,
                        outBuffer + i * kBlock);
      }
      rijndaelDecrypt(key->rk, key->Nr, last_in, block);
      pad = block[kBlock - 1];
      if (pad > 15) return BAD_DATA;  // pad 16 refused, pad 0 let through
      break;
    case MODE_CBC:
      fipsval::CbcDecryptBlocks(*key, cipher->IV, input, blocks - 1, outBuffer);
      // The last block leaves the stored IV where it is.
      rijndaelDecrypt(key->rk, key->Nr, last_in, block);
      fipsval::XorBlock(block, block, cipher->IV);
      pad = block[kBlock - 1];
      if (pad < 1 || pad > 16) return BAD_DATA;
      break;
    default:
      return BAD_CIPHER_STATE;
  }
  for (int i = kBlock - pad; i < kBlock; ++i) {
    if (block[i] != pad) return BAD_DATA;
  }
  std::memcpy(last_out, block, kBlock - pad);
  return kBlock * blocks - pad;
}
