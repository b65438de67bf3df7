// Conversions and reference vectors shared by the tests.
#pragma once

#include <openssl/bn.h>

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace fipsval::testing {

// Lower-case hex of bytes, as the runners write it.
std::string Hex(std::span<const uint8_t> bytes);
// A big number as OpenSSL writes it: upper case, "0" for zero.
std::string Hex(const BIGNUM* x);
// The bytes of a hex text (either case; a trailing odd digit is ignored).
std::vector<uint8_t> FromHex(std::string_view hex);

// One CTR_DRBG test (AES-256 with derivation function, no prediction
// resistance) as hex text: empty strings are empty inputs.
struct DrbgVector {
  std::string_view entropy, nonce, personalization, entropy_reseed,
      additional_reseed, additional1, additional2, returned;  // 512 bits
};

// NIST's answers: one test with every optional input empty, one with all.
inline constexpr DrbgVector kDrbgAllEmpty = {
    "2d4c9f46b981c6a0b2b5d8c69391e569ff13851437ebc0fc00d616340252fed5",
    "0bf814b411f65ec4866be1abb59d3c32",
    "",
    "93500fae4fa32b86033b7a7bac9d37e710dcc67ca266bc8607d665937766d207",
    "",
    "",
    "",
    "322dd28670e75c0ea638f3cb68d6a9d6e50ddfd052b772a7b1d78263a7b8978b6740c2b6"
    "5a9550c3a76325866fa97e16d74006bc96f26249b9f0a90d076f08e5"};
inline constexpr DrbgVector kDrbgEverything = {
    "174b46250051a9e3d80c56ae7163dafe7e54481a56cafd3b8625f99bbb29c442",
    "98ffd99c466e0e94a45da7e0e82dbc6b",
    "7095268e99938b3e042734b9176c9aa051f00a5f8d2a89ada214b89beef18ebf",
    "e88be1967c5503f65d23867bbc891bd679db03b4878663f6c877592df25f0d9a",
    "cdf6ad549e45b6aa5cd67d024931c33cd133d52d5ae500c3015020beb30da063",
    "c7228e90c62f896a09e11684530102f926ec90a3255f6c21b857883c75800143",
    "76a94f224178fe4cbf9e2b8acc53c9dc3e50bb613aac8936601453cda3293b17",
    "1a6d8dbd642076d13916e5e23038b60b26061f13dd4e006277e0268698ffb2c87e453bae"
    "1251631ac90c701a9849d933995e8b0221fe9aca1985c546c2079027"};

}  // namespace fipsval::testing
