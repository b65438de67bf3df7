// Every runner on a response directory that fills up part way through its
// response: it reports the failed write, closes both files and returns.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>

#include "harness/runners.h"
#include "tests/support/test_env.h"

namespace fipsval::testing {
namespace {

namespace fs = std::filesystem;

struct Case {
  const char* dir;
  const char* name;
  void (*run)(const char*);
};

void RsaSign(const char* name) { test_rsa_sign_from_file(name, 0); }

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
    {"RSA2", "SigGen15_186-3", RsaSign},
    {"RSA2", "KeyGen3_3_KAT", test_rsa_keygen_kat_from_file},
    {"DRBG800-90A", "CTR_DRBG", test_rbg_from_file},
    {"KDF135", "ssh", test_ssh_from_file},
    {"KDF135", "tls", test_tls_from_file},
};

// The project's own requests.
fs::path FindRequest(const Case& c) {
  for (const fs::path& tree : {fs::path(FIPSVAL_SOURCE_DIR) / "vectors",
                              fs::path(FIPSVAL_SOURCE_DIR) / "samples"}) {
    const fs::path request = tree / c.dir / "req" / (std::string(c.name) + ".req");
    if (fs::exists(request)) return request;
  }
  return {};
}

class FullDisk : public ::testing::TestWithParam<Case> {};

TEST_P(FullDisk, ReportsTheWriteAndClosesBothFiles) {
  const Case& c = GetParam();
  const fs::path request = FindRequest(c);
  ASSERT_FALSE(request.empty()) << "no request file for " << c.name;
  ResetVectorDirs();
  // The sample (its encrypt half) repeated until its response cannot fit
  // in one page.
  std::string sample = ReadFile(request);
  sample.resize(std::min(sample.size(), sample.find("[DECRYPT]")));
  std::string text;
  while (text.size() < 16384) text += sample;
  WriteRequest(c.name, text);
  MountTinyResponseDir(4096);

  const int descriptors = OpenDescriptorCount();
  const std::string printed = CaptureStdout([&] { c.run(c.name); });
  EXPECT_EQ(OpenDescriptorCount(), descriptors);
  EXPECT_NE(printed.find("Problem writing"), std::string::npos) << printed;
  // The response holds what fitted: no more than the filesystem's size.
  EXPECT_LE(ReadResponse(c.name).size(), 4096u);
  ResetVectorDirs();
}

INSTANTIATE_TEST_SUITE_P(AllRunners, FullDisk, ::testing::ValuesIn(kCases),
                         [](const auto& info) {
                           std::string name = info.param.name;
                           for (char& ch : name) {
                             if (!std::isalnum(static_cast<unsigned char>(ch))) ch = '_';
                           }
                           return name;
                         });

}  // namespace
}  // namespace fipsval::testing
