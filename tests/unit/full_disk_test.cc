// Every runner on a response directory that fills up part way through its
// response: it reports the failed write, closes both files and returns.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "harness/runners.h"
#include "tests/support/test_env.h"

namespace fipsval::testing {
namespace {

struct Case {
  const char* dir;
  const char* name;
  void (*run)(const char*);
};

// Requests whose responses are far larger than one page.
const Case kCases[] = {
    {"AES", "CBCVarKey128", test_aes_cbc_from_file},
    {"AES", "ECBVarTxt128", test_aes_ecb_from_file},
    {"AES", "CBCMCT128", test_aes_cbc_mct_from_file},
    {"AES", "ECBMCT128", test_aes_ecb_mct_from_file},
    {"TDES", "TCBCvartext", test_3des_tcbc_from_file},
    {"TDES", "TCBCMonte1", test_3des_tcbc_mct_from_file},
    {"SHA", "SHA1LongMsg", test_sha1_from_file},
    {"SHA", "SHA256Monte", test_sha256_mct_from_file},
    {"HMAC", "HMAC", test_hmac_from_file},
    {"RSA2", "SigGen15_186-3", [](const char* n) { test_rsa_sign_from_file(n, 0); }},
    {"RSA2", "KeyGen3_3_KAT", test_rsa_keygen_kat_from_file},
    {"DRBG800-90A", "CTR_DRBG", test_rbg_from_file},
    {"KDF135", "ssh", test_ssh_from_file},
    {"KDF135", "tls", test_tls_from_file},
};

class FullDisk : public ::testing::TestWithParam<Case> {};

// The project's own request (its encrypt half), repeated until its
// response cannot fit the page-sized response directory.
TEST_P(FullDisk, ReportsTheWriteAndClosesBothFiles) {
  const Case& c = GetParam();
  const std::string file = std::string(c.dir) + "/req/" + c.name + ".req";
  std::string sample = ReadFile(FIPSVAL_SOURCE_DIR "/vectors/" + file);
  if (sample.empty()) sample = ReadFile(FIPSVAL_SOURCE_DIR "/samples/" + file);
  ASSERT_FALSE(sample.empty()) << "no request file for " << c.name;
  sample.resize(std::min(sample.size(), sample.find("[DECRYPT]")));
  ResetVectorDirs();
  std::string text;
  while (text.size() < 16384) text += sample;
  WriteRequest(c.name, text);
  MountTinyResponseDir(4096);
  const int descriptors = OpenDescriptorCount();
  const std::string printed = CaptureStdout([&] { c.run(c.name); });
  EXPECT_EQ(OpenDescriptorCount(), descriptors);
  EXPECT_NE(printed.find("Problem writing"), std::string::npos) << printed;
  EXPECT_LE(ReadResponse(c.name).size(), 4096u);
  ResetVectorDirs();
}

INSTANTIATE_TEST_SUITE_P(AllRunners, FullDisk, ::testing::ValuesIn(kCases),
                         [](const auto& info) {
                           std::string name = info.param.name;
                           std::replace(name.begin(), name.end(), '-', '_');
                           return name;
                         });

}  // namespace
}  // namespace fipsval::testing
