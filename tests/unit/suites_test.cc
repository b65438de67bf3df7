// The suite descriptors, the suite lists, and what a run operation does
// when its request files or the response directory are missing.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <initializer_list>
#include <map>
#include <string>
#include <vector>

#include "fipsval.h"
#include "tests/support/test_env.h"

namespace fipsval::testing {
namespace {

using Names = std::vector<std::string>;

Names FileList(const fips_tv& tv) {
  Names names;
  for (const char* const* f = tv.get_filenames(); *f; ++f)
    names.emplace_back(*f);
  return names;
}

struct Suite {
  const fips_tv* tv;
  const char* name;
  const char* dir;
};
const Suite kSuites[] = {{&fips_tv_3des, "3DES", "TDES"},
                         {&fips_tv_aes, "AES", "AES"},
                         {&fips_tv_aes_wf, "AES-WF", "AES"},
                         {&fips_tv_hmac, "HMAC", "HMAC"},
                         {&fips_tv_rbg, "DRBG800-90A", "DRBG800-90A"},
                         {&fips_tv_rsa, "RSA2", "RSA2"},
                         {&fips_tv_sha1, "SHA1", "SHA"},
                         {&fips_tv_sha256, "SHA256", "SHA"},
                         {&fips_tv_ssh, "SSH", "KDF135"},
                         {&fips_tv_tls, "TLS", "KDF135"}};

TEST(Descriptors, NamesAndDirs) {
  for (const Suite& s : kSuites) {
    EXPECT_STREQ(s.tv->name, s.name);
    EXPECT_STREQ(s.tv->dir, s.dir);
    EXPECT_NE(s.tv->run, nullptr) << s.name;
  }
}

// The suites of a directory name exactly the requests that the sample
// generator writes there.
TEST(Descriptors, FileListsNameTheSampleRequests) {
  std::map<std::string, Names> listed;
  for (const Suite& s : kSuites) {
    for (const std::string& f : FileList(*s.tv)) listed[s.dir].push_back(f);
  }
  for (auto& [dir, names] : listed) {
    Names samples;
    const std::string req =
        std::string(FIPSVAL_SOURCE_DIR) + "/samples/" + dir + "/req";
    for (const auto& entry : std::filesystem::directory_iterator(req)) {
      samples.push_back(entry.path().stem());
    }
    std::sort(names.begin(), names.end());
    std::sort(samples.begin(), samples.end());
    EXPECT_EQ(names, samples) << dir;
  }
}

Names Members(const fips_tv* const* list) {
  Names names;
  for (; *list; ++list) names.emplace_back((*list)->name);
  return names;
}

TEST(Lists, MembersInOrderEndingInNull) {
  EXPECT_EQ(Members(fips_tv_ops),
            (Names{"AES", "HMAC", "SHA1", "SHA256", "3DES"}));
  EXPECT_EQ(Members(fips_tv_ssl_ops), (Names{"AES", "HMAC", "RSA2", "SHA1",
                                             "SHA256", "3DES", "SSH", "TLS"}));
  EXPECT_EQ(Members(fips_tv_rbg_ops), Names{"DRBG800-90A"});
  EXPECT_EQ(Members(fips_tv_wf_ops), Names{"AES-WF"});
  // The lists hold the exported descriptors themselves.
  EXPECT_EQ(fips_tv_ops[1], &fips_tv_hmac);
  EXPECT_EQ(fips_tv_ssl_ops[2], &fips_tv_rsa);
  EXPECT_EQ(fips_tv_rbg_ops[0], &fips_tv_rbg);
  EXPECT_EQ(fips_tv_wf_ops[0], &fips_tv_aes_wf);
}

std::string Missing(const std::string& name) {
  return "Couldn't open /tmp/req/" + name + ".req";
}

// The printed lines, each with its newline.
std::string Printed(std::initializer_list<std::string> lines) {
  std::string out;
  for (const std::string& line : lines) out += line + "\n";
  return out;
}

Names ResponseFiles() {
  Names found;
  for (const Suite& s : kSuites) {
    for (const std::string& f : FileList(*s.tv)) {
      if (ResponseExists(f)) found.push_back(f);
    }
  }
  return found;
}

// The full output of suites whose runners print nothing but failures.
TEST(AbsentRequests, TitledSuitesPrintTitlesAndOneLinePerFile) {
  ResetVectorDirs();
  // clang-format off
  EXPECT_EQ(CaptureStdout(fips_test_vectors_3des), Printed({
      "TDES KAT",
      "TDES KAT VARTEXT", Missing("TCBCvartext"),
      "TDES KAT INVPERM", Missing("TCBCinvperm"),
      "TDES KAT VARKEY", Missing("TCBCvarkey"),
      "TDES KAT PERMOP", Missing("TCBCpermop"),
      "TDES KAT SUBTAB", Missing("TCBCsubtab"),
      "TDES MMT", Missing("TCBCMMT1"), Missing("TCBCMMT2"), Missing("TCBCMMT3"),
      "TDES MCT",
      "TDES MCT 1", Missing("TCBCMonte1"),
      "TDES MCT 2", Missing("TCBCMonte2"),
      "TDES MCT 3", Missing("TCBCMonte3")}));
  EXPECT_EQ(CaptureStdout(fips_test_vectors_rsa), Printed({
      "Running PKCS1 tests",
      "Running SigGen test", Missing("SigGen15_186-3"),
      "Running SigVer test", Missing("SigVer15_186-3"),
      "Running KeyGen tests",
      "Running KeyGen test", Missing("KeyGen_186-3"),
      "Running KeyGen KAT test", Missing("KeyGen3_3_KAT"),
      "Running KeyGen RP Prime test", Missing("KeyGen_RandomProbablyPrime3_3")}));
  // clang-format on
  EXPECT_EQ(ResponseFiles(), Names{});
}

TEST(AbsentRequests, UntitledSuitesPrintOneLinePerFile) {
  ResetVectorDirs();
  for (const fips_tv* tv : {&fips_tv_hmac, &fips_tv_sha1, &fips_tv_sha256,
                            &fips_tv_rbg, &fips_tv_ssh, &fips_tv_tls}) {
    std::string expected;
    for (const std::string& f : FileList(*tv)) expected += Missing(f) + "\n";
    EXPECT_EQ(CaptureStdout(tv->run), expected) << tv->name;
  }
  EXPECT_EQ(ResponseFiles(), Names{});
}

TEST(AbsentRequests, AesSuitesReportEveryFileInOrder) {
  // The AES runners announce each file first; only the order of the
  // "Couldn't open" lines is checked here.
  ResetVectorDirs();
  for (const fips_tv* tv : {&fips_tv_aes, &fips_tv_aes_wf}) {
    const std::string out = CaptureStdout(tv->run);
    std::size_t pos = 0;
    for (const std::string& f : FileList(*tv)) {
      pos = out.find(Missing(f) + "\n", pos);
      EXPECT_NE(pos, std::string::npos) << f << " in:\n" << out;
    }
  }
  EXPECT_EQ(ResponseFiles(), Names{});
}

TEST(MissingResponseDir, NamesTheResponsePathAndClosesTheRequest) {
  ResetVectorDirs();
  ASSERT_EQ(std::system("rmdir /tmp/resp"), 0);
  WriteRequest("HMAC", Crlf("[L=20]\n"));
  WriteRequest("SHA1Monte", Crlf("Seed = 00\n"));
  const int fds = OpenDescriptorCount();
  EXPECT_EQ(CaptureStdout(fips_test_vectors_hmac),
            "Couldn't open /tmp/resp/HMAC.rsp\n");
  EXPECT_EQ(CaptureStdout(fips_test_vectors_sha1),
            Printed({Missing("SHA1ShortMsg"), Missing("SHA1LongMsg"),
                     "Couldn't open /tmp/resp/SHA1Monte.rsp"}));
  EXPECT_EQ(OpenDescriptorCount(), fds);
}

}  // namespace
}  // namespace fipsval::testing
