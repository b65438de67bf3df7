// The parameter block of the random-device driver's CTR_DRBG test ioctl.
// It is a wire format shared by the library (which fills it), the kernel
// driver and the user-space stand-in (which answer it), so every offset is
// fixed and checked here at compile time.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>

namespace fipsval {

// _IOW('R', 2, int): direction write, type 'R', number 2, size field 4.
inline constexpr unsigned long kRbgSetParamsIoctl = 0x40045202UL;

// The value of the first word: the number of bytes that follow it.
inline constexpr uint32_t kRbgParamsFollowing = 276;

// Field sizes of CTR_DRBG with AES-256 and a derivation function.
inline constexpr std::size_t kRbgEntropyLen = 32;
inline constexpr std::size_t kRbgNonceLen = 16;
inline constexpr std::size_t kRbgInputLen = 32;  // personalization, additional
inline constexpr std::size_t kRbgReturnedMax = 64;

struct rbg_params {
  uint32_t length;  // always kRbgParamsFollowing
  uint8_t entropy[kRbgEntropyLen];
  uint8_t nonce[kRbgNonceLen];
  uint8_t personalization[kRbgInputLen];
  uint8_t additional1[kRbgInputLen];  // first generate call
  uint8_t entropy_reseed[kRbgEntropyLen];
  uint8_t additional_reseed[kRbgInputLen];
  uint8_t additional2[kRbgInputLen];  // second generate call
  uint8_t returned[kRbgReturnedMax];  // written by the driver
  int32_t returned_len;               // bytes the driver is to return
};

// The integers travel in the machine's own order, which the driver's
// platforms and this one share: little-endian.
static_assert(std::endian::native == std::endian::little);
static_assert(sizeof(rbg_params) == 280);
static_assert(offsetof(rbg_params, length) == 0);
static_assert(offsetof(rbg_params, entropy) == 4);
static_assert(offsetof(rbg_params, nonce) == 36);
static_assert(offsetof(rbg_params, personalization) == 52);
static_assert(offsetof(rbg_params, additional1) == 84);
static_assert(offsetof(rbg_params, entropy_reseed) == 116);
static_assert(offsetof(rbg_params, additional_reseed) == 148);
static_assert(offsetof(rbg_params, additional2) == 180);
static_assert(offsetof(rbg_params, returned) == 212);
static_assert(offsetof(rbg_params, returned_len) == 276);
static_assert(sizeof(rbg_params) - offsetof(rbg_params, entropy) ==
              kRbgParamsFollowing);

}  // namespace fipsval
