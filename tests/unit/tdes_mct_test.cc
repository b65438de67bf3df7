// TDES CBC Monte Carlo runner: parity, NumKeys, seed reading, console
// output, and the first records checked against a block-by-block reference
// written from the textbook recurrences with the DES_* interface.
#include <gtest/gtest.h>
#include <openssl/des.h>

#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "harness/runners.h"
#include "harness/runners.h"
#include "tests/support/test_env.h"

namespace fipsval::testing {
namespace {

using Block = std::array<uint8_t, 8>;

Block FromHex(const std::string& hex) {
  Block out{};
  for (std::size_t i = 0; i < out.size() && 2 * i + 1 < hex.size(); ++i) {
    out[i] = static_cast<uint8_t>(std::stoi(hex.substr(2 * i, 2), nullptr, 16));
  }
  return out;
}

std::string ToHex(const Block& b) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string out;
  for (uint8_t v : b) {
    out += kDigits[v >> 4];
    out += kDigits[v & 15];
  }
  return out;
}

Block Xor(const Block& a, const Block& b) {
  Block out;
  for (std::size_t i = 0; i < out.size(); ++i) out[i] = a[i] ^ b[i];
  return out;
}

// One record of the Monte Carlo test as the CAVP describes it, each block
// through a freshly keyed ECB call.
struct Record {
  std::array<Block, 3> keys;
  Block iv;
  Block input;
};

struct Outcome {
  Block last, second_last, third_last;
  Record next;
};

Outcome Reference(const Record& r, bool encrypt, int num_keys) {
  DES_key_schedule ks[3];
  for (int k = 0; k < 3; ++k) {
    DES_cblock block;
    std::memcpy(block, r.keys[k].data(), 8);
    DES_set_key_unchecked(&block, &ks[k]);
  }
  auto ecb = [&](const Block& in, int enc) {
    DES_cblock a, b;
    std::memcpy(a, in.data(), 8);
    DES_ecb3_encrypt(&a, &b, &ks[0], &ks[1], &ks[2], enc);
    Block out;
    std::memcpy(out.data(), b, 8);
    return out;
  };
  std::vector<Block> out(10000);
  Block in = r.input;
  Block chain = r.iv;
  for (int j = 0; j < 10000; ++j) {
    if (encrypt) {
      // CT[j] = E(PT[j] ^ CT[j-1]), CT[-1] = IV; PT[j+1] = CT[j-1].
      out[j] = ecb(Xor(in, chain), DES_ENCRYPT);
      in = j == 0 ? r.iv : out[j - 1];
      chain = out[j];
    } else {
      // PT[j] = D(CT[j]) ^ CT[j-1], CT[-1] = IV; CT[j+1] = PT[j].
      out[j] = Xor(ecb(in, DES_DECRYPT), chain);
      chain = in;
      in = out[j];
    }
  }
  Outcome o{out[9999], out[9998], out[9997], {}};
  const Block mix3[] = {out[9999], out[9998], out[9997]};
  const Block mix2[] = {out[9999], out[9998], out[9999]};
  for (int k = 0; k < 3; ++k) {
    const Block& m = num_keys == 3 ? mix3[k] : num_keys == 2 ? mix2[k] : out[9999];
    for (int b = 0; b < 8; ++b) {
      uint8_t v = r.keys[k][b] ^ m[b];
      if (std::popcount(v) % 2 == 0) v ^= 1;
      o.next.keys[k][b] = v;
    }
  }
  o.next.iv = chain;
  o.next.input = in;
  return o;
}

// The records of a response: each is its field lines, tag to value.
using Fields = std::map<std::string, std::string>;

std::vector<Fields> ParseRecords(const std::string& response,
                                 const std::string& section) {
  std::vector<Fields> records;
  std::istringstream in(response);
  bool inside = false;
  for (std::string line; std::getline(in, line);) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (line.find('[') == 0) {
      inside = line == section;
      continue;
    }
    const std::size_t eq = line.find(" = ");
    if (!inside || eq == std::string::npos) continue;
    if (line.rfind("COUNT", 0) == 0) records.emplace_back();
    if (!records.empty()) records.back()[line.substr(0, eq)] = line.substr(eq + 3);
  }
  return records;
}

Record FromFields(const Fields& f, bool encrypt) {
  return {{FromHex(f.at("KEY1")), FromHex(f.at("KEY2")), FromHex(f.at("KEY3"))},
          FromHex(f.at("IV")),
          FromHex(f.at(encrypt ? "PLAINTEXT" : "CIPHERTEXT"))};
}

struct Result {
  std::string console;
  std::string response;
};

Result RunMct(const std::string& request) {
  ResetVectorDirs();
  WriteRequest("TCBCMonte", Crlf(request));
  Result r;
  r.console = CaptureStdout([] { test_3des_tcbc_mct_from_file("TCBCMonte"); });
  r.response = ReadResponse("TCBCMonte");
  return r;
}

constexpr char kHeader[] = "# CAVS 11.1\n\n[ENCRYPT]\n";

std::string SeedLines(const char* k1, const char* k2, const char* k3,
                      const char* iv, const std::string& data_line) {
  return std::string("COUNT = 987\nKEY1 = ") + k1 + "\nKEY2 = " + k2 +
         "\nKEY3 = " + k3 + "\nIV = " + iv + "\n" + data_line + "\n\n";
}

// Compares the first records of a section with the reference chain.
void ExpectFirstRecords(const std::string& response, bool encrypt,
                        int num_keys) {
  const auto records =
      ParseRecords(response, encrypt ? "[ENCRYPT]" : "[DECRYPT]");
  ASSERT_EQ(records.size(), 400u);
  Record r = FromFields(records[0], encrypt);
  for (int i = 0; i < 3; ++i) {
    SCOPED_TRACE("record " + std::to_string(i));
    const Fields& f = records[i];
    EXPECT_EQ(f.at("COUNT"), std::to_string(i));
    EXPECT_EQ(FromFields(f, encrypt).keys, r.keys);
    EXPECT_EQ(f.at("IV"), ToHex(r.iv));
    const Outcome o = Reference(r, encrypt, num_keys);
    EXPECT_EQ(f.at(encrypt ? "CIPHERTEXT" : "PLAINTEXT"), ToHex(o.last));
    r = o.next;
  }
}

TEST(TdesMonteCarloHelpers, OddParityOverAllBytes) {
  for (int v = 0; v < 256; ++v) {
    const auto b = static_cast<uint8_t>(v);
    const uint8_t p = get_odd_bit_count_byte(b);
    EXPECT_EQ(std::popcount(p) % 2, 1) << v;
    EXPECT_EQ(p & 0xfe, b & 0xfe) << v;
    if (std::popcount(b) % 2 == 1) {
      EXPECT_EQ(p, b) << v;
    }
  }
}

TEST(TdesMonteCarloHelpers, NumKeysAcceptsOneToThree) {
  for (uint32_t n = 1; n <= 3; ++n) {
    uint32_t out = 0;
    const std::string line = "NumKeys = " + std::to_string(n) + "\r\n";
    EXPECT_EQ(extract_num_key(line.c_str(), &out), 1);
    EXPECT_EQ(out, n);
  }
  for (const char* line : {"NumKeys = 0\r\n", "NumKeys = 4\r\n",
                           "NumKeys = -1\r\n", "NumKeys = two\r\n",
                           "NumKeys = 4294967298\r\n", "KEY1 = 01\r\n"}) {
    uint32_t out = 9;
    EXPECT_EQ(extract_num_key(line, &out), 0) << line;
    EXPECT_EQ(out, 9u) << line;
  }
}

// One encrypt seed without a NumKeys line and one decrypt seed, run once
// and examined by the tests below.
class TdesMonteCarloRun : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    result_ = new Result(RunMct(
        std::string(kHeader) +
        SeedLines("0123456789abcdef", "23456789abcdef01", "456789abcdef0123",
                  "1234567890abcdef", "PLAINTEXT = 4e6f772069732074") +
        "[DECRYPT]\n\n" +
        SeedLines("20adef5e94d32fd0", "3db0c752b534b94c", "20adef5e94d32fd0",
                  "822ffdc5cbccfb85", "CIPHERTEXT = da203fbbaae3970c")));
  }
  static void TearDownTestSuite() { delete result_; }
  static Result* result_;
};
Result* TdesMonteCarloRun::result_ = nullptr;

TEST_F(TdesMonteCarloRun, ConsoleShowsProgressAndDecryptCounts) {
  std::string expected = "ENCRYPT\n";
  for (int i = 0; i < 400; i += 50) {
    expected += std::to_string(i) + " of 400\n";
  }
  expected += "DECRYPT\n";
  for (int i = 0; i < 400; i += 50) {
    expected += "COUNT = " + std::to_string(i) + "\n";
  }
  EXPECT_EQ(result_->console, expected);
}

TEST_F(TdesMonteCarloRun, RecordsReplaceTheSeedLines) {
  const std::string& rsp = result_->response;
  EXPECT_EQ(rsp.rfind(Crlf(std::string(kHeader) + "\nCOUNT = 0\n"), 0), 0u);
  EXPECT_NE(rsp.find("\r\n\r\n[DECRYPT]\r\n\r\nCOUNT = 0\r\n"),
            std::string::npos);
  EXPECT_EQ(rsp.find("COUNT = 987"), std::string::npos);
  EXPECT_EQ(rsp.find("COUNT = 400"), std::string::npos);
  EXPECT_EQ(rsp.substr(rsp.size() - 4), "\r\n\r\n");
}

TEST_F(TdesMonteCarloRun, EncryptMatchesReferenceWithOneKeyRule) {
  ExpectFirstRecords(result_->response, true, 1);
}

TEST_F(TdesMonteCarloRun, DecryptMatchesReferenceWithOneKeyRule) {
  ExpectFirstRecords(result_->response, false, 1);
}

TEST_F(TdesMonteCarloRun, WithoutNumKeysEveryKeyTakesTheLastOutput) {
  for (const char* section : {"[ENCRYPT]", "[DECRYPT]"}) {
    const bool encrypt = section[1] == 'E';
    const auto records = ParseRecords(result_->response, section);
    ASSERT_EQ(records.size(), 400u);
    for (std::size_t i = 0; i + 1 < records.size(); i += 57) {
      const Block last =
          FromHex(records[i].at(encrypt ? "CIPHERTEXT" : "PLAINTEXT"));
      for (const char* key : {"KEY1", "KEY2", "KEY3"}) {
        const Block before = FromHex(records[i].at(key));
        const Block after = FromHex(records[i + 1].at(key));
        for (int b = 0; b < 8; ++b) {
          EXPECT_EQ(after[b], get_odd_bit_count_byte(before[b] ^ last[b]))
              << section << " record " << i << " " << key;
        }
      }
    }
  }
}

// Two and three keys mix in the second and third last outputs; the count
// is kept from the encrypt section into the decrypt section.
TEST(TdesMonteCarlo, NumKeysSelectsTheKeyUpdate) {
  for (int num_keys : {2, 3}) {
    SCOPED_TRACE(num_keys);
    const Result r = RunMct(
        std::string(kHeader) + "NumKeys = " + std::to_string(num_keys) +
        "\n\n" +
        SeedLines("e9da37f8dc976d5b", "b68c04e3ec982015", "f40e08b59729f28f",
                  "f8eee1359c6e5440", "PLAINTEXT = 3bb7a7dba3d59291") +
        "[DECRYPT]\n\n" +
        SeedLines("f8648a8c1ae68f31", "a2e4d0b0b03e8a3e", "c8f2fd0b6ca3b07f",
                  "f789107ca4643c24", "CIPHERTEXT = 43d0893b7542ec76"));
    ExpectFirstRecords(r.response, true, num_keys);
    ExpectFirstRecords(r.response, false, num_keys);
  }
}

TEST(TdesMonteCarlo, SeedReadingMessages) {
  const std::string k = "KEY1 = 0123456789abcdef\nKEY2 = 23456789abcdef01\n"
                        "KEY3 = 456789abcdef0123\n";
  const std::string iv = "IV = 1234567890abcdef\n";
  struct Case {
    std::string encrypt_section;
    std::string message;
  };
  const Case cases[] = {
      {"", "Never found decrypt marker\n"},
      {"COUNT = 0\n", "Never found decrypt marker\n"},
      {"KEYs = 0123456789abcdef\n", "Error extracting key1\n"},
      {"KEY2 = 0123456789abcdef\n", "Key1 field not present\n"},
      {"KEY1 = 0123\n", "Error extracting key1\n"},
      {"KEY1 = 0123456789abcdef\n", "Key2 field not present\n"},
      {"KEY1 = 0123456789abcdef\nKEY3 = 0123456789abcdef\n",
       "Key2 field not present\n"},
      {"KEY1 = 0123456789abcdef\nKEY2 = 01\n", "Error extracting key2\n"},
      {"KEY1 = 0123456789abcdef\nKEY2 = 23456789abcdef01\n",
       "Key3 field not present\n"},
      {"KEY1 = 0123456789abcdef\nKEY2 = 23456789abcdef01\nKEY3 = \n",
       "Error extracting key3\n"},
      {k, "IV field not present\n"},
      {k + "IV = 00\n", "Error extracting iv\n"},
      {k + iv, "Plaintext field not present\n"},
      {k + iv + "PLAINTEXT = \n", "Error extracting plaintext\n"},
      {k + iv + "PLAINTEXT = " + std::string(2 * 264, 'a') + "\n",
       "Plaintext buffer too small\n"},
      {"NumKeys = 4\n", "Error extracting number of keys\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.encrypt_section);
    const Result r = RunMct(kHeader + c.encrypt_section);
    EXPECT_EQ(r.console, "ENCRYPT\n" + c.message);
    EXPECT_EQ(r.response, Crlf(std::string(kHeader) + "\n"));
  }

  const Case decrypt_cases[] = {
      {k + iv, "Ciphertext field not present\n"},
      {k + iv + "CIPHERTEXT = \n", "Error extracting ciphertext\n"},
      {k + iv + "CIPHERTEXT = " + std::string(2 * 257, 'b') + "\n",
       "Cipher buffer too small by 1 bytes\n"},
      {"NumKeys = 0\n", "Error extracting number of keys\n"},
  };
  for (const Case& c : decrypt_cases) {
    SCOPED_TRACE(c.encrypt_section);
    const Result r = RunMct(kHeader + ("[DECRYPT]\n" + c.encrypt_section));
    EXPECT_EQ(r.console, "ENCRYPT\nDECRYPT\n" + c.message);
    EXPECT_EQ(r.response, Crlf(std::string(kHeader) + "\n[DECRYPT]\n\n"));
  }

  const Result r = RunMct("# no sections\n");
  EXPECT_EQ(r.console, "Never found encrypt marker\n");
}

TEST(TdesMonteCarlo, DataNotWholeBlocksStopsTheFirstRecord) {
  const std::string seed =
      "KEY1 = 0123456789abcdef\nKEY2 = 23456789abcdef01\n"
      "KEY3 = 456789abcdef0123\nIV = 1234567890abcdef\n";
  Result r = RunMct(kHeader + seed + "PLAINTEXT = 000000000000000000000000\n");
  EXPECT_EQ(r.console,
            "ENCRYPT\n0 of 400\nplain text is not a multiple of 8 (len=12)\n"
            "Problem encrypting i=0 j=0\n");
  EXPECT_NE(r.response.find("PLAINTEXT = 000000000000000000000000\r\n"),
            std::string::npos);
  EXPECT_EQ(r.response.find("CIPHERTEXT"), std::string::npos);

  r = RunMct(kHeader + ("[DECRYPT]\n" + seed) + "CIPHERTEXT = 0000000000\n");
  EXPECT_EQ(r.console,
            "ENCRYPT\nDECRYPT\nCOUNT = 0\n"
            "cipher text is not a multiple of 8 (len=5)\nProblem decrypting\n");
}

}  // namespace
}  // namespace fipsval::testing
