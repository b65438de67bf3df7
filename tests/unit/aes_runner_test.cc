// The AES CBC and ECB runners, known-answer and Monte Carlo, driven as
// text: request in, response and console lines out. Expected answers come
// from FIPS-197, RFC 3602, NIST's Monte Carlo files or OpenSSL's EVP.
#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "harness/runners.h"
#include "tests/support/test_env.h"

namespace fipsval::testing {
namespace {

using Bytes = std::vector<uint8_t>;

constexpr char kHeader[] = "# AESVS\n[ENCRYPT]\n\n";
// RFC 3602 case 1 (CBC) and FIPS-197 appendix C.1 (ECB).
const std::string kCbcKey = "06a9214036b8a15b512e03d534120006",
                  kCbcIv = "3dafba429d9eb430b422da802c9fac41",
                  kCbcPt = "53696e676c6520626c6f636b206d7367",
                  kCbcCt = "e353779c1079aeb82708942dbe77181a",
                  kEcbKey = "000102030405060708090a0b0c0d0e0f",
                  kEcbPt = "00112233445566778899aabbccddeeff",
                  kEcbCt = "69c4e0d86a7b0430d8cdb78070b4c55a";

std::string Vec(const std::string& key, const std::string& iv,
                const std::string& tag, const std::string& data) {
  return "COUNT = 0\nKEY = " + key + "\n" + (iv.empty() ? "" : "IV = " + iv + "\n") +
         tag + " = " + data + "\n";
}

// AES in CBC (or, without an IV, ECB) through EVP, without padding.
Bytes OpenSslAes(const Bytes& key, const Bytes& iv, const Bytes& in) {
  const EVP_CIPHER* cbc[] = {EVP_aes_128_cbc(), EVP_aes_192_cbc(), EVP_aes_256_cbc()};
  const EVP_CIPHER* ecb[] = {EVP_aes_128_ecb(), EVP_aes_192_ecb(), EVP_aes_256_ecb()};
  const std::size_t k = (key.size() - 16) / 8;
  std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)> ctx(
      EVP_CIPHER_CTX_new(), EVP_CIPHER_CTX_free);
  EVP_EncryptInit_ex(ctx.get(), iv.empty() ? ecb[k] : cbc[k], nullptr, key.data(),
                     iv.empty() ? nullptr : iv.data());
  EVP_CIPHER_CTX_set_padding(ctx.get(), 0);
  Bytes out(in.size());
  int n = 0;
  EVP_EncryptUpdate(ctx.get(), out.data(), &n, in.data(), static_cast<int>(in.size()));
  return out;
}

struct Case {
  const char* name;
  RunnerCore core;
  std::string body;      // after kHeader
  std::string response;  // after kHeader; "" for body + answer unchecked
  std::string printed;
};

const std::string kFull = std::string(512, '5');  // the 256-byte buffer, full
const std::string kCbcEnc = Vec(kCbcKey, kCbcIv, "PLAINTEXT", kCbcPt),
                  kCbcDec = Vec(kCbcKey, kCbcIv, "CIPHERTEXT", kCbcCt),
                  kEcbEnc = Vec(kEcbKey, "", "PLAINTEXT", kEcbPt),
                  kEcbDec = Vec(kEcbKey, "", "CIPHERTEXT", kEcbCt),
                  kEncDone = kCbcEnc + "[DECRYPT]\n", kCount = "COUNT = 0\n",
                  kFullCt = Hex(OpenSslAes(FromHex(kCbcKey), FromHex(kCbcIv), FromHex(kFull)));
const RunnerCore kCbc = test_aes_cbc_from_stream, kEcb = test_aes_ecb_from_stream;

const Case kCases[] = {
    {"CbcBothDirections", kCbc, kCbcEnc + "\n[DECRYPT]\n\n" + kCbcDec + "\n",
     kCbcEnc + "CIPHERTEXT = " + kCbcCt + "\n\n[DECRYPT]\n\n" + kCbcDec + "PLAINTEXT = " +
         kCbcPt + "\n\n", ""},
    {"EcbHasNoIv", kEcb, kEcbEnc + "[DECRYPT]\n" + kEcbDec,
     kEcbEnc + "CIPHERTEXT = " + kEcbCt + "\n[DECRYPT]\n" + kEcbDec + "PLAINTEXT = " + kEcbPt +
         "\n", ""},
    {"EcbTrailingPartialBlockIsCutToItsLength", kEcb,
     Vec(kEcbKey, "", "PLAINTEXT", kEcbPt + "0102") + "[DECRYPT]\n",
     Vec(kEcbKey, "", "PLAINTEXT", kEcbPt + "0102") + "CIPHERTEXT = " + kEcbCt +
         Hex(OpenSslAes(FromHex(kEcbKey), {}, FromHex("0102" + std::string(28, '0'))))
             .substr(0, 4) + "\n[DECRYPT]\n", ""},
    {"EncryptMarkerInDecryptSectionIsCopied", kCbc, "[DECRYPT]\n[ENCRYPT]\n" + kCbcDec,
     "[DECRYPT]\n[ENCRYPT]\n" + kCbcDec + "PLAINTEXT = " + kCbcPt + "\n", ""},
    {"NoDecryptMarkerKeepsAnswers", kCbc, kCbcEnc, kCbcEnc + "CIPHERTEXT = " + kCbcCt + "\n",
     "Never found encrypt marker\n"},
    {"KeyOf20BytesNotCopied", kCbc, Vec(std::string(40, '1'), kCbcIv, "PLAINTEXT", kCbcPt),
     kCount, "Error extracting key\n"},
    {"IndentedKeyReadOneCharacterEarly", kCbc, kCount + " KEY = " + kCbcKey + "\n", kCount,
     "Error extracting key\n"},
    {"KeyMissing", kCbc, kCount, kCount, "Key field not present\n"},
    {"IvMissing", kCbc, Vec(kCbcKey, "", "PLAINTEXT", kCbcPt), kCount + "KEY = " + kCbcKey + "\n",
     "IV field not present\n"},
    {"IvShort", kCbc, Vec(kCbcKey, "00", "PLAINTEXT", kCbcPt), kCount + "KEY = " + kCbcKey + "\n",
     "Error extracting iv\n"},
    {"PlaintextMissing", kCbc, Vec(kCbcKey, kCbcIv, "X", ""), "", "Plaintext field not present\n"},
    {"PlaintextEmpty", kCbc, Vec(kCbcKey, kCbcIv, "PLAINTEXT", ""), "",
     "Error extracting plaintext\n"},
    {"PlaintextOver256", kCbc, Vec(kCbcKey, kCbcIv, "PLAINTEXT", kFull + std::string(32, 'a')),
     "", "Plaintext buffer too small by 16 bytes\n"},
    // 256 bytes fill the data buffer exactly and are answered.
    {"FullBufferBothWays", kCbc,
     Vec(kCbcKey, kCbcIv, "PLAINTEXT", kFull) + "[DECRYPT]\n" + Vec(kCbcKey, kCbcIv, "CIPHERTEXT", kFullCt),
     Vec(kCbcKey, kCbcIv, "PLAINTEXT", kFull) + "CIPHERTEXT = " + kFullCt + "\n[DECRYPT]\n" +
         Vec(kCbcKey, kCbcIv, "CIPHERTEXT", kFullCt) + "PLAINTEXT = " + kFull + "\n", ""},
    {"PlaintextNotWholeBlocks", kCbc, Vec(kCbcKey, kCbcIv, "PLAINTEXT", std::string(40, 'a')),
     "", "ssl and fips ciphers are different\nError encrypting\n"},
    {"CiphertextMissing", kCbc, kEncDone + Vec(kCbcKey, kCbcIv, "X", ""), "",
     "Ciphertext field not present\n"},
    {"CiphertextEmpty", kCbc, kEncDone + Vec(kCbcKey, kCbcIv, "CIPHERTEXT", "zz"), "",
     "Error extracting ciphertext\n"},
    {"CiphertextOver256", kCbc, kEncDone + Vec(kCbcKey, kCbcIv, "CIPHERTEXT", std::string(600, 'b')),
     "", "Cipher buffer too small by 44 bytes\n"},
    {"CiphertextNotWholeBlocks", kCbc,
     kEncDone + Vec(kCbcKey, kCbcIv, "CIPHERTEXT", std::string(40, 'b')), "",
     "ssl and fips plaintexts are different\nError decrypting\n"},
    {"MonteCarloSeedNotOneBlock", test_aes_cbc_mct_from_stream,
     Vec(kCbcKey, kCbcIv, "PLAINTEXT", "0011"), "",
     "Monte Carlo seed plaintext is 2 bytes, not one 16-byte block: not answered\n"},
    {"MonteCarloSeedLinesNotCopied", test_aes_ecb_mct_from_stream,
     "[DECRYPT]\nCOUNT = 0\nIV = 00\n", "[DECRYPT]\n", "Key field not present\n"},
};

class AesRunner : public ::testing::TestWithParam<Case> {};

TEST_P(AesRunner, AnswersOrStopsWithItsMessage) {
  const Case& c = GetParam();
  const CoreResult r = RunCore(c.core, kHeader + c.body);
  EXPECT_EQ(r.printed, c.printed);
  if (!c.response.empty()) {
    EXPECT_EQ(r.response, Crlf(kHeader + c.response));
  }
}

INSTANTIATE_TEST_SUITE_P(Requests, AesRunner, ::testing::ValuesIn(kCases),
                         [](const auto& info) { return std::string(info.param.name); });

// NIST's CBCMCT128 decryption seed (upper case, to tell it from the
// generated lines) and the first two records of NIST's answer; a hundred
// records in each direction.
TEST(AesMonteCarlo, NistSeedsGiveNistRecords) {
  const CoreResult r = RunCore(test_aes_cbc_mct_from_stream,
      std::string(kHeader) + "COUNT = 0\nKEY = 8809E7DD3A959EE5D8DBB13F501F2274\n"
      "IV = E5C0BB535D7D54572AD06D170A0E58AE\nPLAINTEXT = 1FD4EE65603E6130CFC2A82AB3D56C24\n"
      "\n[DECRYPT]\n\nCOUNT = 0\nKEY = 287B07C78F8E3E1BE7C41B3D96C04E6E\n"
      "IV = 41B461F9464FD515D25413B4241002B8\nCIPHERTEXT = 7C54923B0490A9D4DE4EC1CE6790AA4D\n");
  EXPECT_EQ(r.printed, "");
  EXPECT_NE(r.response.find(Crlf("\n[DECRYPT]\n\n"
      "COUNT = 0\nKEY = 287b07c78f8e3e1be7c41b3d96c04e6e\n"
      "IV = 41b461f9464fd515d25413b4241002b8\nCIPHERTEXT = 7c54923b0490a9d4de4ec1ce6790aa4d\n"
      "PLAINTEXT = 2805d10b127fcd1da528faad4eb2e10b\n\n"
      "COUNT = 1\nKEY = 007ed6cc9df1f30642ece190d872af65\nIV = 2805d10b127fcd1da528faad4eb2e10b\n"
      "CIPHERTEXT = a7b760be9237b49e8dad24a6063523a6\n")), std::string::npos);
  EXPECT_NE(r.response.find("COUNT = 99\r\n"), r.response.rfind("COUNT = 99\r\n"));
  EXPECT_EQ(r.response.find("COUNT = 100"), std::string::npos);
}

// Records 0 and 1 of 128-, 192- and 256-bit seeds, computed block by block with
// OpenSSL: the result is one 16-byte block, and the next key takes CT[999]
// into its last 16 bytes and, in CBC only, the tail of CT[998] into the
// bytes before them.
TEST(AesMonteCarlo, LongerKeysFollowTheTextbookChain) {
  constexpr char kLongKey[] = "000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f";
  for (const bool cbc : {true, false}) {
    for (const std::size_t key_len : {16u, 24u, 32u}) {
      Bytes key = FromHex(std::string(kLongKey, 2 * key_len)), iv = FromHex(kCbcIv),
            pt = FromHex(kCbcPt);
      const std::string seed = Vec(Hex(key), cbc ? kCbcIv : "", "PLAINTEXT", kCbcPt);
      std::string expected = kHeader;
      for (int i = 0; i < 2; ++i) {
        expected += "COUNT = " + std::to_string(i) + "\nKEY = " + Hex(key) +
                    (cbc ? "\nIV = " + Hex(iv) : "") + "\nPLAINTEXT = " + Hex(pt) + "\n";
        Bytes ct, before;
        for (int j = 0; j < 1000; ++j) {
          before = ct;
          Bytes x = pt;
          for (int b = 0; b < 16 && cbc; ++b) x[b] ^= (j == 0 ? iv : before)[b];
          ct = OpenSslAes(key, {}, x);
          pt = !cbc ? ct : j == 0 ? iv : before;
        }
        expected += "CIPHERTEXT = " + Hex(ct) + "\n\n";
        const std::size_t head = key_len - 16;
        for (std::size_t b = 0; b < head && cbc; ++b) key[b] ^= before[16 - head + b];
        for (std::size_t b = 0; b < 16; ++b) key[head + b] ^= ct[b];
        iv = ct;
      }
      const CoreResult r = RunCore(cbc ? test_aes_cbc_mct_from_stream : test_aes_ecb_mct_from_stream,
                                   kHeader + seed + "[DECRYPT]\n");
      EXPECT_EQ(r.printed, "");
      EXPECT_TRUE(r.response.starts_with(Crlf(expected))) << r.response.substr(0, 700);
    }
  }
}

}  // namespace
}  // namespace fipsval::testing
