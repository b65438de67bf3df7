// CTR_DRBG of NIST SP 800-90A with AES-256 and the block-cipher derivation
// function, without prediction resistance: the DRBG that the random-device
// driver runs for the CTR_DRBG test ioctl, rebuilt in user space.
#pragma once

#include <openssl/aes.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <span>

namespace fipsval::host {

class CtrDrbg {
 public:
  static constexpr std::size_t kKeyLen = 32;
  static constexpr std::size_t kBlockLen = 16;
  static constexpr std::size_t kSeedLen = kKeyLen + kBlockLen;
  // Limits of SP 800-90A for AES-256: bytes per generate request, and
  // generate requests between reseeds.
  static constexpr std::size_t kMaxRequest = (1u << 19) / 8;
  static constexpr uint64_t kReseedInterval = uint64_t{1} << 48;

  using Bytes = std::span<const uint8_t>;
  using Seed = std::array<uint8_t, kSeedLen>;

  CtrDrbg() = default;
  ~CtrDrbg();
  CtrDrbg(const CtrDrbg&) = delete;
  CtrDrbg& operator=(const CtrDrbg&) = delete;

  // Instantiate: df(entropy || nonce || personalization) seeds Key and V.
  void Instantiate(Bytes entropy, Bytes nonce, Bytes personalization);
  // Reseed: df(entropy || additional) is mixed into the state.
  void Reseed(Bytes entropy, Bytes additional);
  // Fills `out`. False, with `out` untouched, before instantiation, when
  // the request is over kMaxRequest or when a reseed is due.
  bool Generate(std::span<uint8_t> out, Bytes additional);

  // Block_Cipher_df with 384 bits to return, over the concatenation of
  // `parts`. Exposed for the known-answer tests.
  static Seed DerivationFunction(std::initializer_list<Bytes> parts);

 private:
  void Update(const Seed& provided);
  void SetKey(const uint8_t* key);
  void NextBlock(uint8_t* out);  // V = V + 1, out = E(Key, V)

  AES_KEY key_schedule_{};
  std::array<uint8_t, kBlockLen> v_{};
  uint64_t reseed_counter_ = 0;  // 0 until instantiated
};

}  // namespace fipsval::host
