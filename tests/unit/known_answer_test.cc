// The algorithm known-answer tests and their frozen vectors. The vectors
// are checked against OpenSSL through other routes (EVP, one-shot HMAC, a
// public-key-only verification) than the tests themselves take.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <openssl/aes.h>
#include <openssl/bn.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rsa.h>
#include <openssl/sha.h>

#include <array>
#include <atomic>
#include <climits>
#include <memory>
#include <ostream>
#include <span>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "fipsval.h"
#include "selftest/selftest.h"
#include "selftest/vectors.h"

// Counting wrappers around the OpenSSL calls whose use the forced failures
// are meant to change; they forward to the real functions.
namespace {
std::atomic<int> g_decrypt_key_setups{0};
std::atomic<int> g_signs_ok{0};
std::atomic<int> g_verify_calls{0};
std::atomic<int> g_verifies_ok{0};

template <typename Fn>
Fn Real(Fn, const char* name) {
  return reinterpret_cast<Fn>(dlsym(RTLD_NEXT, name));
}
}  // namespace

extern "C" int AES_set_decrypt_key(const unsigned char* key, const int bits,
                                   AES_KEY* schedule) {
  static const auto real = Real(&AES_set_decrypt_key, "AES_set_decrypt_key");
  ++g_decrypt_key_setups;
  return real(key, bits, schedule);
}

extern "C" int RSA_sign(int type, const unsigned char* m, unsigned int m_length,
                        unsigned char* sigret, unsigned int* siglen, RSA* rsa) {
  static const auto real = Real(&RSA_sign, "RSA_sign");
  const int ok = real(type, m, m_length, sigret, siglen, rsa);
  if (ok) ++g_signs_ok;
  return ok;
}

extern "C" int RSA_verify(int type, const unsigned char* m, unsigned int m_length,
                          const unsigned char* sigbuf, unsigned int siglen, RSA* rsa) {
  static const auto real = Real(&RSA_verify, "RSA_verify");
  const int ok = real(type, m, m_length, sigbuf, siglen, rsa);
  ++g_verify_calls;
  if (ok) ++g_verifies_ok;
  return ok;
}

namespace fipsval::testing {
namespace {

using Bytes = std::vector<uint8_t>;

Bytes FromHex(std::string_view hex) {
  Bytes out;
  for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
    out.push_back(static_cast<uint8_t>(std::stoi(std::string(hex.substr(i, 2)), nullptr, 16)));
  }
  return out;
}

template <typename Container>
Bytes ToBytes(const Container& c) {
  return Bytes(c.begin(), c.end());
}

Bytes EncryptCbc(const EVP_CIPHER* cipher, const Bytes& key, const Bytes& iv,
                 const Bytes& in) {
  std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)> ctx(
      EVP_CIPHER_CTX_new(), EVP_CIPHER_CTX_free);
  Bytes out(in.size());
  int len = 0;
  EXPECT_EQ(EVP_EncryptInit_ex(ctx.get(), cipher, nullptr, key.data(), iv.data()), 1);
  EVP_CIPHER_CTX_set_padding(ctx.get(), 0);
  EXPECT_EQ(EVP_EncryptUpdate(ctx.get(), out.data(), &len, in.data(),
                              static_cast<int>(in.size())),
            1);
  EXPECT_EQ(len, static_cast<int>(in.size()));
  return out;
}

using RsaPtr = std::unique_ptr<RSA, decltype(&RSA_free)>;

RsaPtr LoadKey() {
  RsaPtr rsa(RSA_new(), RSA_free);
  EXPECT_EQ(fips_set_rsa_key(rsa.get()), 0);
  return rsa;
}

BIGNUM* ToBn(std::span<const uint8_t> v) {
  return BN_bin2bn(v.data(), static_cast<int>(v.size()), nullptr);
}

// ---------------------------------------------------------------------------
// The vectors.

TEST(Vectors, AesIsRfc3602Case1KeyAndPlaintext) {
  EXPECT_EQ(ToBytes(kat::kAesKey), FromHex("06a9214036b8a15b512e03d534120006"));
  EXPECT_STREQ(kat::kAesPlaintext, "Single block msg");
  // Our own IV, not the RFC's.
  EXPECT_NE(ToBytes(kat::kAesIv), FromHex("3dafba429d9eb430b422da802c9fac41"));
  const Bytes pt(kat::kAesPlaintext, kat::kAesPlaintext + 16);
  EXPECT_EQ(EncryptCbc(EVP_aes_128_cbc(), ToBytes(kat::kAesKey), ToBytes(kat::kAesIv), pt),
            ToBytes(kat::kAesCiphertext));
}

TEST(Vectors, TdesCiphertextIsThreeKeyEdeCbcUnderZeroIv) {
  EXPECT_EQ(ToBytes(kat::kTdesIv), Bytes(8, 0));
  EXPECT_NE(kat::kTdesKey1, kat::kTdesKey2);
  EXPECT_NE(kat::kTdesKey2, kat::kTdesKey3);
  EXPECT_NE(kat::kTdesKey1, kat::kTdesKey3);
  Bytes key = ToBytes(kat::kTdesKey1);
  key.insert(key.end(), kat::kTdesKey2.begin(), kat::kTdesKey2.end());
  key.insert(key.end(), kat::kTdesKey3.begin(), kat::kTdesKey3.end());
  EXPECT_EQ(EncryptCbc(EVP_des_ede3_cbc(), key, Bytes(8, 0), ToBytes(kat::kTdesPlaintext)),
            ToBytes(kat::kTdesCiphertext));
}

TEST(Vectors, HmacIsRfcTestCase2) {
  EXPECT_STREQ(kat::kHmacKey, "Jefe");
  EXPECT_STREQ(kat::kHmacData, "what do ya want for nothing?");
  EXPECT_EQ(ToBytes(kat::kHmacSha1Mac), FromHex("effcdf6ae5eb2fa2d27416d5f184df9c259a7c79"));
  EXPECT_EQ(ToBytes(kat::kHmacSha256Mac),
            FromHex("5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843"));
  std::array<uint8_t, 32> mac{};
  HMAC(EVP_sha256(), "Jefe", 4, reinterpret_cast<const uint8_t*>(kat::kHmacData), 28,
       mac.data(), nullptr);
  EXPECT_EQ(mac, kat::kHmacSha256Mac);
}

TEST(Vectors, RsaComponentsCarryOneTerminatingZero) {
  for (uint8_t last : {kat::kRsaN.back(), kat::kRsaE.back(), kat::kRsaD.back(),
                       kat::kRsaP.back(), kat::kRsaQ.back(), kat::kRsaDmp1.back(),
                       kat::kRsaDmq1.back(), kat::kRsaIqmp.back(), kat::kRsaMessage.back()}) {
    EXPECT_EQ(last, 0);
  }
  EXPECT_EQ(ToBytes(kat::Value(kat::kRsaE)), FromHex("010001"));
  // Converted at their full lengths, so these must fill them.
  EXPECT_NE(kat::kRsaN[0], 0);
  EXPECT_NE(kat::kRsaP[0], 0);
  EXPECT_NE(kat::kRsaQ[0], 0);
}

TEST(Vectors, RsaKeyIsAConsistent2048BitKey) {
  RsaPtr rsa = LoadKey();
  EXPECT_EQ(RSA_check_key(rsa.get()), 1);
  EXPECT_EQ(RSA_bits(rsa.get()), 2048);
  EXPECT_EQ(BN_get_word(RSA_get0_e(rsa.get())), 65537u);
}

TEST(Vectors, SignatureVerifiesUnderThePublicKeyAlone) {
  std::array<uint8_t, 32> digest{};
  SHA256(kat::kRsaMessage.data(), 272, digest.data());
  EXPECT_EQ(digest, kat::kRsaDigest);

  RsaPtr pub(RSA_new(), RSA_free);
  ASSERT_EQ(RSA_set0_key(pub.get(), ToBn(kat::Value(kat::kRsaN)),
                         ToBn(kat::Value(kat::kRsaE)), nullptr),
            1);
  EXPECT_EQ(RSA_verify(NID_sha256, digest.data(), 32, kat::kRsaSignature.data(), 256,
                       pub.get()),
            1);
}

TEST(Vectors, NullKeyIsRefused) { EXPECT_EQ(fips_set_rsa_key(nullptr), -1); }

// ---------------------------------------------------------------------------
// The tests, through their exported names (which run the internal ones).

struct Kat {
  const char* name;
  int (*run)(int force);
};
void PrintTo(const Kat& k, std::ostream* os) { *os << k.name; }

class KnownAnswer : public ::testing::TestWithParam<Kat> {};

TEST_P(KnownAnswer, PassesUnforcedAndFailsOnAnyForce) {
  const Kat& k = GetParam();
  EXPECT_EQ(k.run(0), 1);
  for (int force : {1, 2, 4, 8, 16, 128, -1, INT_MIN}) {
    EXPECT_EQ(k.run(force), 0) << "force " << force;
  }
  EXPECT_EQ(k.run(0), 1) << "a forced run leaves nothing behind";
}

INSTANTIATE_TEST_SUITE_P(
    All, KnownAnswer,
    ::testing::Values(Kat{"fips_kat_aes_test", fips_kat_aes_test},
                      Kat{"fips_kat_sha1_test", fips_kat_sha1_test},
                      Kat{"fips_kat_sha256_test", fips_kat_sha256_test},
                      Kat{"fips_kat_3des_test", fips_kat_3des_test},
                      Kat{"fips_kat_rsa_test", fips_kat_rsa_test}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(KnownAnswerFailures, ForcedAesFailureSkipsDecryption) {
  g_decrypt_key_setups = 0;
  EXPECT_EQ(fips_kat_aes_test(2), 0);
  EXPECT_EQ(g_decrypt_key_setups, 0);
  EXPECT_EQ(fips_kat_aes_test(0), 1);
  EXPECT_EQ(g_decrypt_key_setups, 1);
}

TEST(KnownAnswerFailures, ForcedRsaFailureIsCaughtOnlyByVerify) {
  g_signs_ok = 0;
  g_verify_calls = 0;
  g_verifies_ok = 0;
  EXPECT_EQ(fips_kat_rsa_test(16), 0);
  // The signature was made (and matched the frozen one); only the
  // verification of the corrupted digest failed.
  EXPECT_EQ(g_signs_ok, 1);
  EXPECT_EQ(g_verify_calls, 1);
  EXPECT_EQ(g_verifies_ok, 0);

  EXPECT_EQ(fips_kat_rsa_test(0), 1);
  EXPECT_EQ(g_verifies_ok, 1);
}

TEST(KnownAnswerFailures, ReentrantAcrossThreads) {
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&wrong, t] {
      for (int i = 0; i < 5; ++i) {
        const int force = (i + t) % 2;  // interleave passing and forced runs
        for (auto* kat : {fips_kat_aes_test, fips_kat_sha1_test, fips_kat_sha256_test,
                          fips_kat_3des_test, fips_kat_rsa_test}) {
          if (kat(force) != (force ? 0 : 1)) ++wrong;
        }
      }
    });
  }
  for (std::thread& t : threads) t.join();
  EXPECT_EQ(wrong, 0);
}

}  // namespace
}  // namespace fipsval::testing
