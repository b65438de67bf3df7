// The DRBG ioctl block of include/fipsval_drbg.h for C++ code, with its
// layout checked at compile time.
#pragma once

#include <cstddef>
#include <cstdint>

#include "fipsval_drbg.h"

namespace fipsval {

inline constexpr unsigned long kRbgSetParamsIoctl =
    FIPSVAL_DRBG_SET_PARAMS_IOCTL;
inline constexpr uint32_t kRbgParamsFollowing = FIPSVAL_DRBG_PARAMS_FOLLOWING;
inline constexpr std::size_t kRbgEntropyLen = FIPSVAL_DRBG_ENTROPY_LEN;
inline constexpr std::size_t kRbgNonceLen = FIPSVAL_DRBG_NONCE_LEN;
inline constexpr std::size_t kRbgInputLen = FIPSVAL_DRBG_INPUT_LEN;
inline constexpr std::size_t kRbgReturnedMax = FIPSVAL_DRBG_RETURNED_MAX;

// The layout is fixed on every host; the two integers are written and read
// as little-endian bytes (fipsval_drbg_store_le32, fipsval_drbg_load_le32).
static_assert(sizeof(rbg_params) == 280);
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
