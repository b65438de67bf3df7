// The suite descriptors and lists, and what a run operation does when its
// request files or the response directory are missing.
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <set>

#include "fipsval.h"
#include "tests/support/test_env.h"

namespace fipsval::testing {
namespace {

using Names = std::vector<std::string>;
const fips_tv* const kSuites[] = {&fips_tv_3des, &fips_tv_aes, &fips_tv_aes_wf, &fips_tv_hmac,
                                  &fips_tv_rbg,  &fips_tv_rsa, &fips_tv_sha1,   &fips_tv_sha256,
                                  &fips_tv_ssh,  &fips_tv_tls};

Names Files(const fips_tv* tv) {
  Names names;
  for (const char* const* f = tv->get_filenames(); *f; ++f) names.emplace_back(*f);
  return names;
}
// The printed lines: a title, or "!name" for a request that is missing.
std::string Lines(const Names& lines) {
  std::string out;
  for (const std::string& l : lines) {
    out += l[0] == '!' ? "Couldn't open /tmp/req/" + l.substr(1) + ".req\n" : l + "\n";
  }
  return out;
}
std::string Missing(Names files) {
  for (std::string& f : files) f = "!" + f;
  return Lines(files);
}

// Names and directories for the host; the suites of a directory list
// exactly the requests that the sample generator writes there.
TEST(Descriptors, NameTheirDirectoryAndItsSampleRequests) {
  std::string names;
  std::map<std::string, std::set<std::string>> listed, samples;
  for (const fips_tv* tv : kSuites) {
    names += std::string(tv->name) + ":" + tv->dir + " ";
    for (const std::string& f : Files(tv)) listed[tv->dir].insert(f);
    for (const auto& e : std::filesystem::directory_iterator(FIPSVAL_SOURCE_DIR "/samples/" +
                                                             std::string(tv->dir) + "/req")) {
      samples[tv->dir].insert(e.path().stem());
    }
  }
  EXPECT_EQ(names, "3DES:TDES AES:AES AES-WF:AES HMAC:HMAC DRBG800-90A:DRBG800-90A RSA2:RSA2 "
                   "SHA1:SHA SHA256:SHA SSH:KDF135 TLS:KDF135 ");
  EXPECT_EQ(listed, samples);
  using Ptrs = std::vector<const fips_tv*>;
  const auto members = [](const fips_tv* const* list) {
    Ptrs found;
    while (*list) found.push_back(*list++);
    return found;
  };
  EXPECT_EQ(members(fips_tv_ops),
            (Ptrs{&fips_tv_aes, &fips_tv_hmac, &fips_tv_sha1, &fips_tv_sha256, &fips_tv_3des}));
  EXPECT_EQ(members(fips_tv_ssl_ops), (Ptrs{&fips_tv_aes, &fips_tv_hmac, &fips_tv_rsa,
                                            &fips_tv_sha1, &fips_tv_sha256, &fips_tv_3des,
                                            &fips_tv_ssh, &fips_tv_tls}));
  EXPECT_EQ(members(fips_tv_rbg_ops), Ptrs{&fips_tv_rbg});
  EXPECT_EQ(members(fips_tv_wf_ops), Ptrs{&fips_tv_aes_wf});
}

// Every file in its order, with the titles; no response file is made.
TEST(AbsentRequests, EachSuitePrintsItsTitlesAndOneLinePerFile) {
  ResetVectorDirs();
  EXPECT_EQ(CaptureStdout(fips_test_vectors_3des),
            Lines({"TDES KAT", "TDES KAT VARTEXT", "!TCBCvartext", "TDES KAT INVPERM",
                   "!TCBCinvperm", "TDES KAT VARKEY", "!TCBCvarkey", "TDES KAT PERMOP",
                   "!TCBCpermop", "TDES KAT SUBTAB", "!TCBCsubtab", "TDES MMT", "!TCBCMMT1",
                   "!TCBCMMT2", "!TCBCMMT3", "TDES MCT", "TDES MCT 1", "!TCBCMonte1",
                   "TDES MCT 2", "!TCBCMonte2", "TDES MCT 3", "!TCBCMonte3"}));
  EXPECT_EQ(CaptureStdout(fips_test_vectors_rsa),
            Lines({"Running PKCS1 tests", "Running SigGen test", "!SigGen15_186-3",
                   "Running SigVer test", "!SigVer15_186-3", "Running KeyGen tests",
                   "Running KeyGen test", "!KeyGen_186-3", "Running KeyGen KAT test",
                   "!KeyGen3_3_KAT", "Running KeyGen RP Prime test",
                   "!KeyGen_RandomProbablyPrime3_3"}));
  for (const fips_tv* tv : {&fips_tv_hmac, &fips_tv_sha1, &fips_tv_sha256, &fips_tv_rbg,
                            &fips_tv_ssh, &fips_tv_tls}) {
    EXPECT_EQ(CaptureStdout(tv->run), Missing(Files(tv))) << tv->name;
  }
  for (const fips_tv* tv : {&fips_tv_aes, &fips_tv_aes_wf}) {
    std::string expected;  // the AES runners announce each file first
    for (const std::string& f : Files(tv)) expected += Lines({"Running file " + f, "!" + f});
    EXPECT_EQ(CaptureStdout(tv->run), expected) << tv->name;
  }
  EXPECT_TRUE(std::filesystem::is_empty("/tmp/resp"));
  // A request without the response directory: the response path, and the
  // request is closed.
  ASSERT_EQ(std::system("rmdir /tmp/resp"), 0);
  WriteRequest("SHA1Monte", Crlf("Seed = 00\n"));
  const int fds = OpenDescriptorCount();
  EXPECT_EQ(CaptureStdout(fips_test_vectors_sha1), Missing({"SHA1ShortMsg", "SHA1LongMsg"}) +
                                                       "Couldn't open /tmp/resp/SHA1Monte.rsp\n");
  EXPECT_EQ(OpenDescriptorCount(), fds);
}

}  // namespace
}  // namespace fipsval::testing
