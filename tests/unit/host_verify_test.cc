// fipsval verify: completeness of a response against its request, the
// comparison with the expected answers, the RSA answer checks, the
// verdicts over a tree, and the reader it reads every file with.
// Complete responses to whole NIST files are the conformance tests' part;
// these are the gaps that must not pass.
#include <gtest/gtest.h>
#include <openssl/bn.h>
#include <openssl/rsa.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "fipsval.h"
#include "harness/owners.h"
#include "harness/runners.h"
#include "host/base/file_io.h"
#include "host/verify/completeness.h"
#include "host/verify/rsa_answer_checks.h"
#include "host/report/evidence.h"
#include "host/verify/verify.h"
#include "tests/support/test_env.h"

namespace fipsval::testing {
namespace {

namespace fs = std::filesystem;

const host::RequestShape* Shape(std::string_view name) {
  const host::RequestProfile* profile = host::FindRequestProfile(name);
  return profile ? profile->shape : nullptr;
}

// n AES Monte Carlo records, numbered from 0, record `skip` left out.
std::string Records(int n, int skip = -1) {
  std::string text = "[ENCRYPT]\n";
  for (int i = 0; i < n; ++i) {
    if (i != skip) text += "COUNT = " + std::to_string(i) + "\nKEY = 00\nIV = 00\nPLAINTEXT = 00\nCIPHERTEXT = 00\n\n";
  }
  return text;
}

TEST(Completeness, EveryTestOfTheRequestIsAnswered) {
  const std::string kat = "[ENCRYPT]\n\nCOUNT = 0\nKEY = 00\nPLAINTEXT = 00\n\nCOUNT = 1\nKEY = 01\nPLAINTEXT = 00\n";
  const std::string siggen = "[mod = 1024]\n\nSHAAlg = SHA1\nMsg = 00\n\nSHAAlg = SHA224\nMsg = 00\n\n"
                             "SHAAlg = SHA256\nMsg = 00\n";
  const std::string key = "\ne = 010001\np = 0b\nq = 0d\nn = 8f\nd = 07\n";
  const std::string mct = "[ENCRYPT]\n\nCOUNT = 0\nKEY = 00\nIV = 00\nPLAINTEXT = 00\n";
  // problem: "" when complete; else the start of the detail.
  const struct { const char* name; std::string request, response; const char* problem; } kCases[] = {
      {"ECBGFSbox128", kat, "[ENCRYPT]\nCOUNT = 0\nKEY = 00\nPLAINTEXT = 00\nCIPHERTEXT = aa\n",
       "incomplete: 1 of 2 tests answered; the response ends before request line 7: COUNT = 1"},
      {"ECBGFSbox128", kat,
       "[ENCRYPT]\nCOUNT = 0\nKEY = 00\nPLAINTEXT = 00\nCOUNT = 1\nKEY = 01\nPLAINTEXT = 00\nCIPHERTEXT = bb\n",
       "incomplete: 1 of 2 tests answered; request line 3: COUNT = 0 has 0 answer lines of 1"},
      {"ECBGFSbox128", kat, "[ENCRYPT]\nCOUNT = 0\nKEY = 02\nPLAINTEXT = 00\nCIPHERTEXT = aa\n",
       "response line 3: KEY = 02\n  expected request line 4: KEY = 00"},
      // SigGen cut after its first signature; the SHA-224 test has none.
      {"SigGen15_186-3", siggen, "[mod = 1024]\nn = 8F\ne = 03\nSHAAlg = SHA1\nMsg = 00\nS = 01\n",
       "incomplete: 1 of 2 tests answered; the response ends before request line 6: SHAAlg = SHA224"},
      // A digest the runner does not know gets no signature: not answered.
      {"SigGen15_186-3", "[mod = 1024]\n\nSHAAlg = MD5\nMsg = 00\n", "[mod = 1024]\nn = 8F\ne = 03\nSHAAlg = MD5\nMsg = 00\n",
       "incomplete: 0 of 1 tests answered; request line 3: SHAAlg = MD5 has 0 answer lines of 1"},
      {"KeyGen_RandomProbablyPrime3_3", "[mod = 2048]\n\nN = 3\n", "[mod = 2048]\n" + key,
       "incomplete: 0 of 1 tests answered; request line 3: N = 3 has 5 answer lines of 15"},
      // A count from 100000 up is not taken as one: no response can complete it.
      {"KeyGen_RandomProbablyPrime3_3", "[mod = 2048]\n\nN = 100000\n", "[mod = 2048]\n",
       "incomplete: 0 of 0 tests answered; the response ends before request line 3: N = 100000"},
      // A Monte Carlo seed (of a request cut short in quick mode): all 100 records.
      {"CBCMCT128", mct, Records(99),
       "incomplete: 0 of 1 tests answered; request line 3: COUNT = 0 has 495 answer lines of 500"},
      {"CBCMCT128", mct, Records(101, 50), "response line 302: COUNT = 51: records out of order"},
      {"tls", "COUNT = 0\n", "COUNT = 0\nmaster_secret = 00\nkey_block = 00\nx\n",
       "response line 4: x: more than the request asks for"},
      // A DRBG answer of another length than its section asks for.
      {"CTR_DRBG", "[AES-256 use df]\n[ReturnedBitsLen = 64]\n\nCOUNT = 0\nEntropyInput = 00\n",
       "[AES-256 use df]\n[ReturnedBitsLen = 64]\nCOUNT = 0\nEntropyInput = 00\nReturnedBits = 00ff\n",
       "response line 5: ReturnedBits = 00ff: 4 hex digits, where the section asks for 16"},
      // A KAT cut inside its test; a DRBG test with an empty EntropyInput gets no answer.
      {"KeyGen3_3_KAT", "[mod = 2048]\n\ne = 10001\nprandom = 0b\nqrandom = 0d\n", "[mod = 2048]\ne = 10001\nprandom = 0b\n",
       "incomplete: 0 of 1 tests answered; the response ends before request line 5: qrandom = 0d"},
      {"CTR_DRBG", "[AES-256 use df]\n[ReturnedBitsLen = 64]\n\nCOUNT = 0\nEntropyInput = \n",
       "[AES-256 use df]\n[ReturnedBitsLen = 64]\nCOUNT = 0\nEntropyInput = \n",
       "incomplete: 0 of 1 tests answered; request line 4: COUNT = 0 has 0 answer lines of 1"},
      // The HMAC runner answers [L=28] with another digest: no answer there is right.
      {"HMAC", "[L=28]\n\nCount = 0\nMsg = 00\n", "[L=28]\nCount = 0\nMsg = 00\nMac = 01\n",
       "response line 4: Mac = 01: an answer under a section the runner does not know"},
  };
  for (const auto& c : kCases) {
    const host::Completeness got =
        host::CheckCompleteness(*Shape(c.name), Crlf(c.request), Crlf(c.response));
    const std::string& detail = got.status.message();
    EXPECT_EQ(got.status.ok(), *c.problem == '\0') << c.name << ": " << detail;
    EXPECT_TRUE(detail.starts_with(c.problem)) << c.name << "\n  got:  " << detail
                                               << "\n  want: " << c.problem;
  }
}

// Line by line; partial: the expected file may go on (its request was
// longer), not the response; DRBG answers of other mechanisms than the
// runner's are not compared.
TEST(Verify, ComparisonWithTheExpectedAnswers) {
  const std::string other = "[AES-128 use df]\nReturnedBits = aa\n", ours = "[AES-256 use df]\nReturnedBits = aa\n";
  const struct { const char *name, *response, *expected; bool partial; const char* problem; } kCases[] = {
      {"HMAC", "a\n", "a\nb\n", false, "response ends early\n  expected line 2: b"},
      {"HMAC", "a\n", "a\nb\n", true, ""},
      {"HMAC", "a\nb\n", "a\n", true, "response has more lines than expected\n  response line 2: b"},
      {"HMAC", "a\nMac = 01\n", "a\nMac = 02\n", false, "first difference\n  response line 2: Mac = 01\n  expected line 2: Mac = 02"},
      {"CTR_DRBG", "[AES-128 use df]\nReturnedBits = bb\n", other.c_str(), false, ""},
      {"CTR_DRBG", "[AES-256 use df]\nReturnedBits = bb\n", ours.c_str(), false, "first difference"},
  };
  for (const auto& c : kCases) {
    const host::Comparison got = host::CompareWithExpected(*Shape(c.name), c.response, c.expected, c.partial);
    EXPECT_TRUE(got.status.message().starts_with(c.problem) && got.status.ok() == !*c.problem)
        << c.response << ": " << got.status.message();
  }
}

class VerifyTree : public ::testing::Test {
 protected:
  // A tree under /tmp/t: {path, content}; content "->target" makes a link.
  static void Make(const std::vector<std::pair<std::string, std::string>>& files) {
    fs::remove_all("/tmp/t");
    for (const auto& [path, content] : files) {
      const fs::path full = "/tmp/t/" + path;
      fs::create_directories(full.parent_path());
      if (content.starts_with("->")) {
        fs::create_symlink(content.substr(2), full);
      } else {
        WriteFile(full, Crlf(content));
      }
    }
  }
  std::string Verify(std::vector<const fips_tv*> suites, bool allow_missing = false,
                     const std::string& responses = "", bool require_evidence = false) {
    const host::VerifyOptions options{"/tmp/t", std::move(suites), allow_missing, require_evidence, false,
                                      responses};
    return CaptureStdout([&] { tally_ = host::VerifyTree(options, stdout); });
  }
  host::VerifyTally tally_;
  const std::string sha_req_ = "[L = 20]\n\nLen = 0\nMsg = 00\n";
  const std::string sha_rsp_ = sha_req_ + "MD = 00\n";
};

TEST_F(VerifyTree, NothingCheckedFailsAndNoFaxIsSaid) {
  Make({{"SHA/req/SHA1ShortMsg.req", sha_req_}});
  std::string out = Verify({&fips_tv_sha1}, /*allow_missing=*/true);
  EXPECT_EQ(tally_.failed, 1);
  EXPECT_HAS(out, "SKIP SHA/SHA1ShortMsg: no response\nFAIL nothing was checked");

  Make({{"SHA/req/SHA1ShortMsg.req", sha_req_}, {"SHA/resp/SHA1ShortMsg.rsp", sha_rsp_}});
  out = Verify({&fips_tv_sha1});
  EXPECT_EQ(tally_.failed, 0);
  EXPECT_HAS(out, "COMPLETE SHA/SHA1ShortMsg (1 of 1 tests answered; checked for completeness only: no .fax; "
                  "no evidence)");
  // Without a .fax, an all-zero digest still cannot be right.
  Make({{"SHA/req/SHA1ShortMsg.req", sha_req_}, {"SHA/resp/SHA1ShortMsg.rsp", sha_req_ + "MD = 0000000000000000\n"}});
  EXPECT_HAS(Verify({&fips_tv_sha1}), "FAIL SHA/SHA1ShortMsg: response line 5: MD = 0000000000000000: all zero bytes");
}

// Only the requests the tree has are asked for; SigVer is said to stop.
TEST_F(VerifyTree, StrictRsaTreeAndTheSigVerStop) {
  const std::string keygen = "# key generation\n[mod = 2048]\n";
  const std::string sigver = "[mod = 1024]\nn = 0a\nSHAAlg = SHA1\ne = 03\nMsg = 00\nS = 01\n";
  Make({{"RSA2/req/KeyGen_186-3.req", keygen}, {"RSA2/resp/KeyGen_186-3.rsp", keygen},
        {"RSA2/fax/KeyGen_186-3.fax", keygen}, {"RSA2/req/SigVer15_186-3.req", sigver},
        {"RSA2/resp/SigVer15_186-3.rsp", "[mod = 1024]\nn = 0a\nSHAAlg = SHA1\n"}});
  const std::string out = Verify({&fips_tv_rsa});
  EXPECT_EQ(tally_.failed, 0);
  EXPECT_EQ(tally_.passed, 1);
  EXPECT_HAS(out, "STOPPED RSA2/SigVer15_186-3: the runner stops at the first test");
  EXPECT_TRUE(out.ends_with("1 passed, 0 failed, 1 stopped at the first test by design, 2 without evidence\n")) << out;
}

TEST_F(VerifyTree, LinksAreNotFollowed) {
  WriteFile("/tmp/secret", "root:SECRET\n");
  Make({{"SHA/req/SHA1ShortMsg.req", sha_req_}, {"SHA/resp/SHA1ShortMsg.rsp", sha_rsp_},
        {"SHA/fax/SHA1ShortMsg.fax", "->/tmp/secret"}, {"SHA/req/SHA1LongMsg.req", sha_req_},
        {"SHA/resp/SHA1LongMsg.rsp", "->/tmp/secret"}, {"SHA/req/SHA1Monte.req", "->../../secret"}});
  const std::string out = Verify({&fips_tv_sha1});
  EXPECT_EQ(tally_.failed, 3);
  EXPECT_EQ(out.find("SECRET"), std::string::npos) << out;
  for (const char* file : {"fax/SHA1ShortMsg.fax", "resp/SHA1LongMsg.rsp", "req/SHA1Monte.req"}) {
    EXPECT_HAS(out, "/tmp/t/SHA/" + std::string(file) + " not read: it is a symbolic link (not followed)");
  }
}

// Provenance is judged apart from correctness: the evidence beside the
// responses (here in an output directory) must record this response made
// for this request, answered.
TEST_F(VerifyTree, EvidenceVouchesForEachResponseOrFailsIt) {
  const std::string rsp = Crlf(sha_rsp_), req = Crlf(sha_req_);
  const struct { std::string request_sha, response_sha, outcome; bool response, required; const char* verdict; } kCases[] = {
      {req, rsp, "answered", true, true, "COMPLETE SHA/SHA1ShortMsg (1 of 1 tests answered; checked for completeness "
                                         "only: no .fax; evidence: made T)"},
      {"x", rsp, "answered", true, false, "FAIL SHA/SHA1ShortMsg: 1 of 1 tests answered; checked for completeness only: no .fax; the request changed since the response was made (made T)"},
      {req, "x", "answered", true, false, "FAIL SHA/SHA1ShortMsg: 1 of 1 tests answered; checked for completeness only: no .fax; the response is not the one its evidence records"},
      {req, rsp, "runner-error", true, false, "FAIL SHA/SHA1ShortMsg: 1 of 1 tests answered; checked for completeness only: no .fax; the run that made it did not answer it "
                                              "(runner-error: Msg field not present)"},
      {"", "", "", true, false, "COMPLETE SHA/SHA1ShortMsg (1 of 1 tests answered; checked for completeness only: "
                                "no .fax; no evidence)"},
      {"", "", "", true, true, "FAIL SHA/SHA1ShortMsg: 1 of 1 tests answered; checked for completeness only: no .fax; "
                               "no evidence (--require-evidence)"},
      {req, rsp, "answered", false, false, "FAIL SHA/SHA1ShortMsg: no response, although its evidence records one"},
  };
  for (const auto& c : kCases) {
    host::Evidence evidence{"SHA", {}, {}};
    if (!c.outcome.empty()) {
      evidence.files["SHA1ShortMsg"] = {host::Sha256Hex(c.request_sha), host::Sha256Hex(c.response_sha), c.outcome,
                                        c.outcome == "answered" ? "" : "Msg field not present", "T", "r"};
    }
    Make({{"SHA/req/SHA1ShortMsg.req", sha_req_},
          {"out/SHA/resp/fipsval-evidence.json", host::EvidenceJson(evidence)}});
    if (c.response) WriteFile("/tmp/t/out/SHA/resp/SHA1ShortMsg.rsp", rsp);
    const std::string out = Verify({&fips_tv_sha1}, false, "/tmp/t/out", c.required);
    EXPECT_HAS(out, c.verdict);
    EXPECT_EQ(tally_.failed, std::string_view(c.verdict).starts_with("FAIL") ? 1 : 0) << out;
  }
}

// The one file reader: links, FIFOs, paths out of the tree and files over
// the cap refused, with a status that says which (kind and message).
TEST(HostFileIo, TheTreeReaderSaysWhatItRefusedAndNeverFollowsALink) {
  std::filesystem::remove_all("/tmp/t");
  std::filesystem::create_directories("/tmp/t/SHA/req");
  WriteFile("/tmp/t/SHA/req/ok.req", "ok\r\n");
  WriteFile("/tmp/secret", "SECRET\n");
  std::filesystem::create_symlink("/tmp/secret", "/tmp/t/SHA/req/link.req");
  std::filesystem::create_symlink("/tmp/t/SHA", "/tmp/t/LINK");
  ASSERT_EQ(mkfifo("/tmp/t/SHA/req/fifo.req", 0600), 0);
  ASSERT_EQ(truncate("/tmp/t/SHA/req/ok.req", (1 << 20) + 1), 0);
  const struct { const char* path; host::StatusKind kind; const char* message; } kCases[] = {
      {"SHA/req/ok.req", host::StatusKind::kRefused, "larger than 1 MiB"},
      {"SHA/req/link.req", host::StatusKind::kRefused, "it is a symbolic link (not followed)"},
      {"LINK/req/ok.req", host::StatusKind::kRefused, "LINK/ is a symbolic link (not followed)"},
      {"SHA/req/fifo.req", host::StatusKind::kRefused, "not a regular file"},
      {"SHA/../SHA/req/ok.req", host::StatusKind::kRefused, "a path that leaves the tree"},
      {"SHA/req/none.req", host::StatusKind::kMissing, "No such file or directory"},
      {"AES/req/ok.req", host::StatusKind::kMissing, "no AES/"},
  };
  for (const auto& c : kCases) {
    std::string content = "untouched";
    const host::Status read = host::ReadTreeFile("/tmp/t", c.path, std::size_t{1} << 20, &content);
    EXPECT_EQ(read.kind(), c.kind) << c.path;
    EXPECT_EQ(read.message(), c.message) << c.path;
    EXPECT_EQ(content.find("SECRET"), std::string::npos);
  }
  ASSERT_EQ(truncate("/tmp/t/SHA/req/ok.req", 4), 0);
  std::string content;
  EXPECT_TRUE(host::ReadTreeFile("/tmp/t", "SHA/req/ok.req", 4, &content).ok());
  EXPECT_EQ(content, "ok\r\n");
}

// --- the RSA answer checks: the runners' own responses pass, each wrong
// answer is named with its line ----------------------------------------------

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
void ExpectCases(const std::function<host::AnswerCheck(const std::string&)>& check, const std::string& good,
                 std::initializer_list<std::pair<Edit, const char*>> cases) {
  for (const auto& [edit, problem] : cases) {
    const host::AnswerCheck a = check(edit(good));
    EXPECT_EQ(a.status.ok(), *problem == '\0') << a.status.message();
    EXPECT_EQ(a.status.message(), problem);
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
  const auto check = [](const std::string& text) {
    return host::CheckSigGenAnswers(*Shape("SigGen15_186-3"), text);
  };
  ExpectCases(check, response,
              {{kSame, ""},
               {Replace("S = ", "S = 00", "SHA256"),
                "line 20: S does not verify under the section's n and e with SHA256"},
               {Replace(first_n, second_n), "line 8: S does not verify under the section's n and e with SHA1"},
               {Replace("S = ", "X = "), "line 6: the SHAAlg = SHA1 test has no S"},
               {Replace("S = ", "S = zz", "SHA256"), "line 20: unreadable S"},
               {Replace("e = ", "e = 0z"), "line 5: unreadable e"},
               {Replace("Msg = 0011", "X = 0011"), "line 8: S without its own SHAAlg and Msg"},
               {[](std::string) { return std::string(); }, "line 0: no S line to check"}});
}

TEST(RsaAnswerChecks, RandomProbablePrimeKeys) {
  // A key written the way the runner writes it, d = e^-1 mod lcm(p-1, q-1), and d + lcm:
  // still an inverse of e, but not reduced.
  UniquePtr<RSA> rsa(RSA_new());
  UniquePtr<BIGNUM> e(BN_new()), p1(BN_new()), q1(BN_new()), g(BN_new()), lcm(BN_new()), bad_d(BN_new());
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
  const UniquePtr<BIGNUM> d(BN_mod_inverse(nullptr, e.get(), lcm.get(), ctx.get()));
  BN_add(bad_d.get(), d.get(), lcm.get());
  const std::string key = "e = 010001\np = " + Hex(p) + "\nq = " + Hex(q) + "\nn = " + Hex(n) +
                          "\nd = " + Hex(d.get()) + "\n";
  ExpectCases(host::CheckRandomProbablePrimeAnswers, Crlf("[mod = 1024]\n\n" + key + "\n" + key),
              {{kSame, ""},
               {Replace("d = " + Hex(d.get()), "d = " + Hex(bad_d.get())),
                "line 3: d is not e^-1 mod lcm(p-1, q-1)"},
               {Replace("e = 010001", "e = 03"), "line 3: e is not 65537"},
               {Replace("n = " + Hex(n), "n = " + Hex(p) + Hex(q)), "line 3: n is not p*q"},
               {Replace("1024", "2048"), "line 3: p or q is not of 1024 bits"},
               {[](std::string r) { return r.substr(0, r.find("q = ")); },
                "line 3: key lacks one of e, p, q, n, d"},
               {[](std::string) { return Crlf("[mod = 1024]\n\n"); }, "line 2: no key to check"}});
}

TEST(RsaAnswerChecks, SigVerStopsAtTheFirstSupportedTest) {
  const std::string head =
      Crlf("[mod = 1024]\n\nn = 0a\n\nSHAAlg = SHA224\ne = 03\nMsg = 00\nS = 01\n\nSHAAlg = SHA384\n");
  const std::string request = head + Crlf("e = 03\nMsg = 00\nS = 01\n");
  const auto check = [&](const std::string& response) {
    return host::CheckSigVerAnswers(*Shape("SigVer15_186-3"), request, response);
  };
  ExpectCases(check, head,
              {{kSame, ""},
               {[&](std::string) { return request; },
                "line 11: response goes on after the first supported SHAAlg line"},
               {[](std::string r) { return r.substr(0, r.find("SHAAlg = SHA384")); },
                "line 10: response ends before the first supported SHAAlg line of the request"},
               {Replace("n = 0a", "n = 0b"), "line 3: response differs from the request"}});
  EXPECT_TRUE(check(head).stopped_at_first_test);
}

}  // namespace
}  // namespace fipsval::testing
