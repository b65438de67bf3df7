// fipsval verify: completeness of a response against its request, the
// comparison with the expected answers, and the verdicts over a tree.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "fipsval.h"
#include "host/core/completeness.h"
#include "host/core/suite_catalog.h"
#include "host/core/verify.h"
#include "tests/support/test_env.h"

namespace fipsval::testing {
namespace {

namespace fs = std::filesystem;

// n Monte Carlo records, numbered from 0 (record `skip` left out), each
// with the given field lines.
std::string Records(int n, const std::string& fields, int skip = -1) {
  std::string text;
  for (int i = 0; i < n; ++i) {
    if (i != skip) text += "COUNT = " + std::to_string(i) + "\n" + fields + "\n";
  }
  return text;
}
const std::string kAesFields = "KEY = 00\nIV = 00\nPLAINTEXT = 00\nCIPHERTEXT = 00\n";
const std::string kTdesFields =
    "KEY1 = 00\nKEY2 = 00\nKEY3 = 00\nIV = 00\nPLAINTEXT = 00\nCIPHERTEXT = 00\n";

struct CompletenessCase {
  const char* name;
  std::string request, response;
  std::string problem;  // "" when complete; else the start of the detail
};

TEST(Completeness, EveryTestOfTheRequestIsAnswered) {
  const std::string kat = "[ENCRYPT]\n\nCOUNT = 0\nKEY = 00\nPLAINTEXT = 00\n\n"
                          "COUNT = 1\nKEY = 01\nPLAINTEXT = 00\n";
  const std::string siggen = "[mod = 1024]\n\nSHAAlg = SHA1\nMsg = 00\n\n"
                             "SHAAlg = SHA224\nMsg = 00\n\nSHAAlg = SHA256\nMsg = 00\n";
  const std::string key = "\ne = 010001\np = 0b\nq = 0d\nn = 8f\nd = 07\n";
  const std::string mct = "[ENCRYPT]\n\nCOUNT = 0\nKEY = 00\nIV = 00\nPLAINTEXT = 00\n";
  const std::string tdes = "COUNT = 0\nKEY1 = 00\nKEY2 = 00\nKEY3 = 00\nIV = 00\nPLAINTEXT = 00\n";
  const std::string drbg = "[AES-256 use df]\n\nCOUNT = 0\nEntropyInput = 00\n\n"
                           "[AES-256 no df]\n\nCOUNT = 0\nEntropyInput = 00\nNonce = \n";
  const std::vector<CompletenessCase> cases = {
      {"ECBGFSbox128", kat,
       "[ENCRYPT]\nCOUNT = 0\nKEY = 00\nPLAINTEXT = 00\nCIPHERTEXT = aa\n"
       "COUNT = 1\nKEY = 01\nPLAINTEXT = 00\nCIPHERTEXT = bb\n", ""},
      {"ECBGFSbox128", kat,
       "[ENCRYPT]\nCOUNT = 0\nKEY = 00\nPLAINTEXT = 00\nCIPHERTEXT = aa\n",
       "incomplete: 1 of 2 tests answered; the response ends before request "
       "line 7: COUNT = 1"},
      {"ECBGFSbox128", kat,
       "[ENCRYPT]\nCOUNT = 0\nKEY = 00\nPLAINTEXT = 00\n"
       "COUNT = 1\nKEY = 01\nPLAINTEXT = 00\nCIPHERTEXT = bb\n",
       "incomplete: 1 of 2 tests answered; request line 3: COUNT = 0 has 0 "
       "answer lines of 1"},
      {"ECBGFSbox128", kat,
       "[ENCRYPT]\nCOUNT = 0\nKEY = 02\nPLAINTEXT = 00\nCIPHERTEXT = aa\n",
       "response line 3: KEY = 02\n  expected request line 4: KEY = 00"},
      {"ECBGFSbox128", kat, "CIPHERTEXT = aa\n" + kat,
       "response line 1: CIPHERTEXT = aa: an answer where the request has no "
       "test"},
      // SigGen cut after its first signature; the SHA-224 test has none.
      {"SigGen15_186-3", siggen,
       "[mod = 1024]\nn = 8F\ne = 03\nSHAAlg = SHA1\nMsg = 00\nS = 01\n",
       "incomplete: 1 of 2 tests answered; the response ends before request "
       "line 6: SHAAlg = SHA224"},
      {"SigGen15_186-3", siggen,
       "[mod = 1024]\nn = 8F\ne = 03\nSHAAlg = SHA1\nMsg = 00\nS = 01\n"
       "SHAAlg = SHA224\nMsg = 00\nSHAAlg = SHA256\nMsg = 00\nS = 02\n", ""},
      // One key of three.
      {"KeyGen_RandomProbablyPrime3_3", "[mod = 2048]\n\nN = 3\n",
       "[mod = 2048]\n" + key,
       "incomplete: 0 of 1 tests answered; request line 3: N = 3 has 5 "
       "answer lines of 15"},
      {"KeyGen_RandomProbablyPrime3_3", "[mod = 2048]\n\nN = 2\n",
       "[mod = 2048]\n" + key + key, ""},
      // A Monte Carlo seed of a shortened request: all 100 records needed.
      {"CBCMCT128", mct, "[ENCRYPT]\n" + Records(100, kAesFields), ""},
      {"CBCMCT128", mct, "[ENCRYPT]\n" + Records(99, kAesFields),
       "incomplete: 0 of 1 tests answered; request line 3: COUNT = 0 has "
       "495 answer lines of 500"},
      {"CBCMCT128", mct, "[ENCRYPT]\n" + Records(101, kAesFields, 50),
       "response line 302: COUNT = 51: records out of order"},
      // NumKeys is not copied; each section's seed gives 400 records.
      {"TCBCMonte2", "[ENCRYPT]\nNumKeys = 2\n" + tdes + "[DECRYPT]\nNumKeys = 2\n" + tdes,
       "[ENCRYPT]\n" + Records(400, kTdesFields) + "[DECRYPT]\n" + Records(400, kTdesFields), ""},
      {"SHA1Monte", "[L = 20]\n\nSeed = 00\n\nCOUNT = 0\n",
       "[L = 20]\nSeed = 00\n" + [] {
         std::string records;
         for (int i = 0; i < 100; ++i) records += "COUNT = " + std::to_string(i) + "\nMD = 00\n";
         return records;
       }(), ""},
      // The DRBG runner stops at the first test it cannot read, past the
      // AES-256 tests; not before.
      {"CTR_DRBG", drbg,
       "[AES-256 use df]\nCOUNT = 0\nEntropyInput = 00\nReturnedBits = aa\n"
       "[AES-256 no df]\nCOUNT = 0\nEntropyInput = 00\n", ""},
      {"CTR_DRBG", drbg, "[AES-256 use df]\nCOUNT = 0\nEntropyInput = 00\n",
       "incomplete: 0 of 1 tests answered; request line 3: COUNT = 0 has 0 "
       "answer lines of 1"},
      {"HMAC", "Count = 0\nMsg = 00\n", "Count = 0\nMsg = 00\nMac = 00\nMac = 01\n",
       "incomplete: 0 of 1 tests answered; request line 1: Count = 0 has 2"},
      {"tls", "COUNT = 0\n", "COUNT = 0\nmaster_secret = 00\nkey_block = 00\nx\n",
       "response line 4: x: more than the request asks for"},
  };
  for (const CompletenessCase& c : cases) {
    const host::Completeness got =
        host::CheckCompleteness(c.name, Crlf(c.request), Crlf(c.response));
    EXPECT_EQ(got.ok, c.problem.empty()) << c.name << ": " << got.detail;
    EXPECT_TRUE(got.detail.starts_with(c.problem))
        << c.name << "\n  got:  " << got.detail << "\n  want: " << c.problem;
  }
}

TEST(Verify, ComparisonWithTheExpectedAnswers) {
  using host::CompareWithExpected;
  EXPECT_TRUE(CompareWithExpected("X", Crlf("# a\n\n\nMD = 01\n\n"), "# a\r\r\nMD = 01\n", false).ok);
  const auto c = CompareWithExpected("X", Crlf("# a\n\nMD = 01\nMD = 02\n"),
                                     Crlf("# a\nMD = 01\nMD = 03\n"), false);
  EXPECT_EQ(c.detail, "first difference\n  response line 4: MD = 02\n  expected line 3: MD = 03");
  // --partial: the expected file may go on (its request was longer).
  EXPECT_FALSE(CompareWithExpected("X", "a\n", "a\nb\n", false).ok);
  EXPECT_TRUE(CompareWithExpected("X", "a\n", "a\nb\n", true).ok);
  EXPECT_FALSE(CompareWithExpected("X", "a\nb\n", "a\n", true).ok);
  // CTR_DRBG: answers of other mechanisms are not comparable.
  const std::string expected = Crlf("[AES-256 use df]\nReturnedBits = aa\n[AES-128 no df]\nReturnedBits = bb\n");
  const std::string response = Crlf("[AES-256 use df]\nReturnedBits = aa\n[AES-128 no df]\nReturnedBits = cc\n");
  EXPECT_EQ(CompareWithExpected("CTR_DRBG", response, expected, false).not_compared, 1);
  EXPECT_FALSE(CompareWithExpected("OTHER", response, expected, false).ok);
}

// A tree under /tmp/t: {path, content}; content "->target" makes a link.
void MakeTree(const std::vector<std::pair<std::string, std::string>>& files) {
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

std::string Verify(host::VerifyTally* tally, std::vector<const fips_tv*> suites,
                   bool strict = false, const std::string& responses = "") {
  host::VerifyOptions options{"/tmp/t", std::move(suites), strict, false, responses};
  return CaptureStdout([&] { *tally = host::VerifyTree(options, stdout); });
}

const std::string kKeyGen = "# key generation\n[mod = 2048]\n";
const std::string kSigVer = "[mod = 1024]\nn = 0a\nSHAAlg = SHA1\ne = 03\nMsg = 00\nS = 01\n";
const std::string kShaRequest = "[L = 20]\n\nLen = 0\nMsg = 00\n";
const std::string kShaResponse = kShaRequest + "MD = 00\n";

TEST(Verify, TreeVerdicts) {
  host::VerifyTally tally;
  // Never run: nothing checked is a failure.
  MakeTree({{"SHA/req/SHA1ShortMsg.req", kShaRequest}});
  std::string out = Verify(&tally, {&fips_tv_sha1});
  EXPECT_EQ(tally.failed, 1) << out;
  EXPECT_NE(out.find("SKIP SHA/SHA1ShortMsg: no response\nFAIL nothing was checked"), std::string::npos) << out;

  // Without a .fax: complete, said to be checked for completeness only.
  MakeTree({{"SHA/req/SHA1ShortMsg.req", kShaRequest}, {"SHA/resp/SHA1ShortMsg.rsp", kShaResponse}});
  out = Verify(&tally, {&fips_tv_sha1}, /*strict=*/true);
  EXPECT_EQ(tally.failed, 0) << out;
  EXPECT_NE(out.find("COMPLETE SHA/SHA1ShortMsg (1 of 1 tests answered; checked for "
                     "completeness only: no .fax)"), std::string::npos) << out;

  // --strict with only the requests the tree has; SigVer reported as stopped.
  MakeTree({{"RSA2/req/KeyGen_186-3.req", kKeyGen}, {"RSA2/resp/KeyGen_186-3.rsp", kKeyGen},
            {"RSA2/fax/KeyGen_186-3.fax", kKeyGen}, {"RSA2/req/SigVer15_186-3.req", kSigVer},
            {"RSA2/resp/SigVer15_186-3.rsp", "[mod = 1024]\nn = 0a\nSHAAlg = SHA1\n"}});
  out = Verify(&tally, {&fips_tv_rsa}, /*strict=*/true);
  EXPECT_EQ(tally.failed, 0) << out;
  EXPECT_EQ(tally.passed, 1) << out;
  EXPECT_NE(out.find("STOPPED RSA2/SigVer15_186-3: the runner stops at the first test"),
            std::string::npos) << out;
  EXPECT_TRUE(out.ends_with("1 passed, 0 failed, 1 stopped at the first test by design\n")) << out;
}

TEST(Verify, LinksAreNotFollowed) {
  WriteFile("/tmp/secret", "root:SECRET\n");
  MakeTree({{"SHA/req/SHA1ShortMsg.req", kShaRequest}, {"SHA/resp/SHA1ShortMsg.rsp", kShaResponse},
            {"SHA/fax/SHA1ShortMsg.fax", "->/tmp/secret"},
            {"SHA/req/SHA1LongMsg.req", kShaRequest}, {"SHA/resp/SHA1LongMsg.rsp", "->/tmp/secret"},
            {"SHA/req/SHA1Monte.req", "->../../secret"}});
  host::VerifyTally tally;
  const std::string out = Verify(&tally, {&fips_tv_sha1});
  EXPECT_EQ(tally.failed, 3) << out;
  EXPECT_EQ(out.find("SECRET"), std::string::npos) << out;
  for (const char* file : {"fax/SHA1ShortMsg.fax", "resp/SHA1LongMsg.rsp", "req/SHA1Monte.req"}) {
    EXPECT_NE(out.find("/tmp/t/SHA/" + std::string(file) + " not read: a symbolic link (not followed)"),
              std::string::npos) << file << "\n" << out;
  }
}

TEST(Verify, RunRecordAndOutputDirectory) {
  MakeTree({{"SHA/req/SHA1ShortMsg.req", kShaRequest}, {"SHA/req/SHA1LongMsg.req", kShaRequest},
            {"out/SHA/resp/SHA1ShortMsg.rsp", kShaResponse},
            {"out/SHA/resp/SHA1LongMsg.rsp", kShaResponse},
            {"out/fipsval-run.json",
             R"({"version":1,"tree":"/tmp/t","started":"2026-01-01T00:00:00Z","finished":null,)"
             R"("files":[{"dir":"SHA","name":"SHA1ShortMsg","outcome":"answered","message":""},)"
             R"({"dir":"SHA","name":"SHA1LongMsg","outcome":"runner-error","message":"Msg field not present"}]})"}});
  host::VerifyTally tally;
  const std::string out = Verify(&tally, {&fips_tv_sha1}, false, "/tmp/t/out");
  EXPECT_EQ(tally.failed, 2) << out;
  EXPECT_EQ(tally.complete_only, 1) << out;
  EXPECT_NE(out.find("a run that did not finish (started 2026-01-01T00:00:00Z)"), std::string::npos) << out;
  EXPECT_NE(out.find("FAIL SHA/SHA1LongMsg: the recorded run did not answer it (runner-error: "
                     "Msg field not present)"), std::string::npos) << out;
}

TEST(SuiteCatalog, ListsAndNames) {
  EXPECT_EQ(host::AllSuites().size(), 10u);
  EXPECT_EQ(host::SuitesOfList("ssl").size(), 8u);
  EXPECT_TRUE(host::SuitesOfList("bogus").empty());
  EXPECT_EQ(host::FindSuite("aes-wf"), &fips_tv_aes_wf);
  EXPECT_EQ(host::FindSuite("DES"), nullptr);
}

}  // namespace
}  // namespace fipsval::testing
