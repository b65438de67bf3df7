// The CTR_DRBG runner end to end: request file in, parameter block through
// the ioctl on /dev/urandom (answered by the user-space stand-in where the
// kernel does not), response file out.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/mount.h>

#include <string>
#include <vector>

#include "fipsval.h"
#include "harness/runners.h"
#include "host/core/drbg_standin.h"
#include "harness/drbg_block.h"
#include "tests/support/test_env.h"

namespace fipsval::testing {
namespace {

// The request number is the one the driver decodes: write, 'R', 2, int.
static_assert(kRbgSetParamsIoctl == _IOW('R', 2, int));
static_assert(sizeof(rbg_params) == 280 && alignof(rbg_params) == 4);
static_assert(offsetof(rbg_params, returned) + kRbgReturnedMax ==
              offsetof(rbg_params, returned_len));

struct Case {
  std::string entropy, nonce, personalization, entropy_reseed,
      additional_reseed, additional1, additional2;
};

// NIST's CTR_DRBG AES-256 use df vectors with their 512-bit answers.
const Case kAllEmpty = {
    "2d4c9f46b981c6a0b2b5d8c69391e569ff13851437ebc0fc00d616340252fed5",
    "0bf814b411f65ec4866be1abb59d3c32", "",
    "93500fae4fa32b86033b7a7bac9d37e710dcc67ca266bc8607d665937766d207", "", "",
    ""};
const char kAllEmptyAnswer[] =
    "322dd28670e75c0ea638f3cb68d6a9d6e50ddfd052b772a7b1d78263a7b8978b6740c2b6"
    "5a9550c3a76325866fa97e16d74006bc96f26249b9f0a90d076f08e5";
const Case kEverything = {
    "174b46250051a9e3d80c56ae7163dafe7e54481a56cafd3b8625f99bbb29c442",
    "98ffd99c466e0e94a45da7e0e82dbc6b",
    "7095268e99938b3e042734b9176c9aa051f00a5f8d2a89ada214b89beef18ebf",
    "e88be1967c5503f65d23867bbc891bd679db03b4878663f6c877592df25f0d9a",
    "cdf6ad549e45b6aa5cd67d024931c33cd133d52d5ae500c3015020beb30da063",
    "c7228e90c62f896a09e11684530102f926ec90a3255f6c21b857883c75800143",
    "76a94f224178fe4cbf9e2b8acc53c9dc3e50bb613aac8936601453cda3293b17"};
const char kEverythingAnswer[] =
    "1a6d8dbd642076d13916e5e23038b60b26061f13dd4e006277e0268698ffb2c87e453bae"
    "1251631ac90c701a9849d933995e8b0221fe9aca1985c546c2079027";

std::string Header(int returned_bits) {
  return "[AES-256 use df]\n[PredictionResistance = False]\n"
         "[EntropyInputLen = 256]\n[NonceLen = 128]\n"
         "[ReturnedBitsLen = " +
         std::to_string(returned_bits) + "]\n\n";
}

std::string Inputs(int count, const Case& c) {
  return "COUNT = " + std::to_string(count) + "\nEntropyInput = " + c.entropy +
         "\nNonce = " + c.nonce +
         "\nPersonalizationString = " + c.personalization +
         "\nEntropyInputReseed = " + c.entropy_reseed +
         "\nAdditionalInputReseed = " + c.additional_reseed +
         "\nAdditionalInput = " + c.additional1 +
         "\nAdditionalInput = " + c.additional2 + "\n";
}

std::string Answer(std::string_view hex) {
  return "ReturnedBits = " + std::string(hex) + "\n";
}

// Runs the runner on `request` (LF line ends, made CR LF); returns stdout.
std::string RunRequest(const std::string& request) {
  ResetVectorDirs();
  WriteRequest("CTR_DRBG", Crlf(request));
  return CaptureStdout([] { test_rbg_from_file("CTR_DRBG"); });
}

std::string Response() { return ReadResponse("CTR_DRBG"); }

TEST(RbgRunner, AnswersOnlyTheAes256UseDfSection) {
  const std::string earlier =
      "# CTR_DRBG options: AES-128 use df :: AES-256 use df\n\n"
      "[AES-128 use df]\n[ReturnedBitsLen = 256]\n\n" +
      Inputs(0, kAllEmpty) + "\n";
  const std::string section = Header(512) + Inputs(0, kAllEmpty) + "\n" +
                              Inputs(1, kEverything) + "\n";
  const int before = OpenDescriptorCount();
  EXPECT_EQ(RunRequest(earlier + section), "");
  EXPECT_EQ(Response(),
            Crlf(earlier + Header(512) + Inputs(0, kAllEmpty) +
                 Answer(kAllEmptyAnswer) + "\n" + Inputs(1, kEverything) +
                 Answer(kEverythingAnswer) + "\n"));
  EXPECT_EQ(OpenDescriptorCount(), before);
}

TEST(RbgRunner, ReturnedBitsLenSetsTheAnswerLength) {
  // 260 bits truncate to 32 bytes; 512 is the whole 64-byte field.
  for (const auto& [bits, digits] :
       std::vector<std::pair<int, std::size_t>>{{0, 0}, {256, 64}, {260, 64},
                                                {512, 128}}) {
    EXPECT_EQ(RunRequest(Header(bits) + Inputs(0, kEverything)), "") << bits;
    const std::string response = Response();
    const auto at = response.find("ReturnedBits = ");
    ASSERT_NE(at, std::string::npos) << bits;
    const std::string value = response.substr(at + 15);
    EXPECT_EQ(value.size(), digits + 2) << bits;
    EXPECT_TRUE(value.ends_with("\r\n"));
    EXPECT_EQ(value.find_first_not_of("0123456789abcdef"), digits) << bits;
  }
  // The full 512 bits are NIST's answer.
  RunRequest(Header(512) + Inputs(0, kEverything));
  EXPECT_NE(Response().find(kEverythingAnswer), std::string::npos);
}

TEST(RbgRunner, LengthsBeyondTheFieldAreRefusedBeforeAnyTest) {
  // Below 0 asks for no bytes: an empty answer.
  RunRequest("[AES-256 use df]\n[ReturnedBitsLen = -8]\n\n" +
             Inputs(0, kAllEmpty));
  EXPECT_TRUE(Response().ends_with("ReturnedBits = \r\n")) << Response();
  for (const char* bits : {"513", "1024", "99999999999999999999"}) {
    const std::string header =
        std::string("[AES-256 use df]\n[ReturnedBitsLen = ") + bits + "]\n\n";
    const std::string out = RunRequest(header + Inputs(0, kAllEmpty));
    EXPECT_NE(out.find("ReturnedBitsLen"), std::string::npos) << out;
    EXPECT_NE(out.find("is above 512"), std::string::npos) << out;
    EXPECT_EQ(Response(), Crlf("[AES-256 use df]\n[ReturnedBitsLen = ") +
                              bits + "]\r\n");
  }
}

TEST(RbgRunner, MarkerProblemsCopyWhatWasRead) {
  const std::string no_marker =
      "[AES-128 use df]\n[ReturnedBitsLen = 256]\n\n" + Inputs(0, kAllEmpty);
  EXPECT_EQ(RunRequest(no_marker), "Never found starting marker\n");
  EXPECT_EQ(Response(), Crlf(no_marker));

  const std::string no_length = "[AES-256 use df]\n[NonceLen = 128]\n";
  EXPECT_EQ(RunRequest(no_length), "Never found ReturnedBitsLen\n");
  EXPECT_EQ(Response(), Crlf(no_length));

  // Without its closing bracket the length line ends the run silently.
  const std::string unclosed =
      "[AES-256 use df]\n[ReturnedBitsLen = 512\n\n" + Inputs(0, kAllEmpty);
  EXPECT_EQ(RunRequest(unclosed), "");
  EXPECT_EQ(Response(), Crlf("[AES-256 use df]\n[ReturnedBitsLen = 512\n"));
}

TEST(RbgRunner, RequiredInputsEndTheRunAtTheirTest) {
  // A missing Nonce line: parse_key reports it, and the line it read in
  // its place is not copied.
  std::string second = Inputs(1, kAllEmpty);
  second.erase(second.find("Nonce = "),
               second.find("PersonalizationString") - second.find("Nonce = "));
  const std::string head = Header(512) + Inputs(0, kEverything);
  EXPECT_EQ(RunRequest(head + second + Inputs(2, kEverything)),
            "PersonalizationString = \r\n\nNonce =  field not present\n");
  EXPECT_EQ(Response(), Crlf(head + Answer(kEverythingAnswer) +
                             second.substr(0, second.find("Personal"))));

  // An empty nonce (as in NIST's no-df sections) or reseed entropy ends the
  // run without a message after copying its line.
  for (std::string Case::*field : {&Case::nonce, &Case::entropy_reseed,
                                   &Case::entropy}) {
    Case c = kEverything;
    c.*field = "";
    const std::string inputs = Inputs(0, c);
    EXPECT_EQ(RunRequest(Header(512) + inputs), "");
    const std::string value = c.nonce.empty()            ? "Nonce = \n"
                              : c.entropy_reseed.empty() ? "EntropyInputReseed = \n"
                                                         : "EntropyInput = \n";
    const std::string response = Response();
    EXPECT_TRUE(response.ends_with(Crlf(value))) << response;
    EXPECT_EQ(response.find("ReturnedBits = "), std::string::npos);
  }
}

TEST(RbgRunner, MissingOptionalInputsAreSkipped) {
  // A test without its AdditionalInputReseed line: the failed read consumes
  // the first AdditionalInput line, the second is read as the first
  // additional input, and the next COUNT line is consumed in place of the
  // second.
  std::string inputs = Inputs(0, kAllEmpty);
  inputs.erase(inputs.find("AdditionalInputReseed"),
               std::string("AdditionalInputReseed = \n").size());
  const std::string out = RunRequest(Header(512) + inputs + Inputs(1, kAllEmpty));
  EXPECT_NE(out.find("AdditionalInputReseed =  field not present"),
            std::string::npos);
  EXPECT_NE(out.find("AdditionalInput =  field not present"),
            std::string::npos);
  // The first test is answered (its optional inputs empty); the second's
  // lines are then copied without an answer.
  const std::string response = Response();
  EXPECT_NE(response.find(Crlf(Answer(kAllEmptyAnswer))), std::string::npos);
  EXPECT_EQ(response.find("ReturnedBits = "), response.rfind("ReturnedBits = "));
  EXPECT_TRUE(response.ends_with(Crlf("AdditionalInput = \n")));
}

TEST(RbgRunner, OverlongValuesAreRefusedAtTheirOwnField) {
  Case spilled = kEverything;
  spilled.nonce += spilled.personalization;
  EXPECT_EQ(RunRequest(Header(512) + Inputs(0, spilled)),
            "Nonce is too long: 48 bytes, at most 16\n");
  Case hostile = kEverything;
  hostile.additional2 = std::string(2000, 'f');
  EXPECT_EQ(RunRequest(Header(512) + Inputs(0, hostile)),
            "AdditionalInput is too long: 1000 bytes, at most 32\n");
  // The refused line is copied; nothing is answered.
  EXPECT_TRUE(Response().ends_with("AdditionalInput = " + hostile.additional2 +
                                   "\r\n"));
  Case huge = kEverything;
  huge.entropy = std::string(4000, 'a');
  EXPECT_EQ(RunRequest(Header(512) + Inputs(0, huge)),
            "EntropyInput is too long: 2000 bytes, at most 32\n");
}

TEST(RbgRunner, UnopenableDeviceStopsAfterTheFirstTestsInputs) {
  const std::string request =
      Header(512) + Inputs(0, kEverything) + "\n" + Inputs(1, kAllEmpty);
  ResetVectorDirs();
  WriteRequest("CTR_DRBG", Crlf(request));
  // An empty /dev for the length of the run.
  ASSERT_EQ(mount("nodev", "/dev", "tmpfs", 0, "size=4k"), 0);
  const std::string out =
      CaptureStdout([] { test_rbg_from_file("CTR_DRBG"); });
  ASSERT_EQ(umount2("/dev", MNT_DETACH), 0);
  EXPECT_EQ(out, "Error opening urandom\nError set params  \n");
  EXPECT_EQ(Response(), Crlf(Header(512) + Inputs(0, kEverything)));
}

TEST(RbgRunner, ShortWritesAreReported) {
  std::string request = Header(512);
  for (int i = 0; i < 200; ++i) request += Inputs(i, kEverything) + "\n";
  ResetVectorDirs();
  WriteRequest("CTR_DRBG", Crlf(request));
  MountTinyResponseDir(4096);
  const std::string out =
      CaptureStdout([] { test_rbg_from_file("CTR_DRBG"); });
  EXPECT_NE(out.find("Problem writing"), std::string::npos) << out;
  ResetVectorDirs();
}

TEST(RbgRunner, MissingRequestFile) {
  ResetVectorDirs();
  EXPECT_EQ(CaptureStdout(fips_test_vectors_rbg),
            "Couldn't open /tmp/req/CTR_DRBG.req\n");
  EXPECT_FALSE(ResponseExists("CTR_DRBG"));
}

}  // namespace
}  // namespace fipsval::testing
