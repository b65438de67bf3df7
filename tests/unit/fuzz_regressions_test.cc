// The hostile request shapes that the fuzz targets (fuzz/) explore most,
// replayed in the ordinary test run, so that the sanitizer build checks them
// without clang's fuzzer: every runner that makes no keys and runs no Monte
// Carlo chain, on every cut of a bundled sample request and with a zero byte
// at every line start. A fuzz finding becomes a case of its own here: its
// input inline, the runner, and the message the runner must print.
#include <gtest/gtest.h>

#include <cctype>
#include <string>
#include <string_view>
#include <vector>

#include "fipsval.h"
#include "harness/runners.h"
#include "tests/support/test_env.h"

namespace fipsval::testing {
namespace {

struct Runner {
  const char* dir;   // sample directory
  const char* name;  // request base name
  void (*run)(const char* name);
  // False for the CTR_DRBG runner: it ignores a failed read of an optional
  // input and reads on, so a request cut inside a test still gets an answer
  // (with zero inputs), and a zero byte ends one read only.
  bool stops_at_end_of_input = true;
};

const Runner kRunners[] = {
    {"AES", "CBCMMT128", test_aes_cbc_from_file},
    {"AES", "ECBMMT128", test_aes_ecb_from_file},
    {"TDES", "TCBCMMT2", test_3des_tcbc_from_file},
    {"SHA", "SHA1ShortMsg", test_sha1_from_file},
    {"SHA", "SHA256ShortMsg", test_sha256_from_file},
    {"HMAC", "HMAC", test_hmac_from_file},
    {"RSA2", "SigVer15_186-3",
     [](const char* name) { test_rsa_verify_from_file(name, 0); }},
    {"RSA2", "KeyGen_186-3", test_rsa_keygen_from_file},
    {"RSA2", "KeyGen3_3_KAT", test_rsa_keygen_kat_from_file},
    {"DRBG800-90A", "CTR_DRBG", test_rbg_from_file, false},
    {"KDF135", "ssh", test_ssh_from_file},
    {"KDF135", "tls", test_tls_from_file},
};

class HostileRequest : public ::testing::TestWithParam<Runner> {
 protected:
  void SetUp() override {
    ResetVectorDirs();
    const Runner& r = GetParam();
    sample_ = ReadFile(std::string(FIPSVAL_SOURCE_DIR) + "/samples/" + r.dir +
                       "/req/" + r.name + ".req");
    ASSERT_FALSE(sample_.empty()) << "no sample request " << r.name;
    whole_ = Run(sample_);
    ASSERT_FALSE(whole_.empty());
  }

  // The runner on `request`; its response. Fails the test when the runner
  // leaves a descriptor open.
  std::string Run(std::string_view request) const {
    const Runner& r = GetParam();
    WriteRequest(r.name, request);
    const int before = OpenDescriptorCount();
    CaptureStdout([&] { r.run(r.name); });
    EXPECT_EQ(OpenDescriptorCount(), before) << r.name << " left a file open";
    return ReadResponse(r.name);
  }

  // Offsets at which the sample's lines start, the first excluded.
  std::vector<std::size_t> LineStarts() const {
    std::vector<std::size_t> starts;
    for (std::size_t at = sample_.find("\r\n"); at != std::string::npos;
         at = sample_.find("\r\n", at + 2)) {
      if (at + 2 < sample_.size()) starts.push_back(at + 2);
    }
    return starts;
  }

  std::string sample_;
  std::string whole_;  // the response to the whole sample
};

// Cut after a whole line, a request is the start of the whole one; the
// runner answers what it holds and stops, and everything it wrote stands in
// the whole request's response too. A zero byte at a line start ends the
// reading there, which must be the same as the cut.
TEST_P(HostileRequest, CutAtALineEndAnswersAStartOfTheWholeResponse) {
  const bool stops = GetParam().stops_at_end_of_input;
  for (const std::size_t cut : LineStarts()) {
    const std::string cut_response = Run(sample_.substr(0, cut));
    std::string zeroed = sample_;
    zeroed[cut] = '\0';
    const std::string zeroed_response = Run(zeroed);
    if (stops) {
      EXPECT_TRUE(whole_.starts_with(cut_response)) << "cut at byte " << cut;
      EXPECT_EQ(zeroed_response, cut_response) << "zero byte at " << cut;
    }
  }
}

// Cut inside a line (a field without its line end, a hex value missing its
// second half) or a zero byte in mid-line: the runner stops or answers, and
// never reads past what the request holds.
TEST_P(HostileRequest, CutInsideALineStopsCleanly) {
  for (const std::size_t start : LineStarts()) {
    const std::size_t end = sample_.find("\r\n", start);
    const std::size_t middle = start + (end - start) / 2;
    Run(sample_.substr(0, middle));
    std::string zeroed = sample_;
    zeroed[middle] = '\0';
    Run(zeroed);
  }
}

INSTANTIATE_TEST_SUITE_P(
    EveryRunner, HostileRequest, ::testing::ValuesIn(kRunners),
    [](const ::testing::TestParamInfo<Runner>& info) {
      std::string name = info.param.name;
      for (char& c : name) {
        if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
      }
      return name;
    });

}  // namespace
}  // namespace fipsval::testing
