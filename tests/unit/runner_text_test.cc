// Runner cores driven as text: a request string in, the response text and
// the console lines out. The cores work on in-memory streams, so these
// cases need no fixed paths, no mount namespace and no root.
#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <string>

#include "harness/runner_io.h"
#include "harness/runners.h"
#include "tests/support/test_env.h"

namespace fipsval::testing {
namespace {

using Core = RunnerCore;

Core Sign() {
  return [](std::FILE* q, std::FILE* s) { test_rsa_sign_from_stream(q, s, 0); };
}

struct Case {
  const char* name;
  Core core;
  std::string request;
  std::string response;  // "\n" line ends, compared after Crlf
  std::string printed;
};

const std::string kHmacTest =  // RFC 2202, HMAC-SHA-1 case 2
    "[L=20]\n\nCount = 0\nKlen = 4\nTlen = 20\nKey = 4a656665\n"
    "Msg = 7768617420646f2079612077616e7420666f72206e6f7468696e673f\n";
const std::string kDrbgHeader = "[AES-256 use df]\n[ReturnedBitsLen = 512]\n\n";
const std::string kEntropy =
    "EntropyInput = " + std::string(64, 'a') + "\n";
const std::string kAesMctHeader = "[ENCRYPT]\n\nCOUNT = 0\nKEY = " +
                                  std::string(32, '0') + "\n";

const Case kCases[] = {
    {"HmacAnswersAfterTheInputs", test_hmac_from_stream, kHmacTest,
     kHmacTest + "Mac = effcdf6ae5eb2fa2d27416d5f184df9c259a7c79\n", ""},
    {"HmacWithoutMarkerIsCopied", test_hmac_from_stream, "# HMAC\n",
     "# HMAC\n", "Never found starting marker\n"},
    {"Sha1ShortMessage", test_sha1_from_stream,
     "[L = 20]\n\nLen = 24\nMsg = 616263\n",
     "[L = 20]\n\nLen = 24\nMsg = 616263\n"
     "MD = a9993e364706816aba3e25717850c26c9cd0d89d\n",
     ""},
    {"Sha256LengthMismatch", test_sha256_from_stream,
     "[L = 32]\n\nLen = 32\nMsg = 616263\n", "[L = 32]\n\nLen = 32\n",
     "Msg len mismatch (4 != 3)\n"},
    {"TlsWithoutMarker", test_tls_from_stream, "# TLS\n", "# TLS\n",
     "Never found starting marker\n"},
    {"DrbgInputBoundedToItsField", test_rbg_from_stream,
     kDrbgHeader + "COUNT = 0\n" + kEntropy + "Nonce = " +
         std::string(34, '1') + "\n",
     kDrbgHeader + "COUNT = 0\n" + kEntropy + "Nonce = " +
         std::string(34, '1') + "\n",
     "Nonce is too long: 17 bytes, at most 16\n"},
    {"DrbgReturnedBitsAbove512Refused", test_rbg_from_stream,
     "[AES-256 use df]\n[ReturnedBitsLen = 520]\n\nCOUNT = 0\n",
     "[AES-256 use df]\n[ReturnedBitsLen = 520]\n",
     "ReturnedBitsLen 520 is above 512: not answered\n"},
    {"AesMonteCarloSeedMustBeOneBlock", test_aes_ecb_mct_from_stream,
     kAesMctHeader + "PLAINTEXT = 0011\n", "[ENCRYPT]\n\n",
     "Monte Carlo seed plaintext is 2 bytes, not one 16-byte block: not "
     "answered\n"},
    {"RsaModulusWithoutDigits", Sign(), "# c\n[mod = abcd]\n", "# c\n",
     "Invalid modulus size (0)\n"},
    {"RsaLoopCountWithoutDigits", test_rsa_keygen_rp_prime_from_stream,
     "[mod = 2048]\n\nN = x\n", "[mod = 2048]\n", "Invalid loop num (0)\n"},
    {"RsaSigVerStopsAtItsFirstTest",
     [](std::FILE* q, std::FILE* s) { test_rsa_verify_from_stream(q, s, 0); },
     "[mod = 1024]\n\nn = 00c5\n\nSHAAlg = SHA256\nMsg = 00\n",
     "[mod = 1024]\n\nn = 00c5\n\nSHAAlg = SHA256\n",
     "RSA param n is null\n"},
};

class RunnerText : public ::testing::TestWithParam<Case> {};

TEST_P(RunnerText, ResponseAndConsole) {
  const Case& c = GetParam();
  const CoreResult r = RunCore(c.core, c.request);
  EXPECT_EQ(r.response, Crlf(c.response));
  EXPECT_EQ(r.printed, c.printed);
}

INSTANTIATE_TEST_SUITE_P(Cores, RunnerText, ::testing::ValuesIn(kCases),
                         [](const auto& info) { return info.param.name; });

// A response stream whose every write fails, as on a full disk: stdio
// buffers a small response, so the loss shows only when it is flushed.
std::FILE* FailingStream() { return std::fopen("/dev/full", "w"); }

TEST(RunnerClose, BufferedDataLostAtCloseIsReported) {
  std::string request = Crlf(kHmacTest);
  std::FILE* req = fmemopen(request.data(), request.size(), "r");
  std::FILE* rsp = FailingStream();
  if (!rsp) GTEST_SKIP() << "no /dev/full";
  bool closed = true;
  const std::string printed = CaptureStdout([&] {
    test_hmac_from_stream(req, rsp);
    closed = CloseChecked(rsp, kCopyError);
  });
  std::fclose(req);
  EXPECT_FALSE(closed);
  EXPECT_EQ(printed, "Problem writing to rsp file\n");
}

TEST(RunnerClose, AFailedWriteIsReportedOnce) {
  std::string request = "[L = 20]\r\n\r\nLen = 24\r\nMsg = 616263\r\n";
  std::FILE* req = fmemopen(request.data(), request.size(), "r");
  std::FILE* rsp = FailingStream();
  if (!rsp) GTEST_SKIP() << "no /dev/full";
  std::setvbuf(rsp, nullptr, _IONBF, 0);  // every write fails at once
  const std::string printed = CaptureStdout([&] {
    test_sha1_from_stream(req, rsp);
    CloseChecked(rsp, kCopyError);
  });
  std::fclose(req);
  EXPECT_EQ(printed, "Problem writing to rsp file\n");
}

}  // namespace
}  // namespace fipsval::testing
