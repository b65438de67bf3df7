// The RSA answer checks of `fipsval verify`: the runners' own responses
// pass, and each wrong answer is named with its line.
#include <gtest/gtest.h>
#include <openssl/bn.h>
#include <openssl/rsa.h>

#include <functional>
#include <string>
#include <utility>

#include "harness/openssl_ptr.h"
#include "harness/runners.h"
#include "host/core/rsa_answer_checks.h"
#include "tests/support/test_env.h"

namespace fipsval::testing {
namespace {

using host::AnswerCheck;
using Edit = std::function<std::string(std::string)>;

// The first `from` after `after` replaced by `to`.
Edit Replace(std::string from, std::string to, std::string after = "") {
  return [=](std::string text) {
    const std::size_t at = text.find(from, text.find(after));
    EXPECT_NE(at, std::string::npos) << from;
    if (at != std::string::npos) text.replace(at, from.size(), to);
    return text;
  };
}
const Edit kSame = [](std::string text) { return text; };

// Each edit of `good` gives the problem ("" for a pass).
void ExpectCases(const std::function<AnswerCheck(const std::string&)>& check, const std::string& good,
                 std::initializer_list<std::pair<Edit, const char*>> cases) {
  for (const auto& [edit, problem] : cases) {
    const AnswerCheck a = check(edit(good));
    EXPECT_EQ(a.ok, *problem == '\0') << a.problem;
    EXPECT_EQ(a.problem, problem);
  }
}

TEST(RsaAnswerChecks, SigGen) {
  const std::string response =
      RunCore([](std::FILE* req, std::FILE* rsp) { test_rsa_sign_from_stream(req, rsp, 0); },
              "[mod = 1024]\n\nSHAAlg = SHA1\nMsg = 0011\n\nSHAAlg = SHA224\nMsg = 44\n\n"
              "[mod = 1024]\n\nSHAAlg = SHA256\nMsg = 77\n")
          .response;
  const auto line_at = [&](std::size_t at) { return response.substr(at, response.find('\r', at) - at); };
  const std::size_t n1 = response.find("n = ");
  const std::string first_n = line_at(n1), second_n = line_at(response.find("n = ", n1 + 1));
  ExpectCases(host::CheckSigGenAnswers, response,
              {{kSame, ""},
               {Replace("S = ", "S = 00", "SHA256"),
                "line 20: S does not verify under the section's n and e with SHA256"},
               {Replace(first_n, second_n), "line 8: S does not verify under the section's n and e with SHA1"},
               {Replace("S = ", "X = "), "line 6: the SHAAlg = SHA1 test has no S"},
               {[](std::string) { return std::string(); }, "line 0: no S line to check"}});
}

TEST(RsaAnswerChecks, RandomProbablePrimeKeys) {
  // A key written the way the runner writes it, d in its lcm form.
  UniquePtr<RSA> rsa(RSA_new());
  UniquePtr<BIGNUM> e(BN_new()), p1(BN_new()), q1(BN_new()), g(BN_new()), lcm(BN_new()), d_plus_lcm(BN_new());
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
  BN_add(d_plus_lcm.get(), d.get(), lcm.get());
  const std::string key = "e = 010001\np = " + Hex(p) + "\nq = " + Hex(q) + "\nn = " + Hex(n) +
                          "\nd = " + Hex(d.get()) + "\n";
  ExpectCases(host::CheckRandomProbablePrimeAnswers, Crlf("[mod = 1024]\n\n" + key + "\n" + key),
              {{kSame, ""},
               {Replace("d = " + Hex(d.get()), "d = " + Hex(d_plus_lcm.get())),
                "line 3: d is not e^-1 mod lcm(p-1, q-1)"},
               {Replace("e = 010001", "e = 03"), "line 3: e is not 65537"},
               {Replace("n = " + Hex(n), "n = " + Hex(p) + Hex(q)), "line 3: n is not p*q"},
               {Replace("1024", "2048"), "line 3: p or q is not of 1024 bits"},
               {[](std::string r) { return r.substr(0, r.find("q = ")); }, "line 3: key lacks one of e, p, q, n, d"},
               {[](std::string) { return Crlf("[mod = 1024]\n\n"); }, "line 2: no key to check"}});
}

TEST(RsaAnswerChecks, SigVerStopsAtTheFirstSupportedTest) {
  const std::string head = Crlf("[mod = 1024]\n\nn = 0a\n\nSHAAlg = SHA224\ne = 03\nMsg = 00\nS = 01\n\nSHAAlg = SHA384\n");
  const std::string request = head + Crlf("e = 03\nMsg = 00\nS = 01\n");
  const auto check = [&](const std::string& response) { return host::CheckSigVerAnswers(request, response); };
  ExpectCases(check, head,
              {{kSame, ""},
               {[&](std::string) { return request; }, "line 11: response goes on after the first supported SHAAlg line"},
               {[](std::string r) { return r.substr(0, r.find("SHAAlg = SHA384")); },
                "line 10: response ends before the first supported SHAAlg line of the request"},
               {Replace("n = 0a", "n = 0b"), "line 3: response differs from the request"}});
  const AnswerCheck stopped = check(head);
  EXPECT_TRUE(stopped.stopped_at_first_test);
  EXPECT_EQ(stopped.tests, 2);
  EXPECT_EQ(stopped.checked, 10);
  // Without a supported test the whole request is the answer.
  const std::string sha224 = Crlf("[mod = 1024]\n\nSHAAlg = SHA224\n");
  EXPECT_TRUE(host::CheckSigVerAnswers(sha224, sha224).ok);
  EXPECT_FALSE(host::CheckSigVerAnswers(sha224, sha224).stopped_at_first_test);
  // The runner's response to the bundled sample.
  const std::string sample = ReadFile(FIPSVAL_SOURCE_DIR "/samples/RSA2/req/SigVer15_186-3.req");
  std::string lf = sample;
  ASSERT_GT(std::erase(lf, '\r'), 0u);
  const std::string runner =
      RunCore([](std::FILE* req, std::FILE* rsp) { test_rsa_verify_from_stream(req, rsp, 0); }, lf).response;
  const AnswerCheck a = host::CheckSigVerAnswers(sample, runner);
  EXPECT_TRUE(a.ok && a.stopped_at_first_test) << a.problem;
}

}  // namespace
}  // namespace fipsval::testing
