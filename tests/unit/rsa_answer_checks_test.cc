// The RSA answer checks of `fipsval verify`: they pass the runners' own
// responses and name the first wrong answer with its line.
#include <gtest/gtest.h>
#include <openssl/bn.h>
#include <openssl/rsa.h>

#include <functional>
#include <string>

#include "harness/openssl_ptr.h"
#include "harness/runners.h"
#include "host/core/rsa_answer_checks.h"
#include "tests/support/test_env.h"

namespace fipsval::testing {
namespace {

using host::AnswerCheck;

// text with the first `from` after `after` replaced by `to`.
std::string Replace(std::string text, const std::string& from,
                    const std::string& to, const std::string& after = "") {
  const std::size_t at = text.find(from, text.find(after));
  EXPECT_NE(at, std::string::npos) << from;
  if (at != std::string::npos) text.replace(at, from.size(), to);
  return text;
}

std::string Hex(const BIGNUM* x) { return OpensslString(BN_bn2hex(x)).get(); }

struct Case {
  const char* what;
  std::function<std::string(const std::string&)> edit;
  const char* problem;  // "" for a pass
};

void ExpectCases(const std::function<AnswerCheck(const std::string&)>& check,
                 const std::string& good, std::initializer_list<Case> cases) {
  for (const Case& c : cases) {
    const AnswerCheck a = check(c.edit(good));
    EXPECT_EQ(a.ok, *c.problem == '\0') << c.what << ": " << a.problem;
    EXPECT_EQ(a.problem, c.problem) << c.what;
  }
}

TEST(RsaAnswerChecks, SigGen) {
  ResetVectorDirs();
  WriteRequest("SigGen15_186-3", Crlf("[mod = 1024]\n\nSHAAlg = SHA1\nMsg = 0011\n\n"
                                      "SHAAlg = SHA224\nMsg = 44\n\n"
                                      "[mod = 1024]\n\nSHAAlg = SHA256\nMsg = 77\n"));
  CaptureStdout([] { test_rsa_sign_from_file("SigGen15_186-3", 0); });
  const std::string response = ReadResponse("SigGen15_186-3");
  const std::size_t n1 = response.find("n = "), n2 = response.find("n = ", n1 + 1);
  const std::string first_n = response.substr(n1, response.find('\r', n1) - n1);
  const std::string second_n = response.substr(n2, response.find('\r', n2) - n2);
  ExpectCases(host::CheckSigGenAnswers, response, {
      {"the runner's response", [](auto r) { return r; }, ""},
      {"S made one byte longer",
       [](auto r) { return Replace(r, "S = ", "S = 00", "SHA256"); },
       "line 20: S does not verify under the section's n and e with SHA256"},
      {"S under the other section's key",
       [&](auto r) { return Replace(r, first_n, second_n); },
       "line 8: S does not verify under the section's n and e with SHA1"},
      {"S removed", [](auto r) { return Replace(r, "S = ", "X = "); },
       "line 6: the SHAAlg = SHA1 test has no S"},
      {"empty", [](auto) { return std::string(); }, "line 0: no S line to check"},
  });
}

TEST(RsaAnswerChecks, RandomProbablePrimeKeys) {
  // A 1024-bit key, written the way the runner writes it, d in its lcm form.
  UniquePtr<RSA> rsa(RSA_new());
  UniquePtr<BIGNUM> e(BN_new()), p1(BN_new()), q1(BN_new()), g(BN_new()),
      lcm(BN_new());
  UniquePtr<BN_CTX> ctx(BN_CTX_new());
  BN_set_word(e.get(), 65537);
  ASSERT_TRUE(RSA_generate_key_ex(rsa.get(), 1024, e.get(), nullptr));
  const BIGNUM *n, *p, *q;
  RSA_get0_key(rsa.get(), &n, nullptr, nullptr);
  RSA_get0_factors(rsa.get(), &p, &q);
  BN_sub(p1.get(), p, BN_value_one());
  BN_sub(q1.get(), q, BN_value_one());
  BN_gcd(g.get(), p1.get(), q1.get(), ctx.get());
  BN_mul(lcm.get(), p1.get(), q1.get(), ctx.get());
  BN_div(lcm.get(), nullptr, lcm.get(), g.get(), ctx.get());
  UniquePtr<BIGNUM> d(BN_mod_inverse(nullptr, e.get(), lcm.get(), ctx.get()));
  UniquePtr<BIGNUM> d_plus_lcm(BN_new());
  BN_add(d_plus_lcm.get(), d.get(), lcm.get());
  const std::string key = "e = 010001\np = " + Hex(p) + "\nq = " + Hex(q) +
                          "\nn = " + Hex(n) + "\nd = " + Hex(d.get()) + "\n";
  const std::string good = Crlf("[mod = 1024]\n\n" + key + "\n" + key);
  ExpectCases(host::CheckRandomProbablePrimeAnswers, good, {
      {"two good keys", [](auto r) { return r; }, ""},
      {"d not reduced",
       [&](auto r) { return Replace(r, "d = " + Hex(d.get()), "d = " + Hex(d_plus_lcm.get())); },
       "line 3: d is not e^-1 mod lcm(p-1, q-1)"},
      {"e = 3", [](auto r) { return Replace(r, "e = 010001", "e = 03"); },
       "line 3: e is not 65537"},
      {"n not p*q", [&](auto r) { return Replace(r, "n = " + Hex(n), "n = " + Hex(p) + Hex(q)); },
       "line 3: n is not p*q"},
      {"other size", [](auto r) { return Replace(r, "1024", "2048"); },
       "line 3: p or q is not of 1024 bits"},
      {"key cut short", [](auto r) { return r.substr(0, r.find("q = ")); },
       "line 3: key lacks one of e, p, q, n, d"},
      {"no key", [](auto) { return Crlf("[mod = 1024]\n\n"); }, "line 2: no key to check"},
  });
}

TEST(RsaAnswerChecks, SigVerStopsAtTheFirstSupportedTest) {
  const std::string head = Crlf("[mod = 1024]\n\nn = 0a\n\nSHAAlg = SHA224\ne = 03\n"
                                "Msg = 00\nS = 01\n\nSHAAlg = SHA384\n");
  const std::string request = head + Crlf("e = 03\nMsg = 00\nS = 01\n");
  const auto check = [&](const std::string& response) {
    return host::CheckSigVerAnswers(request, response);
  };
  ExpectCases(check, head, {
      {"the runner's response", [](auto r) { return r; }, ""},
      {"goes on", [&](auto) { return request; },
       "line 11: response goes on after the first supported SHAAlg line"},
      {"ends early", [](auto r) { return r.substr(0, r.find("SHAAlg = SHA384")); },
       "line 10: response ends before the first supported SHAAlg line of the "
       "request"},
      {"differs", [](auto r) { return Replace(r, "n = 0a", "n = 0b"); },
       "line 3: response differs from the request"},
  });
  const AnswerCheck stopped = check(head);
  EXPECT_TRUE(stopped.stopped_at_first_test);
  EXPECT_EQ(stopped.tests, 2);
  EXPECT_EQ(stopped.checked, 10);
  // Without a supported test the whole request is the answer.
  const std::string sha224 = Crlf("[mod = 1024]\n\nSHAAlg = SHA224\n");
  EXPECT_FALSE(host::CheckSigVerAnswers(sha224, sha224).stopped_at_first_test);
  EXPECT_TRUE(host::CheckSigVerAnswers(sha224, sha224).ok);
}

TEST(RsaAnswerChecks, SigVerRunnerResponseToTheBundledSample) {
  const std::string request =
      ReadFile(FIPSVAL_SOURCE_DIR "/samples/RSA2/req/SigVer15_186-3.req");
  ASSERT_FALSE(request.empty());
  ResetVectorDirs();
  WriteRequest("SigVer15_186-3", request);
  CaptureStdout([] { test_rsa_verify_from_file("SigVer15_186-3", 0); });
  const AnswerCheck a =
      host::CheckSigVerAnswers(request, ReadResponse("SigVer15_186-3"));
  EXPECT_TRUE(a.ok && a.stopped_at_first_test) << a.problem;
}

}  // namespace
}  // namespace fipsval::testing
