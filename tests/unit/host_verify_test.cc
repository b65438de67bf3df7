// fipsval verify's comparison of responses with expected answers.
#include <gtest/gtest.h>

#include <cstdio>

#include "fipsval.h"
#include "host/core/suite_catalog.h"
#include "host/core/verify.h"
#include "tests/support/test_env.h"

namespace fipsval::testing {
namespace {

using host::CompareWithExpected;

host::Comparison Compare(const std::string& name, const std::string& response,
                         const std::string& expected, bool partial = false) {
  WriteFile("/tmp/a.rsp", response);
  WriteFile("/tmp/a.fax", expected);
  return CompareWithExpected(name, "/tmp/a.rsp", "/tmp/a.fax", partial);
}

TEST(Verify, BlankLinesAndLineEndsAreIgnored) {
  const auto c = Compare("X", Crlf("# a\n\n\nMD = 01\n\n"), "# a\r\r\nMD = 01\n");
  EXPECT_TRUE(c.ok) << c.detail;
  EXPECT_EQ(c.lines, 2);
}

TEST(Verify, AMismatchNamesTheFirstDifferingLineOfBothFiles) {
  const auto c = Compare("X", Crlf("# a\n\nMD = 01\nMD = 02\n"), Crlf("# a\nMD = 01\nMD = 03\n"));
  EXPECT_FALSE(c.ok);
  EXPECT_NE(c.detail.find("response line 4: MD = 02"), std::string::npos) << c.detail;
  EXPECT_NE(c.detail.find("expected line 3: MD = 03"), std::string::npos) << c.detail;
}

TEST(Verify, ShortAndLongResponses) {
  EXPECT_FALSE(Compare("X", "a\n", "a\nb\n").ok);
  EXPECT_TRUE(Compare("X", "a\n", "a\nb\n", /*partial=*/true).ok);
  EXPECT_FALSE(Compare("X", "", "a\n", /*partial=*/true).ok);
  EXPECT_FALSE(Compare("X", "a\nb\n", "a\n", /*partial=*/true).ok);
}

TEST(Verify, DrbgAnswersAreComparedOnlyInAes256UseDfSections) {
  const std::string expected = Crlf(
      "[AES-128 use df]\nCOUNT = 0\n"
      "[AES-256 use df]\nCOUNT = 0\nReturnedBits = aa\n"
      "[3KeyTDEA no df]\nCOUNT = 0\nReturnedBits = bb\n");
  const std::string response = Crlf(
      "[AES-128 use df]\nCOUNT = 0\n"
      "[AES-256 use df]\nCOUNT = 0\nReturnedBits = aa\n"
      "[3KeyTDEA no df]\nCOUNT = 0\nReturnedBits = cccc\n");
  auto c = Compare("CTR_DRBG", response, expected);
  EXPECT_TRUE(c.ok) << c.detail;
  EXPECT_EQ(c.not_compared, 1);
  EXPECT_FALSE(Compare("OTHER", response, expected).ok);

  std::string wrong = response;
  wrong.replace(wrong.find("= aa"), 4, "= ab");
  EXPECT_FALSE(Compare("CTR_DRBG", wrong, expected).ok);

  // The runner ends at the first no-df test (its nonce is empty): complete
  // once past the AES-256 sections, short anywhere before or inside them.
  const std::string stopped = Crlf(
      "[AES-128 use df]\nCOUNT = 0\n"
      "[AES-256 use df]\nCOUNT = 0\nReturnedBits = aa\n"
      "[3KeyTDEA no df]\nCOUNT = 0\n");
  c = Compare("CTR_DRBG", stopped, expected);
  EXPECT_TRUE(c.ok) << c.detail;
  EXPECT_FALSE(Compare("CTR_DRBG", Crlf("[AES-128 use df]\nCOUNT = 0\n"),
                       expected).ok);
  EXPECT_FALSE(Compare("CTR_DRBG",
                       Crlf("[AES-128 use df]\nCOUNT = 0\n[AES-256 use df]\n"
                            "COUNT = 0\n"),
                       expected).ok);
}

TEST(Verify, TreeVerdictsAndClosingLine) {
  std::system("rm -rf /tmp/t && mkdir -p /tmp/t/SHA/resp /tmp/t/SHA/fax");
  WriteFile("/tmp/t/SHA/resp/SHA1ShortMsg.rsp", "MD = 01\n");
  WriteFile("/tmp/t/SHA/fax/SHA1ShortMsg.fax", "MD = 01\n");
  WriteFile("/tmp/t/SHA/resp/SHA1LongMsg.rsp", "MD = 01\n");
  WriteFile("/tmp/t/SHA/fax/SHA1LongMsg.fax", "MD = 02\n");
  WriteFile("/tmp/t/SHA/fax/SHA1Monte.fax", "MD = 02\n");
  host::VerifyOptions options{"/tmp/t", {host::FindSuite("sha1")}, false, false};
  std::string out;
  host::VerifyTally tally;
  out = CaptureStdout([&] { tally = host::VerifyTree(options, stdout); });
  EXPECT_EQ(tally.passed, 1);
  EXPECT_EQ(tally.failed, 1);
  EXPECT_NE(out.find("PASS SHA/SHA1ShortMsg (1 lines)\n"), std::string::npos) << out;
  EXPECT_NE(out.find("FAIL SHA/SHA1LongMsg: first difference"), std::string::npos) << out;
  EXPECT_NE(out.find("SKIP SHA/SHA1Monte: no response\n"), std::string::npos) << out;
  EXPECT_TRUE(out.ends_with("1 passed, 1 failed\n")) << out;

  options.strict = true;
  out = CaptureStdout([&] { tally = host::VerifyTree(options, stdout); });
  EXPECT_EQ(tally.failed, 2);
  EXPECT_NE(out.find("FAIL SHA/SHA1Monte: no response\n"), std::string::npos) << out;
}

TEST(SuiteCatalog, ListsAndNames) {
  EXPECT_EQ(host::AllSuites().size(), 10u);
  EXPECT_EQ(host::SuitesOfList("ops").size(), 5u);
  EXPECT_EQ(host::SuitesOfList("ssl").size(), 8u);
  EXPECT_TRUE(host::SuitesOfList("bogus").empty());
  EXPECT_EQ(host::FindSuite("aes-wf"), &fips_tv_aes_wf);
  EXPECT_EQ(host::FindSuite("3des"), &fips_tv_3des);
  EXPECT_EQ(host::FindSuite("DES"), nullptr);
}

}  // namespace
}  // namespace fipsval::testing
