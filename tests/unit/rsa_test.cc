// The RSA runners: SigGen signatures checked with the reported public key,
// SigVer stopping at its first test, the appendix B.3.3 checks at their
// boundaries, the KAT and random-probable-prime runners and the copy
// runner.
#include <gtest/gtest.h>
#include <openssl/bn.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "harness/runners.h"
#include "suites/rsa_common.h"
#include "tests/support/test_env.h"

namespace fipsval::testing {
namespace {

RunnerCore Sign(int method = 0) {
  return [method](std::FILE* q, std::FILE* s) { test_rsa_sign_from_stream(q, s, method); };
}
void Verify(std::FILE* q, std::FILE* s) { test_rsa_verify_from_stream(q, s, 0); }

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  for (std::size_t at = 0, end; at < text.size(); at = end + 2) {
    end = std::min(text.find("\r\n", at), text.size());
    lines.push_back(text.substr(at, end - at));
  }
  return lines;
}

std::string After(const std::string& line, const std::string& tag) {
  EXPECT_EQ(line.rfind(tag, 0), 0u) << line;
  return line.substr(std::min(tag.size(), line.size()));
}

UniqueBignum Bn(const std::string& hex) {
  BIGNUM* bn = nullptr;
  BN_hex2bn(&bn, hex.c_str());
  return UniqueBignum(bn);
}

// S over msg verifies with the reported n and e = 3.
bool Verifies(const std::string& n, const EVP_MD* md, const std::string& msg,
              const std::string& s) {
  UniqueRsa rsa(RSA_new());
  RSA_set0_key(rsa.get(), Bn(n).release(), Bn("03").release(), nullptr);
  const std::vector<uint8_t> m = FromHex(msg), sig = FromHex(s);
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned len = 0;
  EVP_Digest(m.data(), m.size(), digest, &len, md, nullptr);
  return RSA_verify(EVP_MD_type(md), digest, len, sig.data(),
                    static_cast<unsigned>(sig.size()), rsa.get()) == 1;
}

TEST(RsaSigGen, SignaturesVerifyWithTheReportedKeyOfTheirSection) {
  const std::string msg1 = "0123456789abcdef", msg2 = std::string(2048, 'c');
  const CoreResult r = RunCore(
      Sign(), "# header\n\n[mod = 1024]\n\nSHAAlg = SHA1\nMsg = " + msg1 +
                  "\n\nSHAAlg = SHA224\nMsg = " + msg1 +
                  "\n\nSHAAlg = SHA256\nMsg = " + msg2 +
                  "\n\n[mod = 1024]\n\nSHAAlg = SHA384\nMsg = " + msg1 +
                  "\nSHAAlg = SHA512\nMsg = " + msg1 + "\n");
  EXPECT_EQ(r.printed, "");
  // After each [mod] line: blank, n (upper case), blank, and e = 03 ended
  // by the next request line. SHA-224 is copied without an answer.
  const std::vector<std::string> l = Lines(r.response);
  ASSERT_EQ(l.size(), 29u) << r.response;
  const std::string n1 = After(l[4], "n = "), n2 = After(l[20], "n = ");
  std::vector<std::string> sig;
  for (int i : {9, 16, 25, 28}) sig.push_back(After(l[i], "S = "));
  EXPECT_EQ(r.response,
            Crlf("# header\n\n[mod = 1024]\n\nn = " + n1 +
                 "\n\ne = 03\nSHAAlg = SHA1\nMsg = " + msg1 + "\nS = " + sig[0] +
                 "\n\nSHAAlg = SHA224\nMsg = " + msg1 + "\n\nSHAAlg = SHA256\nMsg = " +
                 msg2 + "\nS = " + sig[1] + "\n\n[mod = 1024]\n\nn = " + n2 +
                 "\n\ne = 03\nSHAAlg = SHA384\nMsg = " + msg1 + "\nS = " + sig[2] +
                 "\nSHAAlg = SHA512\nMsg = " + msg1 + "\nS = " + sig[3] + "\n"));
  EXPECT_EQ(n1.size(), 256u);
  EXPECT_EQ(n1.find_first_not_of("0123456789ABCDEF"), std::string::npos);
  EXPECT_EQ(sig[0].find_first_not_of("0123456789abcdef"), std::string::npos);
  EXPECT_TRUE(Verifies(n1, EVP_sha1(), msg1, sig[0]));
  EXPECT_TRUE(Verifies(n1, EVP_sha256(), msg2, sig[1]));
  EXPECT_TRUE(Verifies(n2, EVP_sha384(), msg1, sig[2]));
  EXPECT_TRUE(Verifies(n2, EVP_sha512(), msg1, sig[3]));
  EXPECT_FALSE(Verifies(n1, EVP_sha384(), msg1, sig[2]));  // a key per section
}

TEST(RsaSigVer, EndsAtTheFirstSupportedTestAfterCheckingSizes) {
  const std::string head =
      "# SigVer\n\n[mod = 1024]\n\nn = 00c5\n\n"
      "SHAAlg = SHA224\ne = 03\nMsg = 00\nS = 11\n\n"
      "[mod = 1536]\n[mod = 20480]\n[mod = 3072]\n[mod = 4096]\n";
  const CoreResult r = RunCore(Verify, head + "SHAAlg = SHA256\ne = 03\nMsg = 00\n");
  EXPECT_EQ(r.printed, "RSA param n is null\n");
  EXPECT_EQ(r.response, Crlf(head + "SHAAlg = SHA256\n"));
}

// ---- Key generation ----

UniqueBignum Word(unsigned long w) {
  UniqueBignum bn(BN_new());
  BN_set_word(bn.get(), w);
  return bn;
}

// The steps at their boundaries, for 2048 and 3072 bits, are in the
// project's KAT vectors below. The reason is cut to the buffer's size; a
// modulus size below 0 fails before any step.
TEST(B33, ReasonIsBoundedAndTerminated) {
  for (const auto& [nlen, reason] : {std::pair{2048, "Step 4.4 p "}, {0, "Step 4.4 p "},
                                     {-1, "Invalid mod"}}) {
    char small[12];
    EXPECT_EQ(b33_test(nlen, Word(3).get(), Word(0).get(), Word(0).get(), small, sizeof small), 0);
    EXPECT_STREQ(small, reason);
  }
}

// KAT requests end their lines in CR CR LF: "\r\n" in the text below.
std::string KatText(std::string text) {
  for (std::size_t at = 0; (at = text.find('\n', at)) != std::string::npos; at += 2) {
    text.insert(at, "\r");
  }
  return text;
}

TEST(RsaKeyGenKat, ProjectVectorsGiveTheExpectedResults) {
  const std::string dir = std::string(FIPSVAL_SOURCE_DIR) + "/vectors/RSA2/";
  std::string request = ReadFile(dir + "req/KeyGen3_3_KAT.req");
  ASSERT_FALSE(request.empty());
  // RunCore puts back the CR before each LF.
  for (std::size_t at = 0; (at = request.find("\r\n", at)) != std::string::npos; ++at) {
    request.erase(at, 1);
  }
  const CoreResult r = RunCore(test_rsa_keygen_kat_from_stream, request);
  EXPECT_EQ(r.printed, "");
  EXPECT_EQ(r.response, ReadFile(dir + "fax/KeyGen3_3_KAT.fax"));
}

TEST(RsaRandomProbablePrime, KeysReplaceTheLoopCountAndAreConsistent) {
  const CoreResult r = RunCore(test_rsa_keygen_rp_prime_from_stream,
                               "# RP\n\n[mod = 2048]\n\nN = 1\n\n# end\n");
  EXPECT_EQ(r.printed, "");
  const std::vector<std::string> l = Lines(r.response);
  ASSERT_EQ(l.size(), 11u) << r.response;
  EXPECT_EQ(r.response.substr(0, 24), Crlf("# RP\n\n[mod = 2048]\n\n"));
  EXPECT_EQ(l[4], "e = 010001");
  EXPECT_EQ(std::vector<std::string>(l.begin() + 9, l.end()),
            (std::vector<std::string>{"", "# end"}));
  // n = p q of 2048 bits, both prime, and d the inverse of e modulo
  // lcm(p - 1, q - 1), below it.
  UniqueRsa key(RSA_new());
  RSA_set0_key(key.get(), Bn(After(l[7], "n = ")).release(), Bn("010001").release(),
               Bn(After(l[8], "d = ")).release());
  RSA_set0_factors(key.get(), Bn(After(l[5], "p = ")).release(),
                   Bn(After(l[6], "q = ")).release());
  EXPECT_EQ(RSA_check_key(key.get()), 1);
  EXPECT_EQ(RSA_bits(key.get()), 2048);
  const UniqueBnCtx ctx(BN_CTX_new());
  UniqueBignum p1(BN_dup(RSA_get0_p(key.get()))), q1(BN_dup(RSA_get0_q(key.get()))),
      lcm(BN_new()), g(BN_new());
  BN_sub_word(p1.get(), 1);
  BN_sub_word(q1.get(), 1);
  BN_mul(lcm.get(), p1.get(), q1.get(), ctx.get());
  BN_gcd(g.get(), p1.get(), q1.get(), ctx.get());
  BN_div(lcm.get(), nullptr, lcm.get(), g.get(), ctx.get());
  EXPECT_LT(BN_cmp(RSA_get0_d(key.get()), lcm.get()), 0);
}

TEST(RsaRunners, FailuresStopWithTheirMessage) {
  const std::string sha1 = "[mod = 1024]\n\nSHAAlg = SHA1\n";
  const std::string record = "e = 01\nprandom = 05\nqrandom = 07\n";
  const RunnerCore kat = test_rsa_keygen_kat_from_stream,
                   rp = test_rsa_keygen_rp_prime_from_stream;
  const struct {
    RunnerCore core;
    std::string request, printed, kept;  // "*": not compared
  } kCases[] = {
      {Sign(), "", "Never found modulus size marker\n", ""},
      {Sign(), "# c\n[mod = 1280]\n\n", "Invalid modulus size (1280)\n", "# c\n"},
      {Sign(), sha1 + "Msg = 00\n[mod = 2560]\n", "Invalid modulus size (2560)\n", "*"},
      // strtol without a digit check: a size without digits is 0.
      {Sign(), "[mod = abc]\n", "Invalid modulus size (0)\n", ""},
      {Sign(), "[mod = 1024]\n\n[mod = x]\n", "Invalid modulus size (0)\n", "*"},
      {Sign(), sha1 + "Msg2 = 00\n", "Msg field not present\n", "*"},
      {Sign(), sha1, "Msg field not present\n", "*"},
      {Sign(), sha1 + "Msg = \n", "Error extracting msg\n", "*"},
      {Sign(), sha1 + "Msg = " + std::string(2050, 'a') + "\n",
       "Msg field too long (1025 bytes, at most 1024)\n", "*"},
      // A line longer than the 4096-byte line buffer comes in pieces.
      {Sign(), sha1 + "Msg = " + std::string(6000, 'b') + "\n",
       "Msg field too long (2044 bytes, at most 1024)\n", "*"},
      {Sign(1), "[mod = 1024]\n\n", "Invalid method\nError generating key pair\n", "*"},
      {Verify, "# nothing\n", "Never found modulus size marker\n", "# nothing\n"},
      {Verify, "[mod = 1280]\n", "Invalid modulus size (1280)\n", ""},
      {Verify, "[mod = 1024]\n[mod = 2560]\n", "Invalid modulus size (2560)\n",
       "[mod = 1024]\n"},
      {Verify, "[mod = ?]\n", "Invalid modulus size (0)\n", ""},
      {Verify, "[mod = 1024]\n\nn = xyz\n", "Error extracting modulus\n", "[mod = 1024]\n\n"},
      // Without candidates p and q are zero: step 4.4 fails.
      {kat, KatText("[mod = 1024]\ne = 01\n\n"), "",
       KatText("[mod = 1024]\ne = 01\n") + "Result = F (Step 4.4 p < Floor_SQRT2_TIMES_2Power_"
       "n_div_2_minus_1 so get another random number.)\r\n\n\r\n"},
      // A record end outside a record is copied.
      {kat, KatText("\n[mod = 1024]\n\n"), "", KatText("\n[mod = 1024]\n\n")},
      // Lines ending in CR LF never close a record.
      {kat, "[mod = 1024]\n\n" + record + "\n" + record, "Didn't find section end\n",
       "[mod = 1024]\n\n" + record + "\n"},
      {kat, KatText("[mod = 1280]\n"), "Invalid modulus size (1280)\n", ""},
      {kat, KatText("[mod = 1536]\n[mod = size]\n"), "Invalid modulus size (0)\n",
       KatText("[mod = 1536]\n")},
      {kat, "", "", ""},
      {rp, "[mod = 3072]\n\nN = -1\n\n[mod = 4096]\n", "", "[mod = 3072]\n\n[mod = 4096]\n"},
      {rp, "# c\n[mod = 1024]\n\nN = 1\n", "Invalid modulus size (1024)\n", "# c\n"},
      {rp, "[mod = 1536]\n", "Invalid modulus size (1536)\n", ""},
      {rp, "[mod = x]\n", "Invalid modulus size (0)\n", ""},
      {rp, "[mod = 2048]\n\nNo count\n", "Didn't find loop num\n", "[mod = 2048]\n"},
      {rp, "[mod = 2048]\n\nN = many\n", "Invalid loop num (0)\n", "[mod = 2048]\n"},
      {rp, "[mod = 2048]\n\nN = 0\n", "Invalid loop num (0)\n", "[mod = 2048]\n"},
      {rp, "", "", ""},
  };
  for (const auto& c : kCases) {
    const CoreResult r = RunCore(c.core, c.request);
    EXPECT_EQ(r.printed, c.printed) << c.request;
    EXPECT_TRUE(c.kept == "*" || r.response == Crlf(c.kept)) << c.request;
  }
}

TEST(RsaKeyGenCopy, CopiesTheRequestByteForByte) {
  const std::string request = "# KeyGen\r\n\r\n[mod = 2048]\nbare\nLF\r\nlast";
  std::FILE* req = fmemopen(const_cast<char*>(request.data()), request.size(), "r");
  char* data = nullptr;
  std::size_t size = 0;
  std::FILE* rsp = open_memstream(&data, &size);
  EXPECT_EQ(CaptureStdout([&] { test_rsa_keygen_from_stream(req, rsp); }), "");
  std::fclose(req);
  std::fclose(rsp);
  // The last line, without its CR LF, is not terminated: the longer line
  // before it shows through.
  EXPECT_EQ(std::string(data, size), request + " = 2048]\nbare\nLF\r\n");
  std::free(data);
}

}  // namespace
}  // namespace fipsval::testing
