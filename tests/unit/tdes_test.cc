// TDES CBC known-answer / multi-message runner: key lines, field checks,
// end-of-file messages and answers checked against OpenSSL's low-level DES.
#include <gtest/gtest.h>
#include <openssl/des.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "harness/runners.h"
#include "tests/support/test_env.h"

namespace fipsval::testing {
namespace {

using Bytes = std::vector<uint8_t>;

Bytes FromHex(const std::string& hex) {
  Bytes out;
  for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
    out.push_back(static_cast<uint8_t>(std::stoi(hex.substr(i, 2), nullptr, 16)));
  }
  return out;
}

std::string ToHex(const Bytes& bytes) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string out;
  for (uint8_t b : bytes) {
    out += kDigits[b >> 4];
    out += kDigits[b & 15];
  }
  return out;
}

// EDE3-CBC through the DES_* interface, independent of the runner's EVP use.
Bytes Ede3Cbc(const std::string& k1, const std::string& k2,
              const std::string& k3, const std::string& iv,
              const std::string& data, int enc) {
  const Bytes keys[] = {FromHex(k1), FromHex(k2), FromHex(k3)};
  DES_key_schedule ks[3];
  for (int k = 0; k < 3; ++k) {
    DES_cblock block;
    std::memcpy(block, keys[k].data(), 8);
    DES_set_key_unchecked(&block, &ks[k]);
  }
  DES_cblock chain;
  std::memcpy(chain, FromHex(iv).data(), 8);
  const Bytes in = FromHex(data);
  Bytes out(in.size());
  DES_ede3_cbc_encrypt(in.data(), out.data(), static_cast<long>(in.size()),
                       &ks[0], &ks[1], &ks[2], &chain, enc);
  return out;
}

struct Result {
  std::string console;
  std::string response;
};

Result RunKat(const std::string& request) {
  ResetVectorDirs();
  WriteRequest("TCBCtest", Crlf(request));
  Result r;
  r.console = CaptureStdout([] { test_3des_tcbc_from_file("TCBCtest"); });
  r.response = ReadResponse("TCBCtest");
  return r;
}

constexpr char kHeader[] = "# CAVS 11.1\n\n[ENCRYPT]\n";
constexpr char kK1[] = "0123456789abcdef";
constexpr char kK2[] = "23456789abcdef01";
constexpr char kK3[] = "456789abcdef0123";
constexpr char kIv[] = "1234567890abcdef";
constexpr char kPt[] = "4e6f77206973207468652074696d6520666f7220616c6c20";

TEST(TdesRunner, KnownAnswerFromTheVariableTextFile) {
  const Result r = RunKat(std::string(kHeader) +
                       "COUNT = 0\nKEYs = 0101010101010101\n"
                       "IV = 0000000000000000\nPLAINTEXT = 8000000000000000\n"
                       "\n[DECRYPT]\n"
                       "COUNT = 0\nKEYs = 0101010101010101\n"
                       "IV = 0000000000000000\nCIPHERTEXT = 95f8a5e5dd31d900\n");
  EXPECT_EQ(r.console, "");
  EXPECT_EQ(r.response,
            Crlf(std::string(kHeader) +
                 "COUNT = 0\nKEYs = 0101010101010101\n"
                 "IV = 0000000000000000\nPLAINTEXT = 8000000000000000\n"
                 "CIPHERTEXT = 95f8a5e5dd31d900\n"
                 "\n[DECRYPT]\n"
                 "COUNT = 0\nKEYs = 0101010101010101\n"
                 "IV = 0000000000000000\nCIPHERTEXT = 95f8a5e5dd31d900\n"
                 "PLAINTEXT = 8000000000000000\n"));
}

// Key lines: one "KEYs = " line gives all three keys; otherwise three
// single-key lines in any order; only their count is checked.
TEST(TdesRunner, KeyLineRules) {
  const std::string pt = kPt;
  struct Case {
    const char* name;
    std::string keys;
    Bytes expected;
  };
  const Case cases[] = {
      {"KEYs sets all three keys",
       std::string("KEYs = ") + kK1 + "\n",
       Ede3Cbc(kK1, kK1, kK1, kIv, pt, DES_ENCRYPT)},
      {"single-key lines in any order",
       std::string("KEY3 = ") + kK3 + "\nKEY1 = " + kK1 + "\nKEY2 = " + kK2 +
           "\n",
       Ede3Cbc(kK1, kK2, kK3, kIv, pt, DES_ENCRYPT)},
      // Keys 2 and 3 keep what they held before: zero in a first vector.
      {"three KEY1 lines",
       std::string("KEY1 = ") + kK2 + "\nKEY1 = " + kK3 + "\nKEY1 = " + kK1 +
           "\n",
       Ede3Cbc(kK1, "0000000000000000", "0000000000000000", kIv, pt,
               DES_ENCRYPT)},
      // The count reaches 4 and the next line is due to be the IV.
      {"KEY2 then KEYs",
       std::string("KEY2 = ") + kK2 + "\nKEYs = " + kK1 + "\n",
       Ede3Cbc(kK1, kK1, kK1, kIv, pt, DES_ENCRYPT)},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string vector =
        "COUNT = 0\n" + c.keys + "IV = " + kIv + "\nPLAINTEXT = " + pt + "\n";
    const Result r = RunKat(kHeader + vector + "[DECRYPT]\n");
    EXPECT_EQ(r.console, "");
    EXPECT_EQ(r.response, Crlf(kHeader + vector + "CIPHERTEXT = " +
                               ToHex(c.expected) + "\n[DECRYPT]\n"));
  }
}

TEST(TdesRunner, MultiBlockMessagesBothWays) {
  const Bytes ct = Ede3Cbc(kK1, kK2, kK3, kIv, kPt, DES_ENCRYPT);
  const std::string keys = std::string("KEY1 = ") + kK1 + "\nKEY2 = " + kK2 +
                           "\nKEY3 = " + kK3 + "\nIV = " + kIv + "\n";
  const Result r = RunKat(std::string(kHeader) + "COUNT = 0\n" + keys +
                       "PLAINTEXT = " + kPt + "\n\n[DECRYPT]\n\nCOUNT = 0\n" +
                       keys + "CIPHERTEXT = " + ToHex(ct) + "\n\n");
  EXPECT_EQ(r.console, "");
  EXPECT_NE(r.response.find("CIPHERTEXT = " + ToHex(ct) + "\r\n\r\n[DECRYPT]"),
            std::string::npos);
  EXPECT_NE(r.response.find(std::string("PLAINTEXT = ") + kPt + "\r\n\r\n"),
            std::string::npos);
}

TEST(TdesRunner, CountInsideACommentStartsAVector) {
  const Result r = RunKat(std::string(kHeader) + "# COUNT of vectors follows\n" +
                       "KEYs = " + kK1 + "\nIV = " + kIv +
                       "\nPLAINTEXT = 0000000000000000\n[DECRYPT]\n");
  EXPECT_EQ(r.console, "");
  EXPECT_NE(r.response.find("CIPHERTEXT = " +
                            ToHex(Ede3Cbc(kK1, kK1, kK1, kIv,
                                          "0000000000000000", DES_ENCRYPT))),
            std::string::npos);
}

TEST(TdesRunner, EndOfFileMessages) {
  const std::string vector = std::string("COUNT = 0\nKEYs = ") + kK1 +
                             "\nIV = " + kIv + "\nPLAINTEXT = " + kIv + "\n";
  // The encrypt section's vectors are answered before the message.
  Result r = RunKat(kHeader + vector);
  EXPECT_EQ(r.console, "Never found decrypt marker\n");
  EXPECT_NE(r.response.find("CIPHERTEXT = "), std::string::npos);

  r = RunKat("# CAVS 11.1\n\n");
  EXPECT_EQ(r.console, "Never found encrypt marker\n");
  EXPECT_EQ(r.response, Crlf("# CAVS 11.1\n\n"));

  // End of file in the decrypt section is the normal end.
  r = RunKat(std::string(kHeader) + "[DECRYPT]\n\n");
  EXPECT_EQ(r.console, "");
  EXPECT_EQ(r.response, Crlf(std::string(kHeader) + "[DECRYPT]\n\n"));
}

TEST(TdesRunner, MissingOrBadFields) {
  const std::string keys = std::string("KEYs = ") + kK1 + "\n";
  const std::string iv = std::string("IV = ") + kIv + "\n";
  struct Case {
    std::string encrypt_vector;  // after "COUNT = 0"
    std::string message;
  };
  const Case cases[] = {
      {"", "Key field not present\n"},
      {iv, "Key field not present\n"},
      {"KEYs = 0123\n", "Error extracting key\n"},
      {"KEY = 0123456789abcdef\n", "Error extracting key\n"},
      {keys, "IV field not present\n"},
      {keys + "PLAINTEXT = 00\n", "IV field not present\n"},
      {keys + "IV = 1234567890abcdef00\n", "Error extracting iv\n"},
      {keys + iv, "Plaintext field not present\n"},
      {keys + iv + "PLAINTEXT = \n", "Error extracting plaintext\n"},
      {keys + iv + "PLAINTEXT = " + std::string(2 * 264, 'a') + "\n",
       "Plaintext buffer too small\n"},
      {keys + iv + "PLAINTEXT = 000000000000000000000000\n",
       "plain text is not a multiple of 8 (len=12)\nError encrypting\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.encrypt_vector);
    const Result r = RunKat(kHeader + ("COUNT = 0\n" + c.encrypt_vector));
    EXPECT_EQ(r.console, c.message);
    EXPECT_EQ(r.response.find("CIPHERTEXT"), std::string::npos);
  }

  const Case decrypt_cases[] = {
      {keys + iv, "Ciphertext field not present\n"},
      {keys + iv + "CIPHERTEXT = zz\n", "Error extracting ciphertext\n"},
      {keys + iv + "CIPHERTEXT = " + std::string(2 * 264, 'b') + "\n",
       "Cipher buffer too small by 8 bytes\n"},
      {keys + iv + "CIPHERTEXT = 000000000000000000000000\n",
       "cipher text is not a multiple of 8 (len=12)\nError decrypting\n"},
  };
  for (const Case& c : decrypt_cases) {
    SCOPED_TRACE(c.encrypt_vector);
    const Result r =
        RunKat(kHeader + ("[DECRYPT]\nCOUNT = 0\n" + c.encrypt_vector));
    EXPECT_EQ(r.console, c.message);
    EXPECT_EQ(r.response.find("PLAINTEXT"), std::string::npos);
  }
}

TEST(TdesRunner, FullBufferIsAccepted) {
  const std::string pt(2 * 256, 'c');
  const Result r = RunKat(std::string(kHeader) + "COUNT = 0\nKEYs = " + kK1 +
                       "\nIV = " + kIv + "\nPLAINTEXT = " + pt +
                       "\n[DECRYPT]\n");
  EXPECT_EQ(r.console, "");
  EXPECT_NE(r.response.find("CIPHERTEXT = " +
                            ToHex(Ede3Cbc(kK1, kK1, kK1, kIv, pt, DES_ENCRYPT)) +
                            "\r\n"),
            std::string::npos);
}

TEST(TdesRunner, ShortWriteStopsTheRunAndClosesFiles) {
  ResetVectorDirs();
  std::string request = kHeader;
  for (int i = 0; i < 200; ++i) {
    request += "COUNT = " + std::to_string(i) + "\nKEYs = " + kK1 +
               "\nIV = " + kIv + "\nPLAINTEXT = " + kPt + "\n\n";
  }
  WriteRequest("TCBCtest", Crlf(request + "[DECRYPT]\n"));
  MountTinyResponseDir(4096);
  const int descriptors = OpenDescriptorCount();
  const std::string console =
      CaptureStdout([] { test_3des_tcbc_from_file("TCBCtest"); });
  EXPECT_EQ(console.rfind("Problem writing ", 0), 0u) << console;
  EXPECT_EQ(console.find('\n'), console.size() - 1) << console;
  EXPECT_EQ(OpenDescriptorCount(), descriptors);
}

}  // namespace
}  // namespace fipsval::testing
