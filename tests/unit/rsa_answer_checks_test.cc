// The RSA answer checks of `fipsval verify`: they pass the runners' own
// responses and name the first wrong answer with its line.
#include <gtest/gtest.h>
#include <openssl/bn.h>
#include <openssl/rsa.h>

#include <string>

#include "harness/runners.h"
#include "host/core/rsa_answer_checks.h"
#include "suites/rsa_common.h"
#include "tests/support/test_env.h"

namespace fipsval::testing {
namespace {

using host::AnswerCheck;

constexpr char kResponse[] = "/tmp/check.rsp";
constexpr char kRequest[] = "/tmp/check.req";

void ExpectProblem(const AnswerCheck& check, const std::string& problem) {
  EXPECT_FALSE(check.ok);
  EXPECT_EQ(check.problem, problem);
}

// Replaces the first occurrence of `from` in text.
std::string Replace(std::string text, const std::string& from,
                    const std::string& to) {
  const std::size_t at = text.find(from);
  EXPECT_NE(at, std::string::npos) << from;
  if (at != std::string::npos) text.replace(at, from.size(), to);
  return text;
}

// A SigGen response made by the runner: two 1024-bit sections, with
// SHA-224 tests left unanswered.
class SigGenCheckTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    ResetVectorDirs();
    WriteRequest("SigGen15_186-3",
                 Crlf("# SigGen\n\n[mod = 1024]\n\n"
                      "SHAAlg = SHA1\nMsg = 00112233\n\n"
                      "SHAAlg = SHA224\nMsg = 44\n\n"
                      "SHAAlg = SHA256\nMsg = 5566\n\n"
                      "[mod = 1024]\n\n"
                      "SHAAlg = SHA384\nMsg = 77\n\n"
                      "SHAAlg = SHA512\nMsg = 8899aabb\n"));
    CaptureStdout([] { test_rsa_sign_from_file("SigGen15_186-3", 0); });
    response_ = new std::string(ReadResponse("SigGen15_186-3"));
  }
  static void TearDownTestSuite() { delete response_; }

  static AnswerCheck Check(const std::string& text) {
    WriteFile(kResponse, text);
    return host::CheckSigGenResponse(kResponse);
  }
  // Line number (1-based) of the first line that begins with prefix.
  static std::size_t LineOf(const std::string& text, const std::string& prefix,
                            std::size_t occurrence = 0) {
    std::size_t at = std::string::npos;
    std::size_t from = 0;
    for (std::size_t i = 0; i <= occurrence; ++i) {
      at = text.find("\n" + prefix, from);
      from = at + 1;
    }
    std::size_t line = 1;
    for (std::size_t i = 0; i <= at; ++i) line += text[i] == '\n';
    return line;
  }
  static std::string* response_;
};
std::string* SigGenCheckTest::response_ = nullptr;

TEST_F(SigGenCheckTest, RunnerResponsePasses) {
  const AnswerCheck check = Check(*response_);
  EXPECT_TRUE(check.ok) << check.problem;
  EXPECT_EQ(check.checked, 4);
}

TEST_F(SigGenCheckTest, CorruptedSignatureIsCaught) {
  const std::size_t s = response_->find("\nS = ", response_->find("SHA256"));
  std::string corrupted = *response_;
  char& digit = corrupted[s + 10];
  digit = digit == '0' ? '1' : '0';
  ExpectProblem(Check(corrupted),
                "line " + std::to_string(LineOf(*response_, "S = ", 1)) +
                    ": S does not verify under the section's n and e with "
                    "SHA256");
}

TEST_F(SigGenCheckTest, SignatureUnderAnotherKeyIsCaught) {
  // The second section's n in place of the first's.
  const std::size_t n1 = response_->find("n = ");
  const std::size_t n2 = response_->find("n = ", n1 + 1);
  const std::string first = response_->substr(n1, response_->find('\r', n1) - n1);
  const std::string second = response_->substr(n2, response_->find('\r', n2) - n2);
  ExpectProblem(Check(Replace(*response_, first, second)),
                "line " + std::to_string(LineOf(*response_, "S = ")) +
                    ": S does not verify under the section's n and e with "
                    "SHA1");
}

TEST_F(SigGenCheckTest, MissingSignatureIsCaught) {
  const std::size_t s = response_->find("\r\nS = ", response_->find("SHA384"));
  std::string missing = *response_;
  missing.erase(s, missing.find("\r\n", s + 2) - s);
  ExpectProblem(Check(missing),
                "line " + std::to_string(LineOf(*response_, "SHAAlg = SHA384")) +
                    ": the SHAAlg = SHA384 test has no S");
}

TEST_F(SigGenCheckTest, ResponseWithoutAnswers) {
  ExpectProblem(Check(""), "line 0: no S line to check");
  EXPECT_FALSE(host::CheckSigGenResponse("/tmp/no/such.rsp").ok);
  ExpectProblem(Check(Crlf("[mod = 1024]\n\nSHAAlg = SHA256\nMsg = 00\n")),
                "line 3: the SHAAlg = SHA256 test has no S");
}

// One 2048-bit key, written the way the random probable-prime runner
// writes it.
class RandomPrimeCheckTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    UniqueRsa rsa(RSA_new());
    UniqueBignum e(BN_new());
    BN_set_word(e.get(), 65537);
    RSA_generate_key_ex(rsa.get(), 2048, e.get(), nullptr);
    const BIGNUM *n, *pub, *p, *q;
    RSA_get0_key(rsa.get(), &n, &pub, nullptr);
    RSA_get0_factors(rsa.get(), &p, &q);
    UniqueBnCtx ctx(BN_CTX_new());
    UniqueBignum p1(BN_dup(p)), q1(BN_dup(q)), g(BN_new()), lcm(BN_new());
    BN_sub_word(p1.get(), 1);
    BN_sub_word(q1.get(), 1);
    BN_gcd(g.get(), p1.get(), q1.get(), ctx.get());
    BN_mul(lcm.get(), p1.get(), q1.get(), ctx.get());
    BN_div(lcm.get(), nullptr, lcm.get(), g.get(), ctx.get());
    UniqueBignum d(BN_mod_inverse(nullptr, pub, lcm.get(), ctx.get()));
    key_ = new Key{Hex(pub), Hex(p), Hex(q), Hex(n), Hex(d.get()),
                   Hex(lcm.get())};
  }
  static void TearDownTestSuite() { delete key_; }

  struct Key {
    std::string e, p, q, n, d, lcm;
  };
  static std::string Hex(const BIGNUM* x) {
    OpensslString s(BN_bn2hex(x));
    return s.get();
  }
  static std::string Text(const Key& k) {
    return "\r\ne = " + k.e + "\r\np = " + k.p + "\r\nq = " + k.q +
           "\r\nn = " + k.n + "\r\nd = " + k.d + "\r\n";
  }
  static AnswerCheck Check(const std::string& mod, const Key& k) {
    WriteFile(kResponse, Crlf("# RP\n\n" + mod + "\n") + Text(k) + Text(*key_));
    return host::CheckRandomProbablePrimeResponse(kResponse);
  }
  static std::string Plus(const std::string& hex, const std::string& add_hex) {
    BIGNUM* x = nullptr;
    BIGNUM* y = nullptr;
    BN_hex2bn(&x, hex.c_str());
    BN_hex2bn(&y, add_hex.c_str());
    BN_add(x, x, y);
    std::string sum = Hex(x);
    BN_free(x);
    BN_free(y);
    return sum;
  }
  static Key* key_;
};
RandomPrimeCheckTest::Key* RandomPrimeCheckTest::key_ = nullptr;

TEST_F(RandomPrimeCheckTest, GoodKeysPass) {
  const AnswerCheck check = Check("[mod = 2048]", *key_);
  EXPECT_TRUE(check.ok) << check.problem;
  EXPECT_EQ(check.checked, 2);
}

TEST_F(RandomPrimeCheckTest, WrongDIsCaught) {
  Key k = *key_;
  k.d = Plus(key_->d, "01");
  ExpectProblem(Check("[mod = 2048]", k),
                "line 5: d is not e^-1 mod lcm(p-1, q-1)");
  // Congruent, but not reduced modulo the lcm.
  k.d = Plus(key_->d, key_->lcm);
  ExpectProblem(Check("[mod = 2048]", k),
                "line 5: d is not e^-1 mod lcm(p-1, q-1)");
}

TEST_F(RandomPrimeCheckTest, OtherWrongFieldsAreCaught) {
  Key k = *key_;
  k.e = "03";
  ExpectProblem(Check("[mod = 2048]", k), "line 5: e is not 65537");
  k = *key_;
  k.n = Plus(key_->n, "02");
  ExpectProblem(Check("[mod = 2048]", k), "line 5: n is not p*q");
  k = *key_;
  k.q = Plus(key_->q, "02");  // composite, or at least not n's factor
  const AnswerCheck check = Check("[mod = 2048]", k);
  EXPECT_FALSE(check.ok);
  EXPECT_EQ(check.problem.rfind("line 5: ", 0), 0u) << check.problem;
  ExpectProblem(Check("[mod = 3072]", *key_),
                "line 5: p or q is not of 1536 bits");
}

TEST_F(RandomPrimeCheckTest, IncompleteKeysAreCaught) {
  WriteFile(kResponse, Crlf("[mod = 2048]\n\ne = 010001\np = 0B\n"));
  ExpectProblem(host::CheckRandomProbablePrimeResponse(kResponse),
                "line 3: key lacks one of e, p, q, n, d");
  WriteFile(kResponse, Crlf("[mod = 2048]\n\n"));
  ExpectProblem(host::CheckRandomProbablePrimeResponse(kResponse),
                "line 2: no key to check");
}

class SigVerCheckTest : public ::testing::Test {
 protected:
  static AnswerCheck Check(const std::string& request,
                           const std::string& response) {
    WriteFile(kRequest, request);
    WriteFile(kResponse, response);
    return host::CheckSigVerResponse(kRequest, kResponse);
  }
  const std::string head_ = Crlf(
      "# SigVer\n\n[mod = 1024]\n\nn = 0a\n\nSHAAlg = SHA224\ne = 03\n"
      "Msg = 00\nS = 01\n\nSHAAlg = SHA384\n");
  const std::string request_ = head_ + Crlf("e = 03\nMsg = 00\nS = 01\n");
};

TEST_F(SigVerCheckTest, ResponseEndingAtTheFirstSupportedTestPasses) {
  const AnswerCheck check = Check(request_, head_);
  EXPECT_TRUE(check.ok) << check.problem;
  EXPECT_EQ(check.checked, 12);
}

TEST_F(SigVerCheckTest, DeparturesAreCaught) {
  ExpectProblem(Check(request_, request_),
                "line 13: response goes on after the first supported SHAAlg "
                "line");
  ExpectProblem(Check(request_, head_.substr(0, head_.size() - 2)),
                "line 12: response ends before the first supported SHAAlg "
                "line of the request");
  ExpectProblem(Check(request_, head_.substr(0, head_.find("SHAAlg = SHA384"))),
                "line 12: response ends before the first supported SHAAlg "
                "line of the request");
  ExpectProblem(Check(request_, Replace(head_, "n = 0a", "n = 0b")),
                "line 5: response differs from the request");
}

TEST_F(SigVerCheckTest, RequestWithoutSupportedTestIsCopiedWhole) {
  const std::string request = Crlf("[mod = 1024]\n\nSHAAlg = SHA224\n");
  EXPECT_TRUE(Check(request, request).ok);
  EXPECT_FALSE(Check(request, "").ok);
}

TEST_F(SigVerCheckTest, RunnerResponseToTheNistRequestPasses) {
  const std::string path =
      std::string(FIPSVAL_CAVP_DIR) + "/RSA2/req/SigVer15_186-3.req";
  ResetVectorDirs();
  WriteRequest("SigVer15_186-3", ReadFile(path));
  CaptureStdout([] { test_rsa_verify_from_file("SigVer15_186-3", 0); });
  const AnswerCheck check =
      host::CheckSigVerResponse(path, "/tmp/resp/SigVer15_186-3.rsp");
  EXPECT_TRUE(check.ok) << check.problem;
  EXPECT_GT(check.checked, 5);
}

}  // namespace
}  // namespace fipsval::testing
