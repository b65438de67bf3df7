// The AES CBC and ECB request-file runners: the answer layout, every
// failure a testing lab's file can provoke, and the stop after a failed
// write. Runs inside the sandbox, which gives the runners a private
// "/tmp/req" and "/tmp/resp".
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "harness/runners.h"
#include "tests/support/test_env.h"

namespace fipsval::testing {
namespace {

constexpr char kHeader[] = "# CAVS 11.1\n# AESVS test data\n\n[ENCRYPT]\n\n";

// RFC 3602 case 1 ("Single block msg"), and FIPS-197 appendix C.1.
constexpr char kCbcKey[] = "06a9214036b8a15b512e03d534120006";
constexpr char kCbcIv[] = "3dafba429d9eb430b422da802c9fac41";
constexpr char kCbcPlain[] = "53696e676c6520626c6f636b206d7367";
constexpr char kCbcCipher[] = "e353779c1079aeb82708942dbe77181a";
constexpr char kEcbKey[] = "000102030405060708090a0b0c0d0e0f";
constexpr char kEcbPlain[] = "00112233445566778899aabbccddeeff";
constexpr char kEcbCipher[] = "69c4e0d86a7b0430d8cdb78070b4c55a";

std::string Field(const std::string& tag, const std::string& value) {
  return tag + " = " + value + "\n";
}

std::string CbcVector(int count, const std::string& data_tag,
                      const std::string& data) {
  return Field("COUNT", std::to_string(count)) + Field("KEY", kCbcKey) +
         Field("IV", kCbcIv) + Field(data_tag, data);
}

std::string Hex(std::size_t bytes, char digit = 'a') {
  return std::string(2 * bytes, digit);
}

int Occurrences(const std::string& text, const std::string& what) {
  int n = 0;
  for (auto at = text.find(what); at != text.npos; at = text.find(what, at + 1)) {
    ++n;
  }
  return n;
}

class AesRunner : public ::testing::Test {
 protected:
  void SetUp() override { ResetVectorDirs(); }

  // Runs `runner` on a request named "T" holding `request` (with "\n" line
  // ends turned into CR LF); returns what it printed.
  std::string Run(void (*runner)(const char*), const std::string& request) {
    WriteRequest("T", Crlf(request));
    const int fds = OpenDescriptorCount();
    std::string out = CaptureStdout([&] { runner("T"); });
    EXPECT_EQ(OpenDescriptorCount(), fds) << "a file was left open";
    return out;
  }

  static std::string Printed(const std::string& lines) {
    return "Running file T\n" + lines;
  }
};

TEST_F(AesRunner, CbcAddsOneAnswerLineToEveryVector) {
  const std::string request =
      std::string(kHeader) + CbcVector(0, "PLAINTEXT", kCbcPlain) +
      "\n[DECRYPT]\n\n" + CbcVector(0, "CIPHERTEXT", kCbcCipher) + "\n";
  EXPECT_EQ(Run(test_aes_cbc_from_file, request), Printed(""));
  EXPECT_EQ(ReadResponse("T"),
            Crlf(std::string(kHeader) + CbcVector(0, "PLAINTEXT", kCbcPlain) +
                 Field("CIPHERTEXT", kCbcCipher) + "\n[DECRYPT]\n\n" +
                 CbcVector(0, "CIPHERTEXT", kCbcCipher) +
                 Field("PLAINTEXT", kCbcPlain) + "\n"));
}

TEST_F(AesRunner, EcbHasNoIvLines) {
  const std::string enc = Field("COUNT", "0") + Field("KEY", kEcbKey) +
                          Field("PLAINTEXT", kEcbPlain);
  const std::string dec = Field("COUNT", "0") + Field("KEY", kEcbKey) +
                          Field("CIPHERTEXT", kEcbCipher);
  EXPECT_EQ(Run(test_aes_ecb_from_file,
                kHeader + enc + "\n[DECRYPT]\n\n" + dec),
            Printed(""));
  EXPECT_EQ(ReadResponse("T"),
            Crlf(kHeader + enc + Field("CIPHERTEXT", kEcbCipher) +
                 "\n[DECRYPT]\n\n" + dec + Field("PLAINTEXT", kEcbPlain)));
}

TEST_F(AesRunner, AnswerEndsInCrLfAfterALastLineWithoutOne) {
  WriteRequest("T", Crlf(std::string(kHeader) + Field("COUNT", "0") +
                         Field("KEY", kEcbKey)) +
                        "PLAINTEXT = " + kEcbPlain);
  CaptureStdout([] { test_aes_ecb_from_file("T"); });
  EXPECT_TRUE(ReadResponse("T").ends_with(std::string(kEcbPlain) +
                                          "CIPHERTEXT = " + kEcbCipher +
                                          "\r\n"));
}

TEST_F(AesRunner, AcceptsAllThreeKeySizesAndRefusesOthers) {
  for (std::size_t key_bytes : {16u, 24u, 32u}) {
    const std::string request =
        std::string(kHeader) + Field("COUNT", "0") +
        Field("KEY", Hex(key_bytes, '1')) + Field("IV", kCbcIv) +
        Field("PLAINTEXT", kCbcPlain) + "\n[DECRYPT]\n";
    EXPECT_EQ(Run(test_aes_cbc_from_file, request), Printed("")) << key_bytes;
  }
  const std::string request = std::string(kHeader) + Field("COUNT", "0") +
                              Field("KEY", Hex(20)) + Field("IV", kCbcIv) +
                              Field("PLAINTEXT", kCbcPlain);
  EXPECT_EQ(Run(test_aes_cbc_from_file, request),
            Printed("Error extracting key\n"));
  // The failing line is not copied.
  EXPECT_EQ(ReadResponse("T"), Crlf(std::string(kHeader) + "COUNT = 0\n"));
}

struct FailureCase {
  const char* name;
  std::string body;  // everything after the header
  std::string message;
};

class AesRunnerFailure : public AesRunner,
                         public ::testing::WithParamInterface<FailureCase> {};

TEST_P(AesRunnerFailure, PrintsItsMessageAndStops) {
  const std::string request = std::string(kHeader) + GetParam().body;
  EXPECT_EQ(Run(test_aes_cbc_from_file, request),
            Printed(GetParam().message));
}

const std::string kDecryptAt =
    CbcVector(0, "PLAINTEXT", kCbcPlain) + "\n[DECRYPT]\n\n";

INSTANTIATE_TEST_SUITE_P(
    LabFiles, AesRunnerFailure,
    ::testing::Values(
        FailureCase{"NoEncryptMarker", "", "Never found encrypt marker\n"},
        FailureCase{"NoDecryptMarker", CbcVector(0, "PLAINTEXT", kCbcPlain),
                    "Never found encrypt marker\n"},
        FailureCase{"KeyMissing",
                    Field("COUNT", "0") + Field("IV", kCbcIv),
                    "Key field not present\n"},
        FailureCase{"EndAfterCount", Field("COUNT", "0"),
                    "Key field not present\n"},
        FailureCase{"IndentedKeyReadOneCharacterEarly",
                    Field("COUNT", "0") + " KEY = " + kCbcKey + "\n",
                    "Error extracting key\n"},
        FailureCase{"IvMissing",
                    Field("COUNT", "0") + Field("KEY", kCbcKey) +
                        Field("PLAINTEXT", kCbcPlain),
                    "IV field not present\n"},
        FailureCase{"IvTooShort",
                    Field("COUNT", "0") + Field("KEY", kCbcKey) +
                        Field("IV", Hex(15)),
                    "Error extracting iv\n"},
        FailureCase{"PlaintextMissing",
                    Field("COUNT", "0") + Field("KEY", kCbcKey) +
                        Field("IV", kCbcIv),
                    "Plaintext field not present\n"},
        FailureCase{"PlaintextEmpty",
                    Field("COUNT", "0") + Field("KEY", kCbcKey) +
                        Field("IV", kCbcIv) + "PLAINTEXT = \n",
                    "Error extracting plaintext\n"},
        FailureCase{"PlaintextTooLong", CbcVector(0, "PLAINTEXT", Hex(272)),
                    "Plaintext buffer too small by 16 bytes\n"},
        FailureCase{"PlaintextNotWholeBlocks",
                    CbcVector(0, "PLAINTEXT", Hex(20)),
                    "ssl and fips ciphers are different\nError encrypting\n"},
        FailureCase{"CiphertextMissing",
                    kDecryptAt + Field("COUNT", "0") + Field("KEY", kCbcKey) +
                        Field("IV", kCbcIv),
                    "Ciphertext field not present\n"},
        FailureCase{"CiphertextEmpty",
                    kDecryptAt + CbcVector(0, "CIPHERTEXT", ""),
                    "Error extracting ciphertext\n"},
        FailureCase{"CiphertextTooLong",
                    kDecryptAt + CbcVector(0, "CIPHERTEXT", Hex(300)),
                    "Cipher buffer too small by 44 bytes\n"},
        FailureCase{"CiphertextNotWholeBlocks",
                    kDecryptAt + CbcVector(0, "CIPHERTEXT", Hex(20)),
                    "ssl and fips plaintexts are different\n"
                    "Error decrypting\n"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(AesRunner, MissingDecryptMarkerKeepsTheEncryptAnswers) {
  const std::string vectors = CbcVector(0, "PLAINTEXT", kCbcPlain) + "\n" +
                              CbcVector(1, "PLAINTEXT", kCbcPlain) + "\n";
  EXPECT_EQ(Run(test_aes_cbc_from_file, kHeader + vectors),
            Printed("Never found encrypt marker\n"));
  EXPECT_EQ(Occurrences(ReadResponse("T"),
                        Crlf(Field("CIPHERTEXT", kCbcCipher) + "\n")),
            2);
}

TEST_F(AesRunner, EncryptMarkerInTheDecryptSectionIsOnlyCopied) {
  const std::string request = kHeader + kDecryptAt + "[ENCRYPT]\n" +
                              CbcVector(0, "CIPHERTEXT", kCbcCipher);
  EXPECT_EQ(Run(test_aes_cbc_from_file, request), Printed(""));
  EXPECT_NE(ReadResponse("T").find("[ENCRYPT]\r\nCOUNT = 0"), std::string::npos);
  EXPECT_NE(ReadResponse("T").find(Crlf(Field("PLAINTEXT", kCbcPlain))),
            std::string::npos);
}

TEST_F(AesRunner, EcbProcessesATrailingPartialBlockWhole) {
  const std::string request =
      std::string(kHeader) + Field("COUNT", "0") + Field("KEY", kEcbKey) +
      Field("PLAINTEXT", std::string(kEcbPlain) + "0102") + "[DECRYPT]\n";
  EXPECT_EQ(Run(test_aes_ecb_from_file, request), Printed(""));
  // The first block is the appendix answer; the second is cut to 2 bytes.
  const std::string rsp = ReadResponse("T");
  const std::string answer = std::string("CIPHERTEXT = ") + kEcbCipher;
  const auto at = rsp.find(answer);
  ASSERT_NE(at, std::string::npos);
  EXPECT_EQ(rsp.find("\r\n", at), at + answer.size() + 4);
}

TEST_F(AesRunner, MissingFilesCostOnlyThatFile) {
  EXPECT_EQ(CaptureStdout([] { test_aes_cbc_from_file("T"); }),
            "Running file T\nCouldn't open /tmp/req/T.req\n");
  EXPECT_FALSE(ResponseExists("T"));
  WriteRequest("T", Crlf(kHeader));
  ASSERT_EQ(std::system("rm -rf /tmp/resp"), 0);
  const int fds = OpenDescriptorCount();
  EXPECT_EQ(CaptureStdout([] { test_aes_ecb_mct_from_file("T"); }),
            "Running file T\nCouldn't open /tmp/resp/T.rsp\n");
  EXPECT_EQ(OpenDescriptorCount(), fds);
}

TEST_F(AesRunner, StopsAtTheFirstFailedWrite) {
  std::string request = kHeader;
  for (int i = 0; i < 400; ++i) {
    request += CbcVector(i, "PLAINTEXT", kCbcPlain) + "\n";
  }
  MountTinyResponseDir(4096);
  const std::string out = Run(test_aes_cbc_from_file, request);
  ASSERT_EQ(out.rfind("Running file T\nProblem writing ", 0), 0u) << out;
  EXPECT_EQ(out.find('\n', 15), out.size() - 1) << "one failure line: " << out;
}

// ---------------------------------------------------------------------------
// Monte Carlo

// NIST's CBCMCT128 seeds, written in upper case so that the request's own
// lines can be told from the generated ones.
const std::string kCbcMctRequest =
    std::string(kHeader) +
    "COUNT = 0\nKEY = 8809E7DD3A959EE5D8DBB13F501F2274\n"
    "IV = E5C0BB535D7D54572AD06D170A0E58AE\n"
    "PLAINTEXT = 1FD4EE65603E6130CFC2A82AB3D56C24\n\n[DECRYPT]\n\n"
    "COUNT = 0\nKEY = 287B07C78F8E3E1BE7C41B3D96C04E6E\n"
    "IV = 41B461F9464FD515D25413B4241002B8\n"
    "CIPHERTEXT = 7C54923B0490A9D4DE4EC1CE6790AA4D\n\n";

TEST_F(AesRunner, MonteCarloReplacesEachSeedByHundredRecords) {
  EXPECT_EQ(Run(test_aes_cbc_mct_from_file, kCbcMctRequest), Printed(""));
  const std::string rsp = ReadResponse("T");
  EXPECT_EQ(Occurrences(rsp, "COUNT = "), 200);
  EXPECT_EQ(Occurrences(rsp, "\r\n\r\nCOUNT = 99\r\n"), 2);
  EXPECT_EQ(Occurrences(rsp, "8809E7DD"), 0);  // seed lines consumed
  // Every record's result line is followed by a blank line.
  int closed_records = 0;
  std::string previous;
  for (std::size_t at = 0, end; (end = rsp.find("\r\n", at)) != rsp.npos;
       at = end + 2) {
    const std::string line = rsp.substr(at, end - at);
    if (line.empty() && (previous.starts_with("CIPHERTEXT = ") ||
                         previous.starts_with("PLAINTEXT = "))) {
      ++closed_records;
    }
    previous = line;
  }
  EXPECT_EQ(closed_records, 200);
  // NIST's answers for the first two records of each section.
  for (const char* line :
       {"COUNT = 0\r\nKEY = 8809e7dd3a959ee5d8dbb13f501f2274\r\n"
        "IV = e5c0bb535d7d54572ad06d170a0e58ae\r\n"
        "PLAINTEXT = 1fd4ee65603e6130cfc2a82ab3d56c24\r\n"
        "CIPHERTEXT = b127a5b4c4692d87483db0c3b0d11e64\r\n\r\n"
        "COUNT = 1\r\nKEY = 392e4269fefcb36290e601fce0ce3c10\r\n"
        "IV = b127a5b4c4692d87483db0c3b0d11e64\r\n",
        "COUNT = 0\r\nKEY = 287b07c78f8e3e1be7c41b3d96c04e6e\r\n"
        "IV = 41b461f9464fd515d25413b4241002b8\r\n"
        "CIPHERTEXT = 7c54923b0490a9d4de4ec1ce6790aa4d\r\n"
        "PLAINTEXT = 2805d10b127fcd1da528faad4eb2e10b\r\n\r\n"
        "COUNT = 1\r\nKEY = 007ed6cc9df1f30642ece190d872af65\r\n"
        "IV = 2805d10b127fcd1da528faad4eb2e10b\r\n"
        "CIPHERTEXT = a7b760be9237b49e8dad24a6063523a6\r\n"}) {
    EXPECT_NE(rsp.find(line), std::string::npos) << line;
  }
}

TEST_F(AesRunner, EcbMonteCarloFeedsOutputsBackAndKeysFromTheLastBlock) {
  // NIST's ECBMCT128 seed and its first two answers.
  const std::string request =
      std::string(kHeader) + "COUNT = 0\nKEY = 139a35422f1d61de3c91787fe0507afd\n"
      "PLAINTEXT = b9145a768b7dc489a096b546f43b231f\n\n";
  EXPECT_EQ(Run(test_aes_ecb_mct_from_file, request),
            Printed("Never found encrypt marker\n"));
  const std::string rsp = ReadResponse("T");
  EXPECT_EQ(Occurrences(rsp, "COUNT = "), 100);
  EXPECT_EQ(Occurrences(rsp, "IV = "), 0);
  EXPECT_NE(rsp.find("CIPHERTEXT = d7c3ffac9031238650901e157364c386\r\n\r\n"
                     "COUNT = 1\r\nKEY = c459caeebf2c42586c01666a9334b97b\r\n"
                     "PLAINTEXT = d7c3ffac9031238650901e157364c386\r\n"
                     "CIPHERTEXT = bc3637da2daf8fcf7c68bb28c143a0a4\r\n"),
            std::string::npos);
}

// The key line of record `count` in a Monte Carlo response.
std::string KeyOfRecord(const std::string& rsp, int count) {
  const std::string head = "COUNT = " + std::to_string(count) + "\r\nKEY = ";
  const auto at = rsp.find(head);
  if (at == std::string::npos) return "";
  const auto start = at + head.size();
  return rsp.substr(start, rsp.find('\r', start) - start);
}

TEST_F(AesRunner, LongerKeysFollowEachModesUpdateRule) {
  // CBC-192 mixes the tail of the second-last block into the first eight
  // key bytes; ECB leaves them alone.
  const std::string key = "000102030405060708090a0b0c0d0e0f1011121314151617";
  const std::string cbc_request =
      std::string(kHeader) + "COUNT = 0\nKEY = " + key + "\nIV = " + kCbcIv +
      "\nPLAINTEXT = " + kCbcPlain + "\n\n[DECRYPT]\n";
  Run(test_aes_cbc_mct_from_file, cbc_request);
  const std::string cbc_next = KeyOfRecord(ReadResponse("T"), 1);
  ASSERT_EQ(cbc_next.size(), 48u);
  EXPECT_NE(cbc_next.substr(0, 16), key.substr(0, 16));

  const std::string ecb_request = std::string(kHeader) + "COUNT = 0\nKEY = " +
                                  key + "\nPLAINTEXT = " + kEcbPlain +
                                  "\n\n[DECRYPT]\n";
  Run(test_aes_ecb_mct_from_file, ecb_request);
  const std::string ecb_rsp = ReadResponse("T");
  for (int i = 1; i < 100; ++i) {
    const std::string k = KeyOfRecord(ecb_rsp, i);
    ASSERT_EQ(k.size(), 48u) << i;
    EXPECT_EQ(k.substr(0, 16), key.substr(0, 16)) << i;
    EXPECT_NE(k.substr(16), KeyOfRecord(ecb_rsp, i - 1).substr(16)) << i;
  }
}

TEST_F(AesRunner, MonteCarloSeedFailures) {
  const std::string no_iv = std::string(kHeader) + "COUNT = 0\nKEY = " +
                            kCbcKey + "\nPLAINTEXT = " + kCbcPlain + "\n";
  EXPECT_EQ(Run(test_aes_cbc_mct_from_file, no_iv),
            Printed("IV field not present\n"));
  EXPECT_EQ(ReadResponse("T"), Crlf(kHeader));  // seed lines never copied
  const std::string short_block = std::string(kHeader) + "COUNT = 0\nKEY = " +
                                  kCbcKey + "\nIV = " + kCbcIv +
                                  "\nPLAINTEXT = 0011\n";
  EXPECT_EQ(Run(test_aes_cbc_mct_from_file, short_block),
            Printed("Monte Carlo seed plaintext is 2 bytes, not one 16-byte "
                    "block: not answered\n"));
  const std::string dec_no_key = std::string(kHeader) + "[DECRYPT]\nCOUNT = 0\n";
  EXPECT_EQ(Run(test_aes_ecb_mct_from_file, dec_no_key),
            Printed("Key field not present\n"));
}

}  // namespace
}  // namespace fipsval::testing
