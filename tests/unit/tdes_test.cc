// The TDES CBC runners, known-answer and Monte Carlo, driven as text. The
// answers are checked against OpenSSL's low-level DES_* interface: whole
// messages for the known-answer runner, and for the Monte Carlo runner a
// block-by-block model written from the CAVP recurrences.
#include <gtest/gtest.h>
#include <openssl/des.h>

#include <array>
#include <bit>
#include <cstring>
#include <string>
#include <vector>

#include "harness/runners.h"
#include "tests/support/test_env.h"

namespace fipsval::testing {
namespace {

using Bytes = std::vector<uint8_t>;
using Block = std::array<uint8_t, 8>;

constexpr char kHeader[] = "# CAVS 11.1\n\n[ENCRYPT]\n";
const std::string kK1 = "0123456789abcdef", kK2 = "23456789abcdef01",
                  kK3 = "456789abcdef0123", kIv = "1234567890abcdef",
                  kPt = "4e6f77206973207468652074696d6520666f7220616c6c20";

void Schedules(const Block (&keys)[3], DES_key_schedule (&ks)[3]) {
  for (int k = 0; k < 3; ++k) {
    DES_cblock b;
    std::memcpy(b, keys[k].data(), 8);
    DES_set_key_unchecked(&b, &ks[k]);
  }
}

Block B(const std::string& hex) {
  Block out{};
  const Bytes b = FromHex(hex);
  std::memcpy(out.data(), b.data(), std::min<std::size_t>(8, b.size()));
  return out;
}

// EDE3-CBC over a whole message, hex in and out.
std::string Ede3Cbc(const std::string& k1, const std::string& k2,
                    const std::string& k3, const std::string& data, int enc) {
  DES_key_schedule ks[3];
  Schedules({B(k1), B(k2), B(k3)}, ks);
  DES_cblock chain;
  std::memcpy(chain, B(kIv).data(), 8);
  const Bytes in = FromHex(data);
  Bytes out(in.size());
  DES_ede3_cbc_encrypt(in.data(), out.data(), static_cast<long>(in.size()),
                       &ks[0], &ks[1], &ks[2], &chain, enc);
  return Hex(out);
}

std::string Vector(const std::string& keys, const std::string& tag,
                   const std::string& data) {
  return "COUNT = 0\n" + keys + "IV = " + kIv + "\n" + tag + " = " + data + "\n";
}

TEST(TdesRunner, AnswersAgreeWithDesEde3) {
  const std::string three = "KEY1 = " + kK1 + "\nKEY2 = " + kK2 + "\nKEY3 = " + kK3 + "\n";
  const std::string ct = Ede3Cbc(kK1, kK2, kK3, kPt, DES_ENCRYPT);
  const struct { const char* name; std::string keys, tag, data, answer; } kCases[] = {
      {"KEYs sets all three", "KEYs = " + kK1 + "\n", "PLAINTEXT", kPt,
       "CIPHERTEXT = " + Ede3Cbc(kK1, kK1, kK1, kPt, DES_ENCRYPT)},
      {"any order", "KEY3 = " + kK3 + "\nKEY1 = " + kK1 + "\nKEY2 = " + kK2 + "\n",
       "PLAINTEXT", kPt, "CIPHERTEXT = " + ct},
      // Only the count of key lines is checked; keys 2 and 3 stay zero.
      {"three KEY1 lines", "KEY1 = " + kK2 + "\nKEY1 = " + kK3 + "\nKEY1 = " + kK1 + "\n",
       "PLAINTEXT", kPt, "CIPHERTEXT = " + Ede3Cbc(kK1, "00", "00", kPt, DES_ENCRYPT)},
      {"KEY2 then KEYs", "KEY2 = " + kK2 + "\nKEYs = " + kK1 + "\n", "PLAINTEXT", kPt,
       "CIPHERTEXT = " + Ede3Cbc(kK1, kK1, kK1, kPt, DES_ENCRYPT)},
      {"full 256-byte buffer", "KEYs = " + kK1 + "\n", "PLAINTEXT", std::string(512, 'c'),
       "CIPHERTEXT = " + Ede3Cbc(kK1, kK1, kK1, std::string(512, 'c'), DES_ENCRYPT)},
      {"decrypt", three, "CIPHERTEXT", ct, "PLAINTEXT = " + kPt},
  };
  for (const auto& c : kCases) {
    const bool dec = c.tag == "CIPHERTEXT";
    const std::string vec = Vector(c.keys, c.tag, c.data);
    const CoreResult r = RunCore(test_3des_tcbc_from_stream,
                                 kHeader + (dec ? "[DECRYPT]\n" + vec : vec + "[DECRYPT]\n"));
    EXPECT_EQ(r.printed, "") << c.name;
    EXPECT_EQ(r.response, Crlf(kHeader + (dec ? "[DECRYPT]\n" + vec + c.answer + "\n"
                                              : vec + c.answer + "\n[DECRYPT]\n")))
        << c.name;
  }
  // NIST's TCBCvartext, first vector; COUNT inside a comment starts a vector.
  const CoreResult r = RunCore(test_3des_tcbc_from_stream, std::string(kHeader) +
      "# COUNT follows\nKEYs = 0101010101010101\nIV = 0000000000000000\n"
      "PLAINTEXT = 8000000000000000\n");
  EXPECT_EQ(r.printed, "Never found decrypt marker\n");
  EXPECT_TRUE(r.response.ends_with("CIPHERTEXT = 95f8a5e5dd31d900\r\n"));
}

TEST(TdesRunner, MessagesForBrokenRequests) {
  const std::string e = "[ENCRYPT]\nCOUNT = 0\n", k = "KEYs = " + kK1 + "\n",
                    v = e + k + "IV = " + kIv + "\n",
                    d = "[ENCRYPT]\n[DECRYPT]\nCOUNT = 0\n" + k + "IV = " + kIv + "\n";
  const struct { std::string body, printed; } kCases[] = {
      {"", "Never found encrypt marker\n"},
      {"[ENCRYPT]\n[DECRYPT]\n", ""},
      {e, "Key field not present\n"},
      {e + "IV = " + kIv + "\n", "Key field not present\n"},
      {e + "KEYs = 0123\n", "Error extracting key\n"},
      {e + "KEY = " + kK1 + "\n", "Error extracting key\n"},
      {e + k, "IV field not present\n"},
      {e + k + "IV = 00\n", "Error extracting iv\n"},
      {v, "Plaintext field not present\n"},
      {v + "PLAINTEXT = \n", "Error extracting plaintext\n"},
      {v + "PLAINTEXT = " + std::string(528, 'a') + "\n", "Plaintext buffer too small\n"},
      {v + "PLAINTEXT = " + std::string(24, '0') + "\n",
       "plain text is not a multiple of 8 (len=12)\nError encrypting\n"},
      {d, "Ciphertext field not present\n"},
      {d + "CIPHERTEXT = zz\n", "Error extracting ciphertext\n"},
      {d + "CIPHERTEXT = " + std::string(528, 'b') + "\n", "Cipher buffer too small by 8 bytes\n"},
      {d + "CIPHERTEXT = " + std::string(24, '0') + "\n",
       "cipher text is not a multiple of 8 (len=12)\nError decrypting\n"},
  };
  for (const auto& c : kCases) {
    const CoreResult r = RunCore(test_3des_tcbc_from_stream, c.body);
    EXPECT_EQ(r.printed, c.printed) << c.body;
    EXPECT_TRUE(Crlf(c.body).starts_with(r.response)) << c.body;  // no answer
  }
}

// ---------------------------------------------------------------------------
// Monte Carlo

struct Record {
  Block keys[3];
  Block iv, in;
};

// The first `n` records of a seed as the response must hold them, each
// block through a freshly keyed ECB call.
std::string Records(Record r, bool enc, int num_keys, int n) {
  std::string text;
  for (int i = 0; i < n; ++i) {
    text += "COUNT = " + std::to_string(i) + "\r\n";
    for (int k = 0; k < 3; ++k) text += "KEY" + std::to_string(k + 1) + " = " + Hex(r.keys[k]) + "\r\n";
    text += "IV = " + Hex(r.iv) + (enc ? "\r\nPLAINTEXT = " : "\r\nCIPHERTEXT = ") + Hex(r.in) + "\r\n";
    DES_key_schedule ks[3];
    Schedules(r.keys, ks);
    std::vector<Block> out(10000);
    Block in = r.in, chain = r.iv;
    for (int j = 0; j < 10000; ++j) {
      DES_cblock a, b;
      Block x = in;
      if (enc) for (int t = 0; t < 8; ++t) x[t] ^= chain[t];
      std::memcpy(a, x.data(), 8);
      DES_ecb3_encrypt(&a, &b, &ks[0], &ks[1], &ks[2], enc ? DES_ENCRYPT : DES_DECRYPT);
      std::memcpy(out[j].data(), b, 8);
      if (enc) {  // CT[j] = E(PT[j] ^ CT[j-1]); PT[j+1] = CT[j-1]
        in = j == 0 ? r.iv : out[j - 1];
        chain = out[j];
      } else {  // PT[j] = D(CT[j]) ^ CT[j-1]; CT[j+1] = PT[j]
        for (int t = 0; t < 8; ++t) out[j][t] ^= chain[t];
        chain = in;
        in = out[j];
      }
    }
    text += (enc ? "CIPHERTEXT = " : "PLAINTEXT = ") + Hex(out[9999]) + "\r\n\r\n";
    const int mix[3][3] = {{9999, 9999, 9999}, {9999, 9998, 9999}, {9999, 9998, 9997}};
    for (int k = 0; k < 3; ++k) {
      for (int t = 0; t < 8; ++t) {
        uint8_t v = r.keys[k][t] ^ out[mix[std::max(num_keys, 1) - 1][k]][t];
        r.keys[k][t] = std::popcount(v) % 2 ? v : v ^ 1;
      }
    }
    r.iv = chain;
    r.in = in;
  }
  return text;
}

std::string Seed(const Record& r, const char* data_tag) {
  return "COUNT = 987\nKEY1 = " + Hex(r.keys[0]) + "\nKEY2 = " + Hex(r.keys[1]) +
         "\nKEY3 = " + Hex(r.keys[2]) + "\nIV = " + Hex(r.iv) + "\n" + data_tag +
         " = " + Hex(r.in) + "\n\n";
}

// Without a NumKeys line every key takes the last output (one key); a
// NumKeys line holds into the decrypt section until another one comes. The
// key bytes' odd parity (get_odd_bit_count_byte) is checked on the way.
TEST(TdesMonteCarlo, RecordsFollowTheReferenceChain) {
  const Record enc = {{B(kK1), B(kK2), B(kK3)}, B(kIv), B("4e6f772069732074")};
  const Record dec = {{B("20adef5e94d32fd0"), B("3db0c752b534b94c"), B("20adef5e94d32fd0")},
                      B("822ffdc5cbccfb85"), B("da203fbbaae3970c")};
  std::string console = "ENCRYPT\n";
  for (int i = 0; i < 400; i += 50) console += std::to_string(i) + " of 400\n";
  console += "DECRYPT\n";
  for (int i = 0; i < 400; i += 50) console += "COUNT = " + std::to_string(i) + "\n";

  CoreResult r = RunCore(test_3des_tcbc_mct_from_stream, kHeader + Seed(enc, "PLAINTEXT") +
                         "[DECRYPT]\n\n" + Seed(dec, "CIPHERTEXT"));
  EXPECT_EQ(r.printed, console);
  EXPECT_TRUE(r.response.starts_with(Crlf(std::string(kHeader) + "\n") + Records(enc, true, 0, 3)));
  EXPECT_NE(r.response.find("\r\n\r\n[DECRYPT]\r\n\r\n" + Records(dec, false, 0, 3)),
            std::string::npos);
  EXPECT_EQ(r.response.find("COUNT = 987"), std::string::npos);
  EXPECT_NE(r.response.find("COUNT = 399\r\n"), std::string::npos);
  EXPECT_EQ(r.response.find("COUNT = 400"), std::string::npos);

  r = RunCore(test_3des_tcbc_mct_from_stream, kHeader + ("NumKeys = 2\n" + Seed(enc, "PLAINTEXT")) +
              "[DECRYPT]\nNumKeys = 3\n" + Seed(dec, "CIPHERTEXT"));
  EXPECT_NE(r.response.find(Records(enc, true, 2, 3)), std::string::npos);
  EXPECT_NE(r.response.find(Records(dec, false, 3, 3)), std::string::npos);
}

TEST(TdesMonteCarlo, SeedReadingMessages) {
  const std::string k = "KEY1 = " + kK1 + "\nKEY2 = " + kK2 + "\nKEY3 = " + kK3 + "\n";
  const std::string iv = "IV = " + kIv + "\n";
  const struct { std::string body, printed; } kCases[] = {
      {"", "ENCRYPT\nNever found decrypt marker\n"},
      {"KEYs = " + kK1 + "\n", "ENCRYPT\nError extracting key1\n"},
      {"KEY2 = " + kK1 + "\n", "ENCRYPT\nKey1 field not present\n"},
      {"KEY1 = " + kK1 + "\nKEY3 = " + kK3 + "\n", "ENCRYPT\nKey2 field not present\n"},
      {"KEY1 = " + kK1 + "\nKEY2 = 01\n", "ENCRYPT\nError extracting key2\n"},
      {"KEY1 = " + kK1 + "\nKEY2 = " + kK2 + "\n", "ENCRYPT\nKey3 field not present\n"},
      {k, "ENCRYPT\nIV field not present\n"},
      {k + "IV = 00\n", "ENCRYPT\nError extracting iv\n"},
      {k + iv, "ENCRYPT\nPlaintext field not present\n"},
      {k + iv + "PLAINTEXT = \n", "ENCRYPT\nError extracting plaintext\n"},
      {"NumKeys = 4\n", "ENCRYPT\nError extracting number of keys\n"},
      {"NumKeys = 4294967298\n", "ENCRYPT\nError extracting number of keys\n"},
      // strtol reads "2a" as 2 (then the seed's first key line is wrong).
      {"NumKeys = 2a\nKEYs = " + kK1 + "\n", "ENCRYPT\nError extracting key1\n"},
      {"[DECRYPT]\n" + k + iv, "ENCRYPT\nDECRYPT\nCiphertext field not present\n"},
      {"[DECRYPT]\n" + k + iv + "CIPHERTEXT = " + std::string(514, 'b') + "\n",
       "ENCRYPT\nDECRYPT\nCipher buffer too small by 1 bytes\n"},
      {"[DECRYPT]\nNumKeys = 0\n", "ENCRYPT\nDECRYPT\nError extracting number of keys\n"},
      {k + iv + "PLAINTEXT = " + std::string(24, '0') + "\n",
       "ENCRYPT\n0 of 400\nplain text is not a multiple of 8 (len=12)\n"
       "Problem encrypting i=0 j=0\n"},
      {"[DECRYPT]\n" + k + iv + "CIPHERTEXT = 0000000000\n",
       "ENCRYPT\nDECRYPT\nCOUNT = 0\ncipher text is not a multiple of 8 (len=5)\n"
       "Problem decrypting\n"},
  };
  for (const auto& c : kCases) {
    EXPECT_EQ(RunCore(test_3des_tcbc_mct_from_stream, kHeader + c.body).printed, c.printed)
        << c.body;
  }
  EXPECT_EQ(RunCore(test_3des_tcbc_mct_from_stream, "# none\n").printed, "Never found encrypt marker\n");
}

}  // namespace
}  // namespace fipsval::testing
