// Computes the known-answer vectors of the power-on self-tests once and
// prints them as selftest/vectors.cc. The IV, the TDES keys and plaintext,
// the RSA key and message are drawn at random, so every run gives different
// (equally valid) constants: it was run once and its output frozen. It is
// kept to show where the constants came from, not as part of the build:
//
//   g++ -std=c++20 -DOPENSSL_API_COMPAT=10100 -o /tmp/make_vectors
//       selftest/tools/make_vectors.cc -lcrypto
//   /tmp/make_vectors > selftest/vectors.cc
#include <openssl/bn.h>
#include <openssl/des.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rand.h>
#include <openssl/rsa.h>
#include <openssl/sha.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

[[noreturn]] void Die(const char* what) {
  std::fprintf(stderr, "make_vectors: %s\n", what);
  std::exit(1);
}

Bytes Random(std::size_t n) {
  Bytes out(n);
  if (RAND_bytes(out.data(), static_cast<int>(n)) != 1) Die("RAND_bytes");
  return out;
}

Bytes FromHex(const char* hex) {
  Bytes out;
  for (; hex[0] && hex[1]; hex += 2) {
    out.push_back(static_cast<uint8_t>(std::stoi(std::string(hex, 2), nullptr, 16)));
  }
  return out;
}

// A DES key with odd parity that is neither weak nor semi-weak.
Bytes DesKey() {
  for (;;) {
    Bytes k = Random(8);
    DES_cblock block;
    std::memcpy(block, k.data(), 8);
    DES_set_odd_parity(&block);
    if (!DES_is_weak_key(&block)) return Bytes(block, block + 8);
  }
}

Bytes Cipher(const EVP_CIPHER* cipher, const Bytes& key, const Bytes& iv,
             const Bytes& in) {
  std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)> ctx(
      EVP_CIPHER_CTX_new(), EVP_CIPHER_CTX_free);
  Bytes out(in.size());
  int len = 0;
  if (!ctx || !EVP_EncryptInit_ex(ctx.get(), cipher, nullptr, key.data(), iv.data()) ||
      !EVP_CIPHER_CTX_set_padding(ctx.get(), 0) ||
      !EVP_EncryptUpdate(ctx.get(), out.data(), &len, in.data(),
                         static_cast<int>(in.size())) ||
      len != static_cast<int>(in.size())) {
    Die("encryption");
  }
  return out;
}

Bytes Hmac(const EVP_MD* md, const char* key, const char* data) {
  Bytes mac(EVP_MD_size(md));
  if (!HMAC(md, key, static_cast<int>(std::strlen(key)),
            reinterpret_cast<const uint8_t*>(data), std::strlen(data),
            mac.data(), nullptr)) {
    Die("HMAC");
  }
  return mac;
}

Bytes Padded(const BIGNUM* bn, int len) {
  Bytes out(len);
  if (BN_bn2binpad(bn, out.data(), len) != len) Die("RSA component too long");
  return out;
}

void Print(const char* decl, const Bytes& bytes, bool terminated = false) {
  std::printf("%s = {", decl);
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    std::printf("%s0x%02x,", i % 12 == 0 ? "\n    " : " ", bytes[i]);
  }
  if (terminated) std::printf("\n    0x00,  // terminator, not part of the value");
  std::printf("\n};\n");
}

}  // namespace

int main() {
  const Bytes aes_key = FromHex("06a9214036b8a15b512e03d534120006");  // RFC 3602 case 1
  const char aes_plaintext[] = "Single block msg";
  const Bytes aes_iv = Random(16);
  const Bytes aes_ct = Cipher(EVP_aes_128_cbc(), aes_key, aes_iv,
                              Bytes(aes_plaintext, aes_plaintext + 16));

  const Bytes k1 = DesKey(), k2 = DesKey(), k3 = DesKey();
  if (k1 == k2 || k2 == k3 || k1 == k3) Die("TDES keys not independent");
  Bytes tdes_key = k1;
  tdes_key.insert(tdes_key.end(), k2.begin(), k2.end());
  tdes_key.insert(tdes_key.end(), k3.begin(), k3.end());
  const Bytes tdes_pt = Random(8);
  const Bytes tdes_ct = Cipher(EVP_des_ede3_cbc(), tdes_key, Bytes(8, 0), tdes_pt);

  const Bytes sha1_mac = Hmac(EVP_sha1(), "Jefe", "what do ya want for nothing?");
  const Bytes sha256_mac = Hmac(EVP_sha256(), "Jefe", "what do ya want for nothing?");
  if (sha1_mac != FromHex("effcdf6ae5eb2fa2d27416d5f184df9c259a7c79") ||
      sha256_mac != FromHex("5bdcc146bf60754e6a042426089575c7"
                            "5a003f089d2739839dec58b964ec3843")) {
    Die("HMAC does not give the RFC answers");
  }

  std::unique_ptr<RSA, decltype(&RSA_free)> rsa(RSA_new(), RSA_free);
  std::unique_ptr<BIGNUM, decltype(&BN_free)> e(BN_new(), BN_free);
  if (!rsa || !e || !BN_set_word(e.get(), RSA_F4) ||
      !RSA_generate_key_ex(rsa.get(), 2048, e.get(), nullptr) ||
      RSA_check_key(rsa.get()) != 1) {
    Die("RSA key generation");
  }
  const BIGNUM *n, *pub, *d, *p, *q, *dmp1, *dmq1, *iqmp;
  RSA_get0_key(rsa.get(), &n, &pub, &d);
  RSA_get0_factors(rsa.get(), &p, &q);
  RSA_get0_crt_params(rsa.get(), &dmp1, &dmq1, &iqmp);
  // p and q must fill their 128 bytes: the test converts them at that length.
  if (BN_num_bytes(p) != 128 || BN_num_bytes(q) != 128 || BN_num_bytes(n) != 256) {
    Die("RSA primes not 1024 bits");
  }

  const Bytes message = Random(272);
  Bytes digest(SHA256_DIGEST_LENGTH);
  SHA256(message.data(), message.size(), digest.data());
  Bytes signature(RSA_size(rsa.get()));
  unsigned int sig_len = 0;
  if (!RSA_sign(NID_sha256, digest.data(), 32, signature.data(), &sig_len, rsa.get()) ||
      sig_len != 256) {
    Die("RSA_sign");
  }

  std::printf(
      "// Known-answer vectors of the power-on self-tests. Generated once by\n"
      "// selftest/tools/make_vectors.cc and frozen: do not regenerate (the\n"
      "// random choices would change). The published vectors are the RFCs' own.\n"
      "#include \"selftest/vectors.h\"\n\n"
      "namespace fipsval::kat {\n\n"
      "// RFC 3602 test case 1 key and plaintext; the IV is our own.\n");
  Print("const std::array<uint8_t, 16> kAesKey", aes_key);
  std::printf("const char kAesPlaintext[17] = \"%s\";\n", aes_plaintext);
  Print("const std::array<uint8_t, 16> kAesIv", aes_iv);
  Print("const std::array<uint8_t, 16> kAesCiphertext", aes_ct);
  std::printf("\n");
  Print("const std::array<uint8_t, 8> kTdesKey1", k1);
  Print("const std::array<uint8_t, 8> kTdesKey2", k2);
  Print("const std::array<uint8_t, 8> kTdesKey3", k3);
  Print("const std::array<uint8_t, 8> kTdesPlaintext", tdes_pt);
  Print("const std::array<uint8_t, 8> kTdesCiphertext", tdes_ct);
  std::printf("\n// RFC 2202 and RFC 4231 test case 2.\n");
  Print("const std::array<uint8_t, 20> kHmacSha1Mac", sha1_mac);
  Print("const std::array<uint8_t, 32> kHmacSha256Mac", sha256_mac);
  std::printf("\n");
  Print("const Terminated<256> kRsaN", Padded(n, 256), true);
  Print("const Terminated<3> kRsaE", Padded(pub, 3), true);
  Print("const Terminated<256> kRsaD", Padded(d, 256), true);
  Print("const Terminated<128> kRsaP", Padded(p, 128), true);
  Print("const Terminated<128> kRsaQ", Padded(q, 128), true);
  Print("const Terminated<128> kRsaDmp1", Padded(dmp1, 128), true);
  Print("const Terminated<128> kRsaDmq1", Padded(dmq1, 128), true);
  Print("const Terminated<128> kRsaIqmp", Padded(iqmp, 128), true);
  std::printf("\n");
  Print("const Terminated<272> kRsaMessage", message, true);
  Print("const std::array<uint8_t, 32> kRsaDigest", digest);
  Print("const std::array<uint8_t, 256> kRsaSignature", signature);
  std::printf("\n}  // namespace fipsval::kat\n");
  return 0;
}
