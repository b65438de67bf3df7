// Constant vectors of the algorithm known-answer tests. The AES key and
// plaintext and the HMAC vectors are the published RFC ones; the rest were
// computed once with OpenSSL (selftest/tools/make_vectors.cc) and frozen in
// vectors.cc.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace fipsval::kat {

// A byte string stored with one zero byte after it; the zero is not part
// of the value.
template <std::size_t N>
using Terminated = std::array<uint8_t, N + 1>;

// The value of a Terminated string, without its terminator.
template <std::size_t M>
constexpr std::span<const uint8_t, M - 1> Value(const std::array<uint8_t, M>& s) {
  return std::span(s).template first<M - 1>();
}

// AES-128-CBC: RFC 3602 test case 1 key and plaintext (a terminated
// string), an IV of our own and the resulting ciphertext.
extern const std::array<uint8_t, 16> kAesKey;
extern const char kAesPlaintext[17];
extern const std::array<uint8_t, 16> kAesIv;
extern const std::array<uint8_t, 16> kAesCiphertext;

// TDES EDE3-CBC: three independent DES keys, used in this order, and an
// all-zero IV.
extern const std::array<uint8_t, 8> kTdesKey1;
extern const std::array<uint8_t, 8> kTdesKey2;
extern const std::array<uint8_t, 8> kTdesKey3;
extern const std::array<uint8_t, 8> kTdesPlaintext;
extern const std::array<uint8_t, 8> kTdesCiphertext;
inline constexpr std::array<uint8_t, 8> kTdesIv{};

// HMAC-SHA-1 and HMAC-SHA-256: test case 2 of RFC 2202 and RFC 4231.
inline constexpr char kHmacKey[] = "Jefe";
inline constexpr char kHmacData[] = "what do ya want for nothing?";
extern const std::array<uint8_t, 20> kHmacSha1Mac;
extern const std::array<uint8_t, 32> kHmacSha256Mac;

// RSA-2048 key with e = 65537; big-endian components at full length.
extern const Terminated<256> kRsaN;
extern const Terminated<3> kRsaE;
extern const Terminated<256> kRsaD;
extern const Terminated<128> kRsaP;
extern const Terminated<128> kRsaQ;
extern const Terminated<128> kRsaDmp1;
extern const Terminated<128> kRsaDmq1;
extern const Terminated<128> kRsaIqmp;

// The signed message, its SHA-256 and its PKCS#1 v1.5 signature.
inline constexpr std::size_t kRsaMessageLength = 272;
extern const Terminated<kRsaMessageLength> kRsaMessage;
extern const std::array<uint8_t, 32> kRsaDigest;
extern const std::array<uint8_t, 256> kRsaSignature;

}  // namespace fipsval::kat
