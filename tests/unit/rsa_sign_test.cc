// The PKCS#1 v1.5 signature runners: SigGen response layout and signatures,
// accepted modulus sizes, SigVer stopping at its first test, and the
// failure messages.
#include <gtest/gtest.h>
#include <openssl/bn.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "harness/runners.h"
#include "suites/rsa_common.h"
#include "tests/support/test_env.h"

namespace fipsval::testing {
namespace {

constexpr char kMsg1[] = "Msg = 0123456789abcdef\n";
constexpr char kMsg2[] = "Msg = fedcba9876543210aa\n";

std::string RunSign(const std::string& request, int method = 0) {
  ResetVectorDirs();
  WriteRequest("SigGen", Crlf(request));
  return CaptureStdout([&] { test_rsa_sign_from_file("SigGen", method); });
}

std::string RunVerify(const std::string& request) {
  ResetVectorDirs();
  WriteRequest("SigVer", Crlf(request));
  return CaptureStdout([] { test_rsa_verify_from_file("SigVer", 0); });
}

std::vector<std::string> SplitCrlf(const std::string& text) {
  std::vector<std::string> lines;
  std::size_t start = 0;
  for (std::size_t end; (end = text.find("\r\n", start)) != std::string::npos;
       start = end + 2) {
    lines.push_back(text.substr(start, end - start));
  }
  if (start < text.size()) lines.push_back(text.substr(start));
  return lines;
}

std::string After(const std::string& line, const std::string& tag) {
  EXPECT_EQ(line.rfind(tag, 0), 0u) << line;
  return line.substr(tag.size());
}

std::vector<uint8_t> Bytes(const std::string& hex) {
  std::vector<uint8_t> out(hex.size() / 2);
  for (std::size_t i = 0; i < out.size(); ++i) {
    out[i] = static_cast<uint8_t>(std::stoi(hex.substr(2 * i, 2), nullptr, 16));
  }
  return out;
}

// Verifies S over msg with the reported n and e, independently of the
// runner's own helpers.
bool Verifies(const std::string& n_hex, const std::string& e_hex,
              const EVP_MD* md, const std::string& msg_hex,
              const std::string& s_hex) {
  BIGNUM* n = nullptr;
  BIGNUM* e = nullptr;
  BN_hex2bn(&n, n_hex.c_str());
  BN_hex2bn(&e, e_hex.c_str());
  UniqueRsa rsa(RSA_new());
  RSA_set0_key(rsa.get(), n, e, nullptr);
  const std::vector<uint8_t> msg = Bytes(msg_hex);
  const std::vector<uint8_t> sig = Bytes(s_hex);
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned digest_len = 0;
  EVP_Digest(msg.data(), msg.size(), digest, &digest_len, md, nullptr);
  return RSA_verify(EVP_MD_type(md), digest, digest_len, sig.data(),
                    static_cast<unsigned>(sig.size()), rsa.get()) == 1;
}

bool IsUpperHex(const std::string& s) {
  return s.find_first_not_of("0123456789ABCDEF") == std::string::npos;
}
bool IsLowerHex(const std::string& s) {
  return s.find_first_not_of("0123456789abcdef") == std::string::npos;
}

TEST(RsaSigGen, ResponseLayoutAndSignatures) {
  const std::string request = std::string("# header\n\n[mod = 1024]\n\n") +
                              "SHAAlg = SHA1\n" + kMsg1 + "\n" +
                              "SHAAlg = SHA224\n" + kMsg1 + "\n" +
                              "SHAAlg = SHA256\n" + kMsg2 + "\n" +
                              "SHAAlg = SHA384\n" + kMsg1 + "\n" +
                              "SHAAlg = SHA512\n" + kMsg2;
  EXPECT_EQ(RunSign(request), "");
  const std::string response = ReadResponse("SigGen");
  const std::vector<std::string> l = SplitCrlf(response);
  ASSERT_EQ(l.size(), 25u) << response;
  EXPECT_EQ(l[0], "# header");
  EXPECT_EQ(l[1], "");
  EXPECT_EQ(l[2], "[mod = 1024]");
  EXPECT_EQ(l[3], "");
  const std::string n = After(l[4], "n = ");
  EXPECT_EQ(n.size(), 256u);
  EXPECT_TRUE(IsUpperHex(n)) << n;
  EXPECT_EQ(l[5], "");
  EXPECT_EQ(l[6], "e = 03");
  EXPECT_EQ(l[7], "SHAAlg = SHA1");
  EXPECT_EQ(l[8], "Msg = 0123456789abcdef");
  const std::string s1 = After(l[9], "S = ");
  EXPECT_EQ(s1.size(), 256u);
  EXPECT_TRUE(IsLowerHex(s1)) << s1;
  EXPECT_TRUE(Verifies(n, "03", EVP_sha1(), "0123456789abcdef", s1));
  // SHA-224 is copied without an answer.
  EXPECT_EQ(l[10], "");
  EXPECT_EQ(l[11], "SHAAlg = SHA224");
  EXPECT_EQ(l[12], "Msg = 0123456789abcdef");
  EXPECT_EQ(l[13], "");
  EXPECT_EQ(l[14], "SHAAlg = SHA256");
  EXPECT_TRUE(
      Verifies(n, "03", EVP_sha256(), "fedcba9876543210aa", After(l[16], "S = ")));
  EXPECT_TRUE(
      Verifies(n, "03", EVP_sha384(), "0123456789abcdef", After(l[20], "S = ")));
  EXPECT_TRUE(
      Verifies(n, "03", EVP_sha512(), "fedcba9876543210aa", After(l[24], "S = ")));
  // The last answer line ends in CR LF like every other.
  EXPECT_EQ(response.substr(response.size() - 2), "\r\n");
}

TEST(RsaSigGen, EachSectionGetsItsOwnKey) {
  const std::string request = std::string("[mod = 1024]\n\nSHAAlg = SHA1\n") +
                              kMsg1 + "\n[mod = 1024]\n\nSHAAlg = SHA1\n" +
                              kMsg1;
  EXPECT_EQ(RunSign(request), "");
  const std::vector<std::string> l = SplitCrlf(ReadResponse("SigGen"));
  ASSERT_EQ(l.size(), 17u);
  EXPECT_EQ(l[9], "[mod = 1024]");
  EXPECT_EQ(l[10], "");
  const std::string n1 = After(l[2], "n = ");
  const std::string n2 = After(l[11], "n = ");
  EXPECT_NE(n1, n2);
  EXPECT_EQ(l[13], "e = 03");
  EXPECT_TRUE(Verifies(n2, "03", EVP_sha1(), "0123456789abcdef",
                       After(l[16], "S = ")));
  EXPECT_FALSE(Verifies(n1, "03", EVP_sha1(), "0123456789abcdef",
                        After(l[16], "S = ")));
}

TEST(RsaModulusSize, AcceptedSizesByBitMask) {
  for (int bits : {1024, 1536, 2048, 3072, 4096}) {
    EXPECT_TRUE(IsSignatureModulusSize(bits)) << bits;
  }
  for (int bits : {0, 512, 1280, 2560, 3584, 8192, 5120, 1025}) {
    EXPECT_FALSE(IsSignatureModulusSize(bits)) << bits;
  }
}

TEST(RsaModulusSize, OnlyFourDigitsAreRead) {
  int bits = 0;
  ASSERT_TRUE(extract_modulus_size("[mod = 20480]\r\n", &bits));
  EXPECT_EQ(bits, 2048);
  ASSERT_TRUE(extract_modulus_size("[mod = 1536]\r\n", &bits));
  EXPECT_EQ(bits, 1536);
  ASSERT_TRUE(extract_modulus_size("[mod = 512]\r\n", &bits));
  EXPECT_EQ(bits, 512);
  EXPECT_FALSE(extract_modulus_size(" [mod = 1024]\r\n", &bits));
  EXPECT_TRUE(extract_modulus_size("[mod = abcd]\r\n", &bits));
  EXPECT_EQ(bits, 0);
  EXPECT_TRUE(extract_modulus_size("[mod = ", &bits));
  EXPECT_EQ(bits, 0);
}

TEST(RsaSigGen, GeneratesKeysOfTheSectionSize) {
  // 1536 is accepted; 20480 is read as 2048.
  EXPECT_EQ(RunSign("[mod = 1536]\n\n[mod = 20480]\n\n"), "");
  const std::vector<std::string> l = SplitCrlf(ReadResponse("SigGen"));
  ASSERT_EQ(l.size(), 10u);
  EXPECT_EQ(After(l[2], "n = ").size(), 1536u / 4);
  EXPECT_EQ(l[5], "[mod = 20480]");
  EXPECT_EQ(After(l[7], "n = ").size(), 2048u / 4);
}

TEST(RsaSigGen, RefusesOtherModulusSizes) {
  for (const char* bits : {"1280", "2560"}) {
    const std::string out =
        RunSign(std::string("# c\n[mod = ") + bits + "]\n\nSHAAlg = SHA1\n" +
                kMsg1);
    EXPECT_EQ(out, std::string("Invalid modulus size (") + bits + ")\n");
    EXPECT_EQ(ReadResponse("SigGen"), "# c\r\n");
  }
  EXPECT_EQ(RunSign(std::string("[mod = 1024]\n\nSHAAlg = SHA1\n") + kMsg1 +
                    "[mod = 2560]\n"),
            "Invalid modulus size (2560)\n");
}

TEST(RsaSigGen, FailureMessages) {
  struct Case {
    std::string request;
    std::string printed;
  };
  const std::string big_msg = "Msg = " + std::string(2 * 1025, 'a') + "\n";
  const std::vector<Case> cases = {
      {"# only a comment\n", "Never found modulus size marker\n"},
      {"", "Never found modulus size marker\n"},
      // strtol without a digit check: a size without digits is 0.
      {"[mod = abc]\n", "Invalid modulus size (0)\n"},
      {"[mod = 1024]\n\n[mod = x]\n", "Invalid modulus size (0)\n"},
      {"[mod = 1024]\n\nSHAAlg = SHA1\nMsg2 = 00\n", "Msg field not present\n"},
      {"[mod = 1024]\n\nSHAAlg = SHA1\n", "Msg field not present\n"},
      {"[mod = 1024]\n\nSHAAlg = SHA1\nMsg = \n", "Error extracting msg\n"},
      // A line longer than the 4096-byte line buffer comes in pieces.
      {"[mod = 1024]\n\nSHAAlg = SHA1\nMsg = " + std::string(6000, 'b') + "\n",
       "Msg field too long (2044 bytes, at most 1024)\n"},
      {"[mod = 1024]\n\nSHAAlg = SHA1\n" + big_msg,
       "Msg field too long (1025 bytes, at most 1024)\n"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(RunSign(c.request), c.printed) << c.request;
  }
  // The over-long Msg line is not copied.
  EXPECT_EQ(ReadResponse("SigGen").find("Msg = "), std::string::npos);
  EXPECT_EQ(RunSign("[mod = 1024]\n\n", 1),
            "Invalid method\nError generating key pair\n");
}

TEST(RsaSigGen, LongestMessageIsSigned) {
  const std::string msg(2 * 1024, 'c');
  EXPECT_EQ(RunSign("[mod = 1024]\n\nSHAAlg = SHA256\nMsg = " + msg + "\n"),
            "");
  const std::vector<std::string> l = SplitCrlf(ReadResponse("SigGen"));
  ASSERT_EQ(l.size(), 8u);
  EXPECT_TRUE(Verifies(After(l[2], "n = "), "03", EVP_sha256(), msg,
                       After(l[7], "S = ")));
}

TEST(RsaSigGen, ShortWriteStopsTheRunner) {
  std::string request = "[mod = 1024]\n\n";
  for (int i = 0; i < 40; ++i) request += std::string("SHAAlg = SHA1\n") + kMsg1 + "\n";
  ResetVectorDirs();
  WriteRequest("SigGen", Crlf(request));
  MountTinyResponseDir(4096);
  const int fds = OpenDescriptorCount();
  const std::string out =
      CaptureStdout([] { test_rsa_sign_from_file("SigGen", 0); });
  EXPECT_NE(out.find("Problem writing"), std::string::npos) << out;
  EXPECT_EQ(out.find('\n'), out.size() - 1) << out;  // one line
  EXPECT_EQ(OpenDescriptorCount(), fds);
}

TEST(RsaSigVer, EndsAtTheFirstSupportedTest) {
  const std::string head =
      "# SigVer\n\n[mod = 1024]\n\nn = 00c5\n\n"
      "SHAAlg = SHA224\ne = 03\nMsg = 00\nS = 11\n\n";
  const std::string request = head + "SHAAlg = SHA256\ne = 03\nMsg = 00\n";
  EXPECT_EQ(RunVerify(request), "RSA param n is null\n");
  EXPECT_EQ(ReadResponse("SigVer"), Crlf(head + "SHAAlg = SHA256\n"));
}

TEST(RsaSigVer, ChecksEverySectionSize) {
  EXPECT_EQ(RunVerify("[mod = 1024]\n[mod = 1536]\n[mod = 20480]\n"
                      "[mod = 3072]\n[mod = 4096]\n"),
            "");
  EXPECT_EQ(ReadResponse("SigVer"),
            Crlf("[mod = 1024]\n[mod = 1536]\n[mod = 20480]\n[mod = 3072]\n"
                 "[mod = 4096]\n"));
  EXPECT_EQ(RunVerify("[mod = 1280]\n"), "Invalid modulus size (1280)\n");
  EXPECT_EQ(ReadResponse("SigVer"), "");
  EXPECT_EQ(RunVerify("[mod = 1024]\n[mod = 2560]\n"),
            "Invalid modulus size (2560)\n");
  EXPECT_EQ(ReadResponse("SigVer"), Crlf("[mod = 1024]\n"));
}

TEST(RsaSigVer, FailureMessages) {
  EXPECT_EQ(RunVerify("# nothing\n"), "Never found modulus size marker\n");
  EXPECT_EQ(RunVerify("[mod = ?]\n"), "Invalid modulus size (0)\n");
  EXPECT_EQ(RunVerify("[mod = 1024]\n[mod = ?]\n"),
            "Invalid modulus size (0)\n");
  EXPECT_EQ(RunVerify("[mod = 1024]\n\nn = xyz\n"), "Error extracting modulus\n");
  EXPECT_EQ(ReadResponse("SigVer"), Crlf("[mod = 1024]\n\n"));
}

TEST(RsaSigVer, SampleRequestEndsAtItsFirstTest) {
  const std::string request = ReadFile(std::string(FIPSVAL_SOURCE_DIR) +
                                       "/samples/RSA2/req/SigVer15_186-3.req");
  ASSERT_FALSE(request.empty());
  ResetVectorDirs();
  WriteRequest("SigVer15_186-3", request);
  EXPECT_EQ(CaptureStdout([] { test_rsa_verify_from_file("SigVer15_186-3", 0); }),
            "RSA param n is null\n");
  const std::size_t end = request.find("SHAAlg = SHA1\r\n") + 15;
  EXPECT_EQ(ReadResponse("SigVer15_186-3"), request.substr(0, end));
}

TEST(RsaRunners, MissingRequestAndResponseDirectory) {
  ResetVectorDirs();
  EXPECT_EQ(CaptureStdout([] { test_rsa_sign_from_file("SigGen", 0); }),
            "Couldn't open /tmp/req/SigGen.req\n");
  WriteRequest("SigVer", Crlf("[mod = 1024]\n"));
  std::system("rm -rf /tmp/resp");
  const int fds = OpenDescriptorCount();
  EXPECT_EQ(CaptureStdout([] { test_rsa_verify_from_file("SigVer", 0); }),
            "Couldn't open /tmp/resp/SigVer.rsp\n");
  EXPECT_EQ(OpenDescriptorCount(), fds);
}

}  // namespace
}  // namespace fipsval::testing
