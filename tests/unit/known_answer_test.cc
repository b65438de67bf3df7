// The algorithm known-answer tests and their frozen vectors. The vectors
// are checked against OpenSSL through other routes (EVP, one-shot HMAC, a
// public-key-only verification) than the tests themselves take; where a
// forced failure strikes is seen through wrappers of the OpenSSL calls.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <openssl/aes.h>
#include <openssl/bn.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rsa.h>
#include <openssl/sha.h>

#include <array>
#include <climits>
#include <vector>

#include "fipsval.h"
#include "selftest/selftest.h"
#include "selftest/vectors.h"
#include "tests/support/test_util.h"

// What the wrapped calls saw; each forwards to OpenSSL.
namespace {
thread_local int t_aes_decrypt_setups, t_verifies, t_verifies_ok;
thread_local std::vector<uint8_t> t_tdes_decrypt_in, t_tdes_decrypt_out;
template <typename Fn>
Fn Real(Fn, const char* name) {
  return reinterpret_cast<Fn>(dlsym(RTLD_NEXT, name));
}
}  // namespace

extern "C" int AES_set_decrypt_key(const unsigned char* key, const int bits, AES_KEY* ks) {
  static const auto real = Real(&AES_set_decrypt_key, "AES_set_decrypt_key");
  ++t_aes_decrypt_setups;
  return real(key, bits, ks);
}
extern "C" int EVP_DecryptUpdate(EVP_CIPHER_CTX* ctx, unsigned char* out, int* outl,
                                 const unsigned char* in, int inl) {
  static const auto real = Real(&EVP_DecryptUpdate, "EVP_DecryptUpdate");
  t_tdes_decrypt_in.assign(in, in + inl);
  const int ok = real(ctx, out, outl, in, inl);
  t_tdes_decrypt_out.assign(out, out + 8);  // the test reads 8 bytes whatever *outl says
  return ok;
}
extern "C" int RSA_verify(int type, const unsigned char* m, unsigned int m_len,
                          const unsigned char* sig, unsigned int sig_len, RSA* rsa) {
  static const auto real = Real(&RSA_verify, "RSA_verify");
  const int ok = real(type, m, m_len, sig, sig_len, rsa);
  ++t_verifies;
  t_verifies_ok += ok != 0;
  return ok;
}

namespace fipsval::testing {
namespace {

using Bytes = std::vector<uint8_t>;
template <typename C>
Bytes B(const C& c) {
  return Bytes(std::begin(c), std::end(c));
}

Bytes EncryptCbc(const EVP_CIPHER* cipher, const Bytes& key, const Bytes& iv, const Bytes& in) {
  EVP_CIPHER_CTX* ctx = EVP_CIPHER_CTX_new();
  Bytes out(in.size());
  int len = 0;
  EVP_EncryptInit_ex(ctx, cipher, nullptr, key.data(), iv.data());
  EVP_EncryptUpdate(ctx, out.data(), &len, in.data(), static_cast<int>(in.size()));
  EVP_CIPHER_CTX_free(ctx);
  return out;
}

TEST(Vectors, AreThePublishedOnesOrRecomputeWithOpenSsl) {
  EXPECT_EQ(Hex(kat::kAesKey), "06a9214036b8a15b512e03d534120006");  // RFC 3602 case 1
  EXPECT_STREQ(kat::kAesPlaintext, "Single block msg");
  EXPECT_EQ(EncryptCbc(EVP_aes_128_cbc(), B(kat::kAesKey), B(kat::kAesIv),
                       Bytes(kat::kAesPlaintext, kat::kAesPlaintext + 16)),
            B(kat::kAesCiphertext));

  Bytes key = B(kat::kTdesKey1);
  for (const auto& k : {kat::kTdesKey2, kat::kTdesKey3}) key.insert(key.end(), k.begin(), k.end());
  EXPECT_EQ(EncryptCbc(EVP_des_ede3_cbc(), key, Bytes(8, 0), B(kat::kTdesPlaintext)),
            B(kat::kTdesCiphertext));

  // RFC 2202 and RFC 4231 test case 2 (key "Jefe"), which the tests pass.
  EXPECT_EQ(Hex(kat::kHmacSha1Mac), "effcdf6ae5eb2fa2d27416d5f184df9c259a7c79");
  EXPECT_EQ(Hex(kat::kHmacSha256Mac),
            "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843");
}

TEST(Vectors, RsaKeyIsConsistentAndTheSignatureVerifiesUnderThePublicKeyAlone) {
  RSA *rsa = RSA_new(), *pub = RSA_new();
  EXPECT_EQ(fips_set_rsa_key(rsa), 0);
  EXPECT_EQ(fips_set_rsa_key(nullptr), -1);
  EXPECT_EQ(RSA_check_key(rsa), 1);
  EXPECT_EQ(RSA_bits(rsa), 2048);
  EXPECT_EQ(Hex(kat::Value(kat::kRsaE)), "010001");

  std::array<uint8_t, 32> digest;
  SHA256(kat::kRsaMessage.data(), 272, digest.data());
  EXPECT_EQ(digest, kat::kRsaDigest);
  RSA_set0_key(pub, BN_dup(RSA_get0_n(rsa)), BN_dup(RSA_get0_e(rsa)), nullptr);
  EXPECT_EQ(RSA_verify(NID_sha256, digest.data(), 32, kat::kRsaSignature.data(), 256, pub), 1);
  RSA_free(rsa);
  RSA_free(pub);
}

constexpr int (*kKats[])(int) = {fips_kat_aes_test, fips_kat_sha1_test, fips_kat_sha256_test,
                                 fips_kat_3des_test, fips_kat_rsa_test};

TEST(KnownAnswer, EachPassesUnforcedAndFailsOnAnyForce) {
  for (auto* kat : kKats) {
    EXPECT_EQ(kat(0), 1);
    for (int force : {1, 2, 128, -1, INT_MIN}) EXPECT_EQ(kat(force), 0) << force;
    EXPECT_EQ(kat(0), 1) << "a forced run leaves nothing behind";
  }
}

// Where each forced failure strikes: AES at the ciphertext comparison (the
// decryption never runs), TDES in the decrypted bytes of a decryption of
// the genuine ciphertext, RSA only at the verification of a signature that
// was made and matched.
TEST(KnownAnswer, ForcedFailuresCorruptTheirOwnIntermediateResult) {
  t_aes_decrypt_setups = 0;
  EXPECT_EQ(fips_kat_aes_test(2), 0);
  EXPECT_EQ(t_aes_decrypt_setups, 0);
  EXPECT_EQ(fips_kat_aes_test(0), 1);
  EXPECT_EQ(t_aes_decrypt_setups, 1);

  t_tdes_decrypt_in.clear();
  t_tdes_decrypt_out.clear();
  EXPECT_EQ(fips_kat_3des_test(8), 0);
  EXPECT_EQ(t_tdes_decrypt_in, B(kat::kTdesCiphertext)) << "decrypted the stored ciphertext";
  EXPECT_EQ(t_tdes_decrypt_out, B(kat::kTdesPlaintext)) << "OpenSSL's decryption was right";

  t_verifies = t_verifies_ok = 0;  // verification comes after the signature matched
  EXPECT_EQ(fips_kat_rsa_test(16), 0);
  EXPECT_EQ(std::make_pair(t_verifies, t_verifies_ok), std::make_pair(1, 0));
  EXPECT_EQ(fips_kat_rsa_test(0), 1);
  EXPECT_EQ(std::make_pair(t_verifies, t_verifies_ok), std::make_pair(2, 1));
}

}  // namespace
}  // namespace fipsval::testing
