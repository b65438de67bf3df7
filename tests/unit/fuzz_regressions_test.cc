// The hostile request shapes that the fuzz targets (fuzz/) explore most,
// replayed in the ordinary test run, so that the sanitizer build checks them
// without clang's fuzzer: every runner that makes no keys and runs no Monte
// Carlo chain, on every cut of a bundled sample request and with a zero byte
// at every line start and mid-line. A fuzz finding becomes a case of its
// own here: its input inline, the runner, and the message it must print.
#include <gtest/gtest.h>

#include <algorithm>

#include "harness/runners.h"
#include "tests/support/test_env.h"

namespace fipsval::testing {
namespace {

const struct {
  const char* request;  // under samples/
  RunnerCore core;
  // False for the CTR_DRBG runner: it ignores a failed read of an optional
  // input and reads on, so a cut request still gets an answer.
  bool stops_at_end_of_input = true;
} kRunners[] = {
    {"AES/req/CBCMMT128", test_aes_cbc_from_stream},
    {"AES/req/ECBMMT128", test_aes_ecb_from_stream},
    {"TDES/req/TCBCMMT2", test_3des_tcbc_from_stream},
    {"SHA/req/SHA1ShortMsg", test_sha1_from_stream},
    {"SHA/req/SHA256ShortMsg", test_sha256_from_stream},
    {"HMAC/req/HMAC", test_hmac_from_stream},
    {"RSA2/req/SigVer15_186-3", [](FILE* q, FILE* s) { test_rsa_verify_from_stream(q, s, 0); }},
    {"RSA2/req/KeyGen_186-3", test_rsa_keygen_from_stream},
    {"RSA2/req/KeyGen3_3_KAT", test_rsa_keygen_kat_from_stream},
    {"DRBG800-90A/req/CTR_DRBG", test_rbg_from_stream, false},
    {"KDF135/req/ssh", test_ssh_from_stream},
    {"KDF135/req/tls", test_tls_from_stream},
};

// Cut after a whole line, a request is the start of the whole one: the
// runner answers what it holds and stops, and what it wrote stands in the
// whole request's response too; a zero byte at that line start is the same
// as the cut. Cut or zeroed mid-line (a field without its line end, half a
// hex value), the runner stops or answers, never reading past the request.
TEST(HostileRequest, EveryCutAndZeroByteOfEverySampleStopsCleanly) {
  for (const auto& r : kRunners) {
    std::string sample = ReadFile(FIPSVAL_SOURCE_DIR "/samples/" + std::string(r.request) + ".req");
    ASSERT_FALSE(sample.empty()) << r.request;
    sample.erase(std::remove(sample.begin(), sample.end(), '\r'), sample.end());  // RunCore adds it
    const std::string whole = RunCore(r.core, sample).response;
    for (std::size_t start = sample.find('\n') + 1, end;
         (end = sample.find('\n', start)) != std::string::npos; start = end + 1) {
      for (const std::size_t at : {start, start + (end - start) / 2}) {
        std::string zeroed = sample;
        zeroed[at] = '\0';
        const std::string cut = RunCore(r.core, sample.substr(0, at)).response;
        const std::string zero = RunCore(r.core, zeroed).response;
        if (at == start && r.stops_at_end_of_input) {
          EXPECT_TRUE(whole.starts_with(cut)) << r.request << " cut at " << at;
          EXPECT_EQ(zero, cut) << r.request << " zero byte at " << at;
        }
      }
    }
  }
}

}  // namespace
}  // namespace fipsval::testing
