// The native engine against OpenSSL's EVP AES on random keys, IVs and
// message lengths: CBC through the streaming interface that the runners
// use, ECB through the mode layer, both directions, all three key sizes,
// with separate and with shared input/output buffers.
#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <cstdint>
#include <memory>
#include <random>
#include <vector>

#include "fipsval.h"

namespace fipsval {
namespace {

using Bytes = std::vector<uint8_t>;
using EvpCipherCtx =
    std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)>;

constexpr int kTrialsPerCase = 300;
constexpr int kMaxBlocks = 24;

const EVP_CIPHER* OpenSslCipher(int key_bytes, bool cbc) {
  switch (key_bytes) {
    case 16: return cbc ? EVP_aes_128_cbc() : EVP_aes_128_ecb();
    case 24: return cbc ? EVP_aes_192_cbc() : EVP_aes_192_ecb();
    default: return cbc ? EVP_aes_256_cbc() : EVP_aes_256_ecb();
  }
}

Bytes OpenSsl(const Bytes& key, const Bytes& iv, const Bytes& in, bool cbc,
              bool encrypt) {
  EvpCipherCtx ctx(EVP_CIPHER_CTX_new(), EVP_CIPHER_CTX_free);
  EXPECT_EQ(EVP_CipherInit_ex(ctx.get(), OpenSslCipher(key.size(), cbc),
                              nullptr, key.data(), cbc ? iv.data() : nullptr,
                              encrypt ? 1 : 0),
            1);
  EVP_CIPHER_CTX_set_padding(ctx.get(), 0);
  Bytes out(in.size() + 16);
  int n = 0;
  EXPECT_EQ(EVP_CipherUpdate(ctx.get(), out.data(), &n, in.data(),
                             static_cast<int>(in.size())),
            1);
  out.resize(n);
  return out;
}

// CBC the way the runners drive the engine: init, one update, empty final.
Bytes NativeCbc(const Bytes& key, const Bytes& iv, const Bytes& in,
                bool encrypt, bool in_place) {
  fips_aes_ctx ctx;
  fips_aes_init(&ctx, encrypt ? 1 : 0, key.data(),
                static_cast<int>(key.size()), iv.data());
  Bytes out = in_place ? in : Bytes(in.size());
  const uint8_t* src = in_place ? out.data() : in.data();
  const int n = fips_aes_update(&ctx, src, static_cast<int>(in.size()),
                                out.data());
  EXPECT_EQ(n, static_cast<int>(in.size()));
  EXPECT_EQ(fips_aes_final(&ctx, nullptr, 0, nullptr), 0);
  return out;
}

Bytes NativeEcb(const Bytes& key, const Bytes& in, bool encrypt,
                bool in_place) {
  keyInstance k{};
  k.direction = encrypt ? DIR_ENCRYPT : DIR_DECRYPT;
  const int bits = static_cast<int>(key.size() * 8);
  k.Nr = encrypt ? rijndaelKeySetupEnc(k.rk, key.data(), bits)
                 : rijndaelKeySetupDec(k.rk, key.data(), bits);
  cipherInstance c{};
  c.mode = MODE_ECB;
  Bytes out = in_place ? in : Bytes(in.size());
  const uint8_t* src = in_place ? out.data() : in.data();
  const int len = static_cast<int>(in.size() * 8);
  const int r = encrypt ? blockEncrypt(&c, &k, src, len, out.data())
                        : blockDecrypt(&c, &k, src, len, out.data());
  EXPECT_EQ(r, len);
  return out;
}

struct Case {
  int key_bytes;
  bool cbc;
};

class AgainstOpenSsl : public ::testing::TestWithParam<Case> {};

TEST_P(AgainstOpenSsl, RandomMessagesAgreeInBothDirections) {
  const auto [key_bytes, cbc] = GetParam();
  std::mt19937 rng(static_cast<unsigned>(key_bytes * 2 + cbc));
  const auto random_bytes = [&](std::size_t n) {
    Bytes b(n);
    for (auto& x : b) x = static_cast<uint8_t>(rng());
    return b;
  };
  for (int trial = 0; trial < kTrialsPerCase; ++trial) {
    const Bytes key = random_bytes(key_bytes);
    const Bytes iv = random_bytes(16);
    const std::size_t blocks = 1 + rng() % kMaxBlocks;
    const Bytes plain = random_bytes(16 * blocks);
    const bool in_place = trial % 2 == 1;
    SCOPED_TRACE(::testing::Message() << "trial " << trial << ", " << blocks
                                      << " blocks, in place " << in_place);

    const Bytes expected_ct = OpenSsl(key, iv, plain, cbc, true);
    const Bytes ct = cbc ? NativeCbc(key, iv, plain, true, in_place)
                         : NativeEcb(key, plain, true, in_place);
    ASSERT_EQ(ct, expected_ct);

    // Decrypt an independent random ciphertext, not only our own output.
    const Bytes other = random_bytes(16 * blocks);
    const Bytes expected_pt = OpenSsl(key, iv, other, cbc, false);
    const Bytes pt = cbc ? NativeCbc(key, iv, other, false, in_place)
                         : NativeEcb(key, other, false, in_place);
    ASSERT_EQ(pt, expected_pt);
    ASSERT_EQ(cbc ? NativeCbc(key, iv, ct, false, false)
                  : NativeEcb(key, ct, false, false),
              plain);
  }
}

INSTANTIATE_TEST_SUITE_P(
    KeySizesAndModes, AgainstOpenSsl,
    ::testing::Values(Case{16, true}, Case{24, true}, Case{32, true},
                      Case{16, false}, Case{24, false}, Case{32, false}),
    [](const auto& info) {
      return std::string(info.param.cbc ? "Cbc" : "Ecb") +
             std::to_string(info.param.key_bytes * 8);
    });

}  // namespace
}  // namespace fipsval
